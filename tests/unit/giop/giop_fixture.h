// Helpers shared by the wire tests: a reference to a scripted peer and a
// stream's contents.
#ifndef ORBELLE_TESTS_UNIT_GIOP_FIXTURE_H
#define ORBELLE_TESTS_UNIT_GIOP_FIXTURE_H

#include <cstdlib>
#include <string>
#include <vector>

#include "data/environment.h"
#include "giop/invocation.h"
#include "giop/message.h"
#include "giop/objref.h"
#include "giop/orb.h"
#include "tests/peer/peer.h"
#include "trace/host_slots.h"

namespace giop_test {

// A reference to 127.0.0.1:port with the given key; the test owns it.
inline objref *reference(uint16_t port, const std::string &key = "key") {
    Environment env;
    std::string text = "iiop:1.0//127.0.0.1:" + std::to_string(port) + "/" + key;
    return string_to_object(text.c_str(), env);
}

inline std::string id_of(const Environment &env) { return env.id() ? env.id() : ""; }

// Blocks the library hands to the host (such as the host text of each new
// connection) belong to the host; the tests play a host that keeps them.
inline void *host_keeps(size_t size) {
    static auto *kept = new std::vector<void *>;  // lives to the very end
    void *block = std::malloc(size);
    kept->push_back(block);
    return block;
}
inline void install_keeping_host() {
    set_host_slots({host_keeps, std::realloc, std::free, vuprint_slot()});
}

// Every wire test waits at most two seconds for a reply.
struct ShortTimeout {
    ShortTimeout() {
        timeout_ms = 2000;
        install_keeping_host();
    }
};

// A scripted peer, a reference to it once begun (released at the end) and
// the environment of the calls made on it.
struct Call : ShortTimeout {
    peer::ScriptedPeer peer;
    objref *ref = nullptr;
    Environment env;
    void begin(const std::string &key = "key") {
        peer.start();
        ref = reference(peer.port(), key);
    }
    ~Call() {
        Environment e;
        release_objref(ref, e);
    }
    // One two-way call of inv's operation with a long argument.
    int call(GIOP::Invocation &inv, uint32_t arg = 42) {
        inv.start(nullptr, env, 0, nullptr);
        if (env.has_exception()) return -1;
        inv.stream.put_long(arg);
        return inv.invoke({0, nullptr}, env, 0);
    }
};

}  // namespace giop_test

#endif
