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
    const uint64_t count = static_cast<uint64_t>(now.tv_nsec) / 10u + static_cast<uint64_t>(now.tv_sec) * 100000000u;
    return static_cast<uint32_t>(count);
}
