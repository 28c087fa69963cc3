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
            g.ulong(1).string("IDL:Bank/Account:1.0").ulong(2);
            g.ulong(1).octets("other profile");
            g.ulong(0).octets(capwrite::iiop_profile(key, !little));
        }
        g.string(op).ulong(0);
        g.align(8);
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

GiopHeader header_of(const std::string &bytes) {
    std::vector<GiopMessage> ms = frame_all({bytes});
    EXPECT_EQ(ms.size(), 1u);
    GiopHeader h;
    std::string why;
    EXPECT_TRUE(!ms.empty() && read_header(ms[0], h, why)) << why;
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
                GiopHeader h = header_of(bytes);
                EXPECT_EQ(h.request_id, 77u);
                EXPECT_TRUE(h.response_expected);
                EXPECT_EQ(h.object_key, std::string("key\x01"));
                EXPECT_EQ(h.operation, "deposit");
                EXPECT_EQ(h.target_kind, kind);
                EXPECT_EQ(h.target_type_id, kind == 2 ? "IDL:Bank/Account:1.0" : "");
                EXPECT_EQ(bytes.size() - h.body_offset, 4u);
                if (minor == 2) {
                    EXPECT_EQ(h.body_offset % 8, 0u);
                }

                GiopHeader r = header_of(reply(minor, little, 77, 1));
                EXPECT_EQ(r.request_id, 77u);
                EXPECT_EQ(r.status, 1u);
            }
        }
    }
    Giop locate = giop_start(2, false, giop_locate_request);
    locate.ulong(9).ushort(0).octets("k");
    GiopHeader l = header_of(sized(locate));
    EXPECT_EQ(l.request_id, 9u);
    EXPECT_EQ(l.object_key, "k");
}

// A header cut at any length, or holding what no peer sends, is refused
// with a reason; nothing is read past the message.
TEST(GiopHeaders, CutOrImpossibleHeadersAreRefused) {
    const std::string whole = request(2, true, 5, "key", "op", 2);
    // The header ends 8 bytes before the message: padding, then the body.
    for (size_t cut = giop_header_size; cut < whole.size() - 8; ++cut) {
        GiopMessage m;
        m.minor = 2;
        m.little = true;
        m.type = giop_request;
        m.bytes = whole.substr(0, cut);
        GiopHeader h;
        std::string why;
        EXPECT_FALSE(read_header(m, h, why)) << cut;
        EXPECT_FALSE(why.empty());
    }
    struct Bad {
        std::string bytes;
        const char *why;
    };
    Giop huge_key = giop_start(0, false, giop_request);
    huge_key.ulong(0).ulong(1).octet(1).ulong(0xFFFFFFF0);
    Giop bad_kind = giop_start(2, false, giop_request);
    bad_kind.ulong(1).octet(3).octet(0).octet(0).octet(0).ushort(3);
    Giop bad_status = giop_start(1, false, giop_reply);
    bad_status.ulong(0).ulong(1).ulong(6);
    Giop no_null = giop_start(0, false, giop_request);
    no_null.ulong(0).ulong(1).octet(1).octets("k").octets("op");
    Giop many_contexts = giop_start(0, false, giop_request);
    many_contexts.ulong(0x10000000);
    const Bad bad[] = {{sized(huge_key), "header runs past the message"},
                       {sized(bad_kind), "unknown target address kind 3"},
                       {sized(bad_status), "unknown reply status"},
                       {sized(no_null), "header runs past the message"},
                       {sized(many_contexts), "header runs past the message"}};
    for (const Bad &b : bad) {
        std::vector<GiopMessage> ms = frame_all({b.bytes});
        ASSERT_EQ(ms.size(), 1u);
        GiopHeader h;
        std::string why;
        EXPECT_FALSE(read_header(ms[0], h, why));
        EXPECT_EQ(why, b.why);
    }
}

// Messages split at every byte boundary come out whole and unchanged.
TEST(GiopFramer, MessagesSplitAnywhereComeOutWhole) {
    const std::string a = request(0, false, 1, "k", "balance"), b = reply(0, true, 1, 0);
    const std::string both = a + b;
    for (size_t cut = 0; cut <= both.size(); ++cut) {
        std::vector<GiopMessage> ms = frame_all({both.substr(0, cut), both.substr(cut)});
        ASSERT_EQ(ms.size(), 2u) << cut;
        EXPECT_EQ(ms[0].bytes, a);
        EXPECT_EQ(ms[1].bytes, b);
        EXPECT_TRUE(ms[1].little);
    }
}

// Fragments: 1.1's follow their message; 1.2's carry the request id and may
// interleave. The joined message has the whole size and no more-fragments
// flag, and its body is the parts' bodies in order.
TEST(GiopFramer, FragmentsAreJoined) {
    for (bool little : {false, true}) {
        Giop first11 = giop_start(1, little, giop_reply, 2);
        first11.ulong(0).ulong(4).ulong(0).raw("AAAA");
        Giop frag11 = giop_start(1, little, giop_fragment, 2);
        Giop last11 = giop_start(1, little, giop_fragment);
        frag11.raw("BBBB");
        last11.raw("CC");
        std::vector<GiopMessage> ms = frame_all({sized(first11) + sized(frag11), sized(last11)});
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
            Giop f = giop_start(2, little, giop_fragment, more ? 2 : 0);
            return sized(f.ulong(id).raw(data));
        };
        ms = frame_all({r1 + r2 + frag12(2, "22222222", true) + frag12(1, "1111", false) +
                        frag12(2, "2", false) + frag12(9, "orphan", false)});
        ASSERT_EQ(ms.size(), 2u);
        EXPECT_EQ(ms[0].bytes.substr(ms[0].bytes.size() - 4), "1111");
        EXPECT_EQ(ms[1].bytes.substr(ms[1].bytes.size() - 9), "222222222");
        GiopHeader h;
        std::string why;
        EXPECT_TRUE(read_header(ms[1], h, why)) << why;
        EXPECT_EQ(h.operation, "two");
    }
    // As many 1.2 messages awaiting fragments as the limit allows; one more
    // is refused, and the ones held still complete.
    std::string pending, ends;
    for (uint32_t id = 1; id <= limits::max_capture_fragmented + 1; ++id) {
        pending += request(2, false, id, "k", "op", 0, 2);
        Giop end = giop_start(2, false, giop_fragment);
        ends += sized(end.ulong(id));
    }
    FramerCounts counts;
    EXPECT_EQ(frame_all({pending + ends}, false, &counts).size(), limits::max_capture_fragmented);
    EXPECT_EQ(counts.refused_messages, 1u);
    EXPECT_EQ(counts.orphan_fragments, 1u);

    Giop orphan = giop_start(2, false, giop_fragment);
    frame_all({sized(orphan.ulong(3).raw("x"))}, false, &counts);
    EXPECT_EQ(counts.orphan_fragments, 1u);
}

// After a hole, or in a stream taken up in the middle, the framer finds the
// next header; bytes that only look like one (a size over the limit) are
// passed over, and the message cut by the hole is counted.
TEST(GiopFramer, FindsItsWayAfterHolesAndGarbage) {
    const std::string m = request(0, false, 3, "k", "op");
    FramerCounts counts;
    std::vector<GiopMessage> ms =
        frame_all({m.substr(0, 20), "xx" + m.substr(5) + "GIOP" + m}, true, &counts);
    ASSERT_EQ(ms.size(), 1u);
    EXPECT_EQ(ms[0].bytes, m);
    EXPECT_EQ(counts.cut_messages, 1u);
    EXPECT_GT(counts.skipped_bytes, 0u);

    std::string huge = m;
    huge[8] = '\x7F';  // a body of 2 GiB declared
    ms = frame_all({huge + m}, false, &counts);
    ASSERT_EQ(ms.size(), 1u);
    EXPECT_EQ(ms[0].bytes, m);
    EXPECT_EQ(counts.refused_messages, 1u);

    // A header for 1.3, an unknown type, or flag bits nobody sets: not a
    // header.
    for (int field : {5, 7, 6}) {
        std::string odd = m;
        odd[static_cast<size_t>(field)] = field == 6 ? '\x10' : '\x09';
        EXPECT_FALSE(looks_like_header(reinterpret_cast<const uint8_t *>(odd.data())));
    }
}
