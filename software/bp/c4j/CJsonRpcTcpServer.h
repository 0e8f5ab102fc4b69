#pragma once
// CJsonRpcTcpServer: the TCP transport of the JSON-RPC API. Every message, in both
// directions, is one JSON text followed by one NUL byte.
//
// Receiving: each client's bytes are split at NULs; a request whose first character is a
// NUL or a digit (or which is empty) is replaced by "$", so that a bare number is
// answered with a parse error rather than taken for valid JSON. A client whose
// unterminated request passes kMaxRequestBytes is closed with a log line.
//
// Sending never blocks the loop: replies and notifications are written without waiting;
// what the socket does not take at once is queued per client and sent as the socket
// becomes writable. Replies are always queued; a client whose unsent replies pass
// kMaxQueuedBytes (a client that sends requests and never reads) is closed with a log
// line. A notification to a client that still has unsent output, or whose socket takes
// nothing, is refused with EAGAIN (Send throws with errno 11): a slow reader loses
// notifications, not its connection.
//
// The owner's loop either calls WaitMessage (one poll of its own), or puts the server's
// descriptors into its own poll with AddDescriptors and hands the result to
// ProcessReady.
//
// Ownership: owns its clients and their sockets. Thread contract: the server's event
// thread only; nothing locks.

#include <list>
#include <memory>
#include <string>

#include "ipc/CPollSet.h"
#include "jsonrpc/Server.h"
#include "log/ILog.h"
#include "SJsonRpcClient.h"

class CJsonRpcTcpServer : public Json::Rpc::Server {
public:
    static constexpr size_t kMaxRequestBytes = 1024 * 1024;
    static constexpr size_t kMaxQueuedBytes = 4 * 1024 * 1024;

    CJsonRpcTcpServer(const std::string& address, unsigned short port, ILog& log);
    ~CJsonRpcTcpServer() override;

    bool Listen() const { return Json::Rpc::Server::Listen(); }
    // Accepts one connection: 1 when a client was added.
    int Accept();
    // One pass: waits up to timeoutMs, accepts, receives, sends queued output, purges.
    // Returns the poll's ready count (0 on time-out).
    int WaitMessage(unsigned int timeoutMs);
    void AddDescriptors(CPollSet& poll) const;
    void ProcessReady(const CPollSet& poll);
    // Reads and handles what one client sent.
    void Recv(SJsonRpcClient& client);

    // Sends text plus its NUL to a client now, as far as the socket takes it without
    // waiting (the rest is queued). Throws CException "Unable to send data to client
    // ID:%d (client not found)", or with errno 11 when the client cannot take anything
    // now, or with the socket's error. Returns the bytes written at once.
    int Send(unsigned int clientId, const std::string& text);
    // Queues a reply (never refused while under the cap).
    void QueueReply(SJsonRpcClient& client, const std::string& text);

    bool IsClientConnected(unsigned int clientId) const { return FindClient(clientId) != nullptr; }
    void ForceClose(unsigned int clientId);
    bool SetClientAccessLevel(unsigned int clientId, EAccessLevel level);
    // 1 for an unknown client.
    EAccessLevel GetClientAccessLevel(unsigned int clientId) const;
    size_t GetClientCount() const { return m_clients.size(); }
    void Close();

protected:
    // Handles one complete request of a client (the text after the "$" rule).
    virtual void HandleRequest(SJsonRpcClient& client, const std::string& request);
    // Called when a client's connection ends, before it is freed.
    virtual void OnClientClosed(const SJsonRpcClient& client);
    ILog& GetLog() const { return m_log; }

private:
    SJsonRpcClient* FindClient(unsigned int clientId) const;
    // Writes queued output; false when the socket failed (the client is then purged).
    bool Flush(SJsonRpcClient& client);
    void MarkForPurge(SJsonRpcClient& client);
    void Purge();
    void CloseClient(std::unique_ptr<SJsonRpcClient>& client);

    ILog& m_log;
    std::list<std::unique_ptr<SJsonRpcClient>> m_clients;
    std::list<unsigned int> m_purge;
    char m_receiveArea[4096];
};
