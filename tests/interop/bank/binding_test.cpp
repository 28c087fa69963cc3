// Every way of finding a bank object, and a reference that forwards.
#include <cstdlib>
#include <fstream>

#include "tests/interop/bank/bank_fixture.h"
#include "trace/trace.h"

namespace bank {
namespace {

// Calls _get_name on a Bank handle; the bank's name, or what went wrong.
std::string bank_name(Client &client, void *bank) {
    if (bank == nullptr) return "(not bound)";
    Call name(client, bank, kBankId, "_get_name");
    Outcome o = name.invoke();
    return o.result == 0 ? name.get("^_get_name") : "(failed: " + o.text + ")";
}

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
    Call number(client_, acct, kAccountId, "_get_number");
    ASSERT_EQ(number.invoke().result, 0);
    EXPECT_EQ(number.get("^_get_number"), "1001");

    Outcome o;
    EXPECT_EQ(client_.bind("IDL:Banking/Unknown:1.0", "x", modus, nullptr, nullptr, &o), nullptr);
    EXPECT_EQ(o.status, IIOP_STATUS_GATEWAY_FAILURE);
    EXPECT_EQ(o.exception_index, 2);
}

// The agent stand-in answers from a directory file.
TEST_F(BankTest, BindsThroughTheAgentStandIn) {
    std::string directory = dir_.path() + "/agents.txt";
    std::ofstream(directory) << "# port, repository id, instance id, reference\n"
                             << "14000 " << kBankId << " Bank " << server_.ior("Bank") << "\n"
                             << "15000 " << kDiagnosticsId << " Diagnostics "
                             << server_.ior("Diagnostics") << "\n";
    setenv("ZANTH_HOME", ORBELLE_BINARY_DIR "/zanth", 1);
    setenv("ZANTH_AGENT_DIRECTORY", directory.c_str(), 1);

    std::string bound;
    void *bank = client_.bind(kBankId, "Bank", "Visibroker", nullptr, &bound);
    EXPECT_EQ(bound, "Visibroker");
    EXPECT_EQ(bank_name(client_, bank), "Harbour Bank") << "bound by the agent, default port";

    void *diag = client_.bind(kDiagnosticsId, "Diagnostics", "Visibroker(15000)", nullptr, &bound);
    ASSERT_NE(diag, nullptr) << "bound by the agent on port 15000";
    Call count(client_, diag, kDiagnosticsId, "notes_count");
    EXPECT_EQ(count.invoke().result, 0);

    Outcome o;
    EXPECT_EQ(client_.bind(kBankId, "Bank", "Visibroker(15000)", nullptr, nullptr, &o), nullptr)
        << "the agent on port 15000 knows no Bank";
    EXPECT_EQ(o.exception_index, 2);
}

class NamingTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(names_.running()) << "omniNames did not start";
        ASSERT_TRUE(server_.running()) << "bank_server did not start with the naming service";
    }

    testsupport::TempDir dir_;
    NameServer names_{dir_.path()};
    BankServer server_{dir_.path(), names_.port()};
    Client client_;
};

// The agent hands out the naming service's reference, which then resolves
// the instance id.
TEST_F(NamingTest, BindsByNamingServiceFoundThroughTheAgent) {
    std::string directory = dir_.path() + "/agents.txt";
    std::ofstream(directory) << "14000 IDL:omg.org/CosNaming/NamingContext:1.0 Names "
                             << names_.reference() << "\n";
    setenv("ZANTH_HOME", ORBELLE_BINARY_DIR "/zanth", 1);
    setenv("ZANTH_AGENT_DIRECTORY", directory.c_str(), 1);
    std::string bound;
    void *bank = client_.bind(kBankId, "Bank", "VisibrokerNameService(Names)", nullptr, &bound);
    EXPECT_EQ(bound, "VisibrokerNameService(Names)");
    EXPECT_EQ(bank_name(client_, bank), "Harbour Bank") << "bound through agent and naming service";
}

}  // namespace
}  // namespace bank
