// A host that binds to scripted peers through the door and runs requests
// with parameter lists the test builds.
#ifndef ORBELLE_TESTS_UNIT_GATEWAY_ROAD_H
#define ORBELLE_TESTS_UNIT_GATEWAY_ROAD_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <initializer_list>
#include <string>
#include <vector>

#include "data/environment.h"
#include "gateway/connections.h"
#include "giop/invocation.h"
#include "giop/objref.h"
#include "tests/peer/peer.h"
#include "tests/support.h"
#include "trace/trace.h"

namespace road {

// One record of a parameter list; a null value is a record without text.
struct Rec {
    int32_t flags, type;
    const char *name, *value;
    int32_t supertype = 0;
};

// A parameter list on the C heap, released with the fixture.
class Parms {
public:
    Parms() = default;
    // A list of one out long, holding "old".
    explicit Parms(const char *out_long) { add(PARM_OUT, 3, out_long, "old"); }
    Parms(std::initializer_list<Rec> records) { add(records); }
    Parms(const Parms &) = delete;
    Parms &operator=(const Parms &) = delete;
    ~Parms() { hostkit::free_list(head); }
    ScriptParm *add(int32_t flags, int32_t type, const char *name, const char *value,
                    int32_t supertype = 0) {
        auto *p = static_cast<ScriptParm *>(std::malloc(sizeof(ScriptParm)));
        *p = {flags, type, supertype, strdup(name), value ? strdup(value) : nullptr, nullptr,
              0,     0,    0,         nullptr};
        (head == nullptr ? head : tail->next) = p;
        tail = p;
        return p;
    }
    void add(std::initializer_list<Rec> records) {
        for (const Rec &r : records) add(r.flags, r.type, r.name, r.value, r.supertype);
    }
    // A sequence of long: its length record and n element records.
    void sequence(int32_t flags, const std::string &base, int n, const char *value = "old") {
        add(flags, 3, (base + "^length").c_str(), std::to_string(n).c_str(), 19);
        for (int i = 0; i < n; ++i)
            add(flags, 3, (base + "[" + std::to_string(i) + "]").c_str(), value, 19);
    }
    const char *value(const char *name) const { return hostkit::value(head, name); }
    // The value texts of every record in order, "NULL" for none.
    std::vector<std::string> values() const {
        std::vector<std::string> out;
        for (ScriptParm *q = head; q != nullptr; q = q->next)
            out.push_back(q->strval != nullptr ? q->strval : "NULL");
        return out;
    }
    // The value texts of the named records.
    std::vector<std::string> values(std::initializer_list<const char *> names) const {
        std::vector<std::string> out;
        for (const char *name : names) out.push_back(value(name) ? value(name) : "NULL");
        return out;
    }

    ScriptParm *head = nullptr;
    ScriptParm *tail = nullptr;
};

inline std::string iiop_text(uint16_t port, const std::string &key) {
    return "iiop:1.0//127.0.0.1:" + std::to_string(port) + "/" + key;
}

// An object reference in a message body: type id, one IIOP 1.0 profile.
inline void put_ior(peer::Writer &w, const std::string &type_id, uint16_t port,
                    const std::string &key) {
    w.string(type_id).ulong(1).ulong(0).octets(peer::iiop_profile("127.0.0.1", port, key));
}

// The arguments of a Request as the peer received it.
inline std::string args_of(const std::string &message) {
    peer::Request r = peer::parse_request(message);
    return r.valid ? message.substr(r.args_offset) : "<invalid>";
}

using peer::answer;

// A bind record; the texts must outlive it.
inline iiop_record bind_record(const char *modus, const char *ior,
                               const char *repository_id = "IDL:T:1.0",
                               const char *instance_id = "t") {
    iiop_record r = hostkit::make_record(IIOP_BIND);
    r.u.bind.repository_id = const_cast<char *>(repository_id);
    r.u.bind.instance_id = const_cast<char *>(instance_id);
    r.u.bind.modus = const_cast<char *>(modus);
    r.u.bind.ior = const_cast<char *>(ior);
    return r;
}

class Road : public ::testing::Test {
protected:
    Road() : host(testsupport::linked_host()) {
        set_debug_level(1);
        if (std::getenv("ROAD_ECHO")) hostkit::set_echo(true);
    }
    ~Road() override {
        Environment scratch;
        for (void *obj : bound) {
            remove_connection(static_cast<objref *>(obj));
            release_objref(static_cast<objref *>(obj), scratch);
        }
    }

    // Binds through the door by the alternatives in modus, keeping the one
    // that bound in bound_modus; null when none binds.
    objref *bind_by(const std::string &modus, const std::string &ior, const char *instance = "t") {
        iiop_record r = bind_record(modus.c_str(), ior.c_str(), "IDL:T:1.0", instance);
        if (host.call(r) != IIOP_OK) return nullptr;
        bound_modus = r.u.bind.bound_modus;
        std::free(r.u.bind.bound_modus);
        bound.push_back(r.u.bind.objref);
        return static_cast<objref *>(r.u.bind.objref);
    }
    // Binds by reference text through the door.
    void *bind(const std::string &text) {
        objref *obj = bind_by("IOR", text);
        EXPECT_NE(obj, nullptr) << text;
        return obj;
    }
    void *bind(uint16_t port, const std::string &key = "key") { return bind(iiop_text(port, key)); }
    // Starts the peer and binds to it.
    void *bind(peer::ScriptedPeer &p, const std::string &key = "key") {
        p.start();
        return bind(p.port(), key);
    }

    // A request block for obj; the fixture keeps target and block alive.
    iiop_req &request(void *obj, int32_t flags, const char *operation, Parms &parms) {
        targets.emplace_back();
        targets.back().objref = obj;
        requests.emplace_back();
        iiop_req &req = requests.back();
        req.flags = flags;
        req.target = &targets.back();
        req.operation = const_cast<char *>(operation);
        req.parms = parms.head;
        return req;
    }

    // Runs op through the door with a fresh record, which stays in record;
    // status_text goes to text and its block back to the heap.
    int32_t call(int32_t op, iiop_req &req, int32_t timeout = 2000) {
        record = hostkit::make_record(op);
        record.u.invoke.req = &req;
        record.timeout_ms = timeout;
        int32_t result = host.call(record);
        text = record.status_text != nullptr ? record.status_text : "";
        std::free(record.status_text);
        record.status_text = nullptr;
        if (record.u.invoke.connect_host != nullptr) {
            connect_host = record.u.invoke.connect_host;
            std::free(record.u.invoke.connect_host);
            record.u.invoke.connect_host = nullptr;
        }
        return result;
    }
    int32_t invoke(iiop_req &req, int32_t timeout = 2000) {
        return call(IIOP_INVOKE, req, timeout);
    }
    // Gives a deferred request the id that its next Request will carry.
    int32_t defer(iiop_req &req, int32_t timeout = 2000) {
        req.request_id = static_cast<int32_t>(next_request_id);
        return invoke(req, timeout);
    }

    hostkit::Host host;
    iiop_record record{};
    std::string text;
    std::string connect_host, bound_modus;
    std::vector<void *> bound;
    std::deque<iiop_target> targets;
    std::deque<iiop_req> requests;
};

}  // namespace road

#endif
