#pragma once
// CGpioPlant: the virtual projector's GPIO inputs (CSimGpio, set through "sim:setGpio")
// wired to the macro handler: as a periodic task of the dispatcher, run every turn of the
// controller's loop (at most 100 ms apart), it hands the macro handler the last and the
// current input levels, so an edge or a due macro is acted on within a quarter second.
//
// Lifetime: the GPIO inputs and the macro handler outlive it. Thread contract: the
// controller's loop.

#include "CC4jMacro.h"
#include "CSimGpio.h"
#include "dispatch/CEventDispatcher.h"

class CGpioPlant : public IPeriodicTask {
public:
    CGpioPlant(const CSimGpio& gpio, CC4jMacro& macros) : m_gpio(gpio), m_macros(macros), m_last(gpio.Read()) {}

    void Update() override {
        const uint32_t now = m_gpio.Read();
        m_macros.Update(m_last, now);
        m_last = now;
    }

private:
    const CSimGpio& m_gpio;
    CC4jMacro& m_macros;
    uint32_t m_last;
};
