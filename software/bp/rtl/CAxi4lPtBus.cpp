#include "CAxi4lPtBus.h"

#include "CException.h"
#include "time/CTimer.h"

CAxi4lPtBus::CAxi4lPtBus(IPtBus& bus, unsigned char port, unsigned int baseAddress, const IMonotonicClock& clock)
    : m_mailbox(bus, port, baseAddress, 16), m_clock(clock) {}

void CAxi4lPtBus::WaitIdle(const char* what) {
    CTimer timer(m_clock, kBusyTimeoutMs);
    while (m_mailbox.ReadField(kControl, 0, 1) != 0) {
        if (timer.IsExpired()) {
            THROW_EXCEPTION("Timeout waiting AXI4-Lite %s transaction to finish", what);
        }
    }
}

void CAxi4lPtBus::Write(unsigned int address, unsigned int value) {
    m_mailbox.WriteField(kAddress, address);
    m_mailbox.WriteField(kWriteData, value);
    m_mailbox.WriteFieldWait(kControl, kWriteCommand);
    WaitIdle("write");
}

unsigned int CAxi4lPtBus::Read(unsigned int address) {
    m_mailbox.WriteField(kAddress, address);
    m_mailbox.WriteFieldWait(kControl, kReadCommand);
    WaitIdle("read");
    return m_mailbox.ReadField(kReadData);
}

void CAxi4lPtBus::Write(unsigned int, const unsigned int*, unsigned int) { THROW_EXCEPTION("Not implemented"); }

void CAxi4lPtBus::Read(unsigned int, unsigned int*, unsigned int) { THROW_EXCEPTION("Not implemented"); }
