#include "tools/runner/aggregate.h"

#include <algorithm>
#include <cmath>

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
    Histogram response;  // from when the iteration was due, under a rate
};

struct Aggregator::Second {
    Counts all;
    std::map<std::string, Counts> by_name;
    uint64_t iterations = 0;
};

namespace {

// The spectrum's percentiles: halving the distance to 100 in two steps
// each, up to 99.9999, as latency plots on a log scale of 1/(1-p) draw them.
std::vector<std::pair<double, double>> spectrum_of(const Histogram &h) {
    std::vector<std::pair<double, double>> points;
    if (h.count() == 0) return points;
    for (int k = 0; k <= 40; ++k) {
        double p = 1 - std::pow(0.5, k / 2.0);
        if (p > 0.999999) break;
        points.emplace_back(p * 100, h.percentile_ms(p));
    }
    points.emplace_back(100, static_cast<double>(h.max_us_seen()) / 1000);
    return points;
}

}  // namespace

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
    : start_ms_(start_ms),
      last_tick_ms_(start_ms),
      all_(std::make_unique<Totals>()),
      iterations_row_(std::make_unique<Totals>()) {
    all_->name = kAllCalls;
    all_->kind = "all";
    iterations_row_->name = kIterations;
    iterations_row_->kind = "iteration";
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
    const bool iteration = std::string_view(event.kind) == "iteration";
    if (!iteration && !is_counted(event.kind)) return;
    Totals &t = iteration ? *iterations_row_ : totals_of(event);
    ++t.counts.count;
    if (!event.ok) ++t.counts.failed;
    if (t.timed) t.counts.latency.add_ms(event.ms);
    if (t.timed && event.wait_ms >= 0) t.response.add_ms(event.ms + event.wait_ms);

    int64_t second = std::max<int64_t>(0, (event.t - start_ms_) / 1000);
    second = std::max(second, next_second_);  // a late event joins the oldest open second
    auto &slot = open_[second];
    if (!slot) slot = std::make_unique<Second>();
    if (iteration) {
        ++iterations_;
        if (!event.ok) ++failed_iterations_;
        ++window_iterations_;
        ++slot->iterations;
        return;
    }
    const bool request =
        std::string_view(event.kind) == "call" && event.name.compare(0, 7, "invoke ") == 0;
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
        size_t at = std::min<size_t>(static_cast<size_t>(next_second_),
                                     users_by_second_.empty() ? 0 : users_by_second_.size() - 1);
        int users = users_by_second_.empty() ? 0 : users_by_second_[at];
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
        SecondRow &all = history_.back();
        all.iterations = s.iterations;
        if (scheduled_ && at < target_by_second_.size()) {
            all.target = target_by_second_[at];
            all.dropped = dropped_by_second_[at] - (at > 0 ? dropped_by_second_[at - 1] : 0);
        } else if (scheduled_) {  // the part of a second in which the run ended
            all.target = target_;
        }
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
    record_schedule(now_ms);
    close_seconds_before((elapsed - late_ms) / 1000);

    double span = std::max<double>(1, static_cast<double>(now_ms - last_tick_ms_)) / 1000;
    last_tick_ms_ = now_ms;
    char line[300];
    int n = std::snprintf(
        line, sizeof line,
        "%5llds  users %d/%d  calls/s %.1f  failures %llu  p50 %.3f ms  p95 %.3f ms  p99 %.3f ms",
        static_cast<long long>(elapsed / 1000), users, users_total,
        static_cast<double>(window_.count()) / span,
        static_cast<unsigned long long>(window_failures_), window_.percentile_ms(0.50),
        window_.percentile_ms(0.95), window_.percentile_ms(0.99));
    if (scheduled_ && n > 0 && static_cast<size_t>(n) < sizeof line)
        std::snprintf(line + n, sizeof line - static_cast<size_t>(n),
                      "  iterations/s %.1f of %.1f  dropped %llu",
                      static_cast<double>(window_iterations_) / span, target_,
                      static_cast<unsigned long long>(dropped_));
    window_.clear();
    window_failures_ = 0;
    window_iterations_ = 0;
    return line;
}

void Aggregator::finish(int64_t end_ms, RunReport &report) {
    int64_t elapsed = std::max<int64_t>(0, end_ms - start_ms_);
    // Whole seconds only: the part of a second in which the users stopped
    // stays out of the history unless something ended in it.
    int64_t last = elapsed / 1000;
    if (!open_.empty()) last = std::max(last, open_.rbegin()->first + 1);
    record_schedule(end_ms);
    close_seconds_before(last);
    report.started_ms = start_ms_;
    report.duration_s = static_cast<double>(elapsed) / 1000;
    double seconds = std::max(report.duration_s, 0.001);
    report.rows.clear();
    for (const auto &t : totals_) report.rows.push_back(row_of(*t, seconds, true));
    if (iterations_row_->counts.count > 0)
        report.rows.push_back(row_of(*iterations_row_, seconds, true));
    report.rows.push_back(row_of(*all_, seconds, true));
    report.open_model = scheduled_;
    report.dropped = dropped_;
    report.failures.clear();
    for (const auto &f : failures_) {
        report.failures.push_back(f.second);
        report.failures.back().id = f.first;
    }
    std::stable_sort(report.failures.begin(), report.failures.end(),
                     [](const FailureRow &a, const FailureRow &b) { return a.count > b.count; });
    report.history = history_;
}

void Aggregator::record_schedule(int64_t now_ms) {
    if (!scheduled_) return;
    // The schedule's counts as a second ends belong to that second.
    int64_t elapsed = std::max<int64_t>(1, now_ms - start_ms_);
    // Ticks come a little after each whole second: the nearest one ended.
    size_t ended = static_cast<size_t>(std::max<int64_t>(0, (elapsed + 500) / 1000 - 1));
    uint64_t before = dropped_by_second_.empty() ? 0 : dropped_by_second_.back();
    target_by_second_.resize(std::max(target_by_second_.size(), ended + 1), target_);
    dropped_by_second_.resize(std::max(dropped_by_second_.size(), ended + 1), before);
    target_by_second_[ended] = target_;
    dropped_by_second_[ended] = dropped_;
}

void Aggregator::set_schedule(double target_per_s, uint64_t dropped) {
    scheduled_ = true;
    target_ = target_per_s;
    dropped_ = dropped;
}

StatsRow Aggregator::row_of(const Totals &t, double seconds, bool spectra) const {
    StatsRow r;
    r.name = t.name;
    r.kind = t.kind;
    r.count = t.counts.count;
    r.failed = t.counts.failed;
    r.per_second = static_cast<double>(t.counts.count) / seconds;
    r.timed = t.timed;
    if (!t.timed) return r;
    const Histogram &h = t.counts.latency;
    r.min_ms = static_cast<double>(h.min_us()) / 1000;
    r.p50_ms = h.percentile_ms(0.50);
    r.p90_ms = h.percentile_ms(0.90);
    r.p95_ms = h.percentile_ms(0.95);
    r.p99_ms = h.percentile_ms(0.99);
    r.max_ms = static_cast<double>(h.max_us_seen()) / 1000;
    r.mean_ms = h.mean_ms();
    if (spectra) r.spectrum = spectrum_of(h);
    const Histogram &w = t.response;
    if (w.count() == 0) return r;
    r.has_response = true;
    r.r_p50_ms = w.percentile_ms(0.50);
    r.r_p90_ms = w.percentile_ms(0.90);
    r.r_p95_ms = w.percentile_ms(0.95);
    r.r_p99_ms = w.percentile_ms(0.99);
    r.r_max_ms = static_cast<double>(w.max_us_seen()) / 1000;
    r.r_mean_ms = w.mean_ms();
    if (spectra) r.r_spectrum = spectrum_of(w);
    return r;
}

std::vector<StatsRow> Aggregator::rows_now(int64_t now_ms) const {
    double seconds = std::max<double>(0.001, static_cast<double>(now_ms - start_ms_) / 1000);
    std::vector<StatsRow> rows;
    for (const auto &t : totals_) rows.push_back(row_of(*t, seconds, false));
    rows.push_back(row_of(*iterations_row_, seconds, false));
    rows.push_back(row_of(*all_, seconds, false));
    return rows;
}

void print_summary(const RunReport &report, FILE *out) {
    if (!report.verdicts.empty()) {
        std::fprintf(out, "\nthresholds\n");
        for (const Verdict &v : report.verdicts)
            std::fprintf(out, "  %-6s %s  (%s)\n", v.passed ? "passed" : "BREACHED", v.text.c_str(),
                         v.detail.c_str());
    }
    std::fprintf(out, "\n%-34s %8s %7s %9s %9s %9s %9s %9s %9s %9s\n", "name", "count", "failed",
                 "per s", "min ms", "p50 ms", "p90 ms", "p95 ms", "p99 ms", "max ms");
    bool responses = false;
    for (const StatsRow &r : report.rows) {
        std::fprintf(out, "%-34s %8llu %7llu %9.1f", r.name.c_str(),
                     static_cast<unsigned long long>(r.count),
                     static_cast<unsigned long long>(r.failed), r.per_second);
        if (r.timed && r.count > 0)
            std::fprintf(out, " %9.3f %9.3f %9.3f %9.3f %9.3f %9.3f", r.min_ms, r.p50_ms, r.p90_ms,
                         r.p95_ms, r.p99_ms, r.max_ms);
        std::fputc('\n', out);
        responses = responses || r.has_response;
    }
    if (responses) {
        std::fprintf(out,
                     "\nresponse time, from when each iteration was due (above: service time)\n");
        for (const StatsRow &r : report.rows)
            if (r.has_response)
                std::fprintf(out, "%-34s %8s %7s %9s %9s %9.3f %9.3f %9.3f %9.3f %9.3f\n",
                             r.name.c_str(), "", "", "", "", r.r_p50_ms, r.r_p90_ms, r.r_p95_ms,
                             r.r_p99_ms, r.r_max_ms);
    }
    if (report.open_model)
        std::fprintf(out, "\ndropped iterations %llu (due while every user was busy)\n",
                     static_cast<unsigned long long>(report.dropped));
    if (!report.baseline.empty()) {
        std::fprintf(out, "\nagainst the baseline %s\n%-34s %9s %9s %9s %9s\n",
                     report.baseline.c_str(), "name", "p50", "p95", "p99", "per s");
        for (const BaselineDelta &d : report.deltas) {
            std::fprintf(out, "%-34s", d.name.c_str());
            for (double v : {d.p50, d.p95, d.p99, d.rate})
                if (std::isnan(v))
                    std::fprintf(out, " %9s", "new");
                else
                    std::fprintf(out, " %+8.1f%%", v);
            std::fputc('\n', out);
        }
    }
    if (!report.failures.empty()) {
        std::fprintf(out, "\nfailures by exception\n");
        for (const FailureRow &f : report.failures)
            std::fprintf(out, "%8llu  %s\n          e.g. %s\n",
                         static_cast<unsigned long long>(f.count), f.id.c_str(), f.example.c_str());
    }
}

}  // namespace runner
