#pragma once
// CPtBusLocal: the FPGA registers reached directly through a memory region mapped into
// the process. Mapping it (which device, physical address and size) is the board driver's
// business; the bus only takes the pointer, the size and whether words are byte-swapped.
// The port is ignored: the region is one block's register space, addressed by byte address.
//
//   words   word i of a transfer is at word index address/4 + (increment ? i : 0),
//           byte-swapped on the way in and out when `swap` is set;
//   bytes   byte i is at byte offset address + (increment ? i : 0), never swapped, when
//           written; reads take whole words (swapped when set), each once, and copy their
//           bytes out in memory order from the address's own byte on, so a partial first
//           or trailing word gives only the bytes the range covers.
// Every access must lie inside the region: one that does not throws "PtBus local: access
// outside the region (0x%X + %u bytes, region of %u bytes)" before touching memory.
// Request refuses a read and a write in one call like the packet bus, else it is a Send
// of the transmit data followed by a Receive of the receive data (nothing to wait for).
// The generic packets throw "Not implemented"; DMA as on CPtBusPcie ("Not supported").
//
// Lifetime: the region outlives the bus. Thread contract: one thread.

#include "IPtBus.h"

class CPtBusLocal : public IPtBus {
public:
    CPtBusLocal(volatile unsigned char* base, unsigned int size, bool swap);

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
    void Receive(unsigned char port, unsigned short address, unsigned int* data, unsigned int count, bool increment,
                 unsigned int timeoutMs) override;
    void Receive(unsigned char port, unsigned short address, unsigned char* data, unsigned int count, bool increment,
                 unsigned int timeoutMs) override;
    void Request(unsigned char port, unsigned short address, const unsigned int* txData, unsigned int txCount,
                 unsigned int* rxData, unsigned int rxCount, bool increment, unsigned int timeoutMs) override;
    void Request(unsigned char port, unsigned short address, const unsigned char* txData, unsigned int txCount,
                 unsigned char* rxData, unsigned int rxCount, bool increment, unsigned int timeoutMs) override;
    void EnableTx(bool) override {}
    void EnableRx(bool) override {}
    bool IsDmaAvailable() override { return false; }
    bool IsDmaReady() override;
    void DmaReset() override;
    void DmaSend(unsigned char port, unsigned short address, const unsigned char* data, unsigned int count,
                 bool increment, const unsigned char* data2, unsigned int count2, unsigned int timeoutMs) override;
    // The region's words from `address` when [address, address + size) lies inside it.
    volatile unsigned int* GetDirectWords(unsigned char port, unsigned int address, unsigned int size,
                                          bool& swap) override;

private:
    void CheckRange(unsigned int address, unsigned int count, unsigned int itemBytes, bool increment) const;
    volatile unsigned int* Word(unsigned int address) const {
        return reinterpret_cast<volatile unsigned int*>(m_base + (address & ~3u));
    }

    volatile unsigned char* m_base;
    unsigned int m_size;
    bool m_swap;
};
