#include "tools/runner/script.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <map>

#include "tools/runner/script/values.h"
#include "tools/runner/vars.h"

namespace runner {
namespace {

struct VerbInfo {
    Verb verb;
    size_t min_args;
    size_t max_args;  // positional words, options excluded
    const char *usage;
};

const std::map<std::string, VerbInfo> verbs = {
    {"bind", {Verb::Bind, 4, 5, "bind [once] OBJECT REPOSITORY-ID INSTANCE-ID MODUS [IOR-TEXT]"}},
    {"params", {Verb::Params, 2, 2, "params OBJECT OPERATION [NAME^length=N ...]"}},
    {"set", {Verb::Set, 2, 2, "set NAME VALUE"}},
    {"invoke",
     {Verb::Invoke, 0, 0,
      "invoke [twoway|oneway|deferred] [timeout=MILLISECONDS] [expect=ok|system|user]"}},
    {"poll", {Verb::Poll, 1, 1, "poll OPERATION"}},
    {"wait", {Verb::Wait, 1, 1, "wait OPERATION [timeout=MILLISECONDS] [expect=ok|system|user]"}},
    {"check", {Verb::Check, 2, 3, "check NAME [==|!=|<|<=|>|>=|~] VALUE"}},
    {"print", {Verb::Print, 0, 1, "print [NAME]"}},
    {"release", {Verb::Release, 1, 1, "release OBJECT"}},
    {"sleep", {Verb::Sleep, 1, 1, "sleep MILLISECONDS"}},
    {"save", {Verb::Save, 2, 2, "save NAME VARIABLE"}},
    {"let", {Verb::Let, 2, 2, "let VARIABLE TEXT"}},
    {"data", {Verb::Data, 1, 1, "data FILE.csv [sequential|random|unique] [as NAME]"}},
    {"begin", {Verb::Begin, 1, 1, "begin TRANSACTION"}},
    {"end", {Verb::End, 1, 1, "end TRANSACTION"}},
    {"think", {Verb::Think, 1, 1, "think MILLISECONDS or think MIN..MAX"}},
    {"pace", {Verb::Pace, 1, 1, "pace MILLISECONDS"}},
};

// The lines that start a section.
const std::map<std::string, Section> sections = {
    {"setup", Section::Setup},
    {"iteration", Section::Iteration},
    {"teardown", Section::Teardown},
};

bool read_number(const std::string &text, long min, long max, long &out) {
    if (text.empty()) return false;
    errno = 0;
    char *end = nullptr;
    long v = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < min || v > max) return false;
    out = v;
    return true;
}

// Largest time-out a script may give: the library counts milliseconds in
// a signed 32-bit word.
constexpr long max_timeout_ms = 2147483647L;
// Longest pause a script may ask for: an hour.
constexpr long max_pause_ms = 3600000L;
// Largest sequence length a script may ask for.
constexpr long max_sequence_length = 10000000L;

std::vector<std::string> verb_names() {
    std::vector<std::string> names;
    for (const auto &entry : verbs) names.push_back(entry.first);
    for (const auto &entry : sections) names.push_back(entry.first);
    return names;
}

}  // namespace

bool read_pause(Command &cmd, std::string &error) {
    if (cmd.verb != Verb::Sleep && cmd.verb != Verb::Think && cmd.verb != Verb::Pace) return true;
    const std::string &text = cmd.args[0];
    bool ok = cmd.verb == Verb::Think ? read_range(text, max_pause_ms, cmd.number, cmd.number_max)
                                      : read_number(text, 0, max_pause_ms, cmd.number);
    if (!ok)
        error =
            "'" + text + "' is not " +
            (cmd.verb == Verb::Think ? "MILLISECONDS or MIN..MAX" : "a number of milliseconds") +
            " from 0 to " + std::to_string(max_pause_ms);
    return ok;
}

bool split_words(const std::string &line, std::vector<std::string> &words, std::string &error,
                 std::vector<int> *columns) {
    words.clear();
    if (columns) columns->clear();
    size_t i = 0, n = line.size();
    while (i < n) {
        char c = line[i];
        if (c == ' ' || c == '\t' || c == '\r') {
            ++i;
            continue;
        }
        if (c == '#') break;
        const size_t start = i;
        std::string word;
        bool quoted_word = false;
        while (i < n) {
            c = line[i];
            if (c == '"') {
                quoted_word = true;
                ++i;
                bool closed = false;
                while (i < n) {
                    char q = line[i++];
                    if (q == '"') {
                        closed = true;
                        break;
                    }
                    if (q == '\\' && i < n && (line[i] == '"' || line[i] == '\\')) q = line[i++];
                    word += q;
                }
                if (!closed) {
                    error = "unterminated quote";
                    return false;
                }
                continue;
            }
            if (c == ' ' || c == '\t' || c == '\r') break;
            word += c;
            ++i;
        }
        if (!word.empty() || quoted_word) {
            words.push_back(word);
            if (columns) columns->push_back(static_cast<int>(start) + 1);
        }
    }
    return true;
}

bool expand_environment(std::string &text, std::string &error) {
    std::string out;
    auto from_environment = [](const std::string &name) -> std::optional<std::string> {
        const char *value = is_builtin(name) ? nullptr : std::getenv(name.c_str());
        if (value == nullptr) return std::nullopt;
        return std::string(value);
    };
    if (!substitute(text, from_environment, out, error)) return false;
    text = std::move(out);
    return true;
}

bool parse_script(const std::string &file, const std::string &text, Script &script,
                  Mistakes &mistakes) {
    script.file = file;
    script.commands.clear();
    const size_t mistakes_before = mistakes.count();
    // The section headers seen so far, and where the setup header was.
    bool seen[3] = {false, false, false};
    int setup_line = 0, setup_column = 0;
    script.iteration_from = 0;
    script.teardown_from = SIZE_MAX;
    int line_no = 0;
    size_t pos = 0;
    std::vector<std::string> words;
    std::vector<int> columns;
    while (pos <= text.size()) {
        size_t end = text.find('\n', pos);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(pos, end - pos);
        pos = end + 1;
        ++line_no;
        // Columns are counted in the line as written; a line that the
        // environment changed is counted as it reads after the change.
        int column = 1;
        auto fail = [&](const std::string &message) {
            mistakes.add(file, line_no, column, message);
        };
        std::string why;
        if (!expand_environment(line, why) || !split_words(line, words, why, &columns)) {
            fail(why);
            continue;
        }
        if (words.empty()) continue;
        auto header = sections.find(words[0]);
        if (header != sections.end()) {
            const int which = static_cast<int>(header->second);
            column = columns[0];
            if (words.size() > 1) {
                column = columns[1];
                fail("'" + words[0] + "' stands alone on its line");
            } else if (seen[which]) {
                fail("a second '" + words[0] + "': each section comes once");
            } else if (header->second == Section::Setup && !script.commands.empty()) {
                fail("'setup' comes first, before every other line");
            } else if (header->second == Section::Iteration && seen[2]) {
                fail("'iteration' comes before 'teardown'");
            } else if (header->second == Section::Iteration && !seen[0] &&
                       !script.commands.empty()) {
                fail("the lines above 'iteration' would run once: put 'setup' before them");
            }
            seen[which] = true;
            if (header->second == Section::Setup) {
                setup_line = line_no;
                setup_column = column;
            } else if (header->second == Section::Iteration) {
                script.iteration_from = script.commands.size();
            } else if (script.teardown_from == SIZE_MAX) {
                script.teardown_from = script.commands.size();
            }
            continue;
        }
        auto it = verbs.find(words[0]);
        if (it == verbs.end()) {
            fail("unknown command '" + words[0] + "'" + did_you_mean(words[0], verb_names()));
            continue;
        }
        const VerbInfo &info = it->second;
        Command cmd;
        cmd.verb = info.verb;
        cmd.line = line_no;
        cmd.column = columns[0];
        bool bad = false;
        for (size_t w = 1; w < words.size() && !bad; ++w) {
            const std::string &word = words[w];
            column = columns[w];
            if (info.verb == Verb::Params && cmd.args.size() == 2) {
                size_t eq = word.find('=');
                size_t caret = word.find("^length");
                long n = 0;
                if (eq == std::string::npos || caret == std::string::npos || caret > eq) {
                    fail("expected NAME^length=N, got '" + word + "'");
                    bad = true;
                } else if (!read_number(word.substr(eq + 1), 0, max_sequence_length, n)) {
                    column += static_cast<int>(eq) + 1;
                    fail("sequence length '" + word.substr(eq + 1) +
                         "' is not a number from 0 to " + std::to_string(max_sequence_length));
                    bad = true;
                } else {
                    cmd.lengths.emplace_back(word.substr(0, eq), std::to_string(n));
                    cmd.length_columns.push_back(column);
                }
                continue;
            }
            // "once" before the object's name, with the four words still to
            // come: an object may well be called once.
            if (info.verb == Verb::Bind && cmd.args.empty() && !cmd.once && word == "once" &&
                words.size() - w > 4) {
                cmd.once = true;
                continue;
            }
            if (info.verb == Verb::Invoke && cmd.args.empty() &&
                (word == "twoway" || word == "oneway" || word == "deferred")) {
                cmd.kind = word == "oneway"     ? CallKind::OneWay
                           : word == "deferred" ? CallKind::Deferred
                                                : CallKind::TwoWay;
                continue;
            }
            if ((info.verb == Verb::Invoke || info.verb == Verb::Wait) &&
                word.rfind("timeout=", 0) == 0) {
                if (!read_number(word.substr(8), 1, max_timeout_ms, cmd.timeout_ms)) {
                    fail("time-out '" + word.substr(8) +
                         "' is not a number of milliseconds above 0");
                    bad = true;
                }
                cmd.has_timeout = true;
                continue;
            }
            if ((info.verb == Verb::Invoke || info.verb == Verb::Wait) &&
                word.rfind("expect=", 0) == 0) {
                std::string what = word.substr(7);
                if (what == "ok")
                    cmd.expect_status = 0;
                else if (what == "system")
                    cmd.expect_status = 1;
                else if (what == "user")
                    cmd.expect_status = 2;
                else {
                    fail("expect= takes ok, system or user, not '" + what + "'");
                    bad = true;
                }
                continue;
            }
            if (info.verb == Verb::Data && !cmd.args.empty()) {
                if (word == "as" && w + 1 < words.size() && cmd.alias.empty()) {
                    cmd.alias = words[++w];
                    continue;
                }
                if (cmd.alias.empty() && w == 2 &&
                    (word == "sequential" || word == "random" || word == "unique")) {
                    cmd.row_mode = word == "random"   ? RowMode::Random
                                   : word == "unique" ? RowMode::Unique
                                                      : RowMode::Sequential;
                    continue;
                }
            }
            if (word.find("${") != std::string::npos) cmd.has_variables = true;
            cmd.args.push_back(word);
            cmd.columns.push_back(column);
        }
        if (!bad && cmd.args.size() < info.min_args) {
            column = static_cast<int>(line.find_last_not_of(" \t\r")) + 2;
            fail("missing argument; usage: " + std::string(info.usage));
            bad = true;
        } else if (!bad && cmd.args.size() > info.max_args) {
            column = cmd.columns[info.max_args];
            fail("too many arguments ('" + cmd.args[info.max_args] + "'); usage: " + info.usage);
            bad = true;
        } else if (!bad && info.verb == Verb::Check && cmd.args.size() == 3 &&
                   !is_check_operator(cmd.args[1])) {
            column = cmd.columns[1];
            fail("'" + cmd.args[1] +
                 "' is not a comparison: ==, !=, <, <=, >, >= or ~ (quote a value with blanks)");
            bad = true;
        } else if (!bad && !cmd.has_variables) {
            if (!cmd.columns.empty()) column = cmd.columns[0];
            if (!read_pause(cmd, why)) {
                fail(why);
                bad = true;
            }
        }
        cmd.broken = bad;
        script.commands.push_back(std::move(cmd));
    }
    if (seen[0] && !seen[1]) {
        // Without it every line after setup would run once, which is
        // never what a script with a set-up means.
        mistakes.add(file, setup_line, setup_column,
                     "a script with 'setup' needs an 'iteration' line: the lines after it repeat");
    }
    return mistakes.count() == mistakes_before;
}

bool parse_script(const std::string &file, const std::string &text, Script &script,
                  std::string &error) {
    Mistakes mistakes;
    if (parse_script(file, text, script, mistakes)) return true;
    error = mistakes.list().front();
    return false;
}

}  // namespace runner
