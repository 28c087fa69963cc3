// Structs, arrays, sequences, the union and the any of the demo IDL against
// omniORB, in every direction and as results.
#include "tests/interop/bank/bank_fixture.h"

namespace bank {
namespace {

// The fields of one Entry struct below the record prefix p ("[0]",
// "[1][0]"), with the values of a and of c.
void add_entry(std::vector<Field> &fields, const std::string &p, int a, int c,
               const std::string &result = {}) {
    auto n = [](int v) { return std::to_string(v); };
    auto amount = [](int v) { return std::to_string(v) + ".25"; };
    auto shown = [](int v) { return std::to_string(v) + ".250000"; };
    auto with = [&](const std::string &name, Field f) {
        if (!result.empty()) f.result = result + p + name;
        fields.push_back(f);
    };
    with(".number", {p + ".number", n(a), n(a), n(c), n(c)});
    with(".date",
         {p + ".date", "2024-01-" + n(a), "2024-01-" + n(a), "2023-12-" + n(c), "2023-12-" + n(c)});
    with(".text", {p + ".text", "entry " + n(a), "entry " + n(a), "old " + n(c), "old " + n(c)});
    with(".kind", {p + ".kind", n(a % 4), n(a % 4), n(c % 4), n(c % 4)});
    with(".amount.amount", {p + ".amount.amount", amount(a), shown(a), amount(c), shown(c)});
    with(".amount.currency", {p + ".amount.currency", "1", "1", "3", "3"});
    with(".balance_after",
         {p + ".balance_after", amount(a * 10), shown(a * 10), amount(c * 10), shown(c * 10)});
}

TEST_F(BankTest, StructMoneyTravelsInOutAndInout) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    expect_echo(
        client_, diag, "echo_money", "struct Money",
        {{".amount", "12.5", "12.500000", "-3", "-3.000000"}, {".currency", "2", "2", "0", "0"}});
}

// Customer nests a struct, which holds a char array, and ends with a bounded
// sequence of strings; the sequence inside a struct result is named by its
// member alone.
TEST_F(BankTest, NestedStructCustomerTravelsInOutAndInout) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    std::vector<Field> fields = {
        {".name", "Alice Martin", "Alice Martin", "Bruno", "Bruno"},
        {".address.street", "Quai 1", "Quai 1", "Main St", "Main St"},
        {".address.city", "Geneva", "Geneva", "Leeds", "Leeds"},
        {".address.postcode", "1201", "1201", "LS1", "LS1"},
        {".address.country[0]", "C", "C", "G", "G"},
        {".address.country[1]", "H", "H", "B", "B"},
        {".birth_year", "1980", "1980", "65535", "65535"},
        {".vip", "1", "1", "0", "0"},
        {".risk_class", "`01`", "`01`", "`00`", "`00`"},
        {".phones^length", "2", "2", "2", "2", ".phones^length"},
        {".phones[0]", "+41 22", "+41 22", "0113", "0113", ".phones[0]"},
        {".phones[1]", "", "", "x", "x", ".phones[1]"},
    };
    expect_echo(client_, diag, "echo_customer", "struct Customer", fields,
                {{"a.phones^length", "2"},
                 {"b.phones^length", "2"},
                 {"c.phones^length", "2"},
                 {".phones^length", "2"}});
}

TEST_F(BankTest, ArrayMonthEndTravelsInOutAndInout) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    std::vector<Field> fields;
    for (int i = 0; i < 12; ++i) {
        std::string n = std::to_string(i);
        fields.push_back(
            {"[" + n + "]", n + ".5", n + ".500000", "-" + n + ".75", "-" + n + ".750000"});
    }
    expect_echo(client_, diag, "echo_month_end", "array MonthEnd", fields);
}

TEST_F(BankTest, UnboundedSequenceLongsTravelsInOutAndInout) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    expect_echo(
        client_, diag, "echo_longs", "sequence<long> Longs",
        {{"^length", "3", "3", "3", "3"},
         {"[0]", "1", "1", "-1", "-1"},
         {"[1]", "2", "2", "-2", "-2"},
         {"[2]", "2147483647", "2147483647", "0", "0"}},
        {{"a^length", "3"}, {"b^length", "3"}, {"c^length", "3"}, {"^echo_longs^length", "3"}});
}

// The script's lengths and the wire's need not agree: elements the wire
// lacks keep their text, and an empty sequence ends the reading.
TEST_F(BankTest, SequenceLengthsThatDifferFromTheScriptsAreReported) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    {
        // c goes out with 1 element, so b comes back with 1 where the
        // script prepared 2.
        Call call(
            client_, diag, kDiagnosticsId, "echo_longs",
            {{"a^length", "1"}, {"b^length", "2"}, {"c^length", "1"}, {"^echo_longs^length", "1"}});
        call.set("a[0]", "5").set("c[0]", "6").set("b[1]", "untouched");
        ASSERT_EQ(call.invoke().result, 0) << "sequence<long> Longs: " << call.get("b^length");
        expect_value(call, "b^length", "1", "sequence<long> Longs shorter on the wire");
        expect_value(call, "b[0]", "6", "sequence<long> Longs shorter on the wire");
        expect_value(call, "b[1]", "untouched", "sequence<long> Longs shorter on the wire");
        expect_value(call, "c[0]", "5", "sequence<long> Longs shorter on the wire");
    }
    {
        // An empty c: b comes back empty where the script prepared one
        // element, and nothing behind it is read.
        Call call(
            client_, diag, kDiagnosticsId, "echo_longs",
            {{"a^length", "1"}, {"b^length", "1"}, {"c^length", "0"}, {"^echo_longs^length", "1"}});
        call.set("a[0]", "5").set("b[0]", "kept").set("c^length", "0");
        ASSERT_EQ(call.invoke().result, 0);
        expect_value(call, "^echo_longs[0]", "5", "sequence<long> Longs empty on the wire");
        expect_value(call, "b^length", "0", "sequence<long> Longs empty on the wire");
        expect_value(call, "b[0]", "kept", "sequence<long> Longs empty on the wire");
        expect_value(call, "c^length", "0", "sequence<long> Longs empty on the wire");
    }
}

TEST_F(BankTest, BoundedSequenceNamesTravelsInOutAndInout) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    std::vector<Field> fields = {{"^length", "4", "4", "4", "4"}};
    for (int i = 0; i < 4; ++i) {
        std::string n = std::to_string(i);
        fields.push_back({"[" + n + "]", "name " + n, "name " + n, "old " + n, "old " + n});
    }
    expect_echo(
        client_, diag, "echo_names", "sequence<string,4> Names", fields,
        {{"a^length", "4"}, {"b^length", "4"}, {"c^length", "4"}, {"^echo_names^length", "4"}});
}

TEST_F(BankTest, SequenceOfStructsStatementTravelsInOutAndInout) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    std::vector<Field> fields = {{"^length", "2", "2", "2", "2"}};
    add_entry(fields, "[0]", 1, 11);
    add_entry(fields, "[1]", 2, 12);
    expect_echo(
        client_, diag, "echo_statement", "sequence<struct Entry> Entries", fields,
        {{"a^length", "2"}, {"b^length", "2"}, {"c^length", "2"}, {"^echo_statement^length", "2"}});
}

TEST_F(BankTest, BoundedSequenceOfStructsMiniTravelsInOutAndInout) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    std::vector<Field> fields = {{"^length", "5", "5", "5", "5"}};
    for (int i = 0; i < 5; ++i) add_entry(fields, "[" + std::to_string(i) + "]", i + 1, i + 20);
    expect_echo(
        client_, diag, "echo_mini", "sequence<struct Entry,5> RecentEntries", fields,
        {{"a^length", "5"}, {"b^length", "5"}, {"c^length", "5"}, {"^echo_mini^length", "5"}});
}

// A sequence of sequences of structs; inside the result the inner
// sequence's length is named "[i]^length".
TEST_F(BankTest, NestedSequenceHistoryTravelsInOutAndInout) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    std::vector<Field> fields = {{"^length", "2", "2", "2", "2"},
                                 {"[0]^length", "1", "1", "1", "1", "[0]^length"}};
    add_entry(fields, "[0][0]", 1, 7);
    fields.push_back({"[1]^length", "2", "2", "2", "2", "[1]^length"});
    add_entry(fields, "[1][0]", 2, 8);
    add_entry(fields, "[1][1]", 3, 9);
    expect_echo(client_, diag, "echo_history", "sequence<sequence<struct Entry>> MonthlyEntries",
                fields,
                {{"a^length", "2"},
                 {"a[0]^length", "1"},
                 {"a[1]^length", "2"},
                 {"b^length", "2"},
                 {"b[0]^length", "1"},
                 {"b[1]^length", "2"},
                 {"c^length", "2"},
                 {"c[0]^length", "1"},
                 {"c[1]^length", "2"},
                 {"^echo_history^length", "2"},
                 {"[0]^length", "1"},
                 {"[1]^length", "2"}});
}

// Scripts reach the eleventh member of a union, here DIRECT_DEBIT's
// struct DebitMandate.
TEST_F(BankTest, UnionPaymentRouteMemberTenTravelsInOutAndInout) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    expect_echo(client_, diag, "echo_route", "union PaymentRoute",
                {{"^discriminator", "10", "10", "10", "10"},
                 {":mandate.creditor", "Alice Martin", "Alice Martin", "Gas Co", "Gas Co"},
                 {":mandate.reference", "M-77", "M-77", "G-1", "G-1"},
                 {":mandate.limit", "500", "500.000000", "75.5", "75.500000"}});
}

// An any has no text form in scripts: the call fails before anything is
// sent, and the connection is still usable for the next call.
TEST_F(BankTest, AnyIsRefusedWithMarshalBeforeSending) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    Call echo(client_, diag, kDiagnosticsId, "echo_any");
    ASSERT_EQ(echo.names(), (std::vector<std::string>{"^echo_any", "a", "b", "c"}));
    echo.set("a", "1").set("c", "2");
    Outcome o = echo.invoke();
    EXPECT_EQ(o.result, IIOP_STATUS_SYSTEM_EXCEPTION) << "any, in";
    EXPECT_EQ(o.status, IIOP_STATUS_SYSTEM_EXCEPTION) << "any, in";
    EXPECT_EQ(o.exception_index, 8) << "any, in";
    EXPECT_EQ(o.text, "IDL:omg.org/CORBA/MARSHAL:1.0") << "any, in";
    EXPECT_EQ(echo.get("b"), "(no value)") << "any, out";

    Call count(client_, diag, kDiagnosticsId, "notes_count");
    Outcome next = count.invoke();
    EXPECT_EQ(next.result, 0) << "the call after a refused any: " << next.text;
    EXPECT_EQ(count.get("^notes_count"), "0");
}

// Sequences as results of the bank's own operations, and the struct and
// array results around them.
TEST_F(BankTest, AccountResultsSequencesStructsAndArrays) {
    void *acct = client_.bind_ior(kAccountId, server_.ior("Account/1001"));
    ASSERT_NE(acct, nullptr);

    Call statement(client_, acct, kAccountId, "statement", {{"^statement^length", "3"}});
    statement.set("max_entries", "2");
    ASSERT_EQ(statement.invoke().result, 0) << "sequence<struct Entry> Entries, result";
    expect_value(statement, "^statement^length", "2", "sequence<struct Entry> Entries");
    expect_value(statement, "^statement[0].text", "Rent", "sequence<struct Entry> Entries");
    expect_value(statement, "^statement[1].kind", "3", "sequence<struct Entry> Entries");
    expect_value(statement, "^statement[1].amount.amount", "1.250000",
                 "sequence<struct Entry> Entries");
    expect_value(statement, "^statement[2].text", "(no value)", "sequence<struct Entry> Entries");

    Call mini(client_, acct, kAccountId, "mini_statement", {{"^mini_statement^length", "5"}});
    ASSERT_EQ(mini.invoke().result, 0) << "sequence<struct Entry,5> RecentEntries, result";
    expect_value(mini, "^mini_statement^length", "5", "sequence<struct Entry,5> RecentEntries");
    expect_value(mini, "^mini_statement[4].balance_after", "5406.850000",
                 "sequence<struct Entry,5> RecentEntries");

    Call months(client_, acct, kAccountId, "month_end_balances");
    months.set("year", "2024");
    ASSERT_EQ(months.invoke().result, 0) << "array MonthEnd, out";
    expect_value(months, "balances[0]", "5200.000000", "array MonthEnd");
    expect_value(months, "balances[2]", "5406.850000", "array MonthEnd");
    expect_value(months, "balances[11]", "5406.850000", "array MonthEnd");

    Call history(client_, acct, kAccountId, "history",
                 {{"history^length", "2"}, {"history[0]^length", "4"}, {"history[1]^length", "2"}});
    history.set("months", "2");
    const char *nested = "sequence<sequence<struct Entry>> MonthlyEntries";
    ASSERT_EQ(history.invoke().result, 0) << nested << ", out";
    expect_value(history, "history^length", "2", nested);
    expect_value(history, "history[0]^length", "4", nested);
    expect_value(history, "history[0][3].text", "Salary", nested);
    expect_value(history, "history[1]^length", "2", nested);
    expect_value(history, "history[1][1].date", "2024-03-31", nested);

    Call balance(client_, acct, kAccountId, "_get_balance");
    ASSERT_EQ(balance.invoke().result, 0) << "struct Money, result";
    expect_value(balance, "^_get_balance.amount", "5406.850000", "struct Money");
    expect_value(balance, "^_get_balance.currency", "0", "struct Money");
}

}  // namespace
}  // namespace bank

namespace bank {
namespace {

// Values far larger than a message's first buffer, both ways.
TEST_F(BankTest, LargeStringsAndSequencesTravelInOutAndInout) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    std::string big_a(5000, 'a'), big_c(4999, 'c');
    big_a[2500] = 'M';
    expect_echo(client_, diag, "echo_string", "string of 5000 characters",
                {{"", big_a, big_a, big_c, big_c}});

    const int n = 1000;
    std::string len = std::to_string(n);
    std::vector<Field> fields = {{"^length", len, len, len, len}};
    for (int i = 0; i < n; ++i) {
        std::string idx = "[" + std::to_string(i) + "]";
        fields.push_back({idx, std::to_string(i * 3), std::to_string(i * 3), std::to_string(-i),
                          std::to_string(-i)});
    }
    expect_echo(
        client_, diag, "echo_longs", "sequence<long> Longs of 1000 elements", fields,
        {{"a^length", len}, {"b^length", len}, {"c^length", len}, {"^echo_longs^length", len}});
}

}  // namespace
}  // namespace bank
