#pragma once
// CManualClock: an IMonotonicClock that stands still until the test moves it, so timer
// behaviour is tested without sleeping. The frequency is chosen by the test.

#include "time/IMonotonicClock.h"

class CManualClock : public IMonotonicClock {
public:
    explicit CManualClock(uint32_t frequency = 1000, uint32_t start = 0) : m_frequency(frequency), m_count(start) {}

    uint32_t GetCount() const override { return m_count; }
    uint32_t GetFrequency() const override { return m_frequency; }

    void SetCount(uint32_t count) { m_count = count; }
    void AdvanceMs(uint64_t ms) { m_count += static_cast<uint32_t>(ms * m_frequency / 1000u); }

private:
    uint32_t m_frequency;
    uint32_t m_count;
};
