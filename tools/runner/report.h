// What a load run found, as the summary, the CSV files and the HTML report
// show it, and the writers of the two files.
#ifndef ORBELLE_RUNNER_REPORT_H
#define ORBELLE_RUNNER_REPORT_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace runner {

// The name of the rows that add up every request the run sent: the calls
// of its invoke commands (binds, parameter lists and releases are calls of
// the library that send nothing, or not each time).
inline const char kAllCalls[] = "all requests";
// The row of the iterations: every user's runs through its scripts.
inline const char kIterations[] = "iterations";

// One row of the final table: an operation, a transaction or all calls.
struct StatsRow {
    std::string name;  // "Bank.open_account", "transaction open", kAllCalls
    std::string kind;  // "call", "transaction", "check" or "all"
    uint64_t count = 0;
    uint64_t failed = 0;
    double per_second = 0;  // count over the run's duration
    bool timed = true;      // checks have no latency: the columns below are 0
    double min_ms = 0, p50_ms = 0, p90_ms = 0, p95_ms = 0, p99_ms = 0, max_ms = 0;
    double mean_ms = 0;
    // Under a rate, iterations and transactions are also timed from when
    // their iteration was due: the response time, beside the service time
    // above. has_response is false elsewhere.
    bool has_response = false;
    double r_p50_ms = 0, r_p90_ms = 0, r_p95_ms = 0, r_p99_ms = 0, r_max_ms = 0, r_mean_ms = 0;
    // The distribution as (percentile from 0 to 100, ms), denser towards the
    // top, ending with the maximum at 100; the response time's likewise.
    std::vector<std::pair<double, double>> spectrum, r_spectrum;
};

// One threshold and how the run fared against it.
struct Verdict {
    std::string text;  // as given: "all requests: p95<5ms"
    bool passed = true;
    std::string detail;  // what was measured: "p95 4.210 ms"
};

// One name's change against a baseline run, in percent (NaN: not in it).
struct BaselineDelta {
    std::string name;
    double p50 = 0, p95 = 0, p99 = 0, rate = 0;
};

// Failures with one exception id (or one kind of failure without one).
struct FailureRow {
    std::string id;  // "IDL:omg.org/CORBA/TRANSIENT:1.0", "check", ...
    uint64_t count = 0;
    std::string example;  // one error text of the group, as a user reads it
};

// One second of the run for one name (kAllCalls for every call together).
struct SecondRow {
    int64_t second = 0;  // from the run's start, 0 for the first second
    std::string name;
    uint64_t count = 0;
    uint64_t failures = 0;
    double p50_ms = 0, p95_ms = 0, p99_ms = 0;  // 0 when count is 0
    int users = 0;                              // users running at the end of that second
    // Rows of kAllCalls only: iterations ended in that second, and under a
    // rate the target at its end and the iterations dropped in it.
    uint64_t iterations = 0;
    double target = 0;
    uint64_t dropped = 0;
};

struct RunReport {
    std::string title;  // "orbelle-run: scripts/06-load.orb"
    // The run's settings in the order they are shown: ("users", "8"),
    // ("ramp-up", "2 s"), ("duration", "20 s"), ("scripts", "..."), ...
    std::vector<std::pair<std::string, std::string>> settings;
    int64_t started_ms = 0;  // milliseconds since the epoch
    double duration_s = 0;
    std::vector<StatsRow> rows;        // calls and transactions in first-seen order, then kAllCalls
    std::vector<FailureRow> failures;  // most frequent first
    std::vector<SecondRow> history;    // by second, then name
    bool open_model = false;           // --rate: iterations on a schedule
    uint64_t dropped = 0;              // iterations due while every user was busy
    std::vector<Verdict> verdicts;     // in the order the thresholds were given
    std::string baseline;              // the baseline's file, empty without one
    std::vector<BaselineDelta> deltas;  // in the order of rows
};

// Writes one self-contained HTML file: settings, the final table, the
// failures and charts over time of throughput, failures, p50/p95/p99 latency
// and users running (from the kAllCalls rows of history). Everything it
// needs is inside the file; it opens without a network. False with a message.
bool write_html_report(const RunReport &report, const std::string &path, std::string &error);

// PREFIX_stats.csv (the final table), PREFIX_history.csv (one row per
// second and name) and PREFIX_percentiles.csv (each name's spectrum).
// False with a message.
bool write_csv_report(const RunReport &report, const std::string &prefix, std::string &error);

}  // namespace runner

#endif
