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
#include <cmath>
#include <csignal>
#include <cstring>
#include <ctime>
#include <limits>
#include <thread>

#include "tools/runner/aggregate.h"
#include "tools/runner/arrivals.h"
#include "tools/runner/baseline.h"
#include "tools/runner/event_reader.h"
#include "tools/runner/load_options.h"
#include "tools/runner/metrics.h"
#include "tools/runner/metrics_http.h"
#include "tools/runner/user.h"

namespace runner {
namespace {

// A user's line longer than this is not an event of ours: it is dropped
// rather than buffered without end.
constexpr size_t max_event_line = 1 << 20;
// How long events wait in their pipes at most before the runner reads them.
constexpr auto batch_interval = std::chrono::milliseconds(5);
// What a user's pipe holds: its events of several batch intervals at the
// fastest (one user's 60,000 events a second fill 256 KiB in some 20 ms),
// so that a user never waits on a full pipe while the runner sleeps. The
// kernel's own limits may keep it smaller; then it is what the kernel gives.
constexpr int user_pipe_bytes = 256 * 1024;
// The epoll tag of the metrics socket; users are tagged by their index.
constexpr uint64_t metrics_tag = UINT64_MAX;

volatile std::sig_atomic_t stop_requests = 0;  // the parent's Ctrl-C and SIGTERM

void on_stop_request(int) { stop_requests = stop_requests + 1; }

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
    std::string pending;    // what arrived after the last complete line
    bool killed = false;    // by us, after not stopping in time
    bool stopping = false;  // sent its stop, as the stages went down
    int wait_status = 0;
};

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
        : door_(door),
          scripts_(scripts),
          options_(options),
          start_(now_ms()),
          totals_(start_),
          profile_(options.stages.empty() ? Profile(options.rate)
                                          : Profile(options.stages, std::max(0.0, options.rate))) {}

    int run();

private:
    bool start_user(int vu);
    bool adjust_users(int64_t now);
    bool start_metrics();
    void hold_metrics();
    void on_tick(int64_t now);
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
    Event event_;  // read_user's, reused
    FILE *events_ = nullptr;
    bool start_failed_ = false;
    Profile profile_;  // users or rate over time, from the stages
    SharedArrivals arrivals_;
    std::vector<StatsRow> baseline_;
    std::vector<char> slot_used_;  // by user number, from 1
    int active_ = 0;               // running and not told to stop
    int started_ = 0;              // users started in all
    bool aborted_ = false;         // a threshold was breached, with --abort-on-threshold
    int users_total_ = 1;          // the most users at once
    Metrics metrics_;
    MetricsHttp http_;
    RunGauges gauges_;
    uint64_t iterations_at_tick_ = 0;
    int64_t last_tick_ = 0;
};

bool Parent::start_user(int vu) {
    int pipe_fds[2];
    if (pipe2(pipe_fds, O_CLOEXEC) != 0) {
        std::fprintf(stderr, "orbelle-run: cannot start user %d: %s\n", vu, std::strerror(errno));
        return false;
    }
    fcntl(pipe_fds[1], F_SETPIPE_SZ, user_pipe_bytes);
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
    if (pid == 0) {
        UserSetup setup{door_, &scripts_, &options_, arrivals_.active() ? &arrivals_ : nullptr,
                        users_total_};
        run_user(setup, vu, pipe_fds[1], parent, inherited, before);
    }
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
    slot_used_[static_cast<size_t>(vu)] = 1;
    ++active_;
    ++started_;
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
    Event &event = event_;  // reused: its texts keep their buffers
    for (size_t nl; (nl = user.pending.find('\n', from)) != std::string::npos; from = nl + 1) {
        std::string_view line = std::string_view(user.pending).substr(from, nl - from);
        if (read_event(line, event)) {
            totals_.add(event);
            if (http_.fd() >= 0) metrics_.add(event);
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
    if (!user.stopping) --active_;
    slot_used_[static_cast<size_t>(user.vu)] = 0;
}

void Parent::stop_all(int sig) {
    for (User &u : users_)
        if (u.fd >= 0) {
            kill(u.pid, sig);
            if (sig == SIGKILL) u.killed = true;
        }
}

// Starts the users due by now and, as stages go down, stops the newest.
// False when a user could not be started.
bool Parent::adjust_users(int64_t now) {
    const bool closed_stages = options_.rate <= 0 && !options_.stages.empty();
    if (closed_stages) {
        double t = static_cast<double>(now - start_) / 1000;
        int want = static_cast<int>(std::lround(profile_.target_at(t)));
        while (active_ < want) {
            int vu = 1;
            while (slot_used_[static_cast<size_t>(vu)]) ++vu;  // a slot is free: active_ < want
            if (!start_user(vu)) return false;
        }
        // The newest users go first, so that user numbers stay low.
        for (auto u = users_.rbegin(); active_ > want && u != users_.rend(); ++u)
            if (u->fd >= 0 && !u->stopping) {
                kill(u->pid, SIGTERM);
                u->stopping = true;
                --active_;
            }
        return true;
    }
    while (started_ < options_.users &&
           now >=
               start_ + static_cast<int64_t>(options_.ramp_up_s * 1000 * started_ / options_.users))
        if (!start_user(started_ + 1)) return false;
    return true;
}

// Once a second: the schedule's counts, the progress line and, with
// --abort-on-threshold, the thresholds as they stand.
void Parent::on_tick(int64_t now) {
    double t = static_cast<double>(now - start_) / 1000;
    uint64_t arrivals = 0, dropped = 0;
    if (arrivals_.active()) {
        arrivals_.counts(arrivals, dropped);
        totals_.set_schedule(profile_.target_at(t), dropped);
    }
    std::fprintf(stderr, "%s\n", totals_.tick(now, running_, users_total_).c_str());
    gauges_.users = running_;
    gauges_.open = arrivals_.active();
    gauges_.target_per_s = gauges_.open ? profile_.target_at(t) : 0;
    gauges_.dropped = dropped;
    double span =
        std::max<double>(1, static_cast<double>(now - (last_tick_ ? last_tick_ : start_)));
    gauges_.achieved_per_s =
        static_cast<double>(totals_.iterations() - iterations_at_tick_) * 1000 / span;
    iterations_at_tick_ = totals_.iterations();
    last_tick_ = now;
    if (!options_.abort_on_threshold || aborted_ || t < options_.threshold_grace_s) return;
    std::vector<StatsRow> rows = totals_.rows_now(now);
    for (const Threshold &threshold : options_.thresholds) {
        Verdict v = judge(threshold, rows, dropped, baseline_);
        if (v.passed) continue;
        std::fprintf(stderr, "orbelle-run: threshold breached, stopping: %s (%s)\n", v.text.c_str(),
                     v.detail.c_str());
        aborted_ = true;
        return;
    }
}

int Parent::run() {
    catch_signal(SIGINT, on_stop_request);
    catch_signal(SIGTERM, on_stop_request);
    std::string error;
    if (!options_.baseline_path.empty() &&
        !read_baseline(options_.baseline_path, baseline_, error)) {
        std::fprintf(stderr, "orbelle-run: %s\n", error.c_str());
        return 2;
    }
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
    double run_s = options_.duration_s > 0 ? options_.duration_s : profile_.seconds();
    const int64_t end = run_s > 0 ? start_ + static_cast<int64_t>(run_s * 1000) : INT64_MAX;
    users_total_ = options_.users;
    if (options_.rate <= 0 && !options_.stages.empty()) {
        users_total_ = 0;
        for (const Stage &st : options_.stages)
            users_total_ = std::max(users_total_, static_cast<int>(st.target));
    }
    slot_used_.assign(static_cast<size_t>(users_total_) + 2, 0);
    users_.reserve(static_cast<size_t>(users_total_));
    if (options_.rate > 0) {
        uint32_t waiting =
            static_cast<uint32_t>(options_.waiting < 0 ? options_.users : options_.waiting);
        double end_s = run_s > 0 ? run_s : std::numeric_limits<double>::infinity();
        if (!arrivals_.create(profile_, options_.poisson, waiting, end_s, error)) {
            std::fprintf(stderr, "orbelle-run: %s\n", error.c_str());
            return 2;
        }
    }
    if (!options_.metrics_address.empty() && !start_metrics()) return 2;
    const bool closed_stages = options_.rate <= 0 && !options_.stages.empty();
    int64_t next_tick = start_ + 1000;
    for (;;) {
        int64_t now = now_ms();
        if (!stopping_ && (stop_requests > 0 || now >= end || aborted_)) {
            stopping_ = true;
            kill_at_ = now + static_cast<int64_t>(options_.stop_grace_s * 1000);
            if (stop_requests > 0) std::fprintf(stderr, "orbelle-run: stopping every user\n");
            stop_all(SIGTERM);
        }
        if (stopping_ && (stop_requests > 1 || now >= kill_at_) && running_ > 0) {
            stop_all(SIGKILL);
            kill_at_ = INT64_MAX;
        }
        if (!stopping_ && !adjust_users(now)) {
            start_failed_ = true;
            stop_requests = stop_requests + 1;
        }
        if (running_ == 0 && (stopping_ || (!closed_stages && started_ == options_.users))) break;
        if (now >= next_tick) {
            on_tick(now);
            next_tick += 1000 * ((now - next_tick) / 1000 + 1);
        }
        int64_t wake = std::min(next_tick, stopping_ ? kill_at_ : end);
        if (!stopping_ && closed_stages) wake = std::min(wake, now + 100);
        if (!stopping_ && !closed_stages && started_ < options_.users)
            wake = std::min(wake, start_ + static_cast<int64_t>(options_.ramp_up_s * 1000 *
                                                                started_ / options_.users));
        int timeout = static_cast<int>(std::clamp<int64_t>(wake - now_ms(), 0, 1000));
        epoll_event ready[64];
        int n = epoll_wait(epoll_, ready, 64, timeout);
        for (int i = 0; i < n; ++i) {
            if (ready[i].data.u64 == metrics_tag) {
                http_.serve([this] { return metrics_.render(gauges_); });
                continue;
            }
            User &user = users_[ready[i].data.u64];
            if (user.fd >= 0) read_user(user);
        }
        // Events are read in batches: a user's write then wakes nobody, and
        // the runner does not take the CPU from its users at every event.
        if (n > 0) std::this_thread::sleep_for(batch_interval);
    }
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
    describe_load(options_, files, users_total_, report.settings);
    report.settings.emplace_back("started", local_time(start_));
    if (arrivals_.active()) {
        uint64_t arrivals = 0, dropped = 0;
        arrivals_.counts(arrivals, dropped);
        totals_.set_schedule(profile_.target_at(static_cast<double>(end - start_) / 1000), dropped);
    }
    totals_.finish(end, report);
    report.settings.emplace_back("iterations", std::to_string(totals_.iterations()) + " (" +
                                                   std::to_string(totals_.failed_iterations()) +
                                                   " failed)");
    bool breached = false;
    for (const Threshold &threshold : options_.thresholds) {
        report.verdicts.push_back(judge(threshold, report.rows, report.dropped, baseline_));
        breached = breached || !report.verdicts.back().passed;
    }
    if (!options_.baseline_path.empty()) {
        report.baseline = options_.baseline_path;
        report.deltas = compare_to_baseline(report.rows, baseline_);
    }

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
    if (status == 0 && breached) status = 3;
    if (status == 0 && failures > 0) status = 1;
    // The runner's own cost, apart from its users' (who run the library).
    auto cpu_of = [](int who) {
        rusage u{};
        getrusage(who, &u);
        return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
               static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
    };
    std::string dropped =
        report.open_model ? ", " + std::to_string(report.dropped) + " dropped" : "";
    std::fprintf(stdout,
                 "%s: %llu requests in %.1f s (%.1f/s), %llu failures, %llu iterations%s; "
                 "this process used %.2f s of CPU, its users %.2f s\n",
                 status == 0   ? "OK"
                 : status == 3 ? "FAILED (thresholds)"
                               : "FAILED",
                 static_cast<unsigned long long>(all.count), report.duration_s, all.per_second,
                 static_cast<unsigned long long>(failures),
                 static_cast<unsigned long long>(totals_.iterations()), dropped.c_str(),
                 cpu_of(RUSAGE_SELF), cpu_of(RUSAGE_CHILDREN));
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
    hold_metrics();
    close(epoll_);
    return status;
}

bool Parent::start_metrics() {
    std::string error;
    if (!http_.listen(options_.metrics_address, error)) {
        std::fprintf(stderr, "orbelle-run: %s\n", error.c_str());
        return false;
    }
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.u64 = metrics_tag;
    epoll_ctl(epoll_, EPOLL_CTL_ADD, http_.fd(), &ev);
    std::fprintf(stderr, "orbelle-run: metrics at http://%s:%u/metrics\n",
                 options_.metrics_address.substr(0, options_.metrics_address.rfind(':')).c_str(),
                 static_cast<unsigned>(http_.port()));
    return true;
}

// After the run: the final figures stay served for --metrics-hold, so that
// a scraper's last look sees the whole run.
void Parent::hold_metrics() {
    if (http_.fd() < 0 || options_.metrics_hold_s <= 0) return;
    gauges_.users = 0;
    gauges_.achieved_per_s = 0;
    const int64_t until = now_ms() + static_cast<int64_t>(options_.metrics_hold_s * 1000);
    for (int64_t now; (now = now_ms()) < until && stop_requests < 2;) {
        epoll_event ready[8];
        int n =
            epoll_wait(epoll_, ready, 8, static_cast<int>(std::min<int64_t>(until - now, 1000)));
        for (int i = 0; i < n; ++i)
            if (ready[i].data.u64 == metrics_tag)
                http_.serve([this] { return metrics_.render(gauges_); });
    }
}

}  // namespace

int run_load(hostkit::entry_fn door, const std::vector<Script> &scripts,
             const LoadOptions &options) {
    Parent parent(door, scripts, options);
    return parent.run();
}

}  // namespace runner
