#include "gateway/bind.h"

#include "gateway/report.h"
#include "giop/endpoint.h"
#include "platform/socket.h"
#include "tests/unit/gateway/road.h"

namespace {
// Nothing listens at port 1: binding never connects, so these still bind.
const std::string down = "iiop:1.0//127.0.0.1:1/key";
char *const untouched = reinterpret_cast<char *>(0x1234);
using lines = std::vector<std::string>;

struct Bind : ::testing::Test {
    Bind() : host(testsupport::linked_host()) { set_debug_level(1); }
    ~Bind() override {
        for (void *obj : bound) release(obj);
    }
    // iiop_bind of IDL:A:1.0 instance "one"; bound_modus and status_text are
    // copied out ("untouched" when not written) and their blocks freed.
    int32_t bind(const std::string &modus, const char *ior = nullptr) {
        record = road::bind_record(modus.c_str(), ior, "IDL:A:1.0", "one");
        record.u.bind.objref = untouched;
        record.u.bind.bound_modus = record.status_text = untouched;
        hostkit::clear_printed();
        int32_t result = host.call(record);
        if (result == IIOP_OK) bound.push_back(record.u.bind.objref);
        bound_modus = take(record.u.bind.bound_modus);
        status_text = take(record.status_text);
        return result;
    }
    int32_t release(void *obj) {
        iiop_record r = hostkit::make_record(IIOP_RELEASE);
        r.u.release.objref = obj;
        r.status_text = untouched;
        hostkit::clear_printed();
        int32_t result = host.call(r);
        status_text = take(r.status_text);
        index = r.exception_index;
        return result;
    }
    static std::string take(char *text) {
        if (text == untouched) return "untouched";
        std::string copy = text;
        std::free(text);
        return copy;
    }
    // Printed lines of binding itself, without those of reference parsing.
    static lines bind_lines() {
        lines kept;
        for (const std::string &l : hostkit::printed())
            if (l.rfind("_iiop_", 0) == 0 || l.rfind("get_ior", 0) == 0 ||
                l.rfind("attempt_to_bind", 0) == 0)
                kept.push_back(l);
        return kept;
    }
    static bool printed(const std::string &text) { return hostkit::printed_contains(text); }

    hostkit::Host host;
    testsupport::TempDir dir;
    iiop_record record{};
    std::vector<void *> bound;
    std::string bound_modus, status_text;
    int32_t index = 0;
};

TEST_F(Bind, HostileModusAndReferenceTextsFailOrBindWithoutHarm) {
    std::string many;
    for (int i = 0; i < 3000; ++i) many += "nothing|";
    set_debug_level(0);
    ASSERT_EQ(bind(many + " IOR ", down.c_str()), IIOP_OK);
    EXPECT_EQ(hostkit::printed().size(), 3000u);
    EXPECT_EQ(bind("|||"), 3);
    EXPECT_EQ(hostkit::printed(), lines(4, "MC_8_6_8: unknown binding alternative '' is ignored"));
    set_debug_level(1);
    std::string bytes(300, '\xee');
    for (std::string garbage : {std::string("IOR:"), std::string("IOR:0g"), peer::ior_text(bytes),
                                peer::ior_text("\x01" + bytes)}) {
        EXPECT_EQ(bind("IOR", garbage.c_str()), 3) << garbage;
        EXPECT_TRUE(printed("attempt_to_bind: object does not exist or bad IOR\n")) << garbage;
    }
}

TEST_F(Bind, OrbStartFailureIsReportedAndTheSetUpRepeatedAtTheNextBind) {
    platform::set_startup_override(platform::kWsaConnRefused, 0);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(bind("IOR", down.c_str()), 1);
        EXPECT_EQ(record.exception_index, 9);
        EXPECT_EQ(status_text, exid::INITIALIZE);
        EXPECT_EQ(record.u.bind.objref, untouched);
        EXPECT_EQ(bound_modus, "untouched");
        EXPECT_EQ(bind_lines(), (lines{"_iiop_bind:  calling inittypecodes...\n",
                                       "_iiop_bind:  creating orb_ptr...\n"}));
    }
    platform::set_startup_override(0, 0);
    EXPECT_EQ(bind("IOR", down.c_str()), IIOP_OK);
}

TEST_F(Bind, AgentAlternativesBindThroughTheSideLibraryOrFallThrough) {
    std::string zanth = std::string(ORBELLE_BINARY_DIR) + "/zanth";
    dir.write("agents", "14000 IDL:A:1.0 one " + down + "\n");
    setenv("ZANTH_AGENT_DIRECTORY", (dir.path() + "/agents").c_str(), 1);
    setenv("ZANTH_HOME", (zanth + "-broken").c_str(), 1);  // no iiop_vb_find_ior there
    ASSERT_EQ(bind("Visibroker | IOR", down.c_str()), IIOP_OK);
    EXPECT_EQ(bound_modus, "IOR");
    EXPECT_TRUE(printed("get_ior:  Visibroker modus failed, unable to load\n"));
    setenv("ZANTH_HOME", zanth.c_str(), 1);
    ASSERT_EQ(bind("Visibroker(14000) | IOR", "IOR:zz"), IIOP_OK);
    EXPECT_EQ(bound_modus, "Visibroker(14000)");
}

TEST_F(Bind, ReleaseClosesTheConnectionOnlyForTheOneHandleOfItsAddressOnTheList) {
    EXPECT_EQ(release(nullptr), 3);
    EXPECT_EQ(index, 5);
    EXPECT_EQ(status_text, "MC_8_6_2: cannot release: the object reference handle is null");
    EXPECT_EQ(hostkit::printed(), lines{"_iiop_release:  entering\n"});

    peer::ScriptedPeer server;
    server.accept().read_to_eof().accept();
    server.start();
    std::string address = "iiop:1.0//127.0.0.1:" + std::to_string(server.port()) + "/k";
    objref *h[4];
    for (objref *&one : h) {
        ASSERT_EQ(bind("IOR", address.c_str()), IIOP_OK);
        one = static_cast<objref *>(record.u.bind.objref);
    }
    bound.clear();
    client_endpoint *connection = lookup("127.0.0.1", server.port(), env);
    ASSERT_NE(connection, nullptr);
    release_endpoint(connection);
    std::free(take_last_connect_host());  // the connect report is the host's

    EXPECT_EQ(release(h[0]), IIOP_OK);  // count 0: the connection stays
    EXPECT_EQ(hostkit::printed(),
              (lines{"_iiop_release:  entering\n", "_iiop_release:  cannot close connection\n",
                     "_iiop_release:  0 connections at same host and port\n",
                     "_iiop_release:  exiting\n"}));
    add_connection(h[1]);
    add_connection(h[2]);
    add_connection(h[2]);
    EXPECT_EQ(release(h[1]), IIOP_OK);  // count 2: the connection stays
    EXPECT_TRUE(printed("_iiop_release:  2 connections at same host and port\n"));
    EXPECT_NE(connection->fd, -1);
    EXPECT_EQ(release(h[3]), IIOP_OK);  // h[2] alone on the list: count 1 closes
    EXPECT_EQ(hostkit::printed().at(1), "vu_close_connection:  entering\n");
    EXPECT_EQ(connection->fd, -1);
    EXPECT_EQ(status_text, "untouched");

    client_endpoint *again = lookup("127.0.0.1", server.port(), env);  // h[2] reconnects
    ASSERT_NE(again, nullptr);
    EXPECT_NE(again, connection);
    release_endpoint(again);
    std::free(take_last_connect_host());
    EXPECT_TRUE(server.wait(2000)) << server.failure();
    EXPECT_EQ(server.connections(), 2);
    EXPECT_TRUE(on_connection_list(h[2]));
    EXPECT_EQ(release(h[2]), IIOP_OK);
    EXPECT_FALSE(on_connection_list(h[2]));
}
}  // namespace
