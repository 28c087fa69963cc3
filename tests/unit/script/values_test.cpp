#include "script/values.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "data/environment.h"
#include "data/stdtypes.h"
#include "giop/objref.h"
#include "tests/support.h"
#include "trace/trace.h"

namespace {

// A record of one type whose texts the test owns through the kit's heap.
struct Record {
    ScriptParm parm{};
    explicit Record(int32_t type, int32_t flags = PARM_IN) {
        parm.type = type;
        parm.flags = flags;
        parm.name = const_cast<char *>("v");
    }
    ~Record() { std::free(parm.strval); }
    void set(const char *text) {
        std::free(parm.strval);
        parm.strval = text != nullptr ? strdup(text) : nullptr;
    }
};

// The text a value reads back as after the script wrote text.
std::string round_trip(int32_t type, const char *text) {
    Environment env;
    Record r(type, PARM_INOUT);
    r.set(text);
    void *area = newdataptr(&r.parm);
    putdata(&r.parm, area, env);
    getdata(&r.parm, area, env);
    r.parm.ptr = area;
    deletedataptr(&r.parm);
    return r.parm.strval != nullptr ? r.parm.strval : "NULL";
}

// Every test prints through the kit.
struct ScriptValues : ::testing::Test {
    ScriptValues() { testsupport::linked_host(); }
};

int count_lines(const std::string &text) {
    int n = 0;
    for (const std::string &line : hostkit::printed()) n += line.find(text) != std::string::npos;
    return n;
}

TEST_F(ScriptValues, TextsReadBackAsTheWireWouldCarryThem) {
    struct Case {
        int32_t type;
        const char *in;
        const char *out;
    } cases[] = {
        {tk_short, "-2", "-2"},
        {tk_short, "32768", "-32768"},
        {tk_ushort, "65537", "1"},
        {tk_ushort, "-1", "65535"},
        {tk_long, "  +12abc", "12"},
        {tk_long, "2147483648", "-2147483648"},
        {tk_long, "abc", "0"},
        {tk_long, "", "0"},
        {tk_ulong, "4294967295", "4294967295"},
        {tk_ulong, "4294967296", "0"},
        {tk_enum, "-3", "-3"},
        {tk_float, "1.5", "1.500000"},
        {tk_float, " -2.5e1x", "-25.000000"},
        {tk_float, "0x10", "0.000000"},
        {tk_float, "inf", "0.000000"},
        {tk_double, "0.1234567", "0.123457"},
        {tk_double, ".5e", "0.500000"},
        {tk_boolean, "1", "1"},
        {tk_boolean, "true", "0"},
        {tk_boolean, " 1", "0"},
        {tk_boolean, "2", "0"},
        {tk_char, "xyz", "x"},
        {tk_char, "", ""},
        {tk_octet, "ff", "f"},
        {tk_octet, "`41`", "A"},
        {tk_octet, "`0a`", "\n"},
        {tk_octet, "", "`00`"},
        {tk_string, "a`0a`b", "a`0a`b"},
    };
    for (const Case &c : cases) EXPECT_EQ(round_trip(c.type, c.in), c.out) << c.type << " " << c.in;
}

TEST_F(ScriptValues, OnlyTwelveTypesHaveAnAreaAndATypeCode) {
    set_debug_level(1);
    inittypecodes();
    for (int32_t type : {2, 3, 4, 5, 6, 7, 8, 9, 10, 14, 17, 18}) {
        ScriptParm p{};
        p.type = type;
        void *area = newdataptr(&p);
        EXPECT_NE(area, nullptr) << type;
        EXPECT_NE(get_typecodeptr(type), nullptr) << type;
        p.ptr = area;
        deletedataptr(&p);
    }
    EXPECT_EQ(get_typecodeptr(tk_enum), tc_long());
    EXPECT_EQ(get_typecodeptr(tk_objref), tc_Object());
    for (int32_t type : {0, 1, 11, 15, 19, 23, 27, -1}) {
        ScriptParm p{};
        p.type = type;
        hostkit::clear_printed();
        EXPECT_EQ(newdataptr(&p), nullptr) << type;
        EXPECT_EQ(get_typecodeptr(type), nullptr) << type;
        EXPECT_EQ(hostkit::printed()[0],
                  "newdataptr:  ERROR, unknown type " + std::to_string(type) + "\n");
        EXPECT_NE(std::strstr(error_text, std::to_string(type).c_str()), nullptr) << error_text;
    }
}

TEST_F(ScriptValues, LongReplyStringsEnlargeTheTextAreaInThousandByteSteps) {
    set_debug_level(1);
    for (size_t length : {999u, 1000u, 4999u, 5000u}) {
        Record r(tk_string, PARM_OUT);
        r.set("old");
        void *area = newdataptr(&r.parm);
        std::string text(length, 'q');
        *static_cast<char **>(area) = strdup(text.c_str());
        hostkit::clear_printed();
        long before = hostkit::allocations();
        Environment env;
        getdata(&r.parm, area, env);
        EXPECT_EQ(count_lines("getdata:  REALLOC!!!"), static_cast<int>(length / 1000));
        EXPECT_EQ(r.parm.strval, text);
        // One block for the host, however many steps the area took.
        EXPECT_EQ(hostkit::allocations() - before, 1);
        r.parm.ptr = area;
        deletedataptr(&r.parm);
    }
}

TEST_F(ScriptValues, MissingTextsSendNothingAndReferencesGoBackWithTheirArea) {
    set_debug_level(1);
    Environment env;
    Record none(tk_string);
    none.parm.valuesize = 7;
    void *area = newdataptr(&none.parm);
    putdata(&none.parm, area, env);
    EXPECT_EQ(*static_cast<char **>(area), nullptr);
    EXPECT_EQ(none.parm.valuesize, 7);  // untouched when there is no text
    EXPECT_TRUE(hostkit::printed_contains("putdata:  WARNING - no string data to convert"));
    none.parm.ptr = area;
    deletedataptr(&none.parm);

    // A reference made for an in record goes back with its area.
    Record good(tk_objref);
    good.set("iiop:1.0//127.0.0.1:9/k");
    area = newdataptr(&good.parm);
    putdata(&good.parm, area, env);
    ASSERT_NE(*static_cast<objref **>(area), nullptr);
    good.parm.ptr = area;
    deletedataptr(&good.parm);
}

}  // namespace
