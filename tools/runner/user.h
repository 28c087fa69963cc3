// The users of a load run: each a process forked by the parent, running
// its scripts in a loop (the closed model) or taking its iterations from
// the shared schedule (the open model), its events on a pipe.
#ifndef ORBELLE_RUNNER_USER_H
#define ORBELLE_RUNNER_USER_H

#include <sys/types.h>

#include <csignal>
#include <vector>

#include "tools/runner/arrivals.h"
#include "tools/runner/load.h"

namespace runner {

struct UserSetup {
    hostkit::entry_fn door = nullptr;
    const std::vector<Script> *scripts = nullptr;
    const LoadOptions *load = nullptr;
    SharedArrivals *arrivals = nullptr;  // the open model's schedule, else null
    int users_total = 1;                 // users sharing unique data rows
};

// The child's side: runs the scripts as user vu until they end or a stop
// comes, writing events to fd. inherited: descriptors of the parent's to
// close; mask: the signal mask to restore. Never returns.
[[noreturn]] void run_user(const UserSetup &setup, int vu, int fd, pid_t parent,
                           const std::vector<int> &inherited, const sigset_t &mask);

}  // namespace runner

#endif
