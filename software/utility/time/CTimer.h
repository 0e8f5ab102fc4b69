#pragma once
// CTimer: a start count plus a duration, read from an IMonotonicClock.
//
// The clock must outlive the timer. A timer is used by one thread at a time.
// Because clock counts wrap, a timer can only measure spans shorter than the clock's
// wrap period (GetWrapPeriodMs): Start refuses longer durations, and a timer that is
// left unread for longer than one wrap period after it was started may read as fresh.

#include <cstdint>

#include "IMonotonicClock.h"

class CTimer {
public:
    // Constructs a timer that is already started with the given duration.
    explicit CTimer(const IMonotonicClock& clock, uint32_t durationMs = 0);

    // Restarts the timer now with a new duration. Throws CException when the duration
    // cannot be measured with this clock.
    void Start(uint32_t durationMs);
    // Restarts the timer now, keeping its duration.
    void Restart();

    uint32_t GetDurationMs() const { return m_durationMs; }
    uint64_t GetElapsedMs() const;
    // Time left until expiry, 0 once expired.
    uint64_t GetRemainingMs() const;
    bool IsExpired() const { return GetElapsedMs() >= m_durationMs; }

private:
    const IMonotonicClock& m_clock;
    uint32_t m_startCount;
    uint32_t m_durationMs;
};
