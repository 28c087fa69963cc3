#include <algorithm>

#include "gateway/report.h"
#include "giop/orb.h"
#include "tests/unit/gateway/road.h"

namespace {

using road::answer;
using road::args_of;
using road::Parms;
using V = std::vector<std::string>;

std::string le_double(double d) {
    std::string s(8, '\0');
    std::memcpy(&s[0], &d, 8);
    return s;
}
uint32_t float_bits(float f) {
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return u;
}

// Compares argument bytes, passing over the alignment gaps of the expected
// ones (mask holds 0 there), whose content CDR leaves open.
void expect_args(const std::string &actual, const std::string &expected, const std::string &mask) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i)
        if (mask[i] != 0) {
            EXPECT_EQ(actual[i], expected[i]) << "byte " << i;
        }
}

// Every record's ptr is back to null after the call.
void expect_no_ptr(const Parms &p) {
    for (ScriptParm *q = p.head; q != nullptr; q = q->next) EXPECT_EQ(q->ptr, nullptr) << q->name;
}

struct Invoke : road::Road {
    peer::ScriptedPeer peer;
};

TEST_F(Invoke, EveryTypeGoesOutAndComesBackAsText) {
    // Untraced, numbers, booleans and chars take a way of their own: the
    // bytes and texts must be the same.
    for (int level : {1, 0}) {
        SCOPED_TRACE(level);
        set_debug_level(level);
        peer::ScriptedPeer peer;
        Parms p{{PARM_IN, 3, "a", "5"},           {PARM_OUT, 3, "r", "old"},
                {PARM_INOUT, 2, "s", "-2"},       {PARM_INOUT, 3, "l", "-70000"},
                {PARM_INOUT, 4, "us", "65537"},   {PARM_INOUT, 5, "ul", "4294967295"},
                {PARM_INOUT, 6, "f", "1.5"},      {PARM_INOUT, 7, "d", "2.25"},
                {PARM_INOUT, 8, "b", "1"},        {PARM_INOUT, 9, "c", "x"},
                {PARM_INOUT, 10, "o", "`ff`"},    {PARM_INOUT, 17, "e", "3"},
                {PARM_INOUT, 18, "str", "hi`0a`"}};
        peer.accept().read_message().send_for(answer([](peer::Writer &w) {
            w.ulong(42).ushort(0x8000).ulong(0xffffffff).ushort(65535).ulong(0xffffffff);
            w.ulong(float_bits(0.25f)).align(8).raw(le_double(-1.5));
            w.octet(2).octet('Z').octet(0x41).ulong(2).string("ab\x01");
        }));
        ASSERT_EQ(invoke(request(bind(peer), IIOP_TWOWAY, "all", p)), IIOP_OK) << text;
        ASSERT_TRUE(peer.wait());

        peer::Request sent = peer::parse_request(peer.messages()[0]);
        EXPECT_EQ(sent.operation, "all");
        EXPECT_EQ(sent.response_expected, 1);
        auto args = [&](bool mask) {
            auto v = [mask](uint32_t x) { return mask ? 0xffffffffu : x; };
            peer::Writer w(true, sent.args_offset);
            w.ulong(v(5)).ushort(v(0xfffe)).ulong(v(static_cast<uint32_t>(-70000))).ushort(v(1));
            w.ulong(v(0xffffffff)).ulong(v(float_bits(1.5f))).align(8);
            w.raw(mask ? std::string(8, '\xff') : le_double(2.25));
            w.octet(v(1)).octet(v('x')).octet(v(0xff)).ulong(v(3)).string(mask ? "\xff\xff\xff"
                                                                               : "hi\n");
            return w.bytes();
        };
        expect_args(args_of(peer.messages()[0]), args(false), args(true));
        EXPECT_EQ(p.values(), (V{"5", "42", "-32768", "-1", "65535", "4294967295", "0.250000",
                                 "-1.500000", "0", "Z", "A", "2", "ab`01`"}));
        expect_no_ptr(p);
    }
}

// Untraced, in records of 4-byte numbers that follow each other go out as one
// block: the bytes, the records and the outcome must be those of the traced,
// record-by-record way, wherever a run begins and ends.
TEST_F(Invoke, RunsOfNumbersGoOutAsRecordByRecord) {
    std::string sent[2];
    size_t offset = 0;
    std::vector<int32_t> sizes[2];
    for (int level : {1, 0}) {
        set_debug_level(level);
        peer::ScriptedPeer peer;
        peer.accept().read_message().send_for(answer(
            [](peer::Writer &w) { w.ulong(30).ulong(40).ulong(3).ulong(61).ulong(62).ulong(63); }));
        // v is sent all the same; a boolean ends the run.
        Parms p{{PARM_IN, 2, "s", "7"},      {PARM_IN, 3, "a", "1"},
                {PARM_IN, 3, "v", "5"},      {PARM_IN, 5, "b", " -2"},
                {PARM_INOUT, 17, "c", "+3"}, {PARM_IN, 3, "d", nullptr},
                {PARM_OUT, 3, "o", "old"},   {PARM_IN, 3, "e", "4294967297"},
                {PARM_IN, 3, "f", "x9"},     {PARM_IN, 8, "g", "1"}};
        p.sequence(PARM_INOUT, "q", 3, "12");
        p.add(PARM_IN, 3, "z", "-1");
        hostkit::find(p.head, "v")->valuesize = 4;
        void *obj = bind(peer);
        ASSERT_EQ(invoke(request(obj, IIOP_TWOWAY, "op", p)), IIOP_OK) << text;
        EXPECT_EQ(p.values({"c", "o", "q[2]"}), (V{"30", "40", "63"}));
        expect_no_ptr(p);
        for (ScriptParm *q = p.head; q != nullptr; q = q->next)
            sizes[level].push_back(q->valuesize);
        // An in-out record whose value lies in a block of its own is
        // refused, inside a run as anywhere.
        Parms refused{{PARM_IN, 3, "a", "1"}, {PARM_INOUT, 3, "b", "2"}, {PARM_IN, 3, "c", "3"}};
        refused.head->next->valuesize = 4;
        EXPECT_EQ(invoke(request(obj, IIOP_TWOWAY, "op", refused)), 1);
        EXPECT_EQ(text, "IDL:omg.org/CORBA/MARSHAL:1.0");
        ASSERT_TRUE(peer.wait());
        ASSERT_EQ(peer.messages().size(), 1u);
        sent[level] = args_of(peer.messages()[0]);
        offset = peer::parse_request(peer.messages()[0]).args_offset;
    }
    set_debug_level(0);
    EXPECT_EQ(sent[0], sent[1]);
    EXPECT_EQ(sizes[0], sizes[1]);
    peer::Writer w(true, offset);
    w.ushort(7).ulong(1).ulong(5).ulong(0xfffffffe).ulong(3).ulong(0).ulong(1).ulong(0).octet(1);
    w.ulong(3).ulong(12).ulong(12).ulong(12).ulong(0xffffffff);
    EXPECT_EQ(sent[1], w.bytes());
}

TEST_F(Invoke, OpaqueParametersGoOutAsTheirBytesAndTakeTheRestOfTheReply) {
    Parms opaque{{PARM_IN, 3, "a", "7"},     {PARM_INOUT, 18, "*", "ab`00`"},
                 {PARM_IN, 9, "*", nullptr}, {PARM_IN, 3, "*", ""},
                 {PARM_IN, 2, "x*y", "5"},   {PARM_INOUT, 3, "z", "9"}};
    Parms plain{{PARM_OUT, 3, "*", nullptr}};  // of flags 2, "*" is just a name
    peer.accept().read_message().send_for(answer([](peer::Writer &w) { w.raw("\x01\x02xy"); }));
    peer.read_message().send_for(peer::answer_long(4));
    void *obj = bind(peer);
    ASSERT_EQ(invoke(request(obj, IIOP_TWOWAY, "op", opaque)), IIOP_OK) << text;
    ASSERT_EQ(invoke(request(obj, IIOP_TWOWAY, "op", plain)), IIOP_OK) << text;
    ASSERT_TRUE(peer.wait());
    peer::Request sent = peer::parse_request(peer.messages()[0]);
    peer::Writer w(true, sent.args_offset), mask(true, sent.args_offset);
    w.ulong(7).raw(std::string("ab\0", 3)).ushort(5).ulong(9);
    mask.ulong(~0u).raw("\xff\xff\xff").ushort(0xffff).ulong(~0u);
    expect_args(args_of(peer.messages()[0]), w.bytes(), mask.bytes());
    EXPECT_EQ(opaque.values({"*", "z"}), (V{"`0102`xy", "9"}));
    EXPECT_STREQ(plain.value("*"), "4");
}

TEST_F(Invoke, LocationForwardMarshalsEveryRecordAgainFromItsText) {
    peer::ScriptedPeer second;
    second.accept().read_message().send_for(peer::answer_long(11));
    second.start();
    uint16_t there = second.port();
    peer.accept().read_message().send_for(
        answer([there](peer::Writer &w) { road::put_ior(w, "IDL:T:1.0", there, "there"); }, 3));
    Parms p{{PARM_INOUT, 3, "v", "21"}};
    hostkit::clear_printed();
    ASSERT_EQ(invoke(request(bind(peer), IIOP_TWOWAY, "op", p)), IIOP_OK) << text;
    ASSERT_TRUE(peer.wait());
    ASSERT_TRUE(second.wait());
    EXPECT_EQ(args_of(peer.messages()[0]), args_of(second.messages()[0]));
    EXPECT_EQ(peer::parse_request(second.messages()[0]).key, "there");
    EXPECT_STREQ(p.value("v"), "11");
    const V &lines = hostkit::printed();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "putdata:  p->name='v', p->strval='21'\n"), 2);
}

TEST_F(Invoke, ObjectReferencesTravelAsTextsAndStayInPtrAfterAReply) {
    peer.accept().read_message().send_for(
        answer([](peer::Writer &w) { road::put_ior(w, "IDL:R:1.0", 4321, "rk"); }));
    void *obj = bind(peer);
    std::string inside = road::iiop_text(1234, "ik");
    Parms bad{{PARM_IN, 14, "o", "IOR:garbage"}};
    Parms good{{PARM_IN, 14, "i", inside.c_str()}, {PARM_OUT, 14, "o", nullptr}};
    hostkit::clear_printed();
    EXPECT_EQ(invoke(request(obj, IIOP_TWOWAY, "op", bad)), 1);
    EXPECT_TRUE(hostkit::printed_contains("do_call, put request parameter"));
    ASSERT_EQ(invoke(request(obj, IIOP_TWOWAY, "op", good)), IIOP_OK) << text;
    ASSERT_TRUE(peer.wait());
    ASSERT_EQ(peer.messages().size(), 1u);
    EXPECT_NE(args_of(peer.messages()[0]).find("ik"), std::string::npos);
    ScriptParm *o = good.head->next;
    ASSERT_NE(o->ptr, nullptr);
    EXPECT_EQ(static_cast<objref *>(o->ptr)->data->profile.port, 4321);
    EXPECT_EQ(std::strncmp(o->strval, "IOR:", 4), 0) << o->strval;
    Environment scratch;
    objref *back = string_to_object(o->strval, scratch);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->data->profile.port, 4321);
    release_objref(back, scratch);
    host.release_references(good.head);
}

TEST_F(Invoke, OneWayReturnsWhenSentAndTwoWayReportsItsConnectionOnce) {
    Parms one{{PARM_IN, 3, "a", "1"}, {PARM_OUT, 3, "r", "old"}}, two("r");
    peer.accept().read_message().read_message().send_for(peer::answer_long(3));
    peer.read_message().send_for(peer::answer_long(4));
    void *obj = bind(peer);
    ASSERT_EQ(invoke(request(obj, IIOP_ONEWAY, "op", one)), IIOP_OK) << text;
    EXPECT_STREQ(one.value("r"), "old");
    EXPECT_EQ(requests.back().roundtrip, 0);
    EXPECT_EQ(connect_host, "127.0.0.1");
    EXPECT_EQ(record.u.invoke.connect_port, peer.port());
    EXPECT_NE(record.u.invoke.connect_time, 0);
    EXPECT_TRUE(on_connection_list(static_cast<objref *>(obj)));

    ASSERT_EQ(invoke(request(obj, IIOP_TWOWAY, "op", two)), IIOP_OK) << text;
    EXPECT_STREQ(two.value("r"), "3");
    EXPECT_EQ(record.u.invoke.connect_host, nullptr);
    EXPECT_EQ(record.u.invoke.connect_port, 0);
    // Another object at the same address shares the connection.
    void *other = bind(peer.port(), "other");
    ASSERT_EQ(invoke(request(other, 7, "op", two)), IIOP_OK) << text;
    EXPECT_STREQ(two.value("r"), "4");
    EXPECT_EQ(record.u.invoke.connect_time, 0);
    ASSERT_TRUE(peer.wait());
    EXPECT_EQ(peer::parse_request(peer.messages()[0]).response_expected, 0);
    EXPECT_EQ(peer.connections(), 1);
}

// A two-way call takes an idle connection without looking at it first. When
// the peer turns out to have closed it, the Request goes again, once, on a
// new connection; a failure on a new connection fails the call.
TEST_F(Invoke, AnIdleConnectionFoundClosedSendsTheRequestAgainOnANewOne) {
    // 0: closed after its reply; 1: closed after reading the next Request;
    // 2: the new connection closes as well.
    for (int way : {0, 1, 2}) {
        SCOPED_TRACE(way);
        const bool read_then_close = way == 1, second_closes = way == 2;
        peer::ScriptedPeer peer;
        peer.accept().read_message().send_for(peer::answer_long(1));
        if (read_then_close) peer.read_message();
        peer.close().accept(true).read_message();
        second_closes ? peer.close() : peer.send_for(peer::answer_long(2));
        Parms p("r");
        void *obj = bind(peer);
        ASSERT_EQ(invoke(request(obj, IIOP_TWOWAY, "op", p)), IIOP_OK) << text;
        hostkit::clear_printed();
        EXPECT_EQ(invoke(request(obj, IIOP_TWOWAY, "op", p)), second_closes ? 1 : IIOP_OK);
        EXPECT_EQ(text, second_closes ? "IDL:omg.org/CORBA/COMM_FAILURE:1.0" : "");
        EXPECT_STREQ(p.value("r"), second_closes ? "1" : "2");
        ASSERT_TRUE(peer.wait());
        EXPECT_EQ(peer.connections(), 2);
        EXPECT_EQ(peer.messages().size(), read_then_close ? 3u : 2u);
        EXPECT_TRUE(hostkit::printed_contains("closed by the peer, connecting anew"));
        // The Request is built again: a new request id, the same arguments.
        EXPECT_EQ(peer::parse_request(peer.messages().back()).request_id, next_request_id - 1);
    }
}

TEST_F(Invoke, BrokenRepliesStopTheReadingWithoutHarm) {
    std::string mb(1 << 20, 'm');
    Parms cut{{PARM_OUT, 3, "a", "old"}, {PARM_OUT, 7, "d", "old"}, {PARM_OUT, 3, "after", "old"}};
    Parms huge, big{{PARM_INOUT, 18, "text", mb.c_str()}};
    huge.sequence(PARM_OUT, "s", 2);
    peer.accept().read_message().send_for(answer([](peer::Writer &w) { w.ulong(1).ulong(2); }));
    // A length of ten million with nothing behind it.
    peer.read_message().send_for(peer::answer_long(10000000));
    peer.read_message().send_for([](const peer::Request &r) {
        return peer::reply(r.request_id, 0,
                           [&](peer::Writer &w) { w.string(std::string(1 << 20, 'n')); });
    });
    void *obj = bind(peer);
    hostkit::clear_printed();
    EXPECT_EQ(invoke(request(obj, IIOP_TWOWAY, "op", cut)), 1);
    EXPECT_EQ(text, "IDL:omg.org/CORBA/MARSHAL:1.0");
    EXPECT_TRUE(hostkit::printed_contains("do_call, get reply parameter"));
    EXPECT_EQ(cut.values(), (V{"1", "old", "old"}));
    EXPECT_EQ(invoke(request(obj, IIOP_TWOWAY, "op", huge)), 1);
    EXPECT_EQ(huge.values({"s^length", "s[0]"}), (V{"10000000", "old"}));
    set_debug_level(0);
    ASSERT_EQ(invoke(request(obj, IIOP_TWOWAY, "op", big)), IIOP_OK) << text;
    ASSERT_TRUE(peer.wait());
    EXPECT_EQ(args_of(peer.messages()[2]).size(), 4 + mb.size() + 1);
    EXPECT_EQ(std::string(big.value("text")), std::string(1 << 20, 'n'));
}

}  // namespace
