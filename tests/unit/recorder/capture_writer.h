// Captures and GIOP messages made by tests: pcap and pcapng files of TCP
// segments over any of the link types the recorder reads, and GIOP messages
// of any version and byte order, written field by field.
#ifndef ORBELLE_TESTS_RECORDER_CAPTURE_WRITER_H
#define ORBELLE_TESTS_RECORDER_CAPTURE_WRITER_H

#include <pcap/pcap.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tests/peer/peer.h"

namespace capwrite {

// Little helpers that append numbers in a chosen byte order.
inline void put16(std::string &s, uint16_t v, bool little) {
    s += static_cast<char>(little ? v : v >> 8);
    s += static_cast<char>(little ? v >> 8 : v);
}
inline void put32(std::string &s, uint32_t v, bool little) {
    for (int i = 0; i < 4; ++i) s += static_cast<char>(v >> (little ? 8 * i : 8 * (3 - i)));
}

struct Host {
    uint8_t address[16];
    bool v6;
    uint16_t port;
};
inline Host v4(uint8_t last, uint16_t port) { return Host{{127, 0, 0, last}, false, port}; }
inline Host v6(uint16_t port) {
    Host h{{}, true, port};
    h.address[15] = 1;  // ::1
    return h;
}

// An IP packet carrying one TCP segment.
inline std::string ip_tcp(const Host &from, const Host &to, uint32_t seq, uint8_t flags,
                          const std::string &payload) {
    std::string tcp;
    put16(tcp, from.port, false);
    put16(tcp, to.port, false);
    put32(tcp, seq, false);
    put32(tcp, 0, false);  // ack
    tcp += static_cast<char>(5 << 4);
    tcp += static_cast<char>(flags);
    put16(tcp, 65535, false);
    put32(tcp, 0, false);  // checksum, urgent pointer: not looked at
    tcp += payload;
    std::string ip;
    if (!from.v6) {
        ip += static_cast<char>(0x45);
        ip += '\0';
        put16(ip, static_cast<uint16_t>(20 + tcp.size()), false);
        put32(ip, 0x00004000, false);  // id, don't fragment
        ip += static_cast<char>(64);
        ip += static_cast<char>(6);
        put16(ip, 0, false);
        ip.append(reinterpret_cast<const char *>(from.address), 4);
        ip.append(reinterpret_cast<const char *>(to.address), 4);
    } else {
        put32(ip, 0x60000000, false);
        put16(ip, static_cast<uint16_t>(tcp.size()), false);
        ip += static_cast<char>(6);
        ip += static_cast<char>(64);
        ip.append(reinterpret_cast<const char *>(from.address), 16);
        ip.append(reinterpret_cast<const char *>(to.address), 16);
    }
    return ip + tcp;
}

// The link layer of a packet: DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2,
// DLT_NULL or DLT_RAW.
inline std::string frame(int link, const std::string &ip) {
    const bool v6 = (static_cast<uint8_t>(ip[0]) >> 4) == 6;
    const uint16_t ethertype = v6 ? 0x86DD : 0x0800;
    std::string f;
    switch (link) {
        case DLT_EN10MB:
            f.assign(12, '\0');
            put16(f, ethertype, false);
            break;
        case DLT_LINUX_SLL:
            f.assign(14, '\0');
            put16(f, ethertype, false);
            break;
        case DLT_LINUX_SLL2:
            put16(f, ethertype, false);
            f.append(18, '\0');
            break;
        case DLT_NULL:
            put32(f, v6 ? 30 : 2, true);
            break;
        default:
            break;
    }
    return f + ip;
}

struct Packet {
    int64_t time_us;
    std::string bytes;
};

// A classic pcap file (microseconds, little-endian) of packets; snaplen
// cuts each packet's captured bytes as a capture with that snap length does.
inline std::string pcap_file(int link, const std::vector<Packet> &packets,
                             uint32_t snaplen = 262144) {
    std::string f;
    put32(f, 0xa1b2c3d4, true);
    put16(f, 2, true);
    put16(f, 4, true);
    put32(f, 0, true);
    put32(f, 0, true);
    put32(f, snaplen, true);
    put32(f, static_cast<uint32_t>(link), true);
    for (const Packet &p : packets) {
        const auto caplen = static_cast<uint32_t>(std::min<size_t>(p.bytes.size(), snaplen));
        put32(f, static_cast<uint32_t>(p.time_us / 1000000), true);
        put32(f, static_cast<uint32_t>(p.time_us % 1000000), true);
        put32(f, caplen, true);
        put32(f, static_cast<uint32_t>(p.bytes.size()), true);
        f.append(p.bytes, 0, caplen);
    }
    return f;
}

// The same packets as a pcapng file: a section, one interface, enhanced
// packet blocks.
inline std::string pcapng_file(int link, const std::vector<Packet> &packets) {
    auto block = [](std::string &f, uint32_t type, const std::string &body) {
        std::string padded = body;
        padded.append((4 - padded.size() % 4) % 4, '\0');
        const auto total = static_cast<uint32_t>(12 + padded.size());
        put32(f, type, true);
        put32(f, total, true);
        f += padded;
        put32(f, total, true);
    };
    std::string f, body;
    put32(body, 0x1A2B3C4D, true);
    put16(body, 1, true);
    put16(body, 0, true);
    put32(body, 0xFFFFFFFF, true);
    put32(body, 0xFFFFFFFF, true);
    block(f, 0x0A0D0D0A, body);
    body.clear();
    put16(body, static_cast<uint16_t>(link), true);
    put16(body, 0, true);
    put32(body, 0, true);  // no snap length
    block(f, 1, body);
    for (const Packet &p : packets) {
        body.clear();
        put32(body, 0, true);
        const auto t = static_cast<uint64_t>(p.time_us);
        put32(body, static_cast<uint32_t>(t >> 32), true);
        put32(body, static_cast<uint32_t>(t), true);
        put32(body, static_cast<uint32_t>(p.bytes.size()), true);
        put32(body, static_cast<uint32_t>(p.bytes.size()), true);
        body += p.bytes;
        block(f, 6, body);
    }
    return f;
}

// A GIOP message begun: its header, with the body size left for sized() to
// fill in. The body is written on; alignment counts from the message's
// first byte.
using Giop = peer::Writer;
inline Giop giop_start(uint8_t minor, bool little, uint8_t type, uint8_t more_flag = 0) {
    Giop w(little, 0);
    w.raw("GIOP").octet(1).octet(minor).octet((little ? 1 : 0) | more_flag).octet(type).ulong(0);
    return w;
}

// The message with its body size filled in, in the byte order its flags give.
inline std::string sized(const Giop &message) {
    std::string out = message.bytes(), size;
    put32(size, static_cast<uint32_t>(out.size() - 12), (out[6] & 1) != 0);
    return out.replace(8, 4, size);
}

// An IIOP 1.0 profile body addressing key on the captures' server.
inline std::string iiop_profile(const std::string &key, bool little = false) {
    return peer::iiop_profile("127.0.0.1", 2809, key, little);
}

}  // namespace capwrite

#endif
