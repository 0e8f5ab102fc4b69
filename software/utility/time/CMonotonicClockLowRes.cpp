#include "CMonotonicClockLowRes.h"

#include <sys/times.h>
#include <unistd.h>

#include <cerrno>

uint32_t CMonotonicClockLowRes::s_frequency = 0;

CMonotonicClockLowRes::CMonotonicClockLowRes() {
    if (s_frequency == 0) {
        const long ticks = sysconf(_SC_CLK_TCK);
        s_frequency = ticks > 0 ? static_cast<uint32_t>(ticks) : 100u;
    }
}

uint32_t CMonotonicClockLowRes::GetCount() const {
    // times() accepts a null buffer on Linux; the return value is the elapsed tick count.
    const clock_t ticks = times(nullptr);
    if (ticks == static_cast<clock_t>(-1)) {
        return static_cast<uint32_t>(-errno);
    }
    return static_cast<uint32_t>(ticks);
}

uint32_t CMonotonicClockLowRes::GetFrequency() const { return s_frequency; }
