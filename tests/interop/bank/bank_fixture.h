// The fixture of the interop tests: a fresh directory, the demo bank server
// on a free loopback port, and a client host working in that directory.
#ifndef ORBELLE_TESTS_INTEROP_BANK_FIXTURE_H
#define ORBELLE_TESTS_INTEROP_BANK_FIXTURE_H

#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "tests/interop/bank/bank_client.h"
#include "tests/interop/bank/bank_servers.h"
#include "tests/support.h"
#include "tests/unit/tools/run_tool.h"

namespace bank {

class BankTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server_.running()) << "bank_server did not start";
        diag_ = diagnostics();
        ASSERT_NE(diag_, nullptr) << "the Diagnostics reference does not bind";
    }

    // The Diagnostics object, bound by its reference text.
    void *diagnostics() { return client_.bind_ior(kDiagnosticsId, server_.ior("Diagnostics")); }

    testsupport::TempDir dir_;
    BankServer server_{dir_.path()};
    Client client_;
    void *diag_ = nullptr;  // the Diagnostics object, bound by SetUp
};

// The bank server registered with omniNames, both publishing profiles.
template <Profiles profiles>
class NamedBankTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(names_.running()) << "omniNames did not start";
        ASSERT_TRUE(server_.running()) << "bank_server did not start with the naming service";
    }

    testsupport::TempDir dir_;
    NameServer names_{dir_.path(), profiles};
    BankServer server_{dir_.path(), names_.port(), profiles};
    Client client_;
};

// The line of a script that binds diag to the Diagnostics object.
const std::string kBindDiag = "bind diag IDL:Banking/Diagnostics:1.0 Diagnostics IOR ${DIAG_IOR}\n";

// orbelle-run against the bank in the test's folder, where the client linked
// the demo's descriptions, with the Diagnostics reference in DIAG_IOR.
class RunnerTest : public BankTest {
protected:
    void SetUp() override {
        BankTest::SetUp();
        setenv("DIAG_IOR", server_.ior("Diagnostics").c_str(), 1);
    }
    // orbelle-run with args in the test's folder: its exit status, its
    // standard output and error together in out.
    int run(const std::string &args, std::string &out) {
        return testsupport::run_runner("-C " + dir_.path() + " " + args, out);
    }
    // Writes a script into the test's folder; its name.
    std::string script(const std::string &name, const std::string &text) {
        std::ofstream(dir_.path() + "/" + name) << text;
        return name;
    }
    // The server's count of the requests it has served, this question
    // included (read from the failed check's message).
    long requests_served() {
        std::string out;
        run(script("count.orb",
                   kBindDiag + "params diag requests_served\ninvoke\ncheck ^requests_served < 0\n"),
            out);
        size_t at = out.find("got '");
        return at == std::string::npos ? -1 : std::stol(out.substr(at + 5));
    }
};

// One value of an echo_ operation: the record name behind the parameter's
// name (".amount", "[3]", "^length", or "" for a plain value), the texts
// sent in a and c, and the texts expected back for them.
struct Field {
    std::string name;
    std::string a_in, a_out;
    std::string c_in, c_out;
    // The result's record when it is not "^" + operation + name (records of
    // a sequence inside a struct or sequence result).
    std::string result = {};
};

// Runs operation on the Diagnostics object with a (in) and c (inout) set from
// fields, and checks that the result and c come back as a, and b (out) as the
// old c. Fields named "...^length" also give the script's sequence lengths.
// Failures name construct and the record.
void expect_echo(Client &client, void *diagnostics, const std::string &operation,
                 const std::string &construct, const std::vector<Field> &fields,
                 const std::map<std::string, std::string> &lengths = {});

// Calls _get_name on a Bank handle; the bank's name, or what went wrong.
std::string bank_name(Client &client, void *bank);

// Writes the agent stand-in's directory file with lines and points the
// stand-in at it.
void use_agents(const std::string &file, const std::string &lines);

// Sends the references of accounts 1001 and 1002 through echo_account in a
// and c, then binds the references that come back (result, b, c) and calls
// each one to show which account it is.
void expect_account_echo(Client &client, void *diagnostics, const BankServer &server);

}  // namespace bank

#endif
