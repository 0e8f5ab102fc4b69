// The listening socket on real TCP over 127.0.0.1, with the keep-alive settings written
// under a temporary runtime root.

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <string>

#include "TcpPair.h"
#include "TempRoot.h"
#include "ThrownMessage.h"
#include "port/CEthernetPort.h"
#include "port/CServerSocket.h"

namespace {

const char* const kKeepAlive[] = {"/proc/sys/net/ipv4/tcp_keepalive_time", "/proc/sys/net/ipv4/tcp_keepalive_intvl",
                                  "/proc/sys/net/ipv4/tcp_keepalive_probes"};

}  // namespace

TEST(CServerSocketTest, InitWritesTheKeepAliveSettingsEachTimeAndMissingFilesDoNotStopTheServer) {
    CTempRoot root;
    CServerSocket bare(0, false);
    ASSERT_GE(bare.Init(), 0);
    ASSERT_EQ(bare.GetKeepAliveWarnings().size(), 3u);
    EXPECT_NE(bare.GetKeepAliveWarnings()[0].find(root.Path(kKeepAlive[0])), std::string::npos);
    EXPECT_NE(access(root.Path("/proc").c_str(), F_OK), 0);  // nothing created
    const int client = ConnectLocal(bare.GetPort());
    EXPECT_GE(client, 0);
    close(client);

    for (const char* file : kKeepAlive) {
        root.WriteFile(file, "7200\n");
    }
    CServerSocket server(0, true);
    server.Init();
    EXPECT_TRUE(server.GetKeepAliveWarnings().empty());
    root.WriteFile(kKeepAlive[2], "9");
    EXPECT_EQ(server.Init(), server.GetFd());
    EXPECT_EQ(CTempRoot::ReadFile(root.Path(kKeepAlive[0])), "120");
    EXPECT_EQ(CTempRoot::ReadFile(root.Path(kKeepAlive[1])), "30");
    EXPECT_EQ(CTempRoot::ReadFile(root.Path(kKeepAlive[2])), "3");
}

TEST(CServerSocketTest, AcceptNamesThePeerAndHandsOverAWorkingConnection) {
    CTempRoot root;
    CServerSocket server(0, true);
    std::string peerName;
    EXPECT_EQ(ThrownMessage([&] { server.Accept(peerName); }), "Failed to accept incoming connection");
    server.Init();
    EXPECT_EQ(ThrownMessage([&] { server.Accept(peerName); }), "Failed to accept incoming connection");

    const int client = ConnectLocal(server.GetPort());
    pollfd watched{server.GetFd(), POLLIN, 0};
    ASSERT_EQ(poll(&watched, 1, 1000), 1);
    const int fd = server.Accept(peerName);
    CEthernetPort port(peerName, fd);
    sockaddr_in local{};
    socklen_t length = sizeof local;
    getsockname(client, reinterpret_cast<sockaddr*>(&local), &length);
    EXPECT_EQ(peerName, "127.0.0.1-" + std::to_string(ntohs(local.sin_port)));
    ASSERT_EQ(write(client, "VOL?\r", 5), 5);
    unsigned char record[16];
    EXPECT_EQ(port.BufferedReadComplete(record, sizeof record, '\r', 1000), 5);
    close(client);
}

TEST(CServerSocketTest, TakenPortFailsBindingAndLeavesNothingOpen) {
    CTempRoot root;
    unsigned short port = 0;
    {
        CServerSocket first(0, true);
        first.Init();
        port = first.GetPort();
        CServerSocket second(port, true);
        EXPECT_EQ(ThrownMessage([&] { second.Init(); }), "Failed binding");
        EXPECT_EQ(second.GetFd(), -1);
    }
    EXPECT_EQ(ConnectLocal(port), -1);  // the first closed its socket when destroyed
}
