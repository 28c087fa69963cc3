// Which IIOP profile of a reference is read, and what is written back.
#include "giop/objref.h"

#include <gtest/gtest.h>

#include "tests/support.h"
#include "tests/unit/giop/giop_fixture.h"
#include "trace/trace.h"

namespace {

using giop_test::id_of;

// Tagged components as other ORBs put them behind the key of a 1.1 or 1.2
// profile: TAG_ORB_TYPE (0) with an encapsulated ulong, TAG_CODE_SETS (1)
// with an encapsulated CodeSetComponentInfo (ISO 8859-1 for char, UTF-16
// for wchar, no conversion sets).
std::string component(bool little, uint32_t tag, std::vector<uint32_t> values) {
    peer::Writer body(little, 0), w(little, 0);
    body.octet(little ? 1 : 0);
    for (uint32_t v : values) body.ulong(v);
    w.ulong(tag).octets(body.bytes());
    return w.bytes();
}

struct Profile {
    uint8_t major = 1;
    uint8_t minor = 0;
    std::string host{};
    bool little = true;
    // Behind the key: for 1.1 and later the component count comes first,
    // then these bytes (whole components, or a cut one).
    uint32_t components = 0;
    std::string component_bytes{};
    bool count_written = true;
    std::string tail{};  // bytes behind everything else
};

// The encapsulation of one TAG_INTERNET_IOP profile, on port 2809 with key
// "K" + host.
std::string profile_body(const Profile &p) {
    peer::Writer w(p.little, 0);
    w.octet(p.little ? 1 : 0).octet(p.major).octet(p.minor).string(p.host).ushort(2809);
    w.octets("K" + p.host);
    if (p.minor > 0 && p.count_written) w.ulong(p.components).raw(p.component_bytes);
    w.raw(p.tail);
    return w.bytes();
}

// A 1.2 profile with ORB type and code sets, or one of another version laid
// out the same.
Profile v12(const std::string &host, bool little = true, uint8_t major = 1, uint8_t minor = 2) {
    return {
        major,
        minor,
        host,
        little,
        2,
        component(little, 0, {0x41545400}) + component(little, 1, {0x00010001, 0, 0x00010109, 0})};
}
Profile v10(const std::string &host) { return {1, 0, host}; }
Profile with(Profile p, void (*change)(Profile &)) {
    change(p);
    return p;
}

// An IOR text with the profiles in order; a profile of tag 1
// (TAG_MULTIPLE_COMPONENTS) comes first when multiple is set.
std::string ior(const std::vector<Profile> &profiles, bool multiple = false) {
    peer::Writer w(true, 0);
    w.octet(1).string("IDL:Stock:1.0").ulong(static_cast<uint32_t>(profiles.size() + multiple));
    if (multiple) w.ulong(1).octets(std::string("\x01\0\0\0\0\0\0\0", 8));
    for (const Profile &p : profiles) w.ulong(0).octets(profile_body(p));
    return peer::ior_text(w.bytes());
}

struct Case {
    const char *what;
    std::string text;
    const char *host;   // of the profile read; null when the reference is refused
    int minor;          // of the profile read
    const char *trace;  // a line the decode must print
};

TEST(ProfileVersions, NewestReadableProfileIsUsedOnlyWithoutOneZero) {
    [[maybe_unused]] hostkit::Host host = testsupport::linked_host();
    const Case cases[] = {
        {"1.0 alone", ior({v10("old")}), "old", 0, "iiop_version 1.0"},
        {"1.2 with ORB type and code sets", ior({v12("new")}), "new", 2, "iiop_version 1.2"},
        {"1.2 in the other byte order", ior({v12("big", false)}), "big", 2, "iiop_version 1.2"},
        {"1.1 with no components", ior({Profile{1, 1, "one"}}), "one", 1, "iiop_version 1.1"},
        {"1.0 before 1.2", ior({v10("old"), v12("new")}), "old", 0, "decoder:  TAG_INTERNET_IOP"},
        {"1.2 before 1.0", ior({v12("new"), v10("old")}), "old", 0, "iiop_version 1.2"},
        {"multiple components, then 1.2", ior({v12("new")}, true), "new", 2,
         "decoder:  TAG_MULTIPLE_COMPONENTS"},
        {"the first of two 1.2 profiles", ior({v12("first"), v12("second")}), "first", 2,
         "decoder:  host 'second', port 2809"},
        {"a bad 1.2 profile, then 1.0",
         ior({with(v12("bad"), [](Profile &p) { p.components = 3; }), v10("old")}), "old", 0,
         "decoder:  encountered badly encoded objref!"},
        {"1.3", ior({v12("x", true, 1, 3)}), nullptr, 0, "detected new v1.3 IIOP profile"},
        {"2.0", ior({v12("x", true, 2, 0)}), nullptr, 0, "detected new v2.0 IIOP profile"},
        {"0.9", ior({v12("x", true, 0, 9)}), nullptr, 0,
         "no IIOP v1.2 (or earlier) profile in IOR!"},
        {"a component count past the profile",
         ior({with(v12("x"), [](Profile &p) { p.components = 3; })}), nullptr, 0,
         "decoder:  encountered badly encoded objref!"},
        {"a component length past the profile",
         ior({with(
             v12("x"),
             [](Profile &p) { p.component_bytes = std::string("\x01\0\0\0\x40\0\0\0\x01", 9); })}),
         nullptr, 0, "decoder:  encountered badly encoded objref!"},
        {"no component count", ior({with(v12("x"), [](Profile &p) { p.count_written = false; })}),
         nullptr, 0, "decoder:  encountered badly encoded objref!"},
        {"bytes behind the components", ior({with(v12("x"), [](Profile &p) { p.tail = "!"; })}),
         nullptr, 0, "extra data at end of IIOP profile data"},
        {"a bad 1.0 profile after 1.2",
         ior({v12("new"), with(v10("old"), [](Profile &p) { p.tail = "!"; })}), nullptr, 0,
         "extra data at end of IIOP profile data"},
    };
    set_debug_level(1);
    for (const Case &c : cases) {
        hostkit::clear_printed();
        Environment env;
        objref *obj = string_to_object(c.text.c_str(), env);
        EXPECT_TRUE(hostkit::printed_contains(c.trace)) << c.what << ": no line " << c.trace;
        // Host, version, port, key and type id of the profile read, or the
        // exception that refused the reference.
        std::string seen = "refused " + id_of(env);
        if (obj != nullptr) {
            const iiop_profile &p = obj->data->profile;
            seen = std::string(p.host) + " 1." + std::to_string(p.minor) + " " +
                   std::to_string(p.port) + " " +
                   std::string(reinterpret_cast<char *>(p.object_key.buffer), p.object_key.length) +
                   " " + obj->data->type_id;
        }
        EXPECT_EQ(seen, c.host == nullptr ? "refused " + std::string(exid::MARSHAL)
                                          : std::string(c.host) + " 1." + std::to_string(c.minor) +
                                                " 2809 K" + c.host + " IDL:Stock:1.0")
            << c.what;
        release_objref(obj, env);
    }
    set_debug_level(0);
}

}  // namespace
