// The script language against the descriptions: checks by value, every
// mistake found before anything is sent, and skeletons.
#include "tools/runner/script.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "orbelle/kinds.h"
#include "orbelle/limits.h"
#include "tests/support.h"
#include "tests/unit/tools/run_tool.h"
#include "tools/runner/script/check.h"
#include "tools/runner/script/skeleton.h"
#include "tools/runner/script/values.h"

using testsupport::expect_has;
using testsupport::expect_lacks;

namespace {
using runner::Compare;

// A till: an attribute, a struct, sequences (one bounded), an out value
// and a one-way operation, with a value of every kind a script gives.
const char till_description[] = R"(# Shop::Till, IDL:Shop/Till:1.0
att IDL:Shop/Till/open:1.0 open normal . boolean
opr IDL:Shop/Till/open:1.0 _get_open normal
    res . boolean
opr IDL:Shop/Till/open:1.0 _set_open normal
    res . void
    par in open . boolean
opr IDL:Shop/Till/sell:1.0 sell normal
    res . struct 2 total double note string
    par in item . struct 4 name string count ushort weight float code octet
    par in tags . sequence 0 . string
    par in size . char
    par in kind . enum
    par out receipt . long
opr IDL:Shop/Till/stack:1.0 stack normal
    res . void
    par in codes . sequence 2 . short
opr IDL:Shop/Till/note:1.0 note normal
    res . void
    par in what . any
opr IDL:Shop/Till/ring:1.0 ring oneway
    res . void
    par in times . short
)";

TEST(CheckByValue, ComparesByTypeOperatorAndNotation) {
    const std::string long_text(limits::max_check_subject, 'a');
    const std::string too_long(limits::max_check_subject + 1, 'a');
    // The type, the comparison, the reply's text as the library writes it,
    // the value as the script writes it, and the message of a failed check
    // ("" when it passes).
    const std::tuple<int32_t, Compare, const char *, const char *, const char *> cases[] = {
        // numbers by value, floats at the precision they are written in
        {tk_double, Compare::Equal, "1000.000000", "1000", ""},
        {tk_double, Compare::Equal, "5657.350000", "5657.35", ""},
        {tk_double, Compare::Equal, "1000.000000", "1000.0000001", ""},
        {tk_double, Compare::Equal, "5657.350098", "5657.35",
         "expected '5657.35', got '5657.350098' (double)"},
        {tk_float, Compare::Equal, "5657.350098", "5657.35", ""},
        {tk_float, Compare::Equal, "0.100000", "0.1", ""},
        {tk_double, Compare::NotEqual, "1000.000000", "1e3",
         "expected a value != '1e3', got '1000.000000' (double)"},
        {tk_double, Compare::Greater, "1000.500000", "1000", ""},
        {tk_double, Compare::Less, "1000.500000", "1000",
         "expected a value < '1000', got '1000.500000' (double)"},
        {tk_long, Compare::Equal, "42", "+42", ""},
        {tk_long, Compare::LessEqual, "-5", "-5", ""},
        {tk_ulong, Compare::GreaterEqual, "4294967295", "4294967295", ""},
        {tk_short, Compare::Greater, "7", "abc",
         "cannot compare: 'abc' is not a short: a whole number from -32768 to 32767"},
        {tk_enum, Compare::Equal, "2", "2", ""},
        {tk_double, Compare::Matches, "5657.350000", "^5657\\.3", ""},
        // booleans as the library reads them: only 1 is true
        {tk_boolean, Compare::Equal, "1", "1", ""},
        {tk_boolean, Compare::Equal, "1", "0", "expected '0', got '1' (boolean)"},
        {tk_boolean, Compare::Equal, "0", "false",
         "cannot compare: 'false' is not a boolean: the library reads 1 as true and "
         "everything else as false, so write 1 or 0"},
        // strings and octets by the bytes their notation stands for
        {tk_string, Compare::Equal, "`4f22`Brien, Pat", "O\"Brien, Pat", ""},
        {tk_string, Compare::Equal, "O\"Brien", "`4f22`Brien", ""},
        {tk_string, Compare::Equal, "`4f22`Brien 42", "O\"Brien, Pat",
         "expected 'O\"Brien, Pat', got 'O\"Brien 42' (string)"},
        {tk_string, Compare::NotEqual, "a`01`", "a", ""},
        {tk_string, Compare::Equal, "a`01`", "a", "expected 'a', got 'a\\x01' (string)"},
        {tk_string, Compare::Matches, "`4f22`Brien", "^O\"Br", ""},
        {tk_string, Compare::Matches, "`4f22`Brien", "^x",
         "expected a value matching /^x/, got 'O\"Brien' (string)"},
        {tk_string, Compare::Less, "a", "b",
         "cannot compare: < compares numbers, and this value is a string: use ==, != or ~"},
        {tk_string, Compare::Matches, "a", "(",
         "the pattern does not compile: "},  // the library's reason follows
        {tk_octet, Compare::Equal, "A", "`41`", ""},
        {tk_char, Compare::Equal, "x", "x", ""},
        {tk_objref, Compare::Equal, "IOR:01", "IOR:01", ""},
        // the text a pattern is matched against, on both sides of its limit
        {tk_string, Compare::Matches, long_text.c_str(), "^a+$", ""},
        {tk_string, Compare::Matches, too_long.c_str(), "^a+$",
         "the value has 4097 bytes, more than the 4096 a pattern is matched against"},
        // a pattern that a backtracking search would take for ever on
        {tk_string, Compare::Matches, long_text.c_str(), "(a*)*b",
         "expected a value matching /(a*)*b/"},
        {tk_string, Compare::Matches, "xa)|(b", "a\\)\\|\\(b", ""},
        {tk_string, Compare::Matches, "ab", "^b", "expected a value matching /^b/"},
        {tk_string, Compare::Matches, "ab", "a$", "expected a value matching /a$/"},
        {tk_string, Compare::Matches, "ab", "^a|c$", ""},
        {tk_string, Compare::Matches, "a", "a)|(b", "the pattern does not compile: "},
    };
    for (const auto &[type, how, actual, expected, failure] : cases) {
        std::string why;
        bool ok = runner::compare_values(type, how, actual, expected, why);
        std::string label = runner::type_name(type) + " " + runner::compare_symbol(how) + " " +
                            std::string(expected).substr(0, 40);
        EXPECT_EQ(ok, *failure == '\0') << label << ": " << why;
        EXPECT_EQ(why.substr(0, std::strlen(failure)), failure) << label << ": " << why;
    }
}

TEST(CheckByValue, PatternsAreLimitedInLengthAndRepetition) {
    const std::string longest(limits::max_check_pattern, 'a');
    EXPECT_EQ(runner::compare_problem(tk_string, Compare::Matches, longest), "");
    EXPECT_EQ(runner::compare_problem(tk_string, Compare::Matches, longest + "a"),
              "the pattern has 1001 characters, more than 1000");
    for (const char *most : {"(a{10}){100}", "a{2,1000}", "x{1000,}"})
        EXPECT_EQ(runner::compare_problem(tk_string, Compare::Matches, most), "") << most;
    for (const char *more : {"(a{10}){101}", "a{2,1001}", "(a{2}b{2}){251}"})
        EXPECT_EQ(runner::compare_problem(tk_string, Compare::Matches, more),
                  "the pattern's counted repetitions multiply to more than 1000")
            << more;
    EXPECT_EQ(runner::compare_problem(tk_string, Compare::Matches, "\\{5000}"), "");
}

class ScriptMistakes : public ::testing::Test {
protected:
    ScriptMistakes() { dir_.write("idl/Shop-Till.csv", till_description); }

    // Every mistake of the script file holding text, one a line.
    std::string mistakes_of(const std::string &file, const std::string &text,
                            const runner::DataFiles &data = {}) {
        runner::Script script;
        runner::Mistakes found;
        runner::parse_script(file, text, script, found);
        runner::Descriptions descriptions(host_);
        runner::check_script(script, data, &descriptions, found);
        return found.text();
    }
    // The same of s.orb: a line binding till, then text.
    std::string mistakes(const std::string &text) {
        return mistakes_of("s.orb", "bind till IDL:Shop/Till:1.0 t IOR IOR:00\n" + text);
    }

    testsupport::TempDir dir_;
    hostkit::Host host_ = testsupport::linked_host();
};

TEST_F(ScriptMistakes, EachIsPlacedAndSaysWhatIsWrong) {
    const std::string sell = "params till sell tags^length=1\n";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"params till sel\n",
         "s.orb:2:13: operation 'sel' is not one of IDL:Shop/Till:1.0 (did you mean `sell`?)"},
        {"params till _get_opn\n",
         "s.orb:2:13: operation '_get_opn' is not one of IDL:Shop/Till:1.0 (did you mean "
         "`_get_open`, `_set_open`?)"},
        {"params till sell tag^length=2\n",
         "s.orb:2:18: 'tag^length' is not a sequence of sell (did you mean `tags^length`?)"},
        {"params till note\nset what x\n",
         "s.orb:3:5: what is of type any, which a script cannot give (the call would fail "
         "with MARSHAL)"},
        // a bounded sequence, at its bound and one past it
        {"params till stack codes^length=2\nset codes[1] 1\n", ""},
        {"params till stack codes^length=3\nset codes[2] 1\n",
         "s.orb:2:19: codes^length=3 is more elements than the description bounds the "
         "sequence to; the parameter list ends there"},
        {sell + "set item.nme x\n",
         "s.orb:3:5: no parameter named 'item.nme' in the list of sell (did you mean "
         "`item.name`?)"},
        {sell + "set name x\n",
         "s.orb:3:5: no parameter named 'name' in the list of sell (did you mean `item.name`?)"},
        {"params till sell\nset tags[0] x\n",
         "s.orb:3:5: no parameter named 'tags[0]' in the list of sell (a sequence has the "
         "elements its ^length in the params line gives)"},
        {sell + "set item.count abc\n",
         "s.orb:3:16: 'abc' is not a ushort: a whole number from 0 to 65535 (item.count)"},
        {sell + "set item.count 65536\n",
         "s.orb:3:16: '65536' is not a ushort: a whole number from 0 to 65535 (item.count)"},
        {sell + "set item.weight 1e39\n",
         "s.orb:3:17: '1e39' is not a float: a decimal number such as 12.5 or 1e-3 "
         "(item.weight)"},
        {sell + "set item.code AB\n",
         "s.orb:3:15: 'AB' is not an octet: one byte, such as A or `ff` (item.code)"},
        {sell + "set tags[0] `4g`\n",
         "s.orb:3:13: '`4g`': 'g' between backquotes is not a hex digit (write a backquote as "
         "`60`) (tags[0])"},
        {sell + "set size xy\n", "s.orb:3:10: 'xy' is not a char: one character (size)"},
        {sell + "set kind EUR\n",
         "s.orb:3:10: 'EUR' is not an enum's member number: a whole number from 0 to "
         "2147483647 (kind)"},
        {sell + "set receipt 5\n",
         "s.orb:3:5: receipt is an out value: the reply sets it, a script cannot"},
        {sell + "set tags^length 3\n",
         "s.orb:3:5: tags^length is a sequence's length: give it in the params line as "
         "tags^length=N"},
        {sell + "check ^sell.total < abc\n",
         "s.orb:3:21: 'abc' is not a double: a decimal number such as 12.5 or 1e-3 "
         "(^sell.total)"},
        {sell + "check ^sell.note >= x\n",
         "s.orb:3:21: >= compares numbers, and this value is a string: use ==, != or ~ "
         "(^sell.note)"},
        {sell + "save ^sell.totl t\n",
         "s.orb:3:6: no parameter named '^sell.totl' in the list of sell (did you mean "
         "`^sell.total`, `^sell.note`?)"},
        {sell + "print reciept\n",
         "s.orb:3:7: no parameter named 'reciept' in the list of sell (did you mean "
         "`receipt`?)"},
        {sell + "check ^sell.total is 5\n",
         "s.orb:3:19: 'is' is not a comparison: ==, !=, <, <=, >, >= or ~ (quote a value with "
         "blanks)"},
        {"params till _get_open\ninvoke\ncheck ^_get_open true\n",
         "s.orb:4:18: 'true' is not a boolean: the library reads 1 as true and everything "
         "else as false, so write 1 or 0 (^_get_open)"},
        {"params till ring\nset times 1\ninvoke\n",
         "s.orb:4:1: ring is one-way: no reply comes, so write 'invoke oneway'"},
        {"bind x IDL:Shop/Til:1.0 t IOR IOR:00\nparams x sell\nparams x ring\n",
         "s.orb:2:8: no description of IDL:Shop/Til:1.0: cannot read ./idl/Shop-Til.csv (did "
         "you mean `IDL:Shop/Till:1.0`?)"},
        {"let total 1\nlet x ${totl}\n",
         "s.orb:3:7: variable totl is used before it is set (neither the environment, let, "
         "save nor a data line above sets it) (did you mean `total`?)"},
        {"chek ^x 1\n", "s.orb:2:1: unknown command 'chek' (did you mean `check`?)"},
        {"params till sell extra^length=x\nset item.count abc\n",
         "s.orb:2:31: sequence length 'x' is not a number from 0 to 10000000"},
        // what the library answers for every interface needs no description
        {"bind w IDL:None:1.0 w IOR IOR:00\nparams w _is_a\nset logical_type_id x\n", ""},
        // values from variables are checked when they run
        {sell + "let n x\nset item.count ${n}\ncheck ^sell.total ${n}\n", ""},
    };
    for (const auto &c : cases) EXPECT_EQ(mistakes(c.first), c.second) << c.first;
}

TEST_F(ScriptMistakes, AllAreListedUpToTheLimit) {
    std::string text = "params till sell\n";
    for (size_t i = 0; i < limits::max_script_mistakes; ++i) text += "set item.count x\n";
    std::string at_limit = mistakes(text);
    EXPECT_EQ(std::count(at_limit.begin(), at_limit.end(), '\n') + 1,
              static_cast<long>(limits::max_script_mistakes));
    expect_lacks(at_limit, {"not shown"});
    std::string past = mistakes(text + "set item.count y\nset item.count z\n");
    expect_has(past, {"s.orb:52:16: 'x'"});
    expect_lacks(past, {"'y'"});
    EXPECT_EQ(past.substr(past.rfind('\n') + 1), "2 more mistakes not shown (the first 50 are)");
}

TEST(ScriptSuggestions, LookAtTheFirstCandidatesOnly) {
    // Names of a long sequence's elements, and the meant one at the last
    // place looked at, then one past it.
    std::vector<std::string> names;
    for (size_t i = 0; i + 1 < limits::max_suggestion_candidates; ++i)
        names.push_back("entries[" + std::to_string(i) + "].amount");
    names.push_back("max_entries");
    EXPECT_EQ(runner::did_you_mean("max_entrys", names), " (did you mean `max_entries`?)");
    names.insert(names.begin(), "entries^length");
    EXPECT_EQ(runner::did_you_mean("max_entrys", names), "");
    EXPECT_EQ(runner::did_you_mean("zzzzzzzz", {"max_entries"}), "");
}

TEST_F(ScriptMistakes, DataRowsAreCheckedAgainstTheValuesTheyFill) {
    runner::CsvTable table;
    std::string error;
    ASSERT_TRUE(runner::parse_csv("d.csv", "n,w\n3,1.5\nmany,2\n4,heavy\n", table, error));
    // A column's variable set anew (line 6) holds the data no longer.
    EXPECT_EQ(mistakes_of("s.orb",
                          "data d.csv as row\nbind till IDL:Shop/Till:1.0 t IOR IOR:00\n"
                          "params till sell\nset item.count ${row.n}\nset item.weight ${row.w}\n"
                          "let row.w 2\nset item.weight ${row.w}\n",
                          {{1, {"d.csv", &table}}}),
              "d.csv: row 2, column n: 'many' is not a ushort: a whole number from 0 to 65535 "
              "(item.count takes it at s.orb:4:16)\n"
              "d.csv: row 3, column w: 'heavy' is not a float: a decimal number such as 12.5 or "
              "1e-3 (item.weight takes it at s.orb:5:17)");
}

TEST_F(ScriptMistakes, SkeletonsRunTheCheckCleanly) {
    runner::Descriptions descriptions(host_);
    std::string out, why;
    ASSERT_TRUE(runner::write_skeleton(descriptions, "IDL:Shop/Till:1.0", {}, out, why)) << why;
    expect_has(out, {"\nparams till sell tags^length=1 ", "\nset item.count 0 ", "# ushort\n",
                     "\nset tags[0] text ", "\ninvoke oneway\n", "\n# check ^sell.total 0.0 ",
                     "\n# save receipt receipt\n", "\nset open 0 ", "\n# set what "});
    EXPECT_EQ(mistakes_of("skeleton.orb", out), "");

    EXPECT_FALSE(runner::write_skeleton(descriptions, "IDL:Shop/Till:1.0", {"sel"}, out, why));
    EXPECT_EQ(why, "operation 'sel' is not one of IDL:Shop/Till:1.0 (did you mean `sell`?)");
}

TEST_F(ScriptMistakes, TheRunnerListsThemAllAndSendsNothing) {
    dir_.write("five.orb", "bind till IDL:Shop/Till:1.0 t IOR " + testsupport::closed_ior() +
                               "\nparams till sel\nparams till sell\nset item.nme x\nset kind x\n"
                               "invoke\ncheck ^sell.total ${t}\n");
    const std::string listed =
        "five.orb:2:13: operation 'sel' is not one of IDL:Shop/Till:1.0 (did you mean `sell`?)\n"
        "five.orb:4:5: no parameter named 'item.nme' in the list of sell (did you mean "
        "`item.name`?)\n"
        "five.orb:5:10: 'x' is not an enum's member number: a whole number from 0 to "
        "2147483647 (kind)\n"
        "five.orb:7:19: variable t is used before it is set (neither the environment, let, save "
        "nor a data line above sets it)\n";
    const std::tuple<const char *, int, std::string> runs[] = {
        {"--trace 5 five.orb", 2, listed},  // no trace: nothing ran
        {"--check five.orb 2>/dev/null", 2, listed},
        {"--skeleton IDL:Shop/Till:1.0 ring >ring.orb", 0, ""},
        {"--check ring.orb", 0, "OK\n"},
        {"--skeleton IDL:Shop/Tll:1.0", 2,
         "orbelle-run: no description of IDL:Shop/Tll:1.0: cannot read ./idl/Shop-Tll.csv (did "
         "you mean `IDL:Shop/Till:1.0`?)\n"},
    };
    for (const auto &[args, status, printed] : runs) {
        EXPECT_EQ(testsupport::runner_output(args, status), printed) << args;
    }
}

}  // namespace
