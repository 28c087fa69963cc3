// Connections that break, stall or carry more than one message: every call
// returns within its time-out, and the next one finds a working connection.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "giop/endpoint.h"
#include "tests/support.h"
#include "tests/unit/giop/giop_fixture.h"
#include "trace/trace.h"

namespace {

using giop_test::id_of;
using Clock = std::chrono::steady_clock;

// Answers the latest Request with its own id plus 1000 as the value.
std::string echo(const peer::Request &r) {
    return peer::long_reply(r.request_id, r.request_id + 1000);
}

struct Line : giop_test::Call {
    hostkit::Host host = testsupport::linked_host();
    int connections_closed = 0;

    Line() {
        timeout_ms = 1000;
        set_debug_level(1);
    }
    ~Line() { set_debug_level(0); }
    // One two-way call; value gets the long of a normal Reply. Notes
    // whether the call left its connection dead.
    int call(uint32_t *value = nullptr) {
        GIOP::Invocation inv(ref->data, "op", 1);
        int status = Call::call(inv, 7);
        if (status == NO_EXCEPTION && value != nullptr && !inv.stream.get_long(value)) return -2;
        if (inv.endpoint != nullptr && inv.endpoint->fd == -1) ++connections_closed;
        return status;
    }
    // A call answered with the echo of the second Request the peer read,
    // checked once the peer is done, and the connections it accepted.
    void expect_echo(int connections) {
        uint32_t value = 0;
        EXPECT_EQ(call(&value), NO_EXCEPTION);
        ASSERT_TRUE(peer.wait());
        EXPECT_EQ(peer.connections(), connections);
        EXPECT_EQ(value, peer::parse_request(peer.messages().at(1)).request_id + 1000);
    }
};

TEST(Recovery, MessageCutOffFailsInTimeAndTheNextCallConnectsAnew) {
    struct Case {
        const char *name;
        std::string sent;  // what comes before the silence or the close
        bool then_close;
        const char *traced;
    };
    const std::string reply = peer::long_reply(0, 5);
    const Case cases[] = {
        {"half a header", reply.substr(0, 3), false, "timed out after 3 of 12 header bytes"},
        {"header and part of a body", reply.substr(0, 15), false,
         "timed out after 3 of 16 body bytes"},
        {"header then end of stream", reply.substr(0, 5), true,
         "end of stream after 5 of 12 header bytes"},
        {"body then end of stream", reply.substr(0, 20), true,
         "end of stream after 8 of 16 body bytes"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Line l;
        l.peer.accept().read_message().send(c.sent);
        if (c.then_close) l.peer.close();
        l.peer.accept(true).read_message().send_for(echo);
        l.begin();
        auto t0 = Clock::now();
        EXPECT_EQ(l.call(), SYSTEM_EXCEPTION);
        EXPECT_LT(Clock::now() - t0, std::chrono::milliseconds(1800));
        EXPECT_EQ(id_of(l.env), exid::COMM_FAILURE);
        EXPECT_EQ(l.connections_closed, 1);
        EXPECT_TRUE(hostkit::printed_contains(c.traced));
        l.expect_echo(2);
    }
}

TEST(Recovery, PeerThatClosedWhileIdleIsReplacedUnseen) {
    Line l;
    l.peer.accept().read_message().send_for(echo).close();
    l.peer.accept().read_message().send_for(echo);
    l.begin();
    ASSERT_EQ(l.call(), NO_EXCEPTION);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the close arrives
    l.expect_echo(2);
    EXPECT_FALSE(l.env.has_exception());
    EXPECT_TRUE(hostkit::printed_contains("closed by the peer, connecting anew"));
}

TEST(Recovery, TimeOutBeforeAnyByteKeepsTheConnection) {
    Line l;
    // The first reply comes late, ahead of the second call's own.
    l.peer.accept().read_message().pause(1300).send_for(echo).read_message().send_for(echo);
    l.begin();
    EXPECT_EQ(l.call(), SYSTEM_EXCEPTION);
    EXPECT_EQ(id_of(l.env), exid::COMM_FAILURE);
    EXPECT_EQ(l.connections_closed, 0);
    l.expect_echo(1);
}

}  // namespace
