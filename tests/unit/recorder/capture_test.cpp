// Capture files and TCP reassembly: what the recorder reads below GIOP.
#include "tools/recorder/capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/support.h"
#include "tests/unit/recorder/capture_writer.h"
#include "tools/recorder/tcp_reassembly.h"

using namespace recorder;
using capwrite::Packet;

namespace {

// Each segment read as "from > to seq flags time payload".
struct Read {
    std::vector<std::string> segments;
    CaptureCounts counts;
    std::string error;
    bool ok = false;
    // The counts as "packets segments-read not-tcp truncated".
    std::string counted() const {
        return std::to_string(counts.packets) + " " + std::to_string(segments.size()) + " " +
               std::to_string(counts.not_tcp) + " " + std::to_string(counts.truncated);
    }
};

Read read_bytes(const std::string &file) {
    testsupport::TempDir dir;
    dir.write("c.cap", file);
    Read r;
    auto add = [&](const Segment &s) {
        r.segments.push_back(s.from.text() + " > " + s.to.text() + " " + std::to_string(s.seq) +
                             " " + std::to_string(s.flags) + " " + std::to_string(s.time_us) + " " +
                             std::string(reinterpret_cast<const char *>(s.data), s.length));
    };
    r.ok = read_capture(dir.path() + "/c.cap", add, r.counts, r.error);
    return r;
}

const capwrite::Host client4 = capwrite::v4(1, 40000), server4 = capwrite::v4(2, 2809);
const capwrite::Host client6 = capwrite::v6(40000), server6 = capwrite::v6(2809);

// Collects what reassembly delivers, per connection and direction, with
// gaps written into the text as "<gap N>".
struct Collect : StreamSink {
    std::map<uint64_t, std::string> streams[2];
    std::vector<uint64_t> closed;
    std::vector<Connection> connections;
    void on_data(const Connection &c, int dir, const uint8_t *p, size_t n, int64_t) override {
        if (streams[0].count(c.number) + streams[1].count(c.number) == 0) connections.push_back(c);
        streams[dir][c.number].append(reinterpret_cast<const char *>(p), n);
    }
    void on_gap(const Connection &c, int dir, uint64_t lost, int64_t) override {
        streams[dir][c.number] += "<gap " + std::to_string(lost) + ">";
    }
    void on_close(const Connection &c) override { closed.push_back(c.number); }
};

Segment seg(bool from_client, uint32_t seq, uint8_t flags, const std::string &data) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(data.data());
    Segment s{0, {{}, 40000, true}, {{}, 2809, true}, seq, flags, bytes, data.size()};
    if (!from_client) std::swap(s.from, s.to);
    return s;
}

}  // namespace

// Every link type, both file formats, both IP versions: the segment comes
// out with its endpoints, sequence number, flags, time and payload.
TEST(Capture, EveryLinkTypeAndFormatGivesTheSegment) {
    struct Case {
        int link;
        bool v6;
        bool pcapng;
    };
    const Case cases[] = {
        {DLT_EN10MB, false, false},    {DLT_EN10MB, true, true}, {DLT_LINUX_SLL, false, true},
        {DLT_LINUX_SLL2, true, false}, {DLT_NULL, false, false}, {DLT_NULL, true, true},
        {DLT_RAW, false, true},        {DLT_RAW, true, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.link) + (c.v6 ? " v6" : " v4") + (c.pcapng ? " ng" : ""));
        std::vector<Packet> packets{
            {1700000000123456,
             capwrite::frame(c.link,
                             capwrite::ip_tcp(c.v6 ? client6 : client4, c.v6 ? server6 : server4,
                                              0xFFFFFFF0, tcp_ack | tcp_fin, "GIOP"))}};
        Read r = read_bytes(c.pcapng ? capwrite::pcapng_file(c.link, packets)
                                     : capwrite::pcap_file(c.link, packets));
        ASSERT_TRUE(r.ok) << r.error;
        const std::string ends =
            c.v6 ? "[::1]:40000 > [::1]:2809" : "127.0.0.1:40000 > 127.0.0.2:2809";
        EXPECT_EQ(r.segments, std::vector<std::string>{ends + " 4294967280 " +
                                                       std::to_string(tcp_ack | tcp_fin) +
                                                       " 1700000000123456 GIOP"});
    }
}

// What is not a readable TCP segment is counted and passed over; files
// that are no capture, or of a link type not read, are refused with the
// file's name; a file cut in the middle of a packet keeps what came before.
TEST(Capture, BrokenInputIsCountedOrRefusedNeverRead) {
    const std::string segment = capwrite::ip_tcp(client4, server4, 1, tcp_ack, "0123456789");
    auto changed = [&](size_t at, int byte) {
        std::string s = segment;
        s[at] = static_cast<char>(byte);
        return capwrite::frame(DLT_EN10MB, s);
    };
    // The segment as it is (0x45: IPv4, a header of 5 words), then UDP, a
    // fragment, an IP header longer than the packet, a TCP header of 60
    // bytes, a packet too short for IP.
    std::vector<Packet> packets{
        {1, changed(0, 0x45)}, {2, changed(9, 17)},       {3, changed(6, 0x20)},
        {4, changed(0, 0x4F)}, {5, changed(32, 15 << 4)}, {6, "\x01\x02"},
    };
    Read r = read_bytes(capwrite::pcap_file(DLT_EN10MB, packets));
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.counted(), "6 1 2 3");

    // A snap length that cuts the payload: refused, or the stream would
    // have a hole nobody reported.
    EXPECT_EQ(read_bytes(capwrite::pcap_file(DLT_EN10MB, {packets[0]}, 60)).counted(), "1 0 0 1");

    std::string whole = capwrite::pcap_file(DLT_EN10MB, {packets[0], packets[0]});
    Read ended = read_bytes(whole.substr(0, whole.size() - 5));
    EXPECT_TRUE(ended.ok);
    EXPECT_EQ(ended.counted(), "1 1 0 1");  // the cut packet is not one
    EXPECT_NE(ended.error.find("c.cap"), std::string::npos);

    for (const std::string &bad :
         {std::string("not a capture at all"), capwrite::pcap_file(DLT_IEEE802_11, {packets[0]})}) {
        Read refused = read_bytes(bad);
        EXPECT_FALSE(refused.ok);
        EXPECT_NE(refused.error.find("c.cap: "), std::string::npos) << refused.error;
    }
}

// The client's bytes in many orders of arrival: whatever the order,
// repetition and overlap, the stream comes out once, in order; a hole that
// never fills is reported with its size.
TEST(Reassembly, OrdersRetransmissionsOverlapsAndHoles) {
    const uint32_t isn = 0xFFFFFFF8;  // the stream's sequence numbers wrap
    struct Piece {
        uint32_t offset;
        std::string data;
    };
    struct Case {
        const char *name;
        bool syn;
        std::vector<Piece> pieces;
        const char *expected;
    };
    const Case cases[] = {
        {"in order", true, {{0, "abcd"}, {4, "efgh"}, {8, "ijkl"}}, "abcdefghijkl"},
        {"reversed", true, {{8, "ijkl"}, {4, "efgh"}, {0, "abcd"}}, "abcdefghijkl"},
        {"retransmitted", true, {{0, "abcd"}, {0, "abcd"}, {4, "efgh"}, {4, "efgh"}}, "abcdefgh"},
        {"overlapping", true, {{0, "abcdef"}, {3, "defghi"}, {2, "cdefghijkl"}}, "abcdefghijkl"},
        {"early copy twice", true, {{4, "ef"}, {4, "efgh"}, {0, "abcd"}}, "abcdefgh"},
        {"from the middle", false, {{100, "mnop"}, {104, "qr"}}, "<gap 0>mnopqr"},
        {"lost segment", true, {{0, "abcd"}, {8, "ijkl"}}, "abcd<gap 4>ijkl"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Collect sink;
        Reassembler r(sink);
        if (c.syn) r.add(seg(true, isn - 1, tcp_syn, ""));
        for (const Piece &p : c.pieces) r.add(seg(true, isn + p.offset, tcp_ack, p.data));
        r.finish();
        EXPECT_EQ(sink.streams[0][1], c.expected);
        EXPECT_EQ(sink.closed, std::vector<uint64_t>{1});
    }
}

// Both directions apart; a connection closes on FIN both ways once every
// byte before the FINs came, or on a reset; a new SYN on the same ports is a
// new connection. Held bytes are bounded: past the bound the hole is given up.
TEST(Reassembly, ConnectionsOpenAndCloseAndHeldBytesAreBounded) {
    Collect sink;
    Reassembler r(sink);
    r.add(seg(false, 500, tcp_syn | tcp_ack, ""));  // the SYN-ACK seen first
    r.add(seg(true, 100, tcp_syn, ""));
    r.add(seg(true, 101, tcp_ack | tcp_fin, "req2"));
    EXPECT_TRUE(sink.closed.empty());
    r.add(seg(false, 501, tcp_ack, "reply"));
    r.add(seg(false, 506, tcp_ack | tcp_fin, ""));
    EXPECT_EQ(sink.closed, std::vector<uint64_t>{1});
    ASSERT_EQ(sink.connections.size(), 1u);
    EXPECT_EQ(sink.connections[0].ends[0].port, 40000) << "the opener is ends[0]";
    EXPECT_EQ(sink.streams[0][1] + "|" + sink.streams[1][1], "req2|reply");

    r.add(seg(true, 9000, tcp_syn, ""));
    r.add(seg(true, 9001, tcp_ack, "again"));
    r.add(seg(false, 77, tcp_rst, ""));
    EXPECT_EQ(sink.closed, (std::vector<uint64_t>{1, 2}));
    EXPECT_EQ(sink.streams[0][2], "again");

    r.add(seg(true, 1, tcp_syn, ""));
    std::string chunk(1 << 20, 'x');
    for (uint32_t i = 0; i < 4; ++i) r.add(seg(true, 2 + 10 + i * (1u << 20), tcp_ack, chunk));
    EXPECT_EQ(sink.streams[0].count(3), 0u) << "4 MiB are held";
    r.add(seg(true, 2 + 10 + (4u << 20), tcp_ack, chunk));
    EXPECT_EQ(r.bytes_lost(), 10u);
    EXPECT_EQ(sink.streams[0][3].substr(0, 8), "<gap 10>");
    EXPECT_EQ(sink.streams[0][3].size(), 8 + (5u << 20)) << "given up at the fifth MiB held";
    EXPECT_TRUE(sink.closed.size() == 2) << "still open";
}

// A shuffled stream of many segments, some sent twice: the bytes come out
// as they went in, whatever the seed.
TEST(Reassembly, ShuffledSegmentsComeBackInOrder) {
    std::string sent;
    for (int i = 0; i < 5000; ++i) sent += static_cast<char>('a' + i % 26);
    for (unsigned seed = 1; seed <= 5; ++seed) {
        std::mt19937 rng(seed);
        std::vector<std::pair<uint32_t, std::string>> pieces;
        for (size_t at = 0; at < sent.size();) {
            size_t n = 1 + rng() % 90;
            pieces.emplace_back(static_cast<uint32_t>(at), sent.substr(at, n));
            if (rng() % 4 == 0) pieces.emplace_back(static_cast<uint32_t>(at), sent.substr(at, n));
            at += n;
        }
        // Reordered only within a window, as a network does.
        for (size_t i = 0; i + 8 < pieces.size(); i += 8)
            std::shuffle(pieces.begin() + i, pieces.begin() + i + 8, rng);
        Collect sink;
        Reassembler r(sink);
        r.add(seg(true, 0x7FFFFFFF, tcp_syn, ""));
        for (auto &p : pieces) r.add(seg(true, 0x80000000u + p.first, tcp_ack, p.second));
        r.finish();
        EXPECT_EQ(sink.streams[0][1], sent) << "seed " << seed;
    }
}
