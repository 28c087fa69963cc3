#include "giop/message.h"

#include <gtest/gtest.h>

#include <chrono>
#include <tuple>

#include "giop/endpoint.h"
#include "tests/support.h"
#include "tests/unit/giop/giop_fixture.h"
#include "trace/trace.h"

namespace {

using giop_test::id_of;

// A connected socket to a peer that runs the given steps.
struct Wire : giop_test::Call {
    client_endpoint *ep = nullptr;
    alignas(16) unsigned char array[1430];
    CDR stream;

    Wire() { stream.attach_buffer(array, sizeof array); }
    void connect() {
        peer.start();
        ep = lookup("127.0.0.1", peer.port(), env);
        ASSERT_NE(ep, nullptr);
    }
    int read() { return GIOP::read_message(*ep, stream, env); }
};

TEST(Message, RequestIsWrittenByteForByteWithZeroPadding) {
    giop_test::Call c;
    c.peer.accept().read_message().read_message();
    c.begin("ab\\01");
    {
        GIOP::Invocation inv(c.ref->data, "echoLong", 1);
        Environment &env = c.env;
        // A longer message built first on the same stream leaves its bytes
        // where the next one has padding.
        inv.start(nullptr, env, 0, "\\ff\\ff\\ff\\ff\\ff\\ff\\ff\\ff");
        std::string filler(600, '\xff');
        inv.stream.put_bytes(filler.data(), static_cast<uint32_t>(filler.size()));
        next_request_id = 0x01020304;
        inv.start(nullptr, env, 0, nullptr);
        ASSERT_FALSE(env.has_exception());
        inv.stream.put_long(0x11223344);
        inv.roundtrip = 0;  // nothing to wait for in this test
        EXPECT_EQ(inv.invoke({0, nullptr}, env, 0), NO_EXCEPTION);
    }
    {
        GIOP::Invocation oneway(c.ref->data, "ping", 0);
        oneway.start(nullptr, c.env, 0, "who");
        EXPECT_EQ(oneway.invoke({0, nullptr}, c.env, 0), NO_EXCEPTION);
    }
    ASSERT_TRUE(c.peer.wait());
    ASSERT_EQ(c.peer.messages().size(), 2u);
    // No service contexts, the id, response expected, the key, the
    // operation, an empty Principal and the argument; every gap holds zeros.
    peer::Writer body;
    body.ulong(0).ulong(0x01020304).octet(1).octets("ab\x01").string("echoLong").octets("");
    EXPECT_EQ(c.peer.messages()[0], peer::message(0, body.ulong(0x11223344).bytes()));
    peer::Request r = peer::parse_request(c.peer.messages()[1]);
    EXPECT_EQ(
        std::tie(r.valid, r.request_id, r.response_expected, r.operation, r.principal),
        std::make_tuple(true, 0x01020305u, uint8_t{0}, std::string("ping"), std::string("who")));
    EXPECT_EQ(r.size + 12, c.peer.messages()[1].size());
}

TEST(Message, BadHeadersAndCutOffMessagesFail) {
    Wire w;
    // Minor version 1, a wrong magic, the end of stream inside the body.
    w.peer.accept().send(peer::message(1, "", true, 1));
    w.peer.send(std::string("GIOX\x01\x00\x01\x01\x00\x00\x00\x00", 12));
    w.peer.send(peer::message_with_size(1, 8, "abc")).close();
    w.connect();
    // The last read meets the end of the stream before a header.
    for (const char *id : {exid::MARSHAL, exid::MARSHAL, exid::COMM_FAILURE, exid::COMM_FAILURE}) {
        EXPECT_EQ(w.read(), 6);
        EXPECT_EQ(id_of(w.env), id);
    }
}

TEST(Message, HugeSizeFieldFailsWithoutWritingOrAllocating) {
    for (uint32_t size : {0xfffffff8u, 0x7ffffff0u, 0x01000000u}) {
        Wire w;
        w.peer.accept().send(peer::message_with_size(1, size, std::string(64, 'q'))).close();
        w.connect();
        EXPECT_EQ(w.read(), 6);
        EXPECT_EQ(id_of(w.env), exid::COMM_FAILURE);
        // Only as much memory as arrived, give or take one growth step.
        EXPECT_LE(w.stream.capacity, 4u << 20);
    }
}

TEST(Message, ShortTimeOutStillWaitsOneSecond) {
    Wire w;
    w.peer.accept().wait_forever();
    w.connect();
    timeout_ms = 500;
    uint32_t before = timeout_count;
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(w.read(), 6);
    auto waited = std::chrono::steady_clock::now() - t0;
    EXPECT_GE(waited, std::chrono::milliseconds(990));
    EXPECT_LT(waited, std::chrono::milliseconds(1900));
    EXPECT_EQ(id_of(w.env), exid::COMM_FAILURE);
    EXPECT_EQ(timeout_count, before + 1);
    EXPECT_NE(w.ep->fd, -1);  // nothing had come: the connection stays
    timeout_ms = -1;
    EXPECT_EQ(w.read(), 6);
}

TEST(Message, MessageSplitAtEveryByteIsReassembled) {
    Wire w;
    w.peer.accept().send_bytewise(peer::reply(
        3, 0, [](peer::Writer &b) { b.string("hello"); }, false));
    w.connect();
    ASSERT_EQ(w.read(), 1);
    EXPECT_EQ(w.stream.space_left, 12u + 10u);
}

TEST(MessageTrace, ConnectFailuresAndTrafficAreTraced) {
    [[maybe_unused]] hostkit::Host host = testsupport::linked_host();
    set_debug_level(4);
    uint16_t closed = peer::closed_port();
    Environment env;
    EXPECT_EQ(lookup("127.0.0.1", closed, env), nullptr);
    EXPECT_TRUE(hostkit::printed_contains("client connect:  winsock error 10061"));
    EXPECT_TRUE(hostkit::printed_contains("Connection refused."));
    EXPECT_TRUE(hostkit::printed_contains(
        "... connect failure was to '127.0.0.1:" + std::to_string(closed) + "'"));

    Wire w;
    w.peer.accept().read_message().send(peer::reply(0, 0, nullptr, false)).wait_forever();
    w.connect();
    start_message(giop_msg::Request, w.stream);
    w.stream.put_long(7);
    int32_t fd = w.ep->fd;
    ASSERT_EQ(OutgoingMessage::writebuf(w.stream, &fd), 1);
    ASSERT_EQ(w.read(), 1);
    EXPECT_TRUE(hostkit::printed_contains("send GIOP v1.0 msg, 4 data bytes, my endian, Request"));
    EXPECT_TRUE(
        hostkit::printed_contains("recv GIOP v1.0 msg, 12 data bytes, other endian, Reply"));
    set_debug_level(0);
}

}  // namespace
