#pragma once
// Sequence files for the tests: one section with a 2D set for 50..70 Hz (three elements)
// and a 3D set for 100..250 Hz, and a second section that is never searched.

#include <cstdint>
#include <vector>

#include "NTiSequenceWriter.h"

inline NTiSequenceWriter::SElement Element(uint32_t periodUs, uint32_t firstWord, size_t words = 4) {
    NTiSequenceWriter::SElement element;
    element.periodUs = periodUs;
    element.parameters = {1, 2, 3, 4};
    std::vector<uint32_t> data(words);
    for (size_t i = 0; i < words; ++i) {
        data[i] = firstWord + static_cast<uint32_t>(i);
    }
    element.blocks[0] = NTiSequenceWriter::WordBytes(data);
    return element;
}

inline std::vector<uint8_t> TestSequenceFile() {
    using namespace NTiSequenceWriter;
    SSet twoD{14285, 20000, {Element(15000, 0x150000), Element(16000, 0x160000), Element(16000, 0x161000)}};
    SSet threeD{4000, 10000, {Element(3000, 0x300000), Element(4000, 0x400000)}};
    SSet never{1, 60000, {Element(100, 0x999)}};
    return Write({SSection{{twoD, threeD}}, SSection{{never}}});
}
