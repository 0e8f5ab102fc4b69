// The byte stream shared by every port, on real stream sockets: port naming, records
// read with BufferedReadComplete, and writes that must neither hang nor raise SIGPIPE.

#include <gtest/gtest.h>
#include <fcntl.h>
#include <pty.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "TcpPair.h"
#include "ThrownMessage.h"
#include "port/CCommPort.h"

namespace {

using Clock = std::chrono::steady_clock;

long ElapsedMs(Clock::time_point start) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

// A port on one end of a non-blocking local stream socket pair; the test is the peer.
class CCommPortRecords : public ::testing::Test {
protected:
    static int MakePair(int (&fds)[2]) {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fds), 0);
        return fds[0];
    }
    CCommPortRecords() : port(PORT_ETHERNET, MakePair(fds), "peer") {}
    ~CCommPortRecords() override { close(peer); }
    void Send(const std::string& text) {
        ASSERT_EQ(write(peer, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    // The record as text, or "-1" on time-out.
    std::string Record(unsigned int outSize, unsigned int timeoutMs) {
        std::vector<unsigned char> out(outSize);
        const int length = port.BufferedReadComplete(out.data(), outSize, '\r', timeoutMs);
        return length < 0 ? "-1" : std::string(out.begin(), out.begin() + length);
    }

    int fds[2] = {-1, -1};
    const int& peer = fds[1];
    CCommPort port;
};

}  // namespace

TEST(CCommPortNames, SubCodesAndIdsMapBothWays) {
    const char* const codes[] = {"PRTA", "PRTB", "PRTC", "PUSB"};
    const unsigned char ids[] = {PORT_A, PORT_B, PORT_C, PORT_USB};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(CCommPort::GetPortSubCode(ids[i]), codes[i]);
        EXPECT_EQ(CCommPort::GetPortId(codes[i]), ids[i]);
    }
    for (const unsigned char id : std::initializer_list<unsigned char>{0, 1, 16, 64, 255}) {
        EXPECT_EQ(CCommPort::GetPortSubCode(id), "") << int(id);
    }
    // The USB serial device is the PUSB port for settings and routing.
    EXPECT_EQ(CCommPort::GetPortSubCode(PORT_USB_DEVICE), "PUSB");
    EXPECT_EQ(CCommPort::GetRoutingBit(PORT_USB_DEVICE), PORT_USB);
    EXPECT_EQ(CCommPort::GetRoutingBit(PORT_B), PORT_B);
    EXPECT_EQ(CCommPort::GetPortId(""), PORT_ETHERNET);
    EXPECT_EQ(CCommPort::GetPortId("prta"), PORT_NONE);
}

TEST_F(CCommPortRecords, RecordsComeOneAtATimeAndATimeOutKeepsThePartialRecord) {
    Send("PWR?\rBRI 50\r");
    EXPECT_EQ(Record(64, 1000), "PWR?\r");
    EXPECT_EQ(Record(64, 0), "BRI 50\r");  // the second record of one read comes without waiting
    EXPECT_EQ(Record(64, 0), "-1");        // a zero time-out gives -1 when it has to wait
    Send("PA");
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(Record(64, 100), "-1");
    EXPECT_GE(ElapsedMs(start), 95);
    Send("RT\r");
    EXPECT_EQ(Record(64, 1000), "PART\r");
}

TEST_F(CCommPortRecords, FullBufferWithoutTerminatorIsDroppedAndTheNextCallStartsEmpty) {
    for (const auto& [outSize, message] :
         {std::pair<unsigned int, std::string>{2048, "Receive buffer full without containing ' \r ' character."},
          {CCommPort::kBufferSize, "Output buffer too small."}}) {
        Send(std::string(CCommPort::kBufferSize, 'x'));
        EXPECT_EQ(ThrownMessage([&] { Record(outSize, 1000); }), "Failed read on peer (" + message + ")");
        Send("OK\r");
        EXPECT_EQ(Record(64, 1000), "OK\r");
    }
}

TEST_F(CCommPortRecords, RecordLongerThanTheOutputIsDroppedWithWhatFollows) {
    Send(std::string(CCommPort::kBufferSize - 1, 'x') + "\r");
    EXPECT_EQ(Record(CCommPort::kBufferSize, 1000).size(), CCommPort::kBufferSize);  // exactly fits
    Send("ABCDEFGH\rLOST\r");
    EXPECT_EQ(ThrownMessage([&] { Record(8, 1000); }), "Failed read on peer (Output buffer too small.)");
    EXPECT_EQ(Record(64, 0), "-1");
}

TEST_F(CCommPortRecords, ClosedPeerThrowsInsteadOfLookingLikeATimeOut) {
    Send("HALF");
    shutdown(peer, SHUT_WR);
    EXPECT_EQ(ThrownMessage([&] { Record(64, 5000); }), "Failed read on peer (Connection closed)");
}

TEST_F(CCommPortRecords, SingleReadsAndWrites) {
    unsigned char buffer[8];
    EXPECT_EQ(port.ReadString(buffer, sizeof buffer), -1);
    EXPECT_EQ(port.ReadChar(), 0);
    Send("AB");
    EXPECT_EQ(port.ReadChar(), 'A');
    EXPECT_EQ(port.ReadString(buffer, sizeof buffer), 1);

    EXPECT_TRUE(port.WriteString(nullptr, 0));
    EXPECT_FALSE(port.WriteString(buffer, -1));
    EXPECT_TRUE(port.WriteChar('Z'));
    EXPECT_TRUE(port.WriteString(reinterpret_cast<const unsigned char*>("OK\r"), 3));
    char received[8] = {};
    EXPECT_EQ(read(peer, received, sizeof received), 4);  // nothing from the empty writes
    EXPECT_STREQ(received, "ZOK\r");
    shutdown(peer, SHUT_WR);
    EXPECT_EQ(port.ReadString(buffer, sizeof buffer), 0);
}

TEST(CCommPortWrites, UnsentOutputQueuesUpToItsBoundThenASerialLineDropsWholeMessagesAndTcpGivesUp) {
    STcpPair pair(16 * 1024);
    CCommPort tcp(PORT_ETHERNET, pair.ReleaseServer(), "127.0.0.1-1");  // still blocking on purpose
    const std::vector<unsigned char> flood(16 * 1024 * 1024, 'x');
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(ThrownMessage([&] { tcp.WriteString(flood.data(), static_cast<int>(flood.size())); }),
              "Failed to write to port 127.0.0.1-1 (peer not reading)");
    EXPECT_LT(ElapsedMs(start), 1000);  // nothing waits

    int master = -1;
    int slave = -1;
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    termios raw{};
    tcgetattr(slave, &raw);
    cfmakeraw(&raw);
    tcsetattr(slave, TCSANOW, &raw);
    fcntl(slave, F_SETFL, O_NONBLOCK);
    fcntl(master, F_SETFL, O_NONBLOCK);
    CCommPort line(PORT_A, slave, "pty");
    std::string expected;
    int dropped = 0;
    for (int i = 0; i < 1000; ++i) {
        const std::string message = "(" + std::string(998, static_cast<char>('a' + i % 26)) + ")";
        if (line.WriteString(reinterpret_cast<const unsigned char*>(message.data()), 1000)) {
            expected += message;
        } else {
            ++dropped;
        }
    }
    EXPECT_GT(dropped, 0);
    EXPECT_TRUE(line.HasQueuedOutput());
    std::string received;
    for (int idle = 0; idle < 50;) {
        line.WriteQueued();
        char chunk[4096];
        const ssize_t count = read(master, chunk, sizeof chunk);
        if (count > 0) {
            received.append(chunk, static_cast<size_t>(count));
            idle = 0;
        } else {
            ++idle;
            usleep(1000);
        }
    }
    EXPECT_FALSE(line.HasQueuedOutput());
    EXPECT_EQ(received.size(), expected.size());
    EXPECT_TRUE(received == expected);  // every accepted message whole and in order
    close(master);
}

TEST(CCommPortWrites, WriteToAClosedPeerThrowsWithoutSignal) {
    STcpPair pair;
    CCommPort port(PORT_ETHERNET, pair.ReleaseServer(), "127.0.0.1-2");
    pair.CloseClient();
    std::string message = "(no exception)";
    // The first write may still be accepted: only the peer's reset makes the next one fail.
    for (int attempt = 0; attempt < 100 && message == "(no exception)"; ++attempt) {
        message = ThrownMessage([&] { port.WriteString(reinterpret_cast<const unsigned char*>("ERR\r"), 4); });
        usleep(10 * 1000);
    }
    EXPECT_EQ(message, "Failed to write to port 127.0.0.1-2");
}
