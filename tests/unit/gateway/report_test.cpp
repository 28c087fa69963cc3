#include "gateway/report.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support.h"

namespace {

TEST(ExceptionIndex, FirstNameOfTheTableFoundAnywhereInTheIdWins) {
    EXPECT_EQ(exception_index_of(exid::BAD_PARAM), 1);
    EXPECT_EQ(exception_index_of("IDL:omg.org/CORBA/INVALID_TRANSACTION:1.0"), 28);
    EXPECT_EQ(exception_index_of("IDL:Shop/TRANSIENT_BAD_PARAM:1.0"), 1);
    for (const char *other : {exid::UNKNOWN, "idl:omg.org/corba/marshal:1.0", "IDL:Shop/X:1.0", ""})
        EXPECT_EQ(exception_index_of(other), 29) << other;
    EXPECT_EQ(exception_index_of(nullptr), 29);
}

}  // namespace
