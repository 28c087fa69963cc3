#include "platform/socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "tests/peer/peer.h"

namespace {

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

}  // namespace
