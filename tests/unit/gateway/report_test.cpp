#include "gateway/report.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support.h"

namespace {
size_t last_size = 0;
void *sized_malloc(size_t size) {
    last_size = size;
    return std::malloc(size);
}

TEST(ExceptionIndex, FirstNameOfTheTableFoundAnywhereInTheIdWins) {
    EXPECT_EQ(exception_index_of(exid::BAD_PARAM), 1);
    EXPECT_EQ(exception_index_of("IDL:omg.org/CORBA/INVALID_TRANSACTION:1.0"), 28);
    EXPECT_EQ(exception_index_of("IDL:Shop/TRANSIENT_BAD_PARAM:1.0"), 1);
    for (const char *other : {exid::UNKNOWN, "idl:omg.org/corba/marshal:1.0", "IDL:Shop/X:1.0", ""})
        EXPECT_EQ(exception_index_of(other), 29) << other;
    EXPECT_EQ(exception_index_of(nullptr), 29);
}

TEST(ReportException, StatusFromTheLatestExceptionReplyAndTheIdInABlockOfItsLength) {
    hostkit::Host host = testsupport::linked_host();
    iiop_record record = hostkit::make_record(IIOP_INIT);
    record.u.init = hostkit::slots();
    record.u.init.vumalloc = sized_malloc;
    host.call(record);
    raise_system(env, exid::COMM_FAILURE);
    set_error_text("connection refused, and a longer explanation than the id");
    EXPECT_EQ(report_exception(&record, "here"), 1);
    EXPECT_EQ(record.exception_index, 4);
    EXPECT_STREQ(record.status_text, exid::COMM_FAILURE);
    EXPECT_EQ(last_size, sizeof exid::COMM_FAILURE);
    EXPECT_STREQ(env.id(), exid::COMM_FAILURE);
    std::free(record.status_text);

    reply_kind = 2;  // after a user exception Reply, local failures report 2
    EXPECT_EQ(report_exception(&record, "here"), 2);
    EXPECT_EQ(record.status, 2);
    std::free(record.status_text);
    reply_kind = 1;
    raise_system(env, exid::OBJ_ADAPTER);
    EXPECT_EQ(report_exception(&record, "here"), 1);
    EXPECT_EQ(record.exception_index, 23);
    std::free(record.status_text);
}
}  // namespace
