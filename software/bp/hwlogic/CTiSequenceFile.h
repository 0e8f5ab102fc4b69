#pragma once
// CTiSequenceFile: a DMD bit-plane sequence file ("SEQF V00"), parsed into sections,
// sequence sets and sequence elements with their data-block tables. Integers are
// little-endian; offsets count from the start of the file.
//
//   file      0: magic "SEQF V00"; 24: the first section
//   section   S+8: next section's offset (0 ends the chain); S+16: number of sets (u8);
//             S+20: the set records, one every 48 bytes
//   set       T+1: number of elements (u8); T+4: descriptor offset D (lower and upper
//             frame-period bounds, u16 microseconds, at D+8 and D+10); T+8: first
//             element's offset, elements following every 72 bytes
//   element   E+4: frame period (u32 microseconds); E+12, 16, 20, 24: parameters, kept
//             as read and not interpreted (selection uses the period alone, loading
//             block 0 alone); E+52: offset M of its data-block table
//   table     13 blocks (EDataBlock) as (offset, size) u32 pairs at M+24, 32, 40, 48, 56,
//             64, 80, 112, 120 (blocks 8 and 9 share it), 136, 144, 152; the pairs at
//             M+72, 88, 96, 104 and 128 are read but not reachable
//
// The tags of the inner structures ("SEQS V00", "SBWD V00" or "SBWD V01", "STM  V30")
// and any checksum are not checked: CSum() is 0.
//
// Selection for a frame rate f: the frame period P = 1 000 000 / f µs. The first section
// alone is searched (later ones are parsed, never searched): its first set whose bounds
// hold lower < P < upper, then that set's element with the largest period strictly below
// P (the first of equals).
//
// Unlike the format's first readers, every offset and count is checked against the file:
// a structure, table or data block that would lie outside it, or a section chain that
// comes back to a section already read, throws CException naming the offset ("Offset %u
// (+%u bytes) lies outside the file of %u bytes", "Section chain loops back to offset
// %u"). No file, however malformed, makes the parser read outside its buffer, and a file
// whose structures add up to more than kMaxElements sets and elements (only a crafted one
// could: sections and sets may overlap and share) is refused ("Sequence file holds more
// than %u sets and elements")
// before it costs more memory than the formatter could ever use.
//
// Ownership: the file owns its bytes; sections, sets and elements hold offsets into them
// and live as long as the file. Thread contract: immutable after construction.
// Errors: "Invalid File - file magic number not expected", "Sequence set not found",
// "Sequence data not found", "Element not found", "Invalid block specified", and
// "Unable to read sequence file %s" when the file cannot be read.

#include <cstdint>
#include <string>
#include <vector>

class CTiSequenceFile;

// One sequence element and its data blocks.
class CTiSeqStmData {
public:
    enum EDataBlock { kBlockCount = 13 };
    struct SBlock {
        uint32_t offset;
        uint32_t size;
    };

    CTiSeqStmData(const CTiSequenceFile& file, uint32_t offset);

    uint32_t GetOffset() const { return m_offset; }
    uint32_t GetPeriodUs() const { return m_period; }
    // Parameter 0..3 (at E+12, 16, 20, 24).
    uint32_t GetParameter(unsigned int index) const { return m_parameters[index & 3]; }
    // Block 0..12; throws "Invalid block specified" for any other number.
    SBlock GetDataBlock(int block) const;
    // The block's bytes, inside the file.
    const uint8_t* GetDataBlockBytes(int block) const;

private:
    const CTiSequenceFile& m_file;
    uint32_t m_offset;
    uint32_t m_period;
    uint32_t m_parameters[4];
    SBlock m_table[17];  // every pair of the table, reachable or not
};

// One sequence set: its period bounds and its elements.
class CTiSequenceSet {
public:
    CTiSequenceSet(const CTiSequenceFile& file, uint32_t offset);

    uint16_t GetLowerBoundUs() const { return m_lower; }
    uint16_t GetUpperBoundUs() const { return m_upper; }
    bool Fits(double periodUs) const { return m_lower < periodUs && periodUs < m_upper; }
    const std::vector<CTiSeqStmData>& GetElements() const { return m_elements; }
    // Throws "Element not found".
    const CTiSeqStmData& FindSeqElement(double frameRateHz) const;

private:
    uint16_t m_lower;
    uint16_t m_upper;
    std::vector<CTiSeqStmData> m_elements;
};

class CTiSeqSection {
public:
    CTiSeqSection(const CTiSequenceFile& file, uint32_t offset);

    uint32_t GetNextOffset() const { return m_next; }
    const std::vector<CTiSequenceSet>& GetSets() const { return m_sets; }
    // Throws "Sequence data not found".
    const CTiSequenceSet& FindSequenceSet(double frameRateHz) const;

private:
    uint32_t m_next;
    std::vector<CTiSequenceSet> m_sets;
};

class CTiSequenceFile {
public:
    static constexpr const char* kFileMagicV00 = "SEQF V00";
    static constexpr uint32_t kFirstSection = 24;
    static constexpr uint32_t kSetRecordSize = 48;
    static constexpr uint32_t kElementSize = 72;
    static constexpr uint32_t kMaxElements = 65536;

    // Reads and parses the file at path (an absolute path; callers resolve system paths
    // through the runtime root).
    explicit CTiSequenceFile(const std::string& path);
    // Parses bytes already in memory.
    explicit CTiSequenceFile(std::vector<uint8_t> bytes);
    CTiSequenceFile(const CTiSequenceFile&) = delete;
    CTiSequenceFile& operator=(const CTiSequenceFile&) = delete;

    const std::vector<CTiSeqSection>& GetSections() const { return m_sections; }
    // Searches the first section only; throws "Sequence set not found".
    const CTiSequenceSet& FindSequenceSet(double frameRateHz) const;
    // No checksum is kept in the file; always 0.
    uint32_t CSum() const { return 0; }
    uint32_t GetSize() const { return static_cast<uint32_t>(m_bytes.size()); }

    // Checked little-endian reads for the structures above.
    uint8_t U8(uint32_t offset) const;
    uint16_t U16(uint32_t offset) const;
    uint32_t U32(uint32_t offset) const;
    // Throws unless [offset, offset + size) lies inside the file.
    void Require(uint32_t offset, uint32_t size) const;
    const uint8_t* Bytes(uint32_t offset) const { return m_bytes.data() + offset; }
    // Counts `count` more sets or elements against kMaxElements.
    void CountStructures(uint32_t count) const;

private:
    void Parse();

    std::vector<uint8_t> m_bytes;
    std::vector<CTiSeqSection> m_sections;
    mutable uint32_t m_elementCount = 0;  // while parsing
};
