// The runner's script language: one command per line, parsed and checked
// as a whole before anything runs.
#ifndef ORBELLE_RUNNER_SCRIPT_H
#define ORBELLE_RUNNER_SCRIPT_H

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tools/runner/csv.h"
#include "tools/runner/script/mistakes.h"

namespace runner {

enum class Verb {
    Bind,
    Params,
    Set,
    Invoke,
    Poll,
    Wait,
    Check,
    Print,
    Release,
    Sleep,
    Save,
    Let,
    Data,
    Begin,
    End,
    Think,
    Pace
};

enum class CallKind { TwoWay, OneWay, Deferred };

struct Command {
    Verb verb;
    int line = 0;
    int column = 1;                 // where the command's name starts
    std::vector<std::string> args;  // positional words after the verb
    std::vector<int> columns;       // where each of args starts, from 1
    // params: the column of each of lengths
    std::vector<int> length_columns;
    // params: the sequence lengths, as name^length and value
    std::vector<std::pair<std::string, std::string>> lengths;
    CallKind kind = CallKind::TwoWay;  // invoke
    long timeout_ms = 0;               // invoke, wait; 0 is the library's default
    bool has_timeout = false;
    long number = 0;                         // sleep, pace; think: the shortest pause
    long number_max = 0;                     // think: the longest pause
    RowMode row_mode = RowMode::Sequential;  // data
    std::string alias;                       // data: NAME of "as NAME"
    bool has_variables = false;              // some word holds ${NAME}
    // bind once: the object stays bound from the first time on; the line
    // does nothing while it is
    bool once = false;
    // A line with a mistake, kept so that the check knows what it meant
    // (an object bound, a variable set); a script with one never runs.
    bool broken = false;
    // invoke, wait: the outcome the script expects; a call that ends so
    // counts as a success (0 none, 1 system exception, 2 user exception)
    int expect_status = 0;
};

// The parts of a script. Set-up runs once before a user's first
// iteration, the iteration repeats, tear-down runs once after the last.
// A script without the lines "setup", "iteration" and "teardown" is all
// iteration.
enum class Section { Setup, Iteration, Teardown };

struct Script {
    std::string file;
    // Set-up, iteration and tear-down, in this order, as written.
    std::vector<Command> commands;
    size_t iteration_from = 0;        // where the iteration's commands start
    size_t teardown_from = SIZE_MAX;  // where tear-down's start (none: the end)

    // The commands of one section, as [first, last).
    std::pair<const Command *, const Command *> section(Section which) const {
        const Command *all = commands.data();
        const size_t end = commands.size();
        const size_t from = std::min(iteration_from, end), to = std::min(teardown_from, end);
        switch (which) {
            case Section::Setup:
                return {all, all + from};
            case Section::Iteration:
                return {all + from, all + to};
            default:
                return {all + to, all + end};
        }
    }
};

// Splits a line into words: blanks separate, "double quotes" keep blanks
// (with \" and \\ inside), '#' outside quotes starts a comment. False with
// a message on an unterminated quote. columns (when given) gets the column,
// from 1, at which each word starts.
bool split_words(const std::string &line, std::vector<std::string> &words, std::string &error,
                 std::vector<int> *columns = nullptr);

// Replaces every ${NAME} in text by the environment variable NAME when it
// is set; other names stay for the script's own variables. False with a
// message when a "${" is not closed.
bool expand_environment(std::string &text, std::string &error);

// Reads the milliseconds of sleep, think and pace from args[0]; false with
// a message when they are not a number (or range) up to an hour.
bool read_pause(Command &cmd, std::string &error);

// Parses a whole script text. A line with a mistake is left out and the
// parse goes on, so that every mistake is in mistakes ("file:line:column:
// message"); false when there was one. Numbers written with ${NAME} are read
// when the line runs.
bool parse_script(const std::string &file, const std::string &text, Script &script,
                  Mistakes &mistakes);
// The same, with the first mistake's text in error.
bool parse_script(const std::string &file, const std::string &text, Script &script,
                  std::string &error);

}  // namespace runner

#endif
