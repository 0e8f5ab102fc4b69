#pragma once
// CIpcServer: the receiving end of IPC: one bound datagram socket; each message names
// its sender's socket, and the answer goes back there.
//
// Owns its socket (the socket file lives as long as the server) and a batch of 4096-byte
// receive buffers: one system call takes every datagram waiting, up to a batch, and the
// calls that follow hand them out one by one. Used by one thread at a time. Transport
// errors throw CException.

#include <array>
#include <memory>

#include "ipc/CDomainSocket.h"
#include "ipc/CIpcMessage.h"

class CIpcServer {
public:
    // Binds at path (already resolved through the runtime root).
    explicit CIpcServer(const char* path);

    // True when a datagram is waiting or arrives within timeoutMs (0 polls).
    bool IsMessageAvailable(unsigned int timeoutMs);
    // True while the batch holds datagrams not yet handed out; the socket may then poll
    // empty, so an event loop must not wait for it.
    bool HasReceivedMessages() const { return m_next < m_received; }

    // The next datagram of the batch, or else one blocking receive. True whenever a
    // non-empty datagram arrived. A complete one is deserialised into message with the
    // sender's path as reply address; an incomplete one is dropped and message is left
    // unchanged. `complete`, when given, tells which.
    bool GetMessage(CIpcMessage& message, bool* complete = nullptr);
    // The same without waiting. When the batch is used up it receives the next one; false
    // when none is waiting, and also, once, when the batch just used up was all that was
    // waiting at its receive. So draining a socket (calling until false) costs one system
    // call per batch, none to find the queue empty; what arrives meanwhile keeps the socket
    // readable, and the call after a false receives again.
    bool TryGetMessage(CIpcMessage& message, bool* complete = nullptr);

    // From now on the kernel vouches for the sender of every message (CDomainSocket).
    void EnableCredentials() { m_socket.EnableCredentials(); }
    // The credentials of the last message's sender; false when none came with it.
    bool GetSenderCredentials(ucred& credentials) const { return m_batch[m_current].from.GetCredentials(credentials); }

    // Serialises message and sends it to its reply address. True when the whole message
    // was sent; false for a message without a reply address or one too large to send.
    // Never blocks: a peer whose socket is gone or whose queue is full makes it throw
    // CException, so a stuck peer cannot stall the server.
    bool ResponseMessage(CIpcMessage& message);
    // The same to any socket path (notifications to listeners).
    bool SendMessage(CIpcMessage& message, const std::string& path);

    int GetDescriptor() const { return m_socket.GetDescriptor(); }
    // The bound socket, for an outbox that sends from the server's address.
    CDomainSocket& GetSocket() { return m_socket; }
    std::string GetPath() const { return m_socket.GetPath(); }

private:
    static constexpr size_t kBatch = CDomainSocket::kMaxBatch;

    // Makes the next datagram of the batch the current one and reads it into message.
    void TakeNext(CIpcMessage& message, bool* complete);

    CDomainSocket m_socket;
    std::unique_ptr<unsigned char[]> m_buffers;  // kBatch messages of kMaxMessageSize
    std::array<SDomainDatagram, kBatch> m_batch;
    size_t m_received = 0;  // datagrams in the batch
    size_t m_next = 0;      // the next one to hand out
    size_t m_current = 0;   // the last one handed out: its sender is the one asked about
    bool m_endedShort = false;  // the batch held all that was waiting at its receive
};
