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
    : m_log(log), m_formatter(bus, CFormatterSequence::kPostedPort), m_formatterPresent(formatterPresent) {}

void CDmdSequence::LoadSequenceDataZip(const std::string& name, std::string& seqPath, std::string& mlh1Path,
                                       std::string& mlh2Path) {
    const std::string archive = NRuntimeRoot::Path(kArchiveDirectory + name + ".zip");
    const std::string directory = NRuntimeRoot::Path(kExtractDirectory + name);
    const std::string base = directory + "/" + name.substr(name.rfind('/') + 1);
    seqPath = base + ".seqbin";
    mlh1Path = base + "_G.mlh1";
    mlh2Path = base + "_G.mlh2";
    if (!Exists(seqPath) || !Exists(mlh1Path) || !Exists(mlh2Path)) {
        NZipArchive::ExtractAll(archive, directory);
    }
}

void CDmdSequence::LoadTable(const std::string& path, bool low, bool mlh1) {
    std::string contents;
    std::string error;
    if (NFileUtil::ReadFile(path, kMaxTableBytes, contents, error) != NFileUtil::EReadResult::READ) {
        THROW_EXCEPTION("Unable to read %s: %s", path.c_str(), error.empty() ? "missing" : error.c_str());
    }
    const std::vector<uint32_t> words = Words(reinterpret_cast<const uint8_t*>(contents.data()), contents.size());
    if (mlh1) {
        m_formatter.LoadMlh1(words.data(), static_cast<unsigned int>(words.size()), low);
    } else {
        m_formatter.LoadMlh2(words.data(), static_cast<unsigned int>(words.size()), low);
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
    std::string seqPath;
    std::string mlh1Path;
    std::string mlh2Path;
    std::unique_ptr<CTiSequenceFile> file;
    const CTiSeqStmData* element = nullptr;
    try {
        LoadSequenceDataZip(name, seqPath, mlh1Path, mlh2Path);
        file = std::make_unique<CTiSequenceFile>(seqPath);
        if (chosenPeriod <= 0) {
            THROW_EXCEPTION("Dark time longer than the frame");
        }
        element = &file->FindSequenceSet(1000000.0 / chosenPeriod).FindSeqElement(1000000.0 / chosenPeriod);
    } catch (const CException& e) {
        m_log.LogError("Unsupported%s output frequency %0.2fHz (dark time: %.0fus)", is3d ? " 3D" : "", frameRateHz,
                       static_cast<double>(darkTimeUs));
        m_log.LogError("%s: %s", name.c_str(), e.GetMessage().c_str());
        return false;
    }

    const bool low = !m_formatter.IsUsingLowSeqMem();
    const double stretch = element->GetPeriodUs() / chosenPeriod;
    if (is3d) {
        m_log.Log("Loading 3D bit-sequence (%s) in %s memory (stretch: %.3f%s, dark time: %.0fus)", name.c_str(),
                  low ? "low" : "high", stretch, "", static_cast<double>(darkTimeUs));
    } else {
        m_log.Log("Loading 2D bit-sequence (%s) in %s memory (stretch: %.3f%s)", name.c_str(), low ? "low" : "high",
                  stretch, "");
    }
    try {
        const CTiSeqStmData::SBlock block = element->GetDataBlock(0);
        const std::vector<uint32_t> words = Words(element->GetDataBlockBytes(0), block.size);
        m_formatter.LoadSequence(words.data(), static_cast<unsigned int>(words.size()), low);
    } catch (const CException& e) {
        m_log.LogError("seq loading fault: %s", e.GetMessage().c_str());
    }
    try {
        LoadTable(mlh1Path, low, true);
    } catch (const CException& e) {
        m_log.LogError("MLH1 loading fault: %s", e.GetMessage().c_str());
    }
    try {
        LoadTable(mlh2Path, low, false);
    } catch (const CException& e) {
        m_log.LogError("MLH2 loading fault: %s", e.GetMessage().c_str());
    }
    m_frameRateHz = frameRateHz;
    m_darkTimeUs = darkTimeUs;
    m_loadedLow = low;
    m_loaded = true;
    m_3d = is3d;
    m_stretch = stretch;
    m_loadedName = name;
    return true;
}

void CDmdSequence::Apply() {
    if (!m_loaded) {
        return;
    }
    m_formatter.SetStretch(m_stretch);
    m_formatter.Apply(m_loadedLow, !m_3d);
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
