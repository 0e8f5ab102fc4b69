#include "CMonotonicClockHighResPosix.h"

#include <time.h>

#include "CException.h"

CMonotonicClockHighResPosix::CMonotonicClockHighResPosix() {
    timespec resolution{};
    if (clock_getres(CLOCK_MONOTONIC, &resolution) != 0 || resolution.tv_sec != 0 || resolution.tv_nsec > 10) {
        // The text names 1 ns although 10 ns is accepted; scripts match on it as it stands.
        THROW_EXCEPTION("High resolution monotonic timer could not meet the requirement of 1ns resolution");
    }
}

uint32_t CMonotonicClockHighResPosix::GetCount() const {
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        THROW_ERRNO_EXCEPTION("Can not open high resolution system monotonic clock");
    }
    // The count wraps at 2^32, so 32-bit arithmetic gives it exactly and spares 32-bit ARM
    // a 64-bit division per reading.
    return static_cast<uint32_t>(now.tv_sec) * kFrequency + static_cast<uint32_t>(now.tv_nsec) / 10u;
}
