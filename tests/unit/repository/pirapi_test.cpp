#include "repository/pirapi.h"

#include <gtest/gtest.h>

#include "tests/support.h"
#include "tests/unit/repository/pirtest.h"

using namespace pirtest;

namespace {
std::string path_failure(const char *repId) {
    try {
        PirInterfacePath(".", repId);
    } catch (PirException e) {
        return e.msg;
    }
    return "";
}

template <class F>
std::string failure_of(F &&f) {
    try {
        f();
    } catch (PirException e) {
        return e.msg;
    }
    return "";
}
}  // namespace

TEST(PirGetInterface, RepositoryIdsMapToPathsBelowIdl) {
    EXPECT_EQ(PirInterfacePath(".", "IDL:Bank/Teller/Account:1.0"),
              "./idl/Bank-Teller-Account.csv");
    EXPECT_EQ(PirInterfacePath(".", "IDL:Bank/Teller/Account"), "./idl/Bank-Teller-Account.csv");
    EXPECT_EQ(PirInterfacePath("/s", "IDL:org.x/A:2.3"), "/s/idl/org.x-A.csv");
    EXPECT_EQ(PirInterfacePath(".", "IDL:a:b:1.0"), "./idl/a:b.csv");
    EXPECT_EQ(PirInterfacePath(".", "IDL::1.0"), "./idl/.csv");
    for (const char *bad : {"", "IDL", "idl:Bank/Teller/Account:1.0", "Idl:A:1.0", "RMI:A:1.0"})
        EXPECT_EQ(path_failure(bad), "invalid repId") << bad;
}

TEST(PirGetInterface, LoadsTheFileOfTheIdWhateverItsVersion) {
    testsupport::TempDir dir;
    dir.write("idl/Bank-Teller-Account.csv", "opr o1 balance normal res . double");
    for (const char *id : {"IDL:Bank/Teller/Account:1.0", "IDL:Bank/Teller/Account:2.0",
                           "IDL:Bank/Teller/Account"}) {
        PirIntNod *ifc = PirGetInterface(".", id);
        ASSERT_EQ(ifc->children.size(), 1u) << id;
        EXPECT_EQ(PirGetOperation(ifc, "balance")->oprId, "o1");
        PirFreeInterface(ifc);
    }
    EXPECT_EQ(failure_of([] { PirGetInterface(".", "IDL:Bank/Teller/Other:1.0"); }),
              "can't open .csv file");
    EXPECT_EQ(failure_of([] { PirGetInterface(".", "idl:Bank/Teller/Account:1.0"); }),
              "invalid repId");
}

TEST(PirQueries, OperationsAreFoundByExactNameFirstMatchFirst) {
    Tree ifc = parse_text(
        "att a1 owner readonly . string "
        "opr first twice normal res . long "
        "opr second twice normal res . short");
    EXPECT_EQ(PirGetOperation(ifc.get(), "twice")->oprId, "first");
    for (const char *name : {"Twice", "twic", "owner", ""})
        EXPECT_EQ(failure_of([&] { PirGetOperation(ifc.get(), name); }), "operation not found");

    PirIntNod *only =
        PirGetInterface(testsupport::data_path("").c_str(), "IDL:Orbelle/Test/Attributes:1.0");
    EXPECT_EQ(only->children.size(), 2u);
    EXPECT_EQ(failure_of([&] { PirGetOperation(only, "name"); }), "operation not found");
    PirFreeInterface(only);
}

TEST(PirQueries, ResultAndParametersAreSteppedInFileOrder) {
    Tree ifc = parse_text(
        "opr o a normal exc X 0 par in p . long res . short exc Y 1 . long "
        "par out q . string res . double par inout r . octet "
        "opr o b normal res . void "
        "opr o c normal par in p . long");
    PirOprNod *a = PirGetOperation(ifc.get(), "a");
    PirResNod *res = PirGetResult(a);
    EXPECT_EQ(PirGetResultType(res)->typKind, 2);

    std::vector<std::string> names;
    for (PirParNod *par = PirGetFirstParameter(a); par; par = PirGetNextParameter(par)) {
        names.push_back(par->parNam);
        EXPECT_EQ(PirGetParameterType(par), par->children[0]);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"p", "q", "r"}));

    PirOprNod *b = PirGetOperation(ifc.get(), "b");
    EXPECT_EQ(PirGetFirstParameter(b), nullptr);
    EXPECT_EQ(PirGetResultType(PirGetResult(b))->typKind, 1);
    EXPECT_EQ(failure_of([&] { PirGetResult(PirGetOperation(ifc.get(), "c")); }),
              "result not found");

    // Nodes placed by hand, without a known place, are still stepped through.
    PirResNod bare;
    EXPECT_EQ(PirGetResultType(&bare), nullptr);
    PirOprNod manual;
    auto *p1 = new PirParNod;
    auto *p2 = new PirParNod;
    manual.children = {new PirExcNod, p1, new PirResNod, p2};
    p1->parent = p2->parent = &manual;
    EXPECT_EQ(PirGetNextParameter(p1), p2);
    EXPECT_EQ(PirGetNextParameter(p2), nullptr);
}
