#include "script/decimal.h"

#include <cctype>

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
