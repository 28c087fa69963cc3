// The iteration loop of a session, and the commands that do not call the
// library: variables, data rows, transactions and pauses. Every outcome
// is counted for the summary and sent to the event stream here.
#include <algorithm>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include "tools/runner/state.h"

namespace runner {
namespace {

double elapsed_ms(Clock::time_point since) {
    return std::chrono::duration<double, std::milli>(Clock::now() - since).count();
}

double percentile(const std::vector<double> &sorted, double p) {
    if (sorted.empty()) return 0;
    size_t i = static_cast<size_t>(p * static_cast<double>(sorted.size() - 1) + 0.5);
    return sorted[std::min(i, sorted.size() - 1)];
}

std::string folder_of(const std::string &file) {
    size_t slash = file.rfind('/');
    return slash == std::string::npos ? "" : file.substr(0, slash + 1);
}

bool stopped(const Options &options) { return options.stop != nullptr && *options.stop != 0; }

// Sleeps until then, or less when the user is stopped: a stop is seen
// within a tenth of a second.
void pause_until(Clock::time_point then, const Options &options) {
    constexpr auto slice = std::chrono::milliseconds(100);
    for (auto now = Clock::now(); now < then && !stopped(options); now = Clock::now())
        std::this_thread::sleep_for(options.stop ? std::min<Clock::duration>(then - now, slice)
                                                 : then - now);
}

void pause_ms(long ms, const Options &options) {
    if (ms > 0) pause_until(Clock::now() + std::chrono::milliseconds(ms), options);
}

}  // namespace

Session::State::State(hostkit::Host &host, std::vector<const Script *> scripts,
                      const Options &options, FILE *out, EventWriter *events)
    : host(host),
      scripts(std::move(scripts)),
      options(options),
      out(out),
      events(events),
      variables(std::random_device{}()) {}

void Session::State::tally(const Command *cmd, const Result &outcome) {
    // Set-up and tear-down count apart from the iterations.
    std::string prefixed;
    if (*prefix) prefixed.assign(prefix).append(outcome.name);
    const std::string_view name = *prefix ? std::string_view(prefixed) : outcome.name;
    if (outcome.kind != Kind::Iteration) {  // iterations are not rows of the table
        auto found = timings.find(name);
        if (found == timings.end()) {
            found = timings.emplace(std::string(name), Timings{}).first;
            timing_order.emplace_back(name);
        }
        Timings &t = found->second;
        ++t.count;
        if (outcome.kind == Kind::Check) t.timed = false;
        if (t.timed) t.ms.push_back(outcome.ms);
        if (!outcome.ok) ++t.failures;
    }
    if (!outcome.ok && (outcome.kind == Kind::Call || outcome.kind == Kind::Check)) {
        ++failures;
        for (auto &open : transactions) open.second.failed = true;
        if (failed_at.empty() && cmd) failed_at = where(*cmd);
    }
    if (events == nullptr || !events->is_open()) return;
    Event &e = event;  // reused: its texts keep their buffers
    e.t = epoch_ms();
    e.vu = options.vu;
    e.iter = iteration;
    static const char *const kinds[] = {"call", "check", "transaction", "iteration"};
    e.kind = kinds[static_cast<int>(outcome.kind)];
    e.name = name;
    if (script)
        e.script = script->file;
    else
        e.script.clear();
    e.line = cmd ? cmd->line : 0;
    e.ms = outcome.ms;
    e.wait_ms = outcome.kind == Kind::Transaction || outcome.kind == Kind::Iteration ? wait_ms : -1;
    e.ok = outcome.ok;
    e.has_status = outcome.has_status;
    e.status = outcome.status;
    e.index = outcome.index;
    e.error = outcome.error;
    events->write(e);
}

Step Session::State::script_error(const Command &cmd, const std::string &message) {
    std::fprintf(out, "%s: %s\n", where(cmd).c_str(), message.c_str());
    error = true;
    if (failed_at.empty()) failed_at = where(cmd) + ": " + message;
    return Step::Error;
}

void Session::State::end_transactions(const std::string &why) {
    for (auto &open : transactions) {
        const std::string name = "transaction " + open.first;
        Result o{Kind::Transaction, name, elapsed_ms(open.second.start)};
        o.ok = false;
        o.error = why;
        std::fprintf(out, "%-24s %-32s FAILED: %s  %.3f ms\n", "", name.c_str(), why.c_str(), o.ms);
        tally(nullptr, o);
    }
    transactions.clear();
}

Step Session::State::step(const Command &cmd, const Command &written) {
    switch (cmd.verb) {
        case Verb::Let:
            variables.set(cmd.args[0], cmd.args[1]);
            return Step::Next;
        case Verb::Data: {
            DataSource &source = data.at(&written);
            const CsvTable &table = source.table();
            size_t row = 0;
            size_t random_row = static_cast<size_t>(
                variables.uniform(0, static_cast<long long>(table.rows.size()) - 1));
            if (!source.next(random_row, row)) {
                std::fprintf(out, "%-24s no row of %s is left for user %d: the user stops\n",
                             where(cmd).c_str(), cmd.args[0].c_str(), options.vu);
                return Step::NoMoreRows;
            }
            for (size_t c = 0; c < table.columns.size(); ++c)
                variables.set(
                    cmd.alias.empty() ? table.columns[c] : cmd.alias + "." + table.columns[c],
                    table.rows[row][c]);
            return Step::Next;
        }
        case Verb::Begin:
            transactions[cmd.args[0]] = OpenTransaction{Clock::now(), false};
            return Step::Next;
        case Verb::End: {
            auto it = transactions.find(cmd.args[0]);
            if (it == transactions.end())
                return script_error(cmd, "end " + cmd.args[0] + " without its begin");
            const std::string name = "transaction " + cmd.args[0];
            Result o{Kind::Transaction, name, elapsed_ms(it->second.start)};
            o.ok = !it->second.failed;
            if (!o.ok) o.error = "a call or check inside failed";
            transactions.erase(it);
            if (!o.ok || !options.quiet)
                std::fprintf(out, "%-24s %-32s %s  %.3f ms\n", where(cmd).c_str(), name.c_str(),
                             o.ok ? "ok" : "FAILED: a call or check inside failed", o.ms);
            tally(&cmd, o);
            return Step::Next;
        }
        case Verb::Sleep:
            if (events) events->flush();
            pause_ms(cmd.number, options);
            return Step::Next;
        case Verb::Think:
            if (events && !options.no_think) events->flush();
            if (!options.no_think)
                pause_ms(static_cast<long>(variables.uniform(cmd.number, cmd.number_max)), options);
            return Step::Next;
        case Verb::Pace:
            pace_ms = cmd.number;
            return Step::Next;
        default:
            return call_step(cmd);
    }
}

void Session::State::summary() {
    std::fprintf(out, "\n%-34s %7s %8s %10s %10s %10s %10s\n", "operation", "count", "failed",
                 "min ms", "median ms", "p95 ms", "max ms");
    for (const std::string &name : timing_order) {
        Timings &t = timings[name];
        if (!t.timed || t.ms.empty()) {
            std::fprintf(out, "%-34s %7d %8d\n", name.c_str(), t.count, t.failures);
            continue;
        }
        std::sort(t.ms.begin(), t.ms.end());
        std::fprintf(out, "%-34s %7d %8d %10.3f %10.3f %10.3f %10.3f\n", name.c_str(), t.count,
                     t.failures, t.ms.front(), percentile(t.ms, 0.5), percentile(t.ms, 0.95),
                     t.ms.back());
    }
    std::fprintf(out, "%s: %d failure%s\n", failures ? "FAILED" : "OK", failures,
                 failures == 1 ? "" : "s");
}

Session::Session(hostkit::Host &host, std::vector<const Script *> scripts, const Options &options,
                 FILE *out, EventWriter *events)
    : state_(std::make_unique<State>(host, std::move(scripts), options, out, events)) {}

Session::~Session() = default;

bool Session::prepare(std::string &error) {
    State &s = *state_;
    Mistakes mistakes;
    Descriptions descriptions(s.host);
    for (const Script *script : s.scripts) {
        DataFiles files;
        for (const Command &cmd : script->commands) {
            if (cmd.verb != Verb::Data) continue;
            auto fail = [&](const std::string &message) {
                mistakes.add(script->file, cmd.line, cmd.columns[0], message);
            };
            if (cmd.has_variables) {
                fail("a data file's name cannot hold variables");
                continue;
            }
            if (cmd.row_mode == RowMode::Unique &&
                (s.options.vu < 1 || s.options.vu > s.options.users_total))
                fail("user " + std::to_string(s.options.vu) + " is not one of the " +
                     std::to_string(s.options.users_total) + " users that share the unique rows");
            std::string path = cmd.args[0];
            if (path[0] != '/') path = folder_of(script->file) + path;
            std::ifstream in(path, std::ios::binary);
            if (!in) {
                fail("cannot read data file " + path);
                continue;
            }
            std::stringstream text;
            text << in.rdbuf();
            CsvTable table;
            std::string why;
            if (!parse_csv(path, text.str(), table, why)) {
                mistakes.add(why);
                continue;
            }
            auto &source = s.data
                               .emplace(&cmd, DataSource(std::move(table), cmd.row_mode,
                                                         s.options.vu, s.options.users_total))
                               .first->second;
            files[cmd.line] = DataFile{path, &source.table()};
        }
        if (!s.options.checked) check_script(*script, files, &descriptions, mistakes);
    }
    error = mistakes.text();
    return mistakes.empty();
}

Session::Outcome Session::State::run_section(Section which) {
    failed_at.clear();
    error = false;  // a script error ends its iteration; a served user goes on
    for (const Script *each : scripts) {
        script = each;
        const auto [first, last] = each->section(which);
        for (const Command *written = first; written != last; ++written) {
            if (!tearing_down && stopped(options)) {
                transactions.clear();
                return Outcome::Stopped;
            }
            Command expanded;
            const Command *cmd = written;
            if (written->has_variables) {
                expanded = *written;
                std::string why;
                for (std::string &word : expanded.args) {
                    std::string value;
                    if (!variables.expand(word, value, why)) break;
                    word = std::move(value);
                }
                if (why.empty()) read_pause(expanded, why);
                if (!why.empty()) {
                    script_error(*written, why);
                    break;
                }
                cmd = &expanded;
            }
            Step next = step(*cmd, *written);
            if (next == Step::NoMoreRows) {
                transactions.clear();
                return Outcome::NoMoreRows;
            }
            if (next == Step::Error || !failed_at.empty()) break;
        }
        if (!failed_at.empty()) break;
    }
    static const char *const names[] = {"the set-up", "the iteration", "the tear-down"};
    if (!transactions.empty())
        end_transactions(std::string(names[static_cast<int>(which)]) + " ended at " + failed_at);
    return error ? Outcome::Error : !failed_at.empty() ? Outcome::Failed : Outcome::Ok;
}

Session::Outcome Session::set_up() {
    State &s = *state_;
    bool any = false;
    for (const Script *script : s.scripts) {
        auto [first, last] = script->section(Section::Setup);
        any = any || first != last;
    }
    if (!any) return Outcome::Ok;
    if (!s.options.quiet) std::fprintf(s.out, "-- set-up\n");
    s.iteration = 0;
    s.variables.set_user(s.options.vu, 0);
    s.prefix = "setup: ";
    Outcome outcome = s.run_section(Section::Setup);
    s.prefix = "";
    s.setup_failed = outcome == Outcome::Failed || outcome == Outcome::Error;
    if (s.setup_failed)
        std::fprintf(s.out, "%s: the set-up failed; this user runs no iteration\n",
                     s.failed_at.c_str());
    return outcome;
}

bool Session::set_up_failed() const { return state_->setup_failed; }

Session::Outcome Session::run_iteration(int iteration) {
    State &s = *state_;
    s.iteration = iteration;
    s.variables.set_user(s.options.vu, iteration);
    const auto start = Clock::now();
    Outcome result = s.run_section(Section::Iteration);
    if (result == Outcome::Stopped || result == Outcome::NoMoreRows) return result;
    Result o{Kind::Iteration, "iteration", elapsed_ms(start)};
    o.ok = result == Outcome::Ok;
    if (!o.ok) o.error = "ended at " + s.failed_at;
    s.tally(nullptr, o);
    return result;
}

void Session::tear_down() {
    State &s = *state_;
    bool any = false;
    for (const Script *script : s.scripts) {
        auto [first, last] = script->section(Section::Teardown);
        any = any || first != last;
    }
    if (!any) return;
    if (!s.options.quiet) std::fprintf(s.out, "-- tear-down\n");
    const bool had_error = s.error;
    const std::string failed_before = s.failed_at;
    s.iteration = 0;
    s.variables.set_user(s.options.vu, 0);
    s.prefix = "teardown: ";
    s.tearing_down = true;
    s.run_section(Section::Teardown);
    s.tearing_down = false;
    s.prefix = "";
    s.error = s.error || had_error;
    if (s.failed_at.empty()) s.failed_at = failed_before;
}

void Session::flush_events() {
    if (state_->events) state_->events->flush();
}

void Session::set_wait_ms(double ms) { state_->wait_ms = ms; }

long Session::pace_ms() const { return state_->pace_ms; }

void Session::finish() {
    state_->release_all();
    state_->summary();
}

int Session::exit_status() const { return state_->error ? 2 : state_->failures ? 1 : 0; }

const std::string &Session::failed_at() const { return state_->failed_at; }

int Session::run() {
    State &s = *state_;
    Outcome setup = set_up();
    if (setup != Outcome::Ok) {
        if (s.error) {
            s.release_all();
            return 2;
        }
        finish();
        return exit_status();
    }
    Clock::time_point last_start{};
    const int last = s.options.iterations;
    for (int i = 1; (last == 0 || i <= last) && !stopped(s.options); ++i) {
        if (i > 1 && s.pace_ms > 0) {
            if (s.events) s.events->flush();
            pause_until(last_start + std::chrono::milliseconds(s.pace_ms), s.options);
            if (stopped(s.options)) break;
        }
        last_start = Clock::now();
        if (last > 1 && !s.options.quiet) std::fprintf(s.out, "-- iteration %d of %d\n", i, last);
        Outcome outcome = run_iteration(i);
        if (outcome == Outcome::Error || outcome == Outcome::NoMoreRows ||
            outcome == Outcome::Stopped)
            break;
        if (outcome == Outcome::Failed && s.options.stop_on_error) break;
    }
    tear_down();
    if (s.error) {
        s.release_all();
        return 2;
    }
    finish();
    return exit_status();
}

int run_script(hostkit::Host &host, const Script &script, const Options &options, FILE *out,
               EventWriter *events) {
    Session session(host, {&script}, options, out, events);
    std::string error;
    if (!session.prepare(error)) {
        std::fprintf(out, "%s\n", error.c_str());
        return 2;
    }
    return session.run();
}

}  // namespace runner
