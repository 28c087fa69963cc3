// A baseline: the PREFIX_stats.csv of an earlier run, read back as rows
// of its table, and the change of each name against it.
#ifndef ORBELLE_RUNNER_BASELINE_H
#define ORBELLE_RUNNER_BASELINE_H

#include <string>
#include <vector>

#include "tools/runner/report.h"

namespace runner {

// Largest baseline file read: a table of a few hundred names is some tens
// of kilobytes; anything far larger is not one of ours.
constexpr size_t max_baseline_bytes = 4 << 20;

// Reads the rows of a stats file (name, count, failed, calls_per_s and
// the time columns; the response columns where present). False with
// "file:line: message", or a message, for a file that is not one.
bool parse_baseline(const std::string &file, const std::string &text, std::vector<StatsRow> &rows,
                    std::string &error);
bool read_baseline(const std::string &path, std::vector<StatsRow> &rows, std::string &error);

// The change of p50, p95, p99 (response time where both have it) and rate
// for every row of now, in percent; NaN where the baseline has no such
// name or a zero to compare with.
std::vector<BaselineDelta> compare_to_baseline(const std::vector<StatsRow> &now,
                                               const std::vector<StatsRow> &baseline);

}  // namespace runner

#endif
