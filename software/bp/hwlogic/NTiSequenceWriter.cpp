#include "NTiSequenceWriter.h"

#include <cstring>

#include "CException.h"

namespace NTiSequenceWriter {

namespace {

constexpr uint32_t kHeader = 24;
constexpr uint32_t kSectionHead = 20;
constexpr uint32_t kSetRecord = 48;
constexpr uint32_t kDescriptor = 12;
constexpr uint32_t kElement = 72;
constexpr uint32_t kTable = 160;
// Position of each block's pair in the table (blocks 8 and 9 share one).
constexpr uint32_t kBlockPairAt[13] = {24, 32, 40, 48, 56, 64, 80, 112, 120, 120, 136, 144, 152};

void Put16(std::vector<uint8_t>& out, uint32_t at, uint32_t value) {
    out[at] = static_cast<uint8_t>(value);
    out[at + 1] = static_cast<uint8_t>(value >> 8);
}

void Put32(std::vector<uint8_t>& out, uint32_t at, uint32_t value) {
    for (uint32_t i = 0; i < 4; ++i) {
        out[at + i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

void PutTag(std::vector<uint8_t>& out, uint32_t at, const char* tag) { memcpy(out.data() + at, tag, 8); }

uint32_t Grow(std::vector<uint8_t>& out, size_t bytes) {
    const uint32_t at = static_cast<uint32_t>(out.size());
    out.resize(out.size() + bytes, 0);
    return at;
}

}  // namespace

std::vector<uint8_t> WordBytes(const std::vector<uint32_t>& words) {
    std::vector<uint8_t> bytes(words.size() * 4);
    for (size_t i = 0; i < words.size(); ++i) {
        Put32(bytes, static_cast<uint32_t>(4 * i), words[i]);
    }
    return bytes;
}

std::vector<uint8_t> Write(const std::vector<SSection>& sections) {
    if (sections.empty()) {
        THROW_EXCEPTION("A sequence file needs at least one section");
    }
    std::vector<uint8_t> out(kHeader, 0);
    PutTag(out, 0, "SEQF V00");
    std::vector<uint32_t> sectionAt;
    for (const SSection& section : sections) {
        if (section.sets.size() > 255) {
            THROW_EXCEPTION("A section holds at most 255 sets");
        }
        const uint32_t at = Grow(out, kSectionHead + kSetRecord * section.sets.size());
        PutTag(out, at, "SEQS V00");
        out[at + 16] = static_cast<uint8_t>(section.sets.size());
        if (!sectionAt.empty()) {
            Put32(out, sectionAt.back() + 8, at);
        }
        sectionAt.push_back(at);
    }
    for (size_t s = 0; s < sections.size(); ++s) {
        for (size_t t = 0; t < sections[s].sets.size(); ++t) {
            const SSet& set = sections[s].sets[t];
            if (set.elements.size() > 255) {
                THROW_EXCEPTION("A set holds at most 255 elements");
            }
            const uint32_t record = sectionAt[s] + kSectionHead + kSetRecord * static_cast<uint32_t>(t);
            const uint32_t descriptor = Grow(out, kDescriptor);
            PutTag(out, descriptor, "SBWD V00");
            Put16(out, descriptor + 8, set.lowerUs);
            Put16(out, descriptor + 10, set.upperUs);
            const uint32_t first = Grow(out, kElement * set.elements.size());
            out[record + 1] = static_cast<uint8_t>(set.elements.size());
            Put32(out, record + 4, descriptor);
            Put32(out, record + 8, first);
            for (size_t e = 0; e < set.elements.size(); ++e) {
                const SElement& element = set.elements[e];
                const uint32_t at = first + kElement * static_cast<uint32_t>(e);
                Put32(out, at + 4, element.periodUs);
                for (uint32_t p = 0; p < 4; ++p) {
                    Put32(out, at + 12 + 4 * p, element.parameters[p]);
                }
                const uint32_t table = Grow(out, kTable);
                PutTag(out, table, "STM  V30");
                Put32(out, at + 52, table);
                for (size_t block = 0; block < element.blocks.size(); ++block) {
                    const std::vector<uint8_t>& data = element.blocks[block];
                    if (data.empty() || (block == 9 && !element.blocks[8].empty())) {
                        continue;
                    }
                    const uint32_t dataAt = Grow(out, data.size());
                    memcpy(out.data() + dataAt, data.data(), data.size());
                    Put32(out, table + kBlockPairAt[block], dataAt);
                    Put32(out, table + kBlockPairAt[block] + 4, static_cast<uint32_t>(data.size()));
                }
            }
        }
    }
    return out;
}

}  // namespace NTiSequenceWriter
