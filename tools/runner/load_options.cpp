#include "tools/runner/load_options.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace runner {
namespace {

// Most arrivals that may wait for a free user: a bound on the shared
// ring's memory (8 bytes each).
constexpr long max_waiting = 1000000;

std::string seconds_text(double s) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g s", s);
    return buf;
}

}  // namespace

const char load_options_usage[] =
    "  --rate R           the open model: start R iterations a second (2.5, 300/m), each\n"
    "                     on a free user of the --users pool; one due while every user\n"
    "                     is busy waits (see --queue) or is dropped and counted\n"
    "  --arrivals KIND    even (default) or poisson gaps between iterations\n"
    "  --queue N          iterations that may wait for a free user (default: --users;\n"
    "                     0 drops at once)\n"
    "  --stages LIST      ramp the target linearly, SPAN:TARGET,... (30s:50,2m:50,30s:0):\n"
    "                     users in the closed model (from 0), the rate from --rate R\n"
    "  --threshold 'NAME: EXPR'  judge a row of the table (all requests, iterations,\n"
    "                     transaction NAME, invoke ...): p50 p90 p95 p99 max mean < <= > >=\n"
    "                     a time (5ms) or FACTOR*baseline, failures<1%, rate>100/s,\n"
    "                     dropped=0, joined by 'and'; repeatable; a breach exits with 3\n"
    "  --abort-on-threshold  stop at the first breach (checked each second)\n"
    "  --threshold-grace SECONDS  no abort before this (default 10)\n"
    "  --baseline FILE    an earlier run's PREFIX_stats.csv: changes per name, and\n"
    "                     thresholds relative to it\n"
    "  --metrics HOST:PORT  serve live metrics in the Prometheus text format at\n"
    "                     /metrics (port 0: any free port, shown at the start)\n"
    "  --metrics-hold SECONDS  keep serving the final figures this long after the run\n";

OptionRead read_load_option(int argc, char **argv, int &i, LoadOptions &load, std::string &error) {
    std::string arg = argv[i];
    static const char *const ours[] = {"--rate",        "--arrivals",  "--queue",
                                       "--stages",      "--threshold", "--threshold-grace",
                                       "--baseline",    "--metrics",   "--abort-on-threshold",
                                       "--metrics-hold"};
    bool known = false;
    for (const char *o : ours) known = known || arg == o;
    if (!known) return OptionRead::NotOurs;
    load.shaped = true;
    if (arg == "--abort-on-threshold") {
        load.abort_on_threshold = true;
        return OptionRead::Taken;
    }
    if (i + 1 >= argc) {
        error = arg + " needs a value";
        return OptionRead::Bad;
    }
    std::string value = argv[++i];
    if (arg == "--rate") {
        if (!parse_rate(value, load.rate, error)) return OptionRead::Bad;
    } else if (arg == "--arrivals") {
        if (value != "even" && value != "poisson") {
            error = "--arrivals takes even or poisson";
            return OptionRead::Bad;
        }
        load.poisson = value == "poisson";
    } else if (arg == "--queue") {
        char *end = nullptr;
        long n = std::strtol(value.c_str(), &end, 10);
        if (value.empty() || *end != '\0' || n < 0 || n > max_waiting) {
            error = "--queue takes a count from 0 to " + std::to_string(max_waiting);
            return OptionRead::Bad;
        }
        load.waiting = static_cast<int>(n);
    } else if (arg == "--stages") {
        if (value.empty()) {
            error = "--stages takes SPAN:TARGET,... (30s:50,2m:50,30s:0)";
            return OptionRead::Bad;
        }
        load.stages_text = value;
    } else if (arg == "--threshold") {
        if (load.thresholds.size() == max_thresholds) {
            error = "at most " + std::to_string(max_thresholds) + " thresholds";
            return OptionRead::Bad;
        }
        Threshold t;
        if (!parse_threshold(value, t, error)) return OptionRead::Bad;
        load.thresholds.push_back(std::move(t));
    } else if (arg == "--threshold-grace") {
        if (!parse_span(value, load.threshold_grace_s)) {
            error = "--threshold-grace takes seconds, up to a week";
            return OptionRead::Bad;
        }
    } else if (arg == "--metrics-hold") {
        if (!parse_span(value, load.metrics_hold_s)) {
            error = "--metrics-hold takes seconds, up to a week";
            return OptionRead::Bad;
        }
    } else if (arg == "--baseline") {
        load.baseline_path = value;
    } else {
        load.metrics_address = value;
    }
    return OptionRead::Taken;
}

bool settle_load_options(LoadOptions &load, bool users_given, bool iterations_given, bool &any,
                         std::string &error) {
    any = load.shaped;
    if (!load.stages_text.empty() &&
        !parse_stages(load.stages_text, load.rate <= 0, load.stages, error))
        return false;
    const bool open = load.rate > 0;
    const char *why = nullptr;
    if (open && !users_given)
        why = "--rate needs --users: the pool of users that runs the iterations";
    else if (load.rate > 0 && iterations_given)
        why = "--rate runs for --duration or --stages: leave out --iterations";
    else if (load.rate > 0 && load.duration_s == 0 && load.stages.empty())
        why = "--rate needs --duration or --stages";
    else if (load.rate <= 0 && !load.stages.empty() && (users_given || load.ramp_up_s > 0))
        why = "--stages without --rate gives the users: leave out --users and --ramp-up";
    else if (load.rate <= 0 && !load.stages.empty() && iterations_given)
        why = "--stages runs for their time: leave out --iterations";
    else if (load.rate <= 0 && (load.poisson || load.waiting >= 0))
        why = "--arrivals and --queue need --rate";
    else if (load.metrics_hold_s > 0 && load.metrics_address.empty())
        why = "--metrics-hold needs --metrics";
    else if (load.abort_on_threshold && load.thresholds.empty())
        why = "--abort-on-threshold needs --threshold";
    if (why != nullptr) {
        error = why;
        return false;
    }
    if (load.rate <= 0 && !load.stages.empty()) {
        int most = 0;
        for (const Stage &s : load.stages) most = std::max(most, static_cast<int>(s.target));
        if (most == 0) {
            error = "--stages: no stage has a user";
            return false;
        }
        load.users = most;
    }
    return true;
}

void describe_load(const LoadOptions &options, const std::string &files, int users_total,
                   std::vector<std::pair<std::string, std::string>> &settings) {
    settings = {{"scripts", files}};
    if (options.rate > 0) {
        char text[120];
        std::snprintf(text, sizeof text, "open: %g iterations/s (%s arrivals), %d users",
                      options.rate, options.poisson ? "poisson" : "even", options.users);
        settings.emplace_back("model", options.stages.empty() ? text : "open, by stages");
    } else {
        settings.emplace_back("model", "closed");
    }
    settings.emplace_back("users", std::to_string(users_total));
    if (options.stages.empty()) {
        settings.emplace_back("ramp-up", seconds_text(options.ramp_up_s));
    } else {
        std::string text;
        for (const Stage &st : options.stages) {
            char one[64];
            std::snprintf(one, sizeof one, "%s%gs:%g", text.empty() ? "" : ",", st.seconds,
                          st.target);
            text += one;
        }
        settings.emplace_back("stages", text);
    }
    if (options.duration_s > 0)
        settings.emplace_back("duration", seconds_text(options.duration_s));
    else if (options.stages.empty())
        settings.emplace_back("iterations per user", std::to_string(options.user.iterations));
    settings.emplace_back("think time", options.user.no_think ? "skipped" : "as scripted");
}

}  // namespace runner
