#include "data/typecode.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "data/any.h"
#include "data/stdtypes.h"
#include "tests/unit/data/tc_builder.h"

namespace {

using tcb::Bytes;
using tcb::Held;

class TypeCodeTest : public ::testing::Test {
protected:
    void SetUp() override {
        inittypecodes();
        fill_value_table();
    }
    tcb::Tc t;
    Environment env;
    const uint32_t ptr = sizeof(void *);
};

// Records which kinds a walk visits and at which offsets.
struct Visit {
    int32_t kind;
    ptrdiff_t offset;
};
struct Recorder {
    unsigned char *base;
    std::vector<Visit> visits;
};
int record_visit(TypeCode *tc, void *v1, void *, void *context, Environment &) {
    auto *r = static_cast<Recorder *>(context);
    r->visits.push_back({tc->kind, static_cast<unsigned char *>(v1) - r->base});
    return 1;
}

uint32_t nested_of(const Bytes &wire, uint32_t *align, Environment &env) {
    alignas(16) unsigned char buf[4096];
    std::memcpy(buf, wire.data(), wire.size());
    CDR s;
    s.attach_buffer(buf, sizeof buf);
    s.space_left = static_cast<uint32_t>(wire.size());
    return TypeCode::nestedSize(nullptr, s, align, env);
}

TEST(ValueTable, RowsReadEmptyUntilStartUp) {
    EXPECT_EQ(value_row(tk_long).size, 0u);
    EXPECT_EQ(value_row(tk_long).alignment, 1u);
    fill_value_table();
    EXPECT_EQ(value_row(tk_long).size, 4u);
    EXPECT_EQ(value_row(tk_sequence).size, sizeof(SequenceRecord));
    EXPECT_EQ(value_row(tk_any).size, sizeof(Any));
    EXPECT_EQ(value_row(tk_string).size, sizeof(char *));
    if (sizeof(void *) == 4) {
        EXPECT_EQ(value_row(tk_sequence).size, 12u);
        EXPECT_EQ(value_row(tk_any).size, 12u);
    }
}

TEST_F(TypeCodeTest, SizesAndAlignmentsOfCompoundValues) {
    uint32_t align = 0;
    Bytes char_long =
        t.structure("IDL:S:1.0", {{"c", t.simple(tk_char)}, {"l", t.simple(tk_long)}});
    EXPECT_EQ(nested_of(char_long, &align, env), 8u);
    EXPECT_EQ(align, 4u);

    // Sequences, anys and long doubles pack right behind a char.
    Bytes char_seq =
        t.structure("IDL:S:1.0", {{"c", t.simple(tk_char)}, {"s", t.sequence(t.simple(tk_long))}});
    EXPECT_EQ(nested_of(char_seq, &align, env), 1 + sizeof(SequenceRecord));
    EXPECT_EQ(align, 1u);
    if (sizeof(void *) == 4) {
        EXPECT_EQ(Held(char_seq)->valueSize(env), 13u);
    }
    Bytes char_any_ld = t.structure(
        "IDL:S:1.0",
        {{"c", t.simple(tk_char)}, {"a", t.simple(tk_any)}, {"d", t.simple(tk_longdouble)}});
    EXPECT_EQ(Held(char_any_ld)->valueSize(env), 1 + sizeof(Any) + 16);

    // Union with short discriminator and a struct { long } member.
    Bytes long_struct = t.structure("IDL:L:1.0", {{"l", t.simple(tk_long)}});
    Bytes u = t.union_of(t.simple(tk_short), tk_short, -1, {{1, long_struct}});
    EXPECT_EQ(nested_of(u, &align, env), 8u);
    EXPECT_EQ(align, 4u);

    EXPECT_EQ(nested_of(t.array(t.simple(tk_long), 0), &align, env), 0u);
    EXPECT_EQ(align, 4u);
    EXPECT_EQ(Held(t.array(t.simple(tk_short), 3))->valueSize(env), 6u);

    // An exception starts with its id pointer.
    Bytes ex = t.structure("IDL:E:1.0", {{"c", t.simple(tk_char)}}, tk_except);
    EXPECT_EQ(Held(ex)->valueSize(env), 2 * ptr);

    EXPECT_EQ(tc_null()->valueSize(env), 0u);
    EXPECT_EQ(tc_void()->valueSize(env), 0u);
    EXPECT_FALSE(env.has_exception());
    nested_of(t.simple(tk_null), &align, env);
    EXPECT_STREQ(env.id(), exid::BAD_TYPECODE);
    nested_of(ex, &align, env);  // an exception can't be a member
    EXPECT_STREQ(env.id(), exid::BAD_TYPECODE);
    TypeCode big(40);
    big.valueSize(env);
    EXPECT_STREQ(env.id(), exid::BAD_TYPECODE);
}

TEST_F(TypeCodeTest, StructParametersAndBounds) {
    Held s(t.structure("IDL:Pair:1.0", {{"a", t.simple(tk_char)}, {"b", t.simple(tk_double)}}));
    EXPECT_EQ(s->paramCount(env), 7u);
    EXPECT_STREQ(s->repositoryId(env), "IDL:Pair:1.0");
    TypeCode *m1 = s->paramType(6, env);
    ASSERT_NE(m1, nullptr);
    EXPECT_EQ(m1->kind, tk_double);
    TypeCode::release(m1);
    TypeCode *m0 = s->paramType(4, env);
    ASSERT_NE(m0, nullptr);
    EXPECT_EQ(m0, tc_char());  // a simple kind is the shared object
    for (uint32_t bad : {5u, 7u, 3u}) {
        EXPECT_EQ(s->paramType(bad, env), nullptr);
        EXPECT_STREQ(env.id(), exid::Bounds) << bad;
        EXPECT_EQ(env.exception_kind(), 1);
    }
    s->paramLong(0, env);
    EXPECT_STREQ(env.id(), exid::BAD_PARAM);
    tc_long()->repositoryId(env);
    EXPECT_STREQ(env.id(), exid::BAD_PARAM);
}

TEST_F(TypeCodeTest, ParamLongGivesBoundsAndLengths) {
    Held seq(t.sequence(t.simple(tk_long), 5));
    EXPECT_EQ(seq->paramCount(env), 2u);
    seq->paramLong(0, env);
    EXPECT_STREQ(env.id(), exid::BAD_PARAM);
    EXPECT_EQ(seq->paramLong(1, env), 5u);
    EXPECT_FALSE(env.has_exception());
    seq->paramLong(2, env);
    EXPECT_STREQ(env.id(), exid::Bounds);
    Held str(t.bounded(tk_string, 9));
    EXPECT_EQ(str->paramLong(0, env), 9u);
    Held arr(t.array(t.sequence(t.simple(tk_octet)), 4));
    EXPECT_EQ(arr->paramLong(1, env), 4u);
    TypeCode *element = arr->paramType(0, env);
    ASSERT_NE(element, nullptr);
    EXPECT_EQ(element->kind, tk_sequence);
    EXPECT_EQ(element->owned, 1u);
    TypeCode::release(element);
}

TEST_F(TypeCodeTest, UnionParametersByIndex) {
    Held u(t.union_of(t.simple(tk_long), tk_long, 1,
                      {{3, t.simple(tk_double)}, {4, t.bounded(tk_string, 2)}}));
    EXPECT_EQ(u->paramCount(env), 11u);
    TypeCode *disc = u->paramType(2, env);
    ASSERT_NE(disc, nullptr);
    EXPECT_EQ(disc->kind, tk_long);
    TypeCode *m0 = u->paramType(7, env);
    TypeCode *m1 = u->paramType(10, env);
    ASSERT_NE(m0, nullptr);
    ASSERT_NE(m1, nullptr);
    EXPECT_EQ(m0->kind, tk_double);
    EXPECT_EQ(m1->kind, tk_string);
    EXPECT_EQ(m1->length, 2u);
    TypeCode::release(m1);
    EXPECT_EQ(u->paramType(8, env), nullptr);
    EXPECT_STREQ(env.id(), exid::Bounds);
}

TEST_F(TypeCodeTest, CountingAndCopiedBuffers) {
    TypeCode *standard = tc_string();
    EXPECT_EQ(standard->addRef(), standard);
    TypeCode::release(standard);
    TypeCode::release(standard);
    EXPECT_EQ(standard->refCount, 1u);
    TypeCode::release(nullptr);

    Bytes body = t.body().str("IDL:X:1.0").str("X").bytes();
    auto *block = static_cast<unsigned char *>(std::malloc(body.size()));
    std::memcpy(block, body.data(), body.size());
    auto *owned = new TypeCode(tk_objref, static_cast<uint32_t>(body.size()), block, 1);
    owned->addRef();
    EXPECT_EQ(owned->refCount, 2u);
    TypeCode::release(owned);
    EXPECT_EQ(owned->refCount, 1u);
    TypeCode::release(owned);  // frees object and block (checked by the sanitizer build)

    std::vector<unsigned char> odd(body.size() + 1);
    std::memcpy(odd.data() + 1, body.data(), body.size());
    TypeCode copied(tk_objref, static_cast<uint32_t>(body.size()), odd.data() + 1, 1);
    EXPECT_EQ(copied.owned, 0u);
    EXPECT_NE(copied.buffer, odd.data() + 1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(copied.buffer) % 4, 0u);
    EXPECT_STREQ(copied.repositoryId(env), "IDL:X:1.0");
}

TEST_F(TypeCodeTest, StructAndUnionWalksVisitMembersAtTheirOffsets) {
    Held s(t.structure("IDL:S:1.0", {{"c", t.simple(tk_char)},
                                     {"d", t.simple(tk_double)},
                                     {"q", t.sequence(t.simple(tk_long))}}));
    alignas(8) unsigned char value[64] = {0};
    Recorder r{value, {}};
    EXPECT_EQ(s->walkValue(value, nullptr, record_visit, &r, env), 1);
    ASSERT_EQ(r.visits.size(), 3u);
    EXPECT_EQ(r.visits[1].kind, tk_double);
    EXPECT_EQ(r.visits[1].offset, 8);
    EXPECT_EQ(r.visits[2].offset, 16);

    // Discriminator short; default is member 0; labels 1 and 2.
    Held u(t.union_of(t.simple(tk_short), tk_short, 0,
                      {{1, t.simple(tk_double)}, {2, t.simple(tk_long)}}));
    auto walk_with = [&](int16_t disc) {
        std::memcpy(value, &disc, 2);
        Recorder rec{value, {}};
        EXPECT_EQ(u->walkValue(value, nullptr, record_visit, &rec, env), 1);
        return rec.visits;
    };
    auto v = walk_with(2);  // a later label matches: the default is ignored
    ASSERT_EQ(v.size(), 2u);
    EXPECT_EQ(v[0].kind, tk_short);
    EXPECT_EQ(v[1].kind, tk_long);
    EXPECT_EQ(v[1].offset, 8);  // discriminator part aligned to the double
    v = walk_with(9);           // no label: the default member
    ASSERT_EQ(v.size(), 2u);
    EXPECT_EQ(v[1].kind, tk_double);

    Held no_default(t.union_of(t.simple(tk_short), tk_short, -1, {{1, t.simple(tk_long)}}));
    int16_t disc = 7;
    std::memcpy(value, &disc, 2);
    Recorder rec{value, {}};
    EXPECT_EQ(no_default->walkValue(value, nullptr, record_visit, &rec, env), 1);
    EXPECT_EQ(rec.visits.size(), 1u);  // only the discriminator
}

TEST_F(TypeCodeTest, SequenceWalkOfNoElementsVisitsNothing) {
    Held seq(t.sequence(t.simple(tk_long)));
    SequenceRecord rec{0, 0, nullptr};
    Recorder r{nullptr, {}};
    EXPECT_EQ(seq->walkValue(&rec, nullptr, record_visit, &r, env), 1);
    EXPECT_TRUE(r.visits.empty());
    int32_t elements[3] = {1, 2, 3};
    rec = SequenceRecord{3, 3, elements};
    r.base = reinterpret_cast<unsigned char *>(elements);
    EXPECT_EQ(seq->walkValue(&rec, nullptr, record_visit, &r, env), 1);
    ASSERT_EQ(r.visits.size(), 3u);
    EXPECT_EQ(r.visits[2].offset, 8);
}

TEST_F(TypeCodeTest, LabelMatchesByDiscriminatorWidth) {
    alignas(4) unsigned char label[8] = {1, 1, 0, 0, 1, 0, 0, 0};  // order, octet label, long label
    CDR s;
    uint32_t word_true = 1, word_false = 0;
    s.open_encapsulation(label, 8);
    EXPECT_EQ(TypeCode::labelMatches(tk_boolean, s, &word_true, env), 1);
    s.open_encapsulation(label, 8);
    EXPECT_EQ(TypeCode::labelMatches(tk_boolean, s, &word_false, env), 0);
    s.open_encapsulation(label, 8);
    EXPECT_EQ(TypeCode::labelMatches(tk_long, s, &word_true, env), 1);
    s.open_encapsulation(label, 8);
    EXPECT_EQ(TypeCode::labelMatches(tk_double, s, &word_true, env), 0);
    EXPECT_STREQ(env.id(), exid::BAD_TYPECODE);
}

// struct Twice { Inner a; Inner b; } with b written as an indirection to a.
Bytes twice_with_indirection(const tcb::Tc &t, int32_t offset_fix) {
    Bytes inner = t.structure("IDL:In:1.0", {{"x", t.simple(tk_long)}, {"y", t.simple(tk_short)}});
    tcb::Enc e = t.body();
    e.str("IDL:Twice:1.0").str("Twice").ulong(2).str("a");
    e.pad(4);
    size_t target = e.bytes().size();
    e.tc(inner).str("b").ulong(tk_indirection);
    size_t word = e.bytes().size();
    e.ulong(static_cast<uint32_t>(static_cast<int32_t>(target) - static_cast<int32_t>(word) +
                                  offset_fix));
    return t.complex(tk_struct, e);
}

TEST_F(TypeCodeTest, IndirectionsInsideTheEncapsulationAreFollowed) {
    Held ok(twice_with_indirection(t, 0));
    EXPECT_EQ(ok->valueSize(env), 16u);
    EXPECT_FALSE(env.has_exception());
    alignas(8) unsigned char value[16];
    Recorder r{value, {}};
    EXPECT_EQ(ok->walkValue(value, nullptr, record_visit, &r, env), 1);
    ASSERT_EQ(r.visits.size(), 2u);
    EXPECT_EQ(r.visits[1].kind, tk_struct);
    EXPECT_EQ(r.visits[1].offset, 8);

    // Before the encapsulation's first byte, unaligned, or not backwards.
    for (int32_t fix : {-400, -2}) {
        Held bad(twice_with_indirection(t, fix));
        bad->valueSize(env);
        EXPECT_STREQ(env.id(), exid::BAD_TYPECODE) << fix;
    }
    Bytes forward =
        t.body().str("").str("").ulong(1).str("m").ulong(tk_indirection).ulong(-8).bytes();
    tcb::Enc e = t.body();
    e.raw(Bytes(forward.begin() + 1, forward.end()));
    Held self(t.complex(tk_struct, e));
    self->valueSize(env);
    EXPECT_STREQ(env.id(), exid::BAD_TYPECODE);
}

TEST_F(TypeCodeTest, DeepNestingIsRefused) {
    Bytes deep = t.simple(tk_long);
    for (int i = 0; i < 10; ++i) deep = t.alias(deep);
    EXPECT_EQ(Held(deep)->valueSize(env), 4u);
    for (int i = 0; i < 200; ++i) deep = t.alias(deep);
    Held(deep)->valueSize(env);
    EXPECT_STREQ(env.id(), exid::BAD_TYPECODE);
}

TEST_F(TypeCodeTest, EncapsulationMustBeUsedUpExactly) {
    tcb::Enc e = t.body();
    e.str("IDL:S:1.0").str("S").ulong(1).str("a").tc(t.simple(tk_long)).ulong(99);
    uint32_t align;
    nested_of(t.complex(tk_struct, e), &align, env);
    EXPECT_STREQ(env.id(), exid::BAD_TYPECODE);
    Bytes cut = t.structure("IDL:S:1.0", {{"a", t.simple(tk_long)}});
    cut.resize(cut.size() - 4);
    nested_of(cut, &align, env);
    EXPECT_STREQ(env.id(), exid::BAD_TYPECODE);
}

}  // namespace
