// Arbitrary bytes as the answer to a two-way call: a peer on a socket pair
// serves them, and the invocation reads whatever it makes of them.
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "data/environment.h"
#include "giop/endpoint.h"
#include "giop/invocation.h"
#include "giop/message.h"
#include "giop/orb.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // Bounded by the socket buffer, so the whole answer is written before
    // the call reads it.
    if (size > 60000) return 0;
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) return 0;
    if (size > 0 && write(pair[1], data, size) != static_cast<ssize_t>(size)) {
        close(pair[0]);
        close(pair[1]);
        return 0;
    }
    shutdown(pair[1], SHUT_WR);  // the end of the bytes is the end of the stream

    Environment env;
    objref *ref = string_to_object("iiop:1.0//127.0.0.1:1/key", env);
    client_endpoint endpoint{pair[0], nullptr, 1, 1, nullptr};
    timeout_ms = 1000;
    next_request_id = 5;
    {
        GIOP::Invocation inv(ref->data, "op", 1);
        inv.endpoint = &endpoint;
        inv.fd = pair[0];
        inv.start(nullptr, env, 0, nullptr);
        inv.stream.put_long(1);
        int status = inv.invoke({0, nullptr}, env, 1);
        uint32_t v;
        if (status == 0)
            while (inv.stream.get_long(&v)) {
            }
        inv.endpoint = nullptr;
    }
    close_endpoint(&endpoint);
    close(pair[1]);
    if (ref != nullptr) {
        release_objref(ref, env);
    }
    return 0;
}
