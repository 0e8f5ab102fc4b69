#pragma once
// NTiSequenceWriter: writes "SEQF V00" sequence files in the layout CTiSequenceFile reads:
// the 24-byte file header, the sections in order (chained by their next-section
// offsets), then each set's descriptor (12 bytes), its elements (72 bytes each), their
// data-block tables (160 bytes) and the data blocks themselves. The file magic and the
// tags of sections ("SEQS V00"), descriptors ("SBWD V00") and tables ("STM  V30") fill
// the first 8 bytes of their structure; elements carry none. Bytes not named are 0.
// Used by tests, the fuzz seed corpus and the build's demo archive.
//
// Thread contract: free functions without state.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace NTiSequenceWriter {

struct SElement {
    uint32_t periodUs = 0;
    std::array<uint32_t, 4> parameters{};
    // Block 0 holds the bit-plane sequence words; the other blocks are empty unless given.
    std::array<std::vector<uint8_t>, 13> blocks;
};

struct SSet {
    uint16_t lowerUs = 0;
    uint16_t upperUs = 0;
    std::vector<SElement> elements;
};

struct SSection {
    std::vector<SSet> sets;
};

std::vector<uint8_t> Write(const std::vector<SSection>& sections);

// Little-endian bytes of words, for a data block or a lookup-table file.
std::vector<uint8_t> WordBytes(const std::vector<uint32_t>& words);

}  // namespace NTiSequenceWriter
