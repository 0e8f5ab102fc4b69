#include "CTiSequenceFile.h"

#include <cstring>
#include <set>

#include "CException.h"
#include "NFileUtil.h"

namespace {

// A sequence file larger than this is not one the formatter could hold.
constexpr size_t kMaxFileSize = 64 * 1024 * 1024;

// Where each block's (offset, size) pair lies in the table, as an index of m_table (the
// table's pairs from M+24 on, 8 bytes each).
constexpr int kBlockPair[CTiSeqStmData::kBlockCount] = {0, 1, 2, 3, 4, 5, 7, 11, 12, 12, 14, 15, 16};
constexpr uint32_t kTableStart = 24;
constexpr int kTablePairs = 17;

std::vector<uint8_t> ReadWhole(const std::string& path) {
    std::string contents;
    std::string error;
    if (NFileUtil::ReadFile(path, kMaxFileSize, contents, error) != NFileUtil::EReadResult::READ) {
        THROW_EXCEPTION("Unable to read sequence file %s", path.c_str());
    }
    return std::vector<uint8_t>(contents.begin(), contents.end());
}

}  // namespace

CTiSeqStmData::CTiSeqStmData(const CTiSequenceFile& file, uint32_t offset) : m_file(file), m_offset(offset) {
    file.Require(offset, CTiSequenceFile::kElementSize);
    m_period = file.U32(offset + 4);
    for (unsigned int i = 0; i < 4; ++i) {
        m_parameters[i] = file.U32(offset + 12 + 4 * i);
    }
    const uint32_t table = file.U32(offset + 52);
    file.Require(table, kTableStart + 8 * kTablePairs);
    for (int pair = 0; pair < kTablePairs; ++pair) {
        const uint32_t at = table + kTableStart + 8 * static_cast<uint32_t>(pair);
        m_table[pair] = SBlock{file.U32(at), file.U32(at + 4)};
    }
    for (int block = 0; block < kBlockCount; ++block) {
        const SBlock& data = m_table[kBlockPair[block]];
        file.Require(data.offset, data.size);
    }
}

CTiSeqStmData::SBlock CTiSeqStmData::GetDataBlock(int block) const {
    if (block < 0 || block >= kBlockCount) {
        THROW_EXCEPTION("Invalid block specified");
    }
    return m_table[kBlockPair[block]];
}

const uint8_t* CTiSeqStmData::GetDataBlockBytes(int block) const {
    return m_file.Bytes(GetDataBlock(block).offset);
}

CTiSequenceSet::CTiSequenceSet(const CTiSequenceFile& file, uint32_t offset) {
    file.Require(offset, 12);
    const uint8_t count = file.U8(offset + 1);
    const uint32_t descriptor = file.U32(offset + 4);
    m_lower = file.U16(descriptor + 8);
    m_upper = file.U16(descriptor + 10);
    const uint32_t first = file.U32(offset + 8);
    if (count > 0) {
        file.Require(first, count * CTiSequenceFile::kElementSize);
        file.CountStructures(count);
    }
    m_elements.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        m_elements.emplace_back(file, first + i * CTiSequenceFile::kElementSize);
    }
}

const CTiSeqStmData& CTiSequenceSet::FindSeqElement(double frameRateHz) const {
    const double period = 1000000.0 / frameRateHz;
    const CTiSeqStmData* best = nullptr;
    for (const CTiSeqStmData& element : m_elements) {
        if (element.GetPeriodUs() < period && (!best || element.GetPeriodUs() > best->GetPeriodUs())) {
            best = &element;
        }
    }
    if (!best) {
        THROW_EXCEPTION("Element not found");
    }
    return *best;
}

CTiSeqSection::CTiSeqSection(const CTiSequenceFile& file, uint32_t offset) {
    file.Require(offset, 20);
    m_next = file.U32(offset + 8);
    const uint8_t count = file.U8(offset + 16);
    if (count > 0) {
        file.Require(offset + 20, count * CTiSequenceFile::kSetRecordSize);
        file.CountStructures(count);
    }
    m_sets.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        m_sets.emplace_back(file, offset + 20 + i * CTiSequenceFile::kSetRecordSize);
    }
}

const CTiSequenceSet& CTiSeqSection::FindSequenceSet(double frameRateHz) const {
    const double period = 1000000.0 / frameRateHz;
    for (const CTiSequenceSet& set : m_sets) {
        if (set.Fits(period)) {
            return set;
        }
    }
    THROW_EXCEPTION("Sequence data not found");
}

CTiSequenceFile::CTiSequenceFile(const std::string& path) : m_bytes(ReadWhole(path)) { Parse(); }

CTiSequenceFile::CTiSequenceFile(std::vector<uint8_t> bytes) : m_bytes(std::move(bytes)) { Parse(); }

void CTiSequenceFile::Parse() {
    if (m_bytes.size() < 8 || memcmp(m_bytes.data(), kFileMagicV00, 8) != 0) {
        THROW_EXCEPTION("Invalid File - file magic number not expected");
    }
    std::set<uint32_t> seen;
    for (uint32_t offset = kFirstSection; offset != 0;) {
        if (!seen.insert(offset).second) {
            THROW_EXCEPTION("Section chain loops back to offset %u", offset);
        }
        m_sections.emplace_back(*this, offset);
        offset = m_sections.back().GetNextOffset();
    }
}

const CTiSequenceSet& CTiSequenceFile::FindSequenceSet(double frameRateHz) const {
    try {
        return m_sections.front().FindSequenceSet(frameRateHz);
    } catch (const CException&) {
        THROW_EXCEPTION("Sequence set not found");
    }
}

void CTiSequenceFile::CountStructures(uint32_t count) const {
    m_elementCount += count;
    if (m_elementCount > kMaxElements) {
        THROW_EXCEPTION("Sequence file holds more than %u sets and elements", kMaxElements);
    }
}

void CTiSequenceFile::Require(uint32_t offset, uint32_t size) const {
    if (static_cast<uint64_t>(offset) + size > m_bytes.size()) {
        THROW_EXCEPTION("Offset %u (+%u bytes) lies outside the file of %u bytes", offset, size,
                        static_cast<unsigned>(m_bytes.size()));
    }
}

uint8_t CTiSequenceFile::U8(uint32_t offset) const {
    Require(offset, 1);
    return m_bytes[offset];
}

uint16_t CTiSequenceFile::U16(uint32_t offset) const {
    Require(offset, 2);
    return static_cast<uint16_t>(m_bytes[offset] | m_bytes[offset + 1] << 8);
}

uint32_t CTiSequenceFile::U32(uint32_t offset) const {
    Require(offset, 4);
    return static_cast<uint32_t>(m_bytes[offset]) | static_cast<uint32_t>(m_bytes[offset + 1]) << 8 |
           static_cast<uint32_t>(m_bytes[offset + 2]) << 16 | static_cast<uint32_t>(m_bytes[offset + 3]) << 24;
}
