#include "tests/interop/bank/bank_fixture.h"

namespace bank {

void expect_echo(Client &client, void *diagnostics, const std::string &operation,
                 const std::string &construct, const std::vector<Field> &fields,
                 const std::map<std::string, std::string> &lengths) {
    // The result's record of a field.
    auto result = [&](const Field &f) {
        return f.result.empty() ? "^" + operation + f.name : f.result;
    };
    // A length field gives the script's length of that sequence in a, b, c
    // and the result.
    std::map<std::string, std::string> all_lengths = lengths;
    for (const Field &f : fields)
        if (f.name.size() >= 7 && f.name.compare(f.name.size() - 7, 7, "^length") == 0)
            for (const std::string &name : {"a" + f.name, "b" + f.name, "c" + f.name, result(f)})
                all_lengths.emplace(name, f.a_in);
    Call call(client, diagnostics, kDiagnosticsId, operation, all_lengths);
    for (const Field &f : fields) call.set("a" + f.name, f.a_in).set("c" + f.name, f.c_in);
    Outcome o = call.invoke();
    ASSERT_EQ(o.result, 0) << construct << ": " << operation << " failed with " << o.text;
    for (const Field &f : fields)
        for (const auto &[name, expected] :
             {std::pair(result(f), f.a_out), std::pair("b" + f.name, f.c_out),
              std::pair("c" + f.name, f.a_out)})
            EXPECT_EQ(call.get(name), expected) << construct << " (record " << name << ")";
}

std::string bank_name(Client &client, void *bank) {
    return bank ? client.result(bank, kBankId, "_get_name") : "(not bound)";
}

void use_agents(const std::string &file, const std::string &lines) {
    std::ofstream(file) << lines;
    setenv("ZANTH_HOME", ORBELLE_BINARY_DIR "/zanth", 1);
    setenv("ZANTH_AGENT_DIRECTORY", file.c_str(), 1);
}

void expect_account_echo(Client &client, void *diagnostics, const BankServer &server) {
    Call echo(client, diagnostics, kDiagnosticsId, "echo_account");
    echo.set("a", server.ior("Account/1001")).set("c", server.ior("Account/1002"));
    Outcome o = echo.invoke();
    ASSERT_EQ(o.result, 0) << "interface Account reference: " << o.text;

    const std::pair<const char *, const char *> expected[] = {
        {"^echo_account", "1001"}, {"b", "1002"}, {"c", "1001"}};
    for (const auto &[record, number] : expected) {
        std::string where = std::string("interface Account reference (record ") + record + ")";
        std::string ior = echo.get(record);
        ASSERT_EQ(ior.rfind("IOR:", 0), 0u) << where << ": " << ior;
        void *account = client.bind_ior(kAccountId, ior);
        ASSERT_NE(account, nullptr) << where << ": the returned reference does not bind";
        EXPECT_EQ(client.result(account, kAccountId, "_get_number"), number) << where;
        client.release(account);
    }
}

}  // namespace bank
