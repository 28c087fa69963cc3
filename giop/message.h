// Whole GIOP 1.0 messages between a CDR stream and a socket: the 12-byte
// header, sending, receiving with the reply time-out, and the traffic dump.
#ifndef ORBELLE_GIOP_MESSAGE_H
#define ORBELLE_GIOP_MESSAGE_H

#include <cstdint>

class CDR;
class Environment;
struct client_endpoint;

namespace giop_msg {
enum : uint8_t {
    Request = 0,
    Reply = 1,
    CancelRequest = 2,
    LocateRequest = 3,
    LocateReply = 4,
    CloseConnection = 5,
    MessageError = 6,
};
constexpr uint32_t kHeaderSize = 12;
}  // namespace giop_msg

// The call's time-out for reading one message, in milliseconds; set per
// request.
extern int32_t timeout_ms;
// How many reads ran out of time.
extern uint32_t timeout_count;

// Writes a GIOP 1.0 header of the given type at the stream's base, leaving the
// size for writebuf. 1, or 0 when the stream is smaller than a header.
int start_message(uint8_t type, CDR &stream);

namespace OutgoingMessage {
// Fills in the size field and sends everything from base to cursor.
// 1 on success (an empty stream sends nothing), 0 on failure.
int writebuf(CDR &stream, int32_t *fd);
}  // namespace OutgoingMessage

namespace GIOP {
// Receives one message into stream, which then reads its body in place.
// Returns the message type, or 6 on failure with env set.
//
// Every wait inside the message ends with the deadline that the first wait
// sets (the call's time-out, at least one second). Bytes that came behind the
// message stay with the connection for its next read. A time-out before any
// byte keeps the connection; end of stream, a reset, or a message cut off
// closes it and marks it dead. When the connection ended (end of stream or
// a reset) before any byte of the message, *ended_before is set true.
int read_message(client_endpoint &conn, CDR &stream, Environment &env,
                 bool *ended_before = nullptr);
}  // namespace GIOP

// Sends the fixed MessageError, closes the socket and stores -1 at fd.
void abort_connection(int32_t *fd);

// The trace of one message; word is "send" or "recv".
void message_dump(const char *word, const unsigned char *bytes, uint32_t total);

#endif
