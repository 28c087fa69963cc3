// Calls on the bank: one-way calls, which the server counts, and calls
// across a restart of the server.
#include <signal.h>

#include <chrono>

#include "tests/interop/bank/bank_fixture.h"

namespace bank {
namespace {

// One-way calls return when sent; the server counts them, which two-way
// calls then read. The server may run one-way calls after a later two-way
// one, so the count is asked again for a while.
TEST_F(BankTest, OneWayNotesAreCountedByTheServer) {
    for (const char *n : {"5", "-2", "40"}) {
        Call note(client_, diag_, kDiagnosticsId, "note");
        note.set("n", n);
        Outcome o = note.invoke(IIOP_ONEWAY);
        EXPECT_EQ(o.result, 0) << "oneway note(in long " << n << ")";
        EXPECT_EQ(note.req().roundtrip, 0) << "oneway note";
    }
    std::string count_text;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    do {
        count_text = client_.result(diag_, kDiagnosticsId, "notes_count");
    } while (count_text != "3" && std::chrono::steady_clock::now() < deadline);
    EXPECT_EQ(count_text, "3") << "unsigned long, result: one-way notes counted";
    EXPECT_EQ(client_.result(diag_, kDiagnosticsId, "notes_total"), "43")
        << "long, result after three one-way notes";

    // A two-way operation sent one-way: nothing is read back.
    Call echo(client_, diag_, kDiagnosticsId, "echo_long");
    echo.set("a", "9").set("c", "8").set("b", "before");
    EXPECT_EQ(echo.invoke(IIOP_ONEWAY).result, 0);
    EXPECT_EQ(echo.get("b"), "before") << "long, out of a one-way call";
    EXPECT_EQ(echo.get("^echo_long"), "(no value)") << "long, result of a one-way call";
}

// echo_long with a, the outcome; a wrong result is reported in its text.
Outcome echo_long(Client &client, void *diag, const std::string &a, int32_t timeout_ms = 5000) {
    Call echo(client, diag, kDiagnosticsId, "echo_long");
    echo.set("a", a).set("c", "0");
    Outcome o = echo.invoke(IIOP_TWOWAY, timeout_ms);
    if (o.result == 0 && echo.get("^echo_long") != a)
        o.text = "long, result: wrong value " + echo.get("^echo_long");
    return o;
}

// A server that goes away between two calls of the same bound object. Its
// objects have fixed keys, so the restarted server knows the same references.
// It stops cleanly (omniORB says goodbye with CloseConnection, and
// the call that reads it is repeated on a new connection), dies without a
// word, or freezes and is then killed by a watchdog, leaving connections
// that look idle. The next call finds them closed or reset, connects to the
// restarted server and succeeds, whether or not the script releases and
// binds again in between; the call after it keeps that connection.
TEST_F(BankTest, ServerStoppedKilledOrFrozenAndRestartedIsReachedByTheNextCall) {
    using Clock = std::chrono::steady_clock;
    struct Case {
        const char *name;
        int stop;     // the signal that ends the server
        bool frozen;  // frozen before the call that times out
        bool rebind;  // release and bind again after the restart
    };
    const Case cases[] = {
        {"stopped cleanly", SIGTERM, false, false},
        {"killed", SIGKILL, false, false},
        {"frozen, killed", SIGKILL, true, false},
        {"frozen, killed, released and bound again", SIGKILL, true, true},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Outcome first = echo_long(client_, diag_, "1");
        ASSERT_EQ(first.result, 0) << first.text;
        if (&c == &cases[0]) {  // the first call connects
            EXPECT_EQ(std::tie(first.connect_host, first.connect_port),
                      std::make_tuple("127.0.0.1", server_.port()));
        }
        if (c.frozen) {
            server_.signal(SIGSTOP);
            auto t0 = Clock::now();
            EXPECT_EQ(echo_long(client_, diag_, "5", 1000).text,
                      "IDL:omg.org/CORBA/COMM_FAILURE:1.0");
            EXPECT_LT(Clock::now() - t0, std::chrono::milliseconds(3000));
        }
        server_.stop(c.stop);
        ASSERT_TRUE(server_.start()) << "restart on the same port";
        auto restarted = Clock::now();
        if (c.rebind) {
            EXPECT_EQ(client_.release(diag_), 0);
            diag_ = diagnostics();
            ASSERT_NE(diag_, nullptr);
        }
        // A new connection after the restart, which the next call uses again.
        Outcome after = echo_long(client_, diag_, "2");
        EXPECT_EQ(std::tie(after.result, after.text, after.connect_host),
                  std::make_tuple(0, "", "127.0.0.1"));
        EXPECT_LT(Clock::now() - restarted, std::chrono::milliseconds(2000));
        Outcome next = echo_long(client_, diag_, "3");
        EXPECT_EQ(std::tie(next.result, next.text, next.connect_host), std::make_tuple(0, "", ""));
    }
}

// Binding contacts no server; the first call finds it down and fails, and a
// call after the server has started connects.
TEST_F(BankTest, ServerDownFailsTheCallNotTheBind) {
    server_.stop(SIGTERM);
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr) << "a well-formed reference binds with its server down";
    Outcome down = echo_long(client_, diag, "1");
    // No connection was made.
    EXPECT_EQ(
        std::tie(down.result, down.exception_index, down.text, down.connect_host),
        std::make_tuple(IIOP_STATUS_SYSTEM_EXCEPTION, 4, "IDL:omg.org/CORBA/COMM_FAILURE:1.0", ""));

    ASSERT_TRUE(server_.start());
    Outcome up = echo_long(client_, diag, "2");
    EXPECT_EQ(std::tie(up.result, up.text, up.connect_host), std::make_tuple(0, "", "127.0.0.1"));
}

}  // namespace
}  // namespace bank
