#pragma once
// CSerialHandler: owns the ports of the ASCII command protocol and one parser per port:
// the serial ports PRTA, PRTB, PRTC, the USB serial adapter, and one connection per
// accepted TCP client of its server socket. It runs the select loop that drives them,
// follows the port settings held as controls in the controller (through the event link)
// and opens or closes ports and the server when those controls change.
//
// Controls followed (the subcode names the port: "PRTA", "PRTB", "PRTC", "PUSB", or ""
// for the Ethernet connections):
//   "BDR", "MDE", "FLW", "PTL"  baud rate, serial mode, flow control, protocol of a port
//   "RAL"                       remote access of a port: 0 closes it, other values
//                               (ERemoteAccess) open it and gate what it may send
//   "NTR", "ADR"                routing mode and own address of every parser
//   "NET"+"PORT"                the TCP port of the server
//   "EME"                       emergency flag, kept for the host (GetEmergencyFlag)
//   "KEY"+"BKEY"                a key code every port broadcasts
//
// At most 13 parsers live at a time (serial, USB and TCP together); the 14th connection
// is refused and closed at once. A port that fails (read error, peer gone) costs only its
// own connection. Output a port cannot take at once waits in the port's queue and is
// written as the port becomes writable (the loop selects it for writing while it has
// some): a slow serial line or a peer holding XOFF loses messages past the queue's bound,
// never its port; a TCP peer that stops reading is closed past it (CCommPort).
//
// The USB serial adapter is /dev/ttyUSB<n> (port id 128) and is the "PUSB" port: its
// "RAL" opens (at start only when not 0), gates and closes it, and routing masks reach it
// by the PUSB bit. The process sets SetUsbAdapterPlugged() when one appears (the
// front-end does it on SIGUSR1), and the loop then opens it when "RAL"+"PUSB" is not 0.
//
// The concrete class makes the parser of a new port (MakeParser) and cleans up after a
// removed one (OnParserRemoved).
//
// Lifetime: the link and the log outlive the handler. Thread contract: one thread runs
// Begin / RunOnce and with it every port, parser and the server; only Stop() and
// SetUsbAdapterPlugged() may be called from elsewhere (a signal handler included).

#include <atomic>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "ascii/CSerialParser.h"
#include "ipc/CDomainSocket.h"
#include "ipc/CPollSet.h"
#include "log/ILog.h"
#include "port/CServerSocket.h"

class CEventLink;
class CSerialPort;

class CSerialHandler {
public:
    static constexpr unsigned int kMaxParsers = 13;
    static constexpr unsigned int kSelectTimeoutMs = 5000;
    static constexpr unsigned short kDefaultServerPort = 3002;
    // The level with which the handler reads its own controls.
    static constexpr int kInternalAccessLevel = 6;
    // The value of the Update* arguments that means "read the control".
    static constexpr int kFetchFromControl = 8;

    explicit CSerialHandler(ILog& log);
    virtual ~CSerialHandler();
    CSerialHandler(const CSerialHandler&) = delete;
    CSerialHandler& operator=(const CSerialHandler&) = delete;

    // Set before Begin. Without a link the handler runs with defaults and no notifications.
    void SetEventLink(CEventLink* link) { m_link = link; }
    // The datagram socket on which other processes report faults for the ports; its
    // path is a system path resolved through the runtime root; empty = none.
    void SetErrorSocketPath(const std::string& path) { m_errorSocketPath = path; }

    // Reads the start-up settings ("RAL" of every port, "EME", "NET"+"PORT", "ADR",
    // "NTR"), opens the serial ports whose "RAL" is not 0, the USB adapter when present,
    // the server (unless the Ethernet "RAL" is 0) and the error socket, and registers for
    // the port controls; with runLoop, runs the loop until Stop().
    void Begin(bool runLoop);
    // One turn of the loop, waiting at most timeoutMs.
    void RunOnce(unsigned int timeoutMs);
    // Ends the loop within one turn; wakes a loop that is waiting in select.
    void Stop();
    static void SetUsbAdapterPlugged() { s_usbPlugged = true; }

    virtual void AddNotifications();
    virtual void HandleNotifications(const CIpcMessage& notification);
    void ProcessNotifications();

    bool AddSerialHandler(unsigned char id);
    bool StartServer(bool localOnly);
    void StopServer(bool closeConnections);
    void UpdateBaudRate(CSerialPort& port, bool force, int rate);
    void UpdateSerialMode(CSerialPort& port, bool force, int mode);
    void UpdateFlowControl(CSerialPort& port, bool force, int flow);
    void UpdateProtocol(CSerialPort& port, bool force, int protocol);
    // Writes an already formatted message to every port in portMask but the sender's.
    void RelayMessage(const CSerialParser* from, const unsigned char* text, int length, unsigned char portMask);

    size_t GetParserCount() const { return m_connections.size(); }
    // The listening port, 0 while no server runs.
    unsigned short GetServerPort() const;
    bool GetEmergencyFlag() const { return m_emergency; }
    bool HasPort(unsigned char id) const { return FindPort(id) != nullptr; }

protected:
    virtual std::unique_ptr<CSerialParser> MakeParser(CCommPort& port) = 0;
    virtual void OnParserRemoved(CSerialParser& parser) = 0;
    // The protocol's class-wide settings ("NTR", "ADR"), read at start and on change.
    virtual void OnRoutingChanged(int routing) = 0;
    virtual void OnAddressChanged(int address) = 0;

    CEventLink* GetLink() const { return m_link; }
    ILog& GetLog() const { return m_log; }
    // The remote access set for a port name ("" = Ethernet); 1 when never set.
    int GetRemoteAccess(const std::string& portName) const;

private:
    struct SConnection {
        std::unique_ptr<CCommPort> port;
        std::unique_ptr<CSerialParser> parser;
    };
    using Connections = std::list<SConnection>;

    Connections::iterator RemoveSerialHandler(Connections::iterator it);
    // Removes every parser whose port has this routing bit (PUSB takes the USB device).
    void RemovePortParsers(unsigned char id);
    // Opens the USB serial device (the PUSB port) unless it is open, with its log line.
    void AddUsbPort();
    void AddConnection(std::unique_ptr<CCommPort> port);
    CCommPort* FindPort(unsigned char id) const;
    CSerialPort* FindSerialPort(const std::string& portName) const;
    int ReadControl(const std::string& code, const std::string& subcode, int fallback);
    void AcceptConnection();
    void ProcessErrorSocket();
    void ApplyRemoteAccess(const std::string& portName, int access);

    ILog& m_log;
    CEventLink* m_link = nullptr;
    Connections m_connections;
    unsigned short m_serverPort = kDefaultServerPort;
    std::unique_ptr<CServerSocket> m_server;
    bool m_emergency = false;
    std::string m_errorSocketPath;
    std::unique_ptr<CDomainSocket> m_errorSocket;
    std::map<std::string, int> m_remoteAccess;
    std::atomic<bool> m_stop{false};
    int m_wakePipe[2] = {-1, -1};  // Stop() writes a byte so that select returns at once
    CPollSet m_poll;               // a turn's wait, kept so that a turn allocates nothing

    static std::atomic<bool> s_usbPlugged;
};
