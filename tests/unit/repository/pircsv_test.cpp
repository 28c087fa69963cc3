#include "repository/pircsv.h"

#include <gtest/gtest.h>

#include <map>

#include "repository/pirapi.h"
#include "repository/pirinstance.h"
#include "tests/support.h"
#include "tests/unit/repository/pirtest.h"

using namespace pirtest;

namespace {
std::vector<std::string> tokens_of(const std::string &text) {
    PirCsvFile file;
    file.readText(text.data(), text.size());
    return file.tokens();
}

// kind, name, count, bound and number of children of a type node, in one text.
std::string shape(PirTypNod *t) {
    for (PirNod *c : t->children) EXPECT_EQ(c->parent, t);
    return std::to_string(t->typKind) + " '" + t->typNam + "' " + std::to_string(t->typCnt) + " " +
           std::to_string(t->typBnd) + " " + std::to_string(t->children.size());
}
// Records every call as "operation type supertype flg stlNam stfNam subNam";
// answers lengths by subNam and one member position.
class Recorder : public PirPrimitiveCallback {
public:
    std::vector<std::string> calls;
    std::map<std::string, uint32_t> lengths;
    uint32_t member = 0;

    void NewPrimitive(PirPrimitive &p) override {
        add("NP", p);
        p.val = "v";
        p.stfNam += "!";  // a rename reaches the instance
    }
    void NewSequence(PirPrimitive &p) override { add("NS", p); }
    void NewUnion(PirPrimitive &p) override { add("NU", p); }
    uint32_t NewSequenceLength(PirPrimitive &p) override {
        return add("NSL", p), lengths[p.subNam];
    }
    uint32_t NewUnionDiscriminator(PirPrimitive &p) override { return add("NUD", p), member; }

private:
    void add(const char *op, const PirPrimitive &p) {
        calls.push_back(std::string(op) + " " + std::to_string(p.type) + " " +
                        std::to_string(p.supertype) + " " + std::to_string(p.flg) + " " + p.stlNam +
                        " " + p.stfNam + " " + p.subNam + " " + std::to_string(p.index));
    }
};
}  // namespace

TEST(PirCsvFile, TokeniserJoinsAtCommentsAndCommasAndSplitsAtWhiteSpace) {
    using V = std::vector<std::string>;
    EXPECT_EQ(tokens_of("ab#x\ncd normal#x\nres"), (V{"abcd", "normalres"}));
    EXPECT_EQ(tokens_of("a,b a, b , c opr,o1,x"), (V{"ab", "a", "b", "c", "opro1x"}));
    EXPECT_EQ(tokens_of("\ta\r\nb\v\f\xe9\xc3"), (V{"a", "b", "\xe9\xc3"}));
    // End of file inside a comment drops the token still being gathered.
    EXPECT_EQ(tokens_of("x y#tail"), V{"x"});
    testsupport::TempDir dir;
    dir.write("comment.csv", "# nothing here\n , ,,\n# more");
    EXPECT_EQ(failure_of([] { PirReadInterfaceFile("comment.csv"); }), ".csv is empty");
    EXPECT_EQ(failure_of([] { PirReadInterfaceFile("absent.csv"); }), "can't open .csv file");
}

TEST(PirCsvFile, FieldsTakeDefaultsAndUnknownKeywordsStayUnconsumed) {
    Tree ifc = parse_text(
        "opr a b sometimes res . null par both p . long res . struct 2 x foo long "
        "exc E 0 att i n normal . alias opr c d normal");
    auto *opr = dynamic_cast<PirOprNod *>(ifc->children.at(0));
    EXPECT_EQ(opr->oprMod, 0);
    ASSERT_EQ(opr->children.size(), 4u);
    EXPECT_EQ(shape(type_of(opr->children[0])), "0 '' 0 0 0");
    EXPECT_EQ(dynamic_cast<PirParNod *>(opr->children[1])->parDir, 0);
    // "foo" is no keyword: x stays kind 0 and foo names the second member.
    EXPECT_EQ(shape(type_of(type_of(opr->children[2]), 0)), "0 'x' 0 0 0");
    EXPECT_EQ(shape(type_of(type_of(opr->children[2]), 1)), "3 'foo' 0 0 0");
    EXPECT_EQ(dynamic_cast<PirExcNod *>(opr->children[3])->children.size(), 0u);
    EXPECT_EQ(shape(type_of(ifc->children.at(1))), "21 '' 0 0 0");
    EXPECT_TRUE(ifc->children.at(2)->children.empty());

    const std::string invalid = "invalid csv record";
    EXPECT_EQ(parse_failure("opr,o1,balance,normal res . void"), invalid);
    EXPECT_EQ(parse_failure("opr a b normal res . struct 2 x long y long z long"), invalid);
    EXPECT_EQ(parse_failure("opr a b normal res . foo"), invalid);
}

TEST(PirCsvFile, TruncatedOrHostileInputIsRefusedWithoutOverrun) {
    const std::string invalid = "invalid csv record";
    // Every cut of a description inside a record fails cleanly.
    std::string text;
    for (const std::string &token : tokens_of(
             "att a1 owner readonly . string opr o2 transfer oneway res . void par in to . struct "
             "2 bank string branch long exc E 1 . long par out c . union d long 1 b sequence 10 "
             ". array 2 . octet")) {
        std::string failure = text.empty() ? "" : parse_failure(text);
        EXPECT_TRUE(failure.empty() || failure == invalid) << text;
        text += token + " ";
    }
    EXPECT_EQ(parse_failure(text), "");

    for (const char *count : {"-1", "4294967295", "99999999999999999999", "3"})
        EXPECT_EQ(parse_failure(std::string("opr a b normal exc E ") + count + " x long"), invalid);
    EXPECT_EQ(parse_failure("opr a b normal res . sequence -5 . long"), invalid);
    EXPECT_EQ(parse_failure("opr a b normal res . struct -0 res . struct +1 x long"), "");
    // Nested arrays multiply their lengths against the limit.
    EXPECT_EQ(parse_failure("opr a b normal res . array 1024 . array 1025 . long"), invalid);

    // Far beyond the depth limit: refused, not a stack overflow.
    std::string deep = "opr a b normal res ";
    for (int i = 1; i < 100000; ++i) deep += ". sequence 0 ";
    EXPECT_EQ(parse_failure(deep + ". long"), invalid);
}

TEST(PirGetInterface, RepositoryIdsMapToFilesBelowIdl) {
    EXPECT_EQ(PirInterfacePath("/s", "IDL:org.x/A/B:2.3"), "/s/idl/org.x-A-B.csv");
    EXPECT_EQ(PirInterfacePath(".", "IDL:a:b:1.0"), "./idl/a:b.csv");
    EXPECT_EQ(PirInterfacePath(".", "IDL::1.0"), "./idl/.csv");
    for (const char *bad : {"", "IDL", "idl:Bank/Teller/Account:1.0", "RMI:A:1.0"})
        EXPECT_EQ(failure_of([&] { PirGetInterface(".", bad); }), "invalid repId") << bad;

    testsupport::TempDir dir;
    dir.write("idl/Bank-Teller-Account.csv", "opr o1 balance normal res . double");
    for (const char *id : {"IDL:Bank/Teller/Account:1.0", "IDL:Bank/Teller/Account"}) {
        Tree ifc(PirGetInterface(".", id));
        EXPECT_EQ(PirGetOperation(ifc.get(), "balance")->oprId, "o1") << id;
    }
    EXPECT_EQ(failure_of([] { PirGetInterface(".", "IDL:Bank/Other:1.0"); }),
              "can't open .csv file");
}

TEST(PirCreateInstance, InstancesMirrorTheValueAndAreReleasedOnFailure) {
    Tree ifc = parse_text(
        "opr o x normal res . void par in s . sequence 3 . struct 2 a long b array 2 . short "
        "par in t x struct 1 y union . long 1 z alias");
    PirParNod *s = PirGetFirstParameter(PirGetOperation(ifc.get(), "x"));
    Recorder rec;
    rec.lengths["s^length"] = 2;
    PirInstance *top = PirCreateInstance(PirGetParameterType(s), &rec);
    EXPECT_EQ(top->count, 2);
    ASSERT_EQ(top->children.size(), 2u);
    PirInstance *second = top->children[1];
    EXPECT_EQ(std::make_tuple(second->index, second->parent, second->stlNam + " " + second->stfNam),
              std::make_tuple(1, top, "s[] s[1]"));
    PirInstance *leaf = second->children.at(1)->children.at(1);
    EXPECT_EQ(leaf->stlNam + " " + leaf->stfNam + " " + leaf->val, "s[].b[] s[1].b[1]! v");
    EXPECT_EQ(leaf->count, -1);
    PirFreeInstance(top);

    // A name behind the parameter's joins it directly; an alias is a leaf.
    rec.calls.clear();
    PirFreeInstance(PirCreateInstance(PirGetParameterType(PirGetNextParameter(s)), &rec));
    EXPECT_EQ(rec.calls.back(), "NP 21 16 0 tx.y:z tx.y:z  0");

    rec.lengths["s^length"] = 4;  // past the bound of 3
    EXPECT_EQ(failure_of([&] { PirCreateInstance(PirGetParameterType(s), &rec); }),
              "invalid sequence length");
}
