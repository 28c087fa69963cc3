#include "platform/socket.h"

#include <gtest/gtest.h>

#include <chrono>

#include "tests/peer/peer.h"

namespace {

TEST(Socket, SendToClosedPeerFailsWithoutSignal) {
    peer::ScriptedPeer p;
    p.accept().close();
    p.start();
    int fd = platform::tcp_socket();
    uint32_t loopback = 0;
    ASSERT_TRUE(platform::parse_address("127.0.0.1", &loopback));
    ASSERT_EQ(platform::tcp_connect(fd, loopback, p.port()), 0);
    ASSERT_TRUE(p.wait());
    std::string block(65536, 'x');
    long rc = 0;
    for (int i = 0; i < 50 && rc >= 0; ++i)
        rc = platform::send_bytes(fd, block.data(), block.size());
    EXPECT_EQ(rc, -1);  // reaching here at all means no SIGPIPE
    EXPECT_EQ(platform::last_socket_error(), 10054);
    platform::close_socket(fd);
}

int connected(const peer::ScriptedPeer &p) {
    int fd = platform::tcp_socket();
    uint32_t loopback = 0;
    EXPECT_TRUE(platform::parse_address("127.0.0.1", &loopback));
    EXPECT_EQ(platform::tcp_connect(fd, loopback, p.port()), 0);
    return fd;
}

long elapsed_ms(std::chrono::steady_clock::time_point since) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                 std::chrono::steady_clock::now() - since)
                                 .count());
}

TEST(Socket, ReceiveWithinItsTimeOut) {
    // Bytes, then silence past a short time-out, then a longer time-out that
    // the next bytes beat, then the peer's close.
    peer::ScriptedPeer p, q;
    p.accept().send("abc").pause(400).send("de").pause(200).close();
    p.start();
    int fd = connected(p);
    char buf[16];
    EXPECT_EQ(platform::recv_within(fd, buf, sizeof buf, 2000), 3);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(platform::recv_within(fd, buf, sizeof buf, 100), platform::recv_timed_out);
    long waited = elapsed_ms(start);
    EXPECT_GE(waited, 90);
    EXPECT_LT(waited, 350);
    // A longer time-out than the last one on this socket takes effect.
    EXPECT_EQ(platform::recv_within(fd, buf, sizeof buf, 3000), 2);
    EXPECT_EQ(platform::recv_within(fd, buf, sizeof buf, 3000), 0);
    EXPECT_EQ(platform::recv_within(fd, buf, sizeof buf, 100), 0);
    ASSERT_TRUE(p.wait());
    platform::close_socket(fd);

    // A new socket on the same descriptor number has no time-out of its own
    // yet: the one asked for is set on it, not taken as set already (which
    // would block for ever).
    q.accept().wait_forever();
    q.start();
    int again = connected(q);
#ifndef _WIN32
    EXPECT_EQ(again, fd);  // POSIX hands out the lowest free number
#endif
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(platform::recv_within(again, buf, sizeof buf, 100), platform::recv_timed_out);
    EXPECT_LT(elapsed_ms(start), 350);
    platform::close_socket(again);
}

}  // namespace
