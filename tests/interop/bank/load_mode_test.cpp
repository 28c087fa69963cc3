// orbelle-run --users against the demo bank: counts that match the server's
// own count of requests it served, CSV files that match the summary, and
// users that stop on Ctrl-C and die with their parent. Every run is bounded
// in users, iterations and time, and talks to loopback only.
#include <dirent.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <functional>
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

}  // namespace
}  // namespace bank
