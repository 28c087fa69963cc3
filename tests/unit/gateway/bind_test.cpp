#include "gateway/bind.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "data/environment.h"
#include "data/stdtypes.h"
#include "gateway/connections.h"
#include "gateway/report.h"
#include "giop/endpoint.h"
#include "giop/objref.h"
#include "platform/socket.h"
#include "tests/peer/peer.h"
#include "tests/support.h"
#include "trace/trace.h"

namespace {
const std::string zanth = std::string(ORBELLE_BINARY_DIR) + "/zanth";
// Nothing listens there: binding never connects, so the reference still binds.
const std::string down = "iiop:1.0//127.0.0.1:1/key";
const std::string down_ior = peer::ior_text(peer::ior_bytes("IDL:A:1.0", "127.0.0.1", 1, "k"));
char *const untouched = reinterpret_cast<char *>(0x1234);
const char no_modus_bound[] =
    "MC_8_6_1: could not bind: no binding alternative yielded an object reference";

std::string hex(const void *p) {
    char text[32];
    std::snprintf(text, sizeof text, PTR_FMT, ptrv(p));
    return text;
}

struct Bind : ::testing::Test {
    Bind() : host(testsupport::linked_host()) { set_debug_level(1); }
    ~Bind() override {
        for (void *obj : bound) release(obj);
    }
    // iiop_bind of repository id IDL:A:1.0, instance "one". Afterwards
    // printed() holds what the call printed; bound_modus and status_text are
    // copied out of the record and their blocks released.
    int32_t bind(const std::string &modus, const char *ior = nullptr) {
        record = hostkit::make_record(IIOP_BIND);
        record.u.bind.repository_id = const_cast<char *>("IDL:A:1.0");
        record.u.bind.instance_id = const_cast<char *>("one");
        record.u.bind.ior = const_cast<char *>(ior);
        record.u.bind.modus = const_cast<char *>(modus.c_str());
        record.u.bind.bound_modus = untouched;
        record.u.bind.objref = untouched;
        record.status = 77;
        record.status_text = untouched;
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
        exception_index = r.exception_index;
        return result;
    }
    // The text of a block the call wrote, "untouched" when it wrote none.
    static std::string take(char *text) {
        if (text == untouched) return "untouched";
        if (text == nullptr) return "NULL";
        std::string copy = text;
        std::free(text);
        return copy;
    }
    std::vector<std::string> lines() { return hostkit::printed(); }
    // The printed lines of binding itself, without those of reference parsing.
    std::vector<std::string> bind_lines() {
        std::vector<std::string> kept;
        for (const std::string &l : hostkit::printed())
            for (const char *head : {"_iiop_", "get_ior", "attempt_to_bind"})
                if (l.rfind(head, 0) == 0) kept.push_back(l);
        return kept;
    }
    bool printed(const std::string &text) { return hostkit::printed_contains(text); }
    objref *handle() { return static_cast<objref *>(record.u.bind.objref); }

    hostkit::Host host;
    testsupport::TempDir dir;
    iiop_record record{};
    std::vector<void *> bound;
    std::string bound_modus, status_text;
    int32_t exception_index = 0;
};

TEST_F(Bind, FirstBindSetsUpOnceAndAWellFormedReferenceBindsWithoutContactingItsServer) {
    ASSERT_EQ(bind("IOR", down_ior.c_str()), IIOP_OK);
    EXPECT_EQ(bind_lines(),
              (std::vector<std::string>{
                  "_iiop_bind:  calling inittypecodes...\n",
                  "_iiop_bind:  creating orb_ptr...\n",
                  "get_ior:  IOR modus\n",
                  "attempt_to_bind: string_to_object(\"" + down_ior + "\")\n",
                  "attempt_to_bind:  success, returning objref " + hex(handle()) + "\n",
              }));
    EXPECT_EQ(bound_modus, "IOR");
    EXPECT_NE(orb_ptr, nullptr);
    EXPECT_NE(tc_long(), nullptr);
    EXPECT_EQ(client_list, nullptr);
    EXPECT_EQ(record.status, 77);
    EXPECT_EQ(status_text, "untouched");
    EXPECT_EQ(handle()->data->profile.port, 1);

    // The same reference again: no set-up, and a handle of its own.
    objref *first = handle();
    ASSERT_EQ(bind("IOR", down_ior.c_str()), IIOP_OK);
    EXPECT_EQ(lines().front(), "get_ior:  IOR modus\n");
    EXPECT_NE(handle(), first);
}

TEST_F(Bind, AlternativesAreTrimmedAndTriedInOrderUntilOneBinds) {
    dir.write(" a b ", "IDL:A:1.0," + down + "\n");
    ASSERT_EQ(bind(" FILE(none) |  |\tx | IOR(ignored) |  FILE( a b ) ", "IOR:zz"), IIOP_OK);
    EXPECT_EQ(bound_modus, "FILE( a b )");
    // Blanks alone are no alternative, and trimming leaves them.
    EXPECT_TRUE(printed("MC_8_6_8: unknown binding alternative '  ' is ignored"));
    EXPECT_TRUE(printed("MC_8_6_8: unknown binding alternative '\tx' is ignored"));
    EXPECT_TRUE(printed("attempt_to_bind: object does not exist or bad IOR\n"));
    EXPECT_TRUE(printed("attempt_to_bind: string_to_object(\"IOR:zz\")\n"));
    EXPECT_FALSE(printed("_iiop_bind:  done"));  // not after the last alternative
    EXPECT_EQ(handle()->data->profile.port, 1);

    // A good ior ahead binds at once; the file is never read.
    ASSERT_EQ(bind("IOR | FILE( a b )", down.c_str()), IIOP_OK);
    EXPECT_EQ(bound_modus, "IOR");
    EXPECT_EQ(lines().back(), "_iiop_bind:  done\n");
    EXPECT_FALSE(printed("findiorinfile"));
}

TEST_F(Bind, RecordIorIsTheFallbackOnlyWhenNoAlternativeWasOfTheKindIor) {
    dir.write("empty", "");
    ASSERT_EQ(bind("FILE(empty)", down.c_str()), IIOP_OK);
    EXPECT_EQ(bound_modus, "IOR");
    EXPECT_EQ(lines().back(),
              "attempt_to_bind:  success, returning objref " + hex(handle()) + "\n");

    struct Case {
        const char *modus, *ior;
        int attempts;
    };
    for (Case c : {Case{"IOR", nullptr, 1}, Case{"ior(x) | FILE(empty)", "IOR:zz", 2}}) {
        EXPECT_EQ(bind(c.modus, c.ior), IIOP_STATUS_GATEWAY_FAILURE) << c.modus;
        EXPECT_EQ(record.u.bind.objref, nullptr);
        EXPECT_EQ(record.status, 3);
        EXPECT_EQ(record.exception_index, 2);
        EXPECT_EQ(status_text, no_modus_bound);
        EXPECT_EQ(hostkit::allocation_sizes().back(), 132u);
        EXPECT_EQ(bound_modus, "untouched");
        std::vector<std::string> out = lines();
        ASSERT_GE(out.size(), 2u);
        EXPECT_EQ(out[out.size() - 2],
                  "_iiop_bind:  SEVERE ERROR -- Unable to bind with any modi\n");
        EXPECT_EQ(out.back(), "_iiop_bind:  return\n");
        int attempts = 0;
        for (const std::string &l : out) attempts += l.rfind("attempt_to_bind: string", 0) == 0;
        EXPECT_EQ(attempts, c.attempts) << c.modus;  // no fallback attempt
    }
}

TEST_F(Bind, HostileModusAndReferenceTextsFailOrBindWithoutHarm) {
    std::string many;
    for (int i = 0; i < 3000; ++i) many += "nothing|";
    set_debug_level(0);
    ASSERT_EQ(bind(many + " IOR ", down.c_str()), IIOP_OK);
    EXPECT_EQ(bound_modus, "IOR");
    EXPECT_EQ(lines().size(), 3000u);

    EXPECT_EQ(bind("|||"), IIOP_STATUS_GATEWAY_FAILURE);
    EXPECT_EQ(lines(), std::vector<std::string>(4,
                                                "MC_8_6_8: unknown binding alternative '' "
                                                "is ignored"));
    set_debug_level(1);
    const std::string bytes(300, '\xee');
    for (std::string garbage :
         {std::string("IOR:"), std::string("IOR:0"), std::string("IOR:0g"), peer::ior_text(bytes),
          peer::ior_text("\x01" + bytes), std::string("iiop:9.9//h:99999/k")}) {
        EXPECT_EQ(bind("IOR", garbage.c_str()), IIOP_STATUS_GATEWAY_FAILURE) << garbage;
        EXPECT_TRUE(printed("attempt_to_bind: object does not exist or bad IOR\n")) << garbage;
        EXPECT_EQ(status_text, no_modus_bound);
    }
    record = hostkit::make_record(IIOP_BIND);  // a null modus reads as the empty one
    EXPECT_EQ(host.call(record), IIOP_STATUS_GATEWAY_FAILURE);
    std::free(record.status_text);
}

TEST_F(Bind, OrbStartFailureIsReportedAndTheSetUpRepeatedAtTheNextBind) {
    platform::set_startup_override(platform::kWsaConnRefused, 0);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(bind("IOR", down.c_str()), IIOP_STATUS_SYSTEM_EXCEPTION);
        EXPECT_EQ(record.status, 1);
        EXPECT_EQ(record.exception_index, 9);
        EXPECT_EQ(status_text, exid::INITIALIZE);
        EXPECT_EQ(record.u.bind.objref, untouched);
        EXPECT_EQ(bound_modus, "untouched");
        EXPECT_EQ(lines().front(), "_iiop_bind:  calling inittypecodes...\n");
        EXPECT_TRUE(
            printed("exception 'IDL:omg.org/CORBA/INITIALIZE:1.0' at "
                    "'iiop_objref(ORB init):  exception'"));
        EXPECT_FALSE(printed("get_ior"));
        EXPECT_EQ(orb_ptr, nullptr);
    }
    platform::set_startup_override(0, 0);
    EXPECT_EQ(bind("IOR", down.c_str()), IIOP_OK);
    EXPECT_EQ(lines().at(1), "_iiop_bind:  creating orb_ptr...\n");
}

TEST_F(Bind, AgentAlternativesBindThroughTheSideLibraryOrFallThrough) {
    dir.write("agents", "14000 IDL:A:1.0 one " + down + "\n");
    setenv("ZANTH_AGENT_DIRECTORY", (dir.path() + "/agents").c_str(), 1);
    setenv("ZANTH_HOME", (zanth + "-broken").c_str(), 1);  // no iiop_vb_find_ior there
    ASSERT_EQ(bind("Visibroker | IOR", down.c_str()), IIOP_OK);
    EXPECT_EQ(bound_modus, "IOR");
    EXPECT_TRUE(printed("get_ior:  Visibroker modus failed, unable to load\n"));
    unsetenv("ZANTH_HOME");
    ASSERT_EQ(bind("Visibroker(14000) | IOR", down.c_str()), IIOP_OK);
    EXPECT_EQ(bound_modus, "IOR");
    setenv("ZANTH_HOME", zanth.c_str(), 1);
    ASSERT_EQ(bind("Visibroker(14000) | IOR", "IOR:zz"), IIOP_OK);
    EXPECT_EQ(bound_modus, "Visibroker(14000)");
    EXPECT_EQ(handle()->data->profile.port, 1);
}

TEST_F(Bind, ReleaseOfANullHandleFailsAsTheGateway) {
    EXPECT_EQ(release(nullptr), IIOP_STATUS_GATEWAY_FAILURE);
    EXPECT_EQ(exception_index, 5);
    EXPECT_EQ(status_text, "MC_8_6_2: cannot release: the object reference handle is null");
    EXPECT_EQ(hostkit::allocation_sizes().back(), 132u);
    EXPECT_EQ(lines(), std::vector<std::string>{"_iiop_release:  entering\n"});
    raise_system(env, exid::TRANSIENT);  // a leftover exception is reported in the trace
    EXPECT_EQ(release(nullptr), IIOP_STATUS_GATEWAY_FAILURE);
    EXPECT_TRUE(
        printed("exception 'IDL:omg.org/CORBA/TRANSIENT:1.0' at "
                "'_iiop_release:  cannot release null target objref'"));
}

TEST_F(Bind, ReleaseClosesTheConnectionOnlyForTheOneHandleOfItsAddressOnTheList) {
    peer::ScriptedPeer server;
    server.accept().read_to_eof().accept();
    server.start();
    std::string address = "iiop:1.0//127.0.0.1:" + std::to_string(server.port()) + "/k";
    std::vector<objref *> h;
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(bind("IOR", address.c_str()), IIOP_OK);
        h.push_back(handle());
    }
    bound.clear();
    Environment local;
    client_endpoint *connection = lookup("127.0.0.1", server.port(), local);
    ASSERT_NE(connection, nullptr);
    release_endpoint(connection);

    // Count 0: nobody on the list, the connection stays.
    EXPECT_EQ(release(h[0]), IIOP_OK);
    EXPECT_EQ(
        lines(),
        (std::vector<std::string>{
            "_iiop_release:  entering\n", "_iiop_release:  cannot close connection\n",
            "_iiop_release:  0 connections at same host and port\n", "_iiop_release:  exiting\n"}));
    // Count 2: two other handles on the list, the connection stays.
    add_connection(h[1]);
    add_connection(h[2]);
    EXPECT_EQ(release(h[1]), IIOP_OK);
    EXPECT_TRUE(printed("_iiop_release:  2 connections at same host and port\n"));
    EXPECT_NE(connection->fd, -1);
    // Count 1: h[2] alone on the list, so releasing the unused h[3] closes.
    EXPECT_EQ(release(h[3]), IIOP_OK);
    EXPECT_EQ(lines().at(1), "vu_close_connection:  entering\n");
    EXPECT_EQ(lines().back(), "_iiop_release:  exiting\n");
    EXPECT_EQ(connection->fd, -1);
    EXPECT_TRUE(on_connection_list(h[2]));
    EXPECT_EQ(status_text, "untouched");

    // The remaining handle's next request connects anew.
    client_endpoint *again = lookup("127.0.0.1", server.port(), local);
    ASSERT_NE(again, nullptr);
    EXPECT_NE(again, connection);
    release_endpoint(again);
    EXPECT_TRUE(server.wait(2000)) << server.failure();
    EXPECT_EQ(server.connections(), 2);
    EXPECT_EQ(release(h[2]), IIOP_OK);  // alone: closes the new connection
    EXPECT_EQ(again->fd, -1);
    EXPECT_FALSE(on_connection_list(h[2]));
}
}  // namespace
