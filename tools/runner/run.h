// Runs parsed scripts against the library through its door, as a host.
#ifndef ORBELLE_RUNNER_RUN_H
#define ORBELLE_RUNNER_RUN_H

#include <csignal>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/kit/hostkit.h"
#include "tools/runner/events.h"
#include "tools/runner/script.h"
#include "tools/runner/script/check.h"

namespace runner {

struct Options {
    int iterations = 1;  // 0: until stop is set
    // When set (by a signal handler), the user stops before its next
    // command or at once from a pause; the iteration it was in is dropped
    // without an event, so every call counted is a call that completed.
    const volatile std::sig_atomic_t *stop = nullptr;
    bool quiet = false;          // no line per command, only failures and the summary
    bool stop_on_error = false;  // the first failure ends the run, not only its iteration
    bool no_think = false;       // think pauses are skipped
    int vu = 1;                  // ${VU}: this virtual user's number, from 1
    int users_total = 1;         // how many users share unique data rows
    // Every bind releases and binds anew, as a new client would; by default
    // a bind with the arguments of the binding it finds keeps it.
    bool fresh_binds = false;
    // The scripts were checked against the descriptions already (a load
    // run's users: by their parent), so prepare reads only the data files.
    bool checked = false;
};

// One virtual user running scripts: its bound objects, variables, data
// rows, open transactions and the timings of its summary. Drivers of a load
// run call prepare once, then run_iteration as often as they like.
class Session {
public:
    // The scripts must outlive the session. events may be null.
    Session(hostkit::Host &host, std::vector<const Script *> scripts, const Options &options,
            FILE *out, EventWriter *events);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // Reads the data files the scripts name (paths relative to the script's
    // folder) and checks each script with their columns and against the
    // descriptions, before anything is sent. False with every mistake, one
    // "file:line:column: message" a line.
    bool prepare(std::string &error);

    enum class Outcome {
        Ok,          // every call and check succeeded
        Failed,      // a call or check failed; the rest of the iteration was skipped
        NoMoreRows,  // a unique data line has no row left for this user
        Error,       // the script cannot go on (message printed)
        Stopped      // options.stop was set during the iteration
    };
    // Runs the set-up of every script, once, before the first iteration.
    // Anything but Ok means the user must not start its iterations (the
    // failure is printed and counted once).
    Outcome set_up();
    // Whether set_up ended in a failure or an error.
    bool set_up_failed() const;
    // Runs every script once as iteration number iteration (from 1).
    Outcome run_iteration(int iteration);
    // Runs the tear-down of every script, once, after the last iteration;
    // a stop does not cut it short, only its pauses.
    void tear_down();
    // Under a rate: how late the next iterations start after they were due,
    // sent with their iteration and transaction events (negative: not sent).
    void set_wait_ms(double ms);

    // Sends the events written so far (a load run's users batch them).
    void flush_events();

    // The pace the scripts asked for last (0 for none): an iteration should
    // start this long after the previous one started.
    long pace_ms() const;

    // Releases what is still bound and prints the summary table.
    void finish();
    // 0 when nothing failed, 1 when something failed, 2 after an error.
    int exit_status() const;
    // Where the last iteration ended, "file:line: message" after an error.
    const std::string &failed_at() const;

    // After prepare: the set-up, options.iterations iterations at the
    // scripts' pace (ending early as the options, data and stop say), the
    // tear-down, then finish; returns exit_status.
    int run();

    struct State;

private:
    std::unique_ptr<State> state_;
};

// Runs one script as a session of its own; returns its exit status.
int run_script(hostkit::Host &host, const Script &script, const Options &options, FILE *out,
               EventWriter *events = nullptr);

}  // namespace runner

#endif
