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
