#pragma once
// CDmdSequenceHdr: the DMD sequence loader of a high-dynamic-range (dual-modulation)
// projector. Light passes a pre-modulating DMD before the prime one; each has its own
// formatter: the prime on port 48 (posted mode), the pre-modulator on port 56.
//
// A sequence named N has five files (B is the part of N after its last "/"):
//   B ".seqbin"      prime sequence         -> formatter 48  ("seq prime loading fault: %s")
//   B ".pre.seqbin"  pre-modulation sequence -> formatter 56  ("seq premod loading fault: %s")
//   B ".g.mlh1"      first-level table      -> both          ("MLH1 loading fault: %s")
//   B ".g.b.mlh2"    bright second-level    -> formatter 48  ("MLH2 loading fault: %s")
//   B ".g.d.mlh2"    dark second-level      -> formatter 56  ("MLH2 dark loading fault: %s")
// The archive is unpacked when any of them is missing. Both sequence files must hold an
// element for the rate, or the rate is unsupported and nothing changes; the log lines
// name the prime's memory half and stretch. Apply switches the pre-modulator first, then
// the prime formatter, which mirrors the output mode into port 56 as it always does.
// Everything else is CDmdSequence's.
//
// Lifetime: bus and log outlive it. Thread contract: the bus's thread.

#include "CDmdSequence.h"

class CDmdSequenceHdr : public CDmdSequence {
public:
    CDmdSequenceHdr(IPtBus& bus, ILog& log, bool formatterPresent = true);

protected:
    std::vector<SPlane> Planes(const std::string& base) override;

private:
    CFormatterSequence m_premod;
};
