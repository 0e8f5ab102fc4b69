// The serial handler in the test's own thread against a real controller: serial ports on
// pseudo-terminals, TCP clients on 127.0.0.1, and port controls changed through the link
// while the loop runs.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <termios.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "SerialPortsFixture.h"
#include "ascii/CVeltraneSerialHandler.h"
#include "ascii/CVeltraneSerialParser.h"
#include "security/CSecurityManager.h"

namespace {

class CVeltraneSerialHandlerTest : public CSerialPortsFixture {
protected:
    ~CVeltraneSerialHandlerTest() override {
        handler.reset();
        for (int fd : clients) {
            close(fd);
        }
    }

    void Start() {
        handler = std::make_unique<CVeltraneSerialHandler>(log, link.get(), &security);
        handler->Begin(false);
    }
    // Turns the loop until done() holds; false when it did not within 30 s.
    bool RunUntil(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            handler->RunOnce(10);
        }
        return true;
    }
    std::string Ask(int fd, const std::string& request, const std::string& reply) {
        WriteAll(fd, request);
        return ReadUntil(fd, reply, 10, [this] { handler->RunOnce(10); });
    }
    int Client(unsigned short port, int receiveBuffer = 0) {
        const int fd = ConnectLocal(port, receiveBuffer);
        EXPECT_GE(fd, 0);
        clients.push_back(fd);
        return fd;
    }
    // A client the handler has taken as a parser of its own.
    int Accepted() {
        const size_t before = handler->GetParserCount();
        const int fd = Client(serverPort);
        EXPECT_TRUE(RunUntil([&] { return handler->GetParserCount() == before + 1; }));
        return fd;
    }
    static speed_t Speed(int fd) {
        termios settings{};
        EXPECT_EQ(tcgetattr(fd, &settings), 0);
        return cfgetospeed(&settings);
    }

    CSecurityManager security{log, CSecurityManager::kMinIterations};
    std::unique_ptr<CVeltraneSerialHandler> handler;
    std::vector<int> clients;
};

}  // namespace

TEST_F(CVeltraneSerialHandlerTest, StartsTheEnabledPortsAndFollowsPortControlChangesWhileRunning) {
    Start();
    EXPECT_TRUE(handler->HasPort(PORT_A));
    EXPECT_FALSE(handler->HasPort(PORT_B));  // its RAL is 0
    EXPECT_FALSE(handler->HasPort(PORT_C));
    EXPECT_EQ(handler->GetParserCount(), 1u);
    EXPECT_EQ(handler->GetServerPort(), serverPort);
    EXPECT_EQ(Speed(prta.slave), speed_t(B9600));  // BDR+PRTA 2
    SetControl("BDR", "PRTA", 3);
    EXPECT_TRUE(RunUntil([&] { return Speed(prta.slave) == B19200; }));

    SetControl("ADR", "", 5);
    EXPECT_TRUE(RunUntil([&] { return Logged("ADR change: updating parsers to 5"); }));
    EXPECT_EQ(Ask(prta.master, "(0005 0001 BRI?)", ")"), "(00001 00005 BRI!050)");

    SetControl("RAL", "PRTB", 1);
    EXPECT_TRUE(RunUntil([&] { return handler->HasPort(PORT_B); }));
    EXPECT_TRUE(Logged("RAL change: Starting up Serial Handler: 4"));
    EXPECT_EQ(Ask(prtb.master, "(BRI?)", "(BRI!050)"), "(BRI!050)");
    // A broadcast on PRTB is relayed to its pair.
    EXPECT_EQ(ReadUntil(prta.master, "(BRI?)", 10, [this] { handler->RunOnce(10); }), "(BRI?)");

    SetControl("RAL", "PRTB", 0);
    EXPECT_TRUE(RunUntil([&] { return !handler->HasPort(PORT_B); }));
    EXPECT_TRUE(handler->HasPort(PORT_A));
}

TEST_F(CVeltraneSerialHandlerTest, MovedServerPortKeepsOpenConnections) {
    Start();
    const int before = Accepted();
    const unsigned short moved = FreePort();
    SetControl("NET", "PORT", moved);
    ASSERT_TRUE(RunUntil([&] { return handler->GetServerPort() == moved; }));

    EXPECT_EQ(ConnectLocal(serverPort), -1);
    serverPort = moved;
    const int after = Accepted();
    EXPECT_EQ(Ask(after, "(BRI?)", "(BRI!050)"), "(BRI!050)");
    EXPECT_EQ(Ask(before, "(BRI?)", "(BRI!050)"), "(BRI!050)");
}

TEST_F(CVeltraneSerialHandlerTest, RefusesConnectionsBeyondThirteenParsers) {
    Start();  // PRTA holds one parser
    const char* const refusal = "New connection refused - connection limit exceeded";
    std::vector<int> tcp;
    for (size_t i = 0; i < 14; ++i) {
        tcp.push_back(Client(serverPort));
        const size_t parsers = std::min<size_t>(2 + i, CSerialHandler::kMaxParsers);
        const size_t refused = i < 12 ? 0 : i - 11;
        EXPECT_TRUE(RunUntil([&] { return handler->GetParserCount() == parsers && log.Count(refusal) == refused; }))
            << "client " << i;
    }
    EXPECT_EQ(handler->GetParserCount(), CSerialHandler::kMaxParsers);
    EXPECT_TRUE(ClosedByPeer(tcp[12]));
    EXPECT_TRUE(ClosedByPeer(tcp[13]));
    EXPECT_EQ(Ask(tcp[0], "(BRI?)", "(BRI!050)"), "(BRI!050)");
    EXPECT_EQ(Ask(tcp[11], "(BRI?)", "(BRI!050)"), "(BRI!050)");
}

TEST_F(CVeltraneSerialHandlerTest, UsbAdapterIsThePusbPortOpenedRemovedAndReopenedWhenPlugged) {
    auto usb = std::make_unique<SPty>(root, "/dev/ttyUSB0");
    Start();
    EXPECT_TRUE(Logged("Added USB-TypeA Serial Connection."));
    EXPECT_EQ(Speed(usb->slave), speed_t(B115200));
    EXPECT_EQ(Ask(usb->master, "(BRI?)", "(BRI!050)"), "(BRI!050)");

    usb->CloseMaster();
    EXPECT_TRUE(RunUntil([&] { return !handler->HasPort(PORT_USB_DEVICE); }));
    EXPECT_TRUE(Logged("Removed USB-TypeA Serial Connection."));
    EXPECT_TRUE(handler->HasPort(PORT_A));

    usb = std::make_unique<SPty>(root, "/dev/ttyUSB0");
    CSerialHandler::SetUsbAdapterPlugged();
    EXPECT_TRUE(RunUntil([&] { return handler->HasPort(PORT_USB_DEVICE); }));
    EXPECT_EQ(log.Count("Added USB-TypeA Serial Connection."), 2u);
    EXPECT_EQ(Ask(usb->master, "(BRI?)", "(BRI!050)"), "(BRI!050)");

    // Routing reaches it as PUSB, both ways.
    SetControl("NTR", "", ROUTING_ALL);
    EXPECT_TRUE(RunUntil([&] { return CVeltraneSerialParser::GetRouting() == ROUTING_ALL; }));
    Ask(usb->master, "(BRI?)", "(BRI!050)");
    EXPECT_EQ(ReadUntil(prta.master, "(BRI?)", 10, [this] { handler->RunOnce(10); }), "(BRI?)");
    Ask(prta.master, "(BRI?)", "(BRI!050)");
    EXPECT_EQ(ReadUntil(usb->master, "(BRI?)", 10, [this] { handler->RunOnce(10); }), "(BRI?)");

    // "RAL"+"PUSB" closes it, keeps it closed when plugged, and opens it again.
    SetControl("RAL", "PUSB", 0);
    EXPECT_TRUE(RunUntil([&] { return !handler->HasPort(PORT_USB_DEVICE); }));
    CSerialHandler::SetUsbAdapterPlugged();
    handler->RunOnce(10);
    EXPECT_FALSE(handler->HasPort(PORT_USB_DEVICE));
    SetControl("RAL", "PUSB", 2);
    EXPECT_TRUE(RunUntil([&] { return handler->HasPort(PORT_USB_DEVICE); }));
    EXPECT_EQ(Ask(usb->master, "(BRI 7)", "ERR00117"), "(65535 ERR00117 \"System Error: Access denied on this port\")");
}

TEST_F(CVeltraneSerialHandlerTest, NoiseAndAbandonedMessagesCostNothingElse) {
    Start();
    const int good = Accepted();
    const int noise = Accepted();
    std::string bytes = "garbage ((( )) \"open (&BRI? 7) (9999X) (BRI \"\\h0";
    for (int i = 0; i < 512; ++i) {
        bytes += static_cast<char>((i * 151 + 7) % 256);
    }
    WriteAll(noise, bytes + "\"))");  // leaves the parser between messages whatever the noise did
    EXPECT_THAT(Ask(noise, "(BRI?)", "(BRI!050)"), ::testing::EndsWith("(BRI!050)"));

    const int quitter = Accepted();
    WriteAll(quitter, "(BRI 0");
    close(quitter);
    clients.pop_back();
    EXPECT_TRUE(RunUntil([&] { return handler->GetParserCount() == 3; }));
    EXPECT_EQ(Ask(good, "(BRI?)", "(BRI!050)"), "(BRI!050)");  // the cut-off set never ran
}

TEST_F(CVeltraneSerialHandlerTest, ASlowSerialLineKeepsItsPortButATcpPeerThatStopsReadingIsClosed) {
    Start();
    const int good = Accepted();
    const int sink = Client(serverPort, 1024);
    ASSERT_TRUE(RunUntil([&] { return handler->GetParserCount() == 3; }));

    // Each malformed request costs an error reply ten times its size, so the buffers fill fast.
    std::string requests;
    for (int i = 0; i < 100; ++i) {
        requests += "(9999X)";
    }
    // A request cut off by a full socket is restarted by the next "(".
    EXPECT_TRUE(RunUntil([&] {
        WriteSome(sink, requests);
        return handler->GetParserCount() == 2;
    }));
    EXPECT_TRUE(Logged("(peer not reading)"));
    EXPECT_EQ(Ask(good, "(BRI?)", "(BRI!050)"), "(BRI!050)");

    // The same flood on PRTA while its peer reads nothing (a slow line, or XOFF held): the
    // replies that do not fit are dropped whole and the port stays.
    ASSERT_EQ(fcntl(prta.master, F_SETFL, O_NONBLOCK), 0);
    int rounds = 0;
    RunUntil([&] {
        WriteSome(prta.master, requests);
        return ++rounds == 300;
    });
    EXPECT_TRUE(Logged("Dropping"));
    EXPECT_EQ(handler->GetParserCount(), 2u);
    const std::string drained = Ask(prta.master, "(BRI?)", "(BRI!050)");
    EXPECT_NE(drained.find("(BRI!050)"), std::string::npos);
    EXPECT_EQ(std::count(drained.begin(), drained.end(), '('), std::count(drained.begin(), drained.end(), ')'));
}
