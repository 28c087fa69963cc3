// orbelle-run --users against the demo bank: counts that match the server's
// own count of requests it served, CSV files that match the summary, users
// that stop on Ctrl-C and die with their parent, the open model and
// thresholds. Every run is bounded in users, iterations and time, and talks
// to loopback only.
#include <dirent.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <map>
#include <sstream>
#include <thread>

#include "tests/interop/bank/bank_fixture.h"

using testsupport::expect_has;
using testsupport::expect_lacks;

namespace bank {
namespace {
using testsupport::read_file;

using Clock = std::chrono::steady_clock;

// Runner processes whose command line holds text (the users of a run are
// forks of the runner, with its command line).
int processes_with(const std::string &text) {
    int found = 0;
    DIR *proc = opendir("/proc");
    if (proc == nullptr) return -1;
    while (dirent *entry = readdir(proc)) {
        std::string pid = entry->d_name;
        if (pid.find_first_not_of("0123456789") != std::string::npos) continue;
        std::string cmdline = read_file("/proc/" + pid + "/cmdline");
        std::string state = read_file("/proc/" + pid + "/stat");
        size_t paren = state.rfind(')');
        bool zombie =
            paren != std::string::npos && state.size() > paren + 2 && state[paren + 2] == 'Z';
        if (!zombie && cmdline.find(text) != std::string::npos &&
            cmdline.find(ORBELLE_RUNNER_PATH) != std::string::npos)
            ++found;
    }
    closedir(proc);
    return found;
}

// Waits up to ms for done to hold; whether it does.
bool wait_until(const std::function<bool()> &done, int ms) {
    auto deadline = Clock::now() + std::chrono::milliseconds(ms);
    while (!done() && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return done();
}

class LoadMode : public RunnerTest {
protected:
    // Starts orbelle-run with args in the background, its output in out.txt.
    pid_t start(const std::string &args) {
        return interop::spawn({"sh", "-c",
                               "exec " ORBELLE_RUNNER_PATH " -C " + dir_.path() + " " + args +
                                   " >" + dir_.path() + "/out.txt 2>&1"},
                              -1);
    }
};

// Each iteration: three echoes and a call that fails with TRANSIENT, which
// ends the iteration.
const std::string counted = kBindDiag +
                            "params diag echo_long\nset a ${ITERATION}\nset c ${VU}\ninvoke\n"
                            "check ^echo_long ${ITERATION}\n"
                            "begin twice\n"
                            "params diag echo_short\nset a 1\nset c 2\ninvoke\n"
                            "params diag echo_short\nset a 3\nset c 4\ninvoke\n"
                            "end twice\n"
                            "params diag fail\nset which 7\ninvoke\n";

TEST_F(LoadMode, CountsMatchTheServersCountAndTheCsv) {
    long before = requests_served();
    ASSERT_GT(before, 0);
    std::string out;
    int status = run(
        "--users 4 --iterations 5 --csv run --report report.html " + script("counted.orb", counted),
        out);
    long after = requests_served();
    EXPECT_EQ(status, 1) << out;  // the failing call is a failure
    // 4 users x 5 iterations x 4 requests, every one served and counted once.
    EXPECT_EQ(after - before - 1, 80) << out;
    expect_has(out, {"all requests                             80      20",
                     "invoke echo_short twoway                 40       0",
                     "transaction twice                        20       0",
                     "      20  IDL:omg.org/CORBA/TRANSIENT:1.0", "FAILED: 80 requests in",
                     ", 20 failures, 20 iterations"});

    // The CSV holds the summary's rows, and the history adds up to them.
    std::string stats = read_file(dir_.path() + "/run_stats.csv");
    expect_has(stats, {"\nall requests,all,80,20,", "\ninvoke echo_long twoway,call,20,0,",
                       "\ncheck ^echo_long,check,20,0,"});
    std::istringstream history(read_file(dir_.path() + "/run_history.csv"));
    std::string line;
    long total = 0;
    std::getline(history, line);
    EXPECT_EQ(line,
              "second,name,count,failures,p50_ms,p95_ms,p99_ms,users,iterations,target,dropped");
    while (std::getline(history, line))
        if (line.find(",all requests,") != std::string::npos)
            total += std::stol(line.substr(line.find(",all requests,") + 14));
    EXPECT_EQ(total, 80);

    // The report of the run opens in a real browser with its charts drawn
    // (skipped where chromium is not installed).
    std::string check;
    int checked = testsupport::run_command(
        "bash " ORBELLE_SOURCE_DIR "/tests/browser/check_report.sh " + dir_.path() + "/report.html",
        check);
    if (checked == 77) GTEST_SKIP() << check;
    EXPECT_EQ(checked, 0) << check;
}

TEST_F(LoadMode, CtrlCStopsEveryUserAndStillReports) {
    // Users that mostly think: a stop must reach them inside a pause.
    std::string name =
        script("thinking.orb",
               kBindDiag + "params diag echo_long\nset a 1\nset c 1\ninvoke\nthink 3000\n");
    pid_t pid = start("--users 5 --duration 60 --csv run " + name);
    ASSERT_GT(pid, 0);
    // All five started once the progress shows them.
    wait_until(
        [&] { return read_file(dir_.path() + "/out.txt").find("users 5/5") != std::string::npos; },
        10000);
    EXPECT_EQ(processes_with(dir_.path()), 6);
    auto stop = Clock::now();
    kill(pid, SIGINT);
    int status = 0;
    waitpid(pid, &status, 0);
    double seconds = std::chrono::duration<double>(Clock::now() - stop).count();
    std::string out = read_file(dir_.path() + "/out.txt");
    EXPECT_LT(seconds, 3.0) << out;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << out;
    expect_has(out, {"stopping every user", "OK: 5 requests"});
    expect_has(read_file(dir_.path() + "/run_stats.csv"), {"all requests,all,5,0"});
    EXPECT_EQ(processes_with(dir_.path()), 0);
}

TEST_F(LoadMode, UsersDieWithTheirParent) {
    pid_t pid = start("--users 3 --duration 60 " +
                      script("busy.orb", kBindDiag + "params diag delay\nset ms 50\ninvoke\n"));
    ASSERT_GT(pid, 0);
    wait_until([&] { return processes_with(dir_.path()) >= 4; }, 10000);
    ASSERT_EQ(processes_with(dir_.path()), 4);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    EXPECT_TRUE(wait_until([&] { return processes_with(dir_.path()) == 0; }, 2000));
}

TEST_F(LoadMode, RefusesWhatItCannotRun) {
    struct Case {
        const char *args, *message;
    } cases[] = {
        {"--users 2 x.orb", "--users needs --duration or --iterations"},
        {"--users 2 --duration 1 --iterations 2 x.orb", "not both"},
        {"--duration 5 x.orb", "--duration needs --users"},
        {"--users 0 --duration 1 x.orb", "--users takes a count from 1 to 20000"},
        {"--users 2 --duration -1 x.orb", "--duration takes seconds"},
        {"--users 2 --duration 1 --trace 4 x.orb", "--trace is for one user"},
        {"--users 2 --duration 1 --events - x.orb", "--events takes a file"},
        {"--users 2 --duration 1 missing.orb", "cannot read missing.orb"},
        {"--rate 10 --duration 1 x.orb", "--rate needs --users"},
        {"--users 2 --rate 10 --iterations 3 x.orb", "--rate runs for --duration or --stages"},
        {"--users 2 --duration 1 --threshold 'all: p99<' x.orb", "'p99<': the value is not a time"},
        {"--users 2 --duration 1 --baseline missing.csv x.orb",
         "cannot read the baseline missing.csv"},
        {"--serve x.orb", "--serve needs --events"},
        {"--serve --users 2 --events e x.orb", "--serve runs one user"},
        {"--serve --iterations 2 --events e x.orb", "--serve runs an iteration for each run line"},
    };
    script("x.orb", kBindDiag);
    for (const Case &c : cases) {
        std::string out;
        EXPECT_EQ(run(c.args, out), 2) << c.args;
        expect_has(out, {c.message});
    }
    // A script error stops the users and the run says so (a name from a
    // variable is known only when its line runs).
    std::string out;
    script("bad.orb",
           kBindDiag + "params diag echo_long\nlet name no_such\nset ${name} 1\ninvoke\n");
    EXPECT_EQ(run("--users 2 --iterations 3 bad.orb", out), 2) << out;
    expect_has(out, {"user 1 stopped: bad.orb:4:"});
}

TEST_F(LoadMode, ServeRunsOneIterationPerRunLine) {
    // A failed call ends its iteration, not the user; the next run line
    // runs the next iteration.
    script("rows.csv", "n\n1\n");
    std::string name =
        script("served.orb", "data rows.csv unique\n" + kBindDiag +
                                 "params diag fail\nset which ${ITERATION}\ninvoke\n");
    script("requests.txt", "run\nbogus\nrun\nrun\n");
    std::string out;
    EXPECT_EQ(run("--serve --vu 1 --users-total 1 --events events.jsonl " + name + " <" +
                      dir_.path() + "/requests.txt",
                  out),
              0)
        << out;
    expect_has(out, {"'bogus' is not a request"});
    std::string events = read_file(dir_.path() + "/events.jsonl");
    // Iteration 1: fail(1) raises a user exception; iteration 2 finds no
    // row left, says so and ends the user before the third run line.
    expect_has(events, {"\"iter\": 1, \"kind\": \"call\", \"name\": \"invoke fail twoway\"",
                        "\"iter\": 1, \"kind\": \"iteration\"",
                        "\"iter\": 2, \"kind\": \"iteration\", \"name\": \"iteration\", "
                        "\"script\": \"\", \"line\": 0, \"ms\": 0.000, \"ok\": false, "
                        "\"error\": \"no data row is left for this user\"}"});
    expect_lacks(events, {"\"iter\": 3"});
}

// orbelle-run's open model and verdicts against the demo bank: a server
// that takes 20 ms a call on purpose (Diagnostics.delay), driven at a rate
// above what two users can serve, drops iterations and shows a response
// time above the service time, while the closed model's rate falls
// instead; thresholds that pass, are breached or are relative to a
// baseline decide the exit status. Runs are a few seconds, on loopback.
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
