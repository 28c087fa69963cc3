// The demo's scripts, run by orbelle-run in one process as the demo command
// runs them, against a bank server and naming service of this test.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/interop/bank/bank_fixture.h"

namespace bank {
namespace {

const std::string kScripts =
    " scripts/01-binding.orb scripts/02-accounts.orb scripts/03-transfers.orb"
    " scripts/04-deferred.orb scripts/05-values.orb scripts/06-load.orb";

using DemoScripts = NamedBankTest<Profiles::kIiop10>;

TEST_F(DemoScripts, RunWithoutFailure) {
    // The layout the scripts expect: idl/ (linked by the client), scripts/
    // and run/bank.iorlist.
    ASSERT_EQ(symlink(ORBELLE_DEMO_DIR "/scripts", "scripts"), 0);
    mkdir("run", 0700);
    ASSERT_EQ(symlink(server_.list_file().c_str(), "run/bank.iorlist"), 0);
    use_agents(dir_.path() + "/run/agents.txt",
               "14000 " + std::string(kBankId) + " Bank " + server_.ior("Bank") + "\n");
    setenv("BANK_IOR", server_.ior("Bank").c_str(), 1);
    setenv("NS_PORT", std::to_string(names_.port()).c_str(), 1);
    setenv("AGENT_PORT", "14000", 1);
    std::string out;
    EXPECT_EQ(testsupport::run_runner("-C " + dir_.path() + kScripts, out), 0) << out;
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
    EXPECT_EQ(testsupport::run_command(runner + "--check" + kScripts, out), 0);
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
