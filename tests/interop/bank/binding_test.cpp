// Every way of finding a bank object, also where the servers publish
// omniORB's default profiles.
#include "tests/interop/bank/bank_fixture.h"
#include "trace/trace.h"

namespace bank {
namespace {

TEST_F(BankTest, BindsByListFile) {
    std::string modus = "FILE(" + server_.list_file() + ")";
    std::string bound;
    void *bank = client_.bind(kBankId, "Bank", " " + modus + " ", nullptr, &bound);
    EXPECT_EQ(bound, modus) << "blanks around the alternative are trimmed";
    EXPECT_EQ(bank_name(client_, bank), "Harbour Bank") << "bound by list file";

    // The first line of the repository id decides; the instance id plays
    // no part.
    void *acct = client_.bind(kAccountId, "1002", modus);
    ASSERT_NE(acct, nullptr);
    EXPECT_EQ(client_.result(acct, kAccountId, "_get_number"), "1001");

    Outcome o;
    EXPECT_EQ(client_.bind("IDL:Banking/Unknown:1.0", "x", modus, nullptr, nullptr, &o), nullptr);
    EXPECT_EQ(o.status, IIOP_STATUS_GATEWAY_FAILURE);
    EXPECT_EQ(o.exception_index, 2);
}

// The agent stand-in answers from a directory file.
TEST_F(BankTest, BindsThroughTheAgentStandIn) {
    use_agents(dir_.path() + "/agents.txt",
               "# port, repository id, instance id, reference\n14000 " + std::string(kBankId) +
                   " Bank " + server_.ior("Bank") + "\n15000 " + kDiagnosticsId + " Diagnostics " +
                   server_.ior("Diagnostics") + "\n");

    std::string bound;
    void *bank = client_.bind(kBankId, "Bank", "Visibroker", nullptr, &bound);
    EXPECT_EQ(bound, "Visibroker");
    EXPECT_EQ(bank_name(client_, bank), "Harbour Bank") << "bound by the agent, default port";

    void *diag = client_.bind(kDiagnosticsId, "Diagnostics", "Visibroker(15000)", nullptr, &bound);
    ASSERT_NE(diag, nullptr) << "bound by the agent on port 15000";
    EXPECT_EQ(client_.result(diag, kDiagnosticsId, "notes_count"), "0");

    Outcome o;
    EXPECT_EQ(client_.bind(kBankId, "Bank", "Visibroker(15000)", nullptr, nullptr, &o), nullptr)
        << "the agent on port 15000 knows no Bank";
    EXPECT_EQ(o.exception_index, 2);
}

using NamingTest = NamedBankTest<Profiles::kIiop10>;

// The agent hands out the naming service's reference, which then resolves
// the instance id.
TEST_F(NamingTest, BindsByNamingServiceFoundThroughTheAgent) {
    use_agents(dir_.path() + "/agents.txt",
               "14000 IDL:omg.org/CosNaming/NamingContext:1.0 Names " + names_.reference() + "\n");
    std::string bound;
    void *bank = client_.bind(kBankId, "Bank", "VisibrokerNameService(Names)", nullptr, &bound);
    EXPECT_EQ(bound, "VisibrokerNameService(Names)");
    EXPECT_EQ(bank_name(client_, bank), "Harbour Bank") << "bound through agent and naming service";
}

// The bank server and omniNames in omniORB's default configuration: every
// reference they publish carries an IIOP 1.2 profile with tagged components,
// and they answer our GIOP 1.0 Requests in GIOP 1.0.
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
