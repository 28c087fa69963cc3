#include <map>
#include <set>

#include "tools/runner/run.h"
#include "tools/runner/vars.h"

namespace runner {

bool check_script(const Script &script, const DataColumns &columns, std::string &error) {
    std::set<std::string> bound, deferred, variables, open_transactions;
    bool have_list = false;
    const Command *last_begin = nullptr;
    for (const Command &cmd : script.commands) {
        auto fail = [&](const std::string &message) {
            error = script.file + ":" + std::to_string(cmd.line) + ": " + message;
            return false;
        };
        for (const std::string &word : cmd.args)
            for (const std::string &name : variable_names(word)) {
                long long min = 0, max = 0;
                if (name.rfind("RANDOM:", 0) == 0 && !random_bounds(name, min, max))
                    return fail("'${" + name + "}' takes whole numbers MIN..MAX, MIN <= MAX");
                if (!is_builtin(name) && !variables.count(name))
                    return fail("variable " + name +
                                " is used before it is set (neither the environment, "
                                "let, save nor a data line above sets it)");
            }
        switch (cmd.verb) {
            case Verb::Bind:
                bound.insert(cmd.args[0]);
                break;
            case Verb::Params:
                if (!bound.count(cmd.args[0]))
                    return fail("object '" + cmd.args[0] + "' is not bound here: bind it first");
                have_list = true;
                break;
            case Verb::Release:
                if (!bound.count(cmd.args[0]))
                    return fail("object '" + cmd.args[0] + "' is not bound here");
                break;
            case Verb::Set:
            case Verb::Invoke:
            case Verb::Check:
            case Verb::Print:
            case Verb::Save:
                if (!have_list) return fail("no parameter list yet: use 'params' first");
                if (cmd.verb == Verb::Save) variables.insert(cmd.args[1]);
                if (cmd.verb == Verb::Invoke && cmd.kind == CallKind::Deferred) {
                    // The operation's name is known only from the last params.
                    for (auto it = script.commands.rbegin(); it != script.commands.rend(); ++it)
                        if (it->line < cmd.line && it->verb == Verb::Params) {
                            deferred.insert(it->args[1]);
                            break;
                        }
                }
                break;
            case Verb::Poll:
            case Verb::Wait:
                if (!deferred.count(cmd.args[0]))
                    return fail("no deferred call of " + cmd.args[0] + " before this line");
                break;
            case Verb::Let:
                variables.insert(cmd.args[0]);
                break;
            case Verb::Data: {
                auto it = columns.find(cmd.line);
                if (it == columns.end()) break;
                for (const std::string &column : it->second)
                    variables.insert(cmd.alias.empty() ? column : cmd.alias + "." + column);
                break;
            }
            case Verb::Begin:
                if (!open_transactions.insert(cmd.args[0]).second)
                    return fail("transaction " + cmd.args[0] + " is already open");
                last_begin = &cmd;
                break;
            case Verb::End:
                if (!open_transactions.erase(cmd.args[0]))
                    return fail("end " + cmd.args[0] + " without its begin");
                break;
            case Verb::Sleep:
            case Verb::Think:
            case Verb::Pace:
                break;
        }
    }
    if (!open_transactions.empty()) {
        // Name the latest begin whose transaction is still open.
        for (auto it = script.commands.rbegin(); it != script.commands.rend(); ++it)
            if (it->verb == Verb::Begin && open_transactions.count(it->args[0])) {
                last_begin = &*it;
                break;
            }
        error = script.file + ":" + std::to_string(last_begin->line) + ": transaction " +
                last_begin->args[0] + " has no end";
        return false;
    }
    return true;
}

bool check_script(const Script &script, std::string &error) {
    return check_script(script, DataColumns{}, error);
}

}  // namespace runner
