// Pass/fail thresholds of a load run: "NAME: EXPR", NAME a name of the
// table, EXPR conditions joined by "and", judged on the same rows the table
// prints.
#ifndef ORBELLE_RUNNER_THRESHOLDS_H
#define ORBELLE_RUNNER_THRESHOLDS_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/runner/report.h"

namespace runner {

// Most thresholds one run takes, most conditions one takes and its longest
// text: a run judges a handful, and a verdict line stays readable.
constexpr size_t max_thresholds = 100;
constexpr size_t max_conditions = 20;
constexpr size_t max_threshold_text = 1000;

struct Condition {
    enum class Metric { P50, P90, P95, P99, Max, Mean, Failures, Rate, Dropped } metric;
    enum class Op { Less, LessOrEqual, Greater, GreaterOrEqual, Equal } op;
    double value = 0;     // ms, percent, per second or a count
    double baseline = 0;  // more than 0: value is this times the baseline's
};

struct Threshold {
    std::string text;  // as given
    std::string name;  // a row of the table
    std::vector<Condition> conditions;
};

// Reads "all requests: p95<5ms and failures<1%". Times take us, ms or s (ms
// without a unit), failures a percentage, rate /s, /m or /h, dropped a
// count; a time or rate may be FACTOR*baseline. False with a message.
bool parse_threshold(const std::string &text, Threshold &threshold, std::string &error);

// Judges a threshold on rows (a table's, kAllCalls last). Times are the
// response time where the row has one (under a rate), else the service
// time. baseline may be empty; a relative condition without its baseline
// row is breached. A name that is not a row is breached.
Verdict judge(const Threshold &threshold, const std::vector<StatsRow> &rows, uint64_t dropped,
              const std::vector<StatsRow> &baseline);

}  // namespace runner

#endif
