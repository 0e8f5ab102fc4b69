#pragma once
// IMonotonicClock: the seam through which every time-out and timer reads time.
// A clock counts ticks at a fixed frequency in an unsigned 32-bit counter that wraps;
// differences of two readings taken less than one wrap period apart are exact under
// unsigned arithmetic. Tests substitute a clock they advance by hand.
//
// Implementations are read-only after construction and may be read from any thread.

#include <cstdint>

class IMonotonicClock {
public:
    virtual ~IMonotonicClock() = default;

    // The current count; wraps at 2^32.
    virtual uint32_t GetCount() const = 0;
    // Counts per second; never 0.
    virtual uint32_t GetFrequency() const = 0;

    // Milliseconds between two counts of this clock, taken less than one wrap period apart.
    // A frequency in whole kilohertz divides in 32 bits, to the same result: timers are read
    // at every loop turn, and a 64-bit division is a library call on 32-bit ARM.
    uint64_t CountsToMs(uint32_t fromCount, uint32_t toCount) const {
        const uint32_t counts = toCount - fromCount;
        const uint32_t frequency = GetFrequency();
        if (frequency % 1000u == 0) {
            return counts / (frequency / 1000u);
        }
        return static_cast<uint64_t>(counts) * 1000u / frequency;
    }
    // The longest span, in milliseconds, that one count difference can represent.
    uint64_t GetWrapPeriodMs() const { return (uint64_t{1} << 32) * 1000u / GetFrequency(); }
};
