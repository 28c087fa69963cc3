// Each primitive type a script can hold, sent to omniORB and read back in
// every direction: echo_X returns a, hands the old c back in b and sets c to a.
#include "tests/interop/bank/bank_fixture.h"

namespace bank {
namespace {

TEST_F(BankTest, ScriptTypesTravelInOutAndInout) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    for (const PrimitiveEcho &t : kPrimitiveEchoes)
        expect_echo(client_, diag, t.operation, t.construct,
                    {{"", t.a_in, t.a_out, t.c_in, t.c_out}});
    expect_echo(client_, diag, "echo_currency", "enum_CurrencyCode", {{"", "4", "4", "2", "2"}});
}

// The twelfth type, the object reference.
TEST_F(BankTest, ObjectReferenceAccountTravelsInOutAndInout) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    expect_account_echo(client_, diag, server_);
}

}  // namespace
}  // namespace bank
