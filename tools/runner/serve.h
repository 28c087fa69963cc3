// Serve mode: one virtual user driven by another program (the Locust User
// class), one iteration per request on standard input.
#ifndef ORBELLE_RUNNER_SERVE_H
#define ORBELLE_RUNNER_SERVE_H

#include <istream>
#include <vector>

#include "host/kit/hostkit.h"
#include "tools/runner/events.h"
#include "tools/runner/run.h"
#include "tools/runner/script.h"

namespace runner {

// For each line "run" read from in, runs one iteration of every script and
// writes its events, the iteration's own event last; a failure or a script
// error ends only its iteration. When a unique data line has no row left,
// that iteration's event says so and serving ends. End of input releases
// what is bound and returns 0; a line that is not "run" is answered on
// standard error and passed over. events must be open.
int serve(hostkit::Host &host, const std::vector<Script> &scripts, const Options &options,
          EventWriter &events, std::istream &in, FILE *out);

}  // namespace runner

#endif
