#include "trace/trace.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "orbelle/orbelle.h"
#include "tests/support.h"

namespace {
using hostkit::printed;

TEST(Trace, FilterComparesLevelsAsUnsignedNumbers) {
    testsupport::linked_host();
    set_debug_level(5);
    dmsg_filter(6, "six");
    set_debug_level(6);
    dmsg_filter(6, "six");
    set_debug_level(0);
    dmsg_filter(0, "zero");
    dmsg_filter(1, "one");
    set_debug_level(0xFFFFFFFFu);
    dmsg_filter(0x80000000u, "high");
    EXPECT_EQ(printed(), (std::vector<std::string>{"six\n", "zero\n", "high\n"}));
}

TEST(Trace, OpaqueDumpOfNothingSaysEmpty) {
    testsupport::linked_host();
    dmsg_opaque_full("null", nullptr, 5);
    const char one = 'x';
    dmsg_opaque_full("zero", &one, 0);
    EXPECT_EQ(printed(),
              (std::vector<std::string>{"null ", "(empty)", "\n", "zero ", "(empty)", "\n"}));
}

TEST(Trace, EnableDebugNeedsCorbadebug) {
    unsetenv("corbadebug");
    set_debug_level(7);
    EXPECT_EQ(enable_debug(), 3);
    EXPECT_EQ(debug_level, 7u);
    setenv("corbadebug", "", 1);
    EXPECT_EQ(enable_debug(), 0);
    EXPECT_EQ(debug_level, 5u);
}

TEST(Trace, DebugChannelGetsOnlyTheMarkers) {
    testsupport::linked_host();
    setenv("ORBELLE_DEBUG_CHANNEL", "1", 1);
    testing::internal::CaptureStderr();
    dmsg_v("secret");
    dmsg_filter(0, "secret");
    dmsg_opaque_full("secret", "x", 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "called dmsg_v\ncalled dmsg_filter\ncalled dmsg_opaque_full\n");
    unsetenv("ORBELLE_DEBUG_CHANNEL");
    testing::internal::CaptureStderr();
    dmsg_v("quiet");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
