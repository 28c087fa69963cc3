#include "tools/runner/user.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace runner {
namespace {

volatile std::sig_atomic_t user_stop = 0;  // a user's own stop

void on_user_stop(int) { user_stop = 1; }

void catch_stop(int sig) {
    struct sigaction sa {};
    sa.sa_handler = on_user_stop;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = 0;  // no restart: a wait returns at once
    sigaction(sig, &sa, nullptr);
}

// Sleeps until the schedule's clock reads at, or less when the user is
// stopped: a stop is seen within a tenth of a second.
void sleep_until(SharedArrivals &arrivals, double at) {
    for (double left; !user_stop && (left = at - arrivals.now_s()) > 0;) {
        left = std::min(left, 0.1);
        timespec ts{};
        ts.tv_sec = static_cast<time_t>(left);
        ts.tv_nsec = static_cast<long>((left - std::floor(left)) * 1e9);
        nanosleep(&ts, nullptr);
    }
}

// The open model: each iteration starts when the schedule says it is due,
// and tells its events how late it started.
void run_scheduled(Session &session, SharedArrivals &arrivals, const Options &options) {
    // The kernel's default slack of 50 µs would start every iteration late.
    prctl(PR_SET_TIMERSLACK, 1UL);
    for (int i = 1; !user_stop; ++i) {
        double due = 0;
        if (!arrivals.next(due)) {
            // Nothing is left to run: wait, started, for the run to end.
            while (!user_stop) sleep_until(arrivals, arrivals.now_s() + 1);
            return;
        }
        // Events wait in the buffer while the user works, not while it idles.
        if (due > arrivals.now_s()) session.flush_events();
        sleep_until(arrivals, due);
        if (user_stop) return;
        session.set_wait_ms(std::max(0.0, (arrivals.now_s() - due) * 1000));
        Session::Outcome outcome = session.run_iteration(i);
        if (outcome == Session::Outcome::Error || outcome == Session::Outcome::NoMoreRows ||
            outcome == Session::Outcome::Stopped)
            return;
        if (outcome == Session::Outcome::Failed && options.stop_on_error) return;
    }
}

}  // namespace

void run_user(const UserSetup &setup, int vu, int fd, pid_t parent,
              const std::vector<int> &inherited, const sigset_t &mask) {
    // No user outlives its parent, not even one blocked in a call.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(2);
    catch_stop(SIGINT);
    catch_stop(SIGTERM);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    for (int other : inherited) close(other);
    int null = open("/dev/null", O_WRONLY);
    if (null >= 0) {
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    Options options = setup.load->user;
    options.vu = vu;
    options.users_total = setup.users_total;
    options.quiet = true;
    options.checked = true;  // by the parent, before any user started
    options.stop = &user_stop;
    EventWriter events;
    std::string error;
    if (!events.open("fd:" + std::to_string(fd), error)) {
        std::fprintf(stderr, "orbelle-run: user %d: %s\n", vu, error.c_str());
        _exit(2);
    }
    events.set_batched(true);
    hostkit::set_echo(false);
    hostkit::Host host(setup.door);
    std::vector<const Script *> list;
    for (const Script &s : *setup.scripts) list.push_back(&s);
    int status = 2;
    {
        Session session(host, list, options, stdout, &events);
        if (!session.prepare(error)) {
            std::fprintf(stderr, "orbelle-run: user %d: %s\n", vu, error.c_str());
        } else {
            host.init();
            if (setup.arrivals == nullptr) {
                status = session.run();
            } else {
                if (session.set_up() == Session::Outcome::Ok) {
                    run_scheduled(session, *setup.arrivals, options);
                    session.tear_down();
                }
                session.finish();
                status = session.exit_status();
            }
            if (session.set_up_failed())
                std::fprintf(stderr,
                             "orbelle-run: user %d: the set-up failed at %s; it ran no iteration\n",
                             vu, session.failed_at().c_str());
            else if (status == 2)
                std::fprintf(stderr, "orbelle-run: user %d stopped: %s\n", vu,
                             session.failed_at().c_str());
        }
    }
    std::fflush(nullptr);
    _exit(status);
}

}  // namespace runner
