// Load mode: a parent that starts one process per virtual user, reads their
// event streams, prints a progress line a second and, at the end, the
// summary, the CSV files and the HTML report.
#ifndef ORBELLE_RUNNER_LOAD_H
#define ORBELLE_RUNNER_LOAD_H

#include <string>
#include <vector>

#include "host/kit/hostkit.h"
#include "tools/runner/run.h"
#include "tools/runner/script.h"

namespace runner {

struct LoadOptions {
    int users = 1;
    double ramp_up_s = 0;   // users start at an even pace across it
    double duration_s = 0;  // 0: each user runs user.iterations iterations
    std::string report_path;
    std::string csv_prefix;
    std::string events_path;  // every user's events, one stream

    // A stopped user that has not ended after this long is killed.
    double stop_grace_s = 5;
    Options user;  // what each user runs with; vu and users_total are set per user
};

// Runs the load and returns the exit status: 0 when nothing failed, 1 when
// a call or check failed, 2 when a user could not run its scripts or died.
// door is the library, loaded but not yet initialised: each user
// initialises it in its own process. Messages go to standard error, the
// summary to standard output.
int run_load(hostkit::entry_fn door, const std::vector<Script> &scripts,
             const LoadOptions &options);

}  // namespace runner

#endif
