#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "data/any.h"
#include "data/decoder.h"
#include "data/encoder.h"
#include "data/unaligned.h"
#include "host/kit/hostkit.h"
#include "tests/unit/data/tc_builder.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

namespace {

using tcb::Bytes;
using tcb::Enc;
using tcb::Held;

struct MarshalTest : tcb::DataTest {
    void SetUp() override {
        DataTest::SetUp();
        restart();
    }
    // Padding keeps what memory held, so the tests start from zeros.
    void restart() {
        std::memset(out_bytes, 0, sizeof out_bytes);
        out.attach_buffer(out_bytes, sizeof out_bytes);
    }
    // Wire bytes copied to a 16-aligned block and opened for reading, with
    // alignment measured from their first byte.
    CDR &input(const Bytes &wire, bool big) {
        in_bytes.assign(wire.size() + 16, 0);
        unsigned char *at = in_bytes.data();
        at += (16 - reinterpret_cast<uintptr_t>(at) % 16) % 16;
        std::memcpy(at, wire.data(), wire.size());
        in.cursor = at;
        in.origin = at;
        in.space_left = static_cast<uint32_t>(wire.size());
        in.swap = big ? 1 : 0;
        return in;
    }
    Bytes written() const { return Bytes(out.base, out.cursor); }

    alignas(16) unsigned char out_bytes[256];
    CDR out;
    std::vector<unsigned char> in_bytes;
    CDR in;
};

// A struct with a member of every kind that can be one (all but null, void,
// except and objref), in wire form, in either byte order. TypeCodes inside
// the value keep little-endian bodies (an encapsulation carries its own
// order), while their kind and length words follow the stream.
struct Everything {
    tcb::Tc le;
    Bytes inner =
        le.structure("IDL:In:1.0", {{"n", le.simple(tk_long)}, {"s", le.simple(tk_string)}});
    Bytes uni = le.union_of(le.simple(tk_long), tk_long, -1,
                            {{1, le.simple(tk_double)}, {2, le.simple(tk_string)}});
    // Members in wire order: the primitives, then the constructed kinds,
    // then the wide and 64-bit ones.
    Bytes type() const {
        std::vector<std::pair<std::string, Bytes>> members;
        auto add = [&](int32_t kind) { members.push_back({"m", le.simple(kind)}); };
        for (int32_t kind : {tk_short, tk_long, tk_ushort, tk_ulong, tk_float, tk_double,
                             tk_boolean, tk_char, tk_octet, tk_any, tk_TypeCode, tk_Principal})
            add(kind);
        for (const Bytes &t :
             {inner, uni, le.enumeration(3), le.simple(tk_string),
              le.sequence(le.sequence(le.simple(tk_short))), le.array(le.simple(tk_long), 3),
              le.alias(le.bounded(tk_string, 10))})
            members.push_back({"m", t});
        for (int32_t kind : {tk_longlong, tk_ulonglong, tk_longdouble, tk_wchar, tk_wstring})
            add(kind);
        return le.structure("IDL:All:1.0", members);
    }
    Bytes value(bool big) const {
        // A long double in little-endian order.
        const Bytes ld = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
        Enc e(big, false);
        // The float 1.5 and the double -2.25 by their bits.
        e.ushort(0xFFFE).ulong(0x12345678).ushort(65000).ulong(4000000000u).ulong(0x3FC00000);
        e.ulonglong(0xC002000000000000ull).octet(1).octet('c').octet(0xAB);
        e.tc(tcb::Tc{big}.simple(tk_long)).ulong(77);                       // any
        e.ulong(tk_struct).ulong(static_cast<uint32_t>(inner.size() - 8));  // TypeCode:
        e.raw(Bytes(inner.begin() + 8, inner.end()));                       // body in its own order
        e.ulong(3).octet(9).octet(8).octet(7);                              // Principal
        e.ulong(5).str("in`ner");                                           // struct In
        e.ulong(2).str("arm");                                              // union, member 2
        e.ulong(2);                                                         // enum
        e.str(std::string("a\x07") + "b");                                  // string
        e.ulong(2).ulong(2).ushort(1).ushort(2).ulong(0);                   // sequence of sequences
        e.ulong(10).ulong(20).ulong(30);                                    // array
        e.str("alias");                                                     // alias of string
        e.ulonglong(0x0102030405060708ull).ulonglong(~0ull);
        e.pad(16).raw(big ? Bytes(ld.rbegin(), ld.rend()) : ld);
        e.ushort(0x263A);                              // wchar
        e.ulong(3).ushort('h').ushort('i').ushort(0);  // wstring
        return e.bytes();
    }
};

int count_kind(TypeCode *tc, void *, void *, void *context, Environment &) {
    static_cast<std::vector<int32_t> *>(context)->push_back(tc->kind);
    return 1;
}

TEST_F(MarshalTest, EveryKindRoundTripsInBothByteOrders) {
    Everything all;
    Held tc(all.type());
    uint32_t size = tc->valueSize(env);
    ASSERT_FALSE(env.has_exception());
    Bytes expect = all.value(false);
    for (bool big : {false, true}) {
        std::vector<unsigned char> value(size, 0);
        CDR &s = input(all.value(big), big);
        ASSERT_EQ(decoder(tc.get(), value.data(), nullptr, &s, env), 1) << nz(env.id());
        EXPECT_EQ(s.space_left, 0u);
        restart();
        ASSERT_EQ(encoder(tc.get(), value.data(), nullptr, &out, env), 1) << nz(env.id());
        EXPECT_EQ(written(), expect) << (big ? "big-endian input" : "little-endian input");
        // Spot checks on the memory form.
        EXPECT_EQ(load_unaligned<int16_t>(value.data()), -2);
        EXPECT_EQ(load_unaligned<uint32_t>(value.data() + 32), 1u);  // boolean word
        EXPECT_EQ(freeValue(tc.get(), value.data(), nullptr, nullptr, env), 1);
    }
    std::vector<int32_t> kinds;
    std::vector<unsigned char> blank(size, 0);
    tc->walkValue(blank.data(), nullptr, count_kind, &kinds, env);
    EXPECT_EQ(kinds.size(), 24u);
}

TEST_F(MarshalTest, StringsCrossAsScriptText) {
    Bytes wire = Enc(false, false).str(std::string("a\x07") + "b").str("").ulong(0).bytes();
    CDR &s = input(wire, false);
    char *text[3] = {nullptr, nullptr, nullptr};
    for (auto &t : text) ASSERT_EQ(decoder(tc_string(), &t, nullptr, &s, env), 1);
    EXPECT_EQ((std::vector<std::string>{nz(text[0]), nz(text[1]), nz(text[2])}),
              (std::vector<std::string>{"`6107`b", "", ""}));
    for (auto &t : text) std::free(t);

    const char *backquoted = "`41`";
    ASSERT_EQ(encoder(tc_string(), &backquoted, nullptr, &out, env), 1);
    EXPECT_EQ(written(), (Bytes{2, 0, 0, 0, 0x41, 0}));
    restart();
    // A null text goes out as the empty one.
    for (const char *text : {static_cast<const char *>(nullptr), ""})
        encoder(tc_string(), &text, nullptr, &out, env);
    EXPECT_EQ(written(), (Bytes{1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0}));
}

TEST_F(MarshalTest, SequenceBoundsAndCounts) {
    Held bounded(le.sequence(le.simple(tk_long), 2));
    SequenceRecord rec{0, 0, nullptr};
    EXPECT_EQ(encoder(bounded.get(), &rec, nullptr, &out, env), 1);
    EXPECT_EQ(encoder(bounded.get(), nullptr, nullptr, &out, env), 1);  // null: empty
    EXPECT_EQ(written(), (Bytes{0, 0, 0, 0, 0, 0, 0, 0}));

    int32_t three[3] = {1, 2, 3};
    SequenceRecord got{9, 9, three};
    CDR &s = input(Enc(false, false).ulong(0).bytes(), false);
    ASSERT_EQ(decoder(bounded.get(), &got, nullptr, &s, env), 1);
    EXPECT_EQ(std::make_tuple(got.maximum, got.buffer), std::make_tuple(0u, nullptr));

    // Elements without size take no bytes: a huge count reads nothing.
    Held empties(le.sequence(le.structure("IDL:E:1.0", {})));
    CDR &e = input(Enc(false, false).ulong(0xFFFFFFFFu).bytes(), false);
    ASSERT_EQ(decoder(empties.get(), &got, nullptr, &e, env), 1);
    EXPECT_EQ(got.length, 0xFFFFFFFFu);
    EXPECT_EQ(freeValue(empties.get(), &got, nullptr, nullptr, env), 1);
}

TEST_F(MarshalTest, PrimitiveWireForms) {
    uint32_t word = 2;
    EXPECT_EQ(encoder(tc_boolean(), &word, nullptr, &out, env), 1);
    TypeCode *type = tc_long();
    EXPECT_EQ(encoder(tc_TypeCode(), &type, nullptr, &out, env), 1);
    EXPECT_EQ(written(), (Bytes{1, 0, 0, 0, 3, 0, 0, 0}));

    Bytes wire = Enc(false, false).octet(2).octet(1).bytes();
    CDR &s = input(wire, false);
    uint32_t flags[2] = {7, 7};
    decoder(tc_boolean(), &flags[0], nullptr, &s, env);
    decoder(tc_boolean(), &flags[1], nullptr, &s, env);
    // Only exactly 1 is true.
    EXPECT_EQ(std::make_tuple(flags[0], flags[1]), std::make_tuple(0u, 1u));

    // A struct TypeCode goes out as kind, length and body.
    Bytes st = le.structure("IDL:S:1.0", {{"a", le.simple(tk_long)}});
    Held held(st);
    restart();
    type = held.get();
    encoder(tc_TypeCode(), &type, nullptr, &out, env);
    EXPECT_EQ(written(), st);
}

TEST_F(MarshalTest, AnysHoldingAnys) {
    // any(any(any(long 42))), then an any of tk_null.
    Enc e(false, false);
    e.tc(le.simple(tk_any)).tc(le.simple(tk_any)).tc(le.simple(tk_long)).ulong(42);
    e.tc(le.simple(tk_null));
    Bytes wire = e.bytes();
    CDR &s = input(wire, false);
    unsigned char a[sizeof(Any)], n[sizeof(Any)];
    ASSERT_EQ(decoder(tc_any(), a, nullptr, &s, env), 1);
    ASSERT_EQ(decoder(tc_any(), n, nullptr, &s, env), 1);
    Any outer = load_any(a), inner = load_any(load_any(outer.value).value);
    EXPECT_EQ(std::make_tuple(outer.type, outer.ownsValue, inner.type,
                              load_unaligned<int32_t>(inner.value), load_any(n).type),
              std::make_tuple(tc_any(), 1u, tc_long(), 42, tc_null()));

    ASSERT_EQ(encoder(tc_any(), a, nullptr, &out, env), 1);
    ASSERT_EQ(encoder(tc_any(), n, nullptr, &out, env), 1);
    EXPECT_EQ(written(), wire);
    destroy_any(a);
    destroy_any(n);
}

TEST_F(MarshalTest, ExceptionValuesStartWithTheirId) {
    Held ex(le.structure("IDL:Demo/Oops:1.0", {{"code", le.simple(tk_long)}}, tk_except));
    Bytes wire = Enc(false, false).str("IDL:Demo/Oops:1.0").ulong(17).bytes();
    CDR &s = input(wire, false);
    std::vector<unsigned char> value(ex->valueSize(env), 0);
    ASSERT_EQ(decoder(ex.get(), value.data(), nullptr, &s, env), 1);
    EXPECT_STREQ(load_unaligned<char *>(value.data()), "IDL:Demo/Oops:1.0");
    EXPECT_EQ(load_unaligned<int32_t>(value.data() + sizeof(char *)), 17);
    ASSERT_EQ(encoder(ex.get(), value.data(), nullptr, &out, env), 1);
    EXPECT_EQ(written(), wire);
    freeValue(ex.get(), value.data(), nullptr, nullptr, env);
}

TEST_F(MarshalTest, UnionsWithAndWithoutDefault) {
    Held with_default(le.union_of(le.simple(tk_char), tk_char, 1,
                                  {{'a', le.simple(tk_long)}, {'b', le.simple(tk_string)}}));
    // 'z' matches no label and takes the default, a string.
    Bytes wire = Enc(false, false).octet('z').str("dflt").octet('a').ulong(5).bytes();
    CDR &s = input(wire, false);
    uint32_t size = with_default->valueSize(env);
    std::vector<unsigned char> v1(size, 0), v2(size, 0);
    ASSERT_EQ(decoder(with_default.get(), v1.data(), nullptr, &s, env), 1);
    ASSERT_EQ(decoder(with_default.get(), v2.data(), nullptr, &s, env), 1);
    EXPECT_STREQ(load_unaligned<char *>(v1.data() + sizeof(char *)), "dflt");
    EXPECT_EQ(load_unaligned<int32_t>(v2.data() + sizeof(char *)), 5);
    encoder(with_default.get(), v1.data(), nullptr, &out, env);
    encoder(with_default.get(), v2.data(), nullptr, &out, env);
    EXPECT_EQ(written(), wire);
    freeValue(with_default.get(), v1.data(), nullptr, nullptr, env);

    Held no_default(le.union_of(le.simple(tk_short), tk_short, -1, {{1, le.simple(tk_long)}}));
    CDR &n = input(Enc(false, false).ushort(3).ulong(99).bytes(), false);
    std::vector<unsigned char> v3(no_default->valueSize(env), 0);
    ASSERT_EQ(decoder(no_default.get(), v3.data(), nullptr, &n, env), 1);
    EXPECT_EQ(n.space_left, 6u);  // only the discriminator was read
}

TEST_F(MarshalTest, BadValuesAndBytesFailAndTrace) {
    set_host_slots(hostkit::slots());
    hostkit::clear_printed();
    set_debug_level(1);
    // Nothing of a refused value goes out but, for a TypeCode, its kind word.
    auto refused = [&](const char *what, TypeCode *tc, void *value, const char *id,
                       uint32_t written = 0) {
        restart();
        EXPECT_EQ(encoder(tc, value, nullptr, &out, env), 0) << what;
        EXPECT_STREQ(env.id(), id) << what;
        EXPECT_EQ(out.used(), written) << what;
    };
    Held bounded_string(le.bounded(tk_string, 3)), bounded_seq(le.sequence(le.simple(tk_long), 2));
    const char *four = "abcd", *zero = "a`00`b";
    int32_t three[3] = {1, 2, 3};
    SequenceRecord over{3, 3, three};
    TypeCode indirect(-1), odd(40);
    TypeCode *indirect_value = &indirect;
    void *ref = nullptr;
    refused("string over its bound", bounded_string.get(), &four, exid::MARSHAL);
    refused("string holding a zero byte", tc_string(), &zero, exid::MARSHAL);
    refused("sequence over its bound", bounded_seq.get(), &over, exid::BAD_PARAM);
    refused("indirection as a TypeCode value", tc_TypeCode(), &indirect_value, exid::MARSHAL, 4);
    refused("reference without the transport's codec", tc_Object(), &ref, exid::MARSHAL);
    refused("unknown kind", &odd, three, exid::MARSHAL);

    // Counts beyond what the rest of the message holds fail before
    // allocating; nesting deeper than the limit is refused, not a stack
    // overflow.
    auto unreadable = [&](const char *what, TypeCode *tc, const Bytes &wire,
                          const char *id = exid::MARSHAL) {
        alignas(16) unsigned char value[64] = {0};
        EXPECT_EQ(decoder(tc, value, nullptr, &input(wire, false), env), 0) << what;
        EXPECT_STREQ(env.id(), id) << what;
        EXPECT_EQ(env.system_exception()->minor, 0xFFFF0000u) << what;
    };
    auto words = [](std::initializer_list<uint32_t> w) {
        Enc e(false, false);
        for (uint32_t v : w) e.ulong(v);
        return e.bytes();
    };
    Held octets(le.sequence(le.simple(tk_octet)));
    Enc deep(false, false);
    for (int i = 0; i < 5000; ++i) deep.tc(le.simple(tk_any));
    unreadable("long from two bytes", tc_long(), {1, 2});
    unreadable("huge sequence count", octets.get(), words({0x7FFFFFFFu, 0x0201}));
    unreadable("sequence count one too many", octets.get(), words({5, 1}));
    unreadable("TypeCode kind 28", tc_TypeCode(), words({28, 0}));
    unreadable("TypeCode indirection", tc_TypeCode(), words({tk_indirection, 0}));
    unreadable("TypeCode body cut", tc_TypeCode(), words({tk_struct, 400, 1}));
    unreadable("anys nested beyond the limit", tc_any(), deep.tc(le.simple(tk_long)).bytes(),
               exid::BAD_TYPECODE);
    unreadable("unknown kind", &odd, words({1}));
    for (const char *line : {"encoder default case ?", "marshaling encoder detected error",
                             "marshaling decoder detected error", "decode, default case?"})
        EXPECT_TRUE(hostkit::printed_contains(line)) << line;
    set_debug_level(0);
}

}  // namespace
