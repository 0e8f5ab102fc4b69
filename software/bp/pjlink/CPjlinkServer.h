#pragma once
// CPjlinkServer: the PJLink front-end's event loop: the control protocol on TCP and the
// class 2 search on UDP, both on the mapping's port, and the status notifications sent to
// the controller's notice port, over one CPjlinkProjector.
//
//   TCP      each connection gets a CPjlinkSession with a fresh random challenge; at most
//            kMaxClients at once (one more is closed at once); a connection idle for the
//            idle time (counted from the greeting until a complete authenticated
//            command, see CPjlinkSession), closed by its peer, or holding more than
//            kMaxPending bytes it does not read is closed.
//   password read from the mapping's file under the runtime root at every connection,
//            so a new password needs no restart: its first line, at most 32 printable
//            bytes. No file: no authentication. A file that group or others may read,
//            or one that cannot be used, refuses every connection ("PJLINK ERRA") and is
//            logged (never its content) until it is mended. What the file means is
//            logged at start too, a missing one included.
//   guesses  a wrong digest is logged with the peer's address; after
//            CLoginBackOff::kFreeAttempts wrong digests in a row from one address, its
//            connections are refused ("PJLINK ERRA") without a check until the back-off
//            has passed (1 s, doubling up to a minute), and logged as such.
//   search   "%2SRCH" CR in a datagram is answered "%2ACKN=<MAC>" CR to the sender's
//            address at the notice port; the MAC is the mapping's interface's.
//   notices  "%2LKUP=<MAC>" CR to the link-up address at start; "%2POWR=", "%2INPT=" and
//            "%2ERST=" with the new data when the power state or input changes (from the
//            controller's change notifications) or the error status changes (checked
//            every second once a controller is known), sent to the controller heard from
//            last (the last search, or the last connection whose command was answered), at
//            the notice port (the mapping's "noticePort", where a controller listens; the
//            projector's own port may differ).
//
// The UDP socket shares its port (SO_REUSEADDR), so a controller on the same host can
// bind the PJLink port on an address of its own.
//
// Lifetime: link and projector outlive it. Thread contract: Run on one thread; Stop may
// be called from a signal handler.

#include <netinet/in.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "CPjlinkProjector.h"
#include "CPjlinkSession.h"
#include "log/ILog.h"
#include "security/CLoginBackOff.h"
#include "time/CMonotonicClockLowRes.h"

class CPjlinkServer {
public:
    static constexpr size_t kMaxClients = 16;
    static constexpr size_t kMaxPending = 16 * 1024;

    // Binds TCP and UDP on the mapping's port (port 0: any free one, the same number for
    // both) and sends the link-up notice. Throws CException when a socket cannot be made.
    CPjlinkServer(CEventLink& link, const SPjlinkMapping& mapping, ILog& log, uint64_t idleMs = CPjlinkSession::kIdleMs);
    ~CPjlinkServer();
    CPjlinkServer(const CPjlinkServer&) = delete;
    CPjlinkServer& operator=(const CPjlinkServer&) = delete;

    uint16_t GetPort() const { return m_port; }
    // Serves until Stop.
    void Run();
    void Stop();

private:
    struct SClient {
        int fd = -1;
        sockaddr_in peer{};
        std::unique_ptr<CPjlinkSession> session;
        std::string pending;
        bool checked = true;  // its digest is checked (not refused by the back-off)
    };
    void Accept();
    // False when the client is to be closed.
    bool Read(SClient& client, uint64_t nowMs);
    bool Flush(SClient& client);
    void ReceiveDatagram();
    void Notify(const char* command, const std::string& data, std::string& last);
    void CheckChanges();
    void SendTo(const std::string& text, const sockaddr_in& address);
    // The password for a new connection; false when connections are to be refused.
    bool ReadPassword(std::string& password);
    // Counts a refused digest against the peer, or clears it after a success.
    void RecordAuthentication(SClient& client);
    void LogPasswordProblem(const std::string& problem);
    std::string Random();

    CEventLink& m_link;
    SPjlinkMapping m_mapping;
    CPjlinkProjector m_projector;
    ILog& m_log;
    uint64_t m_idleMs;
    int m_listenFd = -1;
    int m_udpFd = -1;
    int m_wake[2] = {-1, -1};
    uint16_t m_port = 0;
    std::string m_mac;
    std::vector<SClient> m_clients;
    bool m_haveController = false;
    sockaddr_in m_controller{};
    std::string m_lastPower;
    std::string m_lastInput;
    std::string m_lastErrors;
    uint64_t m_nextErrorCheckMs = 0;
    std::string m_passwordProblem;
    CMonotonicClockLowRes m_clock;
    CLoginBackOff m_backOff{m_clock};
};
