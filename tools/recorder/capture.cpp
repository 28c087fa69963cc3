#include "tools/recorder/capture.h"

#include <pcap/pcap.h>

#include <cstdio>
#include <cstring>

namespace recorder {
namespace {

constexpr uint16_t ethertype_ipv4 = 0x0800;
constexpr uint16_t ethertype_ipv6 = 0x86DD;
constexpr uint16_t ethertype_vlan = 0x8100;
constexpr uint8_t protocol_tcp = 6;

uint16_t be16(const uint8_t *p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
uint32_t be32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | p[3];
}

void set_v4(Endpoint &e, const uint8_t *address) {
    std::memset(e.address, 0, 10);
    e.address[10] = e.address[11] = 0xFF;
    std::memcpy(e.address + 12, address, 4);
    e.v4 = true;
}

void set_v6(Endpoint &e, const uint8_t *address) {
    std::memcpy(e.address, address, 16);
    e.v4 = false;
}

// The TCP header and payload at p, n bytes (the IP payload).
bool decode_tcp(const uint8_t *p, size_t n, Segment *s, CaptureCounts &counts) {
    if (n < 20) return ++counts.truncated, false;
    size_t header = static_cast<size_t>(p[12] >> 4) * 4;
    if (header < 20 || header > n) return ++counts.truncated, false;
    s->from.port = be16(p);
    s->to.port = be16(p + 2);
    s->seq = be32(p + 4);
    s->flags = p[13] & (tcp_fin | tcp_syn | tcp_rst | tcp_ack);
    s->data = p + header;
    s->length = n - header;
    return true;
}

// An IP packet of either version at p, n bytes captured.
bool decode_ip(const uint8_t *p, size_t n, Segment *s, CaptureCounts &counts) {
    if (n < 1) return ++counts.truncated, false;
    const unsigned version = p[0] >> 4;
    if (version == 4) {
        if (n < 20) return ++counts.truncated, false;
        size_t header = static_cast<size_t>(p[0] & 0x0F) * 4;
        size_t total = be16(p + 2);
        // A payload cut by the snap length would be a gap in the stream
        // that nothing reports: such a packet is refused as a whole.
        if (header < 20 || total < header || total > n) return ++counts.truncated, false;
        const bool fragment = (be16(p + 6) & 0x3FFF) != 0;
        if (p[9] != protocol_tcp || fragment) return ++counts.not_tcp, false;
        set_v4(s->from, p + 12);
        set_v4(s->to, p + 16);
        return decode_tcp(p + header, total - header, s, counts);
    }
    if (version == 6) {
        if (n < 40) return ++counts.truncated, false;
        size_t total = 40 + static_cast<size_t>(be16(p + 4));
        if (total > n) return ++counts.truncated, false;
        uint8_t next = p[6];
        size_t at = 40;
        // Hop-by-hop, routing and destination options may come before TCP;
        // a fragment header means a fragment, which is not reassembled.
        while (next == 0 || next == 43 || next == 60) {
            if (total - at < 8) return ++counts.truncated, false;
            size_t length = (static_cast<size_t>(p[at + 1]) + 1) * 8;
            if (total - at < length) return ++counts.truncated, false;
            next = p[at];
            at += length;
        }
        if (next != protocol_tcp) return ++counts.not_tcp, false;
        set_v6(s->from, p + 8);
        set_v6(s->to, p + 24);
        return decode_tcp(p + at, total - at, s, counts);
    }
    return ++counts.not_tcp, false;
}

// An ethertype-style protocol number followed by its packet.
bool decode_ethertype(uint16_t type, const uint8_t *p, size_t n, Segment *s,
                      CaptureCounts &counts) {
    if (type != ethertype_ipv4 && type != ethertype_ipv6) return ++counts.not_tcp, false;
    return decode_ip(p, n, s, counts);
}

}  // namespace

bool Endpoint::operator==(const Endpoint &o) const {
    return port == o.port && std::memcmp(address, o.address, 16) == 0;
}

bool Endpoint::operator<(const Endpoint &o) const {
    int c = std::memcmp(address, o.address, 16);
    return c != 0 ? c < 0 : port < o.port;
}

std::string Endpoint::host() const {
    char text[64];
    if (v4) {
        std::snprintf(text, sizeof text, "%u.%u.%u.%u", address[12], address[13], address[14],
                      address[15]);
        return text;
    }
    std::string out;
    for (int i = 0; i < 16; i += 2) {
        std::snprintf(text, sizeof text, "%s%x", i == 0 ? "" : ":", be16(address + i));
        out += text;
    }
    // The shortest form for loopback, the address captures mostly hold.
    if (out == "0:0:0:0:0:0:0:1") return "::1";
    return out;
}

std::string Endpoint::text() const {
    return (v4 ? host() : "[" + host() + "]") + ":" + std::to_string(port);
}

bool decode_packet(int link, const uint8_t *p, size_t n, Segment *s, CaptureCounts &counts) {
    switch (link) {
        case DLT_EN10MB: {
            if (n < 14) return ++counts.truncated, false;
            uint16_t type = be16(p + 12);
            size_t at = 14;
            while (type == ethertype_vlan) {
                if (n - at < 4) return ++counts.truncated, false;
                type = be16(p + at + 2);
                at += 4;
            }
            return decode_ethertype(type, p + at, n - at, s, counts);
        }
        case DLT_LINUX_SLL:
            if (n < 16) return ++counts.truncated, false;
            return decode_ethertype(be16(p + 14), p + 16, n - 16, s, counts);
        case DLT_LINUX_SLL2:
            if (n < 20) return ++counts.truncated, false;
            return decode_ethertype(be16(p), p + 20, n - 20, s, counts);
        case DLT_NULL:
        case DLT_LOOP:
            // A 4-byte address family (in the writer's byte order for NULL);
            // the IP header's version says the rest.
            if (n < 4) return ++counts.truncated, false;
            return decode_ip(p + 4, n - 4, s, counts);
        case DLT_RAW:
#ifdef DLT_IPV4
        case DLT_IPV4:
        case DLT_IPV6:
#endif
            return decode_ip(p, n, s, counts);
        default:
            ++counts.not_tcp;
            return false;
    }
}

bool read_capture(const std::string &path, const std::function<void(const Segment &)> &on_segment,
                  CaptureCounts &counts, std::string &error) {
    char message[PCAP_ERRBUF_SIZE] = "";
    pcap_t *pcap =
        pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_MICRO, message);
    if (pcap == nullptr) {
        error = path + ": " + message;
        return false;
    }
    const int link = pcap_datalink(pcap);
    switch (link) {
        case DLT_EN10MB:
        case DLT_LINUX_SLL:
        case DLT_LINUX_SLL2:
        case DLT_NULL:
        case DLT_LOOP:
        case DLT_RAW:
#ifdef DLT_IPV4
        case DLT_IPV4:
        case DLT_IPV6:
#endif
            break;
        default:
            error = path + ": link type " + std::to_string(link) + " (" +
                    (pcap_datalink_val_to_name(link) ? pcap_datalink_val_to_name(link) : "?") +
                    ") is not one of Ethernet, Linux cooked, loopback or raw IP";
            pcap_close(pcap);
            return false;
    }
    pcap_pkthdr *header = nullptr;
    const u_char *bytes = nullptr;
    int r;
    while ((r = pcap_next_ex(pcap, &header, &bytes)) == 1) {
        ++counts.packets;
        Segment s;
        s.time_us = static_cast<int64_t>(header->ts.tv_sec) * 1000000 + header->ts.tv_usec;
        if (decode_packet(link, bytes, header->caplen, &s, counts)) {
            ++counts.segments;
            on_segment(s);
        }
    }
    if (r == -1) {
        // A file cut in the middle of a packet: what came before stands.
        ++counts.truncated;
        error = path + ": " + pcap_geterr(pcap);
    }
    pcap_close(pcap);
    return true;
}

}  // namespace recorder
