#include "script/values.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "data/cdr.h"
#include "data/environment.h"
#include "data/stdtypes.h"
#include "giop/objref.h"
#include "script/plain.h"
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

// The text a value reads back as after the script wrote text, through a
// heap area and through an area in place; both must agree.
std::string round_trip(int32_t type, const char *text) {
    Environment env;
    Record r(type, PARM_INOUT);
    r.set(text);
    void *area = newdataptr(&r.parm);
    putdata(&r.parm, area, env);
    getdata(&r.parm, area, env);
    r.parm.ptr = area;
    deletedataptr(&r.parm);
    std::string heap = r.parm.strval != nullptr ? r.parm.strval : "NULL";

    r.set(text);
    DataArea place;
    area = newdataptr(&r.parm, place);
    putdata(&r.parm, area, env);
    getdata(&r.parm, place, env);
    r.parm.ptr = area;
    deletedataptr(&r.parm, place);
    EXPECT_EQ(r.parm.strval != nullptr ? r.parm.strval : "NULL", heap) << type << " " << text;

    // The plain way, from text to CDR and back with no area, must agree too.
    if (is_plain_type(type)) {
        alignas(16) unsigned char buffer[32];
        CDR out;
        out.attach_buffer(buffer, sizeof buffer);
        out.put_byte(1);  // the byte order of the encapsulation read below
        EXPECT_EQ(put_plain(out, type, text), 1);
        CDR in;
        in.open_encapsulation(out.base, out.used());
        char area[plain_text_size];
        size_t length = 0;
        const char *plain = get_plain(in, type, area, &length);
        EXPECT_EQ(plain != nullptr ? std::string(plain, length) : "NULL", heap)
            << type << " " << text;
        EXPECT_EQ(get_plain(in, type, area, &length), nullptr) << "read beyond the value";
    }
    return heap;
}

// Every test prints through the kit.
struct ScriptValues : ::testing::Test {
    ScriptValues() { testsupport::linked_host(); }
};

TEST_F(ScriptValues, TextsReadBackAsTheWireWouldCarryThem) {
    // Per type, pairs of the text written and the text read back.
    const std::vector<std::pair<int32_t, std::vector<const char *>>> cases = {
        {tk_short, {"-2", "-2", "32768", "-32768"}},
        {tk_ushort, {"65537", "1", "-1", "65535"}},
        {tk_long, {"  +12abc", "12",  "2147483648", "-2147483648", "abc",    "0",     "",
                   "0",        "9",   "9",          "10",          "10",     "-99",   "-99",
                   "100",      "100", "1000",       "1000",        "-10001", "-10001"}},
        {tk_ulong, {"4294967295", "4294967295", "4294967296", "0"}},
        {tk_enum, {"-3", "-3"}},
        {tk_float,
         {"1.5", "1.500000", " -2.5e1x", "-25.000000", "0x10", "0.000000", "inf", "0.000000"}},
        // Ties round to even, as "%f" does; beyond a double's range the
        // value is what strtod makes of it.
        {tk_double,
         {"0.1234567", "0.123457", ".5e", "0.500000", "0.0078125", "0.007812", "0.0234375",
          "0.023438", "-0", "-0.000000", "+5.", "5.000000", "1e400", "inf", "-1e-400", "-0.000000",
          "123456789012345678901234567890", "123456789012345677877719597056.000000"}},
        {tk_boolean, {"1", "1", "true", "0", " 1", "0", "2", "0"}},
        {tk_char, {"xyz", "x", "", ""}},
        {tk_octet, {"ff", "f", "`41`", "A", "`0a`", "\n", "", "`00`"}},
        {tk_string, {"a`0a`b", "a`0a`b"}}};
    for (const auto &c : cases)
        for (size_t i = 0; i + 1 < c.second.size(); i += 2)
            EXPECT_EQ(round_trip(c.first, c.second[i]), c.second[i + 1])
                << c.first << " " << c.second[i];
    // The longest text a double has: 309 digits before the point.
    char largest[400];
    std::snprintf(largest, sizeof largest, "%f", 1.7976931348623157e308);
    EXPECT_EQ(round_trip(tk_double, "1.7976931348623157e308"), largest);
}

TEST_F(ScriptValues, OnlyTwelveTypesHaveAnAreaAndATypeCode) {
    set_debug_level(1);
    inittypecodes();
    const std::set<int32_t> twelve = {2, 3, 4, 5, 6, 7, 8, 9, 10, 14, 17, 18};
    for (int32_t type = -1; type <= 27; ++type) {
        Record r(type);
        hostkit::clear_printed();
        r.parm.ptr = newdataptr(&r.parm);
        EXPECT_EQ(r.parm.ptr != nullptr, twelve.count(type) == 1) << type;
        EXPECT_EQ(get_typecodeptr(type) != nullptr, twelve.count(type) == 1) << type;
        if (r.parm.ptr != nullptr) {
            deletedataptr(&r.parm);
            continue;
        }
        EXPECT_EQ(hostkit::printed()[0],
                  "newdataptr:  ERROR, unknown type " + std::to_string(type) + "\n");
        EXPECT_NE(std::strstr(error_text, std::to_string(type).c_str()), nullptr) << error_text;
        DataArea place;
        EXPECT_EQ(newdataptr(&r.parm, place), nullptr) << type;
    }
    EXPECT_EQ(get_typecodeptr(tk_enum), tc_long());
    EXPECT_EQ(get_typecodeptr(tk_objref), tc_Object());
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
        EXPECT_EQ(testsupport::count_of(hostkit::printed_text(), "getdata:  REALLOC!!!"),
                  length / 1000);
        EXPECT_EQ(r.parm.strval, text);
        // One block for the host, however many steps the area took.
        EXPECT_EQ(hostkit::allocations() - before, 1);
        r.parm.ptr = area;
        deletedataptr(&r.parm);
    }
}

}  // namespace
