#pragma once
// CIpcOutbox: the datagrams a server sends, kept per destination while the destination's
// receive queue is full and sent in order as it makes room, so that every reply of a
// long answer arrives however short the receiver's queue is (the system's default is 10
// datagrams), and the server never blocks on a slow receiver.
//
// How it waits: a Unix datagram socket connected to a destination polls writable only
// while the destination's receive queue has room. For each destination with datagrams
// waiting the outbox keeps one such probe socket (unbound, used only for the poll); the
// datagrams themselves leave from the server's own socket, so receivers see the
// server's address as their sender.
//
// A send refused although the destination's probe polls writable has one of two causes,
// and waiting for the probe would wake the loop at once, every turn:
// - the server's own send buffer is full (its socket does not poll writable either). A
//   receiver whose socket is connected to the server is exempt from the kernel's queue
//   limit, so while it does not read, what it was sent stays charged to the server's
//   socket, and once that is full nothing leaves for anyone. The loop then watches the
//   server's socket for writing instead of the probes (IsWaitingForOwnRoom), and the
//   outbox tries every destination when it has room.
// - the probe watches a socket that is gone, since a new one took its path: a probe
//   connected to a closed socket polls writable. The outbox connects a new probe.
//
// Order: a datagram for a destination that has datagrams waiting is queued behind them,
// never sent ahead.
//
// Bounds: a destination holds at most kMaxQueuedBytes waiting; a datagram past that
// drops the destination's whole queue with a log line (its receiver stopped reading;
// what it missed is stale by now). At most kMaxDestinations wait at a time; a further
// destination whose queue is full loses that datagram, logged. A destination that is
// gone (no socket at its path) drops its queue at once, logged.
//
// Lifetime: the socket outlives the outbox. Thread contract: the server's thread only.

#include <deque>
#include <functional>
#include <list>
#include <map>
#include <string>

#include "ipc/CDomainSocket.h"
#include "ipc/CPollSet.h"
#include "log/ILog.h"

class CIpcOutbox {
public:
    static constexpr size_t kMaxQueuedBytes = 256 * 1024;
    static constexpr size_t kMaxDestinations = 64;

    CIpcOutbox(CDomainSocket& socket, ILog& log) : m_socket(socket), m_log(log) {}
    CIpcOutbox(const CIpcOutbox&) = delete;
    CIpcOutbox& operator=(const CIpcOutbox&) = delete;

    // Sends one datagram to path now, or queues it behind what waits for path. False
    // (with a log line) when it was dropped.
    bool Send(const unsigned char* data, int size, const std::string& path);
    // Sends the same datagram to each of paths, as Send would to each in turn, but hands
    // the kernel those that can leave now in batches (CDomainSocket::SendToEach): one
    // system call for many receivers. Calls dropped(path) for each path Send would have
    // returned false for.
    void SendToEach(const unsigned char* data, int size, const std::list<std::string>& paths,
                    const std::function<void(const std::string&)>& dropped);

    // The probe of every destination with datagrams waiting, for writing; none while the
    // server's own send buffer is full: the server's loop, which watches the server's
    // socket for reading, then watches it for writing too (a descriptor goes into a poll
    // set once).
    void AddDescriptors(CPollSet& poll) const;
    bool IsWaitingForOwnRoom() const { return m_ownBufferFull; }
    // Sends what the destinations that became writable take now.
    void ProcessReady(const CPollSet& poll);

    size_t GetWaitingDestinations() const { return m_waiting.size(); }

private:
    struct SDestination {
        CDomainSocket probe;
        std::deque<std::string> datagrams;
        size_t bytes = 0;
    };
    enum class ESend { SENT, FULL, FAILED };

    ESend SendNow(const unsigned char* data, int size, const std::string& path);
    // Sends from the front while the destination takes datagrams; false when the
    // destination failed and its queue is to be dropped.
    bool Drain(const std::string& path, SDestination& destination);
    // After a send to the destination was refused for want of room, makes the loop wait
    // for the room that is missing: the destination's or the server's own. False (with
    // a log line) when the destination can no longer be watched.
    bool WaitForRoom(const std::string& path, SDestination& destination);
    // Connects a new probe to the socket now at path; false (with a log line) when none can be.
    bool ConnectProbe(const std::string& path, SDestination& destination);

    CDomainSocket& m_socket;
    ILog& m_log;
    std::map<std::string, SDestination> m_waiting;
    bool m_ownBufferFull = false;
};
