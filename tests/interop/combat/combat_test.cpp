// Calls on a server of a second, independent ORB: the Depot server on Combat
// (Tcl), whose references carry only IIOP 1.2 profiles with code sets.
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "tests/interop/bank/bank_client.h"
#include "tests/interop/process.h"
#include "tests/support.h"
#include "trace/trace.h"

namespace {

using bank::Call;
using bank::Client;
using bank::Outcome;

constexpr const char *kStoreId = "IDL:Depot/Store:1.0";
constexpr const char *kItemId = "IDL:Depot/Item:1.0";

class CombatTest : public ::testing::Test {
protected:
    // The Depot server, started with tclsh on a free loopback port: its
    // references "Store", "Item/bolts" and "Item/nuts".
    void SetUp() override {
        // Combat is a Tcl package; without it the server cannot start.
        dir_.write("probe.tcl", "package require combat\npackage require Itcl\n");
        int status = -1;
        interop::run_program({"tclsh", dir_.path() + "/probe.tcl"}, nullptr, &status);
        if (status == 127) GTEST_SKIP() << "no Combat server: tclsh is not installed";
        if (status != 0) GTEST_SKIP() << "no Combat server: Tcl's package combat is not installed";
        ASSERT_TRUE(server_.start(
            {"tclsh", ORBELLE_COMBAT_DIR "/depot_server.tcl", std::to_string(interop::free_port())},
            "depot_server: ready"))
            << "depot_server.tcl did not start";
        store_ = client_.bind_ior(kStoreId, server_.ior("Store"));
        ASSERT_NE(store_, nullptr) << "the store's reference does not bind";
    }

    // Binds a reference text that a call returned and calls label() on it.
    std::string label_of(const std::string &ior, const std::string &where) {
        EXPECT_EQ(ior.rfind("IOR:", 0), 0u) << where << ": " << ior;
        void *item = client_.bind_ior(kItemId, ior);
        if (item == nullptr) return "(does not bind)";
        std::string text = client_.result(item, kItemId, "label");
        client_.release(item);
        return text;
    }

    testsupport::TempDir dir_;
    interop::Server server_;
    Client client_{ORBELLE_DEPOT_IDL_DIR};
    void *store_ = nullptr;
};

// One server start for every case: a reference of IIOP 1.2 binds, each
// script type and object references travel in, out and inout (the result and
// c carry a, b the old c), a returned reference is called and a user
// exception reported.
TEST_F(CombatTest, CallsOnTheDepotServerTravelBothWays) {
    set_debug_level(1);
    hostkit::clear_printed();
    void *bolts = client_.bind_ior(kItemId, server_.ior("Item/bolts"));
    set_debug_level(0);
    ASSERT_NE(bolts, nullptr);
    EXPECT_TRUE(hostkit::printed_contains("iiop_version 1.2")) << hostkit::printed_text();
    EXPECT_FALSE(hostkit::printed_contains("detected new v1.2")) << hostkit::printed_text();
    EXPECT_EQ(client_.result(bolts, kItemId, "count"), "40");

    struct Echo {
        std::string operation, a_in, a_out, c_in, c_out;
    };
    std::vector<Echo> echoes;
    for (const bank::PrimitiveEcho &e : bank::kPrimitiveEchoes)
        echoes.push_back({e.operation, e.a_in, e.a_out, e.c_in, e.c_out});
    echoes.push_back({"echo_grade", "2", "2", "0", "0"});
    // References go back as 1.0 profiles, which Combat takes for its own
    // objects; those it returns are bound and called.
    echoes.push_back(
        {"echo_item", server_.ior("Item/bolts"), "bolts", server_.ior("Item/nuts"), "nuts"});
    for (const auto &e : echoes) {
        Call call(client_, store_, kStoreId, e.operation);
        call.set("a", e.a_in).set("c", e.c_in);
        Outcome o = call.invoke();
        ASSERT_EQ(o.result, 0) << e.operation << ": " << o.text;
        auto shown = [&](const std::string &name) {
            return e.a_in.rfind("IOR:", 0) == 0 ? label_of(call.get(name), name) : call.get(name);
        };
        EXPECT_EQ(shown("^" + e.operation), e.a_out) << e.operation << ", result";
        EXPECT_EQ(shown("b"), e.c_out) << e.operation << ", out";
        EXPECT_EQ(shown("c"), e.a_out) << e.operation << ", inout";
    }

    Call find(client_, store_, kStoreId, "find");
    find.set("label", "nuts");
    Outcome o = find.invoke();
    ASSERT_EQ(o.result, 0) << "find: " << o.text;
    EXPECT_EQ(label_of(find.get("^find"), "find"), "nuts");

    // A user exception reaches a script as OBJ_ADAPTER with status 2, and the
    // connection still serves calls.
    Call missing(client_, store_, kStoreId, "find");
    missing.set("label", "washers");
    o = missing.invoke();
    EXPECT_EQ(std::tie(o.result, o.exception_index, o.text),
              std::make_tuple(IIOP_STATUS_USER_EXCEPTION, 23, "IDL:omg.org/CORBA/OBJ_ADAPTER:1.0"));
    EXPECT_EQ(missing.get("^find"), "(no value)");
    EXPECT_EQ(client_.result(bolts, kItemId, "count"), "40");
}

}  // namespace
