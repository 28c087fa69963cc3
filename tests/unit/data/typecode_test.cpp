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
    // The kinds a walk visits, and the offsets from base.
    struct Visit {
        int32_t kind;
        ptrdiff_t offset;
    };
    std::vector<Visit> walk(TypeCode *tc, void *value, const void *base) {
        std::pair<const void *, std::vector<Visit>> r{base, {}};
        EXPECT_EQ(tc->walkValue(value, nullptr, record, &r, env), 1);
        return r.second;
    }
    static int record(TypeCode *tc, void *v1, void *, void *context, Environment &) {
        auto *r = static_cast<std::pair<const void *, std::vector<Visit>> *>(context);
        r->second.push_back({tc->kind, static_cast<unsigned char *>(v1) -
                                           static_cast<const unsigned char *>(r->first)});
        return 1;
    }
    // Size of a TypeCode read from a stream as a member, with its alignment.
    uint32_t nested_of(const Bytes &wire, uint32_t *align) {
        alignas(16) unsigned char buf[4096];
        std::memcpy(buf, wire.data(), wire.size());
        CDR s;
        s.attach_buffer(buf, sizeof buf);
        s.space_left = static_cast<uint32_t>(wire.size());
        return TypeCode::nestedSize(nullptr, s, align, env);
    }
    tcb::Tc t;
    Environment env;
};

TEST_F(TypeCodeTest, SizesAndAlignmentsOfCompoundValues) {
    uint32_t align = 0;
    Bytes char_long =
        t.structure("IDL:S:1.0", {{"c", t.simple(tk_char)}, {"l", t.simple(tk_long)}});
    EXPECT_EQ(nested_of(char_long, &align), 8u);
    EXPECT_EQ(align, 4u);

    // Sequences, anys and long doubles pack right behind a char.
    Bytes char_seq =
        t.structure("IDL:S:1.0", {{"c", t.simple(tk_char)}, {"s", t.sequence(t.simple(tk_long))}});
    EXPECT_EQ(nested_of(char_seq, &align), 1 + sizeof(SequenceRecord));
    EXPECT_EQ(align, 1u);
    EXPECT_EQ(Held(char_seq)->valueSize(env),
              sizeof(void *) == 4 ? 13u : 1 + sizeof(SequenceRecord));
    Bytes char_any_ld = t.structure(
        "IDL:S:1.0",
        {{"c", t.simple(tk_char)}, {"a", t.simple(tk_any)}, {"d", t.simple(tk_longdouble)}});
    EXPECT_EQ(Held(char_any_ld)->valueSize(env), 1 + sizeof(Any) + 16);

    // Union with short discriminator and a struct { long } member.
    Bytes long_struct = t.structure("IDL:L:1.0", {{"l", t.simple(tk_long)}});
    EXPECT_EQ(nested_of(t.union_of(t.simple(tk_short), tk_short, -1, {{1, long_struct}}), &align),
              8u);
    EXPECT_EQ(align, 4u);
    EXPECT_EQ(nested_of(t.array(t.simple(tk_long), 0), &align), 0u);
    EXPECT_EQ(align, 4u);
    EXPECT_EQ(Held(t.array(t.simple(tk_short), 3))->valueSize(env), 6u);
    // An exception starts with its id pointer.
    Bytes ex = t.structure("IDL:E:1.0", {{"c", t.simple(tk_char)}}, tk_except);
    EXPECT_EQ(Held(ex)->valueSize(env), 2 * sizeof(void *));
    EXPECT_EQ(tc_void()->valueSize(env), 0u);
    EXPECT_FALSE(env.has_exception());
}

TEST_F(TypeCodeTest, ParametersByIndexAndTheirBounds) {
    Held s(t.structure("IDL:Pair:1.0", {{"a", t.simple(tk_char)}, {"b", t.simple(tk_double)}}));
    EXPECT_EQ(s->paramCount(env), 7u);
    EXPECT_STREQ(s->repositoryId(env), "IDL:Pair:1.0");
    EXPECT_EQ(s->paramType(4, env), tc_char());  // a simple kind is the shared object
    TypeCode *m1 = s->paramType(6, env);
    ASSERT_NE(m1, nullptr);
    EXPECT_EQ(m1->kind, tk_double);
    TypeCode::release(m1);

    Held seq(t.sequence(t.simple(tk_long), 5));
    EXPECT_EQ(seq->paramCount(env), 2u);
    EXPECT_EQ(seq->paramLong(1, env), 5u);
    EXPECT_EQ(Held(t.bounded(tk_string, 9))->paramLong(0, env), 9u);
    Held arr(t.array(t.sequence(t.simple(tk_octet)), 4));
    EXPECT_EQ(arr->paramLong(1, env), 4u);
    TypeCode *element = arr->paramType(0, env);
    ASSERT_NE(element, nullptr);
    EXPECT_EQ(element->kind, tk_sequence);
    EXPECT_EQ(element->owned, 1u);
    TypeCode::release(element);

    Held u(t.union_of(t.simple(tk_long), tk_long, 1,
                      {{3, t.simple(tk_double)}, {4, t.bounded(tk_string, 2)}}));
    EXPECT_EQ(u->paramCount(env), 11u);
    EXPECT_EQ(u->paramType(2, env), tc_long());  // the discriminator
    TypeCode *m = u->paramType(10, env);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->kind, tk_string);
    EXPECT_EQ(m->length, 2u);
    TypeCode::release(m);
    EXPECT_FALSE(env.has_exception());

    // Out of range is Bounds; a parameter of the wrong sort is BAD_PARAM.
    for (uint32_t bad : {5u, 7u, 3u}) {
        EXPECT_EQ(s->paramType(bad, env), nullptr);
        EXPECT_STREQ(env.id(), exid::Bounds) << bad;
    }
    EXPECT_EQ(u->paramType(8, env), nullptr);
    EXPECT_STREQ(env.id(), exid::Bounds);
    seq->paramLong(2, env);
    EXPECT_STREQ(env.id(), exid::Bounds);
    seq->paramLong(0, env);
    EXPECT_STREQ(env.id(), exid::BAD_PARAM);
    s->paramLong(0, env);
    EXPECT_STREQ(env.id(), exid::BAD_PARAM);
    tc_long()->repositoryId(env);
    EXPECT_STREQ(env.id(), exid::BAD_PARAM);
}

TEST_F(TypeCodeTest, CountingAndCopiedBuffers) {
    TypeCode *standard = tc_string();
    EXPECT_EQ(standard->addRef(), standard);
    TypeCode::release(standard);
    TypeCode::release(standard);
    EXPECT_EQ(standard->refCount, 1u);  // the standard ones are never freed
    TypeCode::release(nullptr);

    Bytes body = t.body().str("IDL:X:1.0").str("X").bytes();
    auto *block = static_cast<unsigned char *>(std::malloc(body.size()));
    std::memcpy(block, body.data(), body.size());
    auto *owned = new TypeCode(tk_objref, static_cast<uint32_t>(body.size()), block, 1);
    owned->addRef();
    TypeCode::release(owned);
    EXPECT_EQ(owned->refCount, 1u);
    TypeCode::release(owned);  // frees object and block (checked by the sanitizer build)

    // A body at an unaligned address is copied to an aligned block.
    std::vector<unsigned char> odd(body.size() + 1);
    std::memcpy(odd.data() + 1, body.data(), body.size());
    TypeCode copied(tk_objref, static_cast<uint32_t>(body.size()), odd.data() + 1, 1);
    EXPECT_NE(copied.buffer, odd.data() + 1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(copied.buffer) % 4, 0u);
    EXPECT_STREQ(copied.repositoryId(env), "IDL:X:1.0");
}

TEST_F(TypeCodeTest, LabelMatchesByDiscriminatorWidth) {
    alignas(4) unsigned char label[8] = {1, 1, 0, 0, 1, 0, 0, 0};  // order, octet label, long label
    uint32_t word_true = 1, word_false = 0;
    auto match = [&](int32_t kind, uint32_t *disc) {
        CDR s;
        s.open_encapsulation(label, 8);
        return TypeCode::labelMatches(kind, s, disc, env);
    };
    EXPECT_EQ(match(tk_boolean, &word_true), 1);
    EXPECT_EQ(match(tk_boolean, &word_false), 0);
    EXPECT_EQ(match(tk_long, &word_true), 1);
    EXPECT_EQ(match(tk_double, &word_true), 0);
    EXPECT_STREQ(env.id(), exid::BAD_TYPECODE);
}

// struct Twice { Inner a; Inner b; } with b written as an indirection to a.
Bytes twice_with_indirection(const tcb::Tc &t, int32_t offset_fix) {
    Bytes inner = t.structure("IDL:In:1.0", {{"x", t.simple(tk_long)}, {"y", t.simple(tk_short)}});
    tcb::Enc e = t.body();
    e.str("IDL:Twice:1.0").str("Twice").ulong(2).str("a").pad(4);
    auto target = static_cast<int32_t>(e.bytes().size());
    e.tc(inner).str("b").ulong(tk_indirection);
    auto word = static_cast<int32_t>(e.bytes().size());
    e.ulong(static_cast<uint32_t>(target - word + offset_fix));
    return t.complex(tk_struct, e);
}

TEST_F(TypeCodeTest, IndirectionsInsideTheEncapsulationAreFollowed) {
    Held ok(twice_with_indirection(t, 0));
    EXPECT_EQ(ok->valueSize(env), 16u);
    EXPECT_FALSE(env.has_exception());
    alignas(8) unsigned char value[16];
    auto v = walk(ok.get(), value, value);
    ASSERT_EQ(v.size(), 2u);
    EXPECT_EQ(v[1].kind, tk_struct);
    EXPECT_EQ(v[1].offset, 8);
}

TEST_F(TypeCodeTest, MalformedTypeCodesAreBadTypeCode) {
    Bytes self_reference = t.complex(tk_struct, t.body()
                                                    .str("")
                                                    .str("")
                                                    .ulong(1)
                                                    .str("m")
                                                    .ulong(tk_indirection)
                                                    .ulong(static_cast<uint32_t>(-8)));
    Bytes deep = t.simple(tk_long);
    for (int i = 0; i < 10; ++i) deep = t.alias(deep);
    EXPECT_EQ(Held(deep)->valueSize(env), 4u);  // moderate nesting is fine
    for (int i = 0; i < 200; ++i) deep = t.alias(deep);
    tcb::Enc extra = t.body();
    extra.str("IDL:S:1.0").str("S").ulong(1).str("a").tc(t.simple(tk_long)).ulong(99);
    Bytes cut = t.structure("IDL:S:1.0", {{"a", t.simple(tk_long)}});
    cut.resize(cut.size() - 4);
    struct Case {
        const char *what;
        Bytes wire;
        bool as_member;  // read from a stream rather than from a TypeCode object
    } cases[] = {
        {"indirection before the encapsulation", twice_with_indirection(t, -400), false},
        {"unaligned indirection", twice_with_indirection(t, -2), false},
        {"indirection to itself", self_reference, false},
        {"nested deeper than the limit", deep, false},
        {"bytes left in the encapsulation", t.complex(tk_struct, extra), true},
        {"encapsulation cut short", cut, true},
        {"null member", t.simple(tk_null), true},
        {"exception member", t.structure("IDL:E:1.0", {}, tk_except), true},
    };
    for (const Case &c : cases) {
        env.clear();
        uint32_t align;
        if (c.as_member)
            nested_of(c.wire, &align);
        else
            Held(c.wire)->valueSize(env);
        EXPECT_STREQ(env.id(), exid::BAD_TYPECODE) << c.what;
    }
    env.clear();
    TypeCode(40).valueSize(env);
    EXPECT_STREQ(env.id(), exid::BAD_TYPECODE);
}

}  // namespace
