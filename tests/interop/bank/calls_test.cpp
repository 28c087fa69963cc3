// One-way calls against omniORB: the server counts what it was sent.
#include <chrono>

#include "tests/interop/bank/bank_fixture.h"

namespace bank {
namespace {

// One-way calls return when sent; the server counts them, which two-way
// calls then read. The server may run one-way calls after a later two-way
// one, so the count is asked again for a while.
TEST_F(BankTest, OneWayNotesAreCountedByTheServer) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    for (const char *n : {"5", "-2", "40"}) {
        Call note(client_, diag, kDiagnosticsId, "note");
        note.set("n", n);
        Outcome o = note.invoke(IIOP_ONEWAY);
        EXPECT_EQ(o.result, 0) << "oneway note(in long " << n << ")";
        EXPECT_EQ(note.req().roundtrip, 0) << "oneway note";
    }
    std::string count_text;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    do {
        count_text = client_.result(diag, kDiagnosticsId, "notes_count");
    } while (count_text != "3" && std::chrono::steady_clock::now() < deadline);
    EXPECT_EQ(count_text, "3") << "unsigned long, result: one-way notes counted";
    EXPECT_EQ(client_.result(diag, kDiagnosticsId, "notes_total"), "43")
        << "long, result after three one-way notes";

    // A two-way operation sent one-way: nothing is read back.
    Call echo(client_, diag, kDiagnosticsId, "echo_long");
    echo.set("a", "9").set("c", "8").set("b", "before");
    EXPECT_EQ(echo.invoke(IIOP_ONEWAY).result, 0);
    EXPECT_EQ(echo.get("b"), "before") << "long, out of a one-way call";
    EXPECT_EQ(echo.get("^echo_long"), "(no value)") << "long, result of a one-way call";
}

}  // namespace
}  // namespace bank
