// Captures and GIOP messages made by tests: pcap and pcapng files of TCP
// segments over any of the link types the recorder reads, and GIOP messages
// of any version and byte order, written field by field.
#ifndef ORBELLE_TESTS_RECORDER_CAPTURE_WRITER_H
#define ORBELLE_TESTS_RECORDER_CAPTURE_WRITER_H

#include <pcap/pcap.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/peer/peer.h"

namespace capwrite {

using Giop = peer::Writer;

// Numbers in network order, or in a capture file's (little-endian), aligned
// from the first byte written.
inline Giop net() { return Giop(false, 0); }
inline Giop file() { return Giop(true, 0); }

struct Host {
    std::string ip;  // 4 or 16 bytes
    uint16_t port;
};
inline Host v4(uint8_t last, uint16_t port) { return Host{{127, 0, 0, char(last)}, port}; }
inline Host v6(uint16_t port) { return Host{std::string(15, '\0') + '\1', port}; }  // ::1

// An IP packet carrying one TCP segment: no ack, a window of 65535, checksum
// and urgent pointer (not looked at) zero.
inline std::string ip_tcp(const Host &from, const Host &to, uint32_t seq, uint8_t flags,
                          const std::string &payload) {
    Giop tcp = net();
    tcp.ushort(from.port).ushort(to.port).ulong(seq).ulong(0).octet(5 << 4).octet(flags);
    tcp.ushort(65535).ulong(0).raw(payload);
    const auto size = static_cast<uint16_t>(tcp.bytes().size());
    Giop ip = net();
    if (from.ip.size() == 16)
        ip.ulong(0x60000000).ushort(size).octet(6).octet(64);
    else  // id 0, don't fragment
        ip.octet(0x45).octet(0).ushort(20 + size).ulong(0x4000).octet(64).octet(6).ushort(0);
    return ip.raw(from.ip + to.ip).raw(tcp.bytes()).bytes();
}

// The link layer of a packet: DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2,
// DLT_NULL or DLT_RAW.
inline std::string frame(int link, const std::string &ip) {
    const bool v6 = (static_cast<uint8_t>(ip[0]) >> 4) == 6;
    const std::string ethertype = net().ushort(v6 ? 0x86DD : 0x0800).bytes();
    if (link == DLT_EN10MB) return std::string(12, '\0') + ethertype + ip;
    if (link == DLT_LINUX_SLL) return std::string(14, '\0') + ethertype + ip;
    if (link == DLT_LINUX_SLL2) return ethertype + std::string(18, '\0') + ip;
    if (link == DLT_NULL) return file().ulong(v6 ? 30 : 2).bytes() + ip;
    return ip;  // DLT_RAW
}

struct Packet {
    int64_t time_us;
    std::string bytes;
};

// A classic pcap file (microseconds, little-endian) of packets; snaplen
// cuts each packet's captured bytes as a capture with that snap length does.
inline std::string pcap_file(int link, const std::vector<Packet> &packets,
                             uint32_t snaplen = 262144) {
    Giop f = file();
    f.ulong(0xa1b2c3d4).ushort(2).ushort(4).ulong(0).ulong(0).ulong(snaplen).ulong(link);
    std::string out = f.bytes();
    for (const Packet &p : packets) {
        const auto caplen = static_cast<uint32_t>(std::min<size_t>(p.bytes.size(), snaplen));
        Giop r = file();
        r.ulong(p.time_us / 1000000).ulong(p.time_us % 1000000).ulong(caplen).ulong(p.bytes.size());
        out += r.raw(p.bytes.substr(0, caplen)).bytes();
    }
    return out;
}

// The same packets as a pcapng file: a section, one interface with no snap
// length, enhanced packet blocks.
inline std::string pcapng_file(int link, const std::vector<Packet> &packets) {
    std::string out;
    auto block = [&out](uint32_t type, Giop body) {
        const std::string padded = body.align(4).bytes();
        const auto total = static_cast<uint32_t>(12 + padded.size());
        out += file().ulong(type).ulong(total).raw(padded).ulong(total).bytes();
    };
    block(0x0A0D0D0A, file().ulong(0x1A2B3C4D).ushort(1).ushort(0).ulong(~0u).ulong(~0u));
    block(1, file().ushort(static_cast<uint16_t>(link)).ushort(0).ulong(0));
    for (const Packet &p : packets) {
        const auto t = static_cast<uint64_t>(p.time_us);
        Giop body = file();
        body.ulong(0).ulong(t >> 32).ulong(t).ulong(p.bytes.size()).ulong(p.bytes.size());
        block(6, body.raw(p.bytes));
    }
    return out;
}

// A GIOP message begun: its header, with the body size left for sized() to
// fill in. The body is written on; alignment counts from the message's
// first byte.
inline Giop giop_start(uint8_t minor, bool little, uint8_t type, uint8_t more_flag = 0) {
    Giop w(little, 0);
    w.raw("GIOP").octet(1).octet(minor).octet((little ? 1 : 0) | more_flag).octet(type).ulong(0);
    return w;
}

// The message with its body size filled in, in the byte order its flags give.
inline std::string sized(const Giop &message) {
    std::string out = message.bytes();
    const auto size = static_cast<uint32_t>(out.size() - 12);
    return out.replace(8, 4, Giop((out[6] & 1) != 0, 0).ulong(size).bytes());
}

// An IIOP 1.0 profile body addressing key on the captures' server.
inline std::string iiop_profile(const std::string &key, bool little = false) {
    return peer::iiop_profile("127.0.0.1", 2809, key, little);
}

}  // namespace capwrite

#endif
