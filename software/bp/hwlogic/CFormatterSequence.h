#pragma once
// CFormatterSequence: the sequencer of one DLP formatter block on the FPGA packet bus:
// its sequence memory (two halves: low at word 0, high at 0x8000), the MLH1 and MLH2
// lookup tables, the stretch and the output mode. Registers by byte offset on the port:
//
//   0x200  bits 0-7 output mode (0 or 2); bit 8 MLHT bypass; bit 16 set on port 56
//   0x280  bit 0 sequencer enable; bits 16-31 base of the active sequence memory
//   0x284  bit 0 sequencer status
//   0x290  bits 0-15 stretch (stretch x 65536, truncated; 1.0 and above wrap)
//   0x308/0x30C, 0x310/0x314, 0x320/0x324  address and data of MLH1, MLH2, sequence memory
//
// The formatter on port 48 works in posted mode: register writes are posted (WriteField),
// memory loads posted too, and Apply mirrors bit 16 and the mode into register 0x200 of
// port 56. Every other formatter acknowledges each write (WriteFieldWait) and each 256-word
// chunk of a load (100 ms). The constructor only stages 0x280 = 1 and 0x200 = 0.
//
// Reset(sequencer, output, stretch) writes those power-on values back, each part on its
// own: the sequencer enabled on the low half (0x280 = 1), output mode 0 with the MLHT
// bypass off (0x200 bits 0-8; bit 16 of port 56 stays), stretch 0 (0x290).
//
// Lifetime: the bus outlives the block. Thread contract: the bus's thread.
// Errors: what the bus throws.

#include <cstdint>

#include "CPtAddressedMemoryPort.h"
#include "CPtRegisterBank.h"

class CFormatterSequence {
public:
    static constexpr unsigned char kPostedPort = 48;
    static constexpr unsigned char kSecondPort = 56;
    static constexpr unsigned int kOutput = 0x200;
    static constexpr unsigned int kSequencer = 0x280;
    static constexpr unsigned int kStatus = 0x284;
    static constexpr unsigned int kStretch = 0x290;
    static constexpr unsigned int kMlh1Address = 0x308;
    static constexpr unsigned int kMlh2Address = 0x310;
    static constexpr unsigned int kSequenceAddress = 0x320;
    static constexpr uint32_t kHighSequence = 0x8000;
    static constexpr uint32_t kHighMlh1 = 0x2000;
    static constexpr uint32_t kHighMlh2 = 0x200;
    static constexpr unsigned int kLoadTimeoutMs = 100;

    CFormatterSequence(IPtBus& bus, unsigned char port);

    void LoadSequence(const uint32_t* words, unsigned int count, bool low);
    void LoadMlh1(const uint32_t* words, unsigned int count, bool low);
    void LoadMlh2(const uint32_t* words, unsigned int count, bool low);
    // Throws "Stretch %f out of range" unless 0 <= stretch < 65536 (NaN included).
    void SetStretch(double stretch);
    void EnableSequencer(bool on);
    void EnableMlhtBypass(bool on);
    void Reset(bool sequencer, bool output, bool stretch);
    // Switches the sequencer to the low or high half; `mode` selects output mode 0 (set)
    // or 2 (clear). A sequencer whose status (0x284 bit 0) reads stopped is disabled
    // first; a failed status read is ignored on the posted-mode formatter only.
    void Apply(bool low, bool mode);
    bool IsUsingLowSeqMem() const { return m_bank.ReadShadowBits(kSequencer, 16, 0xFFFF0000) == 0; }
    bool IsPostedMode() const { return m_posted; }

private:
    void Commit(unsigned int offset, uint32_t value, unsigned int shift, uint32_t mask);
    void Load(CPtAddressedMemoryPort& memory, uint32_t address, const uint32_t* words, unsigned int count);

    bool m_posted;
    unsigned char m_port;
    CPtRegisterBank m_bank;
    CPtRegisterBank m_second;  // register 0x200 of port 56, for the posted-mode mirror
    CPtAddressedMemoryPort m_mlh1;
    CPtAddressedMemoryPort m_mlh2;
    CPtAddressedMemoryPort m_sequence;
};
