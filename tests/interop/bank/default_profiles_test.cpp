// The bank server and omniNames in omniORB's default configuration: every
// reference they publish carries an IIOP 1.2 profile with tagged components,
// and they answer our GIOP 1.0 Requests in GIOP 1.0.
#include "tests/interop/bank/bank_fixture.h"
#include "trace/trace.h"

namespace bank {
namespace {

class DefaultProfilesTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(names_.running()) << "omniNames did not start";
        ASSERT_TRUE(server_.running()) << "bank_server did not start";
    }

    // Binds Bank by modus and calls _get_name; the bank's name, or what went
    // wrong.
    std::string bank_name(const std::string &modus, const char *ior = nullptr) {
        void *bank = client_.bind(kBankId, "Bank", modus, ior);
        if (bank == nullptr) return "(not bound)";
        Call name(client_, bank, kBankId, "_get_name");
        Outcome o = name.invoke();
        return o.result == 0 ? name.get("^_get_name") : "(failed: " + o.text + ")";
    }

    testsupport::TempDir dir_;
    NameServer names_{dir_.path(), Profiles::kDefault};
    BankServer server_{dir_.path(), names_.port(), Profiles::kDefault};
    Client client_;
};

TEST_F(DefaultProfilesTest, BindsByReferenceListFileAndNamingService) {
    set_debug_level(2);  // decoder and message lines
    hostkit::clear_printed();
    EXPECT_EQ(bank_name("IOR", server_.ior("Bank").c_str()), "Harbour Bank") << "by reference";
    set_debug_level(0);
    EXPECT_TRUE(hostkit::printed_contains("iiop_version 1.2")) << "the server's own profile";
    EXPECT_TRUE(hostkit::printed_contains("send GIOP v1.0 msg")) << "we still speak GIOP 1.0";
    EXPECT_TRUE(hostkit::printed_contains("recv GIOP v1.0 msg")) << "and so does the server";

    EXPECT_EQ(bank_name("FILE(" + server_.list_file() + ")"), "Harbour Bank") << "by list file";
    EXPECT_EQ(bank_name("NameService(" + names_.reference() + ")"), "Harbour Bank")
        << "by naming service";
}

// References of 1.2 profiles sent in and inout go back as 1.0 profiles; those
// that come back are bound and called.
TEST_F(DefaultProfilesTest, ReturnedReferencesAreBoundAndCalled) {
    void *diag = client_.bind_ior(kDiagnosticsId, server_.ior("Diagnostics"));
    ASSERT_NE(diag, nullptr);
    expect_account_echo(client_, diag, server_);
}

}  // namespace
}  // namespace bank
