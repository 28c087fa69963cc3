#include "script/decimal.h"

#include <gtest/gtest.h>

namespace {

// Both readers agree inside the 32-bit range and part at its edges.
TEST(Decimal, WrappingAndSaturatingReadersDifferOnlyPastThe32BitRange) {
    struct Row {
        const char *text;
        int32_t wrapping;
        int32_t saturating;
    };
    // Digits are read two at a time: odd and even counts, and the characters
    // just below '0' and just above '9' as ends.
    const Row inside[] = {
        {"", 0, 0},         {"1", 1, 1},           {"12", 12, 12},
        {"123:", 123, 123}, {"1234/", 1234, 1234}, {"0009", 9, 9},
        {"  +12x", 12, 12}, {"-7 8", -7, -7},      {"--1", 0, 0},
    };
    const int32_t min = -2147483647 - 1, max = 2147483647;
    const Row edges[] = {
        {"2147483647", max, max},  {"2147483648", min, max},
        {"-2147483648", min, min}, {"-2147483649", max, min},
        {"4294967296", 0, max},    {"99999999999999999999", 1661992959, max},
    };
    auto check = [](const Row &r) {
        EXPECT_EQ(decimal_wrapping(r.text), r.wrapping) << r.text;
        EXPECT_EQ(decimal_saturating(r.text), r.saturating) << r.text;
    };
    for (const Row &r : inside) check(r);
    for (const Row &r : edges) check(r);
    EXPECT_EQ(decimal_wrapping(nullptr), 0);
}

}  // namespace
