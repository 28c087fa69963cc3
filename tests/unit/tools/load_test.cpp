// GCC 12 warns of a member maybe used uninitialised inside its own regular
// expression headers in the sanitizer build; the warning is wrong there.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

// Load scripts: variables, data rows, transactions, pauses, the error
// policy and the event stream, run by orbelle-run.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/peer/peer.h"
#include "tests/support.h"
#include "tests/unit/tools/run_tool.h"
#include "tools/runner/run.h"
#include "tools/runner/script.h"

namespace {
using testsupport::expect_has;
using testsupport::expect_lacks;
using testsupport::runner_output;

// Lines of text, one per element.
std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// An event line with its time fields made fixed: "t" (13 digits) reads T
// and "ms" (3 decimals) reads MS.
std::string without_times(const std::string &line) {
    static const std::regex t("^\\{\"t\": \\d{13}, "), ms("\"ms\": \\d+\\.\\d{3}, ");
    return std::regex_replace(std::regex_replace(line, t, "{\"t\": T, "), ms, "\"ms\": MS, ",
                              std::regex_constants::format_first_only);
}

// Event lines of user vu in script, as without_times leaves them; tail
// follows "ok": .
auto event_lines(int vu, const std::string &script) {
    return [vu, script](const char *kind, const std::string &name, int line,
                        const std::string &tail = "true") {
        return "{\"t\": T, \"vu\": " + std::to_string(vu) + ", \"iter\": 1, \"kind\": \"" + kind +
               "\", \"name\": \"" + name + "\", \"script\": \"" + script +
               "\", \"line\": " + std::to_string(line) + ", \"ms\": MS, \"ok\": " + tail + "}";
    };
}

class LoadRun : public ::testing::Test {
protected:
    // Writes a script whose first lines bind obj to a closed port and make
    // an _is_a list current: its values can be set, saved and checked
    // without a server.
    void script(const std::string &name, const std::string &body) {
        dir_.write(name, "bind obj IDL:Thing:1.0 one IOR " + testsupport::closed_ior() +
                             "\nparams obj _is_a\n" + body);
    }
    testsupport::TempDir dir_;
};

TEST_F(LoadRun, VariablesDataRowsAndSavedValuesFlowIntoRequests) {
    dir_.write("data/people.csv", "name,city\r\n\"Bo, \"\"Jr\"\"\",Bern\r\nAnn,\"Two\nLines\"\r\n");
    script("data/s.orb",
           "data people.csv as p\nlet greeting \"hi ${p.name}\"\n"
           "set logical_type_id \"${greeting} from ${p.city}/${VU}/${ITERATION}\"\n"
           "save logical_type_id seen\nprint logical_type_id\ncheck logical_type_id ${seen}\n");
    expect_has(runner_output("--iterations 3 --vu 4 data/s.orb", 0),
               {"    logical_type_id = hi Bo, \"Jr\" from Bern/4/1\n",
                "check logical_type_id = 'hi Bo, \"Jr\" from Bern/4/1' ok\n",
                "    logical_type_id = hi Ann from Two\nLines/4/2\n",
                "    logical_type_id = hi Bo, \"Jr\" from Bern/4/3\n"});
}

// Mistakes in scripts and data files stop the run before the library is
// called (no trace shows); those found only when their line runs end it
// there.
TEST_F(LoadRun, MistakesInScriptsAndDataFilesStopTheRun) {
    script("u.orb", "data d.csv unique\n");
    script("noname.orb", "set nosuch 1\n");
    dir_.write("bad.orb", "bind obj IDL:Thing:1.0 one IOR\nparams obj op\nset\n");
    dir_.write("unknown.orb", "params x _is_a\nset nosuch 1\n");
    // s.orb below its bind and params lines and d.csv from each case on
    // (null: as they were), the arguments, and the whole output or, with
    // whole false, its start.
    const std::tuple<const char *, const char *, const char *, const char *, bool> cases[] = {
        // a name from a variable is known only when its line runs
        {"let n nosuch\nsave ${n} x\nprint\n", nullptr, "--quiet s.orb",
         "== s.orb\ns.orb:4: no parameter named 'nosuch' in the list of _is_a\n", true},
        {"save logical_type_id x\nprint\n", nullptr, "--quiet s.orb",
         "== s.orb\ns.orb:3: logical_type_id has no value to save in x\n", true},
        {"let gap soon\nthink ${gap}\nprint\n", nullptr, "--quiet s.orb",
         "== s.orb\ns.orb:4: 'soon' is not MILLISECONDS or MIN..MAX from 0 to 3600000\n", true},
        {"data d.csv\nset logical_type_id ${a}\n", "a,b\n1,2\n1,2,3\n", "--trace 8 s.orb",
         "d.csv:3: row has 3 fields, the header 2\n", true},
        {nullptr, nullptr, "s.orb s.orb none.orb", "orbelle-run: cannot read none.orb\n", true},
        {nullptr, "a\n1\n", "--vu 3 --users-total 2 u.orb",
         "u.orb:3:6: user 3 is not one of the 2 users that share the unique rows\n", true},
        {nullptr, nullptr, "--trace 5 bad.orb",
         "bad.orb:3:4: missing argument; usage: set NAME VALUE\n"
         "bad.orb:1:10: no description of IDL:Thing:1.0: cannot read ./idl/Thing.csv\n",
         true},
        {nullptr, nullptr, "unknown.orb",
         "unknown.orb:1:8: object 'x' is not bound here: bind it first\n", true},
        {nullptr, nullptr, "noname.orb",
         "noname.orb:3:5: no parameter named 'nosuch' in the list of _is_a", false},
        {nullptr, nullptr, "--iterations zero x.orb", "", false},
    };
    for (const auto &[orb, csv, args, printed, whole] : cases) {
        if (orb != nullptr) script("s.orb", orb);
        if (csv != nullptr) dir_.write("d.csv", csv);
        const std::string out = runner_output(args, 2);
        EXPECT_EQ(whole ? out : out.substr(0, std::string(printed).size()), printed) << args;
    }
}

TEST_F(LoadRun, UniqueRowsAreSplitBetweenUsersUntilUsedUp) {
    dir_.write("d.csv", "n\na\nb\nc\nd\ne\n");
    script("u.orb", "data d.csv unique\nset logical_type_id ${n}\nprint logical_type_id\n");
    std::string out = runner_output("--iterations 9 --vu 2 --users-total 2 u.orb", 0);
    expect_has(out,
               {"= b\n", "= d\n",
                "u.orb:3                  no row of d.csv is left for user 2: the user stops\n"});
    expect_lacks(out, {"-- iteration 4"});
    expect_has(runner_output("--iterations 9 u.orb 2>/dev/null", 0),
               {"= e\n-- iteration 6 of 9\n"});
    // The parent of a load run may pass the user's place in the environment.
    setenv("ORBELLE_VU", "3", 1);
    setenv("ORBELLE_USERS_TOTAL", "3", 1);
    out = runner_output("--iterations 9 u.orb", 0);
    unsetenv("ORBELLE_VU");
    unsetenv("ORBELLE_USERS_TOTAL");
    expect_has(out, {"= c\n-- iteration 2 of 9\n", "left for user 3: the user stops"});
}

TEST_F(LoadRun, AFailureEndsItsIterationOrWithStopOnErrorTheRun) {
    script("f.orb",
           "begin outer\nbegin a\nset logical_type_id x${ITERATION}\n"
           "check logical_type_id x${ITERATION}\nbegin b\nend a\n"  // lines 3 to 8
           "check logical_type_id x2\nprint logical_type_id\nend b\nend outer\n");
    const std::string events =
        runner_output("--quiet --iterations 3 --events - f.orb 2>/dev/null", 1);
    std::vector<std::string> lines = lines_of(events);
    for (std::string &line : lines) line = without_times(line);
    const auto f = event_lines(1, "f.orb");
    const std::string ended = "false, \"error\": \"the iteration ended at f.orb:9\"";
    const std::vector<std::string> first = {
        f("call", "bind obj", 1),
        f("call", "params _is_a", 2),
        f("check", "check logical_type_id", 6),
        f("transaction", "transaction a", 8),
        f("check", "check logical_type_id", 9,
          "false, \"error\": \"expected 'x2', got 'x1' (string)\""),
        // still open when the failure ended the iteration
        f("transaction", "transaction b", 0, ended),
        f("transaction", "transaction outer", 0, ended),
        f("iteration", "iteration", 0, "false, \"error\": \"ended at f.orb:9\""),
    };
    ASSERT_GE(lines.size(), first.size() + 10) << events;
    for (size_t i = 0; i < first.size(); ++i) EXPECT_EQ(lines[i], first[i]) << i;
    // Iteration 2 passes every check and ends each transaction itself.
    std::string second;
    for (const std::string &line : lines)
        if (line.find("\"iter\": 2,") != std::string::npos) second += line + "\n";
    expect_lacks(second, {"\"ok\": false"});
    expect_has(second, {"\"name\": \"transaction outer\", \"script\": \"f.orb\", \"line\": 12"});
    expect_has(events, {"\"iter\": 3, \"kind\": \"iteration\""});

    const std::string out = runner_output("--quiet --iterations 3 --stop-on-error f.orb", 1);
    expect_lacks(out, {"iteration 2"});
    expect_has(out, {"transaction outer                        1        1",
                     "check logical_type_id                    2        1\n"});
}

TEST_F(LoadRun, PaceSpacesIterationsAndNoThinkSkipsThinking) {
    // Think time of a minute would outlast the test's time-out.
    script("p.orb", "pace 150\nbegin t\nthink 60000..60000\nend t\n");
    const std::string events =
        runner_output("--no-think --iterations 3 --events - p.orb 2>/dev/null", 0);
    std::vector<long long> starts;  // when each iteration's transaction ended
    for (const std::string &line : lines_of(events)) {
        if (line.find("\"kind\": \"transaction\"") == std::string::npos) continue;
        starts.push_back(std::stoll(line.substr(6, 13)));
        EXPECT_LT(std::stod(line.substr(line.find("\"ms\": ") + 6)), 30000.0) << line;
    }
    ASSERT_EQ(starts.size(), 3u) << events;
    // Each start is at least the pace after the one before; a transaction takes
    // far less than the 50 ms of slack.
    EXPECT_GE(starts[1] - starts[0], 100) << events;
    EXPECT_GE(starts[2] - starts[1], 100) << events;
}

// Replies to _non_existent with false, then to the same call with TRANSIENT.
TEST(LoadEvents, CallsAreReportedFieldByFieldOnEveryKindOfStream) {
    testsupport::TempDir dir;
    // The arguments and where the events go; null: standard output.
    const std::pair<const char *, const char *> streams[] = {
        {"--vu 5 --events ev.jsonl e.orb", "ev.jsonl"},
#ifndef _WIN32  // Windows' shell has no descriptor redirections beyond 2.
        // text goes to standard error, which is dropped here
        {"--vu 5 --trace 5 --events - e.orb 2>/dev/null", nullptr},
        {"--vu 5 --events fd:3 e.orb 3>ev.fd >/dev/null 2>&1", "ev.fd"},
#endif
    };
    for (const auto &[args, file] : streams) {
        peer::ScriptedPeer server;
        server.accept()
            .read_message()
            .send_for(peer::answer([](peer::Writer &w) { w.octet(0); }))
            .read_message()
            .send_for([](const peer::Request &r) {
                return peer::system_exception_reply(r.request_id, "IDL:omg.org/CORBA/TRANSIENT:1.0",
                                                    1, 1);
            })
            .read_to_eof();
        server.start();
        std::string ior =
            peer::ior_text(peer::ior_bytes("IDL:Thing:1.0", "127.0.0.1", server.port(), "key"));
        dir.write("e.orb", "bind obj IDL:Thing:1.0 one IOR " + ior +
                               "\nbegin t\nparams obj _non_existent\ninvoke timeout=3000\n"
                               "check ^non_existent 0\nend t\ninvoke timeout=3000\n");
        const long long before = runner::epoch_ms();
        const std::string out = runner_output(args, 1);
        const std::string events = file ? testsupport::read_file(file) : out;
        const long long after = runner::epoch_ms();
        ASSERT_TRUE(server.wait(5000)) << server.failure();
        std::vector<std::string> lines = lines_of(events);
        const auto e = event_lines(5, "e.orb");
        const std::vector<std::string> expected = {
            e("call", "bind obj", 1),
            e("call", "params _non_existent", 3),
            e("call", "invoke _non_existent twoway", 4),
            e("check", "check ^non_existent", 5),
            e("transaction", "transaction t", 6),
            e("call", "invoke _non_existent twoway", 7,
              "false, \"status\": 1, \"index\": 17, \"error\": "
              "\"IDL:omg.org/CORBA/TRANSIENT:1.0\""),
            e("iteration", "iteration", 0, "false, \"error\": \"ended at e.orb:7\""),
        };
        ASSERT_EQ(lines.size(), expected.size()) << args << "\n" << events;
        for (size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(without_times(lines[i]), expected[i]) << args << " " << i;
            long long t = std::stoll(lines[i].substr(6, 13));
            EXPECT_TRUE(t >= before && t <= after) << lines[i];
        }
    }
}

}  // namespace
