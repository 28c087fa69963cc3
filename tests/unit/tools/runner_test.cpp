#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "tests/support.h"
#include "tests/unit/tools/run_tool.h"
#include "tools/runner/run.h"
#include "tools/runner/script.h"

namespace {
using runner::RowMode;
using runner::Script;
using runner::Verb;

// The first mistake of a script, "" when there is none; data lines 1 and 2
// give a column x.
std::string parse_error(const std::string &text) {
    Script script;
    std::string error;
    if (runner::parse_script("s.orb", text, script, error) &&
        runner::check_script(script, {{1, {"x"}}, {2, {"x"}}}, error))
        return "";
    return error;
}

TEST(RunnerScript, WordsQuotesAndComments) {
    std::vector<std::string> words;
    std::string error;
    ASSERT_TRUE(runner::split_words(R"(set  name "two words" # comment)", words, error));
    EXPECT_EQ(words, (std::vector<std::string>{"set", "name", "two words"}));
    ASSERT_TRUE(runner::split_words(R"(set x "a\"b\\c" "" "#not")", words, error));
    EXPECT_EQ(words, (std::vector<std::string>{"set", "x", "a\"b\\c", "", "#not"}));
    ASSERT_TRUE(runner::split_words("   # only a comment", words, error));
    EXPECT_TRUE(words.empty());
    EXPECT_FALSE(runner::split_words("set x \"open", words, error));
    EXPECT_EQ(error, "unterminated quote");
}

TEST(RunnerScript, EnvironmentVariablesAreExpandedWhenRead) {
    setenv("ORBELLE_T_PORT", "2809", 1);
    setenv("VU", "7", 1);  // built-in names are the runner's, whatever the environment says
    std::string text =
        "NameService(iiop:1.0//127.0.0.1:${ORBELLE_T_PORT}/NameService) ${ORBELLE_T_PORT} "
        "${ORBELLE_T_NONE} ${VU}";
    unsetenv("ORBELLE_T_NONE");
    std::string error;
    ASSERT_TRUE(runner::expand_environment(text, error));
    EXPECT_EQ(text,
              "NameService(iiop:1.0//127.0.0.1:2809/NameService) 2809 ${ORBELLE_T_NONE} ${VU}");
    unsetenv("VU");
    EXPECT_EQ(parse_error("bind a b c ${ORBELLE_T_NONE}\n"),
              "s.orb:1:12: variable ORBELLE_T_NONE is used before it is set (neither the "
              "environment, let, save nor a data line above sets it)");
}

TEST(RunnerScript, ParsesEveryCommand) {
    Script s;
    std::string error;
    ASSERT_TRUE(runner::parse_script("s.orb",
                                     "bind a IDL:A:1.0 one \"FILE(a.ior) | IOR\" IOR:00\n"
                                     "params a op seq^length=3 m.s^length=0\nset seq[0] 7\n"
                                     "invoke deferred timeout=500 expect=user\npoll op\n"
                                     "wait op timeout=100\ncheck ^op 1\nprint\nsleep 5\n"
                                     "release a\n",
                                     s, error))
        << error;
    ASSERT_EQ(s.commands.size(), 10u);
    const std::vector<runner::Command> &c = s.commands;
    EXPECT_EQ(c[0].args[3], "FILE(a.ior) | IOR");
    EXPECT_EQ(c[1].lengths, (std::vector<std::pair<std::string, std::string>>{
                                {"seq^length", "3"}, {"m.s^length", "0"}}));
    EXPECT_EQ(std::make_tuple(c[3].kind, c[3].timeout_ms, c[3].expect_status, c[5].verb, c[9].line),
              std::make_tuple(runner::CallKind::Deferred, 500L, 2, Verb::Wait, 10));
    EXPECT_TRUE(runner::check_script(s, error)) << error;

    // The commands of load runs.
    s = Script();
    ASSERT_TRUE(runner::parse_script("s.orb",
                                     "data people.csv unique as p\ndata more.csv as m\n"
                                     "data plain.csv random\nlet who \"${p.name} x\"\n"
                                     "think 10..250\nthink ${gap}\npace 1000\n"
                                     "begin visit\nend visit\n",
                                     s, error))
        << error;
    ASSERT_EQ(s.commands.size(), 9u);
    EXPECT_EQ(c[0].args, (std::vector<std::string>{"people.csv"}));
    std::vector<std::pair<RowMode, std::string>> data;
    for (size_t i = 0; i < 3; ++i) data.emplace_back(c[i].row_mode, c[i].alias);
    EXPECT_EQ(data,
              (decltype(data){
                  {RowMode::Unique, "p"}, {RowMode::Sequential, "m"}, {RowMode::Random, ""}}));
    // think ${gap} is read when it runs
    EXPECT_EQ(std::make_tuple(c[3].has_variables, c[4].number, c[4].number_max, c[5].has_variables,
                              c[6].verb, c[6].number),
              std::make_tuple(true, 10L, 250L, true, Verb::Pace, 1000L));
}

TEST(RunnerScript, MistakesNameTheLineAndWhatIsWrong) {
    const std::string is_a = "bind o IDL:T:1.0 i IOR\nparams o _is_a\n";
    auto unset = [](const char *at, const char *name) {
        return std::string("s.orb:") + at + ": variable " + name +
               " is used before it is set (neither the environment, let, save nor a data line "
               "above sets it)";
    };
    const std::string data_usage = "'); usage: data FILE.csv [sequential|random|unique] [as NAME]";
    const std::string bound = "bind a b c d\nparams a op";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"\n\nfrobnicate x\n", "s.orb:3:1: unknown command 'frobnicate'"},
        {"bind a b c\n",
         "s.orb:1:11: missing argument; usage: bind [once] OBJECT REPOSITORY-ID INSTANCE-ID "
         "MODUS [IOR-TEXT]"},
        {bound + " s^length=x\n",
         "s.orb:2:22: sequence length 'x' is not a number from 0 to 10000000"},
        {bound + " s^length=-1\n",
         "s.orb:2:22: sequence length '-1' is not a number from 0 to 10000000"},
        {bound + " s=1\n", "s.orb:2:13: expected NAME^length=N, got 's=1'"},
        {bound + "\ninvoke timeout=0\n",
         "s.orb:3:8: time-out '0' is not a number of milliseconds above 0"},
        {bound + "\ninvoke expect=maybe\n",
         "s.orb:3:8: expect= takes ok, system or user, not 'maybe'"},
        {"set x 1\n", "s.orb:1:5: no parameter list yet: use 'params' first"},
        {"params b op\n", "s.orb:1:8: object 'b' is not bound here: bind it first"},
        {bound + "\ninvoke\nwait op\n", "s.orb:4:6: no deferred call of op before this line"},
        {"print x y\n", "s.orb:1:9: too many arguments ('y'); usage: print [NAME]"},
        {"set x \"y\n", "s.orb:1:1: unterminated quote"},
        {"bind a b c ${OPEN\n", "s.orb:1:1: '${' without a closing '}'"},
        {"end t\n", "s.orb:1:5: end t without its begin"},
        {"begin t\nbegin t\n", "s.orb:2:7: transaction t is already open"},
        {"begin a\nbegin b\nend b\n", "s.orb:1:7: transaction a has no end"},
        {"begin a\nend a\nbegin a\n", "s.orb:3:7: transaction a has no end"},
        {"let a ${b}\nlet b 1\n", unset("1:7", "b")},
        {"let a ${a}\n", unset("1:7", "a")},
        {is_a + "set logical_type_id ${id}\nsave logical_type_id id\n", unset("3:21", "id")},
        {"save x y\n", "s.orb:1:6: no parameter list yet: use 'params' first"},
        {"let a ${RANDOM:3..1}\n",
         "s.orb:1:7: '${RANDOM:3..1}' takes whole numbers MIN..MAX, MIN <= MAX"},
        {"think 5..1\n", "s.orb:1:7: '5..1' is not MILLISECONDS or MIN..MAX from 0 to 3600000"},
        {"think -1\n", "s.orb:1:7: '-1' is not MILLISECONDS or MIN..MAX from 0 to 3600000"},
        {"pace 1..2\n", "s.orb:1:6: '1..2' is not a number of milliseconds from 0 to 3600000"},
        {"data d.csv sometimes\n", "s.orb:1:12: too many arguments ('sometimes" + data_usage},
        {"data d.csv as\n", "s.orb:1:12: too many arguments ('as" + data_usage},
        // a data line names its columns for the lines below it only
        {"let a ${p.x}\ndata d.csv as p\n", unset("1:7", "p.x")},
        {"data d.csv as p\nlet a ${x}\n", unset("2:7", "x") + " (did you mean `p.x`?)"},
    };
    for (const auto &c : cases) EXPECT_EQ(parse_error(c.first), c.second) << c.first;
    EXPECT_EQ(parse_error("data d.csv as p\nlet a ${p.x}${VU}${ITERATION}${TIME_MS}${RANDOM:1..2}\n"
                          "begin o\nbegin i\nend o\nend i\n"),
              "");
}

TEST(Runner, RunsAScriptThroughTheLoadedLibrary) {
    testsupport::TempDir dir;
    // "once" binds in the first iteration only; a lone "once" is a name.
    const std::string ior = testsupport::closed_ior();
    dir.write("list", "IDL:Thing:1.0," + ior + "\n");
    dir.write("ok.orb",
              "bind obj IDL:Thing:1.0 one IOR " + ior + "\nbind once kept IDL:Thing:1.0 two IOR " +
                  ior +
                  "\nbind once IDL:Thing:1.0 three FILE(list)\nparams obj _is_a\n"
                  "set logical_type_id IDL:Thing:1.0\ncheck logical_type_id IDL:Thing:1.0\n"
                  "print logical_type_id\n");
    const std::string out = testsupport::runner_output("--trace 5 --iterations 2 ok.orb", 0);
    // the trace of the loaded library shows through
    testsupport::expect_has(
        out, {"_iiop_get_parms:  operation '_is_a', repoid 'IDL:Thing:1.0'\n",
              "    logical_type_id = IDL:Thing:1.0", "-- iteration 2 of 2", "params _is_a"});
    using testsupport::count_of;
    EXPECT_EQ(std::make_tuple(count_of(out, " bind obj "), count_of(out, " bind kept "),
                              count_of(out, " bind once ")),
              std::make_tuple(2u, 1u, 2u))
        << out;
}

}  // namespace
