// Set-up shared by the fuzz targets.
#ifndef ORBELLE_FUZZ_COMMON_H
#define ORBELLE_FUZZ_COMMON_H

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "data/cdr.h"
#include "data/stdtypes.h"
#include "giop/endpoint.h"
#include "giop/invocation.h"
#include "giop/waitlist.h"
#include "host/kit/hostkit.h"
#include "orbelle/host.h"
#include "platform/platform.h"
#include "platform/socket.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

namespace fuzz {

// Once per process: the standard TypeCodes and the value table.
inline void typecodes_ready() {
    static const bool ready = (inittypecodes(), fill_value_table(), true);
    (void)ready;
}

// Once per process: every trace line formatted but printed nowhere (on
// standard error when ORBELLE_FUZZ_ECHO is set, to see what a seed reaches),
// and no agent library found, so the agent kinds fail without loading anything.
inline void silent_host() {
    static const bool echo = std::getenv("ORBELLE_FUZZ_ECHO") != nullptr;
    static const bool ready = (unsetenv("ZANTH_HOME"), unsetenv("orbelledebug"), set_debug_level(5),
                               set_host_slots({std::malloc, std::realloc, std::free,
                                               [](const char *line) {
                                                   if (echo) std::fputs(line, stderr);
                                               }}),
                               true);
    (void)ready;
}

// Bytes copied to a 16-aligned block, as a message body lies, and opened
// as a stream whose alignment counts from their first byte.
struct AlignedInput {
    std::vector<unsigned char> block;
    unsigned char *at;
    CDR stream;
    AlignedInput(const uint8_t *data, size_t size, bool swap) : block(size + 16) {
        at = block.data() + (16 - reinterpret_cast<uintptr_t>(block.data()) % 16) % 16;
        std::memcpy(at, data, size);
        stream.cursor = at;
        stream.origin = at;
        stream.space_left = static_cast<uint32_t>(size);
        stream.swap = swap ? 1 : 0;
    }
};

// An input cut in two: a two-byte little-endian length, that many bytes (or
// what there is), then the rest.
inline void split(const uint8_t *data, size_t size, std::string *first, std::string *rest) {
    size_t n = size >= 2 ? (data[0] | data[1] << 8) : 0;
    size_t from = size >= 2 ? 2 : size;
    n = std::min(n, size - from);
    first->assign(reinterpret_cast<const char *>(data + from), n);
    rest->assign(reinterpret_cast<const char *>(data + from + n), size - from - n);
}

// A GIOP 1.0 Reply: header, no service context, request id, status, body.
inline std::string reply_message(uint32_t id, uint32_t status, const std::string &body,
                                 bool little) {
    std::string m("GIOP\x01\x00", 6);
    m += static_cast<char>(little ? 1 : 0);
    m += '\x01';
    auto put = [&m, little](uint32_t v) {
        for (int i = 0; i < 4; ++i) m += static_cast<char>(v >> (little ? 8 * i : 24 - 8 * i));
    };
    put(static_cast<uint32_t>(12 + body.size()));
    put(0);
    put(id);
    put(status);
    return m + body;
}

// The network as the fuzz targets see it: a connect to 127.0.0.1 reaches a
// port's scripted peer, anything else is refused, and no name resolves. The
// peer is the far end of a socket pair put in place of the library's socket:
// at the connect it has written its answers, one Reply each, with request
// ids counted from the one the coming Request takes, and then ended the
// stream, so the library never waits for bytes that will not come. Each
// connect uses up the port's answers; a second connect to it is refused.
struct Answer {
    uint32_t id_offset;  // added to the id of the first Request on the connection
    uint32_t status;
    std::string body;
    bool little = true;
    bool raw = false;  // the body is the whole stream, headers and all
};

// What a scripted peer writes at most: well within a socket pair's buffer,
// so that writing never blocks before the library reads.
constexpr size_t kPeerBytes = 60000;

struct Wire {
    std::map<uint16_t, std::vector<Answer>> answers;
    std::vector<int> peers;
};

inline Wire &wire() {
    static Wire w;
    return w;
}

inline int scripted_connect(int fd, uint32_t address, uint16_t port) {
    auto it = wire().answers.find(port);
    if (address != htonl(0x7f000001) || it == wire().answers.end())
        return platform::kWsaConnRefused;
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) return platform::kWsaConnRefused;
    dup2(pair[0], fd);
    close(pair[0]);
    std::string bytes;
    for (const Answer &a : it->second)
        bytes += a.raw ? a.body
                       : reply_message(next_request_id + a.id_offset, a.status, a.body, a.little);
    wire().answers.erase(it);
    // A failed write shows to the library as a stream that ends at once.
    ssize_t written = bytes.size() <= kPeerBytes ? write(pair[1], bytes.data(), bytes.size()) : 0;
    (void)written;
    shutdown(pair[1], SHUT_WR);
    wire().peers.push_back(pair[1]);
    return 0;
}

// Once per process: silent host, standard types, the scripted network, no
// pause at the first call.
inline void wire_ready() {
    static const bool ready =
        (silent_host(), typecodes_ready(), platform::set_connect_hook(scripted_connect),
         platform::set_resolve_hook(
             [](const char *, uint32_t *) { return static_cast<int>(platform::kWsaHostNotFound); }),
         platform::set_sleep_hook([](uint32_t) {}), true);
    (void)ready;
}

// Binds through the door; the handle, or null when the bind failed.
inline void *bind(const char *repo_id, const char *instance, const char *modus, const char *ior) {
    iiop_record r = hostkit::make_record(IIOP_BIND);
    r.u.bind.repository_id = const_cast<char *>(repo_id);
    r.u.bind.instance_id = const_cast<char *>(instance);
    r.u.bind.modus = const_cast<char *>(modus);
    r.u.bind.ior = const_cast<char *>(ior);
    int32_t status = _iiop_entry(&r);
    std::free(r.u.bind.bound_modus);
    std::free(r.status_text);
    return status == IIOP_OK ? r.u.bind.objref : nullptr;
}

inline void release(void *obj) {
    if (obj == nullptr) return;
    iiop_record r = hostkit::make_record(IIOP_RELEASE);
    r.u.release.objref = obj;
    _iiop_entry(&r);
    std::free(r.status_text);
}

// After each input: the peers closed, every connection record of the
// library freed (records are otherwise kept for the life of the process),
// no request of the input left on the wait list, request ids from 0 again.
inline void wire_reset() {
    for (int fd : wire().peers) close(fd);
    wire().peers.clear();
    wire().answers.clear();
    while (client_list != nullptr) {
        client_endpoint *e = client_list;
        client_list = e->next;
        if (e->fd != -1) close(e->fd);
        std::free(e->host);
        std::free(e->ahead);
        std::free(e);
    }
    std::free(last_connect_host);
    last_connect_host = nullptr;
    while (wait_list != nullptr) wait_list_remove(wait_list->req);
    // Every input's first Request is 0, so raw streams can answer by id.
    next_request_id = 0;
}

}  // namespace fuzz

#endif
