#include "platform/socket.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace platform {
namespace {

int startup_failure = 0;
uint16_t startup_granted = 0;
thread_local int socket_error = 0;
resolve_fn resolve_hook = nullptr;
connect_fn connect_hook = nullptr;

// Keeps the code of the failed call, as WSAGetLastError reports it.
int fail() {
    socket_error = WSAGetLastError();
    return -1;
}

int real_resolve(const char *name, uint32_t *address) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    // getaddrinfo's codes are Winsock codes here (EAI_NONAME is 11001).
    int rc = getaddrinfo(name, nullptr, &hints, &found);
    if (rc != 0) return rc;
    int result = WSANO_DATA;
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

SOCKET as_socket(int fd) { return static_cast<SOCKET>(static_cast<unsigned>(fd)); }

}  // namespace

int winsock_code(int errno_value) {
    // Only the C library's own failures come here; socket calls already
    // report in the Winsock numbering.
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
        default:
            return errno_value;
    }
}

int socket_startup(uint16_t requested, uint16_t *granted) {
    if (startup_failure != 0) return startup_failure;
    WSADATA data{};
    int rc = WSAStartup(requested, &data);
    if (rc != 0) return rc;
    *granted = startup_granted != 0 ? startup_granted : data.wVersion;
    return 0;
}

void set_startup_override(int failure_code, uint16_t granted_version) {
    startup_failure = failure_code;
    startup_granted = granted_version;
}

int last_socket_error() { return socket_error; }

int tcp_socket() {
    SOCKET s = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (s == INVALID_SOCKET) return fail();
    // Socket handles are small in practice; one that does not fit the
    // library's int handles is refused rather than truncated.
    if (s > static_cast<SOCKET>(INT_MAX)) {
        closesocket(s);
        socket_error = WSAEMFILE;
        return -1;
    }
    // Not inherited by processes the host starts.
    SetHandleInformation(reinterpret_cast<HANDLE>(s), HANDLE_FLAG_INHERIT, 0);
    return static_cast<int>(s);
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
    int rc = ::connect(as_socket(fd), reinterpret_cast<sockaddr *>(&to), sizeof to);
    return rc != 0 ? fail() : 0;
}

int close_socket(int fd) { return closesocket(as_socket(fd)) != 0 ? fail() : 0; }

// Winsock counts lengths in int; longer buffers go in pieces of this size.
constexpr size_t kMaxChunk = INT_MAX;

long send_bytes(int fd, const void *bytes, size_t length) {
    int n = ::send(as_socket(fd), static_cast<const char *>(bytes),
                   static_cast<int>(length < kMaxChunk ? length : kMaxChunk), 0);
    if (n == SOCKET_ERROR) {
        fail();
        return -1;
    }
    return n;
}

long recv_bytes(int fd, void *bytes, size_t length) {
    int n = ::recv(as_socket(fd), static_cast<char *>(bytes),
                   static_cast<int>(length < kMaxChunk ? length : kMaxChunk), 0);
    if (n == SOCKET_ERROR) {
        fail();
        return -1;
    }
    return n;
}

// A receive time-out leaves a Winsock socket in an undefined state, so the
// wait stays a select of its own here.
long recv_within(int fd, void *bytes, size_t length, long ms) {
    if (ms < 1) ms = 1;
    int rc = wait_readable(fd, ms / 1000, (ms % 1000) * 1000);
    if (rc <= 0) return rc == 0 ? recv_timed_out : -1;
    return recv_bytes(fd, bytes, length);
}

bool peer_gone(int fd) {
    // Winsock has no per-call non-blocking flag: a zero wait tells whether
    // anything (data, end of stream or a reset) is there to look at.
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(as_socket(fd), &readable);
    timeval now{0, 0};
    int rc = ::select(0, &readable, nullptr, nullptr, &now);
    if (rc == 0) return false;
    if (rc == SOCKET_ERROR) return true;
    char byte;
    int n = ::recv(as_socket(fd), &byte, 1, MSG_PEEK);
    return n <= 0;
}

int wait_readable(int fd, long seconds, long microseconds) {
    // A Winsock fd_set is a list of handles, not a bit map: any handle fits.
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(as_socket(fd), &readable);
    if (seconds < 0) seconds = 0;
    if (microseconds < 0) microseconds = 0;
    timeval limit{seconds + microseconds / 1000000, microseconds % 1000000};
    int rc = ::select(0, &readable, nullptr, nullptr, &limit);
    if (rc == SOCKET_ERROR) {
        fail();
        errno = EIO;
        return -1;
    }
    return rc;
}

bool parse_address(const char *text, uint32_t *address) {
    // inet_addr takes the same short forms as inet_aton but cannot tell the
    // broadcast address from a failure; that one text is spelled out.
    unsigned long a = inet_addr(text);
    if (a == INADDR_NONE && std::strcmp(text, "255.255.255.255") != 0) return false;
    *address = static_cast<uint32_t>(a);
    return true;
}

int resolve_host(const char *name, uint32_t *address) {
    return resolve_hook != nullptr ? resolve_hook(name, address) : real_resolve(name, address);
}

void set_resolve_hook(resolve_fn hook) { resolve_hook = hook; }

void set_connect_hook(connect_fn hook) { connect_hook = hook; }

}  // namespace platform
