// The runner's script language: one command per line, parsed and checked
// as a whole before anything runs.
#ifndef ORBELLE_RUNNER_SCRIPT_H
#define ORBELLE_RUNNER_SCRIPT_H

#include <string>
#include <utility>
#include <vector>

namespace runner {

enum class Verb { Bind, Params, Set, Invoke, Poll, Wait, Check, Print, Release, Sleep };

enum class CallKind { TwoWay, OneWay, Deferred };

struct Command {
    Verb verb;
    int line = 0;
    std::vector<std::string> args;  // positional words after the verb
    // params: the sequence lengths, as name^length and value
    std::vector<std::pair<std::string, std::string>> lengths;
    CallKind kind = CallKind::TwoWay;  // invoke
    long timeout_ms = 0;               // invoke, wait; 0 is the library's default
    bool has_timeout = false;
    long number = 0;  // sleep
    // invoke, wait: the outcome the script expects; a call that ends so
    // counts as a success (0 none, 1 system exception, 2 user exception)
    int expect_status = 0;
};

struct Script {
    std::string file;
    std::vector<Command> commands;
};

// Splits a line into words: blanks separate, "double quotes" keep blanks
// (with \" and \\ inside), '#' outside quotes starts a comment. False with
// a message on an unterminated quote.
bool split_words(const std::string &line, std::vector<std::string> &words, std::string &error);

// Replaces every ${NAME} in text by the environment variable NAME. False
// with a message when one is not set or a "${" is not closed.
bool expand_variables(std::string &text, std::string &error);

// Parses a whole script text. On the first error returns false with
// "file:line: message" in error.
bool parse_script(const std::string &file, const std::string &text, Script &script,
                  std::string &error);

}  // namespace runner

#endif
