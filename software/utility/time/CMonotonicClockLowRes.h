#pragma once
// CMonotonicClockLowRes: a monotonic clock in times() ticks (typically 100 per second),
// cheap to read and wrapping only after months. A failing times() reads as minus errno.

#include "IMonotonicClock.h"

class CMonotonicClockLowRes : public IMonotonicClock {
public:
    CMonotonicClockLowRes();
    uint32_t GetCount() const override;
    uint32_t GetFrequency() const override;

private:
    // sysconf(_SC_CLK_TCK), read once for the whole process.
    static uint32_t s_frequency;
};
