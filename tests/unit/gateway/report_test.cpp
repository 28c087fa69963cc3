#include "gateway/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/support.h"
#include "trace/trace.h"

using ::testing::ElementsAre;

namespace {
const char *const table[] = {"BAD_PARAM",
                             "NO_MEMORY",
                             "IMP_LIMIT",
                             "COMM_FAILURE",
                             "INV_OBJREF",
                             "NO_PERMISSION",
                             "INTERNAL",
                             "MARSHAL",
                             "INITIALIZE",
                             "NO_IMPLEMENT",
                             "BAD_TYPECODE",
                             "BAD_OPERATION",
                             "NO_RESOURCES",
                             "NO_RESPONSE",
                             "PERSIST_STORE",
                             "BAD_INV_ORDER",
                             "TRANSIENT",
                             "FREE_MEM",
                             "INV_IDENT",
                             "INV_FLAG",
                             "INTF_REPOS",
                             "BAD_CONTEXT",
                             "OBJ_ADAPTER",
                             "DATA_CONVERSION",
                             "OBJECT_NOT_EXIST",
                             "TRANSACTION_REQUIRED",
                             "TRANSACTION_ROLLEDBACK",
                             "INVALID_TRANSACTION"};

size_t last_size = 0;
void *sized_malloc(size_t size) {
    last_size = size;
    return std::malloc(size);
}

TEST(ExceptionIndex, FirstNameOfTheTableFoundAnywhereInTheIdWins) {
    for (int i = 0; i < 28; ++i) {
        std::string id = std::string("IDL:omg.org/CORBA/") + table[i] + ":1.0";
        EXPECT_EQ(exception_index_of(id.c_str()), i + 1) << id;
    }
    EXPECT_EQ(exception_index_of(exid::UNKNOWN), 29);
    EXPECT_EQ(exception_index_of("IDL:Shop/TRANSIENT_BAD_PARAM:1.0"), 1);
    EXPECT_EQ(exception_index_of("idl:omg.org/corba/marshal:1.0"), 29);
    EXPECT_EQ(exception_index_of("IDL:Shop/NoStock:1.0"), 29);
    EXPECT_EQ(exception_index_of(nullptr), 29);
}

TEST(ReportException, StatusTextIsTheIdInABlockOfItsLengthFromTheHost) {
    hostkit::Host host = testsupport::linked_host();
    iiop_record init = hostkit::make_record(IIOP_INIT);
    init.u.init = hostkit::slots();
    init.u.init.vumalloc = sized_malloc;
    host.call(init);
    set_debug_level(1);
    raise_system(env, exid::COMM_FAILURE);
    set_error_text("connect refused by a peer that says a great deal more than the id");

    iiop_record record = hostkit::make_record(IIOP_INVOKE);
    EXPECT_EQ(report_exception(&record, "execute_do_call"), 1);
    EXPECT_EQ(record.status, 1);
    EXPECT_EQ(record.exception_index, 4);
    ASSERT_NE(record.status_text, nullptr);
    EXPECT_STREQ(record.status_text, exid::COMM_FAILURE);
    EXPECT_EQ(last_size, sizeof exid::COMM_FAILURE);
    EXPECT_THAT(hostkit::printed(),
                ElementsAre("exception 'IDL:omg.org/CORBA/COMM_FAILURE:1.0' at 'execute_do_call'\n",
                            "minor 0xffff0000, completion 0x2\n"));
    EXPECT_STREQ(env.id(), exid::COMM_FAILURE);
    std::free(record.status_text);
}

TEST(ReportException, StatusFollowsTheLatestExceptionReply) {
    testsupport::linked_host();
    iiop_record record = hostkit::make_record(IIOP_INVOKE);
    raise_system(env, exid::UNKNOWN);
    EXPECT_EQ(report_exception(&record, "here"), 1);
    EXPECT_EQ(record.exception_index, 29);
    std::free(record.status_text);

    reply_kind = 2;  // a user exception Reply came earlier
    raise_system(env, exid::COMM_FAILURE);
    EXPECT_EQ(report_exception(&record, "here"), 2);
    EXPECT_EQ(record.status, 2);
    std::free(record.status_text);

    reply_kind = 1;
    raise_system(env, exid::OBJ_ADAPTER);
    EXPECT_EQ(report_exception(&record, "here"), 1);
    EXPECT_EQ(record.exception_index, 23);
    EXPECT_TRUE(hostkit::printed().empty());
    std::free(record.status_text);
}
}  // namespace
