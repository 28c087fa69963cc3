#include "platform/socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>

#include "tests/peer/peer.h"

namespace {

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

}  // namespace
