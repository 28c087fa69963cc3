#include "platform/socket.h"

#include <gtest/gtest.h>

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

}  // namespace
