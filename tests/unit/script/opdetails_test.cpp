#include "script/opdetails.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <tuple>

#include "tests/support.h"
#include "trace/trace.h"

namespace {
const char *const names_id = "IDL:Orbelle/Test/Names:1.0";

// name, flags, type, supertype, strval ("-" for none)
using Rec = std::tuple<std::string, int, int, int, std::string>;
using Recs = std::vector<Rec>;

// Runs the tests inside tests/data, where the sample descriptions lie below
// idl/, with tracing on.
class OperationDetails : public ::testing::Test {
protected:
    void SetUp() override {
        previous_ = get_current_dir_name();
        ASSERT_EQ(chdir(ORBELLE_TEST_DATA), 0);
        set_debug_level(5);
    }
    void TearDown() override {
        EXPECT_EQ(chdir(previous_), 0);
        free(previous_);
    }

    // The list iiop_get_parms gives for operation; released before returning.
    Recs parms(const char *operation, hostkit::Plist *plist = nullptr,
               const char *repoid = names_id) {
        iiop_req req;
        iiop_target target;
        EXPECT_EQ(host.get_parms(req, target, repoid, operation, plist), IIOP_OK);
        return take(req.parms);
    }

    static Recs take(ScriptParm *list) {
        Recs out;
        for (ScriptParm *p = list; p; p = p->next) {
            EXPECT_EQ(p->ptr, nullptr);
            EXPECT_EQ(p->valuesize, 0);
            out.emplace_back(p->name, p->flags, p->type, p->supertype, p->strval ? p->strval : "-");
        }
        hostkit::free_list(list);
        return out;
    }

    hostkit::Host host = testsupport::linked_host();
    char *previous_ = nullptr;
};

std::vector<std::string> names_of(const Recs &recs) {
    std::vector<std::string> out;
    for (const auto &r : recs) out.push_back(std::get<0>(r));
    return out;
}
}  // namespace

TEST_F(OperationDetails, SequenceLengthFromPlistExpandsTheList) {
    EXPECT_EQ(parms("op"), (Recs{{"^op", 2, 3, 0, "-"},
                                 {"a^length", 1, 3, 19, "0"},
                                 {"b.c", 2, 2, 15, "-"},
                                 {"b.d", 2, 8, 15, "-"}}));
    EXPECT_TRUE(hostkit::printed_contains("getseqlen:  ERROR -- sequence 'a' not in script plist"));
    hostkit::Plist plist;
    plist.set("a^length", "2");
    EXPECT_EQ(parms("op", &plist), (Recs{{"^op", 2, 3, 0, "-"},
                                         {"a^length", 1, 3, 19, "2"},
                                         {"a[0]", 1, 18, 19, "-"},
                                         {"a[1]", 1, 18, 19, "-"},
                                         {"b.c", 2, 2, 15, "-"},
                                         {"b.d", 2, 8, 15, "-"}}));
    EXPECT_TRUE(hostkit::printed_contains("GetOpDetails:  found operation 'op'"));
    EXPECT_TRUE(hostkit::printed_contains("getseqlen:  'a' matches, value '2'"));
}

TEST_F(OperationDetails, EveryShapeOfNameIsComposed) {
    hostkit::Plist plist;
    for (const char *name : {"p^length", "p[0].m^length", "^rseq^length", "^rseqstruct^length",
                             ".m^length", "^rseqseq^length", "[1]^length"})
        plist.set(name, "2");
    plist.set("p[1].m^length", "1");
    const std::vector<std::pair<const char *, Recs>> cases = {
        {"plain", {{"^plain", 2, 3, 0, "-"}, {"p", 1, 3, 0, "-"}}},
        {"structs", {{"p.m", 3, 2, 15, "-"}, {"p.n", 3, 3, 15, "-"}}},
        {"arrays", {{"p[0]", 1, 3, 20, "-"}, {"p[1]", 1, 3, 20, "-"}, {"p[2]", 1, 3, 20, "-"}}},
        {"seqstructs",
         {{"p^length", 1, 3, 19, "2"},
          {"p[0].m^length", 1, 3, 19, "2"},
          {"p[0].m[0]", 1, 3, 19, "-"},
          {"p[0].m[1]", 1, 3, 19, "-"},
          {"p[0].k", 1, 2, 15, "-"},
          {"p[1].m^length", 1, 3, 19, "1"},
          {"p[1].m[0]", 1, 3, 19, "-"},
          {"p[1].k", 1, 2, 15, "-"}}},
        {"rstruct", {{"^rstruct.m", 2, 3, 15, "-"}, {"^rstruct.n", 2, 2, 15, "-"}}},
        {"rarray", {{"^rarray[0]", 2, 7, 20, "-"}, {"^rarray[1]", 2, 7, 20, "-"}}},
        {"runion", {{"^runion^discriminator", 2, 3, 16, "-"}}},
        {"rseq",
         {{"^rseq^length", 2, 3, 19, "2"},
          {"^rseq[0]", 2, 3, 19, "-"},
          {"^rseq[1]", 2, 3, 19, "-"}}},
        {"rseqstruct",
         {{"^rseqstruct^length", 2, 3, 19, "2"},
          {"^rseqstruct[0].m", 2, 3, 15, "-"},
          {"^rseqstruct[1].m", 2, 3, 15, "-"}}},
        {"rstructseq",
         {{".m^length", 2, 3, 19, "2"}, {".m[0]", 2, 3, 19, "-"}, {".m[1]", 2, 3, 19, "-"}}},
        {"rstructseqstruct",
         {{".m^length", 2, 3, 19, "2"},
          {"^rstructseqstruct.m[0].k", 2, 3, 15, "-"},
          {"^rstructseqstruct.m[1].k", 2, 3, 15, "-"}}},
        // The inner sequences take "[i]" as their base: "[0]" is not in the
        // plist and stays empty, "[1]" has two elements.
        {"rseqseq",
         {{"^rseqseq^length", 2, 3, 19, "2"},
          {"[0]^length", 2, 3, 19, "0"},
          {"[1]^length", 2, 3, 19, "2"},
          {"[1][1][0]", 2, 3, 19, "-"},
          {"[1][1][1]", 2, 3, 19, "-"}}},
        {"excs", {{"a", 1, 3, 0, "-"}, {"b", 2, 2, 0, "-"}}},
    };
    for (const auto &c : cases) EXPECT_EQ(parms(c.first, &plist), c.second) << c.first;
}

TEST_F(OperationDetails, UnionsEndTheListUnlessTheyHaveMoreThanTenMembers) {
    EXPECT_EQ(parms("unions"), (Recs{{"p^discriminator", 2, 3, 16, "-"}}));
    EXPECT_TRUE(hostkit::printed_contains("NUD 'p'"));
    EXPECT_TRUE(hostkit::printed_contains("PirException 'invalid union discriminator'"));
    EXPECT_EQ(parms("bigunion"), (Recs{{"u^discriminator", 1, 3, 16, "-"},
                                       {"u:m10", 1, 18, 16, "-"},
                                       {"after", 1, 3, 0, "-"}}));
}

TEST_F(OperationDetails, FailuresAreTracedAndKeepTheListMadeSoFar) {
    struct Failure {
        const char *repoid, *operation, *text;
    };
    for (const Failure &f : {Failure{"IDL:Orbelle/Test/Missing:1.0", "op", "can't open .csv file"},
                             Failure{"idl:Orbelle/Test/Names:1.0", "op", "invalid repId"},
                             Failure{names_id, "Op", "operation not found"},
                             Failure{names_id, "noresult", "result not found"},
                             Failure{nullptr, "op", "invalid repId"}}) {
        hostkit::clear_printed();
        EXPECT_TRUE(parms(f.operation, nullptr, f.repoid).empty());
        EXPECT_TRUE(hostkit::printed_contains(std::string("PirException '") + f.text + "'"))
            << f.text;
        EXPECT_TRUE(hostkit::printed_contains("has no parameters and returns void"));
    }
    hostkit::Plist plist;
    plist.set("s^length", "3");
    EXPECT_EQ(parms("bounded", &plist),
              (Recs{{"^bounded", 2, 3, 0, "-"}, {"s^length", 1, 3, 19, "3"}}));
    EXPECT_TRUE(hostkit::printed_contains("PirException 'invalid sequence length'"));
    plist.set("s^length", "2");
    EXPECT_EQ(names_of(parms("bounded", &plist)),
              (std::vector<std::string>{"^bounded", "s^length", "s[0]", "s[1]", "after"}));
    EXPECT_TRUE(parms("nothing").empty());
}

TEST_F(OperationDetails, PlistEntriesAreMatchedByTheTextBeforeLength) {
    auto length_of = [&](std::vector<iiop_plist_entry> entries) {
        iiop_target target{};
        target.repoid = const_cast<char *>(names_id);
        iiop_req req{};
        req.target = &target;
        req.operation = const_cast<char *>("bounded");
        req.plist = entries.data();
        req.plist_count = static_cast<int32_t>(entries.size());
        iiop_record record = hostkit::make_record(IIOP_GET_PARMS);
        record.u.get_parms.req = &req;
        EXPECT_EQ(host.call(record), IIOP_OK);
        Recs recs = take(req.parms);
        return recs.size() > 1 ? std::get<4>(recs[1]) : std::string("none");
    };
    auto e = [](const char *name, const char *value) {
        return iiop_plist_entry{const_cast<char *>(name), const_cast<char *>(value), 0};
    };
    EXPECT_EQ(length_of({e("s^length", nullptr), e("s^length", "1")}), "1");
    EXPECT_EQ(length_of({e("s^length^length", "2"), e("s^length", "1")}), "2");
    EXPECT_EQ(length_of({e("xs^length", "2"), e("s", "1"), e("s^lengthy", " +1x")}), "1");
    EXPECT_EQ(length_of({e("s^length", "two")}), "0");
    // A negative length is taken as an empty sequence, never as billions.
    EXPECT_EQ(length_of({e("s^length", "-1")}), "0");
    EXPECT_EQ(length_of({e("s^length", "-99999999999")}), "0");
    EXPECT_EQ(length_of({}), "0");
    EXPECT_TRUE(hostkit::printed_contains("getseqlen:  's' matches, value 'NULL'"));
    EXPECT_TRUE(hostkit::printed_contains("getseqlen:  'xs' does not match"));
}
