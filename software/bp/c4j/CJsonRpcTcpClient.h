#pragma once
// CJsonRpcTcpClient: the client side of the JSON-RPC TCP transport, for processes and
// tools that talk to a projector's API: each message sent is the text and one NUL, and
// what arrives is split into whole messages at each NUL, keeping an unterminated tail for
// the next read.
//
// Ownership: owns its socket. Thread contract: one thread per client.
// Errors: throws CException "Unable to connect to server %s:%d", "Unable to send data to
// server", "Unable to recv data from server" (also when the server closed the connection).

#include <deque>
#include <string>

#include "jsonrpc/NulFramer.h"

class CJsonRpcTcpClient {
public:
    // Connects at once (blocking).
    CJsonRpcTcpClient(const std::string& address, unsigned short port);
    ~CJsonRpcTcpClient();
    CJsonRpcTcpClient(const CJsonRpcTcpClient&) = delete;
    CJsonRpcTcpClient& operator=(const CJsonRpcTcpClient&) = delete;

    void Send(const std::string& text);
    // Reads what is there (waiting up to timeoutMs for the first bytes when wait is set)
    // and appends the complete messages; false when nothing complete arrived.
    bool Recv(std::deque<std::string>& messages, bool wait, unsigned int timeoutMs = 5000);
    // One whole message, waiting up to timeoutMs; false on time-out.
    bool Recv(std::string& message, unsigned int timeoutMs = 5000);
    int GetSocket() const { return m_fd; }

private:
    bool ProcessReceivedData(std::deque<std::string>& messages);

    int m_fd = -1;
    CNulFramer m_framer;
    std::deque<std::string> m_ready;
};
