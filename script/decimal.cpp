#include "script/decimal.h"

#include <cctype>

int32_t decimal_wrapping(const char *text) {
    if (text == nullptr) return 0;
    const char *p = text;
    // A digit is never white space, and most texts begin with one.
    if (*p < '0' || *p > '9')
        while (std::isspace(static_cast<unsigned char>(*p))) ++p;
    bool negative = false;
    if (*p == '+' || *p == '-') negative = *p++ == '-';
    uint32_t value = 0;
    for (; *p >= '0' && *p <= '9'; ++p) value = value * 10u + static_cast<uint32_t>(*p - '0');
    if (negative) value = 0u - value;
    return static_cast<int32_t>(value);
}

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
