#include "CDmdSequenceHdr.h"

CDmdSequenceHdr::CDmdSequenceHdr(IPtBus& bus, ILog& log, bool formatterPresent)
    : CDmdSequence(bus, log, formatterPresent), m_premod(bus, CFormatterSequence::kSecondPort) {
    AddFormatter(m_premod);
}

std::vector<CDmdSequence::SPlane> CDmdSequenceHdr::Planes(const std::string& base) {
    return {{&GetFormatter(), base + ".seqbin", base + ".g.mlh1", base + ".g.b.mlh2", "seq prime", "MLH2"},
            {&m_premod, base + ".pre.seqbin", base + ".g.mlh1", base + ".g.d.mlh2", "seq premod", "MLH2 dark"}};
}
