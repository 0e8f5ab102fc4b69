#pragma once
// CLoginBackOff: slows password guessing per peer address, whatever connection or
// protocol the guesses come on. After kFreeAttempts failed checks in a row, an address is
// refused without a check until a back-off has passed since its last failure: 1 s after
// the third failure, doubling with each further one up to kMaxBackOffMs. A success clears
// the address. Refusing unchecked also bounds how much of its thread a guesser can take
// (one check may cost a key derivation).
//
// At most kMaxPeers addresses are remembered; when a new one would pass that, the
// addresses whose back-off has run out are forgotten first, and if none has, the oldest
// record goes, so a sweep of addresses cannot make the table grow without bound.
//
// Time comes from the clock handed in; back-offs are measured with CTimer, so give a
// clock whose wrap period is long beside kMaxBackOffMs (the low-resolution clock: 497
// days at 100 ticks per second).
//
// Lifetime: the clock outlives it. Thread contract: one thread.

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "time/CTimer.h"
#include "time/IMonotonicClock.h"

class CLoginBackOff {
public:
    static constexpr unsigned int kFreeAttempts = 3;
    static constexpr uint32_t kMaxBackOffMs = 60000;
    static constexpr size_t kMaxPeers = 1024;

    explicit CLoginBackOff(const IMonotonicClock& clock) : m_clock(clock) {}

    // True when an attempt from this address is to be refused now, without a check.
    bool IsBackingOff(const std::string& peer) const;
    // Records a failed check; returns the failures in a row from this address.
    unsigned int Fail(const std::string& peer);
    void Succeed(const std::string& peer) { m_failures.erase(peer); }
    // How many addresses are remembered now.
    size_t GetPeerCount() const { return m_failures.size(); }

private:
    struct SFailures {
        unsigned int count = 0;
        CTimer backOff;  // runs from the last failure
        uint64_t order = 0;
    };
    void MakeRoom();

    const IMonotonicClock& m_clock;
    std::map<std::string, SFailures> m_failures;
    uint64_t m_nextOrder = 0;
};
