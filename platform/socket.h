// Blocking IPv4 TCP sockets in the shape the wire layer was written against:
// integer handles, -1 for failure, and failure codes in the Winsock numbering
// (10061 for a refused connect, 11001 for an unknown host, ...).
#ifndef ORBELLE_PLATFORM_SOCKET_H
#define ORBELLE_PLATFORM_SOCKET_H

#include <cstddef>
#include <cstdint>

namespace platform {

// Winsock error numbers the library knows by name.
enum : int {
    kWsaInProgress = 10036,
    kWsaAlready = 10037,
    kWsaNotSock = 10038,
    kWsaAddrInUse = 10048,
    kWsaConnAborted = 10053,
    kWsaConnReset = 10054,
    kWsaTimedOut = 10060,
    kWsaConnRefused = 10061,
    kWsaHostDown = 10064,
    kWsaHostNotFound = 11001,
    kWsaTryAgain = 11002,
};

// Brings the socket layer up, asking for a version word (major in the low
// byte). Returns 0 and stores the granted version, or a Winsock error code.
int socket_startup(uint16_t requested, uint16_t *granted);

// Test hook: a nonzero code makes every later socket_startup fail with it;
// a second value, when nonzero, is granted instead of the version asked for.
void set_startup_override(int failure_code, uint16_t granted_version);

// The Winsock-numbered code of the latest failed socket call on this thread.
int last_socket_error();

// Maps an errno value to the Winsock numbering; unknown values pass as they are.
int winsock_code(int errno_value);

// A new blocking TCP socket, or -1.
int tcp_socket();

// Connects to an IPv4 address (network order) and port (host order).
// Returns 0, or -1 with last_socket_error set.
int tcp_connect(int fd, uint32_t address, uint16_t port);

int close_socket(int fd);

// Sends without ever raising SIGPIPE. Result as send(2).
long send_bytes(int fd, const void *bytes, size_t length);

// Result as recv(2); retried on EINTR.
long recv_bytes(int fd, void *bytes, size_t length);

// True when an idle connection can no longer carry a call: the peer has
// closed or reset it. Never blocks, and consumes nothing.
bool peer_gone(int fd);

// Waits until fd is readable: >0 ready, 0 time-out, <0 failure (errno kept).
int wait_readable(int fd, long seconds, long microseconds);

// What recv_within returns when nothing came within its time.
constexpr long recv_timed_out = -2;

// Receives what has come, waiting at most ms milliseconds (at least 1) for
// the first byte: the count (>0), 0 when the peer closed, recv_timed_out, or
// -1 with last_socket_error set. One system call in the common case, where
// the same time-out as before on fd is asked for.
long recv_within(int fd, void *bytes, size_t length, long ms);

// Parses the numeric address forms inet_addr takes ("a.b.c.d" and shorter).
// Returns true and stores the address in network order.
bool parse_address(const char *text, uint32_t *address);

// Resolves a host name to its first IPv4 address (network order).
// Returns 0, kWsaHostNotFound, kWsaTryAgain or another nonzero code.
int resolve_host(const char *name, uint32_t *address);

// Test hook: replaces the name look-up; null restores the real one.
using resolve_fn = int (*)(const char *name, uint32_t *address);
void set_resolve_hook(resolve_fn hook);

// Test hook: replaces tcp_connect's connect, so a harness can hand the
// library a connection of its own (e.g. one end of a socket pair put in
// fd's place). Returns 0 when connected, else a Winsock-numbered code, which
// becomes last_socket_error. Null restores the real connect.
using connect_fn = int (*)(int fd, uint32_t address, uint16_t port);
void set_connect_hook(connect_fn hook);

}  // namespace platform

#endif
