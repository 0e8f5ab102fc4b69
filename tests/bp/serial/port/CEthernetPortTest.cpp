// An accepted TCP connection as a port, on a real connection over 127.0.0.1.

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "TcpPair.h"
#include "ThrownMessage.h"
#include "port/CEthernetPort.h"

namespace {

bool Readable(int fd) {
    pollfd watched{fd, POLLIN, 0};
    return poll(&watched, 1, 1000) == 1;
}

}  // namespace

// Reading what the client sends is covered with CServerSocket::Accept.
TEST(CEthernetPortTest, NeverBlocksAndFlushDiscardsEverythingWaitingBeyondOneChunk) {
    STcpPair pair;
    CEthernetPort port("127.0.0.1-4000", pair.ReleaseServer());
    EXPECT_EQ(port.GetPortId(), PORT_ETHERNET);
    EXPECT_EQ(port.GetName(), "127.0.0.1-4000");
    const std::string burst(3 * CCommPort::kBufferSize + 10, 'x');
    ASSERT_EQ(write(pair.client, burst.data(), burst.size()), static_cast<ssize_t>(burst.size()));
    ASSERT_TRUE(Readable(port.GetFd()));
    usleep(50 * 1000);  // let the whole burst arrive over loopback
    port.Flush();
    unsigned char buffer[16];
    EXPECT_EQ(port.ReadString(buffer, sizeof buffer), -1);  // the accepted socket was blocking
    ASSERT_EQ(write(pair.client, "NEXT\r", 5), 5);
    ASSERT_TRUE(Readable(port.GetFd()));
    EXPECT_EQ(port.ReadString(buffer, sizeof buffer), 5);
}

TEST(CEthernetPortTest, DestroyingThePortClosesTheConnection) {
    STcpPair pair;
    std::make_unique<CEthernetPort>("peer", pair.ReleaseServer()).reset();
    char byte;
    ASSERT_TRUE(Readable(pair.client));
    EXPECT_EQ(read(pair.client, &byte, 1), 0);
    EXPECT_EQ(ThrownMessage([] { CEthernetPort port("peer", -1); }), "Failed to set port peer non-blocking");
}
