#include "CLmmNdefTagAdapter.h"

#include <cstdio>

#include <vector>

#include "CException.h"
#include "NNdefTagProtocol.h"
#include "RuntimeRoot.h"

namespace {

const char* const kPositionNames[] = {"A1", "A2", "A3", "B1", "B2", "B3"};

}  // namespace

void CNdefPayLoadArea::Read(uint32_t offset, uint8_t* data, uint32_t size) {
    if (offset > m_size || size > m_size - offset) {
        THROW_EXCEPTION("LMM read %u+%u outside its %u bytes", offset, size, m_size);
    }
    m_tag.Read(m_offset + offset, data, size);
}

void CNdefPayLoadArea::Write(uint32_t offset, const uint8_t* data, uint32_t size) {
    if (offset > m_size || size > m_size - offset) {
        THROW_EXCEPTION("LMM write %u+%u outside its %u bytes", offset, size, m_size);
    }
    m_tag.Write(m_offset + offset, data, size);
}

const char* CLmmNdefTagAdapter::PositionName(unsigned int position) {
    return position < kPositions ? kPositionNames[position] : nullptr;
}

static std::string BackupPath(unsigned int position) {
    const char* name = CLmmNdefTagAdapter::PositionName(position);
    if (!name) {
        THROW_EXCEPTION("Invalid lamp position %u", position);
    }
    char file[64];
    snprintf(file, sizeof file, CLmmNdefTagAdapter::kBackupFileName, name);
    return NRuntimeRoot::Path(std::string(CLmmNdefTagAdapter::kFlashPath) + file);
}

CLmmNdefTagAdapter::CLmmNdefTagAdapter(IEeprom& tag, unsigned int position, ILog& log)
    : m_tag(tag), m_log(log), m_position(PositionName(position) ? PositionName(position) : ""), m_area(tag),
      m_backup(tag, BackupPath(position), log) {}

void CLmmNdefTagAdapter::ReportCommunicationFault(const std::string& text) {
    if (m_commErr) {
        m_commErr(text);
    } else {
        m_log.LogError("Lamp %s: %s", m_position.c_str(), text.c_str());
    }
}

bool CLmmNdefTagAdapter::ParseTag() {
    m_area.Place(0, 0);
    std::vector<uint8_t> image(m_tag.GetSize());
    try {
        m_backup.RestoreTag();
        m_tag.Read(0, image.data(), static_cast<uint32_t>(image.size()));
    } catch (const CException& e) {
        ReportCommunicationFault(e.GetMessage());
        throw;
    }
    using namespace NNdefTagProtocol;
    if (!SCapabilityContainerField::Parse(image.data(), image.size()).valid) {
        return false;
    }
    try {
        for (const STlvBlock& block : RetrieveAllTlvs(image.data(), image.size())) {
            if (block.type != TLV_NDEF_MESSAGE) {
                continue;
            }
            for (const SRecordHeader& record : RetrieveRecordHeaders(image.data(), image.size(), block)) {
                if (record.type == kRecordType) {
                    m_area.Place(record.payloadOffset, record.payloadLength);
                    return true;
                }
            }
        }
    } catch (const CException& e) {
        m_log.LogError("Lamp %s: tag holds no readable NDEF data: %s", m_position.c_str(), e.GetMessage().c_str());
    }
    return false;
}

void CLmmNdefTagAdapter::FormatTag(const std::string& label) {
    using namespace NNdefTagProtocol;
    const uint32_t size = m_tag.GetSize();
    SCapabilityContainerField cc;
    cc.valid = true;
    cc.memorySize = size;
    SMessageTlv message{{STextRecord{label}.ToRecord(), SMimeApplicationOctStreamRecord{kRecordType, ""}.ToRecord()}};
    // The LMM payload takes what the container, the message and the terminator leave; a
    // payload of 256 bytes already has every length in its long form.
    message.records[1].payload.assign(256, '\xFF');
    const uint32_t smallest = kCcSize + message.Size() + 1;
    if (smallest > size) {
        THROW_EXCEPTION("Lamp tag of %u bytes too small for a lamp memory", size);
    }
    message.records[1].payload.append(size - smallest, '\xFF');
    std::vector<uint8_t> image(size);
    cc.Generate(image.data(), image.size());
    const size_t written = kCcSize + message.Generate(image.data() + kCcSize, image.size() - kCcSize);
    image[written] = TLV_TERMINATOR;
    const uint32_t used = static_cast<uint32_t>(written + 1);
    m_backup.StartTransaction();
    try {
        m_backup.BackUpTag({{0, used}});
        m_backup.WriteTag(0, image.data(), used);
        m_backup.CompleteTransaction();
    } catch (const CException&) {
        m_backup.AbandonTransaction();
        throw;
    }
}

void CLmmNdefTagAdapter::InitializeLmm(CLampMemoryDevice& device) {
    const CLampMemoryDevice::EState state = device.Initialize();
    if (state == CLampMemoryDevice::STATE_NO_DEVICE) {
        ReportCommunicationFault("Lost communication with LMM after tag has been detected");
        THROW_EXCEPTION("Lost communication with LMM after tag has been detected");
    }
    if (state != CLampMemoryDevice::STATE_VALID) {
        m_log.LogError("Corrupted lamp data detected. LMM state: %d", static_cast<int>(state));
    }
}
