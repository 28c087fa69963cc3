// Runs a parsed script against the library through its door, as a host.
#ifndef ORBELLE_RUNNER_RUN_H
#define ORBELLE_RUNNER_RUN_H

#include <cstdio>
#include <string>

#include "host/kit/hostkit.h"
#include "tools/runner/script.h"

namespace runner {

struct Options {
    int iterations = 1;
    bool quiet = false;  // no line per command, only failures and the summary
};

// Checks what can be known before anything runs: objects used before they
// are bound, values set before any parameter list, waits for calls never
// deferred. False with "file:line: message".
bool check_script(const Script &script, std::string &error);

// Runs the script options.iterations times, printing to out. Returns the
// process exit status: 0 when every call and check succeeded, 1 when some
// failed, 2 when the script could not go on.
int run_script(hostkit::Host &host, const Script &script, const Options &options, FILE *out);

}  // namespace runner

#endif
