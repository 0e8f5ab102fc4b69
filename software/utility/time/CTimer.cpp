#include "CTimer.h"

#include "CException.h"

CTimer::CTimer(const IMonotonicClock& clock, uint32_t durationMs)
    : m_clock(clock), m_startCount(0), m_durationMs(0) {
    Start(durationMs);
}

void CTimer::Start(uint32_t durationMs) {
    if (durationMs >= m_clock.GetWrapPeriodMs()) {
        THROW_EXCEPTION("Timer duration %u ms exceeds the clock's range of %llu ms", durationMs,
                        static_cast<unsigned long long>(m_clock.GetWrapPeriodMs()));
    }
    m_durationMs = durationMs;
    m_startCount = m_clock.GetCount();
}

void CTimer::Restart() { m_startCount = m_clock.GetCount(); }

uint64_t CTimer::GetElapsedMs() const { return m_clock.CountsToMs(m_startCount, m_clock.GetCount()); }

uint64_t CTimer::GetRemainingMs() const {
    const uint64_t elapsed = GetElapsedMs();
    return elapsed >= m_durationMs ? 0 : m_durationMs - elapsed;
}
