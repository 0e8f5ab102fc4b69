#pragma once
// CPtBusPcie: the FPGA packet bus through the kernel driver's packet device (IPtDevice;
// "/dev/imxb_pcie_drv", opened by the board driver). Headers as NPtPacket lays them out.
//
//   Send       waits for TX_VALID, then posts one type-9 packet.
//   Receive    polls for the next reply until timeoutMs has passed, then tries once more;
//              checks its header against the one expected.
//   Request    drains stale words from the receive buffer, posts a type-10 packet
//              (transmit length in bits 16-26, receive length in bits 32-42) and receives
//              its reply; a write request waits for an empty acknowledgement.
// Payloads are limited to 256 words or 1024 bytes per packet; larger ones, and a request
// that would both write and read, are refused before the device is touched (so before the
// receive buffer is drained). DMA is not available here. The generic packets carry the
// fields at the bit positions of NPtPacket; their meaning belongs to the FPGA blocks.
//
// Time: every wait is measured on the IMonotonicClock given (a CTimer); the drain's
// pauses go through `sleepMs` (real sleeping by default), so a simulated device and a
// hand-driven clock make every time-out run without sleeping.
//
// Lifetime: device and clock outlive the bus. Thread contract: one thread.
// Errors throw CException with the texts of each method.

#include <cstdint>
#include <functional>

#include "IPtBus.h"
#include "IPtDevice.h"
#include "time/IMonotonicClock.h"

class CPtBusPcie : public IPtBus {
public:
    static constexpr unsigned int kTxValidTimeoutMs = 100;
    static constexpr unsigned int kDrainPassMs = 100;

    CPtBusPcie(IPtDevice& device, const IMonotonicClock& clock,
               std::function<void(unsigned int)> sleepMs = nullptr);

    void Initialize() {}
    // Zeroes the packet counters.
    void Reset();
    unsigned int GetPacketsSent() const { return m_sent; }
    unsigned int GetRepliesReceived() const { return m_received; }

    void Send(unsigned char type, unsigned char subType, unsigned short fieldA, unsigned short fieldB,
              const unsigned int* data, unsigned int count, bool flag0, bool flag1, bool flag2, bool flag3) override;
    void Send(unsigned char type, unsigned char subType, unsigned short fieldA, unsigned short fieldB,
              const unsigned char* data, unsigned int count, bool flag0, bool flag1, bool flag2, bool flag3) override;
    void Send(unsigned char first, unsigned char second, unsigned char third, bool flag0, bool flag1, bool flag2,
              bool flag3) override;
    void Send(unsigned char port, unsigned short address, const unsigned int* data, unsigned int count,
              bool increment) override;
    void Send(unsigned char port, unsigned short address, const unsigned char* data, unsigned int count,
              bool increment) override;
    // Throws "PtBus Receive: [%d][0x%04X]: Packet size too large: %d words" (or "... bytes"),
    // "PtBus Receive: [%d][0x%04X]: Timeout[%d] waiting reply packet" (elapsed ms), or
    // "PtBus: [%d][0x%04X]: Not the expected packet %016llX:%016llX" (received:expected).
    void Receive(unsigned char port, unsigned short address, unsigned int* data, unsigned int count, bool increment,
                 unsigned int timeoutMs) override;
    void Receive(unsigned char port, unsigned short address, unsigned char* data, unsigned int count, bool increment,
                 unsigned int timeoutMs) override;
    // Also throws "Can not empty the receiving buffer, %d" and "PtBus Request: [%d][0x%04X]:Request
    // should not read and write in a single transaction, this is a firmware limitation".
    void Request(unsigned char port, unsigned short address, const unsigned int* txData, unsigned int txCount,
                 unsigned int* rxData, unsigned int rxCount, bool increment, unsigned int timeoutMs) override;
    void Request(unsigned char port, unsigned short address, const unsigned char* txData, unsigned int txCount,
                 unsigned char* rxData, unsigned int rxCount, bool increment, unsigned int timeoutMs) override;

    void EnableTx(bool) override {}
    void EnableRx(bool) override {}
    bool IsDmaAvailable() override { return false; }
    // Throw "Not supported".
    bool IsDmaReady() override;
    void DmaReset() override;
    void DmaSend(unsigned char port, unsigned short address, const unsigned char* data, unsigned int count,
                 bool increment, const unsigned char* data2, unsigned int count2, unsigned int timeoutMs) override;

    // Polls TX_VALID for up to 100 ms, then reads it once more; throws "PtBus send
    // timeout : TX_VALID not up".
    void WaitTxValid();
    // Waits until `count` v-syncs have passed (the 16-bit counter wraps); returns the
    // counter at the start. 0 returns at once. Throws "V-sync count value %d is out of
    // range" (count of 65535 or more) or "PtBus WaitOnVsync timeout".
    unsigned int WaitOnVsync(unsigned int count, unsigned int timeoutMs, bool yield);

private:
    // One send-packet call; throws "PtBus Send: [%d][0x%04X]: send packet failed".
    void SendPacket(uint64_t header, const void* payload, unsigned int bytes, unsigned port, unsigned address);
    void ReceiveBytes(unsigned port, unsigned address, void* data, unsigned int bytes, bool increment,
                      unsigned int timeoutMs);
    void RequestBytes(unsigned port, unsigned address, const void* tx, unsigned int txBytes, void* rx,
                      unsigned int rxBytes, bool increment, unsigned int timeoutMs);
    void Drain();
    uint32_t ReadBar1(uint32_t offset);
    uint32_t ReadVsync();

    IPtDevice& m_device;
    const IMonotonicClock& m_clock;
    std::function<void(unsigned int)> m_sleepMs;
    unsigned int m_sent = 0;
    unsigned int m_received = 0;
};
