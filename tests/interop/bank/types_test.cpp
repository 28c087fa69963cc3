// Every script type, and the structs, arrays, sequences, union and any of the
// demo IDL against omniORB, in every direction and as results.
#include <functional>

#include "tests/interop/bank/bank_fixture.h"

namespace bank {
namespace {

// Each primitive type a script can hold, sent and read back in every
// direction: echo_X returns a, hands the old c back in b and sets c to a.
TEST_F(BankTest, ScriptTypesTravelInOutAndInout) {
    for (const PrimitiveEcho &t : kPrimitiveEchoes)
        expect_echo(client_, diag_, t.operation, t.construct,
                    {{"", t.a_in, t.a_out, t.c_in, t.c_out}});
    expect_echo(client_, diag_, "echo_currency", "enum_CurrencyCode", {{"", "4", "4", "2", "2"}});
}

// The twelfth type, the object reference.
TEST_F(BankTest, ObjectReferenceAccountTravelsInOutAndInout) {
    expect_account_echo(client_, diag_, server_);
}

// The fields of one Entry struct below the record prefix p ("[0]",
// "[1][0]"), with the values of a and of c.
void add_entry(std::vector<Field> &fields, const std::string &p, int a, int c) {
    auto n = [](int v) { return std::to_string(v); };
    auto amount = [](int v) { return std::to_string(v) + ".25"; };
    auto shown = [](int v) { return std::to_string(v) + ".250000"; };
    fields.push_back({p + ".number", n(a), n(a), n(c), n(c)});
    fields.push_back(
        {p + ".date", "2024-01-" + n(a), "2024-01-" + n(a), "2023-12-" + n(c), "2023-12-" + n(c)});
    fields.push_back({p + ".text", "entry " + n(a), "entry " + n(a), "old " + n(c), "old " + n(c)});
    fields.push_back({p + ".kind", n(a % 4), n(a % 4), n(c % 4), n(c % 4)});
    fields.push_back({p + ".amount.amount", amount(a), shown(a), amount(c), shown(c)});
    fields.push_back({p + ".amount.currency", "1", "1", "3", "3"});
    fields.push_back(
        {p + ".balance_after", amount(a * 10), shown(a * 10), amount(c * 10), shown(c * 10)});
}

// A sequence of n elements, each made by element(fields, "[i]", i).
std::vector<Field> sequence(
    int n, const std::function<void(std::vector<Field> &, const std::string &, int)> &element) {
    std::string len = std::to_string(n);
    std::vector<Field> fields = {{"^length", len, len, len, len}};
    for (int i = 0; i < n; ++i) element(fields, "[" + std::to_string(i) + "]", i);
    return fields;
}

struct Echoed {
    const char *operation;
    const char *construct;
    std::vector<Field> fields;
};

TEST_F(BankTest, CompositeTypesTravelInOutAndInout) {
    std::vector<Field> month_end, history = {{"^length", "2", "2", "2", "2"}};
    for (int i = 0; i < 12; ++i) {
        std::string n = std::to_string(i);
        month_end.push_back(
            {"[" + n + "]", n + ".5", n + ".500000", "-" + n + ".75", "-" + n + ".750000"});
    }
    // Inside the result the inner sequence's length is named "[i]^length".
    history.push_back({"[0]^length", "1", "1", "1", "1", "[0]^length"});
    add_entry(history, "[0][0]", 1, 7);
    history.push_back({"[1]^length", "2", "2", "2", "2", "[1]^length"});
    add_entry(history, "[1][0]", 2, 8);
    add_entry(history, "[1][1]", 3, 9);
    const Echoed cases[] = {
        {"echo_money",
         "struct Money",
         {{".amount", "12.5", "12.500000", "-3", "-3.000000"}, {".currency", "2", "2", "0", "0"}}},
        // A nested struct holding a char array, ending with a bounded sequence
        // of strings, which inside the result is named by its member alone.
        {"echo_customer",
         "struct Customer",
         {{".name", "Alice Martin", "Alice Martin", "Bruno", "Bruno"},
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
          {".phones[1]", "", "", "x", "x", ".phones[1]"}}},
        {"echo_month_end", "array MonthEnd", month_end},
        {"echo_longs",
         "sequence<long> Longs",
         {{"^length", "3", "3", "3", "3"},
          {"[0]", "1", "1", "-1", "-1"},
          {"[1]", "2", "2", "-2", "-2"},
          {"[2]", "2147483647", "2147483647", "0", "0"}}},
        {"echo_names", "sequence<string,4> Names",
         sequence(4,
                  [](std::vector<Field> &f, const std::string &p, int i) {
                      std::string n = std::to_string(i);
                      f.push_back({p, "name " + n, "name " + n, "old " + n, "old " + n});
                  })},
        {"echo_statement", "sequence<struct Entry> Entries",
         sequence(2, [](std::vector<Field> &f, const std::string &p,
                        int i) { add_entry(f, p, i + 1, i + 11); })},
        {"echo_mini", "sequence<struct Entry,5> RecentEntries",
         sequence(5, [](std::vector<Field> &f, const std::string &p,
                        int i) { add_entry(f, p, i + 1, i + 20); })},
        {"echo_history", "sequence<sequence<struct Entry>> MonthlyEntries", history},
        // Scripts reach the eleventh member of a union, here DIRECT_DEBIT's
        // struct DebitMandate.
        {"echo_route",
         "union PaymentRoute",
         {{"^discriminator", "10", "10", "10", "10"},
          {":mandate.creditor", "Alice Martin", "Alice Martin", "Gas Co", "Gas Co"},
          {":mandate.reference", "M-77", "M-77", "G-1", "G-1"},
          {":mandate.limit", "500", "500.000000", "75.5", "75.500000"}}},
        // Values far larger than a message's first buffer, both ways.
        {"echo_string",
         "string of 5000 characters",
         {{"", std::string(2500, 'a') + "M" + std::string(2499, 'a'),
           std::string(2500, 'a') + "M" + std::string(2499, 'a'), std::string(4999, 'c'),
           std::string(4999, 'c')}}},
        {"echo_longs", "sequence<long> Longs of 1000 elements",
         sequence(1000,
                  [](std::vector<Field> &f, const std::string &p, int i) {
                      f.push_back({p, std::to_string(i * 3), std::to_string(i * 3),
                                   std::to_string(-i), std::to_string(-i)});
                  })},
    };
    for (const Echoed &c : cases) expect_echo(client_, diag_, c.operation, c.construct, c.fields);
}

// An any has no text form in scripts: the call fails before anything is
// sent, and the connection is still usable for the next call.
TEST_F(BankTest, AnyIsRefusedWithMarshalBeforeSending) {
    Call echo(client_, diag_, kDiagnosticsId, "echo_any");
    ASSERT_EQ(echo.names(), (std::vector<std::string>{"^echo_any", "a", "b", "c"}));
    echo.set("a", "1").set("c", "2");
    Outcome o = echo.invoke();
    EXPECT_EQ(std::tie(o.result, o.status, o.exception_index, o.text),
              std::make_tuple(IIOP_STATUS_SYSTEM_EXCEPTION, IIOP_STATUS_SYSTEM_EXCEPTION, 8,
                              "IDL:omg.org/CORBA/MARSHAL:1.0"))
        << "any, in";
    EXPECT_EQ(echo.get("b"), "(no value)") << "any, out";

    EXPECT_EQ(client_.result(diag_, kDiagnosticsId, "notes_count"), "0")
        << "the call after a refused any";
}

}  // namespace
}  // namespace bank
