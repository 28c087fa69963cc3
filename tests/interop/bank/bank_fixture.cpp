#include "tests/interop/bank/bank_fixture.h"

namespace bank {

namespace {
// Checks one record of a finished call, naming construct and direction.
void expect_value(const Call &call, const std::string &name, const std::string &expected,
                  const std::string &construct) {
    EXPECT_EQ(call.get(name), expected)
        << construct << ", " << direction(call, name) << " (record " << name << ")";
}
}  // namespace

void expect_echo(Client &client, void *diagnostics, const std::string &operation,
                 const std::string &construct, const std::vector<Field> &fields,
                 const std::map<std::string, std::string> &lengths) {
    // A length field gives the script's length of that sequence in a, b, c
    // and the result.
    std::map<std::string, std::string> all_lengths = lengths;
    for (const Field &f : fields)
        if (f.name.size() >= 7 && f.name.compare(f.name.size() - 7, 7, "^length") == 0)
            for (const std::string &name : {"a" + f.name, "b" + f.name, "c" + f.name,
                                            f.result.empty() ? "^" + operation + f.name : f.result})
                all_lengths.emplace(name, f.a_in);
    Call call(client, diagnostics, kDiagnosticsId, operation, all_lengths);
    for (const Field &f : fields) {
        for (const std::string &name : {"a" + f.name, "b" + f.name, "c" + f.name}) {
            ASSERT_TRUE(call.has(name)) << construct << ": the list has no record " << name;
        }
        call.set("a" + f.name, f.a_in);
        call.set("c" + f.name, f.c_in);
    }
    Outcome o = call.invoke();
    ASSERT_EQ(o.result, 0) << construct << ": " << operation << " failed with " << o.text;
    for (const Field &f : fields) {
        std::string result = f.result.empty() ? "^" + operation + f.name : f.result;
        expect_value(call, result, f.a_out, construct);
        expect_value(call, "b" + f.name, f.c_out, construct);
        expect_value(call, "c" + f.name, f.a_out, construct);
    }
}

void expect_account_echo(Client &client, void *diagnostics, const BankServer &server) {
    Call echo(client, diagnostics, kDiagnosticsId, "echo_account");
    echo.set("a", server.ior("Account/1001")).set("c", server.ior("Account/1002"));
    Outcome o = echo.invoke();
    ASSERT_EQ(o.result, 0) << "interface Account reference: " << o.text;

    const std::pair<const char *, const char *> expected[] = {
        {"^echo_account", "1001"}, {"b", "1002"}, {"c", "1001"}};
    for (const auto &e : expected) {
        std::string where = std::string("interface Account reference, ") +
                            direction(echo, e.first) + " (record " + e.first + ")";
        std::string ior = echo.get(e.first);
        ASSERT_EQ(ior.rfind("IOR:", 0), 0u) << where << ": " << ior;
        void *account = client.bind_ior(kAccountId, ior);
        ASSERT_NE(account, nullptr) << where << ": the returned reference does not bind";
        Call number(client, account, kAccountId, "_get_number");
        ASSERT_EQ(number.invoke().result, 0) << where << ": calling the returned reference";
        EXPECT_EQ(number.get("^_get_number"), e.second) << where;
        client.release(account);
    }
}

}  // namespace bank
