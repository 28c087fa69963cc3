#include "giop/iortext.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <utility>

#include "data/any.h"
#include "data/decoder.h"
#include "data/encoder.h"
#include "data/stdtypes.h"
#include "platform/socket.h"
#include "tests/unit/giop/giop_fixture.h"

namespace {

using giop_test::id_of;

std::string text_of(const objref *obj, bool ior) {
    Environment env;
    char *t = ior ? ior_text_of(obj, env) : iiop_text_of(obj, env);
    std::string s = t ? t : "<null>";
    std::free(t);
    return s;
}

struct Parsed {
    objref *obj = nullptr;
    Environment env;
    explicit Parsed(const std::string &text) { obj = string_to_object(text.c_str(), env); }
    ~Parsed() {
        Environment e;
        release_objref(obj, e);
    }
    std::string key() const {
        const octet_seq &k = obj->data->profile.object_key;
        return std::string(reinterpret_cast<const char *>(k.buffer), k.length);
    }
    // "type host:port/key" of the reference, or "refused" and the exception.
    std::string where() const {
        if (obj == nullptr) return "refused " + id_of(env);
        const iiop_profile &p = obj->data->profile;
        return std::string(obj->data->type_id ? obj->data->type_id : "-") + " " + p.host + ":" +
               std::to_string(p.port) + "/" + key();
    }
};

TEST(IorText, NilReferenceInBothForms) {
    for (const char *nil : {"IOR:01000000010000000000000000000000", "iiop:"}) {
        EXPECT_EQ(text_of(nullptr, nil[0] == 'I'), nil);
        Parsed p(nil);
        EXPECT_EQ(p.obj, nullptr) << nil;
        EXPECT_FALSE(p.env.has_exception()) << nil;
    }
}

TEST(IorText, IiopFormParsesAndKeepsEveryKeyByte) {
    Parsed p("iiop:1.0//example.org:2809/a\\00b\\5cc\\ffz");
    // no type id, then the host, port and key
    EXPECT_EQ(p.where(), std::string("- example.org:2809/a\0b\\c\xffz", 26));
    EXPECT_EQ(text_of(p.obj, false), "iiop:1.0//example.org:2809/a\\00b\\5cc\\ffz");

    Parsed empty_key("iiop:1.0//h:1/");
    ASSERT_NE(empty_key.obj, nullptr);
    EXPECT_EQ(empty_key.obj->data->profile.object_key.length, 0u);
    // An empty type id is written for a reference that has none.
    EXPECT_EQ(text_of(empty_key.obj, true).substr(0, 28), "IOR:010000000100000000000000");
}

TEST(IorText, IorFormRoundTripsAndAcceptsEitherCase) {
    std::string bytes = peer::ior_bytes("IDL:T:1.0", "h2", 1234, "k\0y", true);
    std::string text = peer::ior_text(bytes);
    Parsed p(text);
    EXPECT_EQ(p.where(), "IDL:T:1.0 h2:1234/k");
    EXPECT_EQ(text_of(p.obj, true), text);

    std::string upper = text;
    for (size_t i = 4; i < upper.size(); ++i) upper[i] = static_cast<char>(toupper(upper[i]));
    EXPECT_EQ(Parsed(upper + " trailing words").where(), "IDL:T:1.0 h2:1234/k");
    std::string big = peer::ior_text(peer::ior_bytes("IDL:T:1.0", "host", 99, "key", false));
    EXPECT_EQ(Parsed(big).where(), "IDL:T:1.0 host:99/key");
}

TEST(IorText, EncapsulationLengthFollowsHostAndKeySizes) {
    Parsed p("iiop:1.0//ab:7/xyz");
    std::string t = text_of(p.obj, true);
    // flag+pad, type id length 1 and NUL, pad, profile count 1, tag 0: 20
    // bytes, then the encapsulation length.
    EXPECT_EQ(t.substr(4 + 40, 8), "17000000");  // 23
    EXPECT_EQ(t.size(), 4u + 2 * (24 + 23));
}

using Profiles = std::vector<std::pair<uint32_t, std::string>>;

std::string iiop_body(uint8_t minor, const std::string &host, const std::string &tail = "") {
    peer::Writer w(true, 0);
    w.octet(1).octet(1).octet(minor).string(host).ushort(5).octets("K").raw(tail);
    return w.bytes();
}
std::string ior_with(uint32_t count, const Profiles &profiles) {
    peer::Writer w(true, 0);
    w.octet(1).string("IDL:X:1.0").ulong(count);
    for (const auto &p : profiles) w.ulong(p.first).octets(p.second);
    return peer::ior_text(w.bytes());
}

TEST(IorText, FirstIiopOneZeroProfileWins) {
    Parsed p(ior_with(4, {{1, std::string(8, '\x01')},
                          {0, iiop_body(1, "new")},
                          {0, iiop_body(0, "old")},
                          {0, iiop_body(0, "later")}}));
    EXPECT_EQ(p.where(), "IDL:X:1.0 old:5/K");
}

TEST(IorText, BadTextsAreRefused) {
    const std::pair<const char *, std::vector<std::string>> groups[] = {
        {exid::DATA_CONVERSION,
         {"iiop:1.1//h:1/k", "iiop:2.0//h:1/k", "iiop:1.0/h:1/k", "iiop:x.0//h:1/k",
          "iiop:1.0//h/k", "iiop:1.0//h:1"}},
        {exid::BAD_PARAM, {"ior:0100", "IOR:", "IOR:010", "IOR:01zz", "IOR:0100000001000000x"}},
        // Cut short, only a 1.1 profile without its component count, bytes
        // behind the key, a profile count beyond the text.
        {exid::MARSHAL,
         {"IOR:0100000001", ior_with(1, {{0, iiop_body(1, "new")}}),
          ior_with(1, {{0, iiop_body(0, "old", "!")}}), ior_with(1000000, {{7, "abc"}})}},
    };
    for (const auto &g : groups)
        for (const std::string &text : g.second)
            EXPECT_EQ(Parsed(text).where(), "refused " + std::string(g.first)) << text;
}

TEST(IorText, OverlongIiopTextIsAnImplementationLimit) {
    std::string host(500, 'h');
    Parsed p("iiop:1.0//" + host + ":1/" + std::string(20, 'k'));
    ASSERT_NE(p.obj, nullptr);
    Environment env;
    EXPECT_EQ(iiop_text_of(p.obj, env), nullptr);
    EXPECT_EQ(id_of(env), exid::IMP_LIMIT);
}

TEST(Orb, InitChoosesTextFormAndRunsOnce) {
    Environment env;
    ORB *orb = ORB_init(nullptr, nullptr, "internet", env);
    ASSERT_NE(orb, nullptr);
    EXPECT_EQ(orb->use_ior_text, 0);
    EXPECT_EQ(ORB_init(nullptr, nullptr, "", env), nullptr);
    EXPECT_EQ(id_of(env), exid::INITIALIZE);
    EXPECT_EQ(orb_instance, orb);
    Parsed p("iiop:1.0//h:1/k");
    char *t = orb->object_to_string(p.obj, env);
    EXPECT_STREQ(t, "iiop:1.0//h:1/k");
    std::free(t);
    orb->use_ior_text = 1;
    t = orb->object_to_string(p.obj, env);
    Parsed back(t);
    EXPECT_EQ(back.key(), "k");
    std::free(t);
}

TEST(Orb, SocketStartupFailureIsInitialize) {
    Environment env;
    platform::set_startup_override(10091, 0);
    EXPECT_EQ(ORB_init(nullptr, nullptr, nullptr, env), nullptr);
    EXPECT_EQ(id_of(env), exid::INITIALIZE);
    platform::set_startup_override(0, 0x0202);
    EXPECT_EQ(ORB_init(nullptr, nullptr, nullptr, env), nullptr);
    platform::set_startup_override(0, 0);
    ORB *orb = ORB_init(nullptr, nullptr, nullptr, env);
    ASSERT_NE(orb, nullptr);
    EXPECT_EQ(orb->use_ior_text, 1);
}

TEST(Orb, ReferencesInsideValuesUseTheTransportCoding) {
    inittypecodes();
    Environment env;
    ASSERT_NE(ORB_init(nullptr, nullptr, nullptr, env), nullptr);
    objref *obj = string_to_object("iiop:1.0//ab:7/xyz", env);
    alignas(16) unsigned char array[256];
    CDR out;
    out.attach_buffer(array, sizeof array);
    ASSERT_EQ(encoder(tc_Object(), &obj, nullptr, &out, env), 1) << id_of(env);
    EXPECT_EQ(out.used(), 20u + 23);  // empty type id, one profile, its length, 23 bytes

    CDR in;
    in.cursor = out.base;
    in.space_left = out.used();
    objref *back = nullptr;
    ASSERT_EQ(decoder(tc_Object(), &back, nullptr, &in, env), 1) << id_of(env);
    ASSERT_NE(back, nullptr);
    EXPECT_STREQ(back->data->profile.host, "ab");
    EXPECT_EQ(back->data->profile.port, 7);
    EXPECT_EQ(in.space_left, 0u);
    EXPECT_EQ(freeValue(tc_Object(), &back, nullptr, nullptr, env), 1);  // through the codec
    release_objref(obj, env);
}

}  // namespace
