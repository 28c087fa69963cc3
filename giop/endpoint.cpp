#include "giop/endpoint.h"

#include <cstdlib>
#include <cstring>

#include "data/environment.h"
#include "host/harnix/harnix.h"
#include "platform/socket.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

client_endpoint *client_list = nullptr;
int32_t last_connect_time = 0;
char *last_connect_host = nullptr;
uint16_t last_connect_port = 0;

namespace {

// Name look-ups repeated while the resolver says "try again".
constexpr int kResolveAttempts = 5;
// Run state of a virtual user while it connects.
constexpr int32_t kConnectingRunState = 0x11;

struct Explanation {
    int code;
    const char *brief;
    const char *detail;
};

const Explanation kExplanations[] = {
    {10036, "Operation now in progress.", "A blocking operation is currently executing."},
    {10037, "Operation already in progress.",
     "This error occurs if connecting a second time when already connected."},
    {10038, "Socket operation on non-socket.",
     "An operation was attempted on something that is not a socket.  The socket handle "
     "parameter did not reference a valid socket, or the socket may have been previously "
     "closed."},
    {10048, "Address already in use.",
     "This error occurs if a socket is already in use, or wasn't closed properly."},
    {10053, "Software caused connection abort.",
     "This error can occur due to a data transmission timeout or protocol error."},
    {10054, "Connection reset by peer.",
     "This error normally results if the application on the remote host\nis suddenly stopped "
     "or the host is rebooted."},
    {10060, "Connection timed out.",
     "A connection attempt failed because the connected party did not\nrespond after a period "
     "of time, or established connection failed\nbecause connected host failed to respond."},
    {10061, "Connection refused.",
     "This error usually results from trying to connect with no server application running."},
    {10064, "Host is down.", "A socket operation encountered a dead host."},
};

// Reports a failed socket call by name and code, the way every socket
// failure of the library is reported.
void winsock_failure(const char *where, int code) {
    set_error_text("%s:  winsock error %d", where, code);
    TRACE("%s:  winsock error %d", where, code);
    explain_winsock_error(code);
}

// Resolves host to an IPv4 address. 0 on success; otherwise 1 with env set,
// or 2 when the resolver kept saying "try again".
int resolve(const char *host, uint32_t *address, Environment &env) {
    for (int attempt = 0; attempt < kResolveAttempts; ++attempt) {
        if (host[0] >= '0' && host[0] <= '9') {
            if (platform::parse_address(host, address)) {
                TRACE("inet_addr '%s' --> found at %d", host, HarnixGetTime());
                return 0;
            }
            TRACE("'%s' not of the form a.b.c.d", host);
        }
        TRACE("lookup:  gethostbyname at %d", HarnixGetTime());
        int code = platform::resolve_host(host, address);
        if (code == 0) {
            TRACE("gethostbyname '%s' --> found", host);
            return 0;
        }
        if (code == platform::kWsaHostNotFound) {
            set_error_text("gethostbyname '%s' --> No such host", host);
            TRACE("gethostbyname '%s' --> No such host", host);
            raise_system(env, exid::OBJECT_NOT_EXIST);
            return 1;
        }
        if (code != platform::kWsaTryAgain) {
            set_error_text("gethostbyname '%s' --> h_errno %d", host, code);
            TRACE("gethostbyname '%s' --> h_errno %d", host, code);
            raise_system(env, exid::COMM_FAILURE);
            return 1;
        }
    }
    TRACE("lookup:  '%s' not found, retries exceeded=%d", host, kResolveAttempts);
    return 2;
}

}  // namespace

void explain_winsock_error(int code) {
    for (const Explanation &e : kExplanations) {
        if (e.code == code) {
            TRACE("%s\n%s\n", e.brief, e.detail);
            set_error_text("%s", e.detail);
            return;
        }
    }
}

client_endpoint *lookup(const char *host, uint16_t port, Environment &env, bool *taken_idle) {
    env.clear();
    if (taken_idle != nullptr) *taken_idle = false;
    TRACE("lookup:  enter at %d", HarnixGetTime());
    TRACE("lookup:  checking client_list at %d", HarnixGetTime());
    for (client_endpoint *e = client_list; e != nullptr; e = e->next) {
        if (e->port != port) continue;
        if (e->fd == -1) {
            TRACE("client, dead FD in endpoint table");
            continue;
        }
        if (e->refcount == 0 && std::strcmp(e->host, host) == 0) {
            // Bytes read ahead are a message still to be read, whatever the
            // peer did after sending it.
            if (taken_idle != nullptr) {
                *taken_idle = true;
            } else if (e->ahead_length == 0 && platform::peer_gone(e->fd)) {
                TRACE("lookup:  connection fd %d closed by the peer, connecting anew", e->fd);
                close_endpoint(e);
                continue;
            }
            ++e->refcount;
            return e;
        }
    }

    uint32_t address = 0;
    int resolved = resolve(host, &address, env);
    if (resolved == 2) {
        // The resolver never gave a final answer; the caller needs an
        // exception to go on, and the name failures all raise COMM_FAILURE.
        raise_system(env, exid::COMM_FAILURE);
        return nullptr;
    }
    if (resolved != 0) return nullptr;

    auto *record = static_cast<client_endpoint *>(std::calloc(1, sizeof(client_endpoint)));
    char *copy = strdup(host);
    if (record == nullptr || copy == nullptr) {
        std::free(record);
        std::free(copy);
        raise_system(env, exid::NO_MEMORY);
        return nullptr;
    }
    TRACE("lookup:  new client_endpoint at " PTR_FMT, ptrv(record));
    TRACE("lookup:  beginning connect %d", HarnixGetTime());

    int fd = platform::tcp_socket();
    if (fd < 0) {
        winsock_failure("client socket", platform::last_socket_error());
        std::free(copy);
        std::free(record);
        raise_system(env, exid::UNKNOWN);
        return nullptr;
    }

    int32_t previous = HarnixRunStateSet(kConnectingRunState);
    int rc = platform::tcp_connect(fd, address, port);
    int code = platform::last_socket_error();
    HarnixRunStateSet(previous);
    if (rc != 0) {
        winsock_failure("client connect", code);
        TRACE("... connect failure was to '%s:%d'", host, port);
        set_error_text("connect failure to '%s:%d'", host, port);
        platform::close_socket(fd);
        std::free(copy);
        std::free(record);
        raise_system(env, exid::COMM_FAILURE);
        return nullptr;
    }

    record->fd = fd;
    record->host = copy;
    record->port = port;
    record->refcount = 1;
    record->next = client_list;
    client_list = record;
    last_connect_time = HarnixGetTime();
    // A copy that the gateway has not taken over is replaced, not leaked.
    if (last_connect_host != nullptr) vufree(last_connect_host);
    last_connect_host = vustrdup(host);
    last_connect_port = port;
    TRACE("lookup:  finished connect %d", HarnixGetTime());
    return record;
}

char *take_last_connect_host() {
    char *host = last_connect_host;
    last_connect_host = nullptr;
    return host;
}

void release_endpoint(client_endpoint *endpoint) {
    if (endpoint != nullptr && endpoint->refcount > 0) --endpoint->refcount;
}

void close_endpoint(client_endpoint *endpoint) {
    if (endpoint == nullptr) return;
    if (endpoint->fd != -1) platform::close_socket(endpoint->fd);
    mark_endpoint_dead(endpoint);
}

void mark_endpoint_dead(client_endpoint *endpoint) {
    if (endpoint == nullptr) return;
    endpoint->fd = -1;
    std::free(endpoint->ahead);
    endpoint->ahead = nullptr;
    endpoint->ahead_length = 0;
}
