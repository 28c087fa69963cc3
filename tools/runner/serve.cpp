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
    // The iteration event that tells the driver why the user ends.
    auto last_event = [&](int iteration, const std::string &why) {
        Event e;
        e.t = epoch_ms();
        e.vu = options.vu;
        e.iter = iteration;
        e.kind = "iteration";
        e.name = "iteration";
        e.ok = false;
        e.error = why;
        events.write(e);
        events.flush();
    };
    int iteration = 0;
    Session::Outcome setup = session.set_up();
    if (setup != Session::Outcome::Ok) {
        // The set-up's own events go first; the driver reads them when it
        // asks for the first iteration, which is answered with the end.
        last_event(0, setup == Session::Outcome::NoMoreRows
                          ? "no data row is left for this user"
                          : "the set-up failed at " + session.failed_at());
        std::string line;
        std::getline(in, line);
    } else {
        for (std::string line; std::getline(in, line);) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            if (line.empty()) continue;
            if (line != "run") {
                std::fprintf(stderr, "orbelle-run: '%s' is not a request; send run\n",
                             line.c_str());
                continue;
            }
            Session::Outcome outcome = session.run_iteration(++iteration);
            if (outcome == Session::Outcome::NoMoreRows) {
                // The iteration ran nothing; its event tells the driver why
                // the user ends.
                last_event(iteration, "no data row is left for this user");
                break;
            }
            std::fflush(out);
        }
        session.tear_down();
    }
    session.finish();
    std::fflush(out);
    return session.set_up_failed() ? session.exit_status() : 0;
}

}  // namespace runner
