// The options of load mode that shape the load and judge it: the rate,
// stages, thresholds, baseline and metrics, read apart from the rest of
// the command line.
#ifndef ORBELLE_RUNNER_LOAD_OPTIONS_H
#define ORBELLE_RUNNER_LOAD_OPTIONS_H

#include <string>
#include <utility>
#include <vector>

#include "tools/runner/load.h"

namespace runner {

// The help text of these options, for the usage.
extern const char load_options_usage[];

// What became of one argument.
enum class OptionRead { NotOurs, Taken, Bad };

// Reads the option at argv[i] (and its value, moving i past it) into load.
// Bad with a message in error.
OptionRead read_load_option(int argc, char **argv, int &i, LoadOptions &load, std::string &error);

// Checks the options together once all are read (stages read as users or
// as a rate, --rate needing --users, ...). any is set when one of these
// options was given. False with a message.
bool settle_load_options(LoadOptions &load, bool users_given, bool iterations_given, bool &any,
                         std::string &error);

// The run's settings as the summary and the report show them, from the
// scripts (their files) to the think time.
void describe_load(const LoadOptions &options, const std::string &files, int users_total,
                   std::vector<std::pair<std::string, std::string>> &settings);

}  // namespace runner

#endif
