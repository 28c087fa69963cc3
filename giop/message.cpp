#include "giop/message.h"

#include <cerrno>
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

// Reads the body into stream behind the header; the result as read_buffer's.
long read_body(int32_t fd, CDR &stream, uint32_t size) {
    uint32_t total = size + kHeaderSize;
    if (size <= kEagerBodySize) {
        if (total > stream.capacity && !stream.grow(total)) return -1;
        return read_buffer(fd, stream.base + kHeaderSize, size);
    }
    uint32_t got = 0;
    while (got < size) {
        uint32_t room = stream.capacity - kHeaderSize - got;
        if (room == 0) {
            uint32_t next = stream.capacity > total / 2 ? total : stream.capacity * 2;
            if (!stream.grow(next)) return -1;
            room = stream.capacity - kHeaderSize - got;
        }
        uint32_t chunk = size - got < room ? size - got : room;
        long n = read_buffer(fd, stream.base + kHeaderSize + got, chunk);
        if (n != static_cast<long>(chunk)) return n <= 0 ? n : static_cast<long>(got) + n;
        got += chunk;
    }
    return static_cast<long>(size);
}

}  // namespace

int start_message(uint8_t type, CDR &stream) {
    stream.cursor = stream.base;
    stream.space_left = stream.capacity;
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

long read_buffer(int32_t fd, unsigned char *buffer, uint32_t length) {
    int32_t t = timeout_ms;
    int32_t start = HarnixGetTime();
    if (t < 0) {
        TRACE("read_buffer:  timeout already expired");
        return 0;
    }
    long seconds = t / 1000;
    long micros = (t % 1000) * 1000L;
    if (t < 1000) {
        seconds = 1;
        micros = 0;
    }
    int rc = platform::wait_readable(fd, seconds, micros);
    if (rc < 0) {
        TRACE("read_buffer:  select failed errno %d", errno);
        return 0;
    }
    if (rc == 0) {
        int32_t now = HarnixGetTime();
        if (static_cast<int64_t>(now) < static_cast<int64_t>(start) + t) return 0;
        TRACE("read_buffer:  select timeout at %d", now);
        ++timeout_count;
        return 0;
    }
    uint32_t got = 0;
    while (got < length) {
        long n = platform::recv_bytes(fd, buffer + got, length - got);
        if (n < 1) return n;
        got += static_cast<uint32_t>(n);
    }
    return static_cast<long>(length);
}

int GIOP::read_message(int32_t fd, CDR &stream, Environment &env) {
    env.clear();
    stream.cursor = stream.base;
    stream.space_left = kHeaderSize;
    long n = read_buffer(fd, stream.base, kHeaderSize);
    if (n != static_cast<long>(kHeaderSize)) {
        if (n == 0) {
            TRACE("read_message:  read 0 bytes");
        } else if (n < 0) {
            socket_failure("GIOP::read_message header");
        } else {
            TRACE("read message header failed (short)");
        }
        raise_system(env, exid::COMM_FAILURE);
        return giop_msg::MessageError;
    }
    const unsigned char *h = stream.base;
    if (std::memcmp(h, "GIOP", 4) != 0) {
        TRACE("bad header, magic word");
        raise_system(env, exid::MARSHAL);
        return giop_msg::MessageError;
    }
    if (h[4] != 1 || h[5] > 0) {
        TRACE("bad header, version");
        raise_system(env, exid::MARSHAL);
        return giop_msg::MessageError;
    }
    uint8_t type = h[7];
    stream.swap = h[6] == 1 ? 0 : 1;
    stream.cursor += 8;
    stream.space_left -= 8;
    uint32_t size = 0;
    stream.get_long(&size);
    if (size > limits::max_body_size) {
        TRACE("read_message:  size %u too large", size);
        raise_system(env, exid::COMM_FAILURE);
        return giop_msg::MessageError;
    }
    uint32_t swap = stream.swap;
    n = read_body(fd, stream, size);
    // A grown stream keeps its place and its byte order.
    stream.swap = swap;
    stream.cursor = stream.base + kHeaderSize;
    stream.space_left = size;
    if (n == static_cast<long>(size)) {
        message_dump("recv", stream.base, size + kHeaderSize);
        return type;
    }
    if (n == 0) {
        TRACE("read message body, EOF on fd %d", fd);
    } else if (n < 0) {
        TRACE("%s: %s", "GIOP::read_message() body", std::strerror(errno));
    } else {
        TRACE("short read, only %ld of %u bytes", n, size);
    }
    TRACE("couldn't read rest of message");
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
