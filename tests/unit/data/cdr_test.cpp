#include "data/cdr.h"

#include <gtest/gtest.h>

#include <cstring>

#include "data/unaligned.h"
#include "host/kit/hostkit.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

namespace {

// A stream over a local array; alignas keeps base at the array's start.
struct Local {
    alignas(16) unsigned char bytes[64];
    CDR cdr;
    explicit Local(uint32_t size = sizeof bytes) {
        std::memset(bytes, 0xEE, sizeof bytes);
        cdr.attach_buffer(bytes, size);
    }
};

TEST(Cdr, PutAlignsOnAddressesAndZeroesPadding) {
    Local s;
    ASSERT_TRUE(s.cdr.put_byte(0x11));
    ASSERT_TRUE(s.cdr.put_short(0x2233));
    ASSERT_TRUE(s.cdr.put_long(0x44556677));
    uint64_t ll = 0x0102030405060708ull;
    ASSERT_TRUE(s.cdr.put_longlong(&ll));
    unsigned char ld[16];
    for (int i = 0; i < 16; ++i) ld[i] = static_cast<unsigned char>(0xA0 + i);
    ASSERT_TRUE(s.cdr.put_longdouble(ld));
    const unsigned char expect[] = {0x11, 0x00, 0x33, 0x22, 0x77, 0x66, 0x55, 0x44,
                                    0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01};
    EXPECT_EQ(0, std::memcmp(s.bytes, expect, sizeof expect));
    EXPECT_EQ(0, std::memcmp(s.bytes + 16, ld, 16));
    EXPECT_EQ(std::make_tuple(s.cdr.used(), s.cdr.space_left), std::make_tuple(32u, 32u));
}

TEST(Cdr, PutLongGrowsOnlyWhenPaddingAndValueDoNotFit) {
    // The cursor one past a 4-byte boundary, with 7 bytes left or 6.
    for (uint32_t size : {8u, 7u}) {
        Local s(size);
        s.cdr.put_byte(1);
        ASSERT_EQ(s.cdr.space_left, size - 1);
        ASSERT_TRUE(s.cdr.put_long(0xAABBCCDD));
        EXPECT_EQ(std::make_tuple(s.cdr.owns_allocation, s.cdr.used(), s.cdr.base[0],
                                  load_unaligned<uint32_t>(s.cdr.base + 4)),
                  std::make_tuple(size == 8 ? 0u : 1u, 8u, 1, 0xAABBCCDDu));
        EXPECT_TRUE(size == 7 || s.cdr.space_left == 0) << s.cdr.space_left;
    }
}

TEST(Cdr, OpenEncapsulationTakesByteOrderFromFirstByte) {
    alignas(16) unsigned char bytes[8] = {0, 0, 0, 0, 0x01, 0x02, 0x03, 0x04};
    CDR cdr;
    uint32_t v;
    for (unsigned char order : {0, 2, 1}) {  // any value but 1 is big-endian
        bytes[0] = order;
        cdr.open_encapsulation(bytes, 8);
        EXPECT_EQ(cdr.swap, order == 1 ? 0u : 1u);
        ASSERT_TRUE(cdr.get_long(&v));
        EXPECT_EQ(v, order == 1 ? 0x04030201u : 0x01020304u);
    }
    EXPECT_EQ(cdr.base, nullptr);  // reading only: nothing to grow
}

TEST(Cdr, GrowWithSizeAndStepSizes) {
    Local s(40);
    uint32_t cap = s.cdr.capacity;
    EXPECT_TRUE(s.cdr.grow(10));  // fits: nothing happens
    EXPECT_EQ(std::make_tuple(s.cdr.capacity, s.cdr.allocation), std::make_tuple(cap, s.bytes));

    s.cdr.put_long(0xCAFEBABE);
    s.cdr.put_byte(7);
    s.cdr.swap = 1;
    set_host_slots(hostkit::slots());
    hostkit::clear_printed();
    set_debug_level(1);
    ASSERT_TRUE(s.cdr.grow(5000));
    EXPECT_TRUE(hostkit::printed_contains("grow:  malloc 5015 at 0x"));
    EXPECT_TRUE(hostkit::printed_contains("grow:  new CDR at 0x"));
    EXPECT_FALSE(hostkit::printed_contains("grow:  free"));  // the caller's array stays
    EXPECT_GE(s.cdr.capacity, 5000u);
    EXPECT_EQ(
        std::make_tuple(reinterpret_cast<uintptr_t>(s.cdr.base) % 16, s.cdr.space_left, s.cdr.swap),
        std::make_tuple(0u, s.cdr.capacity - 5, 1u));

    // The step: 4095 + 4096, or twice a capacity from 4096 on.
    s.cdr.capacity = 4095;
    ASSERT_TRUE(s.cdr.grow(0));
    EXPECT_TRUE(hostkit::printed_contains("grow:  malloc 8206 at 0x"));
    EXPECT_TRUE(hostkit::printed_contains("grow:  free 0x"));
    s.cdr.capacity = 4096;
    ASSERT_TRUE(s.cdr.grow(0));
    EXPECT_TRUE(hostkit::printed_contains("grow:  malloc 8207 at 0x"));
    // The contents moved along each time.
    EXPECT_EQ(std::make_tuple(s.cdr.used(), s.cdr.base[4], load_unaligned<uint32_t>(s.cdr.base)),
              std::make_tuple(5u, 7, 0xCAFEBABEu));
    set_debug_level(0);
}

// Counted bytes are read in place; a count one past what is left is refused
// by every reader, which then has consumed the count only.
TEST(Cdr, CountedBytesAreReadInPlaceAndRefusedPastTheEnd) {
    alignas(16) unsigned char bytes[12] = {1, 0, 0, 0, 4, 0, 0, 0, 'a', 'b', 'c', 0};
    CDR cdr;
    cdr.open_encapsulation(bytes, 12);
    unsigned char *at = nullptr;
    uint32_t count = 0;
    ASSERT_TRUE(cdr.get_counted(&at, &count));
    EXPECT_EQ(std::make_tuple(at, count, cdr.space_left), std::make_tuple(bytes + 8, 4u, 0u));
    bytes[4] = 5;
    for (int reader = 0; reader < 3; ++reader) {
        cdr.open_encapsulation(bytes, 12);
        bool ok = reader == 0   ? cdr.get_counted(&at, &count) != 0
                  : reader == 1 ? get_counted_text(cdr) != nullptr
                                : cdr.skip_counted() != 0;
        EXPECT_FALSE(ok) << reader;
        EXPECT_EQ(cdr.space_left, 4u) << reader;
    }
}

}  // namespace
