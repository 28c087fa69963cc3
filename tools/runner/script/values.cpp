#include "tools/runner/script/values.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "orbelle/kinds.h"
#include "orbelle/limits.h"
#include "tools/runner/script/notation.h"
#include "tools/runner/script/pattern.h"

namespace runner {
namespace {

// The library writes floats and doubles with this many decimals.
constexpr int written_decimals = 6;

const char *const kind_names[] = {
    "null",      "void",       "short",  "long",     "ushort",   "ulong",     "float",  "double",
    "boolean",   "char",       "octet",  "any",      "TypeCode", "Principal", "objref", "struct",
    "union",     "enum",       "string", "sequence", "array",    "alias",     "except", "longlong",
    "ulonglong", "longdouble", "wchar",  "wstring",  "fixed"};

bool is_integer_type(int32_t type) {
    return type == tk_short || type == tk_ushort || type == tk_long || type == tk_ulong ||
           type == tk_enum || type == tk_longlong || type == tk_ulonglong;
}
bool is_float_type(int32_t type) { return type == tk_float || type == tk_double; }
bool is_number_type(int32_t type) { return is_integer_type(type) || is_float_type(type); }
bool is_bytes_type(int32_t type) { return type == tk_string || type == tk_octet; }

// A whole number written as [+-]digits and nothing else.
bool read_integer(const std::string &text, long long &out) {
    size_t i = text.empty() || (text[0] != '+' && text[0] != '-') ? 0 : 1;
    if (i == text.size()) return false;
    for (size_t j = i; j < text.size(); ++j)
        if (text[j] < '0' || text[j] > '9') return false;
    errno = 0;
    char *end = nullptr;
    out = std::strtoll(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0';
}

// A decimal number as the library reads floats: [+-]digits[.digits][e[+-]digits],
// at least one digit before the exponent; no hexadecimal, inf or nan.
bool read_decimal(const std::string &text, double &out) {
    size_t i = 0, n = text.size();
    if (i < n && (text[i] == '+' || text[i] == '-')) ++i;
    size_t digits = 0;
    while (i < n && text[i] >= '0' && text[i] <= '9') ++i, ++digits;
    if (i < n && text[i] == '.') {
        ++i;
        while (i < n && text[i] >= '0' && text[i] <= '9') ++i, ++digits;
    }
    if (digits == 0) return false;
    if (i < n && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        if (i < n && (text[i] == '+' || text[i] == '-')) ++i;
        size_t exponent = 0;
        while (i < n && text[i] >= '0' && text[i] <= '9') ++i, ++exponent;
        if (exponent == 0) return false;
    }
    if (i != n) return false;
    out = std::strtod(text.c_str(), nullptr);
    return std::isfinite(out);
}

// The range a whole number of type may take.
void integer_range(int32_t type, long long &min, long long &max) {
    switch (type) {
        case tk_short:
            min = -32768, max = 32767;
            break;
        case tk_ushort:
            min = 0, max = 65535;
            break;
        case tk_long:
            min = -2147483648LL, max = 2147483647LL;
            break;
        case tk_ulong:
            min = 0, max = 4294967295LL;
            break;
        case tk_enum:
            min = 0, max = 2147483647LL;
            break;
        case tk_ulonglong:
            min = 0, max = 9223372036854775807LL;
            break;
        default:
            min = -9223372036854775807LL - 1, max = 9223372036854775807LL;
    }
}

// value as the library would write a value of type (float or double) that
// was read from it: rounded to the type, then to the written decimals.
double as_written(int32_t type, double value) {
    if (type == tk_float) value = static_cast<double>(static_cast<float>(value));
    char text[400];
    auto r = std::to_chars(text, text + sizeof text - 1, value, std::chars_format::fixed,
                           written_decimals);
    if (r.ec != std::errc()) return value;
    *r.ptr = '\0';
    return std::strtod(text, nullptr);
}

bool ordered(Compare how, int order) {
    switch (how) {
        case Compare::Equal:
            return order == 0;
        case Compare::NotEqual:
            return order != 0;
        case Compare::Less:
            return order < 0;
        case Compare::LessEqual:
            return order <= 0;
        case Compare::Greater:
            return order > 0;
        case Compare::GreaterEqual:
            return order >= 0;
        default:
            return false;
    }
}

template <typename T>
int order_of(T a, T b) {
    return a < b ? -1 : b < a ? 1 : 0;
}

// The text a check compares or matches: bytes for strings and octets.
std::string subject(int32_t type, const std::string &text) {
    return is_bytes_type(type) ? decode_notation(text) : text;
}

}  // namespace

bool is_check_operator(const std::string &word) {
    return word == "==" || word == "!=" || word == "<" || word == "<=" || word == ">" ||
           word == ">=" || word == "~";
}

Expectation expectation_of(const std::vector<std::string> &args) {
    Expectation want;
    if (args.size() < 3) {
        want.expected = args.size() > 1 ? args[1] : "";
        return want;
    }
    const std::string &op = args[1];
    want.how = op == "!="   ? Compare::NotEqual
               : op == "<"  ? Compare::Less
               : op == "<=" ? Compare::LessEqual
               : op == ">"  ? Compare::Greater
               : op == ">=" ? Compare::GreaterEqual
               : op == "~"  ? Compare::Matches
                            : Compare::Equal;
    want.expected = args[2];
    return want;
}

const char *compare_symbol(Compare how) {
    static const char *const symbols[] = {"==", "!=", "<", "<=", ">", ">=", "~"};
    return symbols[static_cast<int>(how)];
}

std::string type_name(int32_t type) {
    if (type >= 0 && type < static_cast<int32_t>(sizeof kind_names / sizeof kind_names[0]))
        return kind_names[type];
    return "kind " + std::to_string(type);
}

bool script_can_give(int32_t type) {
    switch (type) {
        case tk_short:
        case tk_long:
        case tk_ushort:
        case tk_ulong:
        case tk_float:
        case tk_double:
        case tk_boolean:
        case tk_char:
        case tk_octet:
        case tk_objref:
        case tk_enum:
        case tk_string:
            return true;
        default:
            return false;
    }
}

std::string value_problem(int32_t type, const std::string &text) {
    const std::string shown = "'" + text + "'";
    if (is_integer_type(type)) {
        long long v = 0, min = 0, max = 0;
        integer_range(type, min, max);
        if (!read_integer(text, v) || v < min || v > max)
            return shown + " is not " +
                   (type == tk_enum ? "an enum's member number" : "a " + type_name(type)) +
                   ": a whole number from " + std::to_string(min) + " to " + std::to_string(max);
        return "";
    }
    if (is_float_type(type)) {
        double v = 0;
        if (!read_decimal(text, v) || (type == tk_float && std::fabs(v) > FLT_MAX))
            return shown + " is not a " + type_name(type) +
                   ": a decimal number such as 12.5 or 1e-3";
        return "";
    }
    std::string problem;
    switch (type) {
        case tk_boolean:
            if (text != "0" && text != "1")
                return shown +
                       " is not a boolean: the library reads 1 as true and everything "
                       "else as false, so write 1 or 0";
            return "";
        case tk_char:
            if (text.size() != 1) return shown + " is not a char: one character";
            return "";
        case tk_octet:
            if (decode_notation(text, &problem).size() != 1 && problem.empty())
                return shown + " is not an octet: one byte, such as A or `ff`";
            return problem.empty() ? "" : shown + ": " + problem;
        case tk_string:
            decode_notation(text, &problem);
            return problem.empty() ? "" : shown + ": " + problem;
        default:
            return "";
    }
}

std::string compare_problem(int32_t type, Compare how, const std::string &expected) {
    if (how == Compare::Matches) return pattern_problem(expected);
    if (how != Compare::Equal && how != Compare::NotEqual && !is_number_type(type))
        return std::string(compare_symbol(how)) + " compares numbers, and this value is a " +
               type_name(type) + ": use ==, != or ~";
    return value_problem(type, expected);
}

bool compare_values(int32_t type, Compare how, const std::string &actual,
                    const std::string &expected, std::string &why) {
    const std::string kind = " (" + type_name(type) + ")";
    const std::string got = ", got " + readable(type, actual) + kind;
    if (how == Compare::Matches) {
        std::string text = subject(type, actual);
        if (text.size() > limits::max_check_subject) {
            why = "the value has " + std::to_string(text.size()) + " bytes, more than the " +
                  std::to_string(limits::max_check_subject) + " a pattern is matched against";
            return false;
        }
        bool ok = false;
        if (!pattern_matches(expected, text, ok, why)) return false;
        if (!ok) why = "expected a value matching /" + expected + "/" + got;
        return ok;
    }
    std::string problem = compare_problem(type, how, expected);
    if (!problem.empty()) {
        why = "cannot compare: " + problem;
        return false;
    }
    int order = 0;
    long long a = 0, b = 0;
    double x = 0, y = 0;
    if (is_integer_type(type) && read_integer(actual, a) && read_integer(expected, b))
        order = order_of(a, b);
    else if (is_float_type(type) && read_decimal(actual, x) && read_decimal(expected, y))
        order = order_of(as_written(type, x), as_written(type, y));
    else
        order = subject(type, actual) == subject(type, expected) ? 0 : 1;
    if (ordered(how, order)) return true;
    why = "expected " +
          (how == Compare::Equal ? std::string()
                                 : "a value " + std::string(compare_symbol(how)) + " ") +
          readable(type, expected) + got;
    return false;
}

std::string readable(int32_t type, const std::string &text) {
    if (is_bytes_type(type) || type == tk_char) return quoted(subject(type, text));
    if (type == tk_objref && text.size() > 60)
        return "'" + text.substr(0, 40) + "..." + text.substr(text.size() - 12) + "'";
    return "'" + text + "'";
}

std::string placeholder(int32_t type) {
    if (!script_can_give(type)) return "";
    if (is_float_type(type)) return "0.0";
    if (is_number_type(type) || type == tk_boolean) return "0";
    switch (type) {
        case tk_char:
            return "a";
        case tk_octet:
            return "`00`";
        case tk_string:
            return "text";
        case tk_objref:
            return "IOR:0";
        default:
            return "";
    }
}

}  // namespace runner
