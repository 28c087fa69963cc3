#include "tools/runner/run.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <vector>

namespace runner {
namespace {

struct BoundObject {
    iiop_target target{};
    std::string repoid, instance, ior;
    bool bound = false;
};

// One parameter list and the request block it travels in. A deferred call
// keeps both alive until its reply has been dealt with.
struct Call {
    std::string operation;
    std::string object;
    iiop_req req{};
    hostkit::Plist plist;
    ~Call() { hostkit::free_list(req.parms); }
};

struct Timings {
    std::vector<double> ms;
    int failures = 0;
};

class Runner {
public:
    Runner(hostkit::Host &host, const Script &script, const Options &options, FILE *out)
        : host_(host), script_(script), options_(options), out_(out) {}

    int run();

private:
    bool step(const Command &cmd);  // false: the script cannot go on
    void report(const Command &cmd, const std::string &what, int32_t result,
                const iiop_record &record, double ms, const std::string &extra = "");
    std::string where(const Command &cmd) const {
        return script_.file + ":" + std::to_string(cmd.line);
    }
    bool script_error(const Command &cmd, const std::string &message) {
        std::fprintf(out_, "%s: %s\n", where(cmd).c_str(), message.c_str());
        return false;
    }
    void release_all();
    void summary();

    hostkit::Host &host_;
    const Script &script_;
    const Options &options_;
    FILE *out_;
    std::map<std::string, BoundObject> objects_;
    std::shared_ptr<Call> current_;
    // Deferred calls whose replies have not been fetched, per operation,
    // oldest first. The library keeps pointers to their request blocks.
    std::map<std::string, std::list<std::shared_ptr<Call>>> deferred_;
    std::map<std::string, Timings> timings_;
    std::vector<std::string> timing_order_;
    int failures_ = 0;
};

// The library numbers GIOP requests from 0 in each process, one for every
// Request written; the runner counts along to give deferred requests their
// ids. The count spans every script of the run.
int32_t &next_request_id() {
    static int32_t next = 0;
    return next;
}

// Request blocks of deferred calls whose replies never came stay on the
// library's wait list for the life of the process; they are kept here.
std::vector<std::shared_ptr<Call>> &kept_for_library() {
    static std::vector<std::shared_ptr<Call>> kept;
    return kept;
}

double elapsed_ms(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - since)
        .count();
}

const char *kind_name(CallKind kind) {
    switch (kind) {
        case CallKind::OneWay:
            return "oneway";
        case CallKind::Deferred:
            return "deferred";
        default:
            return "twoway";
    }
}

void Runner::report(const Command &cmd, const std::string &what, int32_t result,
                    const iiop_record &record, double ms, const std::string &extra) {
    auto &t = timings_[what];
    if (t.ms.empty() && t.failures == 0) timing_order_.push_back(what);
    t.ms.push_back(ms);
    bool failed = result != 0 && !(cmd.verb == Verb::Poll && result == 1);
    if (cmd.expect_status != 0) {
        // The script expects this exception: it is the success, anything
        // else a failure.
        bool as_expected = result != 0 && record.status == cmd.expect_status;
        if (as_expected) {
            if (!options_.quiet)
                std::fprintf(
                    out_, "%-24s %-32s ok, as expected: status %d, exception %d, %s  %.3f ms\n",
                    where(cmd).c_str(), what.c_str(), record.status, record.exception_index,
                    record.status_text ? record.status_text : "(no text)", ms);
            return;
        }
        ++t.failures;
        ++failures_;
        if (result == 0)
            std::fprintf(out_,
                         "%-24s %-32s FAILED: succeeded, but the script expected %s  %.3f ms\n",
                         where(cmd).c_str(), what.c_str(),
                         cmd.expect_status == 1 ? "a system exception" : "a user exception", ms);
        else
            std::fprintf(
                out_,
                "%-24s %-32s FAILED status %d, exception %d, %s (expected status %d)  %.3f ms\n",
                where(cmd).c_str(), what.c_str(), record.status, record.exception_index,
                record.status_text ? record.status_text : "(no text)", cmd.expect_status, ms);
        return;
    }
    if (failed) {
        ++t.failures;
        ++failures_;
        std::fprintf(out_, "%-24s %-32s FAILED status %d, exception %d, %s  %.3f ms\n",
                     where(cmd).c_str(), what.c_str(), record.status, record.exception_index,
                     record.status_text ? record.status_text : "(no text)", ms);
    } else if (!options_.quiet) {
        std::fprintf(out_, "%-24s %-32s ok  %.3f ms%s%s\n", where(cmd).c_str(), what.c_str(), ms,
                     extra.empty() ? "" : "  ", extra.c_str());
    }
}

bool Runner::step(const Command &cmd) {
    using clock = std::chrono::steady_clock;
    switch (cmd.verb) {
        case Verb::Bind: {
            BoundObject &obj = objects_[cmd.args[0]];
            if (obj.bound) {
                iiop_record rel = hostkit::make_record(IIOP_RELEASE);
                rel.u.release.objref = obj.target.objref;
                host_.call(rel);
                std::free(rel.status_text);
                obj.bound = false;
            }
            obj.repoid = cmd.args[1];
            obj.instance = cmd.args[2];
            obj.ior = cmd.args.size() > 4 ? cmd.args[4] : "";
            iiop_record r = hostkit::make_record(IIOP_BIND);
            r.u.bind.repository_id = const_cast<char *>(obj.repoid.c_str());
            r.u.bind.instance_id = const_cast<char *>(obj.instance.c_str());
            r.u.bind.ior = cmd.args.size() > 4 ? const_cast<char *>(obj.ior.c_str()) : nullptr;
            std::string modus = cmd.args[3];
            r.u.bind.modus = const_cast<char *>(modus.c_str());
            auto start = clock::now();
            int32_t result = host_.call(r);
            double ms = elapsed_ms(start);
            std::string extra;
            if (result == 0) {
                obj.bound = true;
                obj.target = iiop_target{};
                obj.target.repoid = const_cast<char *>(obj.repoid.c_str());
                obj.target.instance_id = const_cast<char *>(obj.instance.c_str());
                obj.target.ior = const_cast<char *>(obj.ior.c_str());
                obj.target.objref = r.u.bind.objref;
                if (r.u.bind.bound_modus) {
                    extra = std::string("bound by ") + r.u.bind.bound_modus;
                    // A naming service's resolve is one more GIOP request.
                    if (std::strncmp(r.u.bind.bound_modus, "NameService", 11) == 0 ||
                        std::strncmp(r.u.bind.bound_modus, "VisibrokerNameService", 21) == 0)
                        ++next_request_id();
                }
            }
            report(cmd, "bind " + cmd.args[0], result, r, ms, extra);
            std::free(r.u.bind.bound_modus);
            std::free(r.status_text);
            return true;
        }
        case Verb::Params: {
            BoundObject &obj = objects_[cmd.args[0]];
            auto call = std::make_unique<Call>();
            call->operation = cmd.args[1];
            call->object = cmd.args[0];
            for (const auto &len : cmd.lengths) call->plist.set(len.first, len.second.c_str());
            auto start = clock::now();
            iiop_target &target = obj.target;
            if (!obj.bound) {
                target = iiop_target{};
                target.repoid = const_cast<char *>(obj.repoid.c_str());
            }
            call->req.target = &target;
            call->req.operation = const_cast<char *>(call->operation.c_str());
            call->req.plist = call->plist.entries();
            call->req.plist_count = call->plist.count();
            iiop_record r = hostkit::make_record(IIOP_GET_PARMS);
            r.u.get_parms.req = &call->req;
            int32_t result = host_.call(r);
            double ms = elapsed_ms(start);
            size_t count = hostkit::names(call->req.parms).size();
            report(cmd, "params " + call->operation, result, r, ms,
                   std::to_string(count) + " parameter record" + (count == 1 ? "" : "s"));
            current_ = std::move(call);
            return true;
        }
        case Verb::Set:
            if (!hostkit::set_value(current_->req.parms, cmd.args[0].c_str(), cmd.args[1].c_str()))
                return script_error(cmd, "no parameter named '" + cmd.args[0] +
                                             "' in the list of " + current_->operation);
            return true;
        case Verb::Invoke: {
            Call &call = *current_;
            call.req.flags = cmd.kind == CallKind::OneWay     ? IIOP_ONEWAY
                             : cmd.kind == CallKind::Deferred ? IIOP_DEFERRED
                                                              : IIOP_TWOWAY;
            call.req.request_id = next_request_id()++;
            iiop_record r = hostkit::make_record(IIOP_INVOKE);
            r.u.invoke.req = &call.req;
            r.timeout_ms = cmd.has_timeout ? static_cast<int32_t>(cmd.timeout_ms) : 0;
            auto start = clock::now();
            int32_t result = host_.call(r);
            double ms = elapsed_ms(start);
            std::string extra;
            if (result == 0 && r.u.invoke.connect_host)
                extra = "connected to " + std::string(r.u.invoke.connect_host) + ":" +
                        std::to_string(r.u.invoke.connect_port);
            if (cmd.kind == CallKind::Deferred && cmd.expect_status == 0) {
                // A deferred call waits for its reply like a two-way one. When
                // the wait runs out (COMM_FAILURE, index 4) the request stays
                // pending, which is what a deferred call is for; when the reply
                // comes in time its values are not read, and poll and wait will
                // find nothing more.
                if (result != 0 && r.status == IIOP_STATUS_SYSTEM_EXCEPTION &&
                    r.exception_index == 4) {
                    result = 0;
                    extra = "sent; the reply is still to come";
                } else if (result == 0) {
                    extra =
                        "the reply came during the call and its values were not read; "
                        "give the call a shorter time-out";
                }
            }
            report(cmd, "invoke " + call.operation + " " + kind_name(cmd.kind), result, r, ms,
                   extra);
            std::free(r.u.invoke.connect_host);
            std::free(r.status_text);
            if (cmd.kind == CallKind::Deferred) {
                // The request block must outlive its stay on the library's
                // wait list; the script works on a copy of the list from now.
                deferred_[call.operation].push_back(current_);
            }
            return true;
        }
        case Verb::Poll:
        case Verb::Wait: {
            auto &pending = deferred_[cmd.args[0]];
            if (pending.empty())
                return script_error(cmd, "no deferred call of " + cmd.args[0] + " is waiting");
            // poll and wait refer to the latest deferred call of the
            // operation; older ones stay pending.
            Call &call = *pending.back();
            iiop_record r = hostkit::make_record(IIOP_GET_RESPONSE);
            r.u.invoke.req = &call.req;
            r.timeout_ms = cmd.verb == Verb::Poll
                               ? 0
                               : static_cast<int32_t>(cmd.has_timeout ? cmd.timeout_ms : 300000);
            auto start = clock::now();
            int32_t result = host_.call(r);
            double ms = elapsed_ms(start);
            const char *verb = cmd.verb == Verb::Poll ? "poll " : "wait ";
            std::string extra;
            if (cmd.verb == Verb::Poll) extra = result == 1 ? "reply is in" : "still waiting";
            report(cmd, verb + call.operation, result, r, ms, extra);
            std::free(r.u.invoke.connect_host);
            std::free(r.status_text);
            // The call's list becomes current either way, so that check and
            // print see what the reply left (or that it left nothing). It
            // leaves the pending list only once the library is done with it.
            current_ = pending.back();
            bool done = cmd.verb == Verb::Wait ? result == 0 : result == 1;
            if (done) pending.pop_back();
            return true;
        }
        case Verb::Check: {
            ScriptParm *p = hostkit::find(current_->req.parms, cmd.args[0].c_str());
            if (p == nullptr)
                return script_error(cmd, "no parameter named '" + cmd.args[0] +
                                             "' in the list of " + current_->operation);
            const char *have = p->strval ? p->strval : "";
            if (cmd.args[1] != have) {
                ++failures_;
                ++timings_["check"].failures;
                std::fprintf(out_, "%-24s check %s FAILED: expected '%s', got '%s'\n",
                             where(cmd).c_str(), cmd.args[0].c_str(), cmd.args[1].c_str(),
                             p->strval ? p->strval : "(no value)");
            } else if (!options_.quiet) {
                std::fprintf(out_, "%-24s check %s = '%s' ok\n", where(cmd).c_str(),
                             cmd.args[0].c_str(), have);
            }
            return true;
        }
        case Verb::Print: {
            if (!cmd.args.empty()) {
                ScriptParm *p = hostkit::find(current_->req.parms, cmd.args[0].c_str());
                if (p == nullptr)
                    return script_error(cmd, "no parameter named '" + cmd.args[0] +
                                                 "' in the list of " + current_->operation);
                std::fprintf(out_, "    %s = %s\n", p->name, p->strval ? p->strval : "(no value)");
                return true;
            }
            static const char *const dirs[] = {"?", "in", "out", "inout"};
            for (ScriptParm *p = current_->req.parms; p; p = p->next)
                std::fprintf(out_, "    %-5s %-28s = %s\n",
                             p->flags >= 1 && p->flags <= 3 ? dirs[p->flags] : "?",
                             p->name ? p->name : "(null)", p->strval ? p->strval : "(no value)");
            return true;
        }
        case Verb::Release: {
            BoundObject &obj = objects_[cmd.args[0]];
            if (!obj.bound) {
                if (!options_.quiet)
                    std::fprintf(out_, "%-24s %-32s skipped: not bound\n", where(cmd).c_str(),
                                 ("release " + cmd.args[0]).c_str());
                return true;
            }
            iiop_record r = hostkit::make_record(IIOP_RELEASE);
            r.u.release.objref = obj.target.objref;
            auto start = clock::now();
            int32_t result = host_.call(r);
            double ms = elapsed_ms(start);
            report(cmd, "release " + cmd.args[0], result, r, ms);
            std::free(r.status_text);
            obj.bound = false;
            obj.target.objref = nullptr;
            return true;
        }
        case Verb::Sleep:
            std::this_thread::sleep_for(std::chrono::milliseconds(cmd.number));
            return true;
    }
    return true;
}

void Runner::release_all() {
    for (auto &entry : deferred_)
        for (auto &call : entry.second) kept_for_library().push_back(call);
    deferred_.clear();
    for (auto &entry : objects_) {
        if (!entry.second.bound) continue;
        iiop_record r = hostkit::make_record(IIOP_RELEASE);
        r.u.release.objref = entry.second.target.objref;
        host_.call(r);
        std::free(r.status_text);
        entry.second.bound = false;
    }
}

double percentile(std::vector<double> sorted, double p) {
    if (sorted.empty()) return 0;
    size_t i = static_cast<size_t>(p * static_cast<double>(sorted.size() - 1) + 0.5);
    return sorted[std::min(i, sorted.size() - 1)];
}

void Runner::summary() {
    std::fprintf(out_, "\n%-34s %7s %8s %10s %10s %10s %10s\n", "operation", "count", "failed",
                 "min ms", "median ms", "p95 ms", "max ms");
    for (const std::string &name : timing_order_) {
        Timings t = timings_[name];
        std::sort(t.ms.begin(), t.ms.end());
        std::fprintf(out_, "%-34s %7zu %8d %10.3f %10.3f %10.3f %10.3f\n", name.c_str(),
                     t.ms.size(), t.failures, t.ms.front(), percentile(t.ms, 0.5),
                     percentile(t.ms, 0.95), t.ms.back());
    }
    if (timings_.count("check") && timings_["check"].failures)
        std::fprintf(out_, "%-34s %7s %8d\n", "check", "", timings_["check"].failures);
    std::fprintf(out_, "%s: %d failure%s\n", failures_ ? "FAILED" : "OK", failures_,
                 failures_ == 1 ? "" : "s");
}

int Runner::run() {
    for (int i = 0; i < options_.iterations; ++i) {
        if (options_.iterations > 1 && !options_.quiet)
            std::fprintf(out_, "-- iteration %d of %d\n", i + 1, options_.iterations);
        for (const Command &cmd : script_.commands) {
            if (!step(cmd)) {
                release_all();
                return 2;
            }
        }
    }
    release_all();
    summary();
    return failures_ == 0 ? 0 : 1;
}

}  // namespace

bool check_script(const Script &script, std::string &error) {
    std::set<std::string> bound, deferred;
    bool have_list = false;
    for (const Command &cmd : script.commands) {
        auto fail = [&](const std::string &message) {
            error = script.file + ":" + std::to_string(cmd.line) + ": " + message;
            return false;
        };
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
                if (!have_list) return fail("no parameter list yet: use 'params' first");
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
            case Verb::Sleep:
                break;
        }
    }
    return true;
}

int run_script(hostkit::Host &host, const Script &script, const Options &options, FILE *out) {
    Runner runner(host, script, options, out);
    return runner.run();
}

}  // namespace runner
