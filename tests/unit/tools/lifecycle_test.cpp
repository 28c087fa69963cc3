// Set-up and tear-down: their sections as the script is read, and their
// runs around the iterations against the scripted peer.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/peer/peer.h"
#include "tests/support.h"
#include "tests/unit/tools/run_tool.h"
#include "tools/runner/script.h"

namespace {
using testsupport::runner_output;

// A peer that answers n calls of _is_a with true on one connection.
void answer(peer::ScriptedPeer &p, int n) {
    p.accept();
    for (int i = 0; i < n; ++i)
        p.read_message().send_for(peer::answer([](peer::Writer &w) { w.octet(1); }));
    p.read_to_eof();
    p.start();
}

// Text with each run of blanks made one blank.
std::string squashed(const std::string &text) {
    std::string out;
    for (char c : text)
        if (c != ' ' || out.empty() || out.back() != ' ') out += c;
    return out;
}

TEST(Lifecycle, SectionsAreCheckedAsTheScriptIsRead) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"let a 1\nsetup\n", "s.orb:2:1: 'setup' comes first, before every other line"},
        {"setup\nlet a 1\n",
         "s.orb:1:1: a script with 'setup' needs an 'iteration' line: the lines after it repeat"},
        {"let a 1\niteration\n",
         "s.orb:2:1: the lines above 'iteration' would run once: put 'setup' before them"},
        {"teardown\niteration\n", "s.orb:2:1: 'iteration' comes before 'teardown'"},
        {"iteration\niteration\n", "s.orb:2:1: a second 'iteration': each section comes once"},
        {"teardown now\n", "s.orb:1:10: 'teardown' stands alone on its line"},
        {"setpu\n", "s.orb:1:1: unknown command 'setpu' (did you mean `setup`, `set`?)"},
    };
    for (const auto &c : cases) {
        runner::Script script;
        std::string error;
        EXPECT_FALSE(runner::parse_script("s.orb", c.first, script, error)) << c.first;
        EXPECT_EQ(error, c.second) << c.first;
    }
    runner::Script script;
    std::string error;
    ASSERT_TRUE(runner::parse_script("s.orb",
                                     "setup\nlet a 1\niteration\nlet b 2\nlet c 3\n"
                                     "teardown\nlet d 4\n",
                                     script, error))
        << error;
    EXPECT_EQ(script.iteration_from, 1u);
    EXPECT_EQ(script.section(runner::Section::Iteration).second - script.commands.data(), 3);
    auto [first, last] = script.section(runner::Section::Teardown);
    ASSERT_EQ(last - first, 1);
    EXPECT_EQ(first->args[0], "d");
}

// Set-up and tear-down run once around the iterations, count apart, and a
// failure in set-up keeps the user from its iterations.
TEST(Lifecycle, SetUpAndTearDownRunOnceAroundTheIterations) {
    const struct {
        struct {
            const char *name;
            const char *setup_check;     // the set-up's check of _is_a
            const char *teardown_check;  // the tear-down's
            int calls;                   // that the peer answers
            int status;
        } run;
        std::vector<std::string> seen, unseen;
    } cases[] = {
        {{"all well", "1", "1", 4, 0},
         {"-- set-up\n", "-- iteration 2 of 2\n", "-- tear-down\n",
          "\nsetup: invoke _is_a twoway 1 0 ", "\ninvoke _is_a twoway 2 0 ",
          "\nteardown: check ^is_a 1 0\n", "OK: 0 failures"},
         {}},
        {{"set-up fails", "0", "1", 1, 1},
         {"s.orb:6: the set-up failed; this user runs no iteration\n", "\nsetup: check ^is_a 1 1\n",
          "FAILED: 1 failure\n"},
         {"-- iteration", "-- tear-down"}},
        {{"tear-down fails", "1", "0", 4, 1},
         {"\nteardown: check ^is_a 1 1\n", "FAILED: 1 failure\n"},
         {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.run.name);
        peer::ScriptedPeer p;
        answer(p, c.run.calls);
        testsupport::TempDir dir;
        std::string ior =
            peer::ior_text(peer::ior_bytes("IDL:Thing:1.0", "127.0.0.1", p.port(), "k"));
        std::string call = "params obj _is_a\nset logical_type_id IDL:Thing:1.0\ninvoke\n";
        dir.write("s.orb", "setup\nbind obj IDL:Thing:1.0 one IOR " + ior + "\n" + call +
                               "check ^is_a " + c.run.setup_check + "\niteration\n" + call +
                               "teardown\n" + call + "check ^is_a " + c.run.teardown_check +
                               "\nrelease obj\n");
        const std::string out = squashed(runner_output("--iterations 2 s.orb", c.run.status));
        EXPECT_TRUE(p.wait()) << out;
        EXPECT_EQ(p.connections(), 1) << out;
        testsupport::expect_has(out, c.seen);
        testsupport::expect_lacks(out, c.unseen);
    }
}

}  // namespace
