// Load mode: a parent that starts one process per virtual user, reads their
// event streams, prints a progress line a second and, at the end, the
// summary, the CSV files and the HTML report.
#ifndef ORBELLE_RUNNER_LOAD_H
#define ORBELLE_RUNNER_LOAD_H

#include <string>
#include <vector>

#include "host/kit/hostkit.h"
#include "tools/runner/rates.h"
#include "tools/runner/run.h"
#include "tools/runner/script.h"
#include "tools/runner/thresholds.h"

namespace runner {

struct LoadOptions {
    int users = 1;          // the closed model's users, the open model's pool
    double ramp_up_s = 0;   // users start at an even pace across it
    double duration_s = 0;  // 0: each user runs user.iterations iterations
    // The open model: iterations a second, 0 for the closed model.
    double rate = 0;
    bool poisson = false;  // random gaps of the same mean, else even ones
    // Arrivals that may wait for a free user before more are dropped;
    // -1: as many as there are users.
    int waiting = -1;
    // The target over time: users in the closed model (then users is the
    // most of them), the rate in the open one. The run lasts as long as
    // they do unless duration_s is given.
    std::vector<Stage> stages;
    std::string stages_text;  // as given, read once --rate is known
    bool shaped = false;      // one of the options of load_options.h was given
    std::vector<Threshold> thresholds;
    bool abort_on_threshold = false;  // stop at the first breach, after the grace
    double threshold_grace_s = 10;
    std::string baseline_path;    // an earlier run's PREFIX_stats.csv
    std::string metrics_address;  // HOST:PORT to serve metrics on, empty for none
    double metrics_hold_s = 0;    // how long the final metrics stay served
    std::string report_path;
    std::string csv_prefix;
    std::string events_path;  // every user's events, one stream

    // A stopped user that has not ended after this long is killed.
    double stop_grace_s = 5;
    Options user;  // what each user runs with; vu and users_total are set per user
};

// Runs the load and returns the exit status: 0 when nothing failed, 1 when
// a call or check failed, 3 when a threshold was breached, 2 when a user
// could not run its scripts or died (the first that applies of 2, 3, 1).
// door is the library, loaded but not yet initialised: each user
// initialises it in its own process. Messages go to standard error, the
// summary to standard output.
int run_load(hostkit::entry_fn door, const std::vector<Script> &scripts,
             const LoadOptions &options);

}  // namespace runner

#endif
