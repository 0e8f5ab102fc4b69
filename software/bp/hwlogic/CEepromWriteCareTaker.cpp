#include "CEepromWriteCareTaker.h"

#include <algorithm>
#include <cstring>

#include "CException.h"

CEepromWriteCareTaker::CEepromWriteCareTaker(CNdefPayLoadArea& area, CBackupHandler& backup)
    : m_area(area), m_backup(backup) {}

void CEepromWriteCareTaker::InitialLoadLampData(uint32_t pageSize, uint32_t pageCount) {
    m_pageSize = std::max<uint32_t>(pageSize, 1);
    m_tagOffset = m_area.GetTagOffset();
    const uint64_t window = std::min<uint64_t>(static_cast<uint64_t>(m_pageSize) * pageCount, m_area.GetSize());
    std::vector<uint8_t> bytes(static_cast<size_t>(window));
    if (!bytes.empty()) {
        m_area.Read(0, bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    m_stored = bytes;
    m_staged = std::move(bytes);
}

void CEepromWriteCareTaker::CheckRange(uint32_t offset, uint32_t size) const {
    if (offset > m_stored.size() || size > m_stored.size() - offset) {
        THROW_EXCEPTION("Lamp memory access %u+%u outside the %zu cached bytes", offset, size, m_stored.size());
    }
}

void CEepromWriteCareTaker::Read(uint32_t offset, uint8_t* data, uint32_t size) const {
    CheckRange(offset, size);
    memcpy(data, m_staged.data() + offset, size);
}

void CEepromWriteCareTaker::Write(uint32_t offset, const uint8_t* data, uint32_t size) {
    CheckRange(offset, size);
    memcpy(m_staged.data() + offset, data, size);
}

void CEepromWriteCareTaker::Flush() {
    // Changed pages, merged where they touch; offsets within the window.
    std::vector<CBackupHandler::SRange> ranges;
    const uint32_t size = static_cast<uint32_t>(m_stored.size());
    for (uint32_t start = 0; start < size;) {
        const uint32_t pageEnd = std::min(size, start + m_pageSize - (m_tagOffset + start) % m_pageSize);
        if (!std::equal(m_stored.data() + start, m_stored.data() + pageEnd, m_staged.data() + start)) {
            if (!ranges.empty() && ranges.back().offset + ranges.back().size == start) {
                ranges.back().size += pageEnd - start;
            } else {
                ranges.push_back({start, pageEnd - start});
            }
        }
        start = pageEnd;
    }
    if (ranges.empty()) {
        return;
    }
    std::vector<CBackupHandler::SRange> onTag = ranges;
    for (CBackupHandler::SRange& range : onTag) {
        range.offset += m_tagOffset;
    }
    try {
        m_backup.StartTransaction();
        m_backup.BackUpTag(onTag);
        for (const CBackupHandler::SRange& range : ranges) {
            m_backup.WriteTag(range.offset + m_tagOffset, m_staged.data() + range.offset, range.size);
        }
        m_backup.CompleteTransaction();
    } catch (const CException&) {
        m_backup.AbandonTransaction();
        Discard();
        throw;
    }
    m_stored = m_staged;
}
