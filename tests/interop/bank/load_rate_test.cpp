// orbelle-run's open model and verdicts against the demo bank: a server
// that takes 20 ms a call on purpose (Diagnostics.delay), driven at a rate
// above what two users can serve, drops iterations and shows a response
// time above the service time, while the closed model's rate falls
// instead; thresholds that pass, are breached or are relative to a
// baseline decide the exit status. Runs are a few seconds, on loopback.
#include <map>
#include <sstream>

#include "tests/interop/bank/bank_fixture.h"

using testsupport::expect_has;
using testsupport::expect_lacks;

namespace bank {
namespace {
using testsupport::read_file;

// The cells of each line of a CSV file whose cells hold no comma.
std::vector<std::vector<std::string>> cells_of(const std::string &csv) {
    std::vector<std::vector<std::string>> lines;
    std::istringstream in(csv);
    for (std::string line; std::getline(in, line);) {
        std::istringstream s(line);
        lines.emplace_back();
        for (std::string cell; std::getline(s, cell, ',');) lines.back().push_back(cell);
        if (!line.empty() && line.back() == ',') lines.back().emplace_back();
    }
    return lines;
}

double number(const std::map<std::string, std::string> &row, const std::string &column) {
    auto found = row.find(column);
    return found == row.end() || found->second.empty() ? -1 : std::stod(found->second);
}

class LoadRate : public RunnerTest {
protected:
    void SetUp() override {
        RunnerTest::SetUp();
        script("slow.orb",
               kBindDiag + "begin wait\nparams diag delay\nset ms 20\ninvoke\nend wait\n");
    }

    // The cells of the row name of the run's stats file by column name.
    std::map<std::string, std::string> stats_row(const std::string &prefix,
                                                 const std::string &name) {
        auto lines = cells_of(read_file(dir_.path() + "/" + prefix + "_stats.csv"));
        std::map<std::string, std::string> row;
        for (const auto &cells : lines)
            for (size_t i = 0; i < cells.size() && i < lines[0].size() && cells[0] == name; ++i)
                row[lines[0][i]] = cells[i];
        return row;
    }
};

TEST_F(LoadRate, ASlowServerDropsIterationsUnderARateAndSlowsTheClosedModel) {
    // Two users of a 20 ms call serve about 95 iterations a second; the
    // rate asks for 150.
    std::string out;
    EXPECT_EQ(run("--users 2 --rate 150 --duration 3 --csv open slow.orb", out), 0) << out;
    auto it = stats_row("open", "iterations");
    auto wait = stats_row("open", "transaction wait");
    double achieved = number(it, "calls_per_s"), dropped = number(it, "dropped");
    std::printf(
        "open: %.1f iterations/s of 150, %.0f dropped, transaction p50 service %.3f ms, "
        "response %.3f ms\n",
        achieved, dropped, number(wait, "p50_ms"), number(wait, "response_p50_ms"));
    EXPECT_GT(dropped, 60) << out;  // some 55 a second
    EXPECT_LT(achieved, 115) << out;
    // Those that ran waited, at most two at a time, for a free user: the
    // response time lies above the service time by about that wait.
    EXPECT_GT(number(wait, "response_p50_ms"), number(wait, "p50_ms") + 5) << out;
    EXPECT_GT(number(it, "response_p99_ms"), number(it, "p99_ms")) << out;
    expect_has(out, {"iterations/s ", " of 150.0  dropped ", "\ndropped iterations ",
                     "\nresponse time, from when each iteration was due"});

    // The closed model has no schedule to fall behind: its rate falls to
    // what the server allows, and nothing is dropped.
    std::string closed;
    EXPECT_EQ(run("--users 2 --duration 3 --csv closed slow.orb", closed), 0) << closed;
    auto cit = stats_row("closed", "iterations");
    std::printf("closed: %.1f iterations/s, transaction p50 %.3f ms\n", number(cit, "calls_per_s"),
                number(stats_row("closed", "transaction wait"), "p50_ms"));
    EXPECT_GT(number(cit, "calls_per_s"), 50) << closed;
    EXPECT_LT(number(cit, "calls_per_s"), 105) << closed;
    EXPECT_EQ(number(cit, "response_p50_ms"), -1) << closed;
    expect_lacks(closed, {"dropped"});

    // A rate the users keep up with drops nothing and holds its target.
    std::string kept;
    EXPECT_EQ(run("--users 4 --rate 40 --arrivals poisson --queue 100 --duration 3 --csv kept "
                  "slow.orb",
                  kept),
              0)
        << kept;
    auto kit = stats_row("kept", "iterations");
    EXPECT_EQ(number(kit, "dropped"), 0) << kept;
    EXPECT_NEAR(number(kit, "calls_per_s"), 40, 15) << kept;  // 4 sd of a Poisson count
}

// The history's rows of every request together: (users, target) by second.
std::vector<std::pair<int, double>> users_and_targets(const std::string &csv) {
    std::vector<std::pair<int, double>> out;
    for (const auto &cells : cells_of(csv))
        if (cells.size() >= 10 && cells[1] == "all requests")
            out.emplace_back(std::stoi(cells[7]), cells[9].empty() ? -1 : std::stod(cells[9]));
    return out;
}

TEST_F(LoadRate, StagesRampTheUsersOrTheRate) {
    // Closed: up to 3 users in a second, 3 for a second, down to none in 2 s.
    std::string out;
    EXPECT_EQ(run("--stages 1s:3,1s:3,2s:0 --csv closed slow.orb", out), 0) << out;
    auto closed = users_and_targets(read_file(dir_.path() + "/closed_history.csv"));
    ASSERT_GE(closed.size(), 3u) << out;
    EXPECT_EQ(closed[1].first, 3) << out;        // all three during the hold
    EXPECT_LT(closed.back().first, 3) << out;    // and going in the last stage
    EXPECT_EQ(closed.back().second, -1) << out;  // a closed run has no target rate

    // Open: the rate from 10 up to 50 a second over 2 s, then held for 1 s.
    std::string open;
    EXPECT_EQ(run("--users 4 --rate 10 --stages 2s:50,1s:50 --csv open slow.orb", open), 0) << open;
    auto targets = users_and_targets(read_file(dir_.path() + "/open_history.csv"));
    ASSERT_GE(targets.size(), 3u) << open;
    EXPECT_NEAR(targets[0].second, 30, 1) << open;  // at the end of the first second
    EXPECT_NEAR(targets[2].second, 50, 1) << open;
    // 10 -> 50 over 2 s is 60 iterations, 50 more in the hold.
    double ran = number(stats_row("open", "iterations"), "count");
    EXPECT_NEAR(ran, 110, 12) << open;
}

TEST_F(LoadRate, ThresholdsDecideTheExitStatus) {
    // A queue with room for the whole run: nothing is dropped, not even
    // while the users start (slowly under a sanitizer).
    const std::string run_args = "--users 2 --rate 30 --queue 100 --duration 2 slow.orb";
    const std::string relative =
        run_args + " --baseline base_stats.csv --threshold 'invoke delay twoway: p50<";
    struct Case {
        std::string args;
        int status;
        std::vector<std::string> seen;
    } cases[] = {
        // Passing: exit 0, the verdicts before the table.
        {"--csv base " + run_args + " --threshold 'transaction wait: p95<500ms and failures<1%'" +
             " --threshold 'all requests: rate>10/s and max<2s'",
         0,
         {"thresholds\n  passed transaction wait: p95<500ms and failures<1%  (p95 "}},
        // Breached: exit 3, and the breach named.
        {run_args + " --threshold 'invoke delay twoway: p50<1ms'" +
             " --threshold 'iterations: dropped=0'",
         3,
         {"  BREACHED invoke delay twoway: p50<1ms  (p50 2",
          "  passed iterations: dropped=0  (dropped 0)", "FAILED (thresholds): "}},
        // Relative to the first run: the same server passes 1.5 times its
        // p50 and breaches half of it; the table shows the change per name.
        {relative + "1.5*baseline'",
         0,
         {"\nagainst the baseline base_stats.csv\n",
          "  passed invoke delay twoway: p50<1.5*baseline  (p50 "}},
        {relative + "0.5*baseline'", 3, {}},
        // Stopped at the first breach once the grace is over.
        {"--users 2 --rate 30 --duration 30 slow.orb --threshold 'all requests: p50<1ms'"
         " --abort-on-threshold --threshold-grace 1",
         3,
         {"threshold breached, stopping: all requests: p50<1ms"}},
    };
    for (const Case &c : cases) {
        std::string out;
        EXPECT_EQ(run(c.args, out), c.status) << c.args << "\n" << out;
        expect_has(out, c.seen);
        if (&c == &cases[0]) {  // the verdicts come before the table
            EXPECT_LT(out.find("thresholds\n"), out.find("\nname "));
        }
    }
}

}  // namespace
}  // namespace bank
