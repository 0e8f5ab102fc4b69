#include "CDmdSequence.h"

#include <unistd.h>

#include <cstring>
#include <vector>

#include "CException.h"
#include "CTiSequenceFile.h"
#include "NFileUtil.h"
#include "NZipArchive.h"
#include "RuntimeRoot.h"

namespace {

constexpr size_t kMaxTableBytes = 4 * 1024 * 1024;

std::vector<uint32_t> Words(const uint8_t* bytes, size_t size) {
    std::vector<uint32_t> words(size / 4);
    for (size_t i = 0; i < words.size(); ++i) {
        words[i] = static_cast<uint32_t>(bytes[4 * i]) | static_cast<uint32_t>(bytes[4 * i + 1]) << 8 |
                   static_cast<uint32_t>(bytes[4 * i + 2]) << 16 | static_cast<uint32_t>(bytes[4 * i + 3]) << 24;
    }
    return words;
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

}  // namespace

CDmdSequence::CDmdSequence(IPtBus& bus, ILog& log, bool formatterPresent)
    : m_log(log), m_formatter(bus, CFormatterSequence::kPostedPort), m_formatters{&m_formatter},
      m_formatterPresent(formatterPresent) {}

std::vector<CDmdSequence::SPlane> CDmdSequence::Planes(const std::string& base) {
    return {{&m_formatter, base + ".seqbin", base + "_G.mlh1", base + "_G.mlh2", "seq", "MLH2"}};
}

std::vector<CDmdSequence::SPlane> CDmdSequence::LoadSequenceDataZip(const std::string& name) {
    const std::string archive = NRuntimeRoot::Path(kArchiveDirectory + name + ".zip");
    const std::string directory = NRuntimeRoot::Path(kExtractDirectory + name);
    std::vector<SPlane> planes = Planes(directory + "/" + name.substr(name.rfind('/') + 1));
    for (const SPlane& plane : planes) {
        if (!Exists(plane.sequencePath) || !Exists(plane.mlh1Path) || !Exists(plane.mlh2Path)) {
            NZipArchive::ExtractAll(archive, directory);
            break;
        }
    }
    return planes;
}

void CDmdSequence::LoadPlane(const SPlane& plane, const uint8_t* sequence, size_t bytes, bool low) {
    CFormatterSequence& formatter = *plane.formatter;
    try {
        const std::vector<uint32_t> words = Words(sequence, bytes);
        formatter.LoadSequence(words.data(), static_cast<unsigned int>(words.size()), low);
    } catch (const CException& e) {
        m_log.LogError("%s loading fault: %s", plane.sequenceFault, e.GetMessage().c_str());
    }
    const struct {
        const std::string& path;
        bool mlh1;
        const char* fault;
    } tables[] = {{plane.mlh1Path, true, "MLH1"}, {plane.mlh2Path, false, plane.mlh2Fault}};
    for (const auto& table : tables) {
        try {
            std::string contents;
            std::string error;
            if (NFileUtil::ReadFile(table.path, kMaxTableBytes, contents, error) != NFileUtil::EReadResult::READ) {
                THROW_EXCEPTION("Unable to read %s: %s", table.path.c_str(), error.empty() ? "missing" : error.c_str());
            }
            const std::vector<uint32_t> words = Words(reinterpret_cast<const uint8_t*>(contents.data()), contents.size());
            const unsigned int count = static_cast<unsigned int>(words.size());
            if (table.mlh1) {
                formatter.LoadMlh1(words.data(), count, low);
            } else {
                formatter.LoadMlh2(words.data(), count, low);
            }
        } catch (const CException& e) {
            m_log.LogError("%s loading fault: %s", table.fault, e.GetMessage().c_str());
        }
    }
}

bool CDmdSequence::LoadSequence(double frameRateHz, const IBitSequenceSet& set, unsigned short darkTimeUs) {
    const bool is3d = set.Is3D();
    const std::string name = set.GetSequenceName();
    if (!m_formatterPresent) {
        m_log.Log("Skipped loading bit-sequence - no formatters present");
        return false;
    }
    if (name.empty()) {
        m_log.Log("Using built-in DMD sequence");
        m_frameRateHz = frameRateHz;
        m_darkTimeUs = darkTimeUs;
        m_loadedName = "built-in";
        return true;
    }
    const double period = 1000000.0 / frameRateHz;
    const double chosenPeriod = is3d ? period / 2 - darkTimeUs : period;
    std::vector<SPlane> planes;
    std::vector<std::unique_ptr<CTiSequenceFile>> files;
    std::vector<const CTiSeqStmData*> elements;
    try {
        planes = LoadSequenceDataZip(name);
        if (chosenPeriod <= 0) {
            THROW_EXCEPTION("Dark time longer than the frame");
        }
        for (const SPlane& plane : planes) {
            files.push_back(std::make_unique<CTiSequenceFile>(plane.sequencePath));
            const double rate = 1000000.0 / chosenPeriod;
            elements.push_back(&files.back()->FindSequenceSet(rate).FindSeqElement(rate));
        }
    } catch (const CException& e) {
        m_log.LogError("Unsupported%s output frequency %0.2fHz (dark time: %.0fus)", is3d ? " 3D" : "", frameRateHz,
                       static_cast<double>(darkTimeUs));
        m_log.LogError("%s: %s", name.c_str(), e.GetMessage().c_str());
        return false;
    }

    std::vector<SLoaded> loaded;
    for (size_t i = 0; i < planes.size(); ++i) {
        loaded.push_back({planes[i].formatter, !planes[i].formatter->IsUsingLowSeqMem(),
                          elements[i]->GetPeriodUs() / chosenPeriod});
    }
    const char* memory = loaded.front().low ? "low" : "high";
    if (is3d) {
        m_log.Log("Loading 3D bit-sequence (%s) in %s memory (stretch: %.3f%s, dark time: %.0fus)", name.c_str(), memory,
                  loaded.front().stretch, "", static_cast<double>(darkTimeUs));
    } else {
        m_log.Log("Loading 2D bit-sequence (%s) in %s memory (stretch: %.3f%s)", name.c_str(), memory,
                  loaded.front().stretch, "");
    }
    for (size_t i = 0; i < planes.size(); ++i) {
        const CTiSeqStmData::SBlock block = elements[i]->GetDataBlock(0);
        LoadPlane(planes[i], elements[i]->GetDataBlockBytes(0), block.size, loaded[i].low);
    }
    m_frameRateHz = frameRateHz;
    m_darkTimeUs = darkTimeUs;
    m_3d = is3d;
    m_stretch = loaded.front().stretch;
    m_planes = std::move(loaded);
    m_loadedName = name;
    return true;
}

void CDmdSequence::Apply() {
    // The first plane drives the others (the posted-mode formatter mirrors its mode into
    // port 56), so it switches last.
    for (auto plane = m_planes.rbegin(); plane != m_planes.rend(); ++plane) {
        plane->formatter->SetStretch(plane->stretch);
        plane->formatter->Apply(plane->low, !m_3d);
    }
}

void CDmdSequence::Reset(bool sequencer, bool output, bool stretch) {
    for (CFormatterSequence* formatter : m_formatters) {
        formatter->Reset(sequencer, output, stretch);
    }
}

void CDmdSequence::EnableSequencer(bool on) {
    for (CFormatterSequence* formatter : m_formatters) {
        formatter->EnableSequencer(on);
    }
}

void CDmdSequence::EnableMlhtBypass(bool on) {
    for (CFormatterSequence* formatter : m_formatters) {
        formatter->EnableMlhtBypass(on);
    }
}

bool CDmdSequence::SetDarkTimeUs(unsigned short darkTimeUs, const IBitSequenceSet& set) {
    if (m_frameRateHz <= 0) {
        THROW_EXCEPTION("Cannot adjust dark time without first configuring target frame rate");
    }
    return LoadSequence(m_frameRateHz, set, darkTimeUs);
}

bool CDmdSequence::Reload(const IBitSequenceSet& set) {
    if (m_frameRateHz <= 0) {
        THROW_EXCEPTION("Cannot reload sequence without first configuring target frame rate");
    }
    return LoadSequence(m_frameRateHz, set, m_darkTimeUs);
}
