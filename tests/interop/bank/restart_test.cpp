// A server that goes away between two calls of the same bound object. Its
// objects have fixed keys, so the restarted server knows the same references.
#include <signal.h>

#include <chrono>

#include "tests/interop/bank/bank_fixture.h"

namespace bank {
namespace {

// echo_long with a, the outcome; a wrong result is reported in its text.
Outcome echo_long(Client &client, void *diag, const std::string &a) {
    Call echo(client, diag, kDiagnosticsId, "echo_long");
    echo.set("a", a).set("c", "0");
    Outcome o = echo.invoke();
    if (o.result == 0 && echo.get("^echo_long") != a)
        o.text = "long, result: wrong value " + echo.get("^echo_long");
    return o;
}

// The server stops cleanly (omniORB says goodbye with CloseConnection, and
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
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Outcome first = echo_long(client_, diag, "1");
        ASSERT_EQ(first.result, 0) << first.text;
        if (&c == &cases[0]) {
            EXPECT_EQ(first.connect_host, "127.0.0.1") << "the first call connects";
            EXPECT_EQ(first.connect_port, server_.port());
        }
        if (c.frozen) {
            server_.signal(SIGSTOP);
            Call stuck(client_, diag, kDiagnosticsId, "echo_long");
            stuck.set("a", "5").set("c", "0");
            auto t0 = Clock::now();
            Outcome o = stuck.invoke(IIOP_TWOWAY, 1000);
            EXPECT_EQ(o.text, "IDL:omg.org/CORBA/COMM_FAILURE:1.0");
            EXPECT_LT(Clock::now() - t0, std::chrono::milliseconds(3000));
        }
        server_.stop(c.stop);
        ASSERT_TRUE(server_.start()) << "restart on the same port";
        auto restarted = Clock::now();
        if (c.rebind) {
            EXPECT_EQ(client_.release(diag), 0);
            diag = diagnostics();
            ASSERT_NE(diag, nullptr);
        }
        Outcome after = echo_long(client_, diag, "2");
        EXPECT_EQ(after.result, 0) << after.text;
        EXPECT_EQ(after.text, "");
        EXPECT_LT(Clock::now() - restarted, std::chrono::milliseconds(2000));
        EXPECT_EQ(after.connect_host, "127.0.0.1") << "a new connection after the restart";
        Outcome next = echo_long(client_, diag, "3");
        EXPECT_EQ(next.result, 0) << next.text;
        EXPECT_EQ(next.connect_host, "") << "which the next call uses again";
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
    EXPECT_EQ(up.result, 0) << up.text;
    EXPECT_EQ(up.connect_host, "127.0.0.1");
}

}  // namespace
}  // namespace bank
