#include "platform/socket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace platform {
namespace {

// Winsock 1.1, the version word the library asks for and accepts.
constexpr uint16_t kGrantedVersion = 0x0101;

int startup_failure = 0;
uint16_t startup_granted = 0;
thread_local int socket_error = 0;
resolve_fn resolve_hook = nullptr;
connect_fn connect_hook = nullptr;

// The receive time-out last set on each of the lower descriptors (0: not
// known), so that a call with the same time-out as the last one on its
// connection costs no setsockopt. Descriptors above keep no record.
constexpr int remembered_fds = 1024;
long receive_timeout_ms[remembered_fds];

void forget_receive_timeout(int fd) {
    if (fd >= 0 && fd < remembered_fds) receive_timeout_ms[fd] = 0;
}

// Keeps the code of a failed call, as WSAGetLastError would report it.
int fail(int errno_value) {
    socket_error = winsock_code(errno_value);
    return -1;
}

int real_resolve(const char *name, uint32_t *address) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    int rc = getaddrinfo(name, nullptr, &hints, &found);
    if (rc != 0) {
        switch (rc) {
            case EAI_NONAME:
                return kWsaHostNotFound;
            case EAI_AGAIN:
                return kWsaTryAgain;
            case EAI_FAIL:
                return 11003;  // WSANO_RECOVERY
#ifdef EAI_NODATA
            case EAI_NODATA:
                return 11004;  // WSANO_DATA
#endif
            default:
                // Keep the resolver's own code, out of the way of the others.
                return 11100 + (rc < 0 ? -rc : rc);
        }
    }
    int result = 11004;
    for (addrinfo *a = found; a != nullptr; a = a->ai_next) {
        if (a->ai_family == AF_INET && a->ai_addrlen >= sizeof(sockaddr_in)) {
            sockaddr_in in{};
            std::memcpy(&in, a->ai_addr, sizeof in);
            *address = in.sin_addr.s_addr;
            result = 0;
            break;
        }
    }
    freeaddrinfo(found);
    return result;
}

}  // namespace

int winsock_code(int errno_value) {
    switch (errno_value) {
        case ECONNREFUSED:
            return kWsaConnRefused;
        case ETIMEDOUT:
            return kWsaTimedOut;
        case ECONNRESET:
        case EPIPE:
            return kWsaConnReset;
        case ECONNABORTED:
            return kWsaConnAborted;
        case EADDRINUSE:
            return kWsaAddrInUse;
        case ENOTSOCK:
        case EBADF:
            return kWsaNotSock;
        case EALREADY:
            return kWsaAlready;
        case EINPROGRESS:
            return kWsaInProgress;
        case EHOSTDOWN:
            return kWsaHostDown;
        default:
            return errno_value;
    }
}

int socket_startup(uint16_t requested, uint16_t *granted) {
    if (startup_failure != 0) return startup_failure;
    (void)requested;
    *granted = startup_granted != 0 ? startup_granted : kGrantedVersion;
    return 0;
}

void set_startup_override(int failure_code, uint16_t granted_version) {
    startup_failure = failure_code;
    startup_granted = granted_version;
}

int last_socket_error() { return socket_error; }

int tcp_socket() {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return fail(errno);
    forget_receive_timeout(fd);
    return fd;
}

int tcp_connect(int fd, uint32_t address, uint16_t port) {
    if (connect_hook != nullptr) {
        int code = connect_hook(fd, address, port);
        if (code == 0) return 0;
        socket_error = code;
        return -1;
    }
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = address;
    int rc;
    do {
        rc = ::connect(fd, reinterpret_cast<sockaddr *>(&to), sizeof to);
    } while (rc != 0 && errno == EINTR);
    return rc != 0 ? fail(errno) : 0;
}

int close_socket(int fd) {
    forget_receive_timeout(fd);
    return ::close(fd) != 0 ? fail(errno) : 0;
}

long send_bytes(int fd, const void *bytes, size_t length) {
    ssize_t n;
    do {
        n = ::send(fd, bytes, length, MSG_NOSIGNAL);
    } while (n < 0 && errno == EINTR);
    if (n < 0) fail(errno);
    return static_cast<long>(n);
}

long recv_bytes(int fd, void *bytes, size_t length) {
    ssize_t n;
    do {
        n = ::recv(fd, bytes, length, 0);
    } while (n < 0 && errno == EINTR);
    if (n < 0) fail(errno);
    return static_cast<long>(n);
}

long recv_within(int fd, void *bytes, size_t length, long ms) {
    if (ms < 1) ms = 1;
    if (fd < 0 || fd >= remembered_fds || receive_timeout_ms[fd] != ms) {
        timeval tv{};
        tv.tv_sec = ms / 1000;
        tv.tv_usec = (ms % 1000) * 1000;
        if (::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv) != 0) {
            // Not a socket of ours to set up (a harness's pipe): wait first.
            int rc = wait_readable(fd, ms / 1000, (ms % 1000) * 1000);
            if (rc <= 0) return rc == 0 ? recv_timed_out : -1;
            return recv_bytes(fd, bytes, length);
        }
        if (fd >= 0 && fd < remembered_fds) receive_timeout_ms[fd] = ms;
    }
    ssize_t n;
    do {
        n = ::recv(fd, bytes, length, 0);
    } while (n < 0 && errno == EINTR);
    if (n >= 0) return static_cast<long>(n);
    if (errno == EAGAIN || errno == EWOULDBLOCK) return recv_timed_out;
    fail(errno);
    return -1;
}

bool peer_gone(int fd) {
    unsigned char byte;
    ssize_t n;
    do {
        n = ::recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    } while (n < 0 && errno == EINTR);
    if (n > 0) return false;
    return n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
}

int wait_readable(int fd, long seconds, long microseconds) {
    // poll rather than select: a descriptor number above FD_SETSIZE must not
    // write outside an fd_set.
    long long ms = static_cast<long long>(seconds) * 1000 + microseconds / 1000;
    if (ms > INT_MAX) ms = INT_MAX;
    if (ms < 0) ms = 0;
    pollfd p{fd, POLLIN, 0};
    int rc;
    do {
        rc = ::poll(&p, 1, static_cast<int>(ms));
    } while (rc < 0 && errno == EINTR);
    if (rc < 0) fail(errno);
    return rc;
}

bool parse_address(const char *text, uint32_t *address) {
    in_addr a{};
    if (inet_aton(text, &a) == 0) return false;
    *address = a.s_addr;
    return true;
}

int resolve_host(const char *name, uint32_t *address) {
    return resolve_hook != nullptr ? resolve_hook(name, address) : real_resolve(name, address);
}

void set_resolve_hook(resolve_fn hook) { resolve_hook = hook; }

void set_connect_hook(connect_fn hook) { connect_hook = hook; }

}  // namespace platform
