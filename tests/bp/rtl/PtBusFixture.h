#pragma once
// A CPtBusPcie over a simulated FPGA with a hand-driven microsecond clock: every device
// access lets kAccessUs pass and every pause of the bus passes on the clock, so each
// time-out runs its course without sleeping. Ports 1 and 2 hold plain register files;
// port 2 also has a 1024-word memory behind its registers 0x10 (address) and 0x14 (data).

#include <gtest/gtest.h>

#include "CPtBusPcie.h"
#include "CSimFpgaDevice.h"
#include "ManualClock.h"

class CPtBusFixture : public ::testing::Test {
protected:
    static constexpr uint32_t kAccessUs = 10;

    CPtBusFixture() {
        device.SetAccessHook([this] {
            ++accesses;
            clock.SetCount(clock.GetCount() + kAccessUs);
        });
        device.AddPort(1);
        device.AddPort(2).AddMemory(0x10, 0x14, 1024);
    }

    CManualClock clock{1000000};
    CSimFpgaDevice device{clock};
    CPtBusPcie bus{device, clock, [this](unsigned int ms) { clock.AdvanceMs(ms); }};
    unsigned int accesses = 0;
};
