#include "script/opdetails.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "script/parms.h"
#include "tests/support.h"
#include "trace/trace.h"

namespace {
const char *const names_id = "IDL:Orbelle/Test/Names:1.0";
using Recs = std::vector<std::string>;

// Runs inside tests/data, where the sample descriptions lie below idl/,
// with tracing on.
class OperationDetails : public ::testing::Test {
protected:
    void SetUp() override {
        previous_ = std::filesystem::current_path();
        std::filesystem::current_path(ORBELLE_TEST_DATA);
        set_debug_level(5);
    }
    void TearDown() override { std::filesystem::current_path(previous_); }

    // The list of operation as "name flags type supertype strval", released.
    Recs parms(const char *operation, hostkit::Plist *plist = nullptr, const char *id = names_id) {
        iiop_req req;
        iiop_target target;
        EXPECT_EQ(host.get_parms(req, target, id, operation, plist), IIOP_OK);
        return take(req.parms);
    }

    static Recs take(ScriptParm *list) {
        Recs out;
        for (ScriptParm *p = list; p; p = p->next) {
            EXPECT_TRUE(p->ptr == nullptr && p->valuesize == 0);
            out.push_back(std::string(p->name) + " " + std::to_string(p->flags) + " " +
                          std::to_string(p->type) + " " + std::to_string(p->supertype) + " " +
                          (p->strval ? p->strval : "-"));
        }
        hostkit::free_list(list);
        return out;
    }

    hostkit::Host host = testsupport::linked_host();
    std::filesystem::path previous_;
};
}  // namespace

TEST_F(OperationDetails, EveryShapeOfNameIsComposed) {
    hostkit::Plist plist;
    for (const char *name : {"p^length", "p[0].m^length", "^rseq^length", "^rseqstruct^length",
                             ".m^length", "^rseqseq^length", "[1]^length"})
        plist.set(name, "2");
    plist.set("p[1].m^length", "1");
    const std::vector<std::pair<const char *, Recs>> cases = {
        {"plain", {"^plain 2 3 0 -", "p 1 3 0 -"}},
        {"structs", {"p.m 3 2 15 -", "p.n 3 3 15 -"}},
        {"arrays", {"p[0] 1 3 20 -", "p[1] 1 3 20 -", "p[2] 1 3 20 -"}},
        {"seqstructs",
         {"p^length 1 3 19 2", "p[0].m^length 1 3 19 2", "p[0].m[0] 1 3 19 -", "p[0].m[1] 1 3 19 -",
          "p[0].k 1 2 15 -", "p[1].m^length 1 3 19 1", "p[1].m[0] 1 3 19 -", "p[1].k 1 2 15 -"}},
        {"rstruct", {"^rstruct.m 2 3 15 -", "^rstruct.n 2 2 15 -"}},
        {"rarray", {"^rarray[0] 2 7 20 -", "^rarray[1] 2 7 20 -"}},
        {"runion", {"^runion^discriminator 2 3 16 -"}},
        {"rseq", {"^rseq^length 2 3 19 2", "^rseq[0] 2 3 19 -", "^rseq[1] 2 3 19 -"}},
        {"rseqstruct",
         {"^rseqstruct^length 2 3 19 2", "^rseqstruct[0].m 2 3 15 -", "^rseqstruct[1].m 2 3 15 -"}},
        {"rstructseq", {".m^length 2 3 19 2", ".m[0] 2 3 19 -", ".m[1] 2 3 19 -"}},
        {"rstructseqstruct",
         {".m^length 2 3 19 2", "^rstructseqstruct.m[0].k 2 3 15 -",
          "^rstructseqstruct.m[1].k 2 3 15 -"}},
        // Inner sequences of a sequence result take "[i]" as their base.
        {"rseqseq",
         {"^rseqseq^length 2 3 19 2", "[0]^length 2 3 19 0", "[1]^length 2 3 19 2",
          "[1][1][0] 2 3 19 -", "[1][1][1] 2 3 19 -"}},
        {"excs", {"a 1 3 0 -", "b 2 2 0 -"}},
        // Unions end the list at their discriminator unless they have more
        // than ten members; then the eleventh is walked.
        {"unions", {"p^discriminator 2 3 16 -"}},
        {"bigunion", {"u^discriminator 1 3 16 -", "u:m10 1 18 16 -", "after 1 3 0 -"}},
    };
    for (const auto &c : cases) EXPECT_EQ(parms(c.first, &plist), c.second) << c.first;
    EXPECT_TRUE(hostkit::printed_contains("PirException 'invalid union discriminator'"));
}

TEST_F(OperationDetails, FailuresAreTracedAndKeepTheListMadeSoFar) {
    const std::vector<std::vector<const char *>> failures = {
        {"IDL:Orbelle/Test/Missing:1.0", "op", "can't open .csv file"},
        {"idl:Orbelle/Test/Names:1.0", "op", "invalid repId"},
        {nullptr, "op", "invalid repId"},
        {names_id, "Op", "operation not found"},
        {names_id, "noresult", "result not found"}};
    for (const auto &f : failures) {
        hostkit::clear_printed();
        EXPECT_TRUE(parms(f[1], nullptr, f[0]).empty());
        EXPECT_TRUE(hostkit::printed_contains(std::string("PirException '") + f[2] + "'")) << f[2];
        EXPECT_TRUE(hostkit::printed_contains("has no parameters and returns void"));
    }
    hostkit::Plist plist;
    plist.set("s^length", "3");
    EXPECT_EQ(parms("bounded", &plist), (Recs{"^bounded 2 3 0 -", "s^length 1 3 19 3"}));
    EXPECT_TRUE(hostkit::printed_contains("PirException 'invalid sequence length'"));
    plist.set("s^length", "2");
    EXPECT_EQ(parms("bounded", &plist).size(), 5u);
}

TEST_F(OperationDetails, PlistEntriesAreMatchedByTheTextBeforeLength) {
    // The length record of "bounded" for plist entries in the order given.
    auto length_of = [&](std::vector<std::pair<const char *, const char *>> entries) {
        hostkit::Plist plist;
        for (const auto &entry : entries) plist.set(entry.first, entry.second);
        return parms("bounded", &plist).at(1);
    };
    // A null value passes on; "s^length^length" counts for s.
    EXPECT_EQ(length_of({{"s^length", nullptr}, {"s^length^length", "1"}}), "s^length 1 3 19 1");
    EXPECT_EQ(length_of({{"xs^length", "2"}, {"s", "1"}, {"s^lengthy", " +2x"}}),
              "s^length 1 3 19 2");
    // Text without digits, and a negative length, read as an empty sequence.
    for (const char *value : {"two", "-1", "-99999999999"})
        EXPECT_EQ(length_of({{"s^length", value}}), "s^length 1 3 19 0") << value;
    EXPECT_TRUE(hostkit::printed_contains("getseqlen:  's' matches, value 'NULL'"));
    EXPECT_TRUE(hostkit::printed_contains("getseqlen:  'xs' does not match"));
}

// The well-known operations need no description, nor an interface id.
TEST_F(OperationDetails, WellKnownOperationsGiveTheirFixedList) {
    const std::pair<const char *, Recs> cases[] = {
        {"_is_a", {"^is_a 2 8 0 -", "logical_type_id 1 18 0 -"}},
        {"_non_existent", {"^non_existent 2 8 0 -"}},
        {"_get_interface", {"^get_interface 2 14 0 -"}},
        {"_get_implementation", {"^get_implementation 2 14 0 -"}}};
    for (const auto &c : cases) EXPECT_EQ(parms(c.first, nullptr, nullptr), c.second) << c.first;

    // Tracing names each record it hands over.
    hostkit::clear_printed();
    parms("_is_a", nullptr, "IDL:Thing:1.0");
    EXPECT_EQ(hostkit::printed().front(),
              "_iiop_get_parms:  operation '_is_a', repoid 'IDL:Thing:1.0'\n");
    EXPECT_TRUE(
        hostkit::printed_contains("   well-known operation parameter name 'logical_type_id'"));
    EXPECT_EQ(hostkit::printed().back(), "_iiop_get_parms: returning IIOP_OK\n");
}

TEST(WellKnown, OnlyExactNamesAreWellKnown) {
    for (const char *name : {"_is_a", "_non_existent", "_get_interface", "_get_implementation"})
        EXPECT_TRUE(is_well_known_operation(name)) << name;
    for (const char *name : {"_is_ab", "_IS_A", "_is", "is_a", "_non_existent ", "_Get_interface",
                             "_get_implementations", "", "^is_a"})
        EXPECT_FALSE(is_well_known_operation(name)) << name;
    EXPECT_FALSE(is_well_known_operation(nullptr));
}
