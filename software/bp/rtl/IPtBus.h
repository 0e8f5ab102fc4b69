#pragma once
// IPtBus: the packet bus every FPGA block is reached through: 32-bit words or bytes
// moved to and from a numbered port (one FPGA block) at a register address inside it.
//
// `increment` selects whether consecutive payload items go to consecutive addresses
// (true) or all to one address, a FIFO port (false). Counts are in words for the word
// forms and in bytes for the byte forms. Posted writes (Send) are not acknowledged;
// Request waits for the FPGA's answer, so it also serves as a barrier behind earlier
// posted writes. A request either writes (and waits for an empty acknowledgement) or
// reads, never both: the firmware cannot do both in one transaction.
//
// Errors throw CException. Thread contract: a bus and its banks are used from one
// thread; callers sharing a bus between threads serialise their calls.

class IPtBus {
public:
    virtual ~IPtBus() = default;

    // Generic packets (fields placed as each bus documents).
    virtual void Send(unsigned char type, unsigned char subType, unsigned short fieldA, unsigned short fieldB,
                      const unsigned int* data, unsigned int count, bool flag0, bool flag1, bool flag2,
                      bool flag3) = 0;
    virtual void Send(unsigned char type, unsigned char subType, unsigned short fieldA, unsigned short fieldB,
                      const unsigned char* data, unsigned int count, bool flag0, bool flag1, bool flag2,
                      bool flag3) = 0;
    virtual void Send(unsigned char first, unsigned char second, unsigned char third, bool flag0, bool flag1,
                      bool flag2, bool flag3) = 0;

    // Posted writes.
    virtual void Send(unsigned char port, unsigned short address, const unsigned int* data, unsigned int count,
                      bool increment) = 0;
    virtual void Send(unsigned char port, unsigned short address, const unsigned char* data, unsigned int count,
                      bool increment) = 0;

    // Reads of the reply to an earlier request.
    virtual void Receive(unsigned char port, unsigned short address, unsigned int* data, unsigned int count,
                         bool increment, unsigned int timeoutMs) = 0;
    virtual void Receive(unsigned char port, unsigned short address, unsigned char* data, unsigned int count,
                         bool increment, unsigned int timeoutMs) = 0;

    // Acknowledged transactions.
    virtual void Request(unsigned char port, unsigned short address, const unsigned int* txData, unsigned int txCount,
                         unsigned int* rxData, unsigned int rxCount, bool increment, unsigned int timeoutMs) = 0;
    virtual void Request(unsigned char port, unsigned short address, const unsigned char* txData,
                         unsigned int txCount, unsigned char* rxData, unsigned int rxCount, bool increment,
                         unsigned int timeoutMs) = 0;

    virtual void EnableTx(bool enable) = 0;
    virtual void EnableRx(bool enable) = 0;

    virtual bool IsDmaAvailable() = 0;
    virtual bool IsDmaReady() = 0;
    virtual void DmaReset() = 0;
    virtual void DmaSend(unsigned char port, unsigned short address, const unsigned char* data, unsigned int count,
                         bool increment, const unsigned char* data2, unsigned int count2, unsigned int timeoutMs) = 0;

    // After the packet operations: a bus whose registers are plain memory hands out the
    // word at byte address `address` of a range of `size` bytes of a port (and whether
    // words are byte-swapped there), so that a register bank can store a register without
    // a bus call. Null (the default, and for any range it does not hold whole): every
    // access goes through the operations above.
    virtual volatile unsigned int* GetDirectWords(unsigned char /*port*/, unsigned int /*address*/,
                                                  unsigned int /*size*/, bool& /*swap*/) {
        return nullptr;
    }
};
