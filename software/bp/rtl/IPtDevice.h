#pragma once
// IPtDevice: the FPGA packet device as the kernel driver offers it: ioctl on the opened
// device file. CPtBusPcie speaks to the driver only through this seam, so that the same
// bus code runs against the real device (CPosixFile) and against a simulated FPGA.
//
// Commands ('Z' = 0x5A, argument size 4) and what the argument points to:
//   kSendPacket    0x40045A05  SPtTransfer: the driver sends header and payload
//   kReceivePacket 0x80045A04  SPtTransfer: the driver fills header and payload (up to
//                              `length` bytes) with the next reply; fails while none is there
//   kReadBar1      0x80045A06  SPtBar1Register: the driver fills `value`
//   kReadVsync     0x80045A0C  uint32_t: low 16 bits a free-running v-sync counter
// BAR1 registers: offset 0 the status word (bit 0 TX_VALID: the transmitter is ready;
// bit 1: the receive buffer holds data); offset 0x3000 pops one word of the receive buffer.

#include <cstdint>

// Packet transfer descriptor. The payload pointer is the platform's (32 bits on the
// projector's computer, where the driver's layout is length, padding, header, pointer).
struct SPtTransfer {
    uint32_t length;  // payload bytes
    uint32_t padding;
    uint64_t header;
    void* payload;
};

struct SPtBar1Register {
    uint32_t count;   // always 1
    uint32_t offset;
    uint32_t value;   // filled by the driver
};

class IPtDevice {
public:
    static constexpr unsigned long kSendPacket = 0x40045A05UL;
    static constexpr unsigned long kReceivePacket = 0x80045A04UL;
    static constexpr unsigned long kReadBar1 = 0x80045A06UL;
    static constexpr unsigned long kReadVsync = 0x80045A0CUL;
    static constexpr uint32_t kBar1Status = 0;
    static constexpr uint32_t kBar1Pop = 0x3000;
    static constexpr uint32_t kStatusTxValid = 1u << 0;
    static constexpr uint32_t kStatusRxData = 1u << 1;

    virtual ~IPtDevice() = default;
    // ioctl's result: 0 (or more) on success, -1 with errno set on failure.
    virtual int Ioctl(unsigned long command, void* argument) = 0;
};
