// Edges of the wire forms that only some values meet: bounds met exactly, a
// sequence of 8-byte numbers whose first element needs padding behind the
// count, union labels in the width of every kind of discriminator.
#include <gtest/gtest.h>

#include <cstring>

#include "data/any.h"
#include "data/decoder.h"
#include "data/encoder.h"
#include "tests/unit/data/tc_builder.h"

namespace {

using tcb::Bytes;
using tcb::Enc;

struct WireEdges : tcb::DataTest {
    // What the encoder writes for value, from a 16-aligned start; the
    // exception it raises, if any, stays in env.
    Bytes encoded(TypeCode *tc, const void *value) {
        alignas(16) unsigned char bytes[128] = {};
        CDR out;
        out.attach_buffer(bytes, sizeof bytes);
        encoder(tc, const_cast<void *>(value), nullptr, &out, env);
        return Bytes(out.base, out.cursor);
    }
};

TEST_F(WireEdges, ValuesAtTheirBoundGoOutAndOnePastAreRefused) {
    tcb::Held string3(le.bounded(tk_string, 3)), wstring2(le.bounded(tk_wstring, 2)),
        seq2(le.sequence(le.simple(tk_long), 2));
    const char *abc = "abc", *abcd = "abcd";
    const uint16_t two[] = {'a', 'b', 0}, three[] = {'a', 'b', 'c', 0};
    const uint16_t *ab = two, *abc_wide = three;
    int32_t longs[3] = {1, 2, 3};
    SequenceRecord at_bound{2, 2, longs}, past_bound{3, 3, longs};
    struct Row {
        TypeCode *tc;
        const void *at, *past;
        const char *refused_with;
    } rows[] = {
        {string3.get(), &abc, &abcd, exid::MARSHAL},
        {wstring2.get(), &ab, &abc_wide, exid::MARSHAL},
        {seq2.get(), &at_bound, &past_bound, exid::BAD_PARAM},
    };
    for (const Row &row : rows) {
        EXPECT_FALSE(encoded(row.tc, row.at).empty()) << "kind " << row.tc->kind;
        EXPECT_FALSE(env.has_exception()) << "kind " << row.tc->kind;
        EXPECT_TRUE(encoded(row.tc, row.past).empty()) << "kind " << row.tc->kind;
        EXPECT_STREQ(env.id(), row.refused_with) << "kind " << row.tc->kind;
    }
}

TEST_F(WireEdges, EightByteElementsStartOnAnEightByteBoundaryBehindTheCount) {
    for (int32_t kind : {tk_double, tk_longlong, tk_ulonglong}) {
        tcb::Held seq(le.sequence(le.simple(kind)));
        uint64_t elements[2] = {0x0102030405060708u, 0x1112131415161718u};
        SequenceRecord record{2, 2, elements};
        EXPECT_EQ(encoded(seq.get(), &record),
                  Enc(false, false).ulong(2).ulonglong(elements[0]).ulonglong(elements[1]).bytes())
            << "kind " << kind;
    }
}

TEST_F(WireEdges, UnionLabelsAreReadInTheWidthOfTheirDiscriminator) {
    for (bool big : {false, true}) {
        tcb::Tc t{big};
        struct Row {
            int32_t kind;
            Bytes disc;
            size_t width;
        } rows[] = {
            {tk_enum, t.enumeration(3), 4},        {tk_long, t.simple(tk_long), 4},
            {tk_ulong, t.simple(tk_ulong), 4},     {tk_short, t.simple(tk_short), 2},
            {tk_ushort, t.simple(tk_ushort), 2},   {tk_char, t.simple(tk_char), 1},
            {tk_boolean, t.simple(tk_boolean), 1},
        };
        for (const Row &row : rows) {
            SCOPED_TRACE(::testing::Message() << "kind " << row.kind << (big ? " big" : ""));
            Bytes wire_tc = t.union_of(row.disc, row.kind, -1,
                                       {{0, t.simple(tk_long)}, {1, t.simple(tk_short)}});
            // A TypeCode over the body in its own byte order, as read from a message.
            TypeCode u(tk_union, static_cast<uint32_t>(wire_tc.size() - 8), wire_tc.data() + 8, 0);
            // The arm of label 1, read and written back in this machine's order.
            Bytes wire = Enc(big, false).num(1, row.width).ushort(0x2233).bytes();
            alignas(16) unsigned char in_bytes[32] = {};
            std::memcpy(in_bytes, wire.data(), wire.size());
            CDR in;
            in.read_in_place(in_bytes, static_cast<uint32_t>(wire.size()));
            in.swap = big ? 1 : 0;
            uint32_t size = u.valueSize(env);
            ASSERT_FALSE(env.has_exception());
            std::vector<unsigned char> value(size, 0);
            ASSERT_EQ(decoder(&u, value.data(), nullptr, &in, env), 1);
            EXPECT_EQ(in.space_left, 0u);
            EXPECT_EQ(encoded(&u, value.data()),
                      Enc(false, false).num(1, row.width).ushort(0x2233).bytes());
            freeValue(&u, value.data(), nullptr, nullptr, env);
        }
    }
}

}  // namespace
