// What a load run's parent makes of its users' events: the histogram's
// percentiles against exact ones, events read back as written, totals,
// history and failure groups that add up, and the CSV files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <tuple>

#include "tests/support.h"
#include "tests/unit/tools/stats_row.h"
#include "tools/runner/aggregate.h"
#include "tools/runner/event_reader.h"
#include "tools/runner/histogram.h"
#include "tools/runner/report.h"

using testsupport::expect_has;

namespace runner {
namespace {
using testsupport::read_file;

// The value at rank ceil(p * n) of sorted values, as the histogram defines it.
uint64_t exact(const std::vector<uint64_t> &sorted, double p) {
    size_t rank = static_cast<size_t>(std::ceil(p * static_cast<double>(sorted.size())));
    return sorted[std::clamp<size_t>(rank, 1, sorted.size()) - 1];
}

TEST(Histogram, PercentilesWithinOnePercentOfExactOnes) {
    // Latencies as a loaded server gives them: most fast, a long tail.
    std::mt19937_64 random(7);
    std::lognormal_distribution<double> latency(std::log(800.0), 1.2);
    std::vector<uint64_t> values;
    Histogram h;
    for (int i = 0; i < 200000; ++i)
        h.add(values.emplace_back(static_cast<uint64_t>(latency(random))));
    std::sort(values.begin(), values.end());
    for (double p : {0.0, 0.01, 0.5, 0.9, 0.95, 0.99, 0.999, 1.0}) {
        double want = static_cast<double>(exact(values, p));
        double got = static_cast<double>(h.percentile_us(p));
        EXPECT_LE(std::abs(got - want), std::max(0.01 * want, 0.5)) << "p" << p;
    }
    EXPECT_EQ(std::make_tuple(h.min_us(), h.max_us_seen(), h.count()),
              std::make_tuple(values.front(), values.back(), values.size()));
}

TEST(Histogram, EdgesOfItsBucketsAndRange) {
    // Below 256 µs every value is exact; at each power of two the buckets
    // widen; beyond the range values count as its top.
    for (uint64_t v :
         {uint64_t{0}, uint64_t{1}, uint64_t{255}, uint64_t{256}, uint64_t{257}, uint64_t{511},
          uint64_t{512}, uint64_t{1} << 20, (uint64_t{1} << 39) + 12345, Histogram::max_us}) {
        Histogram h;
        h.add(v);
        EXPECT_EQ(h.percentile_us(0.5), v) << v;  // one value: clamped to it
        h.add(v + 1 > Histogram::max_us ? v : v + 1);
        double got = static_cast<double>(h.percentile_us(1.0));
        EXPECT_LE(std::abs(got - static_cast<double>(v + 1)), 0.005 * static_cast<double>(v) + 1)
            << v;
    }
    Histogram over;
    over.add(Histogram::max_us + 1000);
    over.add_ms(1e300);
    over.add_ms(-5);
    Histogram empty;
    EXPECT_EQ(std::make_tuple(over.max_us_seen(), over.min_us(), empty.percentile_us(0.99),
                              empty.min_us()),
              std::make_tuple(Histogram::max_us, 0u, 0u, 0u));
}

TEST(Histogram, MergedEqualsAddedTogether) {
    Histogram a, b, both;
    for (uint64_t v = 1; v < 100000; v = v * 3 / 2 + 1) {
        (v % 2 ? a : b).add(v);
        both.add(v);
    }
    a.merge(b);
    for (double p : {0.1, 0.5, 0.99}) EXPECT_EQ(a.percentile_us(p), both.percentile_us(p));
    EXPECT_EQ(std::make_tuple(a.count(), a.min_us()), std::make_tuple(both.count(), both.min_us()));
    a.clear();
    EXPECT_EQ(a.count(), 0u);
    a.merge(b);
    EXPECT_EQ(a.min_us(), b.min_us());
}

TEST(EventReader, ReadsBackWhatTheWriterWritesAndRefusesTheRest) {
    const std::string name = "invoke \"odd\" \\ name\t\x01 caf\xc3\xa9 \xf0\x9f\x98\x80";
    const std::string error = "IDL:omg.org/CORBA/TRANSIENT:1.0 </script>";
    const Event e{1795000000123, 17,   3, "call", name, "scripts/a b.orb", 42, 12.345, -1,
                  false,         true, 1, 3,      error};
    Event back;
    ASSERT_TRUE(read_event(to_json(e), back)) << to_json(e);
    // Every field the writer wrote, written again the same.
    EXPECT_EQ(to_json(back), to_json(e));
    EXPECT_STREQ(back.kind, "call");
    EXPECT_DOUBLE_EQ(back.ms, 12.345);

    // Newer keys are passed over; escapes JSON allows are read.
    ASSERT_TRUE(read_event(R"({"kind": "check", "name": "a\/b\u00e9\ud83d\ude00", "x": [1]})",
                           back) == false);  // arrays are not ours
    ASSERT_TRUE(read_event(R"({"kind":"check","name":"a\/b\u00e9\ud83d\ude00","x":null})", back));
    EXPECT_EQ(back.name, "a/b\xc3\xa9\xf0\x9f\x98\x80");
    ASSERT_TRUE(read_event(R"({"kind":"later","name":"n"})", back));
    EXPECT_STREQ(back.kind, "other");
    // What is not an event is refused.
    for (const char *line :
         {"", "{}", "[]", "{\"kind\":\"call\"}", "{\"name\":\"x\"}",
          "{\"kind\":\"call\",\"name\":\"x\"", "{\"kind\":\"call\",\"name\":\"x\"} trailing",
          "{\"kind\":\"call\",\"name\":\"x\",}", "{\"kind\":\"call\",\"name\":\"unterminated}",
          "{\"kind\":\"call\",\"name\":\"x\",\"vu\":1.5}",
          "{\"kind\":\"call\",\"name\":\"x\",\"vu\":99999999999}",
          "{\"kind\":\"call\",\"name\":\"\\q\"}", "{\"kind\":\"call\",\"name\":\"\\u12\"}",
          "{\"kind\":\"call\",\"name\":\"a\nb\"}", "{\"kind\":call,\"name\":\"x\"}"})
        EXPECT_FALSE(read_event(line, back)) << line;
}

Event event(int64_t t, const char *kind, const std::string &name, double ms, bool ok = true,
            const std::string &error = "") {
    return {t, 1, 1, kind, name, "", 0, ms, -1, ok, false, 0, 0, error};
}

TEST(Aggregator, CountsEachEventOnceInTotalsHistoryAndFailures) {
    const int64_t start = 1000000;
    Aggregator totals(start);
    // Three seconds of calls; one event arrives after its second closed.
    totals.add(event(start + 10, "call", "invoke add twoway", 1.0));
    totals.add(event(start + 20, "call", "params add", 0.1));
    totals.add(event(start + 900, "call", "invoke add twoway", 3.0, false,
                     "status 1, exception 7, IDL:omg.org/CORBA/TRANSIENT:1.0 (minor 2)"));
    totals.add(event(start + 1500, "check", "check ^add", 0, false, "expected '2', got '3'"));
    totals.add(event(start + 1600, "transaction", "transaction t", 5.0, false, "inside"));
    totals.add(event(start + 1700, "iteration", "iteration", 6.0, false));
    totals.tick(start + 4000, 2, 2);                                   // closes seconds 0 and 1
    totals.add(event(start + 500, "call", "invoke add twoway", 2.0));  // late
    totals.add(event(start - 5000, "call", "invoke add twoway", 2.0, false,
                     "IDL:omg.org/CORBA/TRANSIENT:1.0"));  // clock before the start
    RunReport report;
    totals.finish(start + 5000, report);

    std::vector<std::tuple<std::string, uint64_t, uint64_t, bool>> rows;
    for (const StatsRow &r : report.rows) rows.emplace_back(r.name, r.count, r.failed, r.timed);
    // Only invokes send requests; iterations come just before all requests.
    EXPECT_EQ(rows, (decltype(rows){{"invoke add twoway", 4, 2, true},
                                    {"params add", 1, 0, true},
                                    {"check ^add", 1, 1, false},
                                    {"transaction t", 1, 1, true},
                                    {kIterations, 1, 1, true},
                                    {kAllCalls, 4, 2, true}}));
    const StatsRow &add = report.rows[0], &iterations = report.rows[4];
    // No wait for the iterations: a closed run.
    EXPECT_EQ(
        std::make_tuple(add.per_second, add.min_ms, add.max_ms, iterations.max_ms,
                        iterations.has_response, totals.iterations(), totals.failed_iterations()),
        std::make_tuple(0.8, 1.0, 3.0, 6.0, false, 1u, 1u));

    // Failures by exception id, most frequent first; transactions are not
    // failures of their own.
    std::vector<std::pair<std::string, uint64_t>> failures;
    for (const FailureRow &f : report.failures) failures.emplace_back(f.id, f.count);
    EXPECT_EQ(failures,
              (decltype(failures){{"IDL:omg.org/CORBA/TRANSIENT:1.0", 2}, {"check failed", 1}}));

    // Every second from 0 to the end has its all-requests row, and the
    // history adds up to the totals, late events included.
    uint64_t requests = 0, named = 0;
    std::vector<int64_t> seconds;
    for (const SecondRow &r : report.history) {
        if (r.name == kAllCalls) {
            requests += r.count;
            seconds.push_back(r.second);
        } else if (r.name == "invoke add twoway") {
            named += r.count;
        }
    }
    EXPECT_EQ(std::make_tuple(requests, named, seconds, report.history.front().users),
              std::make_tuple(4u, 4u, std::vector<int64_t>{0, 1, 2, 3, 4}, 0));
}

TEST(Aggregator, ProgressLineShowsTheLastSecond) {
    Aggregator totals(0);
    for (int i = 1; i <= 100; ++i) totals.add(event(500, "call", "invoke x twoway", i * 0.01));
    expect_has(totals.tick(1000, 3, 4),
               {"1s  users 3/4  calls/s 100.0  failures 0  p50 0.500 ms  p95 0.949 ms"});
    expect_has(totals.tick(2000, 4, 4), {"calls/s 0.0"});
}

TEST(Aggregator, FailureIds) {
    const std::pair<Event, const char *> cases[] = {
        {event(0, "call", "invoke x twoway", 1, false,
               "status 1, exception 4, IDL:omg.org/CORBA/COMM_FAILURE:1.0, minor 0"),
         "IDL:omg.org/CORBA/COMM_FAILURE:1.0"},
        {{0, 1, 1, "call", "x", "", 0, 1, -1, false, true, 2, 9, "no reply"},
         "status 2, exception 9"},
        {{0, 1, 1, "check", "x", "", 0, 1, -1, false, false, 2, 9, "no reply"}, "check failed"},
    };
    for (const auto &c : cases) EXPECT_EQ(failure_id(c.first), c.second) << c.first.error;
}

TEST(CsvReport, WritesStatsHistoryAndPercentilesWithQuotedNames) {
    testsupport::TempDir dir;
    RunReport report;
    const std::vector<double> times = {0.1, 0.2, 0.2, 0.2, 0.2, 0.3, 0.2};
    StatsRow call = testsupport::stats_row("invoke \"a,b\" twoway", "call", 3, 1, 1.5, times);
    StatsRow iterations = testsupport::stats_row(kIterations, "iteration", 3, 1, 1.5, times);
    StatsRow check = testsupport::stats_row("check x", "check", 3, 1, 1.5, times);
    call.spectrum = {{0, 0.1}, {50, 0.2}, {100, 0.3}};
    iterations.has_response = true;
    iterations.r_p50_ms = iterations.r_p90_ms = iterations.r_p95_ms = iterations.r_p99_ms = 5;
    iterations.r_max_ms = iterations.r_mean_ms = 7;
    iterations.r_spectrum = {{0, 4.5}, {100, 7}};
    check.timed = false;  // its times are not shown
    report.rows = {call, iterations, check};
    report.open_model = true;
    report.dropped = 42;
    report.history = {{0, kAllCalls, 3, 0, 0, 0, 0, 2, 3, 2.5, 1},
                      {0, "check x", 3, 0, 0, 0, 0, 2, 3, 2.5, 1}};
    std::string error;
    ASSERT_TRUE(write_csv_report(report, dir.path() + "/run", error)) << error;
    EXPECT_EQ(read_file(dir.path() + "/run_stats.csv"),
              "name,kind,count,failed,calls_per_s,min_ms,p50_ms,p90_ms,p95_ms,p99_ms,max_ms,"
              "mean_ms,response_p50_ms,response_p90_ms,response_p95_ms,response_p99_ms,"
              "response_max_ms,response_mean_ms,dropped\n"
              "\"invoke \"\"a,b\"\" twoway\",call,3,1,1.500,0.100,0.200,0.200,0.200,0.200,0.300,"
              "0.200,,,,,,,\n"
              "iterations,iteration,3,1,1.500,0.100,0.200,0.200,0.200,0.200,0.300,0.200,5.000,"
              "5.000,5.000,5.000,7.000,7.000,42\n"
              "check x,check,3,1,1.500,,,,,,,,,,,,,,\n");
    EXPECT_EQ(read_file(dir.path() + "/run_history.csv"),
              "second,name,count,failures,p50_ms,p95_ms,p99_ms,users,iterations,target,dropped\n"
              "0,all requests,3,0,0.000,0.000,0.000,2,3,2.500,1\n"
              "0,check x,3,0,0.000,0.000,0.000,2,,,\n");
    EXPECT_EQ(read_file(dir.path() + "/run_percentiles.csv"),
              "name,time,percentile,ms\n"
              "\"invoke \"\"a,b\"\" twoway\",service,0.000000,0.100\n"
              "\"invoke \"\"a,b\"\" twoway\",service,50.000000,0.200\n"
              "\"invoke \"\"a,b\"\" twoway\",service,100.000000,0.300\n"
              "iterations,response,0.000000,4.500\n"
              "iterations,response,100.000000,7.000\n");
    EXPECT_FALSE(write_csv_report(report, dir.path() + "/missing/run", error));
    expect_has(error, {"missing/run_stats.csv"});
}

TEST(EventWriter, BatchedWriterFlushesATenthOfASecondAfterItsLastFlush) {
    testsupport::TempDir dir;
    std::string path = dir.path() + "/events.jsonl";
    EventWriter writer;
    std::string error;
    ASSERT_TRUE(writer.open(path, error)) << error;
    writer.set_batched(true);
    writer.write(event(epoch_ms(), "call", "invoke a twoway", 1));  // fresh: flushed
    writer.write(event(epoch_ms(), "call", "invoke b twoway", 1));  // held
    EXPECT_EQ(read_file(path).find("invoke b"), std::string::npos);
    writer.write(event(epoch_ms() + 200, "call", "invoke c twoway", 1));  // 100 ms passed
    EXPECT_NE(read_file(path).find("invoke c"), std::string::npos);
    writer.write(event(epoch_ms(), "call", "invoke d twoway", 1));
    writer.write(event(epoch_ms(), "iteration", "iteration", 3));  // held as well
    EXPECT_EQ(read_file(path).find("\"iteration\""), std::string::npos);
    writer.write(event(epoch_ms(), "transaction", "transaction t", 1));
    writer.flush();
    EXPECT_NE(read_file(path).find("transaction t"), std::string::npos);
}

}  // namespace
}  // namespace runner
