#include "data/typecode.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "data/any.h"
#include "tests/unit/data/tc_builder.h"

namespace {

using tcb::Bytes;
using tcb::Held;

struct TypeCodeTest : tcb::DataTest {
    // The kinds a walk visits, as "kind@offset" from the value's start.
    std::vector<std::string> walk(TypeCode *tc, unsigned char *value) {
        std::pair<unsigned char *, std::vector<std::string>> r{value, {}};
        EXPECT_EQ(tc->walkValue(value, nullptr, record, &r, env), 1);
        return r.second;
    }
    static int record(TypeCode *tc, void *v1, void *, void *context, Environment &) {
        auto *r = static_cast<std::pair<unsigned char *, std::vector<std::string>> *>(context);
        r->second.push_back(std::to_string(tc->kind) + "@" +
                            std::to_string(static_cast<unsigned char *>(v1) - r->first));
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
    const tcb::Tc &t = le;
};

TEST_F(TypeCodeTest, SizesAndAlignmentsOfCompoundValues) {
    Bytes c = t.simple(tk_char);
    Bytes char_seq = t.structure("IDL:S:1.0", {{"c", c}, {"s", t.sequence(t.simple(tk_long))}});
    Bytes long_struct = t.structure("IDL:L:1.0", {{"l", t.simple(tk_long)}});
    // Read as a member: size and alignment. Sequences, anys and long
    // doubles pack right behind a char.
    const struct {
        Bytes wire;
        size_t size;
        uint32_t align;
    } members[] = {
        {t.structure("IDL:S:1.0", {{"c", c}, {"l", t.simple(tk_long)}}), 8, 4},
        {char_seq, 1 + sizeof(SequenceRecord), 1},
        {t.union_of(t.simple(tk_short), tk_short, -1, {{1, long_struct}}), 8, 4},
        {t.array(t.simple(tk_long), 0), 0, 4},
    };
    for (const auto &m : members) {
        uint32_t align = 0;
        size_t size = nested_of(m.wire, &align);
        EXPECT_EQ(std::make_tuple(size, align), std::make_tuple(m.size, m.align)) << m.wire[0];
    }
    // As a TypeCode object; an exception starts with its id pointer.
    const std::pair<Bytes, size_t> values[] = {
        {char_seq, sizeof(void *) == 4 ? 13u : 1 + sizeof(SequenceRecord)},
        {t.structure("IDL:S:1.0",
                     {{"c", c}, {"a", t.simple(tk_any)}, {"d", t.simple(tk_longdouble)}}),
         1 + sizeof(Any) + 16},
        {t.array(t.simple(tk_short), 3), 6},
        {t.structure("IDL:E:1.0", {{"c", c}}, tk_except), 2 * sizeof(void *)},
    };
    for (const auto &v : values) EXPECT_EQ(Held(v.first)->valueSize(env), v.second) << v.first[0];
    EXPECT_EQ(tc_void()->valueSize(env), 0u);
    EXPECT_FALSE(env.has_exception());
}

TEST_F(TypeCodeTest, ParametersByIndexAndTheirBounds) {
    Held s(t.structure("IDL:Pair:1.0", {{"a", t.simple(tk_char)}, {"b", t.simple(tk_double)}}));
    Held seq(t.sequence(t.simple(tk_long), 5)), arr(t.array(t.sequence(t.simple(tk_octet)), 4));
    Held u(t.union_of(t.simple(tk_long), tk_long, 1,
                      {{3, t.simple(tk_double)}, {4, t.bounded(tk_string, 2)}}));
    EXPECT_EQ(std::make_tuple(s->paramCount(env), seq->paramCount(env), u->paramCount(env)),
              std::make_tuple(7u, 2u, 11u));
    EXPECT_STREQ(s->repositoryId(env), "IDL:Pair:1.0");
    EXPECT_EQ(s->paramType(4, env), tc_char());  // a simple kind is the shared object
    EXPECT_EQ(u->paramType(2, env), tc_long());  // the discriminator
    EXPECT_EQ(
        std::make_tuple(seq->paramLong(1, env), Held(t.bounded(tk_string, 9))->paramLong(0, env),
                        arr->paramLong(1, env)),
        std::make_tuple(5u, 9u, 4u));
    TypeCode *member = s->paramType(6, env), *element = arr->paramType(0, env),
             *arm = u->paramType(10, env);
    ASSERT_TRUE(member && element && arm);
    EXPECT_EQ(std::make_tuple(member->kind, element->kind, element->owned, arm->kind, arm->length),
              std::make_tuple(tk_double, tk_sequence, 1u, tk_string, 2u));
    for (TypeCode *p : {member, element, arm}) TypeCode::release(p);
    EXPECT_FALSE(env.has_exception());

    // Out of range is Bounds; a parameter of the wrong sort is BAD_PARAM.
    // The id raised, or "" for a type given.
    auto no_type = [&](const Held &h, uint32_t i) { return h->paramType(i, env) ? "" : raised(); };
    auto no_long = [&](const Held &h, uint32_t i) { return h->paramLong(i, env), raised(); };
    for (uint32_t bad : {5u, 7u, 3u}) EXPECT_EQ(no_type(s, bad), exid::Bounds) << bad;
    EXPECT_EQ(no_type(u, 8), exid::Bounds);
    EXPECT_EQ(no_long(seq, 2), exid::Bounds);
    EXPECT_EQ(no_long(seq, 0), exid::BAD_PARAM);
    EXPECT_EQ(no_long(s, 0), exid::BAD_PARAM);
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
    // In order: an octet label against a boolean word true and false, a
    // long label, and a kind no discriminator has.
    EXPECT_EQ((std::vector<int>{match(tk_boolean, &word_true), match(tk_boolean, &word_false),
                                match(tk_long, &word_true), match(tk_double, &word_true)}),
              (std::vector<int>{1, 0, 1, 0}));
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
    EXPECT_EQ(walk(ok.get(), value), (std::vector<std::string>{"15@0", "15@8"}));
}

TEST_F(TypeCodeTest, MalformedTypeCodesAreBadTypeCode) {
    tcb::Enc self = t.body();
    self.str("").str("").ulong(1).str("m").ulong(tk_indirection).ulong(static_cast<uint32_t>(-8));
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
        {"indirection to itself", t.complex(tk_struct, self), false},
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

using AnyTest = tcb::DataTest;

TEST_F(AnyTest, FreeValueWalksArraysAndRefusesNullTypes) {
    tcb::Held arr(le.array(le.simple(tk_string), 2));
    char *pair[2] = {strdup("x"), strdup("y")};
    EXPECT_EQ(freeValue(arr.get(), pair, nullptr, nullptr, env), 1);

    tcb::Held st(
        le.structure("IDL:S:1.0", {{"t", le.simple(tk_TypeCode)}, {"p", le.simple(tk_Principal)}}));
    struct {
        TypeCode *t;
        SequenceRecord *p;
    } value{new TypeCode(tk_string), nullptr};
    value.t->owned = 1;
    value.p = static_cast<SequenceRecord *>(std::malloc(sizeof(SequenceRecord)));
    *value.p = SequenceRecord{1, 1, std::malloc(1)};
    EXPECT_EQ(freeValue(st.get(), &value, nullptr, nullptr, env), 1);

    EXPECT_EQ(freeValue(nullptr, &value, nullptr, nullptr, env), 0);
    EXPECT_STREQ(env.id(), exid::BAD_TYPECODE);
    EXPECT_EQ(freeValue(nullptr, nullptr, nullptr, nullptr, env), 1);
}

TEST(StandardTypes, ObjectBodyByteForByte) {
    const unsigned char expect[52] = {
        0,   0,   0,   0,   0,   0,   0,   29,  'I', 'D', 'L', ':', 'o', 'm', 'g', '.', 'o', 'r',
        'g', '/', 'C', 'O', 'R', 'B', 'A', '/', 'O', 'b', 'j', 'e', 'c', 't', ':', '2', '.', '0',
        0,   0,   0,   0,   0,   0,   0,   7,   'O', 'b', 'j', 'e', 'c', 't', 0,   0};
    EXPECT_EQ(tc_Object(), nullptr);  // until start-up builds them, once
    inittypecodes();
    TypeCode *obj = tc_Object();
    inittypecodes();
    EXPECT_EQ(tc_Object(), obj);
    ASSERT_EQ(obj->length, 52u);
    EXPECT_EQ(0, std::memcmp(obj->buffer, expect, 52));
    Environment env;
    EXPECT_EQ(obj->paramCount(env), 2u);
    EXPECT_STREQ(obj->repositoryId(env), "IDL:omg.org/CORBA/Object:2.0");
    obj->paramLong(0, env);
    EXPECT_STREQ(env.id(), exid::BAD_PARAM);
}

TEST(StandardTypes, SystemExceptionBodyAndLayout) {
    const uint32_t words[29] = {1,  1,  0, 1, 0, 3, 1, 0, 18, 0, 1, 0, 5, 1, 0,
                                17, 48, 1, 1, 0, 1, 0, 3, 1,  0, 1, 0, 1, 0};
    inittypecodes();
    fill_value_table();
    TypeCode *se = tc_SystemException();
    ASSERT_EQ(se->length, 116u);
    for (int i = 0; i < 29; ++i) {
        const unsigned char *w = se->buffer + 4 * i;
        uint32_t v = w[0] | w[1] << 8 | w[2] << 16 | static_cast<uint32_t>(w[3]) << 24;
        EXPECT_EQ(v, words[i]) << "word " << i;
    }
    Environment env;
    EXPECT_EQ(se->valueSize(env), sizeof(SystemException));
    EXPECT_TRUE(sizeof(void *) != 4 || se->valueSize(env) == 12u) << se->valueSize(env);
}

}  // namespace
