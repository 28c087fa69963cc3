// What one session holds while it runs: shared by the call commands
// (run.cpp) and the rest of the language and the iteration loop (session.cpp).
#ifndef ORBELLE_RUNNER_STATE_H
#define ORBELLE_RUNNER_STATE_H

#include <chrono>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/runner/csv.h"
#include "tools/runner/run.h"
#include "tools/runner/vars.h"

namespace runner {

using Clock = std::chrono::steady_clock;

struct BoundObject {
    iiop_target target{};
    std::string repoid, instance, modus, ior;
    bool has_ior = false;
    bool bound = false;
};

// One parameter list and the request block it travels in. A deferred call
// keeps both alive until its reply has been dealt with.
struct Call {
    std::string operation;
    std::string object;
    iiop_req req{};
    hostkit::Plist plist;
    ~Call() { hostkit::free_list(req.parms); }
};

struct Timings {
    std::vector<double> ms;
    int count = 0;
    int failures = 0;
    bool timed = true;  // checks take no time worth showing
};

struct OpenTransaction {
    Clock::time_point start;
    bool failed = false;
};

// What a step tells the iteration loop.
enum class Step { Next, Error, NoMoreRows };

// One outcome to count, show in the summary and send as an event.
enum class Kind { Call, Check, Transaction, Iteration };

// name must outlive the result: it is counted and sent, never kept.
struct Result {
    Result(Kind kind, std::string_view name, double ms = 0) : kind(kind), name(name), ms(ms) {}
    Kind kind;
    std::string_view name;
    double ms = 0;
    bool ok = true;
    bool has_status = false;
    int status = 0, index = 0;
    std::string error;
};

struct Session::State {
    State(hostkit::Host &host, std::vector<const Script *> scripts, const Options &options,
          FILE *out, EventWriter *events);
    ~State() {
        for (auto &made : parm_lists) hostkit::free_list(made.second);
    }

    // run.cpp: bind, params, set, invoke, poll, wait, check, print, release.
    Step call_step(const Command &cmd);
    void report(const Command &cmd, const std::string &what, int32_t result,
                const iiop_record &record, double ms, const std::string &extra = "");
    void release_all();

    // session.cpp
    Outcome run_section(Section which);
    Step step(const Command &cmd, const Command &written);
    void tally(const Command *cmd, const Result &outcome);
    Step script_error(const Command &cmd, const std::string &message);
    std::string where(const Command &cmd) const {
        return script->file + ":" + std::to_string(cmd.line);
    }
    void end_transactions(const std::string &why);
    void summary();

    hostkit::Host &host;
    std::vector<const Script *> scripts;
    Options options;
    FILE *out;
    EventWriter *events;

    const Script *script = nullptr;  // the one running
    int iteration = 0;               // 0 in set-up and tear-down
    // "setup: " or "teardown: " before the names of what those count, so
    // that they are apart from the iterations' in every table.
    const char *prefix = "";
    bool tearing_down = false;  // a stop does not end tear-down
    bool setup_failed = false;
    std::map<std::string, BoundObject> objects;
    std::shared_ptr<Call> current;
    // The parameter lists the library made, by interface, operation and
    // sequence lengths: params hands out copies of them.
    std::unordered_map<std::string, ScriptParm *> parm_lists;
    std::string list_key;   // params' lookup, its buffer kept
    std::string call_name;  // the name of a call or check, its buffer kept
    // Deferred calls whose replies have not been fetched, per operation,
    // oldest first. The library keeps pointers to their request blocks.
    std::map<std::string, std::list<std::shared_ptr<Call>>> deferred;
    Variables variables;
    std::map<const Command *, DataSource> data;  // by the data line as written
    std::map<std::string, OpenTransaction> transactions;
    long pace_ms = 0;
    double wait_ms = -1;  // Session::set_wait_ms
    Event event;          // tally's, reused

    std::map<std::string, Timings, std::less<>> timings;
    std::vector<std::string> timing_order;
    int failures = 0;
    bool error = false;
    // Where the failure that ends this iteration happened; empty while none.
    std::string failed_at;
};

}  // namespace runner

#endif
