#pragma once
// CMonotonicClockHighResPosix: CLOCK_MONOTONIC in units of 10 ns (100 MHz). The 32-bit
// count wraps about every 42.9 s, so it suits time-outs shorter than that.
// Throws CException at construction when the system clock is coarser than 10 ns, and
// from GetCount when the clock cannot be read.

#include "IMonotonicClock.h"

class CMonotonicClockHighResPosix : public IMonotonicClock {
public:
    static constexpr uint32_t kFrequency = 100000000u;

    CMonotonicClockHighResPosix();
    uint32_t GetCount() const override;
    uint32_t GetFrequency() const override { return kFrequency; }
};
