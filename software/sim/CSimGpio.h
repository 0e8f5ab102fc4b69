#pragma once
// CSimGpio: simulated GPIO inputs: 32 input pins whose levels a test or an integrator sets
// (the virtual projector's "sim:setGpio"), read as one word, bit n = pin n.
//
// Thread contract: the owner's thread.

#include <cstdint>

class CSimGpio {
public:
    static constexpr unsigned int kPins = 32;

    // False for a pin that does not exist.
    bool Set(unsigned int pin, bool high) {
        if (pin >= kPins) {
            return false;
        }
        m_levels = high ? m_levels | (1u << pin) : m_levels & ~(1u << pin);
        return true;
    }
    uint32_t Read() const { return m_levels; }

private:
    uint32_t m_levels = 0;
};
