// The bank server and omniNames in omniORB's default configuration: every
// reference they publish carries an IIOP 1.2 profile with tagged components,
// and they answer our GIOP 1.0 Requests in GIOP 1.0.
#include "tests/interop/bank/bank_fixture.h"
#include "trace/trace.h"

namespace bank {
namespace {

using DefaultProfilesTest = NamedBankTest<Profiles::kDefault>;

TEST_F(DefaultProfilesTest, BindsByReferenceListFileAndNamingService) {
    set_debug_level(2);  // decoder and message lines
    hostkit::clear_printed();
    auto name_by = [&](const std::string &modus, const char *ior = nullptr) {
        return bank_name(client_, client_.bind(kBankId, "Bank", modus, ior));
    };
    EXPECT_EQ(name_by("IOR", server_.ior("Bank").c_str()), "Harbour Bank") << "by reference";
    set_debug_level(0);
    // The server's own profile; we still speak GIOP 1.0, and so does the server.
    for (const char *line : {"iiop_version 1.2", "send GIOP v1.0 msg", "recv GIOP v1.0 msg"})
        EXPECT_TRUE(hostkit::printed_contains(line)) << line;
    EXPECT_EQ(name_by("FILE(" + server_.list_file() + ")"), "Harbour Bank") << "by list file";
    EXPECT_EQ(name_by("NameService(" + names_.reference() + ")"), "Harbour Bank")
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
