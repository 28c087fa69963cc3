#include "script/decimal.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {
// The digits "%f" writes behind the point.
constexpr int fixed_decimals = 6;
}  // namespace

int32_t decimal_saturating(const char *text) {
    while (std::isspace(static_cast<unsigned char>(*text))) ++text;
    bool negative = false;
    if (*text == '+' || *text == '-') negative = *text++ == '-';
    int64_t value = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        value = value * 10 + (*text - '0');
        if (value > INT32_MAX) {
            value = INT64_C(1) + INT32_MAX;
            while (*text >= '0' && *text <= '9') ++text;
            break;
        }
    }
    if (negative) value = -value;
    if (value > INT32_MAX) value = INT32_MAX;
    if (value < INT32_MIN) value = INT32_MIN;
    return static_cast<int32_t>(value);
}

double float_reading(const char *text) {
    if (text == nullptr) return 0;
    const char *p = text;
    while (std::isspace(static_cast<unsigned char>(*p))) ++p;
    // Only the decimal form is taken: strtod alone would also read
    // hexadecimal, "inf" and "nan".
    const char *start = p;
    bool negative = false;
    if (*p == '+' || *p == '-') negative = *p++ == '-';
    const char *digits = p;
    while (std::isdigit(static_cast<unsigned char>(*p))) ++p;
    bool any = p != digits;
    if (*p == '.') {
        const char *fraction = ++p;
        while (std::isdigit(static_cast<unsigned char>(*p))) ++p;
        any = any || p != fraction;
    }
    if (!any) return 0;
    if (*p == 'e' || *p == 'E') {
        const char *q = p + 1;
        if (*q == '+' || *q == '-') ++q;
        if (std::isdigit(static_cast<unsigned char>(*q))) {
            while (std::isdigit(static_cast<unsigned char>(*q))) ++q;
            p = q;
        }
    }
    // from_chars reads the same digits with the same rounding, without a
    // copy; beyond the range of a double strtod says what it becomes.
    double value = 0;
    if (std::from_chars(digits, p, value).ec != std::errc()) {
        std::string number(start, static_cast<size_t>(p - start));
        return std::strtod(number.c_str(), nullptr);
    }
    return negative ? -value : value;
}

size_t format_fixed(char (&text)[plain_text_size], double value) {
    // to_chars gives the exact, correctly rounded digits that "%f" gives in
    // the C locale; printf stays the answer should it ever refuse.
    auto r = std::to_chars(text, text + plain_text_size - 1, value, std::chars_format::fixed,
                           fixed_decimals);
    if (r.ec != std::errc()) {
        int n = std::snprintf(text, sizeof text, "%f", value);
        return n < 0 ? 0 : std::min(static_cast<size_t>(n), sizeof text - 1);
    }
    *r.ptr = '\0';
    return static_cast<size_t>(r.ptr - text);
}
