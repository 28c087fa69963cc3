#include <chrono>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <vector>

#include "tools/runner/script/values.h"
#include "tools/runner/state.h"

namespace runner {
namespace {

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

}  // namespace

void Session::State::report(const Command &cmd, const std::string &what, int32_t result,
                            const iiop_record &record, double ms, const std::string &extra) {
    Result outcome{Kind::Call, what, ms};
    const char *text = record.status_text ? record.status_text : "(no text)";
    outcome.status = record.status;
    outcome.index = record.exception_index;
    if (cmd.expect_status != 0) {
        // The script expects this exception: it is the success, anything
        // else a failure.
        bool as_expected = result != 0 && record.status == cmd.expect_status;
        if (as_expected) {
            if (!options.quiet)
                std::fprintf(out,
                             "%-24s %-32s ok, as expected: status %d, exception %d, %s  %.3f ms\n",
                             where(cmd).c_str(), what.c_str(), record.status,
                             record.exception_index, text, ms);
        } else if (result == 0) {
            outcome.ok = false;
            outcome.error = std::string("succeeded, but the script expected ") +
                            (cmd.expect_status == 1 ? "a system exception" : "a user exception");
            std::fprintf(out, "%-24s %-32s FAILED: %s  %.3f ms\n", where(cmd).c_str(), what.c_str(),
                         outcome.error.c_str(), ms);
        } else {
            outcome.ok = false;
            outcome.error = text;
            std::fprintf(
                out,
                "%-24s %-32s FAILED status %d, exception %d, %s (expected status %d)  %.3f ms\n",
                where(cmd).c_str(), what.c_str(), record.status, record.exception_index, text,
                cmd.expect_status, ms);
        }
    } else if (result != 0 && !(cmd.verb == Verb::Poll && result == 1)) {
        outcome.ok = false;
        outcome.error = text;
        std::fprintf(out, "%-24s %-32s FAILED status %d, exception %d, %s  %.3f ms\n",
                     where(cmd).c_str(), what.c_str(), record.status, record.exception_index, text,
                     ms);
    } else if (!options.quiet) {
        std::fprintf(out, "%-24s %-32s ok  %.3f ms%s%s\n", where(cmd).c_str(), what.c_str(), ms,
                     extra.empty() ? "" : "  ", extra.c_str());
    }
    outcome.has_status = !outcome.ok;
    tally(&cmd, outcome);
}

Step Session::State::call_step(const Command &cmd) {
    using clock = Clock;
    switch (cmd.verb) {
        case Verb::Bind: {
            BoundObject &obj = objects[cmd.args[0]];
            // Bound once for all iterations: nothing to do, nothing counted.
            if (cmd.once && obj.bound) return Step::Next;
            const bool has_ior = cmd.args.size() > 4;
            if (obj.bound && !options.fresh_binds && obj.repoid == cmd.args[1] &&
                obj.instance == cmd.args[2] && obj.modus == cmd.args[3] && obj.has_ior == has_ior &&
                (!has_ior || obj.ior == cmd.args[4])) {
                // The binding asked for is the one held: keep it and its
                // connection, as a client holds on to its object.
                if (!options.quiet)
                    std::fprintf(out, "%-24s %-32s kept: bound so already, nothing sent\n",
                                 where(cmd).c_str(), ("bind " + cmd.args[0]).c_str());
                return Step::Next;
            }
            if (obj.bound) {
                iiop_record rel = hostkit::make_record(IIOP_RELEASE);
                rel.u.release.objref = obj.target.objref;
                host.call(rel);
                std::free(rel.status_text);
                obj.bound = false;
            }
            obj.repoid = cmd.args[1];
            obj.instance = cmd.args[2];
            obj.modus = cmd.args[3];
            obj.has_ior = has_ior;
            obj.ior = has_ior ? cmd.args[4] : "";
            iiop_record r = hostkit::make_record(IIOP_BIND);
            r.u.bind.repository_id = const_cast<char *>(obj.repoid.c_str());
            r.u.bind.instance_id = const_cast<char *>(obj.instance.c_str());
            r.u.bind.ior = has_ior ? const_cast<char *>(obj.ior.c_str()) : nullptr;
            r.u.bind.modus = const_cast<char *>(obj.modus.c_str());
            auto start = clock::now();
            int32_t result = host.call(r);
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
            return Step::Next;
        }
        case Verb::Params: {
            BoundObject &obj = objects[cmd.args[0]];
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
            // The library reads the description once per interface,
            // operation and sequence lengths; later lists are copies.
            list_key.assign(obj.repoid).append(1, '\0').append(call->operation);
            for (const auto &len : cmd.lengths)
                list_key.append(1, '\0').append(len.first).append(1, '=').append(len.second);
            auto made = parm_lists.find(list_key);
            if (made != parm_lists.end()) {
                // A copy costs nothing worth counting; only the lists the
                // library made are rows of the summary and events.
                call->req.parms = hostkit::copy_list(made->second);
                if (!options.quiet)
                    std::fprintf(out, "%-24s %-32s ok, a copy  %.3f ms\n", where(cmd).c_str(),
                                 ("params " + call->operation).c_str(), elapsed_ms(start));
            } else {
                iiop_record r = hostkit::make_record(IIOP_GET_PARMS);
                r.u.get_parms.req = &call->req;
                int32_t result = host.call(r);
                if (result == 0 && call->req.parms != nullptr)
                    parm_lists.emplace(list_key, hostkit::copy_list(call->req.parms));
                double ms = elapsed_ms(start);
                size_t count = hostkit::names(call->req.parms).size();
                report(cmd, "params " + call->operation, result, r, ms,
                       std::to_string(count) + " parameter record" + (count == 1 ? "" : "s"));
                std::free(r.status_text);
            }
            current = std::move(call);
            return Step::Next;
        }
        case Verb::Set:
            if (!hostkit::set_value(current->req.parms, cmd.args[0].c_str(), cmd.args[1].c_str()))
                return script_error(cmd, "no parameter named '" + cmd.args[0] +
                                             "' in the list of " + current->operation);
            return Step::Next;
        case Verb::Invoke: {
            Call &call = *current;
            call.req.flags = cmd.kind == CallKind::OneWay     ? IIOP_ONEWAY
                             : cmd.kind == CallKind::Deferred ? IIOP_DEFERRED
                                                              : IIOP_TWOWAY;
            call.req.request_id = next_request_id()++;
            iiop_record r = hostkit::make_record(IIOP_INVOKE);
            r.u.invoke.req = &call.req;
            r.timeout_ms = cmd.has_timeout ? static_cast<int32_t>(cmd.timeout_ms) : 0;
            auto start = clock::now();
            int32_t result = host.call(r);
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
            call_name.assign("invoke ").append(call.operation).append(1, ' ');
            call_name.append(kind_name(cmd.kind));
            report(cmd, call_name, result, r, ms, extra);
            host.release_references(call.req.parms);
            std::free(r.u.invoke.connect_host);
            std::free(r.status_text);
            if (cmd.kind == CallKind::Deferred) {
                // The request block must outlive its stay on the library's
                // wait list; the script works on a copy of the list from now.
                deferred[call.operation].push_back(current);
            }
            return Step::Next;
        }
        case Verb::Poll:
        case Verb::Wait: {
            auto &pending = deferred[cmd.args[0]];
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
            int32_t result = host.call(r);
            double ms = elapsed_ms(start);
            const char *verb = cmd.verb == Verb::Poll ? "poll " : "wait ";
            std::string extra;
            if (cmd.verb == Verb::Poll) extra = result == 1 ? "reply is in" : "still waiting";
            report(cmd, verb + call.operation, result, r, ms, extra);
            host.release_references(call.req.parms);
            std::free(r.u.invoke.connect_host);
            std::free(r.status_text);
            // The call's list becomes current either way, so that check and
            // print see what the reply left (or that it left nothing). It
            // leaves the pending list only once the library is done with it.
            current = pending.back();
            bool done = cmd.verb == Verb::Wait ? result == 0 : result == 1;
            if (done) pending.pop_back();
            return Step::Next;
        }
        case Verb::Check: {
            ScriptParm *p = hostkit::find(current->req.parms, cmd.args[0].c_str());
            if (p == nullptr)
                return script_error(cmd, "no parameter named '" + cmd.args[0] +
                                             "' in the list of " + current->operation);
            const char *have = p->strval ? p->strval : "";
            call_name.assign("check ").append(cmd.args[0]);
            Result outcome{Kind::Check, call_name};
            Expectation want = expectation_of(cmd.args);
            std::string why;
            if (p->strval == nullptr) {
                // Only an empty text expects no value.
                outcome.ok = want.how == Compare::Equal && want.expected.empty();
                if (!outcome.ok)
                    outcome.error = "expected " + readable(p->type, want.expected) +
                                    ", got no value (" + type_name(p->type) + ")";
            } else if (!compare_values(p->type, want.how, have, want.expected, why)) {
                outcome.ok = false;
                outcome.error = why;
            }
            if (!outcome.ok) {
                std::fprintf(out, "%-24s check %s FAILED: %s\n", where(cmd).c_str(),
                             cmd.args[0].c_str(), outcome.error.c_str());
            } else if (!options.quiet) {
                // "= 'value'", or "'value' >= 1000" for the other comparisons.
                std::string shown = readable(p->type, have);
                if (want.how == Compare::Equal)
                    shown = "= " + shown;
                else
                    shown += std::string(" ") + compare_symbol(want.how) + " " + want.expected;
                std::fprintf(out, "%-24s check %s %s ok\n", where(cmd).c_str(), cmd.args[0].c_str(),
                             shown.c_str());
            }
            tally(&cmd, outcome);
            return Step::Next;
        }
        case Verb::Save: {
            ScriptParm *p = hostkit::find(current->req.parms, cmd.args[0].c_str());
            if (p == nullptr)
                return script_error(cmd, "no parameter named '" + cmd.args[0] +
                                             "' in the list of " + current->operation);
            if (p->strval == nullptr)
                return script_error(cmd, cmd.args[0] + " has no value to save in " + cmd.args[1]);
            variables.set(cmd.args[1], p->strval);
            return Step::Next;
        }
        case Verb::Print: {
            if (!cmd.args.empty()) {
                ScriptParm *p = hostkit::find(current->req.parms, cmd.args[0].c_str());
                if (p == nullptr)
                    return script_error(cmd, "no parameter named '" + cmd.args[0] +
                                                 "' in the list of " + current->operation);
                std::fprintf(out, "    %s = %s\n", p->name, p->strval ? p->strval : "(no value)");
                return Step::Next;
            }
            static const char *const dirs[] = {"?", "in", "out", "inout"};
            for (ScriptParm *p = current->req.parms; p; p = p->next)
                std::fprintf(out, "    %-5s %-28s = %s\n",
                             p->flags >= 1 && p->flags <= 3 ? dirs[p->flags] : "?",
                             p->name ? p->name : "(null)", p->strval ? p->strval : "(no value)");
            return Step::Next;
        }
        case Verb::Release: {
            BoundObject &obj = objects[cmd.args[0]];
            if (!obj.bound) {
                if (!options.quiet)
                    std::fprintf(out, "%-24s %-32s skipped: not bound\n", where(cmd).c_str(),
                                 ("release " + cmd.args[0]).c_str());
                return Step::Next;
            }
            iiop_record r = hostkit::make_record(IIOP_RELEASE);
            r.u.release.objref = obj.target.objref;
            auto start = clock::now();
            int32_t result = host.call(r);
            double ms = elapsed_ms(start);
            report(cmd, "release " + cmd.args[0], result, r, ms);
            std::free(r.status_text);
            obj.bound = false;
            obj.target.objref = nullptr;
            return Step::Next;
        }
        default:
            break;
    }
    return Step::Next;
}

void Session::State::release_all() {
    for (auto &entry : deferred)
        for (auto &call : entry.second) kept_for_library().push_back(call);
    deferred.clear();
    for (auto &entry : objects) {
        if (!entry.second.bound) continue;
        iiop_record r = hostkit::make_record(IIOP_RELEASE);
        r.u.release.objref = entry.second.target.objref;
        host.call(r);
        std::free(r.status_text);
        entry.second.bound = false;
    }
}

}  // namespace runner
