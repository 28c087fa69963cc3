// The patterns of "check NAME ~ REGEX": ECMAScript regular expressions,
// bounded so that a match takes time in proportion to the text whatever the
// pattern says.
#ifndef ORBELLE_RUNNER_SCRIPT_PATTERN_H
#define ORBELLE_RUNNER_SCRIPT_PATTERN_H

#include <string>

namespace runner {

// What is wrong with pattern (too long, repeats too much, does not
// compile); empty when nothing is.
std::string pattern_problem(const std::string &pattern);

// Sets matched to whether pattern is found anywhere in text; false with
// the reason in why when it cannot be used.
bool pattern_matches(const std::string &pattern, const std::string &text, bool &matched,
                     std::string &why);

}  // namespace runner

#endif
