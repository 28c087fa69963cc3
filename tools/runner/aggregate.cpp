#include "tools/runner/aggregate.h"

#include <algorithm>

namespace runner {
namespace {

// A second of history stays open this long after it ended, for events
// still on their way from the users.
constexpr int64_t late_ms = 1500;

struct Counts {
    uint64_t count = 0;
    uint64_t failed = 0;
    Histogram latency;
};

bool is_counted(const char *kind) {
    return std::string_view(kind) == "call" || std::string_view(kind) == "check" ||
           std::string_view(kind) == "transaction";
}

}  // namespace

struct Aggregator::Totals {
    std::string name;
    std::string kind;
    bool timed = true;
    Counts counts;
};

struct Aggregator::Second {
    Counts all;
    std::map<std::string, Counts> by_name;
};

std::string failure_id(const Event &event) {
    size_t at = event.error.find("IDL:");
    if (at != std::string::npos) {
        size_t end = event.error.find_first_of(" \t\n,;()'\"", at);
        return event.error.substr(at, end == std::string::npos ? std::string::npos : end - at);
    }
    if (std::string_view(event.kind) == "check") return "check failed";
    if (event.has_status)
        return "status " + std::to_string(event.status) + ", exception " +
               std::to_string(event.index);
    return event.error.empty() ? "failed" : event.error.substr(0, 80);
}

Aggregator::Aggregator(int64_t start_ms)
    : start_ms_(start_ms), last_tick_ms_(start_ms), all_(std::make_unique<Totals>()) {
    all_->name = kAllCalls;
    all_->kind = "all";
}

Aggregator::~Aggregator() = default;

Aggregator::Totals &Aggregator::totals_of(const Event &event) {
    auto found = by_name_.find(event.name);
    if (found != by_name_.end()) return *found->second;
    auto totals = std::make_unique<Totals>();
    totals->name = event.name;
    totals->kind = event.kind;
    totals->timed = std::string_view(event.kind) != "check";
    Totals &t = *totals;
    by_name_.emplace(event.name, &t);
    totals_.push_back(std::move(totals));
    return t;
}

void Aggregator::add(const Event &event) {
    if (std::string_view(event.kind) == "iteration") {
        ++iterations_;
        if (!event.ok) ++failed_iterations_;
        return;
    }
    if (!is_counted(event.kind)) return;
    const bool request =
        std::string_view(event.kind) == "call" && event.name.compare(0, 7, "invoke ") == 0;
    Totals &t = totals_of(event);
    ++t.counts.count;
    if (!event.ok) ++t.counts.failed;
    if (t.timed) t.counts.latency.add_ms(event.ms);

    int64_t second = std::max<int64_t>(0, (event.t - start_ms_) / 1000);
    second = std::max(second, next_second_);  // a late event joins the oldest open second
    auto &slot = open_[second];
    if (!slot) slot = std::make_unique<Second>();
    Counts &named = slot->by_name[event.name];
    ++named.count;
    if (!event.ok) ++named.failed;
    if (t.timed) named.latency.add_ms(event.ms);

    if (!event.ok && std::string_view(event.kind) != "transaction") {
        FailureRow &f = failures_[failure_id(event)];
        ++f.count;
        if (f.example.empty()) f.example = event.error;
        ++window_failures_;
    }
    if (!request) return;
    ++all_->counts.count;
    all_->counts.latency.add_ms(event.ms);
    ++slot->all.count;
    slot->all.latency.add_ms(event.ms);
    window_.add_ms(event.ms);
    if (!event.ok) {
        ++all_->counts.failed;
        ++slot->all.failed;
    }
}

void Aggregator::close_seconds_before(int64_t end) {
    for (; next_second_ < end; ++next_second_) {
        auto found = open_.find(next_second_);
        Second empty;
        const Second &s = found == open_.end() ? empty : *found->second;
        int users = users_by_second_.empty()
                        ? 0
                        : users_by_second_[std::min<size_t>(static_cast<size_t>(next_second_),
                                                            users_by_second_.size() - 1)];
        auto row = [&](const std::string &name, const Counts &c) {
            SecondRow r;
            r.second = next_second_;
            r.name = name;
            r.count = c.count;
            r.failures = c.failed;
            r.p50_ms = c.latency.percentile_ms(0.50);
            r.p95_ms = c.latency.percentile_ms(0.95);
            r.p99_ms = c.latency.percentile_ms(0.99);
            r.users = users;
            history_.push_back(std::move(r));
        };
        row(kAllCalls, s.all);
        for (const auto &named : s.by_name) row(named.first, named.second);
        if (found != open_.end()) open_.erase(found);
    }
}

std::string Aggregator::tick(int64_t now_ms, int users, int users_total) {
    int64_t elapsed = std::max<int64_t>(0, now_ms - start_ms_);
    size_t second = static_cast<size_t>(elapsed / 1000);
    if (users_by_second_.size() <= second)
        users_by_second_.resize(second + 1, users_by_second_.empty() ? 0 : users_by_second_.back());
    users_by_second_[second] = users;
    close_seconds_before((elapsed - late_ms) / 1000);

    double span = std::max<double>(1, static_cast<double>(now_ms - last_tick_ms_)) / 1000;
    last_tick_ms_ = now_ms;
    char line[200];
    std::snprintf(line, sizeof line,
                  "%5llds  users %d/%d  calls/s %.1f  failures %llu  p50 %.3f ms  p95 %.3f ms  "
                  "p99 %.3f ms",
                  static_cast<long long>(elapsed / 1000), users, users_total,
                  static_cast<double>(window_.count()) / span,
                  static_cast<unsigned long long>(window_failures_), window_.percentile_ms(0.50),
                  window_.percentile_ms(0.95), window_.percentile_ms(0.99));
    window_.clear();
    window_failures_ = 0;
    return line;
}

void Aggregator::finish(int64_t end_ms, RunReport &report) {
    int64_t elapsed = std::max<int64_t>(0, end_ms - start_ms_);
    // Whole seconds only: the part of a second in which the users stopped
    // stays out of the history unless something ended in it.
    int64_t last = elapsed / 1000;
    if (!open_.empty()) last = std::max(last, open_.rbegin()->first + 1);
    close_seconds_before(last);
    report.started_ms = start_ms_;
    report.duration_s = static_cast<double>(elapsed) / 1000;
    double seconds = std::max(report.duration_s, 0.001);
    auto row = [&](const Totals &t) {
        StatsRow r;
        r.name = t.name;
        r.kind = t.kind;
        r.count = t.counts.count;
        r.failed = t.counts.failed;
        r.per_second = static_cast<double>(t.counts.count) / seconds;
        r.timed = t.timed;
        if (t.timed) {
            const Histogram &h = t.counts.latency;
            r.min_ms = static_cast<double>(h.min_us()) / 1000;
            r.p50_ms = h.percentile_ms(0.50);
            r.p90_ms = h.percentile_ms(0.90);
            r.p95_ms = h.percentile_ms(0.95);
            r.p99_ms = h.percentile_ms(0.99);
            r.max_ms = static_cast<double>(h.max_us_seen()) / 1000;
        }
        return r;
    };
    report.rows.clear();
    for (const auto &t : totals_) report.rows.push_back(row(*t));
    report.rows.push_back(row(*all_));
    report.failures.clear();
    for (const auto &f : failures_) {
        report.failures.push_back(f.second);
        report.failures.back().id = f.first;
    }
    std::stable_sort(report.failures.begin(), report.failures.end(),
                     [](const FailureRow &a, const FailureRow &b) { return a.count > b.count; });
    report.history = history_;
}

void print_summary(const RunReport &report, FILE *out) {
    std::fprintf(out, "\n%-34s %8s %7s %9s %9s %9s %9s %9s %9s %9s\n", "name", "count", "failed",
                 "calls/s", "min ms", "p50 ms", "p90 ms", "p95 ms", "p99 ms", "max ms");
    for (const StatsRow &r : report.rows) {
        std::fprintf(out, "%-34s %8llu %7llu %9.1f", r.name.c_str(),
                     static_cast<unsigned long long>(r.count),
                     static_cast<unsigned long long>(r.failed), r.per_second);
        if (r.timed && r.count > 0)
            std::fprintf(out, " %9.3f %9.3f %9.3f %9.3f %9.3f %9.3f", r.min_ms, r.p50_ms, r.p90_ms,
                         r.p95_ms, r.p99_ms, r.max_ms);
        std::fputc('\n', out);
    }
    if (!report.failures.empty()) {
        std::fprintf(out, "\nfailures by exception\n");
        for (const FailureRow &f : report.failures)
            std::fprintf(out, "%8llu  %s\n          e.g. %s\n",
                         static_cast<unsigned long long>(f.count), f.id.c_str(), f.example.c_str());
    }
}

}  // namespace runner
