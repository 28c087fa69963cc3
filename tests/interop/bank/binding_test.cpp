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

TEST_F(BankTest, BindsByReferenceText) {
    std::string bound;
    void *bank = client_.bind(kBankId, "Bank", "ior", server_.ior("Bank").c_str(), &bound);
    EXPECT_EQ(bound, "ior");
    EXPECT_EQ(bank_name(client_, bank), "Harbour Bank") << "bound by IOR";

    // The same reference bound twice gives two handles that both work.
    void *again = client_.bind_ior(kBankId, server_.ior("Bank"));
    EXPECT_NE(again, bank);
    EXPECT_EQ(bank_name(client_, again), "Harbour Bank") << "second handle";
    EXPECT_EQ(client_.release(again), 0);
    EXPECT_EQ(bank_name(client_, bank), "Harbour Bank") << "after the other handle's release";

    // The operations every object has, without a description.
    for (const auto &type : {std::make_pair(kBankId, "1"), std::make_pair(kAccountId, "0")}) {
        Call is_a(client_, bank, kBankId, "_is_a");
        is_a.set("logical_type_id", type.first);
        ASSERT_EQ(is_a.invoke().result, 0) << "_is_a " << type.first;
        EXPECT_EQ(is_a.get("^is_a"), type.second) << "boolean, result of _is_a " << type.first;
    }
    Call exists(client_, bank, kBankId, "_non_existent");
    ASSERT_EQ(exists.invoke().result, 0);
    EXPECT_EQ(exists.get("^non_existent"), "0") << "boolean, result of _non_existent";
    EXPECT_EQ(client_.release(bank), 0);
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

// When no alternative binds, the record's own reference does.
TEST_F(BankTest, FallsBackToTheRecordsReference) {
    std::string bound;
    void *bank = client_.bind(kBankId, "Bank", "FILE(no-such-list) | NameService",
                              server_.ior("Bank").c_str(), &bound);
    EXPECT_EQ(bound, "IOR");
    EXPECT_EQ(bank_name(client_, bank), "Harbour Bank") << "bound by fallback";

    Outcome o;
    EXPECT_EQ(client_.bind(kBankId, "Bank", "FILE(no-such-list)", nullptr, nullptr, &o), nullptr);
    EXPECT_EQ(o.result, IIOP_STATUS_GATEWAY_FAILURE) << "no alternative and no reference";
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

// A reference to the forwarding adapter: the first call is answered with a
// location forward and repeated at the new address, which later calls use
// directly. Inout values of the repeat are still the script's.
TEST_F(BankTest, FollowsLocationForward) {
    void *bank = client_.bind_ior(kBankId, server_.ior("Forward/Bank"));
    ASSERT_NE(bank, nullptr);
    set_debug_level(2);  // message lines only
    hostkit::clear_printed();
    EXPECT_EQ(bank_name(client_, bank), "Harbour Bank") << "through a location forward";
    auto requests_sent = [] {
        int n = 0;
        for (const auto &line : hostkit::printed())
            if (line.find("send GIOP") != std::string::npos) ++n;
        return n;
    };
    EXPECT_EQ(requests_sent(), 2) << "the Request and its repeat";
    hostkit::clear_printed();
    EXPECT_EQ(bank_name(client_, bank), "Harbour Bank") << "after the forward";
    EXPECT_EQ(requests_sent(), 1) << "the forward address is kept";
    set_debug_level(0);

    void *diag = client_.bind_ior(kDiagnosticsId, server_.ior("Forward/Diagnostics"));
    ASSERT_NE(diag, nullptr);
    expect_echo(
        client_, diag, "echo_money", "struct Money through a forward",
        {{".amount", "7.5", "7.500000", "1", "1.000000"}, {".currency", "3", "3", "4", "4"}});
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

TEST_F(NamingTest, BindsByNamingService) {
    std::string modus = "NameService(" + names_.reference() + ")";
    std::string bound;
    void *bank = client_.bind(kBankId, "Bank", modus, nullptr, &bound);
    EXPECT_EQ(bound, modus);
    EXPECT_EQ(bank_name(client_, bank), "Harbour Bank") << "bound by naming service";

    void *diag = client_.bind(kDiagnosticsId, "Diagnostics", modus);
    ASSERT_NE(diag, nullptr) << "Diagnostics bound by naming service";
    expect_echo(client_, diag, "echo_long", "long", {{"", "12", "12", "13", "13"}});

    // An unknown name fails that alternative, and the next one binds.
    void *fallback =
        client_.bind(kBankId, "Nobody", modus + " | IOR", server_.ior("Bank").c_str(), &bound);
    EXPECT_EQ(bound, "IOR") << "after the naming service knew no Nobody";
    EXPECT_EQ(bank_name(client_, fallback), "Harbour Bank");
    client_.count_requests(1);  // the failed resolve

    Outcome o;
    EXPECT_EQ(client_.bind(kBankId, "Nobody", modus, nullptr, nullptr, &o), nullptr);
    EXPECT_EQ(o.exception_index, 2) << "a name the naming service does not know";
}

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
