#include "tests/interop/bank/bank_client.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "gtest/gtest.h"
#include "tests/support.h"

namespace bank {

namespace {
Outcome outcome_of(const iiop_record &r, int32_t result) {
    Outcome o;
    o.result = result;
    o.status = r.status;
    o.exception_index = r.exception_index;
    if (r.status_text) o.text = r.status_text;
    return o;
}
}  // namespace

Client::Client(const char *idl_dir) : host_(testsupport::linked_host()) {
    // BANK_TRACE=1 with corbadebug=1 shows the library's trace of a test.
    if (std::getenv("BANK_TRACE")) hostkit::set_echo(true);
    // The library reads interface descriptions from idl/ of the current
    // directory.
    unlink("idl");
    if (idl_dir == nullptr) idl_dir = ORBELLE_DEMO_DIR "/idl";
    if (symlink(idl_dir, "idl") != 0) ADD_FAILURE() << "cannot link idl/";
}

Client::~Client() {
    while (!handles_.empty()) release(handles_.back());
}

void *Client::bind(const std::string &repoid, const std::string &instance, const std::string &modus,
                   const char *ior, std::string *bound_modus, Outcome *outcome) {
    iiop_record r = hostkit::make_record(IIOP_BIND);
    std::string rid = repoid, inst = instance, mod = modus;
    std::string ior_text = ior ? ior : "";
    r.u.bind.repository_id = &rid[0];
    r.u.bind.instance_id = &inst[0];
    r.u.bind.ior = ior ? &ior_text[0] : nullptr;
    r.u.bind.modus = &mod[0];
    int32_t result = host_.call(r);
    if (outcome) *outcome = outcome_of(r, result);
    if (bound_modus) *bound_modus = r.u.bind.bound_modus ? r.u.bind.bound_modus : "";
    // A bind through a naming service sent one resolve request.
    if (result == 0 && r.u.bind.bound_modus &&
        std::strstr(r.u.bind.bound_modus, "NameService") != nullptr)
        count_requests(1);
    std::free(r.u.bind.bound_modus);
    std::free(r.status_text);
    if (result != 0) return nullptr;
    handles_.push_back(r.u.bind.objref);
    return r.u.bind.objref;
}

int32_t Client::release(void *objref) {
    for (auto it = handles_.begin(); it != handles_.end(); ++it)
        if (*it == objref) {
            handles_.erase(it);
            break;
        }
    iiop_record r = hostkit::make_record(IIOP_RELEASE);
    r.u.release.objref = objref;
    int32_t result = host_.call(r);
    std::free(r.status_text);
    return result;
}

Call::Call(Client &client, void *objref, const std::string &repoid, const std::string &operation,
           const std::map<std::string, std::string> &lengths)
    : client_(client), operation_(operation), repoid_(repoid) {
    for (const auto &l : lengths) plist_.set(l.first, l.second.c_str());
    client_.host().get_parms(req_, target_, repoid_.c_str(), operation_.c_str(), &plist_);
    target_.objref = objref;
}

// A reference read from a reply stays in its record as a handle of its own,
// which the host gives up like a bound one.
Call::~Call() {
    for (ScriptParm *p = req_.parms; p != nullptr; p = p->next)
        if (p->type == 14 && p->ptr != nullptr) client_.adopt(p->ptr);
    hostkit::free_list(req_.parms);
}

bool Call::has(const std::string &name) const {
    return hostkit::find(req_.parms, name.c_str()) != nullptr;
}

Call &Call::set(const std::string &name, const std::string &text) {
    if (!hostkit::set_value(req_.parms, name.c_str(), text.c_str()))
        ADD_FAILURE() << operation_ << " has no parameter record named " << name;
    return *this;
}

std::string Call::get(const std::string &name) const {
    ScriptParm *p = hostkit::find(req_.parms, name.c_str());
    if (p == nullptr) return "(no record)";
    return p->strval ? p->strval : "(no value)";
}

Outcome Call::run(int32_t op, int32_t timeout_ms) {
    iiop_record r = hostkit::make_record(op);
    r.u.invoke.req = &req_;
    r.timeout_ms = timeout_ms;
    int32_t result = client_.host().call(r);
    Outcome o = outcome_of(r, result);
    if (r.u.invoke.connect_host) o.connect_host = r.u.invoke.connect_host;
    o.connect_port = r.u.invoke.connect_port;
    std::free(r.u.invoke.connect_host);
    std::free(r.status_text);
    return o;
}

const PrimitiveEcho kPrimitiveEchoes[10] = {
    {"short", "echo_short", "-32768", "-32768", "32767", "32767"},
    {"long", "echo_long", "-2147483648", "-2147483648", "2147483647", "2147483647"},
    {"unsigned_short", "echo_ushort", "65535", "65535", "1", "1"},
    {"unsigned_long", "echo_ulong", "4294967295", "4294967295", "7", "7"},
    {"float", "echo_float", "1.5", "1.500000", "-0.25", "-0.250000"},
    {"double", "echo_double", "-2250.125", "-2250.125000", "1e10", "10000000000.000000"},
    {"boolean", "echo_boolean", "1", "1", "0", "0"},
    {"char", "echo_char", "Z", "Z", "y", "y"},
    {"octet", "echo_octet", "`ff`", "`ff`", "A", "A"},
    // A backquote travels as the byte 60 and comes back in hex with its
    // printable neighbour; a line feed comes back plain.
    {"string", "echo_string", "x`60`y", "`7860`y", "two`0a`lines", "two\nlines"},
};

Outcome Call::invoke(int32_t flags, int32_t timeout_ms) {
    req_.flags = flags;
    req_.request_id = client_.take_request_id();
    return run(IIOP_INVOKE, timeout_ms);
}

std::string direction(const Call &call, const std::string &name) {
    const ScriptParm *p = hostkit::find(call.parms(), name.c_str());
    if (p == nullptr) return "no such record";
    // Result records begin with ^, or, inside a sequence or struct result,
    // with the inner name alone.
    if (p->flags == PARM_OUT && (name[0] == '^' || name[0] == '.' || name[0] == '['))
        return "result";
    switch (p->flags) {
        case PARM_IN:
            return "in";
        case PARM_OUT:
            return "out";
        case PARM_INOUT:
            return "inout";
        default:
            return "flags " + std::to_string(p->flags);
    }
}

}  // namespace bank
