// What orbelle-run does without sending anything: --check lists every
// mistake of a run's scripts, --skeleton writes a script to start from.
#ifndef ORBELLE_RUNNER_SCRIPT_OFFLINE_H
#define ORBELLE_RUNNER_SCRIPT_OFFLINE_H

#include <string>
#include <vector>

#include "tools/runner/run.h"

namespace runner {

// Checks the parsed scripts (mistakes holds what the parse found) and their
// data files against the descriptions, asking the library at library for
// parameter lists. Prints "OK" (when say_ok) to standard output, or every
// mistake (to standard output when say_ok, else to standard error).
// Returns 0 when there is none, 2 otherwise.
int check_scripts(const std::string &library, const std::vector<Script> &scripts,
                  const Options &options, Mistakes &mistakes, bool say_ok);

// Prints the skeleton of repoid's operations (all when operations is
// empty) to standard output; 0, or 2 with the reason on standard error.
int print_skeleton(const std::string &library, const std::string &repoid,
                   const std::vector<std::string> &operations);

}  // namespace runner

#endif
