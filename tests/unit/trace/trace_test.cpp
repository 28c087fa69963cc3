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
    EXPECT_TRUE(printed().empty());
    set_debug_level(6);
    dmsg_filter(6, "six");
    set_debug_level(0);
    dmsg_filter(0, "zero");
    dmsg_filter(1, "one");
    set_debug_level(0xFFFFFFFFu);
    dmsg_filter(0x80000000u, "high");
    EXPECT_EQ(printed(), (std::vector<std::string>{"six\n", "zero\n", "high\n"}));
}

TEST(Trace, OpaqueDumpLaysOutHexAndCharacters) {
    testsupport::linked_host();
    const unsigned char five[] = {'a', 0x01, 'b', 0xff, ' '};
    dmsg_opaque_full("label", five, 5);
    EXPECT_EQ(printed(), (std::vector<std::string>{"label ", "\nhex:   ", "61", "01", "62", "ff",
                                                   " ", "20", "\nchars: ", "a ", "? ", "b ", "? ",
                                                   " ", "  ", "\n", "\n"}));

    hostkit::clear_printed();
    std::vector<unsigned char> bytes(33);
    for (int i = 0; i < 33; ++i) bytes[i] = static_cast<unsigned char>('A' + i % 26);
    dmsg_opaque_full("big", bytes.data(), 33);
    std::string all = hostkit::printed_text();
    EXPECT_EQ(all,
              "big \nhex:   41424344 45464748 494a4b4c 4d4e4f50 51525354 55565758 595a4142 "
              "43444546\n       47"
              "\nchars: A B C D  E F G H  I J K L  M N O P  Q R S T  U V W X  Y Z A B  C D E F "
              "\n       G \n\n");
}

TEST(Trace, OpaqueDumpOfNothingSaysEmpty) {
    testsupport::linked_host();
    dmsg_opaque_full("null", nullptr, 5);
    const char one = 'x';
    dmsg_opaque_full("zero", &one, 0);
    EXPECT_EQ(printed(),
              (std::vector<std::string>{"null ", "(empty)", "\n", "zero ", "(empty)", "\n"}));
}

TEST(Trace, OpaqueDumpCutsALabelLongerThanItsBuffer) {
    testsupport::linked_host();
    std::string label(2000, 'L');
    const char one = 'x';
    dmsg_opaque_full(label.c_str(), &one, 1);
    ASSERT_FALSE(printed().empty());
    EXPECT_EQ(printed()[0], std::string(511, 'L'));
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

TEST(Trace, TraceSitesEvaluateNothingWhileOff) {
    int evaluated = 0;
    auto count = [&] { return ++evaluated; };
    set_debug_level(0);
    TRACE("value %d", count());
    EXPECT_EQ(evaluated, 0);
    testsupport::linked_host();
    set_debug_level(1);
    TRACE("value %d", count());
    EXPECT_EQ(evaluated, 1);
}

}  // namespace
