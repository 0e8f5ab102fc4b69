#pragma once
// CSimFormatter: a simulated DLP formatter block: its registers, and the memories behind
// its address/data register pairs: MLH1 (0x308/0x30C, 0x4000 words: two halves at 0 and
// 0x2000), MLH2 (0x310/0x314, 0x400 words: halves at 0 and 0x200) and the sequence
// memory (0x320/0x324, 0x10000 words: halves at 0 and 0x8000). Reading the sequencer
// status (0x284) gives bit 0 set: the sequencer runs.

#include "CSimFpgaPort.h"

class CSimFormatter : public CSimFpgaPort {
public:
    static constexpr unsigned int kMlh1Data = 0x30C;
    static constexpr unsigned int kMlh2Data = 0x314;
    static constexpr unsigned int kSequenceData = 0x324;

    CSimFormatter() {
        AddMemory(0x308, kMlh1Data, 0x4000);
        AddMemory(0x310, kMlh2Data, 0x400);
        AddMemory(0x320, kSequenceData, 0x10000);
        Register(0x284) = 1;
    }
};
