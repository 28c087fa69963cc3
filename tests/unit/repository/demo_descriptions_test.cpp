// The demo bank's generated descriptions (demo/idl) as a script sees them:
// every operation of every interface gives its parameter list.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/support.h"
#include "trace/trace.h"

namespace {

using Names = std::vector<std::string>;

struct Operation {
    std::string repo_id;
    std::string name;
};

// The operations a description lists, with the interface's repository id
// from the header comment the generator writes.
std::vector<Operation> operations_of(const std::string &path) {
    std::ifstream in(path);
    std::string line, repo_id;
    std::vector<Operation> out;
    while (std::getline(in, line)) {
        if (line.rfind("# ", 0) == 0 && repo_id.empty() && line.find(", IDL:") != std::string::npos)
            repo_id = line.substr(line.find(", IDL:") + 2);
        std::istringstream words(line);
        std::string record, id, name;
        if (words >> record >> id >> name && record == "opr") out.push_back({repo_id, name});
    }
    return out;
}

class DemoDescriptions : public ::testing::Test {
protected:
    void SetUp() override {
        previous_ = std::filesystem::current_path();
        std::filesystem::current_path(ORBELLE_TEST_DATA "/../../demo");
        set_debug_level(5);
    }
    void TearDown() override { std::filesystem::current_path(previous_); }

    // The names of the operation's list, after asking again with every
    // sequence length the list shows set to 2, until no new length shows.
    Names expanded(const Operation &op) {
        hostkit::Plist plist;
        Names names, lengths;
        for (int round = 0; round < 8; ++round) {
            iiop_req req;
            iiop_target target;
            EXPECT_EQ(host.get_parms(req, target, op.repo_id.c_str(), op.name.c_str(), &plist),
                      IIOP_OK);
            names = hostkit::names(req.parms);
            hostkit::free_list(req.parms);
            bool more = false;
            for (const auto &n : names)
                if (n.size() > 7 && n.compare(n.size() - 7, 7, "^length") == 0 &&
                    std::find(lengths.begin(), lengths.end(), n) == lengths.end()) {
                    lengths.push_back(n);
                    plist.set(n, "2");
                    more = true;
                }
            if (!more) break;
        }
        return names;
    }

    static bool has(const Names &names, const char *name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    }

    hostkit::Host host = testsupport::linked_host();
    std::filesystem::path previous_;
};

}  // namespace

TEST_F(DemoDescriptions, EveryOperationGivesItsParameterList) {
    size_t count = 0;
    for (const char *file :
         {"Banking-Account", "Banking-SavingsAccount", "Banking-Bank", "Banking-Diagnostics"}) {
        auto ops = operations_of(std::string("idl/") + file + ".csv");
        ASSERT_FALSE(ops.empty()) << file;
        for (const auto &op : ops) {
            EXPECT_EQ(op.repo_id, std::string("IDL:Banking/") + (file + 8) + ":1.0");
            hostkit::clear_printed();
            Names names = expanded(op);
            EXPECT_FALSE(names.empty()) << file << " " << op.name;
            EXPECT_FALSE(hostkit::printed_contains("PirException"))
                << file << " " << op.name << "\n"
                << hostkit::printed_text();
            ++count;
        }
    }
    // 12 of Account, 14 of SavingsAccount with the inherited ones, 12 of
    // Bank, 28 of Diagnostics.
    EXPECT_EQ(count, 66u);
}

TEST_F(DemoDescriptions, NestedTypesReachTheScriptByComposedNames) {
    const char *bank = "IDL:Banking/Bank:1.0";
    Names transfer = expanded({bank, "transfer"});
    for (const char *n :
         {"^transfer.id", "^transfer.booked", "^transfer.message", "order.from_account",
          "order.amount.amount", "order.amount.currency", "order.reference", "route^discriminator",
          "route:mandate.creditor", "route:mandate.limit"})
        EXPECT_TRUE(has(transfer, n)) << n;
    // The route's walk stops at its eleventh member, the direct debit.
    EXPECT_FALSE(has(transfer, "route:branch_code"));

    Names open = expanded({bank, "open_account"});
    for (const char *n : {"^open_account", "owner.address.country[1]", "owner.phones^length",
                          "owner.phones[1]", "owner.risk_class", "currency", "initial_deposit"})
        EXPECT_TRUE(has(open, n)) << n;

    Names history = expanded({"IDL:Banking/SavingsAccount:1.0", "history"});
    for (const char *n : {"months", "history^length", "history[1]^length",
                          "history[1][1].amount.currency", "history[0][1].balance_after"})
        EXPECT_TRUE(has(history, n)) << n;

    Names month_end = expanded({"IDL:Banking/Account:1.0", "month_end_balances"});
    EXPECT_EQ(month_end.size(), 13u);  // year and twelve balances
    EXPECT_TRUE(has(month_end, "balances[11]"));

    Names setter = expanded({"IDL:Banking/Account:1.0", "_set_owner"});
    EXPECT_EQ(setter, (Names{"owner"}));
}
