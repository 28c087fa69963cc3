// The demo's scripts, run by orbelle-run in one process as the demo command
// runs them, against a bank server and naming service of this test.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "tests/interop/bank/bank_fixture.h"
#include "tests/unit/tools/run_tool.h"

namespace bank {
namespace {

class DemoScripts : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(names_.running()) << "omniNames did not start";
        ASSERT_TRUE(server_.running()) << "bank_server did not start";
    }

    // The layout the scripts expect: idl/, scripts/ and run/bank.iorlist.
    static std::string make_run_dir(const std::string &dir) {
        mkdir((dir + "/run").c_str(), 0700);
        return dir + "/run";
    }

    testsupport::TempDir dir_;
    NameServer names_{dir_.path()};
    BankServer server_{make_run_dir(dir_.path()), names_.port()};
};

TEST_F(DemoScripts, RunWithoutFailure) {
    ASSERT_EQ(symlink(ORBELLE_DEMO_DIR "/idl", "idl"), 0);
    ASSERT_EQ(symlink(ORBELLE_DEMO_DIR "/scripts", "scripts"), 0);
    std::ofstream(dir_.path() + "/run/agents.txt")
        << "14000 " << kBankId << " Bank " << server_.ior("Bank") << "\n";
    setenv("BANK_IOR", server_.ior("Bank").c_str(), 1);
    setenv("NS_PORT", std::to_string(names_.port()).c_str(), 1);
    setenv("AGENT_PORT", "14000", 1);
    setenv("ZANTH_HOME", ORBELLE_BINARY_DIR "/zanth", 1);
    setenv("ZANTH_AGENT_DIRECTORY", (dir_.path() + "/run/agents.txt").c_str(), 1);

    std::string command = std::string(ORBELLE_RUNNER_PATH) + " -C " + dir_.path() +
                          " scripts/01-binding.orb scripts/02-accounts.orb"
                          " scripts/03-transfers.orb scripts/04-deferred.orb"
                          " scripts/05-values.orb scripts/06-load.orb";
    std::string out;
    EXPECT_EQ(testsupport::run_command(command, out), 0) << out;
    EXPECT_EQ(out.find("FAILED"), std::string::npos) << out;
    // Each script ends with its summary.
    EXPECT_EQ(testsupport::count_of(out, "OK: 0 failures"), 6u) << out;
}

TEST(DemoCheck, ScriptsAndTheSkeletonOfEveryInterfacePassTheCheck) {
    testsupport::TempDir dir;
    const std::string runner = std::string(ORBELLE_RUNNER_PATH) + " -C " ORBELLE_DEMO_DIR " ";
    setenv("BANK_IOR", "IOR:00", 1);
    setenv("NS_PORT", "2809", 1);
    setenv("AGENT_PORT", "14000", 1);
    std::string out;
    EXPECT_EQ(
        testsupport::run_command(runner + "--check scripts/01-binding.orb scripts/02-accounts.orb"
                                          " scripts/03-transfers.orb scripts/04-deferred.orb"
                                          " scripts/05-values.orb scripts/06-load.orb",
                                 out),
        0);
    EXPECT_EQ(out, "OK\n");
    for (const char *id : {"IDL:Banking/Bank:1.0", "IDL:Banking/Account:1.0",
                           "IDL:Banking/SavingsAccount:1.0", "IDL:Banking/Diagnostics:1.0"}) {
        std::string file = dir.path() + "/skeleton.orb";
        out.clear();
        ASSERT_EQ(testsupport::run_command(runner + "--skeleton " + id + " >" + file, out), 0)
            << id << out;
        EXPECT_EQ(testsupport::run_command(runner + "--check " + file, out), 0) << id;
        EXPECT_EQ(out, "OK\n") << id;
    }
}

}  // namespace
}  // namespace bank
