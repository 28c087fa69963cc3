#include "platform/socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>

#include "tests/peer/peer.h"

namespace {

TEST(Socket, ErrnoValuesMapToWinsockNumbers) {
    EXPECT_EQ(platform::winsock_code(ECONNREFUSED), 10061);
    EXPECT_EQ(platform::winsock_code(ETIMEDOUT), 10060);
    EXPECT_EQ(platform::winsock_code(ECONNRESET), 10054);
    EXPECT_EQ(platform::winsock_code(ECONNABORTED), 10053);
    EXPECT_EQ(platform::winsock_code(EADDRINUSE), 10048);
    EXPECT_EQ(platform::winsock_code(ENOTSOCK), 10038);
    EXPECT_EQ(platform::winsock_code(EBADF), 10038);
    EXPECT_EQ(platform::winsock_code(EALREADY), 10037);
    EXPECT_EQ(platform::winsock_code(EINPROGRESS), 10036);
    EXPECT_EQ(platform::winsock_code(EHOSTDOWN), 10064);
    EXPECT_EQ(platform::winsock_code(ENOMEM), ENOMEM);
}

TEST(Socket, RefusedConnectReportsWinsockCode) {
    uint16_t port;
    {
        peer::ScriptedPeer p;  // a port that was free a moment ago
        port = p.port();
    }
    int fd = platform::tcp_socket();
    ASSERT_GE(fd, 0);
    EXPECT_EQ(platform::tcp_connect(fd, htonl(0x7f000001), port), -1);
    EXPECT_EQ(platform::last_socket_error(), 10061);
    platform::close_socket(fd);
}

TEST(Socket, SendToClosedPeerFailsWithoutSignal) {
    peer::ScriptedPeer p;
    p.accept().close();
    p.start();
    int fd = platform::tcp_socket();
    ASSERT_EQ(platform::tcp_connect(fd, htonl(0x7f000001), p.port()), 0);
    ASSERT_TRUE(p.wait());
    std::string block(65536, 'x');
    long rc = 0;
    for (int i = 0; i < 50 && rc >= 0; ++i)
        rc = platform::send_bytes(fd, block.data(), block.size());
    EXPECT_EQ(rc, -1);  // reaching here at all means no SIGPIPE
    EXPECT_EQ(platform::last_socket_error(), 10054);
    platform::close_socket(fd);
}

TEST(Socket, ReadinessWaitTimesOutAndSeesData) {
    peer::ScriptedPeer p;
    p.accept().pause(150).send("GIOP").wait_forever();
    p.start();
    int fd = platform::tcp_socket();
    ASSERT_EQ(platform::tcp_connect(fd, htonl(0x7f000001), p.port()), 0);
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(platform::wait_readable(fd, 0, 50000), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(45));
    EXPECT_GT(platform::wait_readable(fd, 2, 0), 0);
    char buf[4];
    EXPECT_EQ(platform::recv_bytes(fd, buf, 4), 4);
    platform::close_socket(fd);
}

TEST(Socket, AddressesAndNamesResolve) {
    uint32_t a = 0;
    EXPECT_TRUE(platform::parse_address("127.0.0.1", &a));
    EXPECT_EQ(a, htonl(0x7f000001));
    EXPECT_FALSE(platform::parse_address("1host", &a));
    EXPECT_EQ(platform::resolve_host("localhost", &a), 0);
    EXPECT_EQ(a, htonl(0x7f000001));
    platform::set_resolve_hook([](const char *, uint32_t *) { return 11002; });
    EXPECT_EQ(platform::resolve_host("localhost", &a), 11002);
    platform::set_resolve_hook(nullptr);
}

TEST(Socket, StartupGrantsOneOneUnlessOverridden) {
    uint16_t v = 0;
    EXPECT_EQ(platform::socket_startup(0x101, &v), 0);
    EXPECT_EQ(v, 0x101);
    platform::set_startup_override(10091, 0);
    EXPECT_EQ(platform::socket_startup(0x101, &v), 10091);
    platform::set_startup_override(0, 0x202);
    EXPECT_EQ(platform::socket_startup(0x101, &v), 0);
    EXPECT_EQ(v, 0x202);
    platform::set_startup_override(0, 0);
}

}  // namespace
