#include "CPtBusPcie.h"

#include <sched.h>

#include <chrono>
#include <thread>

#include "CException.h"
#include "NPtPacket.h"
#include "time/CTimer.h"

namespace {

void CheckSize(const char* what, unsigned port, unsigned address, unsigned int count, bool words) {
    if (count > (words ? NPtPacket::kMaxWords : NPtPacket::kMaxBytes)) {
        THROW_EXCEPTION("PtBus %s: [%d][0x%04X]: Packet size too large: %d %s", what, port, address, count,
                        words ? "words" : "bytes");
    }
}

}  // namespace

CPtBusPcie::CPtBusPcie(IPtDevice& device, const IMonotonicClock& clock, std::function<void(unsigned int)> sleepMs)
    : m_device(device), m_clock(clock), m_sleepMs(std::move(sleepMs)) {
    if (!m_sleepMs) {
        m_sleepMs = [](unsigned int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); };
    }
}

void CPtBusPcie::Reset() {
    m_sent = 0;
    m_received = 0;
}

uint32_t CPtBusPcie::ReadBar1(uint32_t offset) {
    SPtBar1Register reg{1, offset, 0};
    if (m_device.Ioctl(IPtDevice::kReadBar1, &reg) < 0) {
        THROW_ERRNO_EXCEPTION("PtBus: cannot read BAR1 register 0x%04X", offset);
    }
    return reg.value;
}

uint32_t CPtBusPcie::ReadVsync() {
    uint32_t counter = 0;
    if (m_device.Ioctl(IPtDevice::kReadVsync, &counter) < 0) {
        THROW_ERRNO_EXCEPTION("PtBus: cannot read the v-sync counter");
    }
    return counter & 0xFFFF;
}

void CPtBusPcie::WaitTxValid() {
    CTimer timer(m_clock, kTxValidTimeoutMs);
    while (!timer.IsExpired()) {
        if (ReadBar1(IPtDevice::kBar1Status) & IPtDevice::kStatusTxValid) {
            return;
        }
    }
    if (!(ReadBar1(IPtDevice::kBar1Status) & IPtDevice::kStatusTxValid)) {
        THROW_EXCEPTION("PtBus send timeout : TX_VALID not up");
    }
}

void CPtBusPcie::SendPacket(uint64_t header, const void* payload, unsigned int bytes, unsigned port,
                            unsigned address) {
    WaitTxValid();
    SPtTransfer transfer{bytes, 0, header, const_cast<void*>(payload)};
    if (m_device.Ioctl(IPtDevice::kSendPacket, &transfer) < 0) {
        THROW_ERRNO_EXCEPTION("PtBus Send: [%d][0x%04X]: send packet failed", port, address);
    }
    ++m_sent;
}

void CPtBusPcie::Send(unsigned char type, unsigned char subType, unsigned short fieldA, unsigned short fieldB,
                      const unsigned int* data, unsigned int count, bool flag0, bool flag1, bool flag2, bool flag3) {
    CheckSize("Send", type, fieldA, count, true);
    SendPacket(NPtPacket::MakeGenericHeader(type, subType, fieldA, fieldB, count * 4, flag0, flag1, flag2, flag3),
               data, count * 4, type, fieldA);
}

void CPtBusPcie::Send(unsigned char type, unsigned char subType, unsigned short fieldA, unsigned short fieldB,
                      const unsigned char* data, unsigned int count, bool flag0, bool flag1, bool flag2, bool flag3) {
    CheckSize("Send", type, fieldA, count, false);
    SendPacket(NPtPacket::MakeGenericHeader(type, subType, fieldA, fieldB, count, flag0, flag1, flag2, flag3), data,
               count, type, fieldA);
}

void CPtBusPcie::Send(unsigned char first, unsigned char second, unsigned char third, bool flag0, bool flag1,
                      bool flag2, bool flag3) {
    SendPacket(NPtPacket::MakeShortHeader(first, second, third, flag0, flag1, flag2, flag3), nullptr, 0, first, 0);
}

void CPtBusPcie::Send(unsigned char port, unsigned short address, const unsigned int* data, unsigned int count,
                      bool increment) {
    CheckSize("Send", port, address, count, true);
    SendPacket(NPtPacket::MakeHeader(NPtPacket::TYPE_POSTED_WRITE, port, address, count * 4, increment), data,
               count * 4, port, address);
}

void CPtBusPcie::Send(unsigned char port, unsigned short address, const unsigned char* data, unsigned int count,
                      bool increment) {
    CheckSize("Send", port, address, count, false);
    SendPacket(NPtPacket::MakeHeader(NPtPacket::TYPE_POSTED_WRITE, port, address, count, increment), data, count,
               port, address);
}

void CPtBusPcie::ReceiveBytes(unsigned port, unsigned address, void* data, unsigned int bytes, bool increment,
                              unsigned int timeoutMs) {
    SPtTransfer transfer{bytes, 0, 0, data};
    auto attempt = [&] {
        transfer.length = bytes;
        transfer.header = 0;
        return m_device.Ioctl(IPtDevice::kReceivePacket, &transfer) >= 0;
    };
    CTimer timer(m_clock, timeoutMs);
    bool received = false;
    while (!received && !timer.IsExpired()) {
        received = attempt();
    }
    if (!received && !attempt()) {
        THROW_EXCEPTION("PtBus Receive: [%d][0x%04X]: Timeout[%d] waiting reply packet", port, address,
                        static_cast<int>(timer.GetElapsedMs()));
    }
    const uint64_t expected = NPtPacket::MakeReplyHeader(port, address, bytes, increment);
    if (!NPtPacket::IsExpectedReply(transfer.header, expected)) {
        THROW_EXCEPTION("PtBus: [%d][0x%04X]: Not the expected packet %016llX:%016llX", port, address,
                        static_cast<unsigned long long>(transfer.header), static_cast<unsigned long long>(expected));
    }
    ++m_received;
}

void CPtBusPcie::Receive(unsigned char port, unsigned short address, unsigned int* data, unsigned int count,
                         bool increment, unsigned int timeoutMs) {
    CheckSize("Receive", port, address, count, true);
    ReceiveBytes(port, address, data, count * 4, increment, timeoutMs);
}

void CPtBusPcie::Receive(unsigned char port, unsigned short address, unsigned char* data, unsigned int count,
                         bool increment, unsigned int timeoutMs) {
    CheckSize("Receive", port, address, count, false);
    ReceiveBytes(port, address, data, count, increment, timeoutMs);
}

void CPtBusPcie::Drain() {
    uint32_t last = 0;
    for (int pass = 0; pass < 2; ++pass) {
        CTimer timer(m_clock, kDrainPassMs);
        while (!timer.IsExpired() && (ReadBar1(IPtDevice::kBar1Status) & IPtDevice::kStatusRxData)) {
            last = ReadBar1(IPtDevice::kBar1Pop);
            if (pass == 1) {
                m_sleepMs(1);
            }
        }
    }
    if (ReadBar1(IPtDevice::kBar1Status) & IPtDevice::kStatusRxData) {
        THROW_EXCEPTION("Can not empty the receiving buffer, %d", static_cast<int>(last));
    }
}

void CPtBusPcie::RequestBytes(unsigned port, unsigned address, const void* tx, unsigned int txBytes, void* rx,
                              unsigned int rxBytes, bool increment, unsigned int timeoutMs) {
    Drain();
    SendPacket(NPtPacket::MakeHeader(NPtPacket::TYPE_REQUEST, port, address, txBytes, increment, rxBytes), tx,
               txBytes, port, address);
    ReceiveBytes(port, address, rx, rxBytes, increment, timeoutMs);
}

void CPtBusPcie::Request(unsigned char port, unsigned short address, const unsigned int* txData, unsigned int txCount,
                         unsigned int* rxData, unsigned int rxCount, bool increment, unsigned int timeoutMs) {
    CheckSize("Request", port, address, txCount, true);
    CheckSize("Receive", port, address, rxCount, true);
    NPtPacket::RequireOneDirection(port, address, txCount, rxCount);
    RequestBytes(port, address, txData, txCount * 4, rxData, rxCount * 4, increment, timeoutMs);
}

void CPtBusPcie::Request(unsigned char port, unsigned short address, const unsigned char* txData,
                         unsigned int txCount, unsigned char* rxData, unsigned int rxCount, bool increment,
                         unsigned int timeoutMs) {
    CheckSize("Request", port, address, txCount, false);
    CheckSize("Receive", port, address, rxCount, false);
    NPtPacket::RequireOneDirection(port, address, txCount, rxCount);
    RequestBytes(port, address, txData, txCount, rxData, rxCount, increment, timeoutMs);
}

bool CPtBusPcie::IsDmaReady() { THROW_EXCEPTION("Not supported"); }

void CPtBusPcie::DmaReset() { THROW_EXCEPTION("Not supported"); }

void CPtBusPcie::DmaSend(unsigned char, unsigned short, const unsigned char*, unsigned int, bool,
                         const unsigned char*, unsigned int, unsigned int) {
    THROW_EXCEPTION("Not supported");
}

unsigned int CPtBusPcie::WaitOnVsync(unsigned int count, unsigned int timeoutMs, bool yield) {
    if (count >= 65535) {
        THROW_EXCEPTION("V-sync count value %d is out of range", static_cast<int>(count));
    }
    const uint32_t start = ReadVsync();
    if (count == 0) {
        return start;
    }
    CTimer timer(m_clock, timeoutMs);
    for (;;) {
        if (((ReadVsync() - start) & 0xFFFF) >= count) {
            return start;
        }
        if (timer.IsExpired()) {
            THROW_EXCEPTION("PtBus WaitOnVsync timeout");
        }
        if (yield) {
            sched_yield();
        }
    }
}
