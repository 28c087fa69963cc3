#include "tools/runner/rates.h"

#include <cmath>
#include <cstdlib>
#include <limits>

namespace runner {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

bool read_double(const std::string &text, double &out) {
    if (text.empty() || text.find_first_not_of("0123456789.") != std::string::npos) return false;
    char *end = nullptr;
    out = std::strtod(text.c_str(), &end);
    return end == text.c_str() + text.size() && std::isfinite(out);
}

// Uniform in [0, 1) from a splitmix64 step: cheap, and the same across
// the processes that share the state.
double uniform(uint64_t &state) {
    uint64_t z = (state += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    z ^= z >> 31;
    return static_cast<double>(z >> 11) * 0x1.0p-53;
}

double gap(ArrivalState &state) { return state.poisson ? -std::log1p(-uniform(state.random)) : 1; }

}  // namespace

bool parse_rate(const std::string &text, double &per_second, std::string &error) {
    std::string number = text;
    double per = 1;
    size_t slash = text.find('/');
    if (slash != std::string::npos) {
        std::string unit = text.substr(slash + 1);
        per = unit == "s" ? 1 : unit == "m" ? 60 : unit == "h" ? 3600 : 0;
        number = text.substr(0, slash);
    }
    double v = 0;
    if (per == 0 || !read_double(number, v) || !(v > 0) || v / per > max_rate_per_s) {
        error = "--rate takes iterations a second (2.5, 300/m, 10/h), more than 0 and at most " +
                std::to_string(static_cast<long>(max_rate_per_s)) + "/s";
        return false;
    }
    per_second = v / per;
    return true;
}

bool parse_span(const std::string &text, double &seconds) {
    static const struct {
        const char *suffix;
        double scale;
    } units[] = {{"ms", 0.001}, {"s", 1}, {"m", 60}, {"h", 3600}};
    double scale = 1;
    std::string number = text;
    for (const auto &u : units) {
        size_t n = std::char_traits<char>::length(u.suffix);
        if (text.size() > n && text.compare(text.size() - n, n, u.suffix) == 0) {
            number = text.substr(0, text.size() - n);
            scale = u.scale;
            break;
        }
    }
    double v = 0;
    if (!read_double(number, v) || v * scale > max_run_seconds) return false;
    seconds = v * scale;
    return true;
}

bool parse_stages(const std::string &text, bool targets_are_counts, std::vector<Stage> &stages,
                  std::string &error) {
    stages.clear();
    size_t from = 0;
    double total = 0;
    for (;;) {
        size_t comma = text.find(',', from);
        std::string item = text.substr(from, comma == std::string::npos ? comma : comma - from);
        size_t colon = item.find(':');
        Stage s;
        if (colon == std::string::npos || !parse_span(item.substr(0, colon), s.seconds) ||
            !read_double(item.substr(colon + 1), s.target) ||
            s.target > (targets_are_counts ? 20000 : max_rate_per_s) ||
            (targets_are_counts && s.target != std::floor(s.target))) {
            error = "--stages: '" + item + "' is not SPAN:TARGET (30s:50, 2m:50, 500ms:0" +
                    std::string(targets_are_counts ? ", users a whole number up to 20000)"
                                                   : ", a rate up to 1000000/s)");
            return false;
        }
        total += s.seconds;
        if (stages.size() == max_stages || total > max_run_seconds) {
            error = "--stages: at most " + std::to_string(max_stages) + " stages, a week in all";
            return false;
        }
        stages.push_back(s);
        if (comma == std::string::npos) break;
        from = comma + 1;
    }
    if (total <= 0) {
        error = "--stages: the stages take no time";
        return false;
    }
    return true;
}

Profile::Profile(std::vector<Stage> stages, double from) : from_(from), stages_(std::move(stages)) {
    double end = 0, count = 0;
    for (const Stage &s : stages_) {
        end += s.seconds;
        count += s.seconds * (from + s.target) / 2;
        ends_.push_back(end);
        counts_.push_back(count);
        from = s.target;
    }
    constant_ = stages_.empty() ? from_ : stages_.back().target;
}

double Profile::target_at(double t) const {
    double begin = 0, from = from_;
    for (size_t i = 0; i < stages_.size(); ++i) {
        if (t < ends_[i]) {
            const Stage &s = stages_[i];
            return s.seconds > 0 ? from + (s.target - from) * (t - begin) / s.seconds : s.target;
        }
        begin = ends_[i];
        from = stages_[i].target;
    }
    return constant_;
}

double Profile::count_before(double t) const {
    if (t <= 0) return 0;
    double begin = 0, from = from_, count = 0;
    for (size_t i = 0; i < stages_.size(); ++i) {
        if (t < ends_[i]) {
            double tau = t - begin, now = target_at(t);
            return count + tau * (from + now) / 2;
        }
        begin = ends_[i];
        from = stages_[i].target;
        count = counts_[i];
    }
    return count + (t - begin) * constant_;
}

double Profile::time_of_count(double u) const {
    if (u <= 0) return 0;
    double begin = 0, from = from_, count = 0;
    for (size_t i = 0; i < stages_.size(); ++i) {
        if (u <= counts_[i] && counts_[i] > count) {
            // Within stage i the count grows as from*tau + slope*tau^2/2.
            const Stage &s = stages_[i];
            double slope = (s.target - from) / s.seconds, want = u - count;
            double tau;
            if (std::fabs(slope) < 1e-12) {
                tau = want / from;
            } else {
                double root = std::sqrt(std::max(0.0, from * from + 2 * slope * want));
                // The smaller root, written so that it keeps its digits.
                tau = 2 * want / (from + root);
            }
            return begin + std::min(tau, s.seconds);
        }
        begin = ends_[i];
        from = stages_[i].target;
        count = counts_[i];
    }
    if (!(constant_ > 0)) return infinity;
    return begin + (u - count) / constant_;
}

void admit_arrivals(ArrivalState &state, double *ring, const Profile &profile, double now,
                    double end) {
    for (;;) {
        double at = profile.time_of_count(state.next_count);
        if (!(at < now) || at >= end) return;
        ++state.arrivals;
        if (state.waiting < state.capacity) {
            ring[(state.head + state.waiting) % state.capacity] = at;
            ++state.waiting;
        } else {
            ++state.dropped;
        }
        state.next_count += gap(state);
    }
}

bool next_arrival(ArrivalState &state, double *ring, const Profile &profile, double now, double end,
                  double &due) {
    admit_arrivals(state, ring, profile, now, end);
    if (state.waiting > 0) {
        due = ring[state.head];
        state.head = (state.head + 1) % state.capacity;
        --state.waiting;
        return true;
    }
    double at = profile.time_of_count(state.next_count);
    if (!(at < end)) return false;
    ++state.arrivals;
    state.next_count += gap(state);
    due = at;
    return true;
}

}  // namespace runner
