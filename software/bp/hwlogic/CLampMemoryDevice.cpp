#include "CLampMemoryDevice.h"

#include <algorithm>
#include <cstring>

#include "CException.h"

namespace {

constexpr uint32_t kTypeOffset = 0;
constexpr uint32_t kSerialOffset = 33;
constexpr uint32_t kInstallDateOffset = 54;
constexpr uint32_t kPreInstalledOffset = 58;
constexpr uint32_t kUsageOffset = 64;
constexpr uint32_t kFormatIdOffset = 4;
constexpr uint32_t kFirstEntryField = 16;
constexpr uint32_t kEntrySizeField = 20;
constexpr uint32_t kEntriesField = 24;
constexpr uint32_t kPagesField = 26;
constexpr uint32_t kWrittenField = 28;
constexpr uint32_t kFormatTextOffset = 30;

uint32_t Pages(uint64_t bytes, uint32_t pageSize) {
    return static_cast<uint32_t>((bytes + pageSize - 1) / pageSize);
}

uint32_t LittleEndian(const uint8_t* bytes, int count) {
    uint32_t value = 0;
    for (int i = count - 1; i >= 0; --i) {
        value = value << 8 | bytes[i];
    }
    return value;
}

// A NUL-terminated text field of `length` characters; false without its NUL.
bool Text(const uint8_t* field, size_t length, std::string& text) {
    const void* nul = memchr(field, 0, length + 1);
    if (!nul) {
        return false;
    }
    text.assign(reinterpret_cast<const char*>(field), static_cast<size_t>(static_cast<const uint8_t*>(nul) - field));
    return true;
}

}  // namespace

bool SLmmLampUsage::operator==(const SLmmLampUsage& other) const {
    return std::equal(std::begin(counters), std::end(counters), std::begin(other.counters)) &&
           std::equal(std::begin(values), std::end(values), std::begin(other.values));
}

bool SLmmLampRecord::operator==(const SLmmLampRecord& other) const {
    return type == other.type && serial == other.serial && installDate == other.installDate &&
           preInstalledS == other.preInstalledS && usage == other.usage && corrupt == other.corrupt;
}

CLampMemoryDevice::CLampMemoryDevice(CNdefPayLoadArea& area, CBackupHandler& backup, ILog& log)
    : m_area(area), m_log(log), m_care(area, backup) {}

CLampMemoryDevice::EState CLampMemoryDevice::Initialize() {
    m_history.clear();
    m_written = 0;
    try {
        m_state = Load();
        if (m_state == STATE_VALID) {
            ReadHistoryLampUsage();
        }
    } catch (const CException&) {
        // The tag stopped answering part-way: nothing read can be trusted.
        m_state = STATE_NO_DEVICE;
        m_history.clear();
        m_written = 0;
    }
    return m_state;
}

CLampMemoryDevice::EState CLampMemoryDevice::Load() {
    uint8_t header[kHeaderSize] = {};
    m_area.Read(0, header, 2);
    const uint32_t pageSize = std::max<uint32_t>(m_area.GetPageSize(), 1);
    const uint32_t areaSize = m_area.GetSize();
    EState state = STATE_BLANK;
    if (areaSize >= kHeaderSize && LittleEndian(header, 2) == kLmmMarkLittleEndian) {
        m_area.Read(0, header, kHeaderSize);
        state = header[2] == kVersion ? STATE_VALID : STATE_WRONG_VERSION;
    }
    if (state == STATE_VALID) {
        m_firstEntry = LittleEndian(header + kFirstEntryField, 4);
        m_entrySize = LittleEndian(header + kEntrySizeField, 4);
        m_entries = LittleEndian(header + kEntriesField, 2);
        const uint64_t window = std::min<uint64_t>(uint64_t{LittleEndian(header + kPagesField, 2)} * pageSize, areaSize);
        const uint64_t ringEnd = uint64_t{m_firstEntry} + uint64_t{m_entrySize} * m_entries;
        if (m_firstEntry < kHeaderSize || m_entrySize < kRecordBytes || m_entries == 0 || ringEnd > window) {
            m_log.LogError("LMM layout does not fit: %u entries of %u bytes at %u, %llu bytes of pages", m_entries,
                           m_entrySize, m_firstEntry, static_cast<unsigned long long>(window));
            state = STATE_WRONG_VERSION;
        } else {
            m_care.InitialLoadLampData(pageSize, LittleEndian(header + kPagesField, 2));
            m_written = Get(kWrittenField, 2);
            return state;
        }
    }
    m_care.InitialLoadLampData(pageSize, Pages(areaSize, pageSize));
    return state;
}

uint32_t CLampMemoryDevice::Get(uint32_t offset, int bytes) const {
    uint8_t data[4];
    m_care.Read(offset, data, static_cast<uint32_t>(bytes));
    return LittleEndian(data, bytes);
}

void CLampMemoryDevice::Put(uint32_t offset, uint32_t value, int bytes) {
    uint8_t data[4];
    for (int i = 0; i < bytes; ++i) {
        data[i] = static_cast<uint8_t>(value >> (8 * i));
    }
    m_care.Write(offset, data, static_cast<uint32_t>(bytes));
}

void CLampMemoryDevice::Commit() {
    try {
        m_care.Flush();
    } catch (const CException&) {
        if (m_state == STATE_VALID) {
            m_written = Get(kWrittenField, 2);
        }
        throw;
    }
}

void CLampMemoryDevice::CheckValid() const {
    if (m_state != STATE_VALID) {
        THROW_EXCEPTION("LMM is invalid.");
    }
}

uint32_t CLampMemoryDevice::GetValidLampRecordCount() const {
    return m_state == STATE_VALID ? std::min(m_written, m_entries) : 0;
}

uint32_t CLampMemoryDevice::EntryOffset(uint32_t number) const {
    CheckValid();
    if (number == 0 || number > m_written || m_written - number >= GetValidLampRecordCount()) {
        THROW_EXCEPTION("Lamp record %u is not on the LMM", number);
    }
    return m_firstEntry + m_entrySize * ((number - 1) % m_entries);
}

uint32_t CLampMemoryDevice::ReadLampOnTimeSFromRecord(uint32_t number) const {
    return Get(EntryOffset(number) + kUsageOffset, 4);
}

SLmmLampRecord CLampMemoryDevice::ReadLampRecord(uint32_t number) const {
    uint8_t entry[kRecordBytes];
    m_care.Read(EntryOffset(number), entry, kRecordBytes);
    SLmmLampRecord record;
    if (!Text(entry + kTypeOffset, kTypeLength, record.type) ||
        !Text(entry + kSerialOffset, kSerialLength, record.serial)) {
        m_log.LogError("Corrupted lamp record.");
        record.type.clear();
        record.serial.clear();
        record.corrupt = true;
    }
    record.installDate = LittleEndian(entry + kInstallDateOffset, 4);
    record.preInstalledS = LittleEndian(entry + kPreInstalledOffset, 4);
    for (size_t i = 0; i < SLmmLampUsage::kCounters; ++i) {
        record.usage.counters[i] = LittleEndian(entry + kUsageOffset + 4 * i, 4);
    }
    for (size_t i = 0; i < SLmmLampUsage::kValues; ++i) {
        record.usage.values[i] = static_cast<uint16_t>(LittleEndian(entry + kUsageOffset + 40 + 2 * i, 2));
    }
    return record;
}

SLmmLampRecord CLampMemoryDevice::GetCurLampRecordInfo() const {
    if (!HasValidLampRecord()) {
        THROW_EXCEPTION("There is no valid lamp record on LMM.");
    }
    return ReadLampRecord(m_written);
}

SLmmLampUsage CLampMemoryDevice::GetMasterLampUsage() const {
    CheckValid();
    return HasValidLampRecord() ? ReadLampRecord(m_written).usage : SLmmLampUsage{};
}

void CLampMemoryDevice::ReadHistoryLampUsage() {
    m_history.clear();
    for (uint32_t number = m_written - GetValidLampRecordCount() + 1; number <= m_written; ++number) {
        m_history.push_back(ReadLampRecord(number));
    }
}

void CLampMemoryDevice::CreateNewRecord(const SLmmLampRecord& record) {
    CheckValid();
    if (record.type.size() > kTypeLength || record.serial.size() > kSerialLength ||
        record.type.find('\0') != std::string::npos || record.serial.find('\0') != std::string::npos) {
        THROW_EXCEPTION("Lamp type or serial number too long");
    }
    if (m_written == 0xFFFF) {
        THROW_EXCEPTION("No lamp record numbers left on the LMM");
    }
    const uint32_t number = m_written + 1;
    const uint32_t entry = m_firstEntry + m_entrySize * ((number - 1) % m_entries);
    uint8_t bytes[kRecordBytes] = {};
    memcpy(bytes + kTypeOffset, record.type.data(), record.type.size());
    memcpy(bytes + kSerialOffset, record.serial.data(), record.serial.size());
    m_care.Write(entry, bytes, kRecordBytes);
    Put(entry + kInstallDateOffset, record.installDate, 4);
    Put(entry + kPreInstalledOffset, record.preInstalledS, 4);
    Put(kWrittenField, number, 2);
    m_written = number;
    const uint32_t usageOffset = entry + kUsageOffset;
    for (size_t i = 0; i < SLmmLampUsage::kCounters; ++i) {
        Put(usageOffset + 4 * static_cast<uint32_t>(i), record.usage.counters[i], 4);
    }
    for (size_t i = 0; i < SLmmLampUsage::kValues; ++i) {
        Put(usageOffset + 40 + 2 * static_cast<uint32_t>(i), record.usage.values[i], 2);
    }
    Commit();
    ReadHistoryLampUsage();
}

void CLampMemoryDevice::UpdateLampUsage(const SLmmLampUsage& usage) {
    if (!HasValidLampRecord()) {
        THROW_EXCEPTION("There is no valid lamp record on LMM.");
    }
    const uint32_t usageOffset = EntryOffset(m_written) + kUsageOffset;
    for (size_t i = 0; i < SLmmLampUsage::kCounters; ++i) {
        Put(usageOffset + 4 * static_cast<uint32_t>(i), usage.counters[i], 4);
    }
    for (size_t i = 0; i < SLmmLampUsage::kValues; ++i) {
        Put(usageOffset + 40 + 2 * static_cast<uint32_t>(i), usage.values[i], 2);
    }
    Commit();
    m_history.back().usage = usage;
}

void CLampMemoryDevice::EraseAllLampEntries() {
    CheckValid();
    const std::vector<uint8_t> zeros(static_cast<size_t>(m_entrySize) * m_entries);
    m_care.Write(m_firstEntry, zeros.data(), static_cast<uint32_t>(zeros.size()));
    Put(kWrittenField, 0, 2);
    m_written = 0;
    Commit();
    m_history.clear();
}

void CLampMemoryDevice::EraseDeviceToBlank() {
    if (m_state == STATE_NO_DEVICE || m_state == STATE_NOT_INITIALISED) {
        THROW_EXCEPTION("LMM is invalid.");
    }
    const uint32_t pageSize = std::max<uint32_t>(m_area.GetPageSize(), 1);
    m_care.InitialLoadLampData(pageSize, Pages(m_area.GetSize(), pageSize));
    const std::vector<uint8_t> blank(m_care.GetWindowSize(), 0xFF);
    m_care.Write(0, blank.data(), static_cast<uint32_t>(blank.size()));
    Commit();
    m_state = STATE_BLANK;
    m_written = 0;
    m_history.clear();
}

void CLampMemoryDevice::Format(uint32_t id, const std::string& text) {
    if (m_state == STATE_NO_DEVICE || m_state == STATE_NOT_INITIALISED) {
        THROW_EXCEPTION("LMM is invalid.");
    }
    if (text.size() > kFormatTextLength || text.find('\0') != std::string::npos) {
        THROW_EXCEPTION("LMM format text longer than %zu characters", kFormatTextLength);
    }
    const uint32_t areaSize = m_area.GetSize();
    if (areaSize < kFirstEntryOffset + kEntrySize) {
        THROW_EXCEPTION("Lamp memory area of %u bytes too small", areaSize);
    }
    const uint32_t pageSize = std::max<uint32_t>(m_area.GetPageSize(), 1);
    const uint32_t entries = std::min<uint32_t>((areaSize - kFirstEntryOffset) / kEntrySize, 0xFFFF);
    const uint32_t pages = std::min<uint32_t>(Pages(kFirstEntryOffset + uint64_t{kEntrySize} * entries, pageSize), 0xFFFF);
    uint8_t header[kHeaderSize] = {'M', 'L', kVersion};
    memcpy(header + kFormatTextOffset, text.data(), text.size());
    m_care.Write(0, header, kHeaderSize);
    Put(kFormatIdOffset, id, 4);
    Put(kFirstEntryField, kFirstEntryOffset, 4);
    Put(kEntrySizeField, kEntrySize, 4);
    Put(kEntriesField, entries, 2);
    Put(kPagesField, pages, 2);
    Commit();
    m_care.InitialLoadLampData(pageSize, pages);
    m_state = STATE_VALID;
    m_firstEntry = kFirstEntryOffset;
    m_entrySize = kEntrySize;
    m_entries = entries;
    m_written = 0;
    m_history.clear();
}
