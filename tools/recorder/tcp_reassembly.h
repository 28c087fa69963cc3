// TCP reassembly: the bytes of each connection in both directions, in
// order, from segments in capture order. Retransmitted and overlapping
// bytes are taken once (the first copy wins); segments that come early wait
// until the bytes before them come, up to a bound; a hole that never fills
// is reported with its size, never filled with a guess. A connection whose
// start the capture missed is taken up from its first segment on.
#ifndef ORBELLE_RECORDER_TCP_REASSEMBLY_H
#define ORBELLE_RECORDER_TCP_REASSEMBLY_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "tools/recorder/capture.h"

namespace recorder {

// One TCP connection. ends[0] is the side that opened it (the sender of the
// first SYN) or, when the capture missed the opening, the sender of the
// first segment seen; direction 0 is ends[0] to ends[1].
struct Connection {
    uint64_t number = 0;  // 1, 2, ... in the order connections are seen
    Endpoint ends[2];
    bool opened_in_capture = false;  // the SYN was seen
    int64_t first_time_us = 0;
};

// Receives the reassembled streams.
class StreamSink {
public:
    virtual ~StreamSink() = default;
    // The next bytes of direction dir, in order; time is the capture time
    // of the segment that completed them.
    virtual void on_data(const Connection &c, int dir, const uint8_t *bytes, size_t n,
                         int64_t time_us) = 0;
    // Bytes of direction dir are missing before the next on_data: lost of
    // them, or an unknown number (0) when the capture starts in the middle.
    virtual void on_gap(const Connection &c, int dir, uint64_t lost, int64_t time_us) = 0;
    // The connection ended (FIN both ways, a reset, or the capture's end).
    virtual void on_close(const Connection &c) = 0;
};

class Reassembler {
public:
    explicit Reassembler(StreamSink &sink) : sink_(sink) {}
    ~Reassembler();
    void add(const Segment &s);
    // Ends every connection still open: held segments are delivered behind
    // the gaps before them.
    void finish();

    uint64_t connections_seen() const { return next_number_ - 1; }
    uint64_t bytes_lost() const { return bytes_lost_; }
    uint64_t retransmitted_bytes() const { return retransmitted_; }

private:
    struct Direction {
        bool started = false;
        bool fin = false;
        uint64_t fin_at = 0;                   // offset just past the last byte, once FIN came
        uint32_t next_seq = 0;                 // sequence number of the next byte wanted
        uint64_t next_abs = 0;                 // that byte's offset in the stream
        std::map<uint64_t, std::string> held;  // early segments by offset
        size_t held_bytes = 0;
    };
    struct State {
        Connection c;
        Direction d[2];
    };
    using Key = std::pair<Endpoint, Endpoint>;

    void take(State &st, int dir, const Segment &s);
    void deliver(State &st, int dir, uint64_t at, const uint8_t *p, size_t n, int64_t t);
    void drain(State &st, int dir, int64_t t);
    // Gives up on the hole before the first held segment.
    void skip_hole(State &st, int dir, int64_t t);
    void close(std::map<Key, State>::iterator it, int64_t t);
    static bool complete(const Direction &d) { return d.fin && d.next_abs >= d.fin_at; }

    StreamSink &sink_;
    std::map<Key, State> open_;
    uint64_t next_number_ = 1;
    uint64_t bytes_lost_ = 0;
    uint64_t retransmitted_ = 0;
};

}  // namespace recorder

#endif
