// mkseqdemo: writes the virtual projector's demo DMD sequence archive: one sequence set
// for frame periods between 4 and 42 ms (about 23.8 to 250 Hz) with an element just
// below the period of each common output rate from 23.976 to 240 Hz, and the two lookup
// tables. Each element's sequence words carry its rate (in hundredths of a hertz) in
// their upper half, so the formatter's memory shows which one was loaded.
//
// The archive also holds the high-dynamic-range files: a pre-modulation sequence of the
// same shape whose words have bit 15 set, the first-level table and the bright and dark
// second-level tables.
//
//   mkseqdemo ARCHIVE.zip        (the entries are named after the archive: demo.zip
//                                 holds demo.seqbin, demo_G.mlh1, demo_G.mlh2,
//                                 demo.pre.seqbin, demo.g.mlh1, demo.g.b.mlh2, demo.g.d.mlh2)

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "CException.h"
#include "NTiSequenceWriter.h"
#include "NZipArchive.h"

namespace {

const double kRates[] = {23.976, 24, 25, 29.97, 30, 47.952, 48, 50, 59.94, 60,
                         72,     90, 96, 100,   119.88, 120,  144, 165, 200, 240};

std::string Text(const std::vector<uint8_t>& bytes) { return std::string(bytes.begin(), bytes.end()); }

std::string Sequence(uint32_t tag) {
    NTiSequenceWriter::SSet set{4000, 42000, {}};
    for (double rate : kRates) {
        NTiSequenceWriter::SElement element;
        element.periodUs = static_cast<uint32_t>(std::floor(1000000.0 / rate)) - 8;
        const uint32_t hundredths = static_cast<uint32_t>(std::lround(rate * 100));
        element.parameters = {hundredths, 0, 0, 0};
        std::vector<uint32_t> words(256);
        for (uint32_t i = 0; i < words.size(); ++i) {
            words[i] = hundredths << 16 | tag | i;
        }
        element.blocks[0] = NTiSequenceWriter::WordBytes(words);
        set.elements.push_back(element);
    }
    return Text(NTiSequenceWriter::Write({{{set}}}));
}

std::string Table(uint32_t size, uint32_t first) {
    std::vector<uint32_t> words(size);
    for (uint32_t i = 0; i < size; ++i) {
        words[i] = first + i;
    }
    return Text(NTiSequenceWriter::WordBytes(words));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s ARCHIVE.zip\n", argv[0]);
        return 2;
    }
    const std::string archive = argv[1];
    std::string name = archive.substr(archive.rfind('/') + 1);
    name = name.substr(0, name.rfind('.'));

    std::vector<uint32_t> mlh1(256);
    for (uint32_t i = 0; i < mlh1.size(); ++i) {
        mlh1[i] = i * i;
    }
    const std::string firstLevel = Text(NTiSequenceWriter::WordBytes(mlh1));
    try {
        NZipArchive::Create(archive, {{name + ".seqbin", Sequence(0)},
                                      {name + "_G.mlh1", firstLevel},
                                      {name + "_G.mlh2", Table(64, 0x10000)},
                                      {name + ".pre.seqbin", Sequence(0x8000)},
                                      {name + ".g.mlh1", firstLevel},
                                      {name + ".g.b.mlh2", Table(64, 0x20000)},
                                      {name + ".g.d.mlh2", Table(64, 0x30000)}});
    } catch (const CException& e) {
        fprintf(stderr, "mkseqdemo: %s\n", e.GetMessage().c_str());
        return 1;
    }
    return 0;
}
