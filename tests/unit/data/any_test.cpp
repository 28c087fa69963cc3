#include "data/any.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "data/stdtypes.h"
#include "data/unaligned.h"
#include "tests/unit/data/tc_builder.h"

namespace {

class AnyTest : public ::testing::Test {
protected:
    void SetUp() override {
        inittypecodes();
        fill_value_table();
    }
    tcb::Tc le;
    Environment env;
};

char *text(const char *s) {
    char *t = static_cast<char *>(std::malloc(std::strlen(s) + 1));
    std::strcpy(t, s);
    return t;
}

TEST_F(AnyTest, DestroyReleasesOnlyWhatIsOwned) {
    unsigned char slot[sizeof(Any) + 1];
    store_any(slot + 1, Any());  // at an odd address
    EXPECT_EQ(load_any(slot + 1).type, tc_null());
    destroy_any(slot + 1);
    EXPECT_EQ(tc_null()->refCount, 1u);

    // Not owned: the value is left alone, the type's reference given back.
    tcb::Held seq(le.sequence(le.simple(tk_long)));
    auto *owned_type = new TypeCode(tk_sequence, seq->length, std::malloc(seq->length), 1);
    std::memcpy(owned_type->buffer, seq->buffer, seq->length);
    int32_t values[2] = {1, 2};
    SequenceRecord rec{2, 2, values};
    store_any(slot, Any(owned_type, &rec, 0));
    EXPECT_EQ(owned_type->refCount, 2u);
    destroy_any(slot);
    EXPECT_EQ(owned_type->refCount, 1u);
    EXPECT_EQ(values[1], 2);
    TypeCode::release(owned_type);
}

TEST_F(AnyTest, FreeValueWalksArraysAndRefusesNullTypes) {
    tcb::Held arr(le.array(le.simple(tk_string), 2));
    char *pair[2] = {text("x"), text("y")};
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
