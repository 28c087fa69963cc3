// The standard regular expressions of GCC 12 make the optimiser warn of a
// member that may be used uninitialised inside their own headers, at
// optimisation levels the sanitizer build uses; the code is theirs, and
// the warning is known to be wrong there.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include "tools/runner/script/pattern.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <memory>
#include <regex>

#include "orbelle/limits.h"

namespace runner {
namespace {

// Compiled patterns kept for checks that run every iteration; a script has
// few, and the cache starts over when patterns come from variables.
constexpr size_t kept_patterns = 64;

// The product of the counted repetitions of pattern ({n}, {n,m}, {n,}: the
// larger number), at most limit + 1: a bound on how often it copies states.
size_t repetition_weight(const std::string &pattern, size_t limit) {
    size_t weight = 1;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '\\') {
            ++i;
            continue;
        }
        if (pattern[i] != '{') continue;
        size_t largest = 0, number = 0;
        size_t j = i + 1;
        bool digits = false;
        for (; j < pattern.size() &&
               (std::isdigit(static_cast<unsigned char>(pattern[j])) || pattern[j] == ',');
             ++j) {
            if (pattern[j] == ',') {
                number = 0;
                continue;
            }
            digits = true;
            number = std::min(number * 10 + static_cast<size_t>(pattern[j] - '0'), limit + 1);
            largest = std::max(largest, number);
        }
        if (!digits || j == pattern.size() || pattern[j] != '}') continue;
        weight = std::min(weight * std::max<size_t>(largest, 1), limit + 1);
    }
    return weight;
}

// The pattern compiled to find a match anywhere in a text, or null with
// the reason in why.
const std::regex *compiled(const std::string &pattern, std::string &why) {
    static std::map<std::string, std::unique_ptr<std::regex>> kept;
    auto found = kept.find(pattern);
    if (found != kept.end()) return found->second.get();
    if (pattern.size() > limits::max_check_pattern) {
        why = "the pattern has " + std::to_string(pattern.size()) + " characters, more than " +
              std::to_string(limits::max_check_pattern);
        return nullptr;
    }
    if (repetition_weight(pattern, limits::max_check_repetition) > limits::max_check_repetition) {
        why = "the pattern's counted repetitions multiply to more than " +
              std::to_string(limits::max_check_repetition);
        return nullptr;
    }
    auto flags = std::regex::ECMAScript;
#ifdef __GLIBCXX__
    // An automaton of states instead of backtracking: no recursion per
    // character of the text, and time in proportion to the text.
    flags |= std::regex_constants::__polynomial;
#endif
    std::unique_ptr<std::regex> re;
    try {
        // The pattern alone first, so that it is whole (no stray bracket)
        // before it is wrapped. A whole-text match with the pattern anywhere
        // in it costs one pass, where a search would start again at every
        // character; ^ and $ still mean the ends of the text.
        std::regex alone(pattern, flags);
        re = std::make_unique<std::regex>("[\\s\\S]*?(?:" + pattern + ")[\\s\\S]*", flags);
    } catch (const std::regex_error &e) {
        why = std::string("the pattern does not compile: ") + e.what();
        return nullptr;
    }
    if (kept.size() == kept_patterns) kept.clear();
    return kept.emplace(pattern, std::move(re)).first->second.get();
}

}  // namespace

std::string pattern_problem(const std::string &pattern) {
    std::string why;
    return compiled(pattern, why) != nullptr ? "" : why;
}

bool pattern_matches(const std::string &pattern, const std::string &text, bool &matched,
                     std::string &why) {
    const std::regex *re = compiled(pattern, why);
    if (re == nullptr) return false;
    try {
        matched = std::regex_match(text, *re);
    } catch (const std::regex_error &e) {
        why = std::string("the pattern could not be matched: ") + e.what();
        return false;
    }
    return true;
}

}  // namespace runner
