#pragma once
// CIpcServer: the receiving end of IPC: one bound datagram socket; each message names
// its sender's socket, and the answer goes back there.
//
// Owns its socket (the socket file lives as long as the server) and one 4096-byte
// receive buffer. Used by one thread at a time. Transport errors throw CException.

#include <memory>

#include "ipc/CDomainSocket.h"
#include "ipc/CIpcMessage.h"

class CIpcServer {
public:
    // Binds at path (already resolved through the runtime root).
    explicit CIpcServer(const char* path);

    // True when a datagram is waiting or arrives within timeoutMs (0 polls).
    bool IsMessageAvailable(unsigned int timeoutMs);

    // One blocking receive. True whenever a non-empty datagram arrived. A complete one is
    // deserialised into message with the sender's path as reply address; an incomplete
    // one is dropped and message is left unchanged. `complete`, when given, tells which.
    bool GetMessage(CIpcMessage& message, bool* complete = nullptr);
    // The same without waiting: false when no datagram is waiting. Draining a socket this
    // way costs one system call per message and one at the end, where asking first
    // (IsMessageAvailable) costs two per message.
    bool TryGetMessage(CIpcMessage& message, bool* complete = nullptr);

    // From now on the kernel vouches for the sender of every message (CDomainSocket).
    void EnableCredentials() { m_socket.EnableCredentials(); }
    // The credentials of the last message's sender; false when none came with it.
    bool GetSenderCredentials(ucred& credentials) const { return m_sender.GetCredentials(credentials); }

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
    // Reads a received datagram of `received` bytes (0 or less: none) into message.
    void Take(int received, CIpcMessage& message, bool* complete);

    CDomainSocket m_socket;
    CDomainSocket m_sender;  // the address of the last message's sender
    std::unique_ptr<unsigned char[]> m_buffer;
};
