#pragma once
// IVsyncCounter: the output's vertical sync as the sync module uses it: a free-running
// 16-bit count of v-syncs (the FPGA's counter) and the rate they come at.
//
// Thread contract: the controller's loop. Errors: CException when the hardware does
// not answer or a wait runs out.

#include <cstdint>

class IVsyncCounter {
public:
    virtual ~IVsyncCounter() = default;
    virtual uint16_t ReadVsyncCount() = 0;
    // Waits until `count` more v-syncs have come (0: none), at most timeoutMs; the count
    // then.
    virtual uint16_t WaitVsyncs(unsigned int count, unsigned int timeoutMs) = 0;
    virtual double GetFrameRateHz() const = 0;
};
