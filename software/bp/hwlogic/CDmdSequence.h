#pragma once
// CDmdSequence: picks the DMD bit-plane sequence for an output frame rate and loads it,
// with its two lookup tables, into the formatter (CFormatterSequence on port 48).
//
// Files: a sequence named N comes zipped as "/usr/lib/firmware/seq/" N ".zip" and is
// unpacked into "/tmp/seq/" N (both under the runtime root) only when one of its files
// is missing there: B ".seqbin", B "_G.mlh1", B "_G.mlh2", B being the part of N after
// its last "/". The parsed files live only while a load runs.
//
// LoadSequence(rate, set, darkTimeUs):
//   - a set without a name keeps the formatter's built-in sequence ("Using built-in DMD
//     sequence"); without a formatter nothing is loaded ("Skipped loading bit-sequence -
//     no formatters present");
//   - the frame period is P = 1 000 000 / rate µs; a 3D set shows each eye in half the
//     frame less the dark time, so it is chosen for P3 = P / 2 - dark time; a 2D set
//     has no dark time (the value is kept for Reload all the same);
//   - the set and element are chosen as CTiSequenceFile says, in every sequence file of
//     the load; when one has none that fits, or a sequence file or the archive cannot
//     be read, "Unsupported%s output frequency %0.2fHz (dark time: %.0fus)" is logged
//     (" 3D" for a 3D set, and the reason on a second line) and the call returns false
//     with nothing changed: the rate last configured and the sequence loaded stay;
//   - the element's block 0 (its bit-plane words) goes into the half of the sequence
//     memory the formatter is not running from, the MLH1 and MLH2 files (whole, as
//     little-endian words) into the same half of their tables; a failing step is logged
//     ("seq loading fault: %s", "MLH1 loading fault: %s", "MLH2 loading fault: %s") and
//     the others go on;
//   - stretch = element period / the period chosen for (below 1 by the selection rule);
//     logged as "Loading 2D bit-sequence (%s) in %s memory (stretch: %.3f%s)" or
//     "Loading 3D bit-sequence (%s) in %s memory (stretch: %.3f%s, dark time: %.0fus)",
//     the memory being the half loaded; the %s after the stretch stays empty, as a
//     stretch below 1 never wraps and needs no note.
// Apply() then writes each formatter's stretch and switches its sequencer to the loaded
// half (output mode 0 for 2D, 2 for 3D). SetDarkTimeUs and Reload run the load again for
// the rate last configured; before any they throw "Cannot adjust dark time without first
// configuring target frame rate" / "Cannot reload sequence without first configuring
// target frame rate". Reset, EnableSequencer and EnableMlhtBypass go to every formatter.
//
// Lifetime: bus and log outlive it. Thread contract: the bus's thread.
// Errors: LoadSequence returns false for an unsupported rate or unreadable files (logged);
// bus faults from Apply and the formatter calls throw CException.

#include <memory>
#include <string>
#include <vector>

#include "CFormatterSequence.h"
#include "log/ILog.h"

// What the host wants shown: the sequence archive's name (empty: the formatter's built-in
// sequence) and whether it is a stereoscopic (3D) sequence.
class IBitSequenceSet {
public:
    virtual ~IBitSequenceSet() = default;
    virtual std::string GetSequenceName() const = 0;
    virtual bool Is3D() const = 0;
};

class CDmdSequence {
public:
    static constexpr const char* kArchiveDirectory = "/usr/lib/firmware/seq/";
    static constexpr const char* kExtractDirectory = "/tmp/seq/";

    CDmdSequence(IPtBus& bus, ILog& log, bool formatterPresent = true);
    virtual ~CDmdSequence() = default;

    bool LoadSequence(double frameRateHz, const IBitSequenceSet& set, unsigned short darkTimeUs = 0);
    void Apply();
    bool SetDarkTimeUs(unsigned short darkTimeUs, const IBitSequenceSet& set);
    bool Reload(const IBitSequenceSet& set);
    void Reset(bool sequencer, bool output, bool stretch);
    void EnableSequencer(bool on);
    void EnableMlhtBypass(bool on);

    // 0 until the first LoadSequence.
    double GetCurrentFrameRateHz() const { return m_frameRateHz; }
    bool IsUsingLowMem() const { return m_formatter.IsUsingLowSeqMem(); }
    const std::string& GetLoadedName() const { return m_loadedName; }
    double GetStretch() const { return m_stretch; }

protected:
    // One formatter and the files loaded into it, with the names its faults are logged
    // under ("<name> loading fault: %s").
    struct SPlane {
        CFormatterSequence* formatter;
        std::string sequencePath;
        std::string mlh1Path;
        std::string mlh2Path;
        const char* sequenceFault;
        const char* mlh2Fault;
    };

    // The planes of a sequence whose files start with `base` (directory and base name);
    // the first is the one the log lines describe.
    virtual std::vector<SPlane> Planes(const std::string& base);
    CFormatterSequence& GetFormatter() { return m_formatter; }
    // Adds a formatter that Reset and the Enable calls reach too; it outlives this object.
    void AddFormatter(CFormatterSequence& formatter) { m_formatters.push_back(&formatter); }

private:
    struct SLoaded {
        CFormatterSequence* formatter;
        bool low;
        double stretch;
    };

    // Unpacks the archive when a file is missing; the planes. Throws CException.
    std::vector<SPlane> LoadSequenceDataZip(const std::string& name);
    void LoadPlane(const SPlane& plane, const uint8_t* sequence, size_t bytes, bool low);

    ILog& m_log;
    CFormatterSequence m_formatter;
    std::vector<CFormatterSequence*> m_formatters;
    std::vector<SLoaded> m_planes;
    bool m_formatterPresent;
    double m_frameRateHz = 0;
    unsigned short m_darkTimeUs = 0;
    bool m_3d = false;
    double m_stretch = 0;
    std::string m_loadedName;
};
