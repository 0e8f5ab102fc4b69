#pragma once
// CSimFpgaDevice: a simulated FPGA behind the packet device's ioctl interface (IPtDevice),
// so that CPtBusPcie runs its real code against it.
//
//   posted write (type 9)  each payload word (or byte) is written to the port's register
//                          at the header's address, advancing by 4 (or 1) when increment
//                          is set; no reply
//   request (type 10)      a write is applied and answered with an empty reply; a read
//                          (reply length in bits 32-42) is answered with that many bytes
//                          read from the port; an empty request is answered at once.
//                          Replies carry type 11, the increment bit, the length, the port
//                          in bits 10-15 and the address in bits 48-57.
//   receive                hands out the oldest reply, at most the descriptor's length of
//                          payload; fails with EAGAIN while none is waiting
//   BAR1                   status: TX_VALID, and bit 1 while stale words wait in the
//                          receive buffer; offset 0x3000 pops one of them
//   v-sync                 a free-running 16-bit counter at the rate given, from the clock
// Packets to a port without a block are lost (a request to one is never answered), as
// on the real FPGA. Generic packets are recorded (GetGenericHeaders) and otherwise ignored.
//
// Faults for tests: no reply to requests; every reply header XORed with a mask (a wrong
// field); TX_VALID stuck low; stale words in the receive buffer (a number of them, or an
// endless stream). The access hook runs on every ioctl, so a test can make time pass on
// a hand-driven clock as the bus polls.
//
// Ownership: the device owns the blocks added with AddPort. Thread contract: one thread
// (the bus's); the test or plant that builds it reads registers on the same thread.

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "CSimFpgaPort.h"
#include "IPtDevice.h"
#include "time/IMonotonicClock.h"

class CSimFpgaDevice : public IPtDevice {
public:
    CSimFpgaDevice(const IMonotonicClock& clock, unsigned int vsyncHz = 60);

    // Adds a block at a port (replacing any), a plain register file when none is given.
    CSimFpgaPort& AddPort(unsigned int port, std::unique_ptr<CSimFpgaPort> block = nullptr);
    // Null when no block sits at the port.
    CSimFpgaPort* GetPort(unsigned int port) const;

    int Ioctl(unsigned long command, void* argument) override;

    void SetAccessHook(std::function<void()> hook) { m_hook = std::move(hook); }
    // Genlock: the v-sync counter follows a house sync shared by every device that reads
    // the same time base (nanoseconds, e.g. CLOCK_MONOTONIC), so the counters of several
    // simulated projectors on one host show the same count at the same moment.
    void SetHouseSync(std::function<uint64_t()> nowNs) { m_houseSync = std::move(nowNs); }
    void SetNoReply(bool on) { m_noReply = on; }
    void SetReplyHeaderXor(uint64_t mask) { m_replyXor = mask; }
    void SetTxValidStuck(bool on) { m_txStuck = on; }
    // Words waiting in the receive buffer; `endless` keeps the last one coming for good.
    void SetStaleWords(const std::vector<uint32_t>& words, bool endless = false);
    const std::vector<uint64_t>& GetGenericHeaders() const { return m_generic; }
    size_t GetPendingReplies() const { return m_replies.size(); }

private:
    struct SReply {
        uint64_t header;
        std::vector<unsigned char> payload;
    };

    void HandlePacket(const SPtTransfer& transfer);
    void WriteItems(CSimFpgaPort& block, unsigned int address, const unsigned char* data, unsigned int bytes,
                    bool increment, bool words);
    std::vector<unsigned char> ReadItems(CSimFpgaPort& block, unsigned int address, unsigned int bytes,
                                         bool increment, bool words);
    int Receive(SPtTransfer& transfer);
    uint32_t ReadBar1(uint32_t offset);
    uint32_t ReadVsync();

    const IMonotonicClock& m_clock;
    unsigned int m_vsyncHz;
    uint32_t m_lastCount;
    uint64_t m_elapsedCounts = 0;
    std::function<uint64_t()> m_houseSync;
    std::map<unsigned int, std::unique_ptr<CSimFpgaPort>> m_ports;
    std::deque<SReply> m_replies;
    std::deque<uint32_t> m_stale;
    bool m_staleEndless = false;
    std::function<void()> m_hook;
    bool m_noReply = false;
    uint64_t m_replyXor = 0;
    bool m_txStuck = false;
    std::vector<uint64_t> m_generic;
};
