#include "data/stdtypes.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(StandardTypes, ObjectBodyByteForByte) {
    const unsigned char expect[52] = {
        0,   0,   0,   0,   0,   0,   0,   29,  'I', 'D', 'L', ':', 'o', 'm', 'g', '.', 'o', 'r',
        'g', '/', 'C', 'O', 'R', 'B', 'A', '/', 'O', 'b', 'j', 'e', 'c', 't', ':', '2', '.', '0',
        0,   0,   0,   0,   0,   0,   0,   7,   'O', 'b', 'j', 'e', 'c', 't', 0,   0};
    EXPECT_EQ(tc_Object(), nullptr);  // until start-up builds them, once
    inittypecodes();
    TypeCode *obj = tc_Object();
    inittypecodes();
    EXPECT_EQ(tc_Object(), obj);
    ASSERT_EQ(obj->length, 52u);
    EXPECT_EQ(0, std::memcmp(obj->buffer, expect, 52));
    Environment env;
    EXPECT_EQ(obj->paramCount(env), 2u);
    EXPECT_STREQ(obj->repositoryId(env), "IDL:omg.org/CORBA/Object:2.0");
    obj->paramLong(0, env);
    EXPECT_STREQ(env.id(), exid::BAD_PARAM);
}

TEST(StandardTypes, SystemExceptionBodyAndLayout) {
    const uint32_t words[29] = {1,  1,  0, 1, 0, 3, 1, 0, 18, 0, 1, 0, 5, 1, 0,
                                17, 48, 1, 1, 0, 1, 0, 3, 1,  0, 1, 0, 1, 0};
    inittypecodes();
    fill_value_table();
    TypeCode *se = tc_SystemException();
    ASSERT_EQ(se->length, 116u);
    for (int i = 0; i < 29; ++i) {
        const unsigned char *w = se->buffer + 4 * i;
        uint32_t v = w[0] | w[1] << 8 | w[2] << 16 | static_cast<uint32_t>(w[3]) << 24;
        EXPECT_EQ(v, words[i]) << "word " << i;
    }
    Environment env;
    EXPECT_EQ(se->valueSize(env), sizeof(SystemException));
    if (sizeof(void *) == 4) {
        EXPECT_EQ(se->valueSize(env), 12u);
    }
}

}  // namespace
