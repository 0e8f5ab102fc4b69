// Arbitrary tag images into the lamp tag code: the capability container, TLV blocks and
// NDEF records are either refused with an exception or parsed; what parses is generated
// again and parses back to the same records; and the adapter and lamp memory device read
// whatever the image holds without touching anything outside it.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "CException.h"
#include "CLmmNdefTagAdapter.h"
#include "NNdefTagProtocol.h"
#include "RuntimeRoot.h"
#include "log/ILog.h"

namespace {

constexpr uint32_t kTagSize = 4096;

// The tag as plain memory; reads and writes outside it are refused as a chip would.
class CMemoryTag : public IEeprom {
public:
    explicit CMemoryTag(std::vector<uint8_t> image) : m_image(std::move(image)) {}
    uint32_t GetSize() const override { return static_cast<uint32_t>(m_image.size()); }
    uint32_t GetPageSize() const override { return 4; }
    uint64_t GetUid() const override { return 1; }
    void Read(uint32_t offset, uint8_t* data, uint32_t size) override {
        Check(offset, size);
        memcpy(data, m_image.data() + offset, size);
    }
    void Write(uint32_t offset, const uint8_t* data, uint32_t size) override {
        Check(offset, size);
        memcpy(m_image.data() + offset, data, size);
    }

private:
    void Check(uint32_t offset, uint32_t size) const {
        if (offset > m_image.size() || size > m_image.size() - offset) {
            THROW_EXCEPTION("outside the tag");
        }
    }
    std::vector<uint8_t> m_image;
};

class CSilentLog : public ILog {
    void HandleLog(ELogLevel, EFyiCode, const char*, va_list) noexcept override {}
};

void RoundTrip(const std::vector<uint8_t>& image, const NNdefTagProtocol::STlvBlock& block) {
    using namespace NNdefTagProtocol;
    const std::vector<SRecordHeader> parsed = RetrieveRecordHeaders(image.data(), image.size(), block);
    SMessageTlv message;
    for (const SRecordHeader& record : parsed) {
        message.records.push_back(
            {record.Tnf(), record.type,
             std::string(reinterpret_cast<const char*>(image.data() + record.payloadOffset), record.payloadLength)});
    }
    if (message.records.empty() || message.Size() - 4 > 0xFFFF) {
        return;
    }
    std::vector<uint8_t> out(message.Size());
    message.Generate(out.data(), out.size());
    const std::vector<SRecordHeader> again = RetrieveRecordHeaders(out.data(), out.size(), ParseTlvBlock(out.data(), out.size(), 0));
    if (again.size() != parsed.size()) {
        abort();
    }
    for (size_t i = 0; i < again.size(); ++i) {
        const bool last = i + 1 == again.size();
        if (again[i].Tnf() != parsed[i].Tnf() || again[i].type != parsed[i].type ||
            again[i].payloadLength != parsed[i].payloadLength ||
            memcmp(out.data() + again[i].payloadOffset, image.data() + parsed[i].payloadOffset, parsed[i].payloadLength) != 0 ||
            ((again[i].flags & kMessageBegin) != 0) != (i == 0) || ((again[i].flags & kMessageEnd) != 0) != last) {
            abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    NRuntimeRoot::SetRoot("/nonexistent-fuzz-root");  // no backup file is ever found
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace NNdefTagProtocol;
    std::vector<uint8_t> image(data, data + std::min<size_t>(size, kTagSize));
    image.resize(kTagSize, 0xFF);

    const SCapabilityContainerField cc = SCapabilityContainerField::Parse(image.data(), image.size());
    uint8_t generated[kCcSize];
    cc.Generate(generated, sizeof generated);
    const SCapabilityContainerField again = SCapabilityContainerField::Parse(generated, sizeof generated);
    if (again.valid != cc.valid || (cc.valid && (again.majorVersion != cc.majorVersion ||
                                                 again.readGranted != cc.readGranted || again.feature != cc.feature))) {
        abort();
    }
    try {
        for (const STlvBlock& block : RetrieveAllTlvs(image.data(), image.size())) {
            if (block.type == TLV_NDEF_MESSAGE) {
                RoundTrip(image, block);
            }
        }
    } catch (const CException&) {
    }

    CSilentLog log;
    CMemoryTag tag(image);
    CLmmNdefTagAdapter adapter(tag, 0, log);
    CLampMemoryDevice device(adapter.GetPayloadArea(), adapter.GetBackupHandler(), log);
    try {
        if (adapter.ParseTag()) {
            adapter.InitializeLmm(device);
            for (const SLmmLampRecord& record : device.GetHistory()) {
                if (record.type.size() > CLampMemoryDevice::kTypeLength) {
                    abort();
                }
            }
            if (device.HasValidLampRecord()) {
                device.ReadLampOnTimeSFromRecord(device.GetTotalLampRecordCount());
            }
        }
    } catch (const CException&) {
    }
    return 0;
}
