// Rows of a load run's table, for the tests of what reads and shows them.
#ifndef ORBELLE_TESTS_UNIT_TOOLS_STATS_ROW_H
#define ORBELLE_TESTS_UNIT_TOOLS_STATS_ROW_H

#include <cstdint>
#include <vector>

#include "tools/runner/report.h"

namespace testsupport {

// A row of the table; times are min, p50, p90, p95, p99, max and, when
// given, mean, in milliseconds. A row without times is not timed (a check).
inline runner::StatsRow stats_row(const char *name, const char *kind, uint64_t count,
                                  uint64_t failed, double rate, std::vector<double> times = {}) {
    runner::StatsRow r;
    r.name = name;
    r.kind = kind;
    r.count = count;
    r.failed = failed;
    r.per_second = rate;
    r.timed = !times.empty();
    times.resize(7, 0);
    r.min_ms = times[0];
    r.p50_ms = times[1];
    r.p90_ms = times[2];
    r.p95_ms = times[3];
    r.p99_ms = times[4];
    r.max_ms = times[5];
    r.mean_ms = times[6];
    return r;
}

}  // namespace testsupport

#endif
