// The shape and the judging of a load run: rates and stages as written,
// the target over time and its arrivals, the schedule's waiting ring and
// drops, thresholds and baselines. No process is started here.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <tuple>
#include <vector>

#include "tests/support.h"
#include "tests/unit/tools/stats_row.h"
#include "tools/runner/baseline.h"
#include "tools/runner/rates.h"
#include "tools/runner/thresholds.h"
#ifndef _WIN32
#include "tools/runner/arrivals.h"
#endif

using testsupport::expect_has;

namespace runner {
namespace {

TEST(Rates, ReadAsWrittenOrRefused) {
    // Each text and the rate it gives per second; 0: refused.
    const std::pair<const char *, double> cases[] = {
        {"300", 300},     {"2.5", 2.5}, {"300/s", 300}, {"300/m", 5},      {"36/h", 0.01},
        {"1000000", 1e6}, {"0", 0},     {"-5", 0},      {"", 0},           {"5/d", 0},
        {"1000001", 0},   {"1e3", 0},   {"nan", 0},     {"60000001/m", 0}, {"5/", 0}};
    for (const auto &[text, per_second] : cases) {
        double v = -1;
        std::string error;
        bool ok = parse_rate(text, v, error);
        EXPECT_EQ(ok, per_second > 0) << text;
        EXPECT_DOUBLE_EQ(ok ? v : 0, per_second) << text;
        if (!ok) expect_has(error, {"--rate"});
    }
}

TEST(Rates, StagesReadAsWrittenOrRefused) {
    std::vector<Stage> stages;
    std::string error;
    ASSERT_TRUE(parse_stages("30s:50,2m:50,500ms:0,1h:2", true, stages, error)) << error;
    std::vector<double> seconds;
    for (const Stage &s : stages) seconds.push_back(s.seconds);
    EXPECT_EQ(seconds, (std::vector<double>{30, 120, 0.5, 3600}));
    EXPECT_TRUE(parse_stages("10:2.5", false, stages, error));  // a rate may have decimals
    const std::pair<const char *, bool> bad[] = {
        {"10:2.5", true},       {"30s", true},    {"30s:", true}, {":5", true},
        {"30x:5", true},        {"30s:-1", true}, {"0s:5", true}, {"30s:20001", true},
        {"30s:1000001", false}, {"169h:1", true}, {"", true},     {"1s:1,,1s:2", true},
        {"100h:1,100h:1", true}};
    for (const auto &[text, counts] : bad) {
        EXPECT_FALSE(parse_stages(text, counts, stages, error)) << text;
        EXPECT_EQ(error.rfind("--stages", 0), 0u) << error;
    }
    std::string many;
    for (size_t i = 0; i <= max_stages; ++i) many += (i ? "," : "") + std::string("1s:1");
    EXPECT_FALSE(parse_stages(many, true, stages, error));
    many = many.substr(many.find(',') + 1);  // exactly the most
    EXPECT_TRUE(parse_stages(many, true, stages, error)) << error;
}

TEST(Rates, ProfileRampsLinearlyAndItsCountInvertsIt) {
    // 0 -> 10/s over 2 s, 10/s for 2 s, down to 0 over 1 s, then 0.
    Profile p({{2, 10}, {2, 10}, {1, 0}}, 0);
    const std::tuple<double, double, double> cases[] = {{0, 0, 0},   {1, 5, 2.5}, {2, 10, 10},
                                                        {3, 10, 20}, {4, 10, 30}, {4.5, 5, 33.75},
                                                        {5, 0, 35},  {9, 0, 35}};
    for (const auto &[t, target, count] : cases) {
        EXPECT_NEAR(p.target_at(t), target, 1e-9) << t;
        EXPECT_NEAR(p.count_before(t), count, 1e-9) << t;
        if (t <= 5 && t > 0) {
            EXPECT_NEAR(p.time_of_count(count), t, 1e-9) << t;
        }
    }
    EXPECT_TRUE(std::isinf(p.time_of_count(35.5)));  // never: the rate stays 0
    EXPECT_DOUBLE_EQ(p.seconds(), 5);
    // A constant rate, and stages that start from one.
    EXPECT_DOUBLE_EQ(Profile(4).time_of_count(10), 2.5);
    Profile from({{1, 0}}, 8);  // 8/s down to 0 over a second: 4 arrivals
    EXPECT_NEAR(from.count_before(1), 4, 1e-9);
    EXPECT_NEAR(from.time_of_count(3), 0.5, 1e-9);
}

// Arrivals at 10/s handed to free users at the given times: when a user
// asks, whether an arrival is there, when it was due and the drops so far.
using Taken = std::tuple<double, bool, double, uint64_t>;

void play(uint32_t capacity, const std::vector<Taken> &steps, double end = 10) {
    Profile p(10);
    ArrivalState state;
    state.capacity = capacity;
    std::vector<double> ring(capacity + 1);
    for (const auto &[now, found, due, dropped] : steps) {
        double at = -1;
        const bool any = next_arrival(state, ring.data(), p, now, end, at);
        EXPECT_EQ(any, found) << "at " << now;
        if (any) {
            EXPECT_NEAR(at, due, 1e-9) << "at " << now;
        }
        EXPECT_EQ(state.dropped, dropped) << "at " << now;
    }
}

TEST(Arrivals, ArrivalsWhileEveryUserIsBusyWaitThenAreDroppedAndNoneComeAtTheEnd) {
    // Room for two: at 0.55 s arrivals 0.1 .. 0.5 have come; 0.1 and 0.2
    // wait, 0.3, 0.4 and 0.5 are dropped; the oldest goes first.
    play(2, {{0, true, 0, 0},
             {0.55, true, 0.1, 3},
             {0.56, true, 0.2, 3},
             {0.57, true, 0.6, 3},  // nothing waits: the next one to come
             {0.9, true, 0.7, 3}});
    // Without room every late arrival is dropped at once.
    play(0, {{0, true, 0, 0}, {0.55, true, 0.6, 5}});
    // None at or after the end.
    play(1, {{0, true, 0, 0}, {0.1, true, 0.1, 0}, {0.15, false, 0, 0}, {5, false, 0, 0}}, 0.2);
}

TEST(Arrivals, PoissonGapsKeepTheMean) {
    Profile p(1000);
    ArrivalState state;
    state.poisson = true;
    state.random = 12345;
    double due = 0, last = 0, sum_sq = 0;
    int n = 20000;
    for (int i = 0; i < n; ++i) {
        ASSERT_TRUE(next_arrival(state, nullptr, p, 0, 1e9, due));
        sum_sq += (due - last) * (due - last);
        last = due;
    }
    EXPECT_NEAR(last / n, 0.001, 0.00005);                     // mean gap 1 ms
    EXPECT_NEAR(std::sqrt(sum_sq / n - 1e-6), 0.001, 0.0001);  // exponential: sd = mean
}

// A row whose p90 is its p50, and p99 and max its p95.
StatsRow row(const char *name, double p50, double p95, double rate, uint64_t count = 100,
             uint64_t failed = 0) {
    return testsupport::stats_row(name, "", count, failed, rate,
                                  {0, p50, p50, p95, p95, p95, (p50 + p95) / 2});
}

TEST(Thresholds, JudgedOnTheRowsAsWritten) {
    std::vector<StatsRow> rows = {row("invoke transfer twoway", 2, 6, 120, 200, 1),
                                  row("all requests", 2, 6, 120, 200, 1)};
    StatsRow &late = *rows.insert(rows.begin() + 1, row("iterations", 3, 7, 50));
    late.has_response = true;  // under a rate the response time is judged
    late.r_p50_ms = late.r_p95_ms = 40;
    std::vector<StatsRow> baseline = {row("invoke transfer twoway", 2, 5, 100)};
    const std::tuple<const char *, bool, const char *> cases[] = {
        {"all requests: p95<6.5ms", true, "p95 6.000 ms"},
        {"all requests: p95<6ms", false, "p95 6.000 ms"},
        {"all requests: p95<=6ms and p50<2500us", true, "p95 6.000 ms, p50 2.000 ms"},
        {"all requests: max<0.01s", true, "max 6.000 ms"},
        {"all requests: mean>=4", true, "mean 4.000 ms"},
        {"invoke transfer twoway: failures<1%", true, "failures 0.500%"},
        {"invoke transfer twoway: failures<0.5%", false, "failures 0.500%"},
        {"invoke transfer twoway: rate>100/s and rate<7300/m", true,
         "rate 120.000/s, rate 120.000/s"},
        {"invoke transfer twoway: p95<1.10*baseline", false, "p95 6.000 ms (limit 5.500 ms)"},
        {"invoke transfer twoway: p95<1.25*baseline and rate>=1.2*baseline", true,
         "p95 6.000 ms (limit 6.250 ms), rate 120.000/s (limit 120.000/s)"},
        {"all requests: p95<2*baseline", false, "p95 6.000 ms (no baseline)"},
        {"iterations: p95<10ms", false, "p95 40.000 ms"},
        {"iterations: dropped=3", true, "dropped 3"},
        {"iterations: dropped=0", false, "dropped 3"},
        {"transaction nowhere: p95<1s", false, "no row of the table is named transaction nowhere"},
    };
    for (const auto &[text, passed, detail] : cases) {
        Threshold t;
        std::string error;
        ASSERT_TRUE(parse_threshold(text, t, error)) << text << ": " << error;
        Verdict v = judge(t, rows, 3, baseline);
        EXPECT_EQ(std::make_tuple(v.passed, v.detail, v.text),
                  std::make_tuple(passed, std::string(detail), std::string(text)));
    }
}

TEST(Thresholds, RefusedWithAReason) {
    // No name, an empty name, no such metric, no comparison, a space in the
    // value, no such unit, a percentage without % or above 100, a rate
    // without its unit, drops not a count or against a baseline, a factor of
    // 0, and conditions not joined by "and" one to another.
    std::vector<std::string> bad = {"p95<5ms", ": p95<5ms"};
    for (const char *condition : {"p96<5ms", "p95 5ms", "p95<5 ms", "p95<5kg", "failures<1",
                                  "failures<101%", "rate>100", "dropped=1.5", "dropped<2*baseline",
                                  "p95<0*baseline", "p95<5ms and", "p95<5ms or p99<9ms"})
        bad.push_back(std::string("all requests: ") + condition);
    for (const std::string &text : bad) {
        Threshold t;
        std::string error;
        EXPECT_FALSE(parse_threshold(text, t, error)) << text;
        EXPECT_EQ(error.rfind("--threshold", 0), 0u) << text << ": " << error;
    }
    std::string conditions = "all requests: p95<5ms";
    for (size_t i = 1; i < max_conditions; ++i) conditions += " and p95<5ms";
    Threshold t;
    std::string error;
    EXPECT_TRUE(parse_threshold(conditions, t, error)) << error;
    EXPECT_FALSE(parse_threshold(conditions + " and p95<5ms", t, error));
    EXPECT_FALSE(
        parse_threshold("all requests: p95<" + std::string(max_threshold_text, '1'), t, error));
}

TEST(Baseline, ReadsAStatsFileAndComparesByName) {
    std::vector<StatsRow> was;
    std::string error;
    const std::string text =
        "name,kind,count,failed,calls_per_s,min_ms,p50_ms,p90_ms,p95_ms,p99_ms,max_ms,"
        "response_p50_ms,response_p95_ms,response_p99_ms\n"
        "\"invoke a,b twoway\",call,10,0,100.000,1,2.000,3,4.000,8.000,9,,,\n"
        "iterations,iteration,10,0,50,1,2,3,4,8,9,4.000,8.000,16.000\n"
        "check x,check,10,1,100,,,,,,,,,\n";
    ASSERT_TRUE(parse_baseline("b.csv", text, was, error)) << error;
    std::vector<std::tuple<std::string, bool, bool>> read;
    for (const StatsRow &r : was) read.emplace_back(r.name, r.has_response, r.timed);
    EXPECT_EQ(read, (decltype(read){{"invoke a,b twoway", false, true},
                                    {"iterations", true, true},
                                    {"check x", false, false}}));
    StatsRow a = row("invoke a,b twoway", 2.5, 3, 90);
    a.p99_ms = 8;
    StatsRow it = row("iterations", 1, 1, 50);
    it.has_response = true;
    std::tie(it.r_p50_ms, it.r_p95_ms, it.r_p99_ms) = std::make_tuple(6, 8, 16);
    const auto d = compare_to_baseline({a, it, row("invoke new twoway", 1, 1, 1)}, was);
    ASSERT_EQ(d.size(), 3u);
    // The response time against the response time.
    EXPECT_EQ(std::make_tuple(d[0].p50, d[0].p95, d[0].p99, d[0].rate, d[1].p50, d[1].p95),
              std::make_tuple(25.0, -25.0, 0.0, -10.0, 50.0, 0.0));
    EXPECT_TRUE(std::isnan(d[2].p50) && std::isnan(d[2].rate));  // not in the baseline
}

TEST(Baseline, RefusesWhatIsNotAStatsFile) {
    const std::string header = "name,count,failed,calls_per_s,p50_ms,p95_ms,p99_ms\n";
    const std::pair<std::string, const char *> cases[] = {
        {"", "b.csv"},
        {"name,count\nx,1\n", "no column failed"},
        {header + "x,one,0,1,1,1,1\n", "b.csv:2: count and failed must be numbers"},
        {header + "x,1,0,1,-1,1,1\n", "b.csv:2: p50_ms is not a number: -1"},
        {header + "x,1,0,1,1e999,1,1\n", "p50_ms is not a number"},
        {header + "x,1,0,1,1,1\n", "b.csv:2"},
        {header + "\"x,1,0,1,1,1,1\n", "b.csv"},
    };
    std::vector<StatsRow> rows;
    for (const auto &c : cases) {
        std::string error;
        EXPECT_FALSE(parse_baseline("b.csv", c.first, rows, error)) << c.first;
        expect_has(error, {c.second});
    }
    std::string error;
    EXPECT_FALSE(read_baseline("/nonexistent/b_stats.csv", rows, error));
    expect_has(error, {"cannot read the baseline"});
    // A file up to the limit is read (and here refused as a table); one
    // byte more is not read at all.
    testsupport::TempDir dir;
    std::string text = header + std::string(max_baseline_bytes - header.size(), 'x');
    std::ofstream("at.csv", std::ios::binary) << text;
    std::ofstream("over.csv", std::ios::binary) << text << 'x';
    EXPECT_FALSE(read_baseline("at.csv", rows, error));
    EXPECT_EQ(error.find("larger than"), std::string::npos) << error.substr(0, 200);
    EXPECT_FALSE(read_baseline("over.csv", rows, error));
    expect_has(error, {"over.csv: larger than 4 MB"});
}

}  // namespace
}  // namespace runner
