#pragma once
// CSerialParser: one protocol endpoint on one port of the serial handler. The handler
// keeps one parser per open serial port, USB adapter or TCP connection, hands it the
// port's input when select says it is readable, and passes it the controller's
// notifications. CVeltraneSerialParser is the ASCII command protocol.
//
// Lifetime: created and destroyed by the handler, which also owns the port; the port
// outlives its parser. Thread contract: the handler's loop thread only.

#include <string>

#include "ipc/CIpcMessage.h"
#include "port/CCommPort.h"

// What a parser does with its port's bytes; a control value ("PTL" per port).
enum ESerialProtocol : int {
    PROTOCOL_ASCII = 0,    // the ASCII command protocol
    PROTOCOL_SILENT = 1,   // the port stays open but its input is read and discarded and
                           // nothing is sent on it (a service tool owns the line)
};

// Results of ProcessData.
enum EParseResult : int {
    PARSE_INCOMPLETE = 0,   // nothing complete yet
    PARSE_COMPLETE = 1,     // at least one message was handled
    PARSE_SYNTAX_ERROR = 2, // the last message was dropped for its syntax
    PARSE_NO_DATA = 3,      // the port is gone (end of stream): remove the parser
};

class CSerialParser {
public:
    explicit CSerialParser(CCommPort& port) : m_port(port) {}
    virtual ~CSerialParser() = default;
    CSerialParser(const CSerialParser&) = delete;
    CSerialParser& operator=(const CSerialParser&) = delete;

    virtual ESerialProtocol GetProtocol() const = 0;
    // Reads what the port has and handles every complete message in it.
    virtual EParseResult ProcessData() = 0;
    // Writes an already formatted message of another port to this one.
    virtual bool RelayMessage(const unsigned char* text, int length) = 0;
    // A fault reported by another process for this front-end.
    virtual void ProcessErrors(const std::string& report) = 0;
    virtual bool IsSelectable() const = 0;

    // A control change announced by the controller.
    virtual void HandleNotification(const CIpcMessage& notification) = 0;
    // The port's remote-access setting ("RAL", see ERemoteAccess).
    virtual void UpdateRemoteAccess(int access) = 0;
    virtual void SetProtocol(ESerialProtocol protocol) = 0;
    virtual void BroadcastKey(int key) = 0;

    CCommPort& GetPort() const { return m_port; }

private:
    CCommPort& m_port;
};
