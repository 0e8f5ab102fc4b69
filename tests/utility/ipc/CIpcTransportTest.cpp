// Unix-domain datagram transport on real sockets under a temporary runtime root:
// socket file lifetime, server and client exchanges, reply matching by sequence,
// incomplete datagrams, draining in batches, fanning out in batches, time-outs and
// transport errors.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "BufferedLog.h"
#include "CException.h"
#include "TempRoot.h"
#include "ThrownMessage.h"
#include "ipc/CDomainSocket.h"
#include "ipc/CIpcClient.h"
#include "ipc/CIpcOutbox.h"
#include "ipc/CIpcServer.h"

namespace {

bool Exists(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

std::vector<unsigned char> Wire(CIpcMessage& message) {
    unsigned char* data = nullptr;
    const int size = message.SerializeMessage(data);
    return std::vector<unsigned char>(data, data + size);
}

void Send(CDomainSocket& from, const std::vector<unsigned char>& bytes, const std::string& to) {
    from.SendTo(bytes.data(), static_cast<int>(bytes.size()), to.c_str(), 0);
}

// Sends bytes with a descriptor attached (SCM_RIGHTS), as any local process may.
void SendWithDescriptor(CDomainSocket& from, const std::vector<unsigned char>& bytes, const std::string& to, int fd) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    to.copy(address.sun_path, sizeof address.sun_path - 1);
    iovec data{const_cast<unsigned char*>(bytes.data()), bytes.size()};
    alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof fd)] = {};
    msghdr header{};
    header.msg_name = &address;
    header.msg_namelen = sizeof address;
    header.msg_iov = &data;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    cmsghdr* part = CMSG_FIRSTHDR(&header);
    part->cmsg_level = SOL_SOCKET;
    part->cmsg_type = SCM_RIGHTS;
    part->cmsg_len = CMSG_LEN(sizeof fd);
    memcpy(CMSG_DATA(part), &fd, sizeof fd);
    ASSERT_EQ(sendmsg(from.GetDescriptor(), &header, 0), static_cast<ssize_t>(bytes.size()));
}

// True when the pipe read at readEnd has no writer left: the write end sent along with
// a datagram was not kept by the receiver.
bool WriterGone(int readEnd) {
    pollfd reader{readEnd, POLLIN, 0};
    return poll(&reader, 1, 0) == 1 && (reader.revents & POLLHUP);
}

class CIpcTransport : public ::testing::Test {
protected:
    static CIpcMessage Command() {
        CIpcMessage message;
        message.SetCode("BRI");
        return message;
    }

    static std::string ValueOf(const CIpcMessage& message) {
        std::string value;
        message.GetArg(0, value);
        return value;
    }

    CIpcTransport()
        : serverPath(root.MakeDir("/var/run/ui") + "/main_controller.socket"),
          clientPath(root.Path("/var/run/ui/client.0")) {}

    // Plays the server with a bare socket, so the test decides exactly what comes back.
    CIpcMessage ReceiveOnRawServer(CDomainSocket& server) {
        unsigned char buffer[4096];
        CDomainSocket from;
        const int size = server.RecvFrom(buffer, sizeof buffer, 0, &from);
        CIpcMessage message;
        EXPECT_TRUE(message.DeserializeMessage(buffer, static_cast<unsigned>(size), from.GetPath().c_str()));
        return message;
    }

    void SendReply(CDomainSocket& server, const CIpcMessage& request, uint32_t sequence, const std::string& value) {
        CIpcMessage reply(request);
        reply.MakeReply(0);
        reply.SetSequence(sequence);
        reply.AddArg(0, value);
        Send(server, Wire(reply), request.GetReplyAddress());
    }

    // One turn of a server's loop that does not wait: the ready count.
    static int Turn(CPollSet& poll, CDomainSocket& server, CIpcOutbox& outbox) {
        poll.Clear();
        poll.Add(server.GetDescriptor(), true, outbox.IsWaitingForOwnRoom());
        outbox.AddDescriptors(poll);
        const int ready = poll.Wait(0);
        outbox.ProcessReady(poll);
        return ready;
    }

    // Fills the receiver's queue from a socket of its own; the datagram count.
    static int Fill(const CDomainSocket& receiver) {
        CDomainSocket filler;
        filler.Create("");
        filler.Connect(receiver.GetPathCStr());
        const unsigned char junk = 0;
        int filled = 0;
        while (send(filler.GetDescriptor(), &junk, 1, MSG_DONTWAIT) == 1) {
            ++filled;
        }
        return filled;
    }

    CTempRoot root;
    std::string serverPath;
    std::string clientPath;
};

}  // namespace

TEST_F(CIpcTransport, SocketFileLivesFromCreateUntilDestruction) {
    root.WriteFile("/var/run/ui/main_controller.socket", "stale");
    {
        CDomainSocket socket(serverPath.c_str());
        EXPECT_TRUE(Exists(serverPath));
        EXPECT_EQ(socket.GetPath(), serverPath);
        CDomainSocket moved(std::move(socket));
        EXPECT_EQ(socket.GetDescriptor(), -1);
        EXPECT_TRUE(Exists(serverPath));  // the moved-from object no longer owns it
    }
    EXPECT_FALSE(Exists(serverPath));
}

TEST_F(CIpcTransport, SocketErrorsNameThePaths) {
    const std::string missingDir = root.Path("/nowhere/x.socket");
    EXPECT_EQ(ThrownMessage([&] { CDomainSocket s(missingDir.c_str()); }), "Socket bind failed on " + missingDir);
    const std::string tooLong = root.Path("/") + std::string(120, 'a');
    EXPECT_EQ(ThrownMessage([&] { CDomainSocket s(tooLong.c_str()); }), "Socket path too long: " + tooLong);

    CDomainSocket unbound;
    unsigned char byte = 0;
    EXPECT_EQ(ThrownMessage([&] { unbound.RecvFrom(&byte, 1, 0, nullptr); }), "Uninitialized socket");
    EXPECT_EQ(ThrownMessage([&] { unbound.SendTo(&byte, 1, serverPath.c_str(), 0); }), "Uninitialized socket");

    CDomainSocket sender(clientPath.c_str());
    try {
        sender.SendTo(&byte, 1, serverPath.c_str(), 0);
        FAIL() << "sending to a missing socket must throw";
    } catch (const CException& e) {
        EXPECT_EQ(e.GetMessage(), "Socket sendto failed from " + clientPath + " to " + serverPath);
        EXPECT_TRUE(e.HasErrno());
        EXPECT_NE(e.GetErrno(), 0);
    }
}

TEST_F(CIpcTransport, QueueDepthIsWrittenUnderTheRuntimeRoot) {
    const std::string file = root.WriteFile("/proc/sys/net/unix/max_dgram_qlen", "10\n");
    CDomainSocket::SetQueueDepth(512);
    EXPECT_EQ(CTempRoot::ReadFile(file), "512\n");
    std::remove(file.c_str());
    root.MakeDir("/proc/sys/net/unix/max_dgram_qlen/");  // a directory cannot be written
    EXPECT_THROW(CDomainSocket::SetQueueDepth(1), CException);
}

TEST_F(CIpcTransport, WaitSkipsLateRepliesAndEndsOnANewerOne) {
    CDomainSocket server(serverPath.c_str());
    CIpcClient client(serverPath.c_str(), clientPath.c_str());
    CIpcMessage message = Command();
    CIpcMessage reply;
    client.TransmitMessage(message);  // transaction 1 times out without a reply
    client.TransmitMessage(message);
    const CIpcMessage request1 = ReceiveOnRawServer(server);
    const CIpcMessage request2 = ReceiveOnRawServer(server);
    EXPECT_EQ(request1.GetSequence(), 1u);
    EXPECT_EQ(request2.GetSequence(), 2u);
    SendReply(server, request1, 1, "late");
    SendReply(server, request2, 2, "current");
    ASSERT_TRUE(client.MessageWait(reply, 5000));
    EXPECT_EQ(ValueOf(reply), "current");

    // A reply to a newer transaction ends the wait even with the right one queued behind it.
    client.TransmitMessage(message);
    const CIpcMessage request3 = ReceiveOnRawServer(server);
    SendReply(server, request3, 9, "future");
    SendReply(server, request3, 3, "current");
    EXPECT_FALSE(client.MessageWait(reply, 5000));

    // Nothing but late replies is a time-out.
    client.TransmitMessage(message);
    client.TransmitMessage(message);
    for (int i = 0; i < 3; ++i) {
        SendReply(server, request3, 4, "late");
    }
    EXPECT_FALSE(client.MessageWait(reply, 100));
}

TEST_F(CIpcTransport, IncompleteDatagramsAreIgnoredOnBothSides) {
    CIpcServer server(serverPath.c_str());
    CIpcClient client(serverPath.c_str(), clientPath.c_str());
    CDomainSocket stranger(root.Path("/var/run/ui/stranger").c_str());

    CIpcMessage proper = Command();
    proper.AddArg(0, 50);
    auto bytes = Wire(proper);
    bytes[22] = static_cast<unsigned char>(bytes[22] + 1);  // size off by one
    Send(stranger, bytes, serverPath);

    CIpcMessage received;
    received.SetCode("OLD");
    bool complete = true;
    ASSERT_TRUE(server.IsMessageAvailable(5000));
    EXPECT_TRUE(server.GetMessage(received, &complete));
    EXPECT_FALSE(complete);
    EXPECT_EQ(received.GetCode(), "OLD");

    // Client side: a broken datagram with the right sequence, then the real reply.
    client.TransmitMessage(proper);
    ASSERT_TRUE(server.GetMessage(received, &complete));
    ASSERT_TRUE(complete);
    received.MakeReply(0);
    received.AddArg(0, "broken");
    auto broken = Wire(received);
    broken.pop_back();
    Send(stranger, broken, clientPath);
    received.AddArg(0, "whole");
    ASSERT_TRUE(server.ResponseMessage(received));

    CIpcMessage reply;
    ASSERT_TRUE(client.MessageWait(reply, 5000));
    EXPECT_EQ(ValueOf(reply), "whole");
}

TEST_F(CIpcTransport, ADrainHandsOutEveryDatagramInOrderWithItsOwnSender) {
    CIpcServer server(serverPath.c_str());
    server.EnableCredentials();
    CDomainSocket first(root.Path("/var/run/ui/first").c_str());
    CDomainSocket second;  // unbound: its messages carry no reply address
    second.Create("");
    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    // More than a batch, from a bound and an unbound sender by turns; the fifth is cut
    // short and the sixth carries a descriptor, which the server must close.
    constexpr int kSent = CDomainSocket::kMaxBatch + 3;
    for (int i = 0; i < kSent; ++i) {
        CIpcMessage message = Command();
        message.AddArg(0, i);
        auto bytes = Wire(message);
        if (i == 4) {
            bytes.pop_back();
        }
        CDomainSocket& from = i % 2 ? second : first;
        if (i == 5) {
            SendWithDescriptor(from, bytes, serverPath, pipeFds[1]);
        } else {
            Send(from, bytes, serverPath);
        }
    }
    close(pipeFds[1]);

    for (int i = 0; i < kSent; ++i) {
        CIpcMessage received;
        bool complete = false;
        ASSERT_TRUE(server.TryGetMessage(received, &complete)) << i;
        EXPECT_EQ(complete, i != 4) << i;
        if (complete) {
            EXPECT_EQ(ValueOf(received), std::to_string(i));
            EXPECT_EQ(received.GetReplyAddress(), (i % 2 ? second : first).GetPath());
        }
        ucred sender{};
        ASSERT_TRUE(server.GetSenderCredentials(sender)) << i;
        EXPECT_EQ(sender.pid, getpid());
    }
    CIpcMessage received;
    EXPECT_FALSE(server.HasReceivedMessages());
    EXPECT_FALSE(server.TryGetMessage(received));  // the drain ends without asking the kernel
    EXPECT_FALSE(server.TryGetMessage(received));  // which then finds nothing waiting
    EXPECT_TRUE(WriterGone(pipeFds[0])) << "the passed descriptor is still open";
    close(pipeFds[0]);

    CIpcMessage late = Command();
    Send(first, Wire(late), serverPath);
    EXPECT_TRUE(server.TryGetMessage(received));
}

TEST_F(CIpcTransport, AReceiverWithoutCredentialsNeverHoldsAPassedDescriptor) {
    CIpcServer server(serverPath.c_str());
    CDomainSocket sender(root.Path("/var/run/ui/sender").c_str());
    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    CIpcMessage command = Command();
    SendWithDescriptor(sender, Wire(command), serverPath, pipeFds[1]);
    close(pipeFds[1]);
    CIpcMessage received;
    bool complete = false;
    ASSERT_TRUE(server.GetMessage(received, &complete));
    EXPECT_TRUE(complete);
    EXPECT_EQ(received.GetReplyAddress(), sender.GetPath());
    EXPECT_TRUE(WriterGone(pipeFds[0])) << "the passed descriptor is still open";
    close(pipeFds[0]);
}

TEST_F(CIpcTransport, AFanOutReachesEveryReceiverOnceWhateverTheOthersDo) {
    CBufferedLog log;
    CDomainSocket server(serverPath.c_str());
    CIpcOutbox outbox(server, log);
    // More receivers than one system call takes, among them one that is gone, one path
    // too long and one whose queue is full, each refused where a batch is under way.
    const std::string gone = root.Path("/var/run/ui/gone");
    const std::string tooLong = root.Path("/var/run/ui/" + std::string(CDomainSocket::kMaxPathLength, 'x'));
    constexpr size_t kReceivers = CDomainSocket::kMaxSendBatch + 8;
    constexpr size_t kFull = 5;
    std::vector<CDomainSocket> receivers;
    std::list<std::string> paths;
    for (size_t i = 0; i < kReceivers; ++i) {
        if (i == 3) {
            paths.push_back(gone);
        }
        if (i == CDomainSocket::kMaxSendBatch - 1u) {
            paths.push_back(tooLong);
        }
        receivers.emplace_back(root.Path("/var/run/ui/listener." + std::to_string(i)).c_str());
        paths.push_back(receivers.back().GetPath());
    }
    const int filled = Fill(receivers[kFull]);
    ASSERT_GT(filled, 0);

    const unsigned char note[] = "note";
    std::vector<std::string> dropped;
    outbox.SendToEach(note, sizeof note, paths, [&](const std::string& path) { dropped.push_back(path); });
    EXPECT_EQ(dropped, (std::vector<std::string>{gone, tooLong}));
    EXPECT_EQ(outbox.GetWaitingDestinations(), 1u);

    unsigned char buffer[16];
    for (size_t i = 0; i < kReceivers; ++i) {
        if (i == kFull) {
            for (int j = 0; j < filled; ++j) {  // the junk, which makes room
                ASSERT_EQ(receivers[i].RecvFromNoBlock(buffer, sizeof buffer, 0, nullptr), 1) << j;
            }
            CPollSet poll;
            outbox.AddDescriptors(poll);
            ASSERT_EQ(poll.Wait(1000), 1);
            outbox.ProcessReady(poll);
        }
        ASSERT_EQ(receivers[i].RecvFromNoBlock(buffer, sizeof buffer, 0, nullptr), static_cast<int>(sizeof note)) << i;
        EXPECT_STREQ(reinterpret_cast<const char*>(buffer), "note");
        EXPECT_EQ(receivers[i].RecvFromNoBlock(buffer, sizeof buffer, 0, nullptr), 0) << i << " received it twice";
    }
    EXPECT_EQ(outbox.GetWaitingDestinations(), 0u);
}

TEST_F(CIpcTransport, AFullSendBufferIsWaitedForNotSpunOn) {
    // A receiver whose socket is connected to the server is exempt from the kernel's queue
    // limit: while it does not read, what the server sends it fills the server's own send
    // buffer, and then no send from the server goes anywhere, though every other
    // receiver's queue has room.
    CBufferedLog log;
    CDomainSocket server(serverPath.c_str());
    CIpcOutbox outbox(server, log);
    CDomainSocket hog(root.Path("/var/run/ui/hog").c_str());
    hog.Connect(serverPath.c_str());
    CDomainSocket other(root.Path("/var/run/ui/other").c_str());
    const unsigned char note[] = "note";
    int sent = 0;
    while (outbox.Send(note, sizeof note, hog.GetPath())) {
        ++sent;
    }
    // The hog's datagram that found the buffer full was dropped: no probe can connect to a
    // socket that is connected to another.
    ASSERT_TRUE(outbox.Send(note, sizeof note, other.GetPath()));
    ASSERT_EQ(outbox.GetWaitingDestinations(), 1u);
    EXPECT_EQ(log.Count("its send buffer is full"), 1u);

    CPollSet poll;
    auto turn = [&] { return Turn(poll, server, outbox); };
    EXPECT_EQ(turn(), 0) << "nothing can leave, so nothing may wake the loop";
    Send(other, {1}, serverPath);
    EXPECT_EQ(turn(), 1);
    EXPECT_TRUE(poll.IsReadable(server.GetDescriptor())) << "waiting to send hid a datagram to receive";

    unsigned char buffer[16];
    for (int i = 0; i < sent; ++i) {
        ASSERT_EQ(hog.RecvFromNoBlock(buffer, sizeof buffer, 0, nullptr), static_cast<int>(sizeof note)) << i;
    }
    EXPECT_EQ(turn(), 1);
    EXPECT_EQ(outbox.GetWaitingDestinations(), 0u);
    EXPECT_EQ(hog.RecvFromNoBlock(buffer, sizeof buffer, 0, nullptr), 0);
    EXPECT_EQ(other.RecvFromNoBlock(buffer, sizeof buffer, 0, nullptr), static_cast<int>(sizeof note));
}

TEST_F(CIpcTransport, AReceiverReplacedWhileFullIsWatchedAnew) {
    // A probe connected to a closed socket polls writable, while the new socket at the
    // same path may be full as well.
    CBufferedLog log;
    CDomainSocket server(serverPath.c_str());
    CIpcOutbox outbox(server, log);
    const std::string path = root.Path("/var/run/ui/listener");
    auto receiver = std::make_unique<CDomainSocket>(path.c_str());
    ASSERT_GT(Fill(*receiver), 0);
    const unsigned char note[] = "note";
    ASSERT_TRUE(outbox.Send(note, sizeof note, path));
    ASSERT_EQ(outbox.GetWaitingDestinations(), 1u);

    receiver.reset();
    receiver = std::make_unique<CDomainSocket>(path.c_str());
    const int filled = Fill(*receiver);
    CPollSet poll;
    EXPECT_EQ(Turn(poll, server, outbox), 1);
    EXPECT_EQ(Turn(poll, server, outbox), 0) << "the loop would wake at once, every turn";

    unsigned char buffer[16];
    for (int i = 0; i < filled; ++i) {
        ASSERT_EQ(receiver->RecvFromNoBlock(buffer, sizeof buffer, 0, nullptr), 1) << i;
    }
    EXPECT_EQ(Turn(poll, server, outbox), 1);
    EXPECT_EQ(receiver->RecvFromNoBlock(buffer, sizeof buffer, 0, nullptr), static_cast<int>(sizeof note));
    EXPECT_EQ(outbox.GetWaitingDestinations(), 0u);
}

TEST_F(CIpcTransport, OversizedOrUnaddressedMessagesAreNeverSent) {
    CIpcServer server(serverPath.c_str());
    CIpcClient client(serverPath.c_str(), clientPath.c_str());
    CIpcMessage huge = Command();
    huge.AddArg(0, std::string(5000, 'x'));
    EXPECT_THROW(client.TransmitMessage(huge), CException);
    EXPECT_FALSE(server.IsMessageAvailable(0));

    huge.SetReplyAddress(clientPath);
    EXPECT_FALSE(server.ResponseMessage(huge));
    CIpcMessage unaddressed;
    EXPECT_FALSE(server.ResponseMessage(unaddressed));
    EXPECT_THROW(CIpcClient(nullptr, clientPath.c_str()), CException);
}
