#pragma once
// CIpcClient: the sending end of IPC: sends messages to one fixed server socket from its
// own bound socket and waits for the reply carrying the same sequence number.
//
// Every TransmitMessage takes the next sequence number (starting at 1, wrapping at 32
// bits). A reply is matched by equality; a late answer to an earlier transaction is
// skipped and the wait goes on within the same overall time-out.
// The wait blocks in the receive itself with the socket's receive time-out rather than in
// a select followed by a receive: one system call per reply instead of two, which is a
// tenth of a local round trip.
//
// Owns its socket and one 4096-byte receive buffer. Used by one thread at a time.
// Transport errors throw CException; a time-out is not an error (MessageWait is false).

#include <cstdint>
#include <memory>
#include <string>

#include "ipc/CDomainSocket.h"
#include "ipc/CIpcMessage.h"

class CIpcClient {
public:
    // Binds its own socket at ownPath; both paths already resolved through the runtime
    // root. A null serverPath throws CException.
    CIpcClient(const char* serverPath, const char* ownPath);
    virtual ~CIpcClient();

    // Numbers, serialises and sends the message. Throws "TransmitMessage failed to send
    // full message. %d of %d sent" on a short send, and CException for a message of 4096
    // bytes or more.
    virtual void TransmitMessage(CIpcMessage& message);
    // Sets the reply-wanted flag, sends, and waits for the reply (MessageWait).
    virtual bool TransmitMessage(CIpcMessage& message, CIpcMessage& reply, unsigned int timeoutMs);
    // Waits up to timeoutMs in all for the reply to the last transaction. True with the
    // reply filled in; false on time-out or when a reply to a newer transaction arrives.
    // The reply's reply address is the server's path: the receive does not ask the kernel
    // for the sender's, whose copy out costs about 1% of a local round trip.
    virtual bool MessageWait(CIpcMessage& reply, unsigned int timeoutMs);

    uint32_t GetSequence() const { return m_sequence; }
    int GetDescriptor() const { return m_socket.GetDescriptor(); }
    const std::string& GetServerPath() const { return m_serverPath; }
    std::string GetOwnPath() const { return m_socket.GetPath(); }

private:
    std::string m_serverPath;
    CDomainSocket m_socket;
    uint32_t m_sequence;
    std::unique_ptr<unsigned char[]> m_buffer;
};
