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

// omniORB says goodbye with CloseConnection when it stops, and the call that
// reads it is repeated on a new connection.
TEST_F(BankTest, ServerRestartedCleanlyIsReconnectedByTheNextCall) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    Outcome first = echo_long(client_, diag, "1");
    ASSERT_EQ(first.result, 0) << first.text;
    EXPECT_EQ(first.connect_host, "127.0.0.1") << "the first call connects";
    EXPECT_EQ(first.connect_port, server_.port());

    server_.stop(SIGTERM);
    ASSERT_TRUE(server_.start()) << "restart on the same port";
    Outcome second = echo_long(client_, diag, "2");
    EXPECT_EQ(second.result, 0) << second.text;
    EXPECT_EQ(second.text, "");
    EXPECT_EQ(second.connect_host, "127.0.0.1") << "the call after the restart connects anew";
    Outcome third = echo_long(client_, diag, "3");
    EXPECT_EQ(third.result, 0) << third.text;
    EXPECT_EQ(third.connect_host, "") << "and the next one uses that connection";
}

// A server that dies without a word, or freezes and is then killed by a
// watchdog, leaves connections that look idle. The next call finds them
// closed or reset, connects to the restarted server and succeeds, whether
// or not the script releases and binds again in between.
TEST_F(BankTest, ServerKilledOrFrozenAndRestartedIsReachedByTheNextCall) {
    using Clock = std::chrono::steady_clock;
    struct Case {
        const char *name;
        bool frozen;  // frozen before the call that times out
        bool rebind;  // release and bind again after the restart
    };
    const Case cases[] = {
        {"killed", false, false},
        {"frozen, killed", true, false},
        {"frozen, killed, released and bound again", true, true},
    };
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(echo_long(client_, diag, "1").result, 0);
        if (c.frozen) {
            server_.signal(SIGSTOP);
            Call stuck(client_, diag, kDiagnosticsId, "echo_long");
            stuck.set("a", "5").set("c", "0");
            auto t0 = Clock::now();
            Outcome o = stuck.invoke(IIOP_TWOWAY, 1000);
            EXPECT_EQ(o.text, "IDL:omg.org/CORBA/COMM_FAILURE:1.0");
            EXPECT_LT(Clock::now() - t0, std::chrono::milliseconds(3000));
        }
        server_.stop(SIGKILL);
        ASSERT_TRUE(server_.start()) << "restart on the same port";
        auto restarted = Clock::now();
        if (c.rebind) {
            EXPECT_EQ(client_.release(diag), 0);
            diag = diagnostics();
            ASSERT_NE(diag, nullptr);
        }
        Outcome after = echo_long(client_, diag, "2");
        EXPECT_EQ(after.result, 0) << after.text;
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
    EXPECT_EQ(down.result, IIOP_STATUS_SYSTEM_EXCEPTION);
    EXPECT_EQ(down.exception_index, 4);
    EXPECT_EQ(down.text, "IDL:omg.org/CORBA/COMM_FAILURE:1.0");
    EXPECT_EQ(down.connect_host, "") << "no connection was made";

    ASSERT_TRUE(server_.start());
    Outcome up = echo_long(client_, diag, "2");
    EXPECT_EQ(up.result, 0) << up.text;
    EXPECT_EQ(up.connect_host, "127.0.0.1");
}

}  // namespace
}  // namespace bank
