// Each primitive type a script can hold, sent to omniORB and read back in
// every direction: echo_X returns a, hands the old c back in b and sets c to a.
#include "tests/interop/bank/bank_fixture.h"

namespace bank {
namespace {

struct ScriptType {
    const char *construct;  // the IDL type, for messages
    const char *operation;
    Field field;
};

// Values at the edges of each type's range, and texts whose read-back form
// differs from what was sent (numbers in the library's print format, bytes
// in the backquote notation).
const ScriptType kScriptTypes[] = {
    {"short", "echo_short", {"", "-32768", "-32768", "32767", "32767"}},
    {"long", "echo_long", {"", "-2147483648", "-2147483648", "2147483647", "2147483647"}},
    {"unsigned_short", "echo_ushort", {"", "65535", "65535", "1", "1"}},
    {"unsigned_long", "echo_ulong", {"", "4294967295", "4294967295", "7", "7"}},
    {"float", "echo_float", {"", "1.5", "1.500000", "-0.25", "-0.250000"}},
    {"double", "echo_double", {"", "-2250.125", "-2250.125000", "1e10", "10000000000.000000"}},
    {"boolean", "echo_boolean", {"", "1", "1", "0", "0"}},
    {"char", "echo_char", {"", "Z", "Z", "y", "y"}},
    {"octet", "echo_octet", {"", "`ff`", "`ff`", "A", "A"}},
    // A backquote travels as the byte 60 and comes back in hex with its
    // printable neighbour; a line feed comes back plain.
    {"string", "echo_string", {"", "x`60`y", "`7860`y", "two`0a`lines", "two\nlines"}},
    {"enum_CurrencyCode", "echo_currency", {"", "4", "4", "2", "2"}},
};

TEST_F(BankTest, ScriptTypesTravelInOutAndInout) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    for (const ScriptType &t : kScriptTypes)
        expect_echo(client_, diag, t.operation, t.construct, {t.field});
}

// The twelfth type, the object reference.
TEST_F(BankTest, ObjectReferenceAccountTravelsInOutAndInout) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    expect_account_echo(client_, diag, server_);
}

}  // namespace
}  // namespace bank
