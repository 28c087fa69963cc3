// Whole GIOP 1.0 messages between a CDR stream and a socket: the 12-byte
// header, sending, receiving with the reply time-out, and the traffic dump.
#ifndef ORBELLE_GIOP_MESSAGE_H
#define ORBELLE_GIOP_MESSAGE_H

#include <cstdint>

class CDR;
class Environment;

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

// The wait for the first byte of each read, in milliseconds; set per request.
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

// Reads exactly length bytes, waiting at most timeout_ms for the first.
// Returns length, or 0 or less on time-out, end of stream or failure.
long read_buffer(int32_t fd, unsigned char *buffer, uint32_t length);

namespace GIOP {
// Receives one message into stream, which then reads its body in place.
// Returns the message type, or 6 on failure with env set. Never closes fd.
int read_message(int32_t fd, CDR &stream, Environment &env);
}  // namespace GIOP

// Sends the fixed MessageError, closes the socket and stores -1 at fd.
void abort_connection(int32_t *fd);

// The trace of one message; word is "send" or "recv".
void message_dump(const char *word, const unsigned char *bytes, uint32_t total);

#endif
