#include "CSerialPort.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "CException.h"
#include "RuntimeRoot.h"

namespace {

constexpr speed_t kSpeeds[] = {B1200, B2400, B9600, B19200, B38400, B57600, B115200, B1500000};
constexpr int kSpeedCount = sizeof kSpeeds / sizeof kSpeeds[0];

constexpr tcflag_t kFormatBits = CSIZE | PARENB | PARODD | CMSPAR | CSTOPB;
constexpr tcflag_t kFormats[] = {CS8, CS7 | PARENB, CS7 | PARENB | PARODD};  // by ESerialMode
constexpr tcflag_t kLineEditing = ICANON | ECHO | ECHOE | ISIG;
constexpr tcflag_t kSoftwareFlow = IXON | IXOFF | IXANY;

constexpr int kUsbDeviceCount = 10;

std::string RequireDevicePath(unsigned char id) {
    std::string path = CSerialPort::GetDevicePath(id);
    if (path.empty()) {
        THROW_EXCEPTION("Trying to initialize CSerialPortNew with an invalid port (%d)", id);
    }
    return path;
}

}  // namespace

std::string CSerialPort::GetDevicePath(unsigned char id) {
    switch (id) {
        case PORT_A:
            return NRuntimeRoot::Path("/dev/ttymxc0");
        case PORT_B:
            return NRuntimeRoot::Path("/dev/ttymxc2");
        case PORT_C:
            return NRuntimeRoot::Path("/dev/ttymxc3");
        case PORT_USB_DEVICE:
            // The adapter's number depends on the order in which USB devices came up.
            for (int n = 0; n < kUsbDeviceCount; ++n) {
                const std::string path = NRuntimeRoot::Path("/dev/ttyUSB" + std::to_string(n));
                if (access(path.c_str(), F_OK) == 0) {
                    return path;
                }
            }
            return NRuntimeRoot::Path("/dev/ttyUSB0");
        default:
            return "";
    }
}

CSerialPort::CSerialPort(unsigned char id) : CCommPort(id, -1, RequireDevicePath(id)) {
    const int fd = open(GetName().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        THROW_ERRNO_EXCEPTION("Failed open on %s", GetName().c_str());
    }
    SetFd(fd);  // from here on the base destructor closes it, also if a setting below throws
    CSerialPort::Flush();
    SetSerialMode(SERIAL_8N1);
    SetFlowControl(FLOW_SOFTWARE);
}

termios CSerialPort::ReadSettings() const {
    termios settings{};
    if (tcgetattr(GetFd(), &settings) != 0) {
        THROW_ERRNO_EXCEPTION("Failed to read the settings of port %s", GetName().c_str());
    }
    return settings;
}

void CSerialPort::ApplySettings(const termios& settings) {
    if (tcsetattr(GetFd(), TCSANOW, &settings) != 0) {
        THROW_ERRNO_EXCEPTION("Failed to apply the settings of port %s", GetName().c_str());
    }
}

void CSerialPort::SetPortRate(EBaudRate rate) {
    const speed_t speed = rate >= 0 && rate < kSpeedCount ? kSpeeds[rate] : B115200;
    termios settings = ReadSettings();
    if (cfsetispeed(&settings, speed) != 0 || cfsetospeed(&settings, speed) != 0) {
        THROW_ERRNO_EXCEPTION("Failed to apply the settings of port %s", GetName().c_str());
    }
    ApplySettings(settings);
}

EBaudRate CSerialPort::GetPortRate() const {
    const termios settings = ReadSettings();
    const speed_t speed = cfgetispeed(&settings);
    for (int rate = 0; rate < kSpeedCount; ++rate) {
        if (kSpeeds[rate] == speed) {
            return static_cast<EBaudRate>(rate);
        }
    }
    return BAUD_115200;
}

bool CSerialPort::EncodeSerialMode(ESerialMode mode, termios& settings) {
    if (mode < SERIAL_8N1 || mode > SERIAL_7O1) {
        return false;
    }
    settings.c_cflag = (settings.c_cflag & ~kFormatBits) | kFormats[mode];
    settings.c_lflag &= ~kLineEditing;
    // Carriage returns must arrive as sent, as they do on TCP: the terminal's default
    // ICRNL would turn every record terminator '\r' into '\n'.
    settings.c_iflag &= ~static_cast<tcflag_t>(ICRNL | INLCR | IGNCR);
    settings.c_oflag &= ~static_cast<tcflag_t>(ONLCR | OCRNL);
    return true;
}

bool CSerialPort::DecodeSerialMode(const termios& settings, ESerialMode& mode) {
    if ((settings.c_lflag & kLineEditing) != 0) {
        return false;
    }
    for (int candidate = SERIAL_8N1; candidate <= SERIAL_7O1; ++candidate) {
        if ((settings.c_cflag & kFormatBits) == kFormats[candidate]) {
            mode = static_cast<ESerialMode>(candidate);
            return true;
        }
    }
    return false;
}

void CSerialPort::SetSerialMode(ESerialMode mode) {
    termios settings = ReadSettings();
    if (!EncodeSerialMode(mode, settings)) {
        THROW_EXCEPTION("Unsupported serial comm mode %d requested on port %s", static_cast<int>(mode),
                        GetName().c_str());
    }
    ApplySettings(settings);
}

ESerialMode CSerialPort::GetSerialMode() const {
    ESerialMode mode = SERIAL_8N1;
    if (!DecodeSerialMode(ReadSettings(), mode)) {
        THROW_EXCEPTION("Unsupported serial comm mode detected on port %s", GetName().c_str());
    }
    return mode;
}

void CSerialPort::SetFlowControl(ESerialFlowCtrl flow) {
    if (flow < FLOW_NONE || flow > FLOW_HARDWARE) {
        THROW_EXCEPTION("Unsupported serial flow control mode %d requested on port %s", static_cast<int>(flow),
                        GetName().c_str());
    }
    termios settings = ReadSettings();
    settings.c_iflag &= ~kSoftwareFlow;
    settings.c_cflag &= ~CRTSCTS;
    if (flow == FLOW_SOFTWARE) {
        settings.c_iflag |= kSoftwareFlow;
    } else if (flow == FLOW_HARDWARE) {
        settings.c_cflag |= CRTSCTS;
    }
    ApplySettings(settings);
}

ESerialFlowCtrl CSerialPort::GetFlowControl() const {
    const termios settings = ReadSettings();
    const bool software = (settings.c_iflag & kSoftwareFlow) != 0;
    if ((settings.c_cflag & CRTSCTS) == 0) {
        return software ? FLOW_SOFTWARE : FLOW_NONE;
    }
    if (software) {
        THROW_EXCEPTION("Unsupported serial flow control mode detected on port %s", GetName().c_str());
    }
    return FLOW_HARDWARE;
}

void CSerialPort::Flush() {
    if (tcflush(GetFd(), TCIOFLUSH) != 0) {
        THROW_ERRNO_EXCEPTION("Failed to flush port %s", GetName().c_str());
    }
}
