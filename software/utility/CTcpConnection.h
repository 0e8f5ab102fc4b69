#pragma once
// CTcpConnection: a client TCP connection (to a laser bank module, or a macro's
// connection to the projector's own ASCII server). Connecting waits at most a time-out; sending writes everything or fails;
// receiving never waits (it takes what has arrived).
//
// Errors are returned, never thrown: 0 for success, otherwise the errno value of the
// failing call (ECONNREFUSED, ETIMEDOUT, ENOTCONN when not connected, EPIPE, ...), also
// kept as GetLastError(). A connection that fails or is closed by the peer is
// disconnected.
//
// Ownership: owns its socket. Thread contract: one thread.

#include <cstddef>
#include <cstdint>
#include <string>

class CTcpConnection {
public:
    static constexpr unsigned int kConnectTimeoutMs = 2000;

    CTcpConnection() = default;
    ~CTcpConnection() { Disconnect(); }
    CTcpConnection(const CTcpConnection&) = delete;
    CTcpConnection& operator=(const CTcpConnection&) = delete;

    // host: a dotted IPv4 address or a name.
    int Connect(const std::string& host, unsigned short port, unsigned int timeoutMs = kConnectTimeoutMs);
    void Disconnect();
    bool IsConnected() const { return m_fd >= 0; }
    int Send(const uint8_t* data, size_t length);
    // Bytes that have arrived, at most `capacity`: their count, 0 when none, or -1 when
    // the connection failed or was closed (then disconnected).
    int Receive(uint8_t* buffer, size_t capacity);
    int GetLastError() const { return m_lastError; }

private:
    int Fail(int error);

    int m_fd = -1;
    int m_lastError = 0;
};
