// Script variables: values set by let and save, columns of data rows, and
// the built-in names, replaced for ${NAME} in a command's words.
#ifndef ORBELLE_RUNNER_VARS_H
#define ORBELLE_RUNNER_VARS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace runner {

// Calls name_value for every ${NAME} in text and writes text with the
// returned values in out. A name whose answer is empty (std::nullopt)
// stays as it was written. False with a message when a "${" is not closed.
bool substitute(const std::string &text,
                const std::function<std::optional<std::string>(const std::string &)> &name_value,
                std::string &out, std::string &error);

// The names of every ${NAME} in text, in order; unclosed ones are left out.
std::vector<std::string> variable_names(const std::string &text);

// True for VU, ITERATION, TIME_MS and RANDOM:MIN..MAX, which no script or
// environment sets.
bool is_builtin(const std::string &name);

// Reads RANDOM:MIN..MAX; false when the bounds are not whole numbers with
// MIN <= MAX.
bool random_bounds(const std::string &name, long long &min, long long &max);

// Reads "MS" or "MIN..MAX" milliseconds up to limit.
bool read_range(const std::string &text, long limit, long &min, long &max);

class Variables {
public:
    explicit Variables(uint64_t seed) : random_(seed) {}

    void set(const std::string &name, std::string value) { values_[name] = std::move(value); }
    void set_user(int vu, int iteration) {
        vu_ = vu;
        iteration_ = iteration;
    }
    // Draws a whole number from [min, max], each equally likely.
    long long uniform(long long min, long long max);

    // Replaces every ${NAME} in text. False with "variable NAME is not set"
    // (or what is wrong with a built-in) when one has no value.
    bool expand(const std::string &text, std::string &out, std::string &error);

private:
    std::unordered_map<std::string, std::string> values_;
    int vu_ = 1, iteration_ = 1;
    std::mt19937_64 random_;
};

}  // namespace runner

#endif
