#include "giop/endpoint.h"

#include <gtest/gtest.h>

#include "platform/socket.h"
#include "tests/unit/giop/giop_fixture.h"

namespace {

using giop_test::id_of;

TEST(Endpoint, IdleConnectionsAreReusedBusyAndDeadOnesPassedOver) {
    giop_test::install_keeping_host();
    peer::ScriptedPeer p;
    p.accept().accept(true).accept(true).accept(true).wait_forever();
    p.start();
    Environment env;
    client_endpoint *a = lookup("127.0.0.1", p.port(), env);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->refcount, 1u);
    client_endpoint *b = lookup("127.0.0.1", p.port(), env);  // a is busy
    ASSERT_NE(b, nullptr);
    EXPECT_NE(a, b);
    release_endpoint(a);
    EXPECT_EQ(lookup("127.0.0.1", p.port(), env), a);  // idle again: reused
    release_endpoint(a);
    release_endpoint(b);
    close_endpoint(b);
    close_endpoint(a);
    client_endpoint *c = lookup("127.0.0.1", p.port(), env);  // both dead
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(client_list, c);
    release_endpoint(c);
    client_endpoint *d =
        lookup("127.1", p.port(), env);  // another name, same address, no resolver needed
    ASSERT_NE(d, nullptr);
    EXPECT_NE(c, d);
    EXPECT_STREQ(last_connect_host, "127.1");
    EXPECT_EQ(last_connect_port, p.port());
}

TEST(Endpoint, ConnectAndNameFailuresRaiseTheirExceptions) {
    uint16_t closed = peer::closed_port();
    Environment env;
    // The exception of a lookup that finds no connection.
    auto refused = [&env](const std::string &host, uint16_t port) {
        return lookup(host.c_str(), port, env) == nullptr ? id_of(env) : "a connection";
    };
    client_endpoint *before = client_list;
    EXPECT_EQ(refused("127.0.0.1", closed), exid::COMM_FAILURE);
    EXPECT_EQ(std::string(error_text),
              "connect failure to '127.0.0.1:" + std::to_string(closed) + "'");
    EXPECT_EQ(client_list, before);

    platform::set_resolve_hook([](const char *, uint32_t *) { return 11001; });
    EXPECT_EQ(refused("9nosuch.invalid", 1), exid::OBJECT_NOT_EXIST);
    EXPECT_STREQ(error_text, "gethostbyname '9nosuch.invalid' --> No such host");

    static int attempts;
    attempts = 0;
    platform::set_resolve_hook([](const char *, uint32_t *) {
        ++attempts;
        return 11002;
    });
    EXPECT_EQ(refused("busy.invalid", 1), exid::COMM_FAILURE);
    EXPECT_EQ(attempts, 5);

    platform::set_resolve_hook([](const char *, uint32_t *) { return 11003; });
    EXPECT_EQ(refused(std::string(2000, 'h'), 1), exid::COMM_FAILURE);
    EXPECT_LT(std::string(error_text).size(), 512u);
    platform::set_resolve_hook(nullptr);
}

}  // namespace
