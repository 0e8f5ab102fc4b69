#include "CFormatterPlant.h"

#include <time.h>

#include "CDmdSequenceHdr.h"
#include "CSimFormatter.h"
#include "NFileUtil.h"
#include "NZipArchive.h"
#include "RuntimeRoot.h"

CFormatterPlant::CFormatterPlant(const std::string& sequenceName, bool highDynamicRange,
                                 const std::string& shippedDirectory, const IMonotonicClock& clock, ILog& log)
    : m_name(sequenceName), m_log(log), m_device(clock, kVsyncHz), m_bus(m_device, clock),
      m_sequence(highDynamicRange ? std::make_unique<CDmdSequenceHdr>(m_bus, log)
                                  : std::make_unique<CDmdSequence>(m_bus, log)) {
    m_device.SetHouseSync([] {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
    });
    m_device.AddPort(CFormatterSequence::kPostedPort, std::make_unique<CSimFormatter>());
    m_device.AddPort(CFormatterSequence::kSecondPort, std::make_unique<CSimFormatter>());
    InstallShippedArchive(shippedDirectory);
}

void CFormatterPlant::InstallShippedArchive(const std::string& shippedDirectory) {
    if (m_name.empty()) {
        return;
    }
    const std::string installed = NRuntimeRoot::Path(CDmdSequence::kArchiveDirectory + m_name + ".zip");
    const std::string shipped = shippedDirectory + "/" + m_name + ".zip";
    if (NFileUtil::InstallIfMissing(shipped, installed, NZipArchive::kMaxEntryBytes)) {
        m_log.Log("No sequence archive %s: installed the shipped one from %s", installed.c_str(), shipped.c_str());
    }
}

bool CFormatterPlant::ApplyControlValue(const std::string& code, int value) {
    if (code != kRateCode || value <= 0) {
        return false;
    }
    if (!m_sequence->LoadSequence(value / 100.0, *this)) {
        return false;
    }
    m_sequence->Apply();
    return true;
}

bool CFormatterPlant::ApplyControlText(const std::string&, const std::string&) { return false; }

bool CFormatterPlant::ReadRegister(unsigned int port, unsigned int offset, uint32_t& value) const {
    const CSimFpgaPort* block = port < 64 ? m_device.GetPort(port) : nullptr;
    if (!block || offset % 4 != 0 || offset >= 4 * CSimFpgaPort::kRegisters) {
        return false;
    }
    value = block->Peek(offset);
    return true;
}
