#include "tools/runner/load.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <thread>

#include "tools/runner/aggregate.h"
#include "tools/runner/event_reader.h"

namespace runner {
namespace {

// A user's line longer than this is not an event of ours: it is dropped
// rather than buffered without end.
constexpr size_t max_event_line = 1 << 20;
// How long events wait in their pipes at most before the runner reads them
// (a pipe holds 64 KB, some 300 events of a user).
constexpr auto batch_interval = std::chrono::milliseconds(20);

volatile std::sig_atomic_t stop_requests = 0;  // the parent's Ctrl-C and SIGTERM
volatile std::sig_atomic_t user_stop = 0;      // a user's own stop

void on_stop_request(int) { stop_requests = stop_requests + 1; }
void on_user_stop(int) { user_stop = 1; }

void catch_signal(int sig, void (*handler)(int)) {
    struct sigaction sa {};
    sa.sa_handler = handler;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = 0;  // no restart: a wait returns at once
    sigaction(sig, &sa, nullptr);
}

int64_t now_ms() { return epoch_ms(); }

struct User {
    int vu = 0;
    pid_t pid = -1;
    int fd = -1;
    std::string pending;  // what arrived after the last complete line
    bool killed = false;  // by us, after not stopping in time
    int wait_status = 0;
};

// The child's side: runs the scripts as user vu until they end or a stop
// comes, writing events to fd. Never returns.
[[noreturn]] void run_user(hostkit::entry_fn door, const std::vector<Script> &scripts,
                           const LoadOptions &load, int vu, int fd, pid_t parent,
                           const std::vector<int> &inherited, const sigset_t &mask) {
    // No user outlives its parent, not even one blocked in a call.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(2);
    catch_signal(SIGINT, on_user_stop);
    catch_signal(SIGTERM, on_user_stop);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    for (int other : inherited) close(other);
    int null = open("/dev/null", O_WRONLY);
    if (null >= 0) {
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    Options options = load.user;
    options.vu = vu;
    options.users_total = load.users;
    options.quiet = true;
    options.stop = &user_stop;
    EventWriter events;
    std::string error;
    if (!events.open("fd:" + std::to_string(fd), error)) {
        std::fprintf(stderr, "orbelle-run: user %d: %s\n", vu, error.c_str());
        _exit(2);
    }
    events.set_batched(true);
    hostkit::set_echo(false);
    hostkit::Host host(door);
    std::vector<const Script *> list;
    for (const Script &s : scripts) list.push_back(&s);
    int status = 2;
    {
        Session session(host, list, options, stdout, &events);
        if (!session.prepare(error)) {
            std::fprintf(stderr, "orbelle-run: user %d: %s\n", vu, error.c_str());
        } else {
            host.init();
            status = session.run();
            if (status == 2)
                std::fprintf(stderr, "orbelle-run: user %d stopped: %s\n", vu,
                             session.failed_at().c_str());
        }
    }
    std::fflush(nullptr);
    _exit(status);
}

std::string seconds_text(double s) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g s", s);
    return buf;
}

std::string local_time(int64_t ms) {
    std::time_t t = static_cast<std::time_t>(ms / 1000);
    std::tm tm{};
    localtime_r(&t, &tm);
    char buf[40];
    std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tm);
    return buf;
}

class Parent {
public:
    Parent(hostkit::entry_fn door, const std::vector<Script> &scripts, const LoadOptions &options)
        : door_(door), scripts_(scripts), options_(options), start_(now_ms()), totals_(start_) {}

    int run();

private:
    bool start_user(int vu);
    void read_user(User &user);
    void end_user(User &user);
    void stop_all(int sig);
    int finish();

    hostkit::entry_fn door_;
    const std::vector<Script> &scripts_;
    const LoadOptions &options_;
    int64_t start_;
    Aggregator totals_;
    std::vector<User> users_;
    int epoll_ = -1;
    int running_ = 0;
    bool stopping_ = false;
    int64_t kill_at_ = 0;
    uint64_t bad_lines_ = 0;
    FILE *events_ = nullptr;
    bool start_failed_ = false;
};

bool Parent::start_user(int vu) {
    int pipe_fds[2];
    if (pipe2(pipe_fds, O_CLOEXEC) != 0) {
        std::fprintf(stderr, "orbelle-run: cannot start user %d: %s\n", vu, std::strerror(errno));
        return false;
    }
    std::vector<int> inherited{epoll_, pipe_fds[0]};
    if (events_) inherited.push_back(fileno(events_));
    for (const User &u : users_)
        if (u.fd >= 0) inherited.push_back(u.fd);
    std::fflush(nullptr);
    // A stop between fork and the user's own handlers must not be lost.
    sigset_t stops, before;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    sigprocmask(SIG_BLOCK, &stops, &before);
    pid_t parent = getpid();
    pid_t pid = fork();
    if (pid == 0) run_user(door_, scripts_, options_, vu, pipe_fds[1], parent, inherited, before);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (pid < 0) {
        std::fprintf(stderr, "orbelle-run: cannot start user %d: %s\n", vu, std::strerror(errno));
        close(pipe_fds[0]);
        close(pipe_fds[1]);
        return false;
    }
    close(pipe_fds[1]);
    User user;
    user.vu = vu;
    user.pid = pid;
    user.fd = pipe_fds[0];
    users_.push_back(std::move(user));
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.u64 = users_.size() - 1;
    epoll_ctl(epoll_, EPOLL_CTL_ADD, pipe_fds[0], &ev);
    ++running_;
    return true;
}

void Parent::read_user(User &user) {
    char buf[65536];
    ssize_t n = read(user.fd, buf, sizeof buf);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) return;
    if (n <= 0) {
        end_user(user);
        return;
    }
    user.pending.append(buf, static_cast<size_t>(n));
    size_t from = 0;
    for (size_t nl; (nl = user.pending.find('\n', from)) != std::string::npos; from = nl + 1) {
        Event event;
        std::string_view line = std::string_view(user.pending).substr(from, nl - from);
        if (read_event(line, event)) {
            totals_.add(event);
            if (events_) {
                std::fwrite(line.data(), 1, line.size(), events_);
                std::fputc('\n', events_);
            }
        } else if (bad_lines_++ == 0)
            std::fprintf(stderr, "orbelle-run: user %d wrote a line that is not an event\n",
                         user.vu);
    }
    user.pending.erase(0, from);
    if (user.pending.size() > max_event_line) {
        user.pending.clear();
        ++bad_lines_;
    }
}

void Parent::end_user(User &user) {
    epoll_ctl(epoll_, EPOLL_CTL_DEL, user.fd, nullptr);
    close(user.fd);
    user.fd = -1;
    while (waitpid(user.pid, &user.wait_status, 0) < 0 && errno == EINTR) {
    }
    --running_;
}

void Parent::stop_all(int sig) {
    for (User &u : users_)
        if (u.fd >= 0) {
            kill(u.pid, sig);
            if (sig == SIGKILL) u.killed = true;
        }
}

int Parent::run() {
    catch_signal(SIGINT, on_stop_request);
    catch_signal(SIGTERM, on_stop_request);
    if (!options_.events_path.empty()) {
        events_ = std::fopen(options_.events_path.c_str(), "w");
        if (events_ == nullptr) {
            std::fprintf(stderr, "orbelle-run: cannot open %s for events: %s\n",
                         options_.events_path.c_str(), std::strerror(errno));
            return 2;
        }
    }
    epoll_ = epoll_create1(EPOLL_CLOEXEC);
    if (epoll_ < 0) {
        std::fprintf(stderr, "orbelle-run: %s\n", std::strerror(errno));
        return 2;
    }
    users_.reserve(static_cast<size_t>(options_.users));
    const int64_t end = options_.duration_s > 0
                            ? start_ + static_cast<int64_t>(options_.duration_s * 1000)
                            : INT64_MAX;
    int64_t next_tick = start_ + 1000;
    int started = 0;
    for (;;) {
        int64_t now = now_ms();
        if (!stopping_ && (stop_requests > 0 || now >= end)) {
            stopping_ = true;
            kill_at_ = now + static_cast<int64_t>(options_.stop_grace_s * 1000);
            if (stop_requests > 0) std::fprintf(stderr, "orbelle-run: stopping every user\n");
            stop_all(SIGTERM);
        }
        if (stopping_ && (stop_requests > 1 || now >= kill_at_) && running_ > 0) {
            stop_all(SIGKILL);
            kill_at_ = INT64_MAX;
        }
        while (!stopping_ && started < options_.users &&
               now >= start_ + static_cast<int64_t>(options_.ramp_up_s * 1000 * started /
                                                    options_.users)) {
            if (!start_user(++started)) {
                start_failed_ = true;
                stop_requests = stop_requests + 1;
                break;
            }
        }
        if (running_ == 0 && (stopping_ || started == options_.users)) break;
        if (now >= next_tick) {
            std::fprintf(stderr, "%s\n", totals_.tick(now, running_, options_.users).c_str());
            next_tick += 1000 * ((now - next_tick) / 1000 + 1);
        }
        int64_t wake = std::min(next_tick, stopping_ ? kill_at_ : end);
        if (!stopping_ && started < options_.users)
            wake = std::min(wake, start_ + static_cast<int64_t>(options_.ramp_up_s * 1000 *
                                                                started / options_.users));
        int timeout = static_cast<int>(std::clamp<int64_t>(wake - now_ms(), 0, 1000));
        epoll_event ready[64];
        int n = epoll_wait(epoll_, ready, 64, timeout);
        for (int i = 0; i < n; ++i) {
            User &user = users_[ready[i].data.u64];
            if (user.fd >= 0) read_user(user);
        }
        // Events are read in batches: a user's write then wakes nobody, and
        // the runner does not take the CPU from its users at every event.
        if (n > 0) std::this_thread::sleep_for(batch_interval);
    }
    close(epoll_);
    if (events_ && std::fclose(events_) != 0)
        std::fprintf(stderr, "orbelle-run: cannot write %s: %s\n", options_.events_path.c_str(),
                     std::strerror(errno));
    events_ = nullptr;
    return finish();
}

int Parent::finish() {
    int64_t end = now_ms();
    RunReport report;
    report.title = "orbelle-run";
    std::string files;
    for (const Script &s : scripts_) files += (files.empty() ? "" : " ") + s.file;
    report.title += ": " + files;
    report.settings = {{"scripts", files},
                       {"users", std::to_string(options_.users)},
                       {"ramp-up", seconds_text(options_.ramp_up_s)}};
    if (options_.duration_s > 0)
        report.settings.emplace_back("duration", seconds_text(options_.duration_s));
    else
        report.settings.emplace_back("iterations per user",
                                     std::to_string(options_.user.iterations));
    report.settings.emplace_back("think time", options_.user.no_think ? "skipped" : "as scripted");
    report.settings.emplace_back("started", local_time(start_));
    totals_.finish(end, report);
    report.settings.emplace_back("iterations", std::to_string(totals_.iterations()) + " (" +
                                                   std::to_string(totals_.failed_iterations()) +
                                                   " failed)");

    print_summary(report, stdout);
    int status = start_failed_ ? 2 : 0;
    for (const User &u : users_) {
        if (u.killed) {
            std::fprintf(stdout, "user %d did not stop within %g s and was killed\n", u.vu,
                         options_.stop_grace_s);
        } else if (WIFSIGNALED(u.wait_status)) {
            std::fprintf(stdout, "user %d died of signal %d\n", u.vu, WTERMSIG(u.wait_status));
            status = 2;
        } else if (WIFEXITED(u.wait_status) && WEXITSTATUS(u.wait_status) == 2) {
            status = 2;
        }
    }
    if (bad_lines_ > 0)
        std::fprintf(stdout, "%llu lines from users were not events\n",
                     static_cast<unsigned long long>(bad_lines_));
    const StatsRow &all = report.rows.back();
    uint64_t failures = 0;
    for (const FailureRow &f : report.failures) failures += f.count;
    if (status == 0 && failures > 0) status = 1;
    rusage self{};
    getrusage(RUSAGE_SELF, &self);
    double cpu = static_cast<double>(self.ru_utime.tv_sec + self.ru_stime.tv_sec) +
                 static_cast<double>(self.ru_utime.tv_usec + self.ru_stime.tv_usec) / 1e6;
    std::fprintf(stdout,
                 "%s: %llu requests in %.1f s (%.1f/s), %llu failures, %llu iterations; "
                 "this process used %.2f s of CPU\n",
                 status == 0 ? "OK" : "FAILED", static_cast<unsigned long long>(all.count),
                 report.duration_s, all.per_second, static_cast<unsigned long long>(failures),
                 static_cast<unsigned long long>(totals_.iterations()), cpu);
    std::string error;
    if (!options_.csv_prefix.empty() && !write_csv_report(report, options_.csv_prefix, error)) {
        std::fprintf(stderr, "orbelle-run: %s\n", error.c_str());
        status = 2;
    }
    if (!options_.report_path.empty() && !write_html_report(report, options_.report_path, error)) {
        std::fprintf(stderr, "orbelle-run: %s\n", error.c_str());
        status = 2;
    }
    std::fflush(stdout);
    return status;
}

}  // namespace

int run_load(hostkit::entry_fn door, const std::vector<Script> &scripts,
             const LoadOptions &options) {
    Parent parent(door, scripts, options);
    return parent.run();
}

}  // namespace runner
