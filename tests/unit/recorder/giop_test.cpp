// GIOP messages found in a reassembled stream, and their headers read as a
// server reads them.
#include <gtest/gtest.h>

#include "orbelle/limits.h"
#include "tests/unit/recorder/capture_writer.h"
#include "tools/recorder/giop_framer.h"
#include "tools/recorder/giop_headers.h"

using namespace recorder;
using capwrite::Giop;
using capwrite::giop_start;
using capwrite::sized;

namespace {

std::vector<GiopMessage> frame_all(const std::vector<std::string> &chunks,
                                   bool gap_after_first = false, FramerCounts *counts = nullptr) {
    std::vector<GiopMessage> out;
    GiopFramer f([&](GiopMessage &&m) { out.push_back(std::move(m)); });
    for (size_t i = 0; i < chunks.size(); ++i) {
        f.data(reinterpret_cast<const uint8_t *>(chunks[i].data()), chunks[i].size(), 0);
        if (i == 0 && gap_after_first) f.gap();
    }
    if (counts) *counts = f.counts();
    return out;
}

// A Request of each version; the 1.2 one addresses its target by kind.
std::string request(uint8_t minor, bool little, uint32_t id, const std::string &key,
                    const std::string &op, int target_kind = 0, uint8_t more = 0) {
    Giop g = giop_start(minor, little, giop_request, more);
    if (minor < 2) {
        g.ulong(1).ulong(0x4F4D4E49).octets("ctx");  // one service context
        g.ulong(id).octet(1);
        if (minor == 1) g.octet(0).octet(0).octet(0);
        g.octets(key).string(op).octets("");
    } else {
        g.ulong(id).octet(3).octet(0).octet(0).octet(0).ushort(static_cast<uint16_t>(target_kind));
        if (target_kind == 0) g.octets(key);
        if (target_kind == 1) g.ulong(0).octets(capwrite::iiop_profile(key, little));
        if (target_kind == 2) {
            g.ulong(1).string("IDL:Bank/Account:1.0").ulong(2).ulong(1).octets("other profile");
            g.ulong(0).octets(capwrite::iiop_profile(key, !little));
        }
        g.string(op).ulong(0).align(8);
    }
    g.ulong(0xCAFE0001);  // the body: one long
    return sized(g);
}

std::string reply(uint8_t minor, bool little, uint32_t id, uint32_t status) {
    Giop g = giop_start(minor, little, giop_reply);
    if (minor < 2)
        g.ulong(0).ulong(id).ulong(status);
    else
        g.ulong(id).ulong(status).ulong(0).align(8);
    g.ulong(7);
    return sized(g);
}

std::vector<std::string> bytes_of(const std::vector<GiopMessage> &ms) {
    std::vector<std::string> out;
    for (const GiopMessage &m : ms) out.push_back(m.bytes);
    return out;
}

GiopMessage one_message(const std::string &bytes) {
    std::vector<GiopMessage> ms = frame_all({bytes});
    EXPECT_EQ(ms.size(), 1u);
    return ms.empty() ? GiopMessage{} : ms[0];
}

// Why read_header refuses m, or "read" when it does not.
std::string refusal(const GiopMessage &m) {
    GiopHeader h;
    std::string why;
    return read_header(m, h, why) ? "read" : why;
}

GiopHeader header_of(const GiopMessage &m) {
    GiopHeader h;
    std::string why;
    EXPECT_TRUE(read_header(m, h, why)) << why;
    return h;
}

}  // namespace

// The headers of every version, byte order and target kind: the fields a
// script is made from, and where the body starts (8-aligned in 1.2).
TEST(GiopHeaders, EveryVersionByteOrderAndTargetKind) {
    for (uint8_t minor = 0; minor <= 2; ++minor) {
        for (bool little : {false, true}) {
            for (int kind = 0; kind <= (minor == 2 ? 2 : 0); ++kind) {
                SCOPED_TRACE(std::to_string(minor) + (little ? " le " : " be ") +
                             std::to_string(kind));
                std::string bytes = request(minor, little, 77, "key\x01", "deposit", kind);
                GiopHeader h = header_of(one_message(bytes));
                EXPECT_EQ(
                    std::make_tuple(h.request_id, h.response_expected, h.object_key, h.operation,
                                    h.target_kind, h.target_type_id, bytes.size() - h.body_offset),
                    std::make_tuple(77u, true, std::string("key\x01"), std::string("deposit"), kind,
                                    kind == 2 ? "IDL:Bank/Account:1.0" : "", 4u));
                EXPECT_TRUE(minor < 2 || h.body_offset % 8 == 0) << h.body_offset;
                GiopHeader r = header_of(one_message(reply(minor, little, 77, 1)));
                EXPECT_EQ(std::make_pair(r.request_id, r.status), std::make_pair(77u, 1u));
            }
        }
    }
    GiopHeader l = header_of(one_message(
        sized(giop_start(2, false, giop_locate_request).ulong(9).ushort(0).octets("k"))));
    EXPECT_EQ(std::make_pair(l.request_id, l.object_key), std::make_pair(9u, std::string("k")));
}

// A header cut at any length, or holding what no peer sends, is refused
// with a reason; nothing is read past the message.
TEST(GiopHeaders, CutOrImpossibleHeadersAreRefused) {
    const std::string whole = request(2, true, 5, "key", "op", 2);
    // The header ends 8 bytes before the message: padding, then the body.
    for (size_t cut = giop_header_size; cut < whole.size() - 8; ++cut) {
        const std::string why = refusal({2, true, giop_request, whole.substr(0, cut)});
        EXPECT_TRUE(why != "read" && !why.empty()) << cut << " " << why;
    }
    const std::string past = "header runs past the message";
    const std::pair<Giop, std::string> bad[] = {
        {giop_start(0, false, giop_request).ulong(0).ulong(1).octet(1).ulong(0xFFFFFFF0), past},
        {giop_start(2, false, giop_request).ulong(1).octet(3).octet(0).octet(0).octet(0).ushort(3),
         "unknown target address kind 3"},
        {giop_start(1, false, giop_reply).ulong(0).ulong(1).ulong(6), "unknown reply status"},
        // No NUL after the operation; more contexts than bytes.
        {giop_start(0, false, giop_request).ulong(0).ulong(1).octet(1).octets("k").octets("op"),
         past},
        {giop_start(0, false, giop_request).ulong(0x10000000), past},
    };
    for (const auto &b : bad) EXPECT_EQ(refusal(one_message(sized(b.first))), b.second);
}

// Messages split at every byte boundary come out whole and unchanged.
TEST(GiopFramer, MessagesSplitAnywhereComeOutWhole) {
    const std::string a = request(0, false, 1, "k", "balance"), b = reply(0, true, 1, 0);
    const std::string both = a + b;
    for (size_t cut = 0; cut <= both.size(); ++cut) {
        std::vector<GiopMessage> ms = frame_all({both.substr(0, cut), both.substr(cut)});
        EXPECT_EQ(bytes_of(ms), (std::vector<std::string>{a, b})) << cut;
        EXPECT_TRUE(ms.size() == 2 && ms[1].little) << cut;
    }
}

// Fragments: 1.1's follow their message; 1.2's carry the request id and may
// interleave. The joined message has the whole size and no more-fragments
// flag, and its body is the parts' bodies in order.
TEST(GiopFramer, FragmentsAreJoined) {
    for (bool little : {false, true}) {
        auto frag11 = [&](const std::string &data, bool more) {
            return sized(giop_start(1, little, giop_fragment, more ? 2 : 0).raw(data));
        };
        std::vector<GiopMessage> ms = frame_all(
            {sized(giop_start(1, little, giop_reply, 2).ulong(0).ulong(4).ulong(0).raw("AAAA")) +
                 frag11("BBBB", true),
             frag11("CC", false)});
        ASSERT_EQ(ms.size(), 1u);
        EXPECT_EQ(ms[0].bytes.substr(ms[0].bytes.size() - 10), "AAAABBBBCC");
        EXPECT_EQ(ms[0].fragments, 2u);
        EXPECT_EQ(declared_size(reinterpret_cast<const uint8_t *>(ms[0].bytes.data())),
                  ms[0].bytes.size() - giop_header_size);
        EXPECT_EQ(ms[0].bytes[6] & 2, 0);

        // Two 1.2 requests, their fragments interleaved.
        std::string r1 = request(2, little, 1, "k", "one", 0, 2);
        std::string r2 = request(2, little, 2, "k", "two", 0, 2);
        auto frag12 = [&](uint32_t id, const std::string &data, bool more) {
            return sized(giop_start(2, little, giop_fragment, more ? 2 : 0).ulong(id).raw(data));
        };
        ms = frame_all({r1 + r2 + frag12(2, "22222222", true) + frag12(1, "1111", false) +
                        frag12(2, "2", false) + frag12(9, "orphan", false)});
        ASSERT_EQ(ms.size(), 2u);
        EXPECT_EQ(ms[0].bytes.substr(ms[0].bytes.size() - 4), "1111");
        EXPECT_EQ(ms[1].bytes.substr(ms[1].bytes.size() - 9), "222222222");
        EXPECT_EQ(header_of(ms[1]).operation, "two");
    }
    // As many 1.2 messages awaiting fragments as the limit allows; one more
    // is refused, and the ones held still complete.
    std::string pending, ends;
    for (uint32_t id = 1; id <= limits::max_capture_fragmented + 1; ++id) {
        pending += request(2, false, id, "k", "op", 0, 2);
        ends += sized(giop_start(2, false, giop_fragment).ulong(id));
    }
    FramerCounts counts;
    EXPECT_EQ(frame_all({pending + ends}, false, &counts).size(), limits::max_capture_fragmented);
    EXPECT_EQ(std::make_pair(counts.refused_messages, counts.orphan_fragments),
              std::make_pair(uint64_t{1}, uint64_t{1}));

    frame_all({sized(giop_start(2, false, giop_fragment).ulong(3).raw("x"))}, false, &counts);
    EXPECT_EQ(counts.orphan_fragments, 1u);
}

// After a hole, or in a stream taken up in the middle, the framer finds the
// next header; bytes that only look like one (a size over the limit) are
// passed over, and the message cut by the hole is counted.
TEST(GiopFramer, FindsItsWayAfterHolesAndGarbage) {
    const std::string m = request(0, false, 3, "k", "op");
    FramerCounts counts;
    EXPECT_EQ(
        bytes_of(frame_all({m.substr(0, 20), "xx" + m.substr(5) + "GIOP" + m}, true, &counts)),
        std::vector<std::string>{m});
    EXPECT_EQ(counts.cut_messages, 1u);
    EXPECT_GT(counts.skipped_bytes, 0u);

    std::string huge = m;
    huge[8] = '\x7F';  // a body of 2 GiB declared
    EXPECT_EQ(bytes_of(frame_all({huge + m}, false, &counts)), std::vector<std::string>{m});
    EXPECT_EQ(counts.refused_messages, 1u);

    // A header for 1.3, an unknown type, or flag bits nobody sets: not a
    // header.
    for (int field : {5, 7, 6}) {
        std::string odd = m;
        odd[static_cast<size_t>(field)] = field == 6 ? '\x10' : '\x09';
        EXPECT_FALSE(looks_like_header(reinterpret_cast<const uint8_t *>(odd.data())));
    }
}
