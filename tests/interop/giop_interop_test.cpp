// The transport against a real ORB: Requests built by hand to the omniORB
// echo server, its references, its exceptions and its forwards.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <tuple>

#include "data/environment.h"
#include "data/stdtypes.h"
#include "data/typecode.h"
#include "giop/invocation.h"
#include "giop/iortext.h"
#include "giop/message.h"
#include "giop/orb.h"
#include "tests/interop/echo_fixture.h"
#include "tests/peer/peer.h"
#include "tests/support.h"
#include "tests/unit/giop/giop_fixture.h"

using testsupport::expect_has;

namespace {

const ExceptionTable kNoExceptions{0, nullptr};

using giop_test::id_of;

class Echo : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server_.running());
        giop_test::install_keeping_host();
        timeout_ms = 5000;
        inittypecodes();
        ASSERT_NE(ORB_init(nullptr, nullptr, "", env_), nullptr);
        ref_ = string_to_object(server_.ior().c_str(), env_);
        ASSERT_NE(ref_, nullptr) << id_of(env_);
    }
    void TearDown() override {
        Environment e;
        release_objref(ref_, e);
    }
    // Starts a call; the caller writes the arguments and invokes.
    int run(GIOP::Invocation &inv, const std::function<void(CDR &)> &args) {
        for (int restarts = 0; restarts < 4; ++restarts) {
            inv.start(nullptr, env_, 0, nullptr);
            if (env_.has_exception()) return -1;
            args(inv.stream);
            int status = inv.invoke(kNoExceptions, env_, 0);
            if (status != LOCATION_FORWARD) return status;
        }
        return -2;
    }

    interop::EchoServer server_;
    objref *ref_ = nullptr;
    Environment env_;
};

TEST_F(Echo, ReferencesTravelBothWays) {
    EXPECT_EQ(std::make_tuple(std::string(ref_->data->type_id),
                              std::string(ref_->data->profile.host), ref_->data->profile.port),
              std::make_tuple("IDL:EchoTest/Echo:1.0", "127.0.0.1", server_.port()));
    char *ours = ior_text_of(ref_, env_);
    ASSERT_NE(ours, nullptr);
    std::string catior = interop::run_program({"catior", ours});
    expect_has(catior,
               {"IIOP 1.0 127.0.0.1 " + std::to_string(server_.port()), "IDL:EchoTest/Echo:1.0"});
    std::free(ours);
}

TEST_F(Echo, UnknownOperationKeepsTheServersMinorCode) {
    GIOP::Invocation a(ref_->data, "noSuchOperation", 1);
    EXPECT_EQ(run(a, [](CDR &) {}), SYSTEM_EXCEPTION);
    EXPECT_EQ(id_of(env_), exid::BAD_OPERATION);
    ASSERT_NE(env_.system_exception(), nullptr);
    EXPECT_EQ(env_.system_exception()->minor & 0xfffff000u, 0x41540000u);  // omniORB's own
}

TEST_F(Echo, ForwardedAndLateRepliesAreFollowed) {
    Environment e;
    objref *fwd = string_to_object(server_.forward_ior().c_str(), e);
    ASSERT_NE(fwd, nullptr);
    GIOP::Invocation a(fwd->data, "echoLong", 1);
    a.start(nullptr, env_, 0, nullptr);
    a.stream.put_long(9);
    EXPECT_EQ(a.invoke(kNoExceptions, env_, 0), LOCATION_FORWARD);
    ASSERT_NE(fwd->data->forward_profile, nullptr);
    ASSERT_EQ(run(a, [](CDR &s) { s.put_long(9); }), NO_EXCEPTION);
    release_objref(fwd, e);

    // A reply that comes after its wait ran out is dropped by the next call.
    timeout_ms = 300;
    {
        GIOP::Invocation slow(ref_->data, "delay", 1);
        EXPECT_EQ(run(slow, [](CDR &s) { s.put_long(1300); }), SYSTEM_EXCEPTION);
        EXPECT_EQ(id_of(env_), exid::COMM_FAILURE);
    }
    timeout_ms = 5000;
    GIOP::Invocation next(ref_->data, "echoLong", 1);
    ASSERT_EQ(run(next, [](CDR &s) { s.put_long(21); }), NO_EXCEPTION);
    uint32_t v = 0;
    next.stream.get_long(&v);
    EXPECT_EQ(v, 21u);
}

TEST_F(Echo, KnownUserExceptionIsDecodedIntoTheEnvironment) {
    // exception Oops { string reason; long code; }
    peer::Writer w(true, 0);
    w.octet(1).string("IDL:EchoTest/Oops:1.0").string("Oops").ulong(2);
    w.string("reason").ulong(tk_string).ulong(0).string("code").ulong(tk_long);
    TypeCode oops(tk_except, static_cast<uint32_t>(w.bytes().size()), w.bytes().data(), 0);
    TypeCode *table[] = {&oops};
    GIOP::Invocation c(ref_->data, "raiseUser", 1);
    c.start(nullptr, env_, 0, nullptr);
    c.stream.put_long(4);  // the string "why" with its terminating zero
    c.stream.put_bytes("why", 4);
    c.stream.put_long(5);
    ASSERT_EQ(c.invoke({1, table}, env_, 0), USER_EXCEPTION) << id_of(env_);
    struct Oops {
        char *id;
        char *reason;
        int32_t code;
    };
    auto *record = static_cast<Oops *>(env_.exception());
    EXPECT_STREQ(record->id, "IDL:EchoTest/Oops:1.0");
    EXPECT_STREQ(record->reason, "why");
    EXPECT_EQ(record->code, 5);
    std::free(record->reason);
    record->reason = nullptr;
}

}  // namespace
