// Serial ports on real pseudo-terminals, linked under a temporary runtime root in place of
// the device files: opening, line settings read back from the terminal itself, and data.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <string>

#include "Emulation.h"
#include "Pty.h"
#include "TempRoot.h"
#include "ThrownMessage.h"
#include "port/CSerialPort.h"

namespace {

class CSerialPortTest : public ::testing::Test {
protected:
    termios Terminal() const {
        termios settings{};
        EXPECT_EQ(tcgetattr(pty.slave, &settings), 0);
        return settings;
    }
    void SetTerminal(const termios& settings) { ASSERT_EQ(tcsetattr(pty.slave, TCSANOW, &settings), 0); }
    std::string ReadMaster() {
        pollfd watched{pty.master, POLLIN, 0};
        char chunk[64];
        const ssize_t got = poll(&watched, 1, 1000) == 1 ? read(pty.master, chunk, sizeof chunk) : 0;
        return std::string(chunk, got > 0 ? static_cast<size_t>(got) : 0);
    }

    CTempRoot root;
    std::string path = root.Path("/dev/ttymxc0");
    SPty pty{root, "/dev/ttymxc0"};
};

}  // namespace

TEST_F(CSerialPortTest, OpensRawWithSoftwareFlowAndKeepsTheDeviceSpeed) {
    termios settings = Terminal();
    settings.c_lflag |= ICANON | ECHO;
    settings.c_iflag |= ICRNL;
    settings.c_oflag |= ONLCR;
    cfsetispeed(&settings, B4800);
    cfsetospeed(&settings, B4800);
    SetTerminal(settings);

    CSerialPort port(PORT_A);
    EXPECT_EQ(port.GetName(), path);
    EXPECT_EQ(port.GetPortId(), PORT_A);
    EXPECT_EQ(port.GetSerialMode(), SERIAL_8N1);
    EXPECT_EQ(port.GetFlowControl(), FLOW_SOFTWARE);
    settings = Terminal();
    EXPECT_EQ(cfgetospeed(&settings), speed_t(B4800));
    EXPECT_EQ(port.GetPortRate(), BAUD_115200);  // 4800 is not a control value
    EXPECT_EQ(settings.c_lflag & (ICANON | ECHO | ECHOE | ISIG), 0u);
    EXPECT_EQ(settings.c_iflag & ICRNL, 0u);
    EXPECT_EQ(settings.c_oflag & (ONLCR | OCRNL), 0u);
}

TEST_F(CSerialPortTest, PortRateCoversTheTableAndFallsBackTo115200AndFlowControlReadsBack) {
    // 1500000 is accepted by Linux pseudo-terminals like any other speed.
    const speed_t speeds[] = {B1200, B2400, B9600, B19200, B38400, B57600, B115200, B1500000};
    // User-mode emulation (qemu-arm 7.2) translates no terminal speed above 460800.
    const int rates = *PROJ_EMULATOR ? 7 : 8;
    CSerialPort port(PORT_A);
    for (int rate = 0; rate < rates; ++rate) {
        port.SetPortRate(static_cast<EBaudRate>(rate));
        const termios settings = Terminal();
        EXPECT_EQ(cfgetispeed(&settings), speeds[rate]) << rate;
        EXPECT_EQ(cfgetospeed(&settings), speeds[rate]) << rate;
        EXPECT_EQ(port.GetPortRate(), rate);
    }
    for (int outside : {9, -1}) {
        port.SetPortRate(BAUD_1200);
        port.SetPortRate(static_cast<EBaudRate>(outside));
        EXPECT_EQ(port.GetPortRate(), BAUD_115200) << outside;
    }
    for (int flow : {FLOW_HARDWARE, FLOW_NONE, FLOW_SOFTWARE}) {
        port.SetFlowControl(static_cast<ESerialFlowCtrl>(flow));
        EXPECT_EQ(port.GetFlowControl(), flow);
    }
    EXPECT_EQ(Terminal().c_iflag & (IXON | IXOFF | IXANY), tcflag_t(IXON | IXOFF | IXANY));
    EXPECT_EQ(Terminal().c_cflag & CRTSCTS, 0u);
}

TEST(CSerialPortModes, EachModeSetsItsCharacterFormatAndReadsBack) {
    const tcflag_t formats[] = {CS8, CS7 | PARENB, CS7 | PARENB | PARODD};
    for (int mode = 0; mode < 3; ++mode) {
        termios settings{};
        settings.c_cflag = CS6 | CSTOPB | CMSPAR | PARODD | CREAD | CLOCAL | CRTSCTS;
        settings.c_lflag = ICANON | ECHO | ECHOE | ISIG | IEXTEN;
        ASSERT_TRUE(CSerialPort::EncodeSerialMode(static_cast<ESerialMode>(mode), settings));
        EXPECT_EQ(settings.c_cflag, formats[mode] | CREAD | CLOCAL | CRTSCTS) << mode;
        EXPECT_EQ(settings.c_lflag, tcflag_t(IEXTEN));
        ESerialMode decoded = static_cast<ESerialMode>(-1);
        EXPECT_TRUE(CSerialPort::DecodeSerialMode(settings, decoded));
        EXPECT_EQ(decoded, mode);
    }
    termios settings{};
    EXPECT_FALSE(CSerialPort::EncodeSerialMode(static_cast<ESerialMode>(3), settings));
    ESerialMode decoded;
    settings.c_cflag = CS8 | CSTOPB;  // 8N2
    EXPECT_FALSE(CSerialPort::DecodeSerialMode(settings, decoded));
}

// Pseudo-terminals keep 8 data bits without parity whatever is asked, so the 7-bit modes
// are checked on the settings alone (above).
TEST_F(CSerialPortTest, ForeignTerminalSettingsAreRefused) {
    CSerialPort port(PORT_A);
    EXPECT_EQ(ThrownMessage([&] { port.SetSerialMode(static_cast<ESerialMode>(3)); }),
              "Unsupported serial comm mode 3 requested on port " + path);
    termios settings = Terminal();
    settings.c_lflag |= ICANON;
    settings.c_cflag |= CRTSCTS;  // next to the software flags set when opening
    SetTerminal(settings);
    EXPECT_EQ(ThrownMessage([&] { port.GetSerialMode(); }), "Unsupported serial comm mode detected on port " + path);
    EXPECT_EQ(ThrownMessage([&] { port.GetFlowControl(); }),
              "Unsupported serial flow control mode detected on port " + path);
}

TEST_F(CSerialPortTest, BytesCrossInBothDirectionsAndFlushDropsInput) {
    CSerialPort port(PORT_A);
    ASSERT_EQ(write(pty.master, "PWR?\r", 5), 5);
    unsigned char record[16];
    ASSERT_EQ(port.BufferedReadComplete(record, sizeof record, '\r', 1000), 5);
    EXPECT_EQ(std::string(record, record + 5), "PWR?\r");

    EXPECT_TRUE(port.WriteString(reinterpret_cast<const unsigned char*>("PWR=1\r"), 6));
    EXPECT_EQ(ReadMaster(), "PWR=1\r");

    ASSERT_EQ(write(pty.master, "stale", 5), 5);
    pollfd watched{port.GetFd(), POLLIN, 0};
    ASSERT_EQ(poll(&watched, 1, 1000), 1);
    port.Flush();
    EXPECT_EQ(port.ReadString(record, sizeof record), -1);
}

TEST_F(CSerialPortTest, DevicesFollowThePortIdsUnderTheRuntimeRoot) {
    EXPECT_EQ(CSerialPort::GetDevicePath(PORT_B), root.Path("/dev/ttymxc2"));
    EXPECT_EQ(CSerialPort::GetDevicePath(PORT_C), root.Path("/dev/ttymxc3"));
    EXPECT_EQ(CSerialPort::GetDevicePath(PORT_USB_DEVICE), root.Path("/dev/ttyUSB0"));
    root.WriteFile("/dev/ttyUSB3", "");
    root.WriteFile("/dev/ttyUSB7", "");
    EXPECT_EQ(CSerialPort::GetDevicePath(PORT_USB_DEVICE), root.Path("/dev/ttyUSB3"));

    for (int id : {0, 1, int(PORT_ETHERNET), int(PORT_USB), 64}) {
        EXPECT_EQ(ThrownMessage([&] { CSerialPort port(static_cast<unsigned char>(id)); }),
                  "Trying to initialize CSerialPortNew with an invalid port (" + std::to_string(id) + ")");
    }
    EXPECT_EQ(ThrownMessage([] { CSerialPort port(PORT_B); }), "Failed open on " + root.Path("/dev/ttymxc2"));
    // A file that is no terminal opens but refuses the settings, and is closed again.
    EXPECT_EQ(ThrownMessage([] { CSerialPort port(PORT_USB_DEVICE); }),
              "Failed to flush port " + root.Path("/dev/ttyUSB3"));
}
