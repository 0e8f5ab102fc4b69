#pragma once
// Load for the JSON-RPC TCP transport (one JSON text plus one NUL byte per message), and
// the bare echo server that serves as its baseline.
//
// CJsonRpcLoad holds C connections to a server and drives them from the calling thread
// with non-blocking sockets and one poll(): Run keeps K requests in flight on every
// connection until N have been answered, and records each request's latency (from the
// moment it is handed to send() to the moment the recv() that brought its reply
// returns). Replies on one connection come back in request order, so a request is
// matched with the oldest one outstanding on its connection. Received messages are only
// counted, not parsed, so the generator's own cost stays small and the same for every
// server it is pointed at.
//
// CNulEchoServer is the least a server of this framing can do: one thread, one poll()
// over the listening socket and its clients, and a fixed reply to every NUL-terminated
// message it receives. Measured with the same load, it is the floor that a real server's
// transport, parsing and dispatch are compared against. Broadcast has it send a fixed
// notification to every client, one send() each: the floor of announcing a change.
//
// Failures to set up (connect, listen), to send or to poll abort the process: a benchmark
// cannot go on without its connections. A server that closes a connection or goes silent
// makes Run and WaitForEach return false.

#include <poll.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "BenchLatency.h"
#include "BenchSockets.h"


class CJsonRpcLoad {
public:
    // Connects `connections` TCP sockets to 127.0.0.1:port (TCP_NODELAY, non-blocking).
    // Connections are opened in groups of 32 with a short pause between groups, so that
    // a server accepting one connection per loop turn never finds its listen backlog full
    // (a full backlog drops the handshake, and the connect then waits a whole second for
    // the retransmission).
    CJsonRpcLoad(unsigned short port, int connections);
    ~CJsonRpcLoad();
    CJsonRpcLoad(const CJsonRpcLoad&) = delete;
    CJsonRpcLoad& operator=(const CJsonRpcLoad&) = delete;

    int GetConnectionCount() const { return static_cast<int>(m_connections.size()); }

    // Sends `request` `total` times spread over all connections, at most `inFlight`
    // unanswered on each, and returns when all have been answered. Every latency is
    // appended to the record (see TakePercentiles). False when the server went silent for
    // timeoutMs or closed a connection.
    bool Run(const std::string& request, uint64_t total, int inFlight, int timeoutMs = 5000);

    // Sends `text` once on every connection (nothing else in flight) and waits for one
    // message back on each; the messages are kept (LastMessage). False on time-out.
    bool RequestOnAll(const std::string& text, int timeoutMs = 5000);
    // Waits until every connection has received `count` messages since the last call
    // (messages beyond that stay counted for the next call). With keep, the messages are
    // kept (LastMessage), else only counted.
    bool WaitForEach(int count, int timeoutMs = 5000, bool keep = false);
    // The last complete message a connection received while messages were kept.
    const std::string& LastMessage(size_t connection) const { return m_connections[connection].last; }

    // Percentiles of the latencies recorded so far (nearest rank); clears the record.
    SPercentiles TakePercentiles() {
        const SPercentiles result = PercentilesOf(m_latenciesNs);
        m_latenciesNs.clear();
        return result;
    }
    void ClearLatencies() { m_latenciesNs.clear(); }

private:
    using Clock = std::chrono::steady_clock;

    struct SConnection {
        int fd = -1;
        std::string output;               // bytes not yet taken by the socket
        size_t outputSent = 0;
        std::deque<Clock::time_point> outstanding;  // send times of unanswered requests
        uint64_t received = 0;            // messages received and not yet consumed
        std::string partial;              // an unterminated message being kept
        std::string last;                 // last complete message kept
    };

    // Queues `copies` requests and writes what the socket takes now.
    void Send(SConnection& connection, const std::string& request, int copies, Clock::time_point now);
    bool Flush(SConnection& connection);
    // Reads what is waiting; returns the number of messages completed, -1 on close or error.
    int Receive(SConnection& connection, bool keep);
    // One poll over the connections of the given indexes (for writing too where output
    // waits); m_pollFds[k] then belongs to which[k]. False on time-out.
    bool Poll(const std::vector<size_t>& which, int timeoutMs);

    std::vector<SConnection> m_connections;
    std::vector<size_t> m_all;      // every connection's index
    std::vector<size_t> m_waiting;  // the connections WaitForEach still waits for
    std::vector<pollfd> m_pollFds;
    std::vector<uint64_t> m_latenciesNs;
    char m_receiveArea[16384];
};

// The mean time of work timed on another thread: that thread Adds, the reader waits in
// MeanMicroseconds until the count it expects has been added.
class CWorkTimer {
public:
    void Add(std::chrono::steady_clock::duration took) {
        m_ns += static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(took).count());
        ++m_count;
    }
    void Reset() {
        m_ns = 0;
        m_count = 0;
    }
    // The mean of `count` timings since Reset in microseconds; 0 when they are not all in
    // within a second.
    double MeanMicroseconds(uint64_t count) const;

private:
    std::atomic<uint64_t> m_ns{0};
    std::atomic<uint64_t> m_count{0};
};

class CNulEchoServer {
public:
    // Listens on 127.0.0.1 at a free port and serves on its own thread until destroyed;
    // the thread first calls onStart (where the caller pins it), when given. notification:
    // what Broadcast sends.
    CNulEchoServer(std::string reply, std::function<void()> onStart, std::string notification = std::string());
    ~CNulEchoServer();
    CNulEchoServer(const CNulEchoServer&) = delete;
    CNulEchoServer& operator=(const CNulEchoServer&) = delete;

    unsigned short GetPort() const { return m_port; }
    // The CPU time the server's thread has used so far.
    double GetCpuSeconds() { return ThreadCpuSeconds(m_thread); }
    // Has the server's thread send the notification to every client, timing there how
    // long that takes until the last send() returns (in BroadcastTime).
    void Broadcast();
    CWorkTimer& BroadcastTime() { return m_broadcastTime; }

private:
    void Serve();

    std::string m_reply;         // the reply text with its NUL
    std::string m_notification;  // the notification text with its NUL
    CWorkTimer m_broadcastTime;
    int m_listener = -1;
    int m_stopPipe[2] = {-1, -1};
    int m_broadcastPipe[2] = {-1, -1};
    unsigned short m_port = 0;
    std::function<void()> m_onStart;
    std::thread m_thread;
};
