#include "gateway/report.h"
#include "giop/message.h"
#include "giop/waitlist.h"
#include "tests/unit/gateway/road.h"

namespace {

using road::Parms;

struct Deferred : road::Road {
    ~Deferred() override {
        while (wait_list != nullptr) wait_list_remove(wait_list->req);
    }
    int32_t poll(iiop_req &req) { return call(IIOP_GET_RESPONSE, req, 0); }
    peer::ScriptedPeer peer;
};

TEST_F(Deferred, RequestsStandNewestFirstUntilTheirReplyIsRead) {
    uint32_t first = next_request_id;
    // A and B twice; the Replies come only after all three Requests.
    peer.accept().read_message().read_message().read_message();
    peer.send(peer::long_reply(first, 1)).send(peer::long_reply(first + 2, 2));
    void *obj = bind(peer);
    Parms pa("r"), pb("r");
    iiop_req &a = request(obj, IIOP_DEFERRED, "a", pa);
    iiop_req &b = request(obj, IIOP_DEFERRED, "b", pb);
    // A time-out already expired: the requests go out and nobody waits.
    EXPECT_EQ(defer(a, -1), 1);
    EXPECT_EQ(record.exception_index, 4);
    EXPECT_EQ(defer(b, -1), 1);
    hostkit::clear_printed();
    EXPECT_EQ(defer(b, -1), 1);
    auto item = [](const iiop_req &r) {
        char line[64];
        std::snprintf(line, sizeof line, "execute_do_call:  reqsent item " PTR_FMT "\n", ptrv(&r));
        return std::string(line);
    };
    std::vector<std::string> items;
    for (const std::string &line : hostkit::printed())
        if (line.find("reqsent item") != std::string::npos) items.push_back(line);
    EXPECT_EQ(items, (std::vector<std::string>{item(b), item(b), item(a)}));

    // A poll looks at the list only.
    timeout_ms = 1234;
    timeout_count = 77;
    std::string held = env.id();
    EXPECT_EQ(poll(a), 0);
    EXPECT_EQ(poll(b), 0);
    Parms none;
    iiop_req &c = request(obj, IIOP_DEFERRED, "c", none);
    c.request_id = 999;
    EXPECT_EQ(poll(c), 1);
    EXPECT_EQ(timeout_ms, 1234);
    EXPECT_EQ(timeout_count, 77u);
    EXPECT_EQ(env.id(), held);

    // Waiting for B reads A's Reply on the way and hands it over.
    hostkit::clear_printed();
    ASSERT_EQ(call(IIOP_GET_RESPONSE, b, 2000), IIOP_OK) << text;
    EXPECT_TRUE(hostkit::printed_contains("invoke:  processed request " + std::to_string(first) +
                                          ", removing from wait list"));
    EXPECT_TRUE(hostkit::printed_contains("_iiop_get_response:  read resp for " +
                                          std::to_string(first + 2) + ", removing from list"));
    EXPECT_STREQ(pa.value("r"), "1");
    EXPECT_STREQ(pb.value("r"), "2");
    EXPECT_EQ(wait_list, nullptr);
    EXPECT_EQ(poll(a), 1);
    EXPECT_EQ(poll(b), 1);
    ASSERT_TRUE(peer.wait());
}

TEST_F(Deferred, AReplyArrivingDuringAnotherObjectsCallFillsItsParameters) {
    uint32_t first = next_request_id;
    peer.accept().read_message().read_message();
    peer.send(peer::long_reply(first, 5)).send(peer::long_reply(first + 1, 6));
    // A deferred request whose Reply comes in time: its values stay unread.
    peer.read_message().send(peer::long_reply(first + 2, 7));
    Parms pa("r"), pt("r"), pd("r");
    iiop_req &a = request(bind(peer, "one"), IIOP_DEFERRED, "a", pa);
    iiop_req &t = request(bind(peer.port(), "two"), IIOP_TWOWAY, "t", pt);
    EXPECT_EQ(defer(a, -1), 1);
    EXPECT_EQ(poll(a), 0);
    ASSERT_EQ(invoke(t), IIOP_OK) << text;
    EXPECT_STREQ(pt.value("r"), "6");
    EXPECT_STREQ(pa.value("r"), "5");
    EXPECT_EQ(poll(a), 1);

    iiop_req &d = request(a.target->objref, IIOP_DEFERRED, "d", pd);
    ASSERT_EQ(defer(d), IIOP_OK) << text;
    EXPECT_STREQ(pd.value("r"), "old");
    EXPECT_EQ(poll(d), 0);
    // Its Reply is gone, so waiting for it runs out.
    EXPECT_EQ(call(IIOP_GET_RESPONSE, d, 1), 1);
    EXPECT_EQ(record.exception_index, 4);
    EXPECT_EQ(text, "IDL:omg.org/CORBA/COMM_FAILURE:1.0");
    EXPECT_EQ(poll(d), 0);
    ASSERT_TRUE(peer.wait());
}

// Two Replies in one write, then the peer closes: the one read ahead with the
// first is still read for its request, not dropped with the closed socket.
TEST_F(Deferred, AReplyReadAheadOutlivesThePeerClosingAfterIt) {
    uint32_t first = next_request_id;
    peer.accept().read_message().read_message();
    peer.send(peer::long_reply(first + 1, 6) + peer::long_reply(first, 5));
    peer.close();
    Parms pa("r"), pb("r");
    void *obj = bind(peer);
    iiop_req &a = request(obj, IIOP_DEFERRED, "a", pa);
    iiop_req &b = request(obj, IIOP_DEFERRED, "b", pb);
    EXPECT_EQ(defer(a, -1), 1);
    EXPECT_EQ(defer(b, -1), 1);
    ASSERT_EQ(call(IIOP_GET_RESPONSE, b, 2000), IIOP_OK) << text;
    EXPECT_STREQ(pb.value("r"), "6");
    ASSERT_TRUE(peer.wait());  // closed by now
    ASSERT_EQ(call(IIOP_GET_RESPONSE, a, 2000), IIOP_OK) << text;
    EXPECT_STREQ(pa.value("r"), "5");
    EXPECT_EQ(peer.connections(), 1);
}

}  // namespace
