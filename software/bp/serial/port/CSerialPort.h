#pragma once
// CSerialPort: one serial device of the ASCII command protocol, opened by its port id,
// and its line settings: speed, character format and flow control.
//
// Devices (system paths, resolved through the runtime root):
//   2 "/dev/ttymxc0", 4 "/dev/ttymxc2", 8 "/dev/ttymxc3" (ttymxc1 is not a command port),
//   128 the USB serial adapter: the first of "/dev/ttyUSB0".."/dev/ttyUSB9" that exists,
//   or "/dev/ttyUSB0" when none does (so opening it fails with that path).
// Every other id, the Ethernet and the "PUSB" ids included, has no device.
//
// Opening leaves the speed as the device had it, flushes both queues, and sets 8N1
// characters, raw input and software flow control. The port name is the resolved path.
//
// Ownership: the port owns the descriptor (closed by the CCommPort destructor).
// Thread contract: the thread of the port's handler only.
// Errors: CException; the failing termios calls carry errno.

#include <termios.h>

#include <string>

#include "CCommPort.h"

class CSerialPort : public CCommPort {
public:
    // The resolved device path of a port id, "" for an id without a device.
    static std::string GetDevicePath(unsigned char id);

    // Throws "Trying to initialize CSerialPortNew with an invalid port (%d)",
    // "Failed open on %s" (path), or a settings error (see below).
    explicit CSerialPort(unsigned char id);

    // Input and output speed. A value outside the table (above 7, or negative) means
    // 115200. Throws "Failed to read the settings of port %s" or "Failed to apply the
    // settings of port %s".
    void SetPortRate(EBaudRate rate);
    // The input speed as a control value; a speed outside the table reads as 115200 (6).
    EBaudRate GetPortRate() const;

    // Data bits, parity and stop bits, and always raw input and untranslated line ends
    // (ICANON, ECHO, ECHOE, ISIG, ICRNL, INLCR, IGNCR, ONLCR and OCRNL off), applied at
    // once. Other flags (speed, flow control, CREAD, CLOCAL) stay. A value outside
    // ESerialMode throws "Unsupported serial comm mode %d requested on port %s".
    void SetSerialMode(ESerialMode mode);
    // Throws "Unsupported serial comm mode detected on port %s" when line editing, echo
    // or signal characters are on, or the character format is none of the three.
    ESerialMode GetSerialMode() const;

    // The settings side of SetSerialMode and GetSerialMode, without a device: false for a
    // mode outside ESerialMode, or for settings that are none of the three modes.
    // (Pseudo-terminals always keep 8 data bits without parity, so on them the 7-bit
    // modes read back as 8N1, or as unsupported when PARODD stays set.)
    static bool EncodeSerialMode(ESerialMode mode, termios& settings);
    static bool DecodeSerialMode(const termios& settings, ESerialMode& mode);

    // A value outside ESerialFlowCtrl throws "Unsupported serial flow control mode %d
    // requested on port %s".
    void SetFlowControl(ESerialFlowCtrl flow);
    // Software when any of IXON, IXOFF, IXANY is set; throws "Unsupported serial flow
    // control mode detected on port %s" when CRTSCTS is set as well.
    ESerialFlowCtrl GetFlowControl() const;

    // Discards both the unread input and the unsent output. Throws "Failed to flush port %s".
    void Flush() override;

private:
    termios ReadSettings() const;
    void ApplySettings(const termios& settings);
};
