// Values of the script language as the parameter's type makes them: which
// texts a type can take, how a check compares a reply's text with the one
// a script expects, and how both are shown to a person.
#ifndef ORBELLE_RUNNER_SCRIPT_VALUES_H
#define ORBELLE_RUNNER_SCRIPT_VALUES_H

#include <cstdint>
#include <string>
#include <vector>

namespace runner {

enum class Compare { Equal, NotEqual, Less, LessEqual, Greater, GreaterEqual, Matches };

// True for ==, !=, <, <=, >, >= and ~.
bool is_check_operator(const std::string &word);

// The comparison and the expected text of "check NAME [OP] VALUE", from the
// words after the command (2 or 3 of them, the operator checked).
struct Expectation {
    Compare how = Compare::Equal;
    std::string expected;
};
Expectation expectation_of(const std::vector<std::string> &args);
const char *compare_symbol(Compare how);

// The IDL name of a TypeCode kind as the descriptions write it ("double",
// "objref"), or "kind N".
std::string type_name(int32_t type);

// Whether the library converts a script's text into a value of type (any,
// long long and the wide types it does not).
bool script_can_give(int32_t type);

// What is wrong with text as a value of type, as the library would read
// it; empty when nothing is. Texts the library would read as something
// other than what they say ("abc" as a number, "true" as a boolean, two
// characters as a char) are wrong.
std::string value_problem(int32_t type, const std::string &text);

// What is wrong with the comparison how on values of type (order on a
// text, a pattern that does not compile); empty when nothing is.
std::string compare_problem(int32_t type, Compare how, const std::string &expected);

// Compares a reply's value text with the expected one by type: numbers by
// value (floats at the precision the library writes them), strings and
// octets by the bytes their byte notation stands for, the rest as texts;
// ~ matches the decoded text against an ECMAScript pattern. False with
// "expected ..., got ... (type)" in why when the check fails.
bool compare_values(int32_t type, Compare how, const std::string &actual,
                    const std::string &expected, std::string &why);

// A value of type as a person reads it, in single quotes: strings and
// octets decoded, with escapes for what does not print; numbers as written.
std::string readable(int32_t type, const std::string &text);

// A placeholder that a value of type can take, for a script to start from.
std::string placeholder(int32_t type);

}  // namespace runner

#endif
