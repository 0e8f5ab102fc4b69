// The listening socket on the loopback interface: binding, the real port, accepting a
// connection, refusals.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "LocalSockets.h"
#include "jsonrpc/Server.h"

using Json::Rpc::Server;

namespace {

// A blocking connect to 127.0.0.1:port; true when the connection was accepted.
bool Connects(unsigned short port) {
    const int fd = ConnectLocal(port);
    if (fd >= 0) {
        close(fd);
    }
    return fd >= 0;
}

}  // namespace

TEST(ServerTest, BoundAndListeningServerTakesConnectionsOnItsRealPort) {
    Server server("127.0.0.1", 0);
    EXPECT_EQ(server.GetPort(), 0);
    EXPECT_FALSE(server.Listen());
    ASSERT_TRUE(server.Bind());
    const unsigned short port = server.GetPort();
    EXPECT_NE(port, 0);
    EXPECT_TRUE(fcntl(server.GetSocket(), F_GETFL) & O_NONBLOCK);
    EXPECT_TRUE(fcntl(server.GetSocket(), F_GETFD) & FD_CLOEXEC);
    ASSERT_TRUE(server.Listen());
    EXPECT_TRUE(Connects(port));
    const int client = accept(server.GetSocket(), nullptr, nullptr);
    EXPECT_GE(client, 0);
    close(client);
    server.Close();
    EXPECT_EQ(server.GetSocket(), -1);
    EXPECT_EQ(server.GetPort(), 0);
    EXPECT_FALSE(Connects(port));
}

TEST(ServerTest, MalformedAddressFailsBindLeavingNothingOpen) {
    for (const char* address : {"", "localhost", "256.1.1.1", "127.0.0.1 ", "::1"}) {
        Server server(address, 0);
        EXPECT_FALSE(server.Bind()) << address;
        EXPECT_EQ(server.GetSocket(), -1);
    }
}

TEST(ServerTest, PortWithAnActiveListenerIsRefused) {
    Server first("127.0.0.1", 0);
    ASSERT_TRUE(first.Bind());
    ASSERT_TRUE(first.Listen());
    Server second("127.0.0.1", first.GetPort());
    EXPECT_FALSE(second.Bind());
    EXPECT_EQ(second.GetSocket(), -1);
    first.Close();
    EXPECT_TRUE(second.Bind());  // free again once the listener is gone
}
