#pragma once
// CPjlinkSession: one PJLink control connection, as bytes in and bytes out, so that the
// protocol is the same whatever carries it (the front-end's TCP connection, a test).
//
//   greeting   "PJLINK 0" CR without a password; "PJLINK 1 " + 8 random hex digits + CR
//              with one
//   command    "%" class command4 " " parameter CR, at most kMaxLine bytes with its CR;
//              "?" as parameter is a query
//   response   "%" class command4 "=" data CR (data from IPjlinkCommands)
//   password   the first command carries the 32 lower-case hex digits of MD5(random
//              digits + password) before its "%"; a wrong or missing digest answers
//              "PJLINK ERRA" CR and closes the session; later commands carry none
//
// A line that is too long is answered with ERR2 for its command, a command whose class,
// name, separator or parameter is malformed (or holds bytes outside printable ASCII)
// with ERR1 or ERR2 when its class and name can be read, and is dropped when they
// cannot. A session is idle once kIdleMs passed since its greeting or since its last
// complete command after authentication; bytes that complete no line, or lines before
// the digest was right, do not count, so a peer trickling bytes cannot hold a slot.
//
// Lifetime: the command backend outlives the session. Thread contract: one thread.

#include <cstdint>
#include <string>

#include "IPjlinkCommands.h"

class CPjlinkSession {
public:
    static constexpr size_t kMaxLine = 136;
    static constexpr size_t kDigestLength = 32;
    static constexpr uint64_t kIdleMs = 30000;

    // `random`: the 8 hex digits of this connection's challenge (only used with a
    // password); `nowMs`: any monotonic time in milliseconds. A session made with
    // kRefuseAll as its password asks for a password and accepts none (the owner could not
    // read the password it is to check).
    static const std::string kRefuseAll;
    CPjlinkSession(IPjlinkCommands& commands, const std::string& password, const std::string& random, uint64_t nowMs);

    std::string Greeting() const;
    // The bytes to send back for what arrived.
    std::string Receive(const char* data, size_t size, uint64_t nowMs);
    bool IsClosed() const { return m_closed; }
    bool IsAuthenticated() const { return m_authenticated; }
    // True once a digest was checked and found wrong (the session is then closed).
    bool IsRefused() const { return m_refused; }
    bool IsIdle(uint64_t nowMs, uint64_t idleMs = kIdleMs) const { return nowMs - m_lastCommandMs >= idleMs; }

private:
    std::string HandleLine(std::string line);

    IPjlinkCommands& m_commands;
    std::string m_password;
    std::string m_random;
    bool m_authenticated;
    bool m_closed = false;
    bool m_refused = false;
    bool m_overflow = false;
    uint64_t m_lastCommandMs;
    std::string m_line;
};
