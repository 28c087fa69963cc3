#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "gateway/catalogue.h"
#include "host/tellcat/tellcat.h"
#include "orbelle/orbelle.h"
#include "platform/platform.h"
#include "tests/support.h"
#include "trace/trace.h"

namespace {

std::vector<uint32_t> pauses;
void record_pause(uint32_t ms) { pauses.push_back(ms); }

iiop_record sentinel_record(int32_t op) {
    iiop_record r = hostkit::make_record(op);
    r.status = 77;
    r.exception_index = 88;
    r.status_text = reinterpret_cast<char *>(0x1234);
    return r;
}

// status, exception_index and status_text of r in one text.
std::string outcome(const iiop_record &r) {
    std::string text = r.status_text == nullptr                            ? "null"
                       : r.status_text == reinterpret_cast<char *>(0x1234) ? "sentinel"
                                                                           : r.status_text;
    return std::to_string(r.status) + " " + std::to_string(r.exception_index) + " " + text;
}

TEST(Dispatch, SelectorsOutOfRangeFailWithoutTouchingThePause) {
    setenv("orbelledebug", "1", 1);
    platform::set_sleep_hook(record_pause);
    hostkit::Host host(&_iiop_entry);
    for (int32_t op : {0, -1, -2147483647 - 1, 10, 1000}) {
        iiop_record r = sentinel_record(op);
        EXPECT_EQ(host.call(r), 3) << op;
        EXPECT_EQ(outcome(r), "3 10 null") << op;
    }
    EXPECT_TRUE(pauses.empty());

    // The first valid call pauses once, whichever operation it is.
    EXPECT_EQ(host.init(), 0);
    EXPECT_EQ(pauses, std::vector<uint32_t>{25000});
    iiop_record again = hostkit::make_record(IIOP_TIMEOUT);
    host.call(again);
    EXPECT_EQ(pauses, std::vector<uint32_t>{25000});
    std::free(again.status_text);
}

// Only the time-out operation traces that it is not implemented.
TEST(Dispatch, UnimplementedOperationsFailWithTheirCatalogueText) {
    hostkit::Host host = testsupport::linked_host();
    set_debug_level(5);
    struct Case {
        int32_t op;
        const char *id;
        size_t block;
        std::vector<std::string> printed;
    } cases[] = {{IIOP_GET_EXCEPTION, "MC_8_6_3", 132, {}},
                 {IIOP_MAKE_IOR, "MC_8_6_4", 80, {}},
                 {IIOP_TIMEOUT, "MC_8_6_5", 80, {"_iiop_timeout:  not implemented\n"}}};
    for (int round = 0; round < 2; ++round) {
        for (const Case &c : cases) {
            size_t before = hostkit::allocation_sizes().size();
            hostkit::clear_printed();
            iiop_record r = hostkit::make_record(c.op);
            EXPECT_EQ(host.call(r), 3);
            EXPECT_EQ(outcome(r), std::string("3 10 ") + mc_msg(c.id));
            ASSERT_EQ(hostkit::allocation_sizes().size(), before + 1);
            EXPECT_EQ(hostkit::allocation_sizes().back(), c.block);
            EXPECT_EQ(hostkit::printed(), c.printed) << c.id;
            std::free(r.status_text);
        }
    }
}

TEST(Dispatch, RequestsWithoutATargetFailWithoutTouchingTheWire) {
    hostkit::Host host = testsupport::linked_host();
    set_debug_level(1);
    iiop_record invoke = hostkit::make_record(IIOP_INVOKE);
    EXPECT_EQ(host.call(invoke), 1);
    EXPECT_EQ(outcome(invoke), "1 1 IDL:omg.org/CORBA/BAD_PARAM:1.0");
    std::free(invoke.status_text);

    // timeout_ms 0 asks only whether the request still waits: it doesn't.
    iiop_record poll = hostkit::make_record(IIOP_GET_RESPONSE);
    EXPECT_EQ(host.call(poll), 1);
    EXPECT_EQ(poll.status, 0);
    EXPECT_TRUE(hostkit::printed_contains("_iiop_poll_response:  exit=1 (req not on wait list)"));
}

TEST(Slots, BeforeInitTheLibraryHeapAndStandardOutputServe) {
    hostkit::Host host(&_iiop_entry);
    set_debug_level(1);
    iiop_target target;
    iiop_req req;
    testing::internal::CaptureStdout();
    host.get_parms(req, target, nullptr, "_is_a");
    EXPECT_NE(testing::internal::GetCapturedStdout().find(
                  "_iiop_get_parms:  operation '_is_a', repoid 'NULL'\n"),
              std::string::npos);
    EXPECT_EQ(hostkit::allocations(), 0);
    EXPECT_TRUE(hostkit::printed().empty());
    ASSERT_NE(req.parms, nullptr);
    hostkit::free_list(req.parms);  // the library's heap is the C heap

    // After iiop_init every block and line goes through the host's slots.
    host.init();
    testing::internal::CaptureStdout();
    host.get_parms(req, target, nullptr, "_is_a");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    // two records and their two names
    EXPECT_EQ(hostkit::allocations(), 4);
    EXPECT_TRUE(hostkit::printed_contains("_iiop_get_parms: returning IIOP_OK"));
    hostkit::free_list(req.parms);
}

TEST(Catalogue, TextsLongerThanTheirBlocksAreCutAndTerminated) {
    hostkit::Host host = testsupport::linked_host();
    const std::string xs(300, 'x');
    TellcatTestSetText(8, 6, 3, xs.c_str());
    TellcatTestSetText(8, 6, 4, xs.c_str());
    for (int32_t op : {IIOP_GET_EXCEPTION, IIOP_MAKE_IOR}) {  // blocks of 132 and 80 bytes
        iiop_record r = hostkit::make_record(op);
        host.call(r);
        EXPECT_EQ(std::string(r.status_text), op == IIOP_MAKE_IOR
                                                  ? "MC_8_6_4: " + xs.substr(0, 69)
                                                  : "MC_8_6_3: " + xs.substr(0, 121));
        std::free(r.status_text);
    }

    // mc_msg appends at most 500 characters of text and never overruns its
    // 512-byte buffer, however long the identity.
    std::string long_identity(600, 'i');
    TellcatTestSetText(8, 6, 1, std::string(900, 't').c_str());
    EXPECT_EQ(std::strlen(mc_msg("MC_8_6_1")), 10u + 500u);
    TellcatTestSetIdentity(8, 6, 1, long_identity.c_str());
    EXPECT_EQ(std::strlen(mc_msg("MC_8_6_1")), 511u);
}

TEST(Exports, AHostFindsTheDoorAndTheNamedExportsOnly) {
    std::string error;
    hostkit::entry_fn door = hostkit::load_library(ORBELLE_LIB_PATH, &error);
    ASSERT_NE(door, nullptr) << error;
    auto symbol = [](const char *name) { return hostkit::find_symbol(ORBELLE_LIB_PATH, name); };
    for (const char *name : {"_iiop_entry", "enable_debug", "set_debug_level", "fnOrbelle",
                             "nOrbelle", "_ZN8COrbelleC1Ev", "_ZN8COrbelleaSERKS_"})
        EXPECT_NE(symbol(name), nullptr) << name;
    for (const char *name : {"_iiop_init", "mc_msg", "_Z6mc_msgPKc", "_Z6dmsg_vPKcz"})
        EXPECT_EQ(symbol(name), nullptr) << name;
    EXPECT_EQ(reinterpret_cast<int (*)()>(symbol("fnOrbelle"))(), 42);
    EXPECT_EQ(*static_cast<int *>(symbol("nOrbelle")), 0);

    // the loaded door works on its own state
    iiop_record r = hostkit::make_record(42);
    EXPECT_EQ(door(&r), 3);
    EXPECT_EQ(r.exception_index, 10);
}

}  // namespace
