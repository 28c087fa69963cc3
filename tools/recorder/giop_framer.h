// GIOP messages in one direction of a reassembled stream: versions 1.0 to
// 1.2, either byte order, fragmented messages put back together. After a
// hole in the stream, or in a stream taken up in the middle, the framer
// looks for the next header that reads as one and goes on from there.
#ifndef ORBELLE_RECORDER_GIOP_FRAMER_H
#define ORBELLE_RECORDER_GIOP_FRAMER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace recorder {

enum GiopType : uint8_t {
    giop_request = 0,
    giop_reply = 1,
    giop_cancel_request = 2,
    giop_locate_request = 3,
    giop_locate_reply = 4,
    giop_close_connection = 5,
    giop_message_error = 6,
    giop_fragment = 7,
};

constexpr size_t giop_header_size = 12;

// One whole message: its 12-byte header (the size there is the body's, the
// more-fragments flag cleared) and its body, fragments joined.
struct GiopMessage {
    uint8_t minor = 0;
    bool little = false;
    uint8_t type = 0;
    std::string bytes;
    int64_t time_us = 0;     // when its first byte was captured
    uint32_t fragments = 0;  // fragments joined to the first part
};

struct FramerCounts {
    uint64_t messages = 0;
    uint64_t skipped_bytes = 0;     // passed over while looking for a header
    uint64_t cut_messages = 0;      // lost to a hole in the stream
    uint64_t refused_messages = 0;  // declared sizes over the limit
    uint64_t orphan_fragments = 0;  // fragments of no message in progress
};

class GiopFramer {
public:
    using Output = std::function<void(GiopMessage &&)>;
    explicit GiopFramer(Output out) : out_(std::move(out)) {}

    void data(const uint8_t *bytes, size_t n, int64_t time_us);
    // Bytes are missing here: the message in progress is lost, and the
    // stream is searched for the next header.
    void gap();
    const FramerCounts &counts() const { return counts_; }

private:
    // Returns true while a whole message was taken off the buffer.
    bool next_message();
    void complete(GiopMessage &&m, bool more);
    void fragment(GiopMessage &&m, bool more);

    Output out_;
    std::string buffer_;
    size_t start_ = 0;        // first unread byte of buffer_
    bool hunting_ = false;    // looking for a header
    int64_t first_time_ = 0;  // capture time of the unread bytes' first
    bool have_time_ = false;
    GiopMessage pending_11_;  // a GIOP 1.1 message awaiting fragments
    bool has_pending_11_ = false;
    std::map<uint32_t, GiopMessage> pending_12_;  // 1.2, by request id
    FramerCounts counts_;
};

// Whether the twelve bytes at p read as a GIOP header we take: the magic,
// version 1.0 to 1.2 and a known message type.
bool looks_like_header(const uint8_t *p);
// The body size a header declares.
uint32_t declared_size(const uint8_t *p);

}  // namespace recorder

#endif
