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
// line. Notifications queue behind whatever is unsent up to kMaxNotifyBacklogBytes; past
// that one is refused with EAGAIN (Send throws with errno 11) but not forgotten: the
// latest refused notification of each key is kept and sent as soon as the client's
// backlog has drained, and a notification of that key accepted meanwhile replaces it.
// So a slow reader may miss intermediate states, never the one that stands. A client
// that falls behind on more than kMaxMissedKeys keys (it has stopped reading) is closed.
//
// Clients: at most the configured number (kDefaultMaxClients) are served at a time; a
// connection beyond that is accepted and closed at once, logged once until a place is
// free again. When accept fails for lack of descriptors, one descriptor held in reserve
// is released to accept and close the connection, so the listening socket does not stay
// readable and spin the loop; that too is logged once until an accept succeeds.
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
#include <unordered_map>
#include <vector>

#include "ipc/CPollSet.h"
#include "jsonrpc/Server.h"
#include "log/ILog.h"
#include "SJsonRpcClient.h"

class CJsonRpcTcpServer : public Json::Rpc::Server {
public:
    static constexpr size_t kMaxRequestBytes = 1024 * 1024;
    static constexpr size_t kMaxQueuedBytes = 4 * 1024 * 1024;
    static constexpr size_t kMaxNotifyBacklogBytes = 256 * 1024;
    static constexpr size_t kMaxMissedKeys = 4096;
    static constexpr size_t kDefaultMaxClients = 64;

    CJsonRpcTcpServer(const std::string& address, unsigned short port, ILog& log);
    ~CJsonRpcTcpServer() override;

    bool Listen() const { return Json::Rpc::Server::Listen(); }
    // Accepts one connection: 1 when a client was added.
    int Accept();
    // Takes a connected, non-blocking stream socket from another transport (the web
    // server's WebSocket bridge) as one more client, framed like a TCP client's; false
    // (the socket closed) at the client limit. peerName is used in log lines.
    bool Adopt(int fd, const std::string& peerName);
    // One pass: waits up to timeoutMs, accepts, receives, sends queued output, purges.
    // Returns the poll's ready count (0 on time-out).
    int WaitMessage(unsigned int timeoutMs);
    void AddDescriptors(CPollSet& poll) const;
    void ProcessReady(const CPollSet& poll);
    // Reads and handles what one client sent.
    void Recv(SJsonRpcClient& client);

    // Sends text plus its NUL to a client now, as far as the socket takes it without
    // waiting (the rest is queued). Throws CException "Unable to send data to client
    // ID:%d (client not found)", or with errno 11 when the client's backlog is over its
    // bound (the text is then kept as the latest missed one of `key`; an empty key means
    // the text itself), or with the socket's error. Returns the bytes written at once.
    void Send(unsigned int clientId, const std::string& text, const std::string& key = "");
    void SetMaxClients(size_t count) { m_maxClients = count; }
    // Queues a reply (never refused while under the cap).
    void QueueReply(SJsonRpcClient& client, const std::string& text);

    bool IsClientConnected(unsigned int clientId) const { return FindClient(clientId) != nullptr; }
    void ForceClose(unsigned int clientId);
    bool SetClientAccessLevel(unsigned int clientId, EAccessLevel level);
    // 1 for an unknown client.
    EAccessLevel GetClientAccessLevel(unsigned int clientId) const;
    // "a.b.c.d-port"; empty for an unknown client.
    std::string GetClientPeerName(unsigned int clientId) const;
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

    // Accepts the waiting connection and closes it at once; `why` is logged once per spell.
    void Refuse(int fd, const char* why);

    ILog& m_log;
    size_t m_maxClients = kDefaultMaxClients;
    bool m_refusing = false;
    int m_reserveFd = -1;
    std::list<std::unique_ptr<SJsonRpcClient>> m_clients;
    // The same clients by id: each notification looks up every recipient.
    std::unordered_map<unsigned int, SJsonRpcClient*> m_byId;
    std::list<unsigned int> m_purge;
    std::vector<unsigned int> m_ready;  // ProcessReady's clients of this turn, kept from turn to turn
    char m_receiveArea[4096];
    std::string m_replyText;  // HandleRequest's answer, its capacity kept from request to request
};
