// A user's life against the demo bank: bindings and their connections kept
// across iterations, and set-up and tear-down once per user alone, under
// --users and under --serve, counted by the server itself.
#include "tests/interop/bank/bank_fixture.h"

namespace bank {
namespace {

using testsupport::count_of;

const std::string echo = "params diag echo_long\nset a 1\nset c 2\ninvoke\n";

// Text with each run of blanks made one blank.
std::string squashed(const std::string &text) {
    std::string out;
    for (char c : text)
        if (c != ' ' || out.empty() || out.back() != ' ') out += c;
    return out;
}

class Lifecycle : public RunnerTest {
protected:
    // Writes the script and runs orbelle-run on it with args; its exit
    // status, and its output with runs of blanks made one.
    int run_script(const std::string &args, const std::string &text, std::string &out) {
        int status = run(args + " " + script("s.orb", text), out);
        out = squashed(out);
        return status;
    }
};

TEST_F(Lifecycle, BindingsAndTheirConnectionsAreKeptUnlessArgumentsChangeOrFreshIsAsked) {
    struct Case {
        const char *flags;
        std::string bind;
        size_t connects, kept, binds;
    } cases[] = {
        {"", kBindDiag, 1, 2, 1},
        {"--fresh-binds", kBindDiag, 3, 0, 3},
        {"", "bind diag IDL:Banking/Diagnostics:1.0 d${ITERATION} IOR ${DIAG_IOR}\n", 3, 0, 3},
        {"--fresh-binds", "bind once diag IDL:Banking/Diagnostics:1.0 d IOR ${DIAG_IOR}\n", 1, 0,
         1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.flags) + " " + c.bind);
        std::string out;
        EXPECT_EQ(run_script(std::string(c.flags) + " --iterations 3", c.bind + echo, out), 0)
            << out;
        EXPECT_EQ(count_of(out, "connected to 127.0.0.1:"), c.connects) << out;
        EXPECT_EQ(count_of(out, "kept: bound so already, nothing sent"), c.kept) << out;
        EXPECT_EQ(count_of(out, "\nbind diag " + std::to_string(c.binds) + " 0 "), 1u) << out;
        // The library built the list once; the other two were copies.
        EXPECT_EQ(count_of(out, "\nparams echo_long 1 0 "), 1u) << out;
    }
}

// Set-up and tear-down run once per user in every mode; their calls are
// named apart and are not requests of the iterations. A set-up that fails
// keeps its user from iterating and is reported once.
TEST_F(Lifecycle, SetUpAndTearDownRunOncePerUserInEveryMode) {
    std::ofstream(dir_.path() + "/two.txt") << "run\nrun\n";
    const std::string serve = "--serve --events - <" + dir_.path() + "/two.txt";
    struct Case {
        std::string args;
        const char *setup_check;
        int status;
        long requests;  // that the server serves
        std::vector<std::string> seen;
    } cases[] = {
        {"--users 2 --iterations 3",
         "1",
         0,
         10,
         {"\nsetup: invoke echo_long twoway 2 0 ", "\ninvoke echo_long twoway 6 0 ",
          "\nteardown: invoke echo_long twoway 2 0 ", "\nall requests 6 0 "}},
        {"--users 2 --iterations 3",
         "7",
         1,
         2,
         {"\nsetup: check ^echo_long 2 2",
          "user 1: the set-up failed at s.orb:7; it ran no iteration",
          "user 2: the set-up failed at s.orb:7; it ran no iteration"}},
        {serve,
         "1",
         0,
         4,
         {"\"iter\": 0, \"kind\": \"call\", \"name\": \"setup: invoke echo_long twoway\"",
          "\"iter\": 2, \"kind\": \"iteration\"",
          "\"iter\": 0, \"kind\": \"call\", \"name\": \"teardown: invoke echo_long twoway\""}},
        {serve, "7", 1, 1, {"\"error\": \"the set-up failed at s.orb:7\""}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.args + ", set-up check " + c.setup_check);
        long before = requests_served();
        std::string out;
        EXPECT_EQ(run_script(c.args,
                             "setup\n" + kBindDiag + echo + "check ^echo_long " + c.setup_check +
                                 "\niteration\n" + echo + "teardown\n" + echo,
                             out),
                  c.status)
            << out;
        EXPECT_EQ(requests_served() - before - 1, c.requests) << out;
        for (const std::string &text : c.seen)
            EXPECT_EQ(count_of(out, text), 1u) << text << "\n" << out;
    }
}

}  // namespace
}  // namespace bank
