#include "tools/runner/serve.h"

#include <string>

namespace runner {

int serve(hostkit::Host &host, const std::vector<Script> &scripts, const Options &options,
          EventWriter &events, std::istream &in, FILE *out) {
    std::vector<const Script *> list;
    for (const Script &s : scripts) list.push_back(&s);
    Session session(host, list, options, out, &events);
    std::string error;
    if (!session.prepare(error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 2;
    }
    int iteration = 0;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty()) continue;
        if (line != "run") {
            std::fprintf(stderr, "orbelle-run: '%s' is not a request; send run\n", line.c_str());
            continue;
        }
        Session::Outcome outcome = session.run_iteration(++iteration);
        if (outcome == Session::Outcome::NoMoreRows) {
            // The iteration ran nothing; its event tells the driver why the
            // user ends.
            Event e;
            e.t = epoch_ms();
            e.vu = options.vu;
            e.iter = iteration;
            e.kind = "iteration";
            e.name = "iteration";
            e.ok = false;
            e.error = "no data row is left for this user";
            events.write(e);
            break;
        }
        std::fflush(out);
    }
    session.finish();
    std::fflush(out);
    return 0;
}

}  // namespace runner
