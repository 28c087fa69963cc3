// Data files and variables of orbelle-run scripts.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/runner/csv.h"
#include "tools/runner/events.h"
#include "tools/runner/vars.h"

namespace {
using runner::CsvTable;
using Rows = std::vector<std::vector<std::string>>;

TEST(RunnerCsv, BadFilesNameTheFileAndLine) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "d.csv:1: empty: no header row"},
        {"\xEF\xBB\xBF\r\n\r\n", "d.csv:1: empty: no header row"},
        {"a,b\n", "d.csv:2: no rows after the header"},
        {"a,b\n1,2\n1,2,3\n", "d.csv:3: row has 3 fields, the header 2"},
        {"a,b\n1,2\r\n1\r\n", "d.csv:3: row has 1 field, the header 2"},
        {"a,b\n\"multi\nline\",2\n\"open,2\nmore\n",
         "d.csv:4: quoted field without its closing quote"},
        {"a,b\n\"x\"y,2\n", "d.csv:2: text after a closing quote"},
        {"a,b\nx\"y,2\n", "d.csv:2: a quote inside an unquoted field"},
        {"a,,b\n1,2,3\n", "d.csv:1: a column without a name in the header"},
        {"a,b,a\n1,2,3\n", "d.csv:1: column 'a' named twice in the header"},
    };
    for (const auto &c : cases) {
        CsvTable table;
        std::string error;
        EXPECT_FALSE(runner::parse_csv("d.csv", c.first, table, error)) << c.first;
        EXPECT_EQ(error, c.second) << c.first;
    }
}

TEST(RunnerCsv, RowsAreHandedOutByMode) {
    CsvTable table;
    std::string error;
    ASSERT_TRUE(runner::parse_csv("d.csv", "n\n0\n1\n2\n3\n4\n", table, error));
    auto take = [&](runner::RowMode mode, int vu, int users, std::vector<size_t> randoms) {
        runner::DataSource source(table, mode, vu, users);
        std::vector<long> got;
        size_t row = 0;
        for (size_t r : randoms) got.push_back(source.next(r, row) ? static_cast<long>(row) : -1);
        return got;
    };
    using M = runner::RowMode;
    EXPECT_EQ(take(M::Sequential, 3, 4, {9, 9, 9, 9, 9, 9, 9}),
              (std::vector<long>{0, 1, 2, 3, 4, 0, 1}));
    EXPECT_EQ(take(M::Random, 1, 1, {3, 0, 7}), (std::vector<long>{3, 0, 2}));
    // User k of N takes rows k-1, k-1+N, ... and then no more.
    EXPECT_EQ(take(M::Unique, 1, 2, {0, 0, 0, 0, 0}), (std::vector<long>{0, 2, 4, -1, -1}));
    EXPECT_EQ(take(M::Unique, 2, 2, {0, 0, 0}), (std::vector<long>{1, 3, -1}));
    EXPECT_EQ(take(M::Unique, 5, 5, {0, 0}), (std::vector<long>{4, -1}));
    EXPECT_EQ(take(M::Unique, 1, 1, {0, 0, 0, 0, 0, 0}), (std::vector<long>{0, 1, 2, 3, 4, -1}));
}

TEST(RunnerVariables, ExpandSetAndBuiltInNames) {
    runner::Variables vars(42);
    vars.set("customer.name", "Ada");
    vars.set("id", "${not_again}");  // a value is never expanded twice
    vars.set_user(3, 17);
    std::string out, error;
    ASSERT_TRUE(vars.expand("${customer.name}/${VU}-${ITERATION}:${id}${RANDOM:5..5}", out, error))
        << error;
    EXPECT_EQ(out, "Ada/3-17:${not_again}5");
    for (int i = 0; i < 200; ++i) {
        ASSERT_TRUE(vars.expand("${RANDOM:-2..2}", out, error));
        long v = std::stol(out);
        EXPECT_TRUE(v >= -2 && v <= 2) << v;
    }
    const long long before = runner::epoch_ms();
    ASSERT_TRUE(vars.expand("${TIME_MS}", out, error));
    EXPECT_GE(std::stoll(out), before);
    EXPECT_LE(std::stoll(out), runner::epoch_ms());

    const std::vector<std::pair<std::string, std::string>> bad = {
        {"a ${missing} b", "variable missing is not set"},
        {"${RANDOM:9..1}", "'${RANDOM:9..1}' takes whole numbers MIN..MAX, MIN <= MAX"},
        {"${RANDOM:x..1}", "'${RANDOM:x..1}' takes whole numbers MIN..MAX, MIN <= MAX"},
        {"${open", "'${' without a closing '}'"},
    };
    for (const auto &b : bad) {
        EXPECT_FALSE(vars.expand(b.first, out, error)) << b.first;
        EXPECT_EQ(error, b.second) << b.first;
    }
    EXPECT_EQ(runner::variable_names("${a}x${b.c}${RANDOM:1..2}${open"),
              (std::vector<std::string>{"a", "b.c", "RANDOM:1..2"}));
}

TEST(RunnerEvents, TextIsEscapedIntoValidJson) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"say \"hi\" \\ now", R"(say \"hi\" \\ now)"},
        {"two\nlines\tand\x01\x7f", R"(two\nlines\tand\u0001\u007f)"},
        {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"},
        {"bad \xff end", R"(bad \ufffd end)"},
        {"cut \xe2\x82", R"(cut \ufffd\ufffd)"},
        {"overlong \xc0\xaf surrogate \xed\xa0\x80",
         R"(overlong \ufffd\ufffd surrogate \ufffd\ufffd\ufffd)"},
    };
    for (const auto &c : cases) {
        const runner::Event e{1700000000123, 2,  9,     "check", c.first, "s.orb", 4,
                              0.4124,        -1, false, false,   0,       0,       "x"};
        EXPECT_EQ(
            runner::to_json(e),
            "{\"t\": 1700000000123, \"vu\": 2, \"iter\": 9, \"kind\": \"check\", \"name\": \"" +
                c.second +
                "\", \"script\": \"s.orb\", \"line\": 4, \"ms\": 0.412, \"ok\": false, "
                "\"error\": \"x\"}")
            << c.first;
    }
}

}  // namespace
