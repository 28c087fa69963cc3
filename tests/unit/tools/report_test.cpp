// The HTML report of a load run: escaping, the figures it shows, runs with
// no data, a failed write, and (where chromium is installed) the page in a
// real browser, with the browser check's own failures.
#include "tools/runner/report.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support.h"
#include "tests/unit/tools/run_tool.h"
#include "tests/unit/tools/stats_row.h"

using testsupport::expect_has;

namespace {
using runner::kAllCalls;
using runner::RunReport;
using testsupport::stats_row;
using testsupport::TempDir;

// A run of 8 users over the given seconds, with calls, a transaction, a
// check, two kinds of failure and a row per second for an operation and
// for all calls.
RunReport sample_run(int seconds) {
    RunReport run;
    run.title = "orbelle-run: scripts/06-load.orb";
    run.settings = {{"users", "8"}, {"ramp-up", "2 s"}, {"duration", "30 s"}};
    run.started_ms = 1795856765000;
    run.duration_s = seconds;
    run.rows = {
        stats_row("Bank.open_account", "call", 1200, 3, 40, {0.21, 0.9, 1.8, 2.4, 5.1, 12.3}),
        stats_row("transaction open", "transaction", 1200, 3, 40, {1.1, 2.9, 4.8, 6.4, 11, 42}),
        stats_row("check balance", "check", 1200, 1, 40),
        stats_row(kAllCalls, "all", 3600, 3, 120, {0.11, 0.7, 1.5, 2.0, 4.2, 12.3})};
    // Spectra as a run makes them: percentiles halving the distance to 100.
    for (runner::StatsRow &row : run.rows) {
        if (!row.timed) continue;
        for (int k = 0; k <= 20; ++k) {
            double p = 100 * (1 - std::pow(0.5, k / 2.0));
            row.spectrum.emplace_back(p, row.p50_ms * (1 + k * 0.3));
            row.r_spectrum.emplace_back(p, row.p50_ms * (1.5 + k * 0.4));
        }
        row.spectrum.emplace_back(100, row.max_ms);
        row.has_response = row.kind == "transaction";
        if (!row.has_response) row.r_spectrum.clear();
    }
    run.open_model = true;
    run.dropped = 17;
    run.failures = {{"IDL:omg.org/CORBA/TRANSIENT:1.0", 3, "TRANSIENT: connection refused"},
                    {"check", 1, "check ^balance: expected 100, got 90"}};
    for (int s = 0; s < seconds; ++s) {
        const uint64_t count = 100 + static_cast<uint64_t>(20 * (1 + std::sin(s / 3.0)));
        const int users = s < 2 ? 4 * (s + 1) : 8;
        const double p50 = 0.7 + 0.1 * std::sin(s), p95 = 2 + 0.5 * std::cos(s / 2.0);
        runner::SecondRow row{s,   "Bank.open_account",   count, s % 7 == 3, p50,
                              p95, 4 + std::sin(s / 4.0), users};
        run.history.push_back(row);
        row.name = kAllCalls;
        std::tie(row.iterations, row.target, row.dropped) =
            std::make_tuple(count / 3, 40.0, s % 5 == 2 ? 3u : 0u);
        run.history.push_back(row);
    }
    return run;
}

std::string write_page(const RunReport &run, const std::string &path = "report.html") {
    std::string error;
    EXPECT_TRUE(runner::write_html_report(run, path, error)) << error;
    return testsupport::read_file(path);
}

class ReportHtml : public ::testing::Test {
    TempDir dir_;  // where the pages are written
};

// The JSON element the charts are drawn from.
std::string chart_data(const std::string &page) {
    const std::string open = "id=\"run-data\">";
    size_t begin = page.find(open);
    if (begin == std::string::npos) return "";
    begin += open.size();
    return page.substr(begin, page.find("</script>", begin) - begin);
}

TEST_F(ReportHtml, EveryTextFromTheModelIsEscaped) {
    const std::string hostile[] = {"</script><script>alert(1)</script>",
                                   "<img src=x onerror=alert(2)>", "</style><!--", "\"q\" & 'a'"};
    RunReport run = sample_run(3);
    run.title = hostile[0];
    run.settings = {{hostile[1], hostile[2]}, {"scripts", hostile[3]}};
    run.rows[0].name = hostile[0];
    run.rows[0].kind = hostile[1];
    run.failures[0].id = hostile[2];
    run.failures[0].example = hostile[3] + hostile[0];
    run.history[0].name = hostile[1];
    const std::string page = write_page(run);

    for (const std::string &text : hostile) EXPECT_EQ(page.find(text), std::string::npos) << text;
    expect_has(page, {"<h1>&lt;/script&gt;&lt;script&gt;alert(1)&lt;/script&gt;</h1>",
                      "&lt;img src=x onerror=alert(2)&gt;", "&quot;q&quot; &amp; &#39;a&#39;"});
    // Only the page's own elements: the chart data, uPlot and the charts' script.
    std::vector<size_t> counts;
    for (const char *tag : {"<script", "</script", "<style", "</style", "<!--", "<img"})
        counts.push_back(testsupport::count_of(page, tag));
    EXPECT_EQ(counts, (std::vector<size_t>{3, 3, 2, 2, 0, 0}));
}

TEST_F(ReportHtml, TablesShowTheRunsFigures) {
    RunReport run = sample_run(0);
    run.rows[0].per_second = std::nan("");
    run.rows[0].p99_ms = 1234.4;
    run.failures[1].example = "xxxxx";
    for (int i = 0; i < 1500; ++i) run.failures[1].example += "\xC3\xA9";  // é
    run.verdicts = {{"all requests: p95<5ms", true, "p95 2.000 ms"},
                    {"transaction open: p99<1ms & <b>", false, "p99 11.000 ms"}};
    run.rows[1].r_p50_ms = 7.5;
    run.baseline = "base_stats.csv";
    run.deltas = {{"Bank.open_account", 12.34, -5, 0, std::nan("")}};
    const std::string page = write_page(run);

    // The verdicts come first, escaped; then the response times, the drops
    // and the changes against the baseline.
    EXPECT_LT(page.find("<h2>Thresholds</h2>"), page.find("<h2>Settings</h2>"));
    expect_has(page, {"<td class=\"good\">passed</td><td class=\"text\">all requests: "
                      "p95&lt;5ms</td><td class=\"text\">p95 2.000 ms</td>",
                      "<td class=\"bad\">BREACHED</td><td class=\"text\">transaction open: "
                      "p99&lt;1ms &amp; &lt;b&gt;</td>",
                      "<tr><td>transaction open</td><td>2.90</td><td>7.50</td>",
                      "Dropped iterations (due while every user was busy): 17.",
                      "<tr><td>Bank.open_account</td><td>+12.3%</td><td>-5.0%</td><td>+0.0%"
                      "</td><td>new</td></tr>",
                      // Milliseconds with enough digits, a figure that is not a number a dash.
                      "<td>1200</td><td class=\"bad\">3</td><td>\u2013</td><td>0.210</td>"
                      "<td>0.900</td><td>1.80</td><td>2.40</td><td>1234</td><td>12.3</td>",
                      // A check has a count and failures but no latency.
                      "check balance</td><td class=\"kind\">check</td><td>1200</td>"
                      "<td class=\"bad\">1</td><td>40.0</td><td></td><td></td><td></td>"
                      "<td></td><td></td><td></td></tr>",
                      std::string("<tr class=\"all\"><td>") + kAllCalls + "</td>",
                      "<b>3 (0.08%)</b><span>failed</span>",
                      // A long example is cut, between two characters, and marked.
                      "\xC3\xA9\xE2\x80\xA6</pre>"});
    EXPECT_LT(page.find("\xE2\x80\xA6</pre>") - page.find("xxxxx"), 2100u);
}

TEST_F(ReportHtml, StartTimeIsAUtcDate) {
    const std::pair<int64_t, const char *> cases[] = {
        {951782400000, "Started 2000-02-29 00:00:00 UTC, ran 30.0 s."},
        {1709211599999, "Started 2024-02-29 12:59:59 UTC"},
        {4102444799000, "Started 2099-12-31 23:59:59 UTC"},
        {1, "Started 1970-01-01 00:00:00 UTC"},
        {0, "<p class=\"when\">Ran 30.0 s.</p>"}};
    for (const auto &[ms, shown] : cases) {
        RunReport run = sample_run(0);
        run.duration_s = 30;
        run.started_ms = ms;
        EXPECT_NE(write_page(run).find(shown), std::string::npos) << shown;
    }
}

TEST_F(ReportHtml, ChartsGetOneEntryPerSecondOfAllCalls) {
    RunReport run;
    auto second = [](int64_t s, const char *name, uint64_t count, int users) {
        const bool any = count > 0;
        return runner::SecondRow{
            s,     name,      count, count / 10, any ? 1.5 : 0, any ? 2.25 : 0, any ? 1e6 : 0,
            users, count / 2, 12.5,  count / 10};
    };
    // Under a rate: the target and drops are charted; each timed name's
    // seconds and spectrum (its maximum left out) go by number.
    run.open_model = true;
    runner::StatsRow open = stats_row("Bank.open", "call", 12, 0, 4, {1, 1.5, 2, 2, 3, 3});
    open.spectrum = {{0, 1}, {50, 2}, {100, 3}};
    open.r_spectrum = {{0, 4}, {50, 5}, {100, 6}};
    run.rows = {open, stats_row("check x", "check", 3, 0, 1)};
    // Out of order, a second twice, another name between, a second without calls.
    run.history = {second(1, kAllCalls, 0, 4),  second(0, "Bank.open", 7, 2),
                   second(0, kAllCalls, 20, 2), second(2, kAllCalls, 35, 8),
                   second(1, kAllCalls, 99, 9), second(2, "Bank.open", 5, 8)};
    EXPECT_EQ(chart_data(write_page(run)),
              "{\"seconds\":[0,1,2],\"calls\":[20,0,35],\"failures\":[2,0,3],"
              "\"p50\":[1.5,null,1.5],\"p95\":[2.25,null,2.25],\"p99\":[1e+06,null,1e+06],"
              "\"users\":[2,4,8],\"iterations\":[10,0,17],\"target\":[12.5,12.5,12.5],"
              "\"dropped\":[2,0,3],\"names\":[{\"p50\":[1.5,null,1.5],\"p95\":[2.25,null,2.25],"
              "\"p99\":[1e+06,null,1e+06],\"x\":[1,2],\"service\":[1,2],\"response\":[4,5]}]}");
}

TEST_F(ReportHtml, AnEmptyRunStillMakesAPageAndAFailedWriteSaysWhy) {
    const std::string page = write_page(RunReport{});
    expect_has(page, {"<title>Load run</title>", "Nothing was counted.", "No failures.",
                      "data-seconds=\"0\""});
    EXPECT_EQ(chart_data(page),
              "{\"seconds\":[],\"calls\":[],\"failures\":[],\"p50\":[],\"p95\":[],\"p99\":[],"
              "\"users\":[],\"iterations\":[],\"target\":[],\"dropped\":[],\"names\":[]}");
    EXPECT_NE(page.rfind("</html>\n"), std::string::npos);
    // A failed write says where and why.
    std::string error;
    EXPECT_FALSE(runner::write_html_report(sample_run(2), "missing/report.html", error));
    expect_has(error, {"missing/report.html", ": "});
}

#ifndef _WIN32
constexpr int kSkipped = 77;  // the browser check's status when chromium is absent

TEST(ReportBrowser, ChartsAreDrawnForLongShortAndEmptyRuns) {
    TempDir dir;
    const std::string check = "bash " + testsupport::data_path("../browser/check_report.sh") + " ";
    const std::pair<int, const char *> cases[] = {{30, "chart pixels: throughput="},
                                                  {1, "chart pixels: throughput="},
                                                  {0, "no whole second to chart"}};
    for (const auto &[seconds, says] : cases) {
        RunReport run = sample_run(seconds);
        // Hostile texts must neither break the page nor run.
        run.rows[1].name = "</script><script>console.error('injected')</script>";
        run.failures[0].example = "<img src=x onerror=\"console.error('injected')\">";
        const std::string path = "run" + std::to_string(seconds) + ".html";
        write_page(run, path);
        std::string output;
        const int status = testsupport::run_command(check + path, output);
        if (status == kSkipped) GTEST_SKIP() << output;
        EXPECT_EQ(status, 0) << seconds << " seconds: " << output;
        expect_has(output, {says});
    }
}

#else
TEST(ReportBrowser, ChartsAreDrawnForLongShortAndEmptyRuns) {
    GTEST_SKIP() << "the browser check runs on Linux, with Debian's chromium";
}
#endif

}  // namespace
