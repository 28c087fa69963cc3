// The client's connection cache: one record per TCP connection ever made,
// found again by host text and port, and handed to one invocation at a time.
#ifndef ORBELLE_GIOP_ENDPOINT_H
#define ORBELLE_GIOP_ENDPOINT_H

#include <cstdint>

class Environment;

struct client_endpoint {
    int32_t fd;  // -1 once the connection is dead
    char *host;  // owned copy, exactly as the caller gave it
    uint16_t port;
    uint32_t refcount;  // 0 idle, 1 held by an invocation
    client_endpoint *next;
    // Bytes received beyond the last message read, kept for the next read:
    // a heap block, or null when nothing is waiting.
    unsigned char *ahead;
    uint32_t ahead_length;
};

// Newest first. Records are never removed or freed, dead ones included.
extern client_endpoint *client_list;

// The latest successful connect, for the request's report to the host.
// last_connect_host comes from the host's allocation slot; it passes to the
// host with take_last_connect_host, and until then the next connect replaces
// (and releases) it.
extern int32_t last_connect_time;
extern char *last_connect_host;
extern uint16_t last_connect_port;

// An idle connection to host:port with its refcount raised, or a new one.
// An idle connection that the peer has closed or reset meanwhile is closed
// and passed over, so a restarted server is reached on a new connection;
// one that holds bytes read ahead is kept until they are read.
//
// A caller that can send its message again on a new connection passes
// taken_idle: an idle connection is then taken without that look (a system
// call saved per call), and *taken_idle says whether the connection was an
// idle one, which the peer may have closed meanwhile.
//
// Null on failure, with env holding the exception (OBJECT_NOT_EXIST for an
// unknown host, COMM_FAILURE for refused connects and name failures, UNKNOWN
// when no socket can be made).
client_endpoint *lookup(const char *host, uint16_t port, Environment &env,
                        bool *taken_idle = nullptr);

// Hands the host copy of the latest connect's host text to the caller, who
// passes it to the host; null when there is none.
char *take_last_connect_host();

// Gives a connection back: it stays open and becomes idle.
void release_endpoint(client_endpoint *endpoint);

// Closes the socket, drops the bytes read ahead and marks the record dead
// for every later lookup.
void close_endpoint(client_endpoint *endpoint);

// Marks a record dead whose socket is already closed.
void mark_endpoint_dead(client_endpoint *endpoint);

// Traces the explanation of a Winsock-numbered error and puts it into
// error_text; codes without an explanation change nothing.
void explain_winsock_error(int code);

#endif
