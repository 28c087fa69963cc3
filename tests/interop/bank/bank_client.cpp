#include "tests/interop/bank/bank_client.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "gtest/gtest.h"
#include "tests/support.h"

namespace bank {

namespace {
// What the door reported in r; its status text goes back to the heap.
Outcome outcome_of(iiop_record &r, int32_t result) {
    Outcome o{result, r.status, r.exception_index, r.status_text ? r.status_text : "", "", 0};
    std::free(r.status_text);
    return o;
}
}  // namespace

Client::Client(const char *idl_dir) : host_(testsupport::linked_host()) {
    // BANK_TRACE=1 with corbadebug=1 shows the library's trace of a test.
    if (std::getenv("BANK_TRACE")) hostkit::set_echo(true);
    // The library reads interface descriptions from idl/ of the current
    // directory.
    unlink("idl");
    if (symlink(idl_dir ? idl_dir : ORBELLE_DEMO_DIR "/idl", "idl") != 0)
        ADD_FAILURE() << "cannot link idl/";
}

Client::~Client() {
    while (!handles_.empty()) release(handles_.back());
}

void *Client::bind(const std::string &repoid, const std::string &instance, const std::string &modus,
                   const char *ior, std::string *bound_modus, Outcome *outcome) {
    iiop_record r = hostkit::make_record(IIOP_BIND);
    std::string rid = repoid, inst = instance, mod = modus, text = ior ? ior : "";
    r.u.bind = {&rid[0], &inst[0], ior ? &text[0] : nullptr, &mod[0], nullptr, nullptr};
    Outcome o = outcome_of(r, host_.call(r));
    if (outcome) *outcome = o;
    if (bound_modus) *bound_modus = r.u.bind.bound_modus ? r.u.bind.bound_modus : "";
    std::free(r.u.bind.bound_modus);
    if (o.result != 0) return nullptr;
    handles_.push_back(r.u.bind.objref);
    return r.u.bind.objref;
}

int32_t Client::release(void *objref) {
    handles_.erase(std::remove(handles_.begin(), handles_.end(), objref), handles_.end());
    iiop_record r = hostkit::make_record(IIOP_RELEASE);
    r.u.release.objref = objref;
    return outcome_of(r, host_.call(r)).result;
}

std::string Client::result(void *objref, const std::string &repoid, const std::string &operation) {
    Call call(*this, objref, repoid, operation);
    Outcome o = call.invoke();
    return o.result == 0 ? call.get("^" + operation) : "(failed: " + o.text + ")";
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

Outcome Call::invoke(int32_t flags, int32_t timeout_ms) {
    req_.flags = flags;
    iiop_record r = hostkit::make_record(IIOP_INVOKE);
    r.u.invoke.req = &req_;
    r.timeout_ms = timeout_ms;
    Outcome o = outcome_of(r, client_.host().call(r));
    if (r.u.invoke.connect_host) o.connect_host = r.u.invoke.connect_host;
    o.connect_port = r.u.invoke.connect_port;
    std::free(r.u.invoke.connect_host);
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

}  // namespace bank
