// Reading captures: pcap and pcapng files through libpcap, down to the TCP
// segments they hold. Every length in a capture is checked against the bytes
// that are there; a packet that is not TCP over IPv4 or IPv6, or is cut
// short, is counted and passed over.
#ifndef ORBELLE_RECORDER_CAPTURE_H
#define ORBELLE_RECORDER_CAPTURE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace recorder {

// An address and port; IPv4 addresses are held as IPv4-mapped IPv6.
struct Endpoint {
    uint8_t address[16] = {};
    uint16_t port = 0;
    bool v4 = true;

    bool operator==(const Endpoint &o) const;
    bool operator<(const Endpoint &o) const;
    // "127.0.0.1:2809" or "[::1]:2809".
    std::string text() const;
    // The address alone, as text() writes it without the port.
    std::string host() const;
};

// Flags of a TCP segment that reassembly looks at.
enum : uint8_t { tcp_fin = 0x01, tcp_syn = 0x02, tcp_rst = 0x04, tcp_ack = 0x10 };

struct Segment {
    int64_t time_us = 0;  // capture time, microseconds since the epoch
    Endpoint from;
    Endpoint to;
    uint32_t seq = 0;
    uint8_t flags = 0;
    const uint8_t *data = nullptr;  // the payload, valid during the callback
    size_t length = 0;
};

// What reading a capture passed over.
struct CaptureCounts {
    uint64_t packets = 0;
    uint64_t segments = 0;
    uint64_t not_tcp = 0;    // other protocols, IP fragments
    uint64_t truncated = 0;  // cut short by the capture's snap length or broken
};

// Decodes one packet of link type link (a DLT_ value). True with *segment
// filled when it is a TCP segment; counts what it passes over.
bool decode_packet(int link, const uint8_t *bytes, size_t caplen, Segment *segment,
                   CaptureCounts &counts);

// Reads every packet of the capture at path, handing each TCP segment to
// on_segment in the file's order. False with error set when the file cannot
// be read as a capture or uses a link type not handled here; a file that
// ends in the middle of a packet ends the reading there, and counts.
bool read_capture(const std::string &path, const std::function<void(const Segment &)> &on_segment,
                  CaptureCounts &counts, std::string &error);

}  // namespace recorder

#endif
