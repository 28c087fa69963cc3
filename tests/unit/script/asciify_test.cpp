#include "script/asciify.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "host/kit/hostkit.h"
#include "script/decimal.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

namespace {

std::string text_of(const std::string &bytes) {
    char *t = asciify(bytes.data(), static_cast<long>(bytes.size()));
    std::string s(t);
    std::free(t);
    return s;
}

std::string bytes_of(const char *text) {
    size_t n = 99;
    unsigned char *b = un_asciify(text, &n);
    std::string s(reinterpret_cast<char *>(b), n);
    EXPECT_EQ(b[n], 0);
    std::free(b);
    return s;
}

TEST(Asciify, TableInBothDirections) {
    const std::pair<std::string, std::string> table[] = {
        {"abc", "abc"},
        {"ab\x01", "ab`01`"},
        {std::string("a\x01") + "b", "`6101`b"},
        {std::string("\x01") + "ab", "`01`ab"},
        {std::string("\x01") + "a\x02", "`016102`"},
        {"xy\"z", "xy\"z"},
        {"x\"y", "`7822`y"},
        {"\\", "`5c`"},
        {"\xff", "`ff`"},
        // Plain runs around a hex run, each copied whole.
        {std::string("xabc\x01") + "def", "xabc`01`def"},
    };
    for (const auto &row : table) {
        EXPECT_EQ(text_of(row.first), row.second);
        EXPECT_EQ(bytes_of(row.second.c_str()), row.first) << row.second;
    }
}

TEST(Asciify, PlainControlsEmptyInputAndBrokenHex) {
    EXPECT_EQ(text_of("xa\nb\tc\rd\be\ff"), "xa\nb\tc\rd\be\ff");
    EXPECT_EQ(text_of("a\nb"), "`610a`b");  // a first byte joins the run ahead
    EXPECT_EQ(text_of("xa`"), "xa`60`");
    EXPECT_EQ(text_of(std::string("\0", 1)), "`00`");
    for (long size : {5L, -1L}) {
        char *empty = asciify(size < 0 ? "abc" : nullptr, size);
        EXPECT_STREQ(empty, "") << size;
        std::free(empty);
    }
    const std::pair<const char *, std::string> unasciified[] = {
        {"`41", "A"}, {"`4A`", "J"}, {"", ""}, {"ab`4", "ab"}};  // half a pair is dropped
    for (const auto &row : unasciified) EXPECT_EQ(bytes_of(row.first), row.second) << row.first;
    set_host_slots(hostkit::slots());
    hostkit::clear_printed();
    set_debug_level(1);
    EXPECT_EQ(bytes_of("`zz`").size(), 1u);
    set_debug_level(0);
    EXPECT_TRUE(hostkit::printed_contains("un_asciify: expected hex digit at character 1: 'z'"));
}

TEST(Asciify, LongMixedTextsRoundTrip) {
    std::string bytes;
    for (int i = 0; i < 300000; ++i) bytes.push_back(static_cast<char>(i * 7 % 256));
    std::string text = text_of(bytes);
    EXPECT_GT(text.size(), bytes.size() + 8096);  // past the first area
    EXPECT_EQ(bytes_of(text.c_str()), bytes);
}

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
