#include "data/any.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "tests/unit/data/tc_builder.h"

namespace {

using AnyTest = tcb::DataTest;

TEST_F(AnyTest, FreeValueWalksArraysAndRefusesNullTypes) {
    tcb::Held arr(le.array(le.simple(tk_string), 2));
    char *pair[2] = {strdup("x"), strdup("y")};
    EXPECT_EQ(freeValue(arr.get(), pair, nullptr, nullptr, env), 1);

    tcb::Held st(
        le.structure("IDL:S:1.0", {{"t", le.simple(tk_TypeCode)}, {"p", le.simple(tk_Principal)}}));
    struct {
        TypeCode *t;
        SequenceRecord *p;
    } value{new TypeCode(tk_string), nullptr};
    value.t->owned = 1;
    value.p = static_cast<SequenceRecord *>(std::malloc(sizeof(SequenceRecord)));
    *value.p = SequenceRecord{1, 1, std::malloc(1)};
    EXPECT_EQ(freeValue(st.get(), &value, nullptr, nullptr, env), 1);

    EXPECT_EQ(freeValue(nullptr, &value, nullptr, nullptr, env), 0);
    EXPECT_STREQ(env.id(), exid::BAD_TYPECODE);
    EXPECT_EQ(freeValue(nullptr, nullptr, nullptr, nullptr, env), 1);
}

}  // namespace
