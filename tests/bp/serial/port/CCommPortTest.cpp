// The byte stream shared by every port, on real stream sockets: port naming, records
// read with BufferedReadComplete, and writes that must neither hang nor raise SIGPIPE.

#include <gtest/gtest.h>
#include <sys/socket.h>
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
    for (unsigned char id : {0, 1, 16, 64, 128, 255}) {
        EXPECT_EQ(CCommPort::GetPortSubCode(id), "") << int(id);
    }
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

TEST(CCommPortWrites, PeerThatNeverReadsMakesTheWriteGiveUp) {
    STcpPair pair(16 * 1024);
    CCommPort port(PORT_ETHERNET, pair.ReleaseServer(), "127.0.0.1-1");  // still blocking on purpose
    const std::vector<unsigned char> data(16 * 1024 * 1024, 'x');
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(ThrownMessage([&] { port.WriteString(data.data(), static_cast<int>(data.size())); }),
              "Failed to write to port 127.0.0.1-1 (peer not reading)");
    EXPECT_GE(ElapsedMs(start), static_cast<long>(CCommPort::kWriteStallMs) - 50);
    EXPECT_LT(ElapsedMs(start), 5000);
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
