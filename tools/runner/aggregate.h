// The parent's view of a load run: every event of every user, counted once,
// into totals per name, one-second history and failures by exception id.
#ifndef ORBELLE_RUNNER_AGGREGATE_H
#define ORBELLE_RUNNER_AGGREGATE_H

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tools/runner/events.h"
#include "tools/runner/histogram.h"
#include "tools/runner/report.h"

namespace runner {

// The exception id a failure is grouped by: the first "IDL:..." word of
// its error text; else "check failed", "status S, exception I" or the text.
std::string failure_id(const Event &event);

class Aggregator {
public:
    // start_ms: the run's start, milliseconds since the epoch; seconds of
    // history count from it.
    explicit Aggregator(int64_t start_ms);
    ~Aggregator();
    Aggregator(const Aggregator &) = delete;
    Aggregator &operator=(const Aggregator &) = delete;

    // Calls, checks and transactions are counted per name, the calls of
    // invoke commands also as kAllCalls, iterations as kIterations; other
    // kinds are passed over. An event with a wait is also timed from when
    // its iteration was due.
    void add(const Event &event);

    // Under a rate: the target now and the iterations dropped so far, for
    // the progress line and the seconds of history.
    void set_schedule(double target_per_s, uint64_t dropped);

    // Once a second: the progress line of what arrived since the previous
    // tick (elapsed, users, calls/s, failures, p50/p95/p99), and the seconds
    // of history that can no longer receive events are closed. users is the
    // count of users running now.
    std::string tick(int64_t now_ms, int users, int users_total);

    // Closes every second up to end_ms and fills report's rows, failures
    // and history (title and settings are the caller's).
    void finish(int64_t end_ms, RunReport &report);
    // The rows of the table as they stand at now_ms, without spectra, for
    // thresholds judged during the run; history is left as it is.
    std::vector<StatsRow> rows_now(int64_t now_ms) const;

    uint64_t iterations() const { return iterations_; }
    uint64_t failed_iterations() const { return failed_iterations_; }

private:
    struct Totals;
    struct Second;
    Totals &totals_of(const Event &event);
    void close_seconds_before(int64_t second);
    StatsRow row_of(const Totals &t, double seconds, bool spectra) const;
    void record_schedule(int64_t now_ms);

    int64_t start_ms_;
    int64_t last_tick_ms_;
    std::vector<std::unique_ptr<Totals>> totals_;  // in first-seen order
    std::map<std::string, Totals *> by_name_;
    std::unique_ptr<Totals> all_, iterations_row_;
    std::map<std::string, FailureRow> failures_;
    // Seconds still open for late events, from next_second_ on.
    std::map<int64_t, std::unique_ptr<Second>> open_;
    int64_t next_second_ = 0;
    std::vector<int> users_by_second_;
    std::vector<double> target_by_second_;
    std::vector<uint64_t> dropped_by_second_;  // dropped so far at each second's end
    double target_ = 0;
    uint64_t dropped_ = 0;
    bool scheduled_ = false;
    std::vector<SecondRow> history_;
    // What arrived since the last tick.
    Histogram window_;
    uint64_t window_failures_ = 0, window_iterations_ = 0;
    uint64_t iterations_ = 0, failed_iterations_ = 0;
};

// The final table and the failures, as the parent prints them.
void print_summary(const RunReport &report, FILE *out);

}  // namespace runner

#endif
