// Load over time: the rate of the open model and the stages that ramp a
// target (users or iterations a second) from one value to the next, and
// the schedule of arrivals that the users of an open run take their
// iterations from.
#ifndef ORBELLE_RUNNER_RATES_H
#define ORBELLE_RUNNER_RATES_H

#include <cstdint>
#include <string>
#include <vector>

namespace runner {

// Highest rate one run may ask for: far above what one machine's users can
// start, yet small enough that a second's arrivals are counted exactly.
constexpr double max_rate_per_s = 1e6;
// Most stages one run may give: a ramp is a handful of them.
constexpr size_t max_stages = 1000;
// Longest stage, ramp-up or duration, in seconds: a week.
constexpr double max_run_seconds = 7 * 24 * 3600.0;

// "300", "2.5", "300/s", "300/m", "10/h": iterations a second, more than 0
// and at most max_rate_per_s. False with a message.
bool parse_rate(const std::string &text, double &per_second, std::string &error);

// "500ms", "30s", "2m", "1h" or plain seconds, from 0 up to max_run_seconds.
bool parse_span(const std::string &text, double &seconds);

struct Stage {
    double seconds = 0;  // how long the ramp to target takes
    double target = 0;   // users, or iterations a second
};

// "30s:50,2m:50,30s:0": each stage a span and the target reached at its
// end. targets_are_counts: users, whole numbers. False with a message.
bool parse_stages(const std::string &text, bool targets_are_counts, std::vector<Stage> &stages,
                  std::string &error);

// A target over time: from `from` at the start, linear from one stage's end
// to the next, the last target after the last stage. Without stages, a
// constant target.
class Profile {
public:
    explicit Profile(double constant = 0) : constant_(constant) {}
    Profile(std::vector<Stage> stages, double from);

    double target_at(double t) const;
    // Seconds the stages take; 0 without stages.
    double seconds() const { return ends_.empty() ? 0 : ends_.back(); }
    // The target's integral from 0 to t: arrivals due before t.
    double count_before(double t) const;
    // The first time count_before reaches u; infinity when it never does.
    double time_of_count(double u) const;

private:
    double constant_ = 0;
    double from_ = 0;
    std::vector<Stage> stages_;
    std::vector<double> ends_;    // end of each stage, from the start
    std::vector<double> counts_;  // count_before at each stage's end
};

// The schedule's state as the users share it. It holds no pointer, so that
// it can live in memory shared by processes; the waiting arrivals are a
// ring of due times the caller keeps beside it.
struct ArrivalState {
    double next_count = 0;  // the integral's value at the next arrival
    uint64_t random = 0;    // the generator of Poisson gaps
    bool poisson = false;
    uint64_t dropped = 0;
    uint64_t arrivals = 0;  // due so far, dropped or not
    uint32_t head = 0, waiting = 0, capacity = 0;
};

// Every arrival due up to now that found no free user: into the ring
// while it has room, else dropped and counted.
void admit_arrivals(ArrivalState &state, double *ring, const Profile &profile, double now,
                    double end);

// A user that has become free asks for its next iteration at time now
// (seconds from the start). Every arrival due before now that found no free
// user waits in the ring if it has room, and is dropped and counted if not.
// The oldest waiting arrival is handed out first; with none waiting, the
// next one to come. Returns false when no arrival is left before end;
// else due is when the iteration was due (at most now for a waiting one).
bool next_arrival(ArrivalState &state, double *ring, const Profile &profile, double now, double end,
                  double &due);

}  // namespace runner

#endif
