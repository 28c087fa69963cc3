#include "repository/pirapi.h"

#include <gtest/gtest.h>

#include "tests/support.h"
#include "tests/unit/repository/pirtest.h"

using namespace pirtest;

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

TEST(PirQueries, OperationsResultsAndParametersAreFoundInFileOrder) {
    Tree ifc = parse_text(
        "att a1 twice readonly . string opr o a normal exc X 0 par in p . long res . short "
        "exc Y 1 . long par out q . string res . double par inout r . octet "
        "opr o2 a normal res . void opr o c normal par in p . long");
    PirOprNod *a = PirGetOperation(ifc.get(), "a");
    EXPECT_EQ(a->oprId, "o");
    EXPECT_EQ(PirGetResultType(PirGetResult(a))->typKind, 2);
    std::string names;
    for (PirParNod *par = PirGetFirstParameter(a); par; par = PirGetNextParameter(par))
        names += par->parNam + std::to_string(PirGetParameterType(par)->typKind);
    EXPECT_EQ(names, "p3q18r10");
    for (const char *name : {"A", "twice", ""})
        EXPECT_EQ(failure_of([&] { PirGetOperation(ifc.get(), name); }), "operation not found");
    PirOprNod *c = PirGetOperation(ifc.get(), "c");
    EXPECT_EQ(failure_of([&] { PirGetResult(c); }), "result not found");
    EXPECT_EQ(PirGetNextParameter(PirGetFirstParameter(c)), nullptr);
}
