#include "giop/invocation.h"

#include <gtest/gtest.h>

#include <utility>

#include "giop/endpoint.h"
#include "giop/waitlist.h"
#include "tests/unit/giop/giop_fixture.h"

namespace {

using giop_test::Call;
using giop_test::id_of;
const ExceptionTable kNoExceptions{0, nullptr};

// Status and first value (0 when not in hand) of each reply handed over.
std::vector<std::pair<uint32_t, uint32_t>> deliveries;
void record_delivery(objrefdata *, iiop_req *, Environment &, uint32_t status, int in_hand,
                     CDR *stream) {
    uint32_t v = 0;
    stream->get_long(&v);
    deliveries.emplace_back(status, in_hand != 0 ? v : 0u);
}

TEST(Invocation, ForeignRepliesGoToTheirWaitingEntryOrAreDropped) {
    Call c;
    c.peer.accept().read_message().send(peer::long_reply(7, 0x77));
    c.peer.send(peer::long_reply(6, 0x66)).send(peer::long_reply(5, 0x55)).wait_forever();
    c.begin();
    iiop_target target{};
    iiop_req deferred{}, other{};
    target.objref = c.ref;
    deferred.target = &target;
    deferred.request_id = 7;
    other.request_id = 9;
    ASSERT_TRUE(wait_list_add(&deferred) && wait_list_add(&other) && wait_list_add(&deferred));
    set_deferred_reply_reader(record_delivery);
    next_request_id = 5;

    GIOP::Invocation inv(c.ref->data, "echo", 1);
    EXPECT_EQ(c.call(inv), NO_EXCEPTION);
    uint32_t v = 0;
    EXPECT_EQ(inv.stream.get_long(&v), 1);
    EXPECT_EQ(v, 0x55u);
    EXPECT_EQ(deliveries, (std::vector<std::pair<uint32_t, uint32_t>>{{0, 0x77}}));
    ASSERT_NE(wait_list, nullptr);  // both entries of 7 went, 9 stays
    EXPECT_EQ(wait_list->req, &other);
    EXPECT_EQ(wait_list->next, nullptr);
    wait_list_remove(&other);
}

TEST(Invocation, BadReplyStatusAbortsWithTheFixedMessageError) {
    Call c;
    c.peer.accept().read_message().send_for(peer::answer(nullptr, 4)).read_to_eof();
    c.begin();
    {
        GIOP::Invocation inv(c.ref->data, "echo", 1);
        EXPECT_EQ(c.call(inv), SYSTEM_EXCEPTION);
        EXPECT_EQ(id_of(c.env), exid::COMM_FAILURE);
        EXPECT_EQ(inv.fd, -1);
    }
    ASSERT_TRUE(c.peer.wait());
    const std::string &all = c.peer.received();
    ASSERT_GE(all.size(), 12u);
    EXPECT_EQ(all.substr(all.size() - 12), std::string("GIOP\x01\x00\x01\x06\0\0\0\0", 12));
    // The record is dead: a new lookup makes a new connection.
    EXPECT_EQ(client_list->fd, -1);
}

TEST(Invocation, LocationForwardMovesTheCallAndKeepsTheOldConnectionIdle) {
    peer::ScriptedPeer target;
    target.accept().read_message().send_for(peer::answer()).read_message();
    target.send(peer::close_connection()).close();
    target.start();
    Call c;
    std::string fwd = peer::ior_bytes("IDL:X:1.0", "127.0.0.1", target.port(), "there");
    c.peer.accept().read_message().send_for([&](const peer::Request &r) {
        return peer::reply(r.request_id, 3, [&](peer::Writer &w) { w.raw(fwd.substr(4)); });
    });
    c.peer.read_message().send_for(peer::answer()).wait_forever();
    c.begin("here");
    {
        GIOP::Invocation inv(c.ref->data, "echo", 1);
        EXPECT_EQ(c.call(inv), LOCATION_FORWARD);
        ASSERT_NE(c.ref->data->forward_profile, nullptr);
        EXPECT_EQ(c.ref->data->forward_profile->port, target.port());
        EXPECT_EQ(c.call(inv), NO_EXCEPTION);
    }
    {
        // CloseConnection from the forward target clears the forward; the
        // repeat goes to the own address and reuses the idle connection.
        GIOP::Invocation inv(c.ref->data, "echo", 1);
        EXPECT_EQ(c.call(inv), LOCATION_FORWARD);
        EXPECT_EQ(c.ref->data->forward_profile, nullptr);
        EXPECT_EQ(c.call(inv), NO_EXCEPTION);
    }
    ASSERT_TRUE(target.wait());
    EXPECT_EQ(peer::parse_request(target.messages()[0]).key, "there");
    EXPECT_EQ(c.peer.connections(), 1);
}

TEST(Invocation, ForwardToNilReferenceFailsAndKeepsConnection) {
    Call c;
    c.peer.accept().read_message();
    c.peer.send_for(peer::answer([](peer::Writer &w) { w.ulong(1).octet(0).ulong(0); }, 3));
    c.peer.wait_forever();
    c.begin();
    GIOP::Invocation inv(c.ref->data, "echo", 1);
    EXPECT_EQ(c.call(inv), SYSTEM_EXCEPTION);
    EXPECT_EQ(id_of(c.env), exid::INV_OBJREF);
    EXPECT_EQ(c.ref->data->forward_profile, nullptr);
    EXPECT_NE(inv.fd, -1);
}

TEST(Invocation, WaitOnlySendsNothingAndPeerMessageErrorFails) {
    Call c;
    c.peer.accept().send(peer::message_error()).wait_forever();
    c.begin();
    GIOP::Invocation inv(c.ref->data, "echo", 1);
    inv.request_id = 3;
    inv.start(nullptr, c.env, 1, nullptr);
    ASSERT_FALSE(c.env.has_exception());
    EXPECT_EQ(inv.stream.used(), 0u);
    EXPECT_EQ(inv.invoke(kNoExceptions, c.env, 1), SYSTEM_EXCEPTION);
    EXPECT_EQ(id_of(c.env), exid::COMM_FAILURE);
    EXPECT_EQ(c.peer.received(), "");
}

}  // namespace
