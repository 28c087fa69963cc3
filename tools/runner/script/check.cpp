#include "tools/runner/script/check.h"

#include <cstring>
#include <set>
#include <unordered_map>

#include "orbelle/host.h"
#include "orbelle/kinds.h"
#include "orbelle/limits.h"
#include "tools/runner/script/values.h"
#include "tools/runner/vars.h"

namespace runner {
namespace {

// The parameter list a line works on: null when it cannot be known before
// the run (no description, an unknown operation, an id from a variable).
struct Current {
    const ParmList *list = nullptr;
    std::string operation;
};

struct BoundAt {
    std::string repoid;  // empty when it comes from a variable
    int line = 0, column = 0;
};

// A variable that a data line sets: its file and column.
struct DataVariable {
    const DataFile *file;
    size_t column;
};

class Checker {
public:
    Checker(const Script &script, const DataFiles &data, Descriptions *descriptions,
            Mistakes &mistakes)
        : script_(script), data_(data), descriptions_(descriptions), mistakes_(mistakes) {}

    void run() {
        for (const Command &cmd : script_.commands) command(cmd);
        if (open_.empty()) return;
        // Name the latest begin whose transaction is still open.
        for (auto it = script_.commands.rbegin(); it != script_.commands.rend(); ++it)
            if (it->verb == Verb::Begin && open_.count(it->args[0])) {
                add(*it, 0, "transaction " + it->args[0] + " has no end");
                break;
            }
    }

private:
    void add(const Command &cmd, size_t arg, const std::string &message) {
        int column = arg < cmd.columns.size() ? cmd.columns[arg] : cmd.column;
        mistakes_.add(script_.file, cmd.line, column, message);
    }

    // The nearest names, unless the mistake will only be counted.
    std::string hint(const std::string &name, const std::vector<std::string> &candidates) const {
        return mistakes_.full() ? "" : did_you_mean(name, candidates);
    }

    void variables_used(const Command &cmd) {
        for (size_t a = 0; a < cmd.args.size(); ++a)
            for (const std::string &name : variable_names(cmd.args[a])) {
                long long min = 0, max = 0;
                if (name.rfind("RANDOM:", 0) == 0 && !random_bounds(name, min, max))
                    add(cmd, a, "'${" + name + "}' takes whole numbers MIN..MAX, MIN <= MAX");
                else if (!is_builtin(name) && !variables_.count(name) && !from_unread_data(name))
                    add(cmd, a,
                        "variable " + name +
                            " is used before it is set (neither the environment, let, save "
                            "nor a data line above sets it)" +
                            hint(name,
                                 std::vector<std::string>(variables_.begin(), variables_.end())));
            }
    }

    // A variable that let or save sets no longer holds a data column.
    void set_variable(const std::string &name) {
        variables_.insert(name);
        data_variables_.erase(name);
    }

    // Whether name may be a column of a data file that could not be read
    // (that file's mistake is reported already).
    bool from_unread_data(const std::string &name) const {
        if (unread_data_) return true;
        for (const std::string &alias : unread_aliases_)
            if (name.compare(0, alias.size() + 1, alias + ".") == 0) return true;
        return false;
    }

    // The parameter record name of cmd's argument arg in the current list,
    // or null after noting what is wrong; null too when it cannot be known.
    const ParmInfo *parameter(const Command &cmd, size_t arg) {
        const std::string &name = cmd.args[arg];
        if (current_.list == nullptr || name.find("${") != std::string::npos) return nullptr;
        const ParmInfo *p = current_.list->find(name);
        if (p == nullptr) {
            std::string nearest = hint(name, current_.list->names());
            if (nearest.empty() && name.find('[') != std::string::npos)
                nearest = " (a sequence has the elements its ^length in the params line gives)";
            add(cmd, arg,
                "no parameter named '" + name + "' in the list of " + current_.operation + nearest);
        }
        return p;
    }

    // The rows of a data file that fill value text as its only variable.
    void data_values(const Command &cmd, size_t arg, const ParmInfo &p) {
        const std::string &text = cmd.args[arg];
        std::vector<std::string> names = variable_names(text);
        if (names.size() != 1 || text != "${" + names[0] + "}") return;
        auto found = data_variables_.find(names[0]);
        if (found == data_variables_.end()) return;
        const DataFile &file = *found->second.file;
        const CsvTable &table = *file.table;
        for (size_t r = 0; r < table.rows.size(); ++r) {
            std::string problem = value_problem(p.type, table.rows[r][found->second.column]);
            if (problem.empty()) continue;
            mistakes_.add(file.path + ": row " + std::to_string(r + 1) + ", column " +
                          table.columns[found->second.column] + ": " + problem + " (" + p.name +
                          " takes it at " + script_.file + ":" + std::to_string(cmd.line) + ":" +
                          std::to_string(cmd.columns[arg]) + ")");
        }
    }

    void bind(const Command &cmd) {
        const std::string &id = cmd.args[1];
        bound_[cmd.args[0]] =
            BoundAt{id.find("${") == std::string::npos ? id : "", cmd.line, cmd.columns[1]};
    }

    // Whether the list holds the last element that length (base^length, N)
    // asks for: the library ends the list at a sequence given more elements
    // than its bound.
    static bool has_last_element(const ParmList &list,
                                 const std::pair<std::string, std::string> &length) {
        if (length.second == "0") return true;
        const std::string &name = length.first;
        std::string last = name.substr(0, name.size() - std::strlen("^length")) + "[" +
                           std::to_string(std::stol(length.second) - 1) + "]";
        for (const ParmInfo &p : list.parms)
            if (p.name.compare(0, last.size(), last) == 0 &&
                (p.name.size() == last.size() ||
                 std::strchr(".:[^", p.name[last.size()]) != nullptr))
                return true;
        return false;
    }

    void params(const Command &cmd) {
        current_ = Current{nullptr, cmd.args[1]};
        oneway_ = false;
        auto found = bound_.find(cmd.args[0]);
        if (found == bound_.end()) {
            add(cmd, 0, "object '" + cmd.args[0] + "' is not bound here: bind it first");
            return;
        }
        const std::string &operation = cmd.args[1];
        const BoundAt &at = found->second;
        if (descriptions_ == nullptr || at.repoid.empty() ||
            operation.find("${") != std::string::npos)
            return;
        if (!is_well_known(operation)) {
            std::string why;
            const Interface *ifc = descriptions_->find_interface(at.repoid, why);
            if (ifc == nullptr) {
                // Said once, where the id is written.
                if (reported_ids_.insert(at.repoid).second)
                    mistakes_.add(script_.file, at.line, at.column,
                                  why + hint(at.repoid, descriptions_->known_ids()));
                return;
            }
            const Operation *op = ifc->find(operation);
            if (op == nullptr) {
                add(cmd, 1,
                    "operation '" + operation + "' is not one of " + at.repoid +
                        hint(operation, ifc->operation_names()));
                return;
            }
            oneway_ = op->oneway;
        }
        current_.list = &descriptions_->parameters(at.repoid, operation, cmd.lengths);
        for (size_t i = 0; i < cmd.lengths.size(); ++i) {
            const ParmInfo *p = current_.list->find(cmd.lengths[i].first);
            if (p != nullptr && p->is_length()) {
                if (!has_last_element(*current_.list, cmd.lengths[i])) {
                    mistakes_.add(script_.file, cmd.line, cmd.length_columns[i],
                                  cmd.lengths[i].first + "=" + cmd.lengths[i].second +
                                      " is more elements than the description bounds the "
                                      "sequence to; the parameter list ends there");
                    current_.list = nullptr;  // the names behind it are not known
                    return;
                }
                continue;
            }
            std::vector<std::string> lengths;
            for (const ParmInfo &each : current_.list->parms)
                if (each.is_length() && lengths.size() < limits::max_suggestion_candidates)
                    lengths.push_back(each.name);
            mistakes_.add(script_.file, cmd.line, cmd.length_columns[i],
                          "'" + cmd.lengths[i].first + "' is not a sequence of " + operation +
                              hint(cmd.lengths[i].first, lengths));
        }
    }

    void set(const Command &cmd) {
        const ParmInfo *p = parameter(cmd, 0);
        if (p == nullptr) return;
        if (p->flags == PARM_OUT) {
            add(cmd, 0, p->name + " is an out value: the reply sets it, a script cannot");
            return;
        }
        if (!script_can_give(p->type)) {
            add(cmd, 0,
                p->name + " is of type " + type_name(p->type) +
                    ", which a script cannot give (the call would fail with MARSHAL)");
            return;
        }
        if (p->is_length()) {
            add(cmd, 0,
                p->name + " is a sequence's length: give it in the params line as " + p->name +
                    "=N");
            return;
        }
        if (cmd.args[1].find("${") == std::string::npos) {
            std::string problem = value_problem(p->type, cmd.args[1]);
            if (!problem.empty()) add(cmd, 1, problem + " (" + p->name + ")");
        } else {
            data_values(cmd, 1, *p);
        }
    }

    void check(const Command &cmd) {
        const ParmInfo *p = parameter(cmd, 0);
        if (p == nullptr) return;
        Expectation want = expectation_of(cmd.args);
        size_t value_arg = cmd.args.size() - 1;
        if (cmd.args[value_arg].find("${") == std::string::npos) {
            std::string problem = compare_problem(p->type, want.how, want.expected);
            if (!problem.empty()) add(cmd, value_arg, problem + " (" + p->name + ")");
        } else if (want.how != Compare::Matches) {
            data_values(cmd, value_arg, *p);
        }
    }

    // A line the parser found wrong: what it would have set is taken as
    // unknown, so that its mistake is not reported again on later lines.
    void broken(const Command &cmd) {
        if (cmd.verb == Verb::Invoke) deferred_[current_.operation] = current_;
        if (cmd.args.empty()) return;
        if (cmd.verb == Verb::Bind) bound_[cmd.args[0]] = BoundAt{};
        if (cmd.verb == Verb::Params) {
            have_list_ = true;
            current_ = Current{nullptr, cmd.args.size() > 1 ? cmd.args[1] : ""};
        }
        if (cmd.verb == Verb::Let) variables_.insert(cmd.args[0]);
        if (cmd.verb == Verb::Save && cmd.args.size() > 1) variables_.insert(cmd.args[1]);
        if (cmd.verb == Verb::Data) unread_data_ = true;
        if (cmd.verb == Verb::Begin) open_.insert(cmd.args[0]);
    }

    void command(const Command &cmd) {
        if (cmd.broken) return broken(cmd);
        variables_used(cmd);
        switch (cmd.verb) {
            case Verb::Bind:
                bind(cmd);
                break;
            case Verb::Params:
                have_list_ = true;
                params(cmd);
                break;
            case Verb::Release:
                if (!bound_.count(cmd.args[0]))
                    add(cmd, 0, "object '" + cmd.args[0] + "' is not bound here");
                break;
            case Verb::Set:
            case Verb::Invoke:
            case Verb::Check:
            case Verb::Print:
            case Verb::Save:
                if (!have_list_) {
                    add(cmd, 0, "no parameter list yet: use 'params' first");
                    break;
                }
                if (cmd.verb == Verb::Set) set(cmd);
                if (cmd.verb == Verb::Check) check(cmd);
                if ((cmd.verb == Verb::Print && !cmd.args.empty()) || cmd.verb == Verb::Save)
                    parameter(cmd, 0);
                if (cmd.verb == Verb::Save) set_variable(cmd.args[1]);
                if (cmd.verb == Verb::Invoke && cmd.kind == CallKind::Deferred)
                    deferred_[current_.operation] = current_;
                if (cmd.verb == Verb::Invoke && cmd.kind != CallKind::OneWay && oneway_ &&
                    current_.list != nullptr)
                    add(cmd, 0,
                        current_.operation +
                            " is one-way: no reply comes, so write 'invoke oneway'");
                break;
            case Verb::Poll:
            case Verb::Wait: {
                auto found = deferred_.find(cmd.args[0]);
                if (found == deferred_.end())
                    add(cmd, 0, "no deferred call of " + cmd.args[0] + " before this line");
                else
                    current_ = found->second;
                break;
            }
            case Verb::Let:
                set_variable(cmd.args[0]);
                break;
            case Verb::Data: {
                auto it = data_.find(cmd.line);
                if (it == data_.end() || it->second.table == nullptr) {
                    if (cmd.alias.empty())
                        unread_data_ = true;
                    else
                        unread_aliases_.insert(cmd.alias);
                    break;
                }
                const CsvTable &table = *it->second.table;
                for (size_t c = 0; c < table.columns.size(); ++c) {
                    std::string name =
                        cmd.alias.empty() ? table.columns[c] : cmd.alias + "." + table.columns[c];
                    variables_.insert(name);
                    data_variables_[name] = DataVariable{&it->second, c};
                }
                break;
            }
            case Verb::Begin:
                if (!open_.insert(cmd.args[0]).second)
                    add(cmd, 0, "transaction " + cmd.args[0] + " is already open");
                break;
            case Verb::End:
                if (!open_.erase(cmd.args[0]))
                    add(cmd, 0, "end " + cmd.args[0] + " without its begin");
                break;
            case Verb::Sleep:
            case Verb::Think:
            case Verb::Pace:
                break;
        }
    }

    const Script &script_;
    const DataFiles &data_;
    Descriptions *descriptions_;
    Mistakes &mistakes_;
    std::map<std::string, BoundAt> bound_;
    std::set<std::string> variables_, open_, reported_ids_, unread_aliases_;
    bool unread_data_ = false;
    std::unordered_map<std::string, DataVariable> data_variables_;
    std::map<std::string, Current> deferred_;
    Current current_;
    bool have_list_ = false;
    bool oneway_ = false;
};

}  // namespace

void check_script(const Script &script, const DataFiles &data, Descriptions *descriptions,
                  Mistakes &mistakes) {
    Checker(script, data, descriptions, mistakes).run();
}

bool check_script(const Script &script, const DataColumns &columns, std::string &error) {
    std::map<int, CsvTable> tables;
    DataFiles data;
    for (const auto &entry : columns) {
        tables[entry.first].columns = entry.second;
        data[entry.first] = DataFile{"", &tables[entry.first]};
    }
    Mistakes mistakes;
    check_script(script, data, nullptr, mistakes);
    if (mistakes.empty()) return true;
    error = mistakes.list().front();
    return false;
}

bool check_script(const Script &script, std::string &error) {
    return check_script(script, DataColumns{}, error);
}

}  // namespace runner
