#include "gateway/blanks.h"

#include <gtest/gtest.h>

TEST(TrimBlanks, RemovesOnlyBlanksAtBothEnds) {
    EXPECT_EQ(trim_blanks("  FILE( a b ) "), "FILE( a b )");
    EXPECT_EQ(trim_blanks("\tIOR \t"), "\tIOR \t");
    EXPECT_EQ(trim_blanks("x"), "x");
    EXPECT_EQ(trim_blanks("   "), "   ");
    EXPECT_EQ(trim_blanks(""), "");
}
