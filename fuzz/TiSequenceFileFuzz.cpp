// Arbitrary bytes into the sequence file parser: a file is either refused with an
// exception, or it parses to sections, sets and elements that, written out again, parse
// to the same sections, sets and elements.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "CException.h"
#include "CTiSequenceFile.h"
#include "NTiSequenceWriter.h"

namespace {

std::vector<NTiSequenceWriter::SSection> Describe(const CTiSequenceFile& file) {
    std::vector<NTiSequenceWriter::SSection> sections;
    for (const CTiSeqSection& section : file.GetSections()) {
        NTiSequenceWriter::SSection described;
        for (const CTiSequenceSet& set : section.GetSets()) {
            NTiSequenceWriter::SSet s;
            s.lowerUs = set.GetLowerBoundUs();
            s.upperUs = set.GetUpperBoundUs();
            for (const CTiSeqStmData& element : set.GetElements()) {
                NTiSequenceWriter::SElement e;
                e.periodUs = element.GetPeriodUs();
                for (unsigned int p = 0; p < 4; ++p) {
                    e.parameters[p] = element.GetParameter(p);
                }
                for (int block = 0; block < CTiSeqStmData::kBlockCount; ++block) {
                    const uint8_t* bytes = element.GetDataBlockBytes(block);
                    e.blocks[static_cast<size_t>(block)].assign(bytes, bytes + element.GetDataBlock(block).size);
                }
                s.elements.push_back(e);
            }
            described.sets.push_back(s);
        }
        sections.push_back(described);
    }
    return sections;
}

bool Same(const std::vector<NTiSequenceWriter::SSection>& a, const std::vector<NTiSequenceWriter::SSection>& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t s = 0; s < a.size(); ++s) {
        if (a[s].sets.size() != b[s].sets.size()) {
            return false;
        }
        for (size_t t = 0; t < a[s].sets.size(); ++t) {
            const auto& x = a[s].sets[t];
            const auto& y = b[s].sets[t];
            if (x.lowerUs != y.lowerUs || x.upperUs != y.upperUs || x.elements.size() != y.elements.size()) {
                return false;
            }
            for (size_t e = 0; e < x.elements.size(); ++e) {
                if (x.elements[e].periodUs != y.elements[e].periodUs ||
                    x.elements[e].parameters != y.elements[e].parameters || x.elements[e].blocks != y.elements[e].blocks) {
                    return false;
                }
            }
        }
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<NTiSequenceWriter::SSection> first;
    try {
        CTiSequenceFile file(std::vector<uint8_t>(data, data + size));
        file.FindSequenceSet(60).FindSeqElement(60);
    } catch (const CException&) {
    }
    try {
        CTiSequenceFile file(std::vector<uint8_t>(data, data + size));
        first = Describe(file);
    } catch (const CException&) {
        return 0;
    }
    CTiSequenceFile again(NTiSequenceWriter::Write(first));
    if (!Same(first, Describe(again))) {
        abort();
    }
    return 0;
}
