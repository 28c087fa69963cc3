#include "giop/message.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "data/cdr.h"
#include "data/environment.h"
#include "data/unaligned.h"
#include "giop/endpoint.h"
#include "host/harnix/harnix.h"
#include "orbelle/limits.h"
#include "platform/socket.h"
#include "trace/trace.h"

int32_t timeout_ms = 0;
uint32_t timeout_count = 0;

namespace {

using giop_msg::kHeaderSize;

const unsigned char kMessageError[kHeaderSize] = {'G', 'I', 'O', 'P', 1, 0, 1, 6, 0, 0, 0, 0};

const char *const kTypeNames[] = {"Request",       "Reply",       "CancelRequest",
                                  "LocateRequest", "LocateReply", "CloseConnection",
                                  "MessageError"};

// Bodies up to this size get their whole buffer at once, as soon as the
// header has arrived. Larger ones grow as their bytes arrive, so a header
// that merely claims a huge size costs no more memory than was sent.
constexpr uint32_t kEagerBodySize = 1u << 20;

void socket_failure(const char *where) {
    int code = platform::last_socket_error();
    set_error_text("%s:  winsock error %d", where, code);
    TRACE("%s:  winsock error %d", where, code);
    explain_winsock_error(code);
}

// What one wait for more bytes ended with.
enum class Arrival { Bytes, TimedOut, Closed, Failed };

const char *const kArrivalWords[] = {"", "timed out", "end of stream", "failed"};

// The reading of one message into a stream: bytes received so far (from
// base), and the deadline that the first wait sets for every later one.
struct Fill {
    client_endpoint &conn;
    CDR &stream;
    uint32_t have = 0;
    bool waited = false;
    int32_t deadline = 0;
};

// Makes room behind have for a message of total bytes. Bodies up to
// kEagerBodySize get their whole block at once; larger ones grow as their
// bytes arrive.
bool make_room(Fill &f, uint32_t total) {
    CDR &s = f.stream;
    uint32_t body = total - kHeaderSize;
    if (total <= s.capacity || (body > kEagerBodySize && s.capacity > f.have)) return true;
    uint32_t next = body <= kEagerBodySize || s.capacity > total / 2 ? total : s.capacity * 2;
    s.cursor = s.base + f.have;  // grow keeps the bytes up to the cursor
    return s.grow(next) != 0;
}

// Waits for more bytes and receives as many as the stream has room for, in one receive with a
// time-out. The first wait lasts the call's time-out (at least a second) and sets the deadline;
// later waits end at that deadline.
Arrival receive_more(Fill &f) {
    int32_t now = HarnixGetTime();
    int32_t wait;
    bool first = !f.waited;
    if (first) {
        int32_t t = timeout_ms;
        if (t < 0) {
            TRACE("read_buffer:  timeout already expired");
            return Arrival::TimedOut;
        }
        wait = t < 1000 ? 1000 : t;
        f.waited = true;
        f.deadline = static_cast<int32_t>(static_cast<int64_t>(now) + wait > INT32_MAX
                                              ? INT32_MAX
                                              : static_cast<int64_t>(now) + wait);
    } else {
        wait = f.deadline - now;
        if (wait <= 0) {
            ++timeout_count;
            return Arrival::TimedOut;
        }
    }
    CDR &s = f.stream;
    long n = platform::recv_within(f.conn.fd, s.base + f.have, s.capacity - f.have, wait);
    if (n == platform::recv_timed_out) {
        int32_t end = HarnixGetTime();
        // A first wait that ended before the time-out itself passes quietly.
        if (first && static_cast<int64_t>(end) < static_cast<int64_t>(now) + timeout_ms)
            return Arrival::TimedOut;
        if (f.have == 0) TRACE("read_buffer:  select timeout at %d", end);
        ++timeout_count;
        return Arrival::TimedOut;
    }
    if (n == 0) return Arrival::Closed;
    if (n < 0) return Arrival::Failed;
    f.have += static_cast<uint32_t>(n);
    return Arrival::Bytes;
}

// Keeps what came behind a message of total bytes for the next read on the
// connection. False when no memory: the connection is then out of step.
bool keep_surplus(Fill &f, uint32_t total) {
    uint32_t surplus = f.have - total;
    if (surplus == 0) return true;
    auto *block = static_cast<unsigned char *>(std::malloc(surplus));
    if (block == nullptr) return false;
    std::memcpy(block, f.stream.base + total, surplus);
    f.conn.ahead = block;
    f.conn.ahead_length = surplus;
    TRACE_AT(6, "read_message:  keeping %u bytes read ahead on fd %d", surplus, f.conn.fd);
    return true;
}

// Starts a read with the bytes kept from the last one. False when no memory.
bool take_ahead(Fill &f) {
    client_endpoint &c = f.conn;
    if (c.ahead_length == 0) return true;
    if (c.ahead_length > f.stream.capacity && !f.stream.grow(c.ahead_length)) return false;
    std::memcpy(f.stream.base, c.ahead, c.ahead_length);
    f.have = c.ahead_length;
    std::free(c.ahead);
    c.ahead = nullptr;
    c.ahead_length = 0;
    return true;
}

// A connection that can no longer be read in step: closed at once, so the
// next call to its address connects anew.
void drop_connection(client_endpoint &conn, const char *why) {
    TRACE("read_message:  %s, closing connection fd %d", why, conn.fd);
    close_endpoint(&conn);
}

// Reports a header that did not come whole; 0 bytes is the case of a call
// whose reply never began.
void header_failed(Fill &f, Arrival how) {
    if (f.have == 0) {
        if (how == Arrival::Failed)
            socket_failure("GIOP::read_message header");
        else
            TRACE("read_message:  read 0 bytes");
        if (how == Arrival::Closed) drop_connection(f.conn, "end of stream");
        if (how == Arrival::Failed) drop_connection(f.conn, "receive failed");
        return;
    }
    TRACE("read_message:  %s after %u of %u header bytes", kArrivalWords[static_cast<int>(how)],
          f.have, kHeaderSize);
    TRACE("read message header failed (short)");
    drop_connection(f.conn, "message cut off");
}

void body_failed(Fill &f, Arrival how, uint32_t size) {
    uint32_t got = f.have - kHeaderSize;
    TRACE("read_message:  %s after %u of %u body bytes", kArrivalWords[static_cast<int>(how)], got,
          size);
    if (how == Arrival::Closed) {
        TRACE("read message body, EOF on fd %d", f.conn.fd);
    } else if (how == Arrival::Failed) {
        TRACE("%s: %s", "GIOP::read_message() body", std::strerror(errno));
    }
    TRACE("couldn't read rest of message");
    drop_connection(f.conn, "message cut off");
}

}  // namespace

int start_message(uint8_t type, CDR &stream) {
    stream.cursor = stream.base;
    stream.space_left = stream.capacity;
    stream.allow_value_memory(stream.capacity);
    if (stream.capacity < kHeaderSize) return 0;
    const unsigned char head[8] = {'G', 'I', 'O', 'P', 1, 0, 1, type};
    std::memcpy(stream.base, head, sizeof head);
    stream.cursor += kHeaderSize;
    stream.space_left -= kHeaderSize;
    return 1;
}

int OutgoingMessage::writebuf(CDR &stream, int32_t *fd) {
    uint32_t length = stream.used();
    if (length == 0) return 1;
    store_unaligned<uint32_t>(stream.base + 8, length - kHeaderSize);
    message_dump("send", stream.base, length);
    const unsigned char *at = stream.base;
    while (length != 0) {
        if (length > stream.capacity) {
            TRACE("?? writebuf, buflen %u > length %u\n", length, stream.capacity);
            return 0;
        }
        long n = platform::send_bytes(*fd, at, length);
        TRACE_AT(6, "wrote %ld bytes\n", n);
        if (n < 0) {
            socket_failure("OutgoingMessage::writebuf()");
            return 0;
        }
        if (n == 0) {
            TRACE("OutgoingMessage::writebuf() ... EOF");
            return 0;
        }
        at += n;
        length -= static_cast<uint32_t>(n);
        if (length != 0) TRACE_AT(8, "%u more bytes to write...\n", length);
    }
    return 1;
}

int GIOP::read_message(client_endpoint &conn, CDR &stream, Environment &env, bool *ended_before) {
    env.clear();
    if (ended_before != nullptr) *ended_before = false;
    stream.cursor = stream.base;
    stream.space_left = kHeaderSize;
    if (conn.fd == -1) {
        TRACE("read_message:  connection is closed");
        raise_system(env, exid::COMM_FAILURE);
        return giop_msg::MessageError;
    }
    Fill f{conn, stream};
    if (!take_ahead(f)) {
        drop_connection(conn, "no memory for bytes read ahead");
        raise_system(env, exid::NO_MEMORY);
        return giop_msg::MessageError;
    }
    while (f.have < kHeaderSize) {
        Arrival how = receive_more(f);
        if (how != Arrival::Bytes) {
            if (ended_before != nullptr && f.have == 0)
                *ended_before = how == Arrival::Closed || how == Arrival::Failed;
            header_failed(f, how);
            raise_system(env, exid::COMM_FAILURE);
            return giop_msg::MessageError;
        }
    }
    stream.cursor = stream.base;
    const unsigned char *h = stream.base;
    uint8_t type = h[7];
    bool bad_magic = std::memcmp(h, "GIOP", 4) != 0;
    bool bad_version = !bad_magic && (h[4] != 1 || h[5] > 0);
    uint32_t size = 0;
    if (!bad_magic && !bad_version) {
        stream.swap = h[6] == 1 ? 0 : 1;
        stream.cursor += 8;
        stream.space_left -= 8;
        stream.get_long(&size);
    }
    if (bad_magic || bad_version || size > limits::max_body_size) {
        // The bytes behind a refused header are read next, as they would be
        // without read-ahead.
        if (!keep_surplus(f, kHeaderSize)) drop_connection(conn, "no memory for bytes read ahead");
        if (bad_magic || bad_version) {
            if (bad_magic)
                TRACE("bad header, magic word");
            else
                TRACE("bad header, version");
            raise_system(env, exid::MARSHAL);
        } else {
            TRACE("read_message:  size %u too large", size);
            raise_system(env, exid::COMM_FAILURE);
        }
        return giop_msg::MessageError;
    }
    uint32_t swap = stream.swap;
    uint32_t total = size + kHeaderSize;
    bool ok = true;
    while (f.have < total) {
        if (!make_room(f, total)) {
            ok = false;
            break;
        }
        Arrival how = receive_more(f);
        if (how != Arrival::Bytes) {
            body_failed(f, how, size);
            ok = false;
            break;
        }
    }
    // A grown stream keeps its place and its byte order.
    stream.swap = swap;
    stream.cursor = stream.base + kHeaderSize;
    stream.space_left = size;
    stream.allow_value_memory(total);
    if (ok && !keep_surplus(f, total)) {
        drop_connection(conn, "no memory for bytes read ahead");
        ok = false;
    }
    if (ok) {
        message_dump("recv", stream.base, total);
        return type;
    }
    if (conn.fd != -1) {
        // Out of memory for the body: the rest of the message is unread.
        TRACE("couldn't read rest of message");
        drop_connection(conn, "no memory for the message");
    }
    stream.space_left = 0;
    raise_system(env, exid::COMM_FAILURE);
    return giop_msg::MessageError;
}

void abort_connection(int32_t *fd) {
    message_dump("send", kMessageError, kHeaderSize);
    if (*fd != -1) {
        platform::send_bytes(*fd, kMessageError, kHeaderSize);
        platform::close_socket(*fd);
    }
    TRACE("aborted socket %d", *fd);
    *fd = -1;
}

void message_dump(const char *word, const unsigned char *bytes, uint32_t total) {
    if (debug_level < 2) return;
    const char *name = bytes[7] <= 6 ? kTypeNames[bytes[7]] : "UNKNOWN TYPE";
    dmsg_v("%s GIOP v%c.%c msg, %d data bytes, %s endian, %s\n", word, '0' + bytes[4],
           '0' + bytes[5], static_cast<int>(total - kHeaderSize), bytes[6] == 1 ? "my" : "other",
           name);
    if (debug_level >= 4) dmsg_opaque_full("data bytes", bytes, static_cast<int>(total));
}
