#include "tests/unit/gateway/road.h"

namespace {

// iiop_bind's naming alternative sends a resolve request through the door;
// a scripted peer plays the naming service.
using NamingResolve = road::Road;
std::string naming(const peer::ScriptedPeer &p) {
    return "NameService(" + road::iiop_text(p.port(), "NameService") + ")";
}

// The resolve request names one component, the instance id and an empty
// kind in that order; the reference answered is the one bound.
TEST_F(NamingResolve, TheNamingServicesAnswerBecomesTheBoundReference) {
    peer::ScriptedPeer ns;
    ns.accept().read_message().send_for(
        road::answer([](peer::Writer &w) { road::put_ior(w, "IDL:T:1.0", 4321, "found"); }));
    ns.start();
    objref *obj = bind_by(naming(ns), "", "teller");
    ASSERT_NE(obj, nullptr);
    EXPECT_EQ(obj->data->profile.port, 4321);
    ASSERT_TRUE(ns.wait());
    peer::Request sent = peer::parse_request(ns.messages()[0]);
    EXPECT_EQ(sent.operation, "resolve");
    peer::Writer name(true, sent.args_offset);
    name.ulong(1).string("teller").align(4).string("");
    std::string got = road::args_of(ns.messages()[0]);
    EXPECT_EQ(got.substr(0, 15), name.bytes().substr(0, 15));
    EXPECT_EQ(got.substr(got.size() - 5), name.bytes().substr(name.bytes().size() - 5));
}

TEST_F(NamingResolve, ANamingServiceThatFailsGivesWayToTheNextAlternative) {
    peer::ScriptedPeer refusing, closing;
    // NotFound is a user exception, unknown to scripts.
    refusing.accept().read_message().send_for(road::answer(
        [](peer::Writer &w) {
            w.string("IDL:omg.org/CosNaming/NamingContext/NotFound:1.0").ulong(0);
        },
        1));
    closing.accept().read_message().close();
    refusing.start();
    closing.start();
    std::string fallback = road::iiop_text(1, "fallback");
    objref *obj =
        bind_by(naming(refusing) + " | NameService(IOR:0) | " + naming(closing) + " | IOR",
                fallback, "teller");
    ASSERT_NE(obj, nullptr);
    EXPECT_EQ(bound_modus, "IOR");
    EXPECT_EQ(obj->data->profile.port, 1);
    EXPECT_TRUE(hostkit::printed_contains("IDL:omg.org/CORBA/OBJ_ADAPTER:1.0"));
    EXPECT_TRUE(hostkit::printed_contains("IDL:omg.org/CORBA/COMM_FAILURE:1.0"));
    EXPECT_TRUE(hostkit::printed_contains("attempt_to_bind:  Bad NameService IOR\n"));
    EXPECT_TRUE(hostkit::printed_contains("entry done, parm->data=0x0\n"));
    ASSERT_TRUE(refusing.wait());
    ASSERT_TRUE(closing.wait());
}

}  // namespace
