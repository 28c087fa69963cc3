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
    const bool timed = !times.empty();
    times.resize(7, 0);
    return {name,     kind,     count,    failed,   rate,     timed, times[0], times[1],
            times[2], times[3], times[4], times[5], times[6], false, 0,        0,
            0,        0,        0,        0,        {},       {}};
}

}  // namespace testsupport

#endif
