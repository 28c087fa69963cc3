// The open model's schedule as every user of a run shares it: one arrival
// state and its ring of waiting arrivals in memory mapped before the users
// are forked, behind a process-shared mutex. Linux only, as load mode.
#ifndef ORBELLE_RUNNER_ARRIVALS_H
#define ORBELLE_RUNNER_ARRIVALS_H

#include <cstdint>
#include <string>

#include "tools/runner/rates.h"

namespace runner {

class SharedArrivals {
public:
    SharedArrivals() = default;
    ~SharedArrivals();
    SharedArrivals(const SharedArrivals &) = delete;
    SharedArrivals &operator=(const SharedArrivals &) = delete;

    // Maps the state, before any user is forked; the clock starts now.
    // waiting: how many arrivals may wait for a free user. end_s: no
    // arrival is due at or after it (infinity: none ends the schedule).
    bool create(const Profile &profile, bool poisson, uint32_t waiting, double end_s,
                std::string &error);
    bool active() const { return shared_ != nullptr; }

    // Seconds since the schedule started, on the monotonic clock that
    // every process reads alike.
    double now_s() const;
    // A free user's next iteration: when it is or was due. False when
    // none is left before the end.
    bool next(double &due_s);
    // Arrivals due so far, and those dropped for want of a free user.
    void counts(uint64_t &arrivals, uint64_t &dropped);

private:
    struct Shared;
    void lock();
    Shared *shared_ = nullptr;
    size_t size_ = 0;
    Profile profile_;
    double end_s_ = 0;
};

}  // namespace runner

#endif
