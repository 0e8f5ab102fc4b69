#include "CBackupHandler.h"

#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "CException.h"
#include "NFileUtil.h"

namespace {

constexpr char kMagic[4] = {'L', 'M', 'M', 'B'};
constexpr uint16_t kVersion = 1;
constexpr size_t kHeaderBytes = 16;
constexpr size_t kMaxFileBytes = 1024 * 1024;

void Put(std::string& out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        out.push_back(static_cast<char>(value >> (8 * i)));
    }
}

uint64_t Get(const std::string& in, size_t at, int bytes) {
    uint64_t value = 0;
    for (int i = bytes - 1; i >= 0; --i) {
        value = value << 8 | static_cast<uint8_t>(in[at + static_cast<size_t>(i)]);
    }
    return value;
}

uint32_t Crc(const std::string& bytes, size_t length) {
    return static_cast<uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(length)));
}

}  // namespace

CBackupHandler::CBackupHandler(IEeprom& tag, const std::string& path, ILog& log)
    : m_tag(tag), m_path(path), m_log(log) {}

bool CBackupHandler::ReadBackup(SBackup& backup, std::string& reason) const {
    std::string file;
    const NFileUtil::EReadResult read = NFileUtil::ReadFile(m_path, kMaxFileBytes, file, reason);
    if (read != NFileUtil::EReadResult::READ) {
        reason = read == NFileUtil::EReadResult::MISSING ? "" : "unreadable: " + reason;
        return false;
    }
    if (file.size() < kHeaderBytes + 4 || memcmp(file.data(), kMagic, 4) != 0 || Get(file, 4, 2) != kVersion) {
        reason = "bad header";
        return false;
    }
    const size_t end = file.size() - 4;
    if (Crc(file, end) != Get(file, end, 4)) {
        reason = "checksum mismatch";
        return false;
    }
    const uint64_t count = Get(file, 6, 2);
    backup.uid = Get(file, 8, 8);
    size_t at = kHeaderBytes;
    for (uint64_t i = 0; i < count; ++i) {
        if (end - at < 8) {
            reason = "truncated range";
            return false;
        }
        const SRange range{static_cast<uint32_t>(Get(file, at, 4)), static_cast<uint32_t>(Get(file, at + 4, 4))};
        at += 8;
        if (range.size > end - at || range.offset > m_tag.GetSize() || range.size > m_tag.GetSize() - range.offset) {
            reason = "range outside the tag";
            return false;
        }
        backup.ranges.emplace_back(range, file.substr(at, range.size));
        at += range.size;
    }
    if (count == 0 || at != end) {
        reason = "bad range list";
        return false;
    }
    return true;
}

bool CBackupHandler::CheckPendingWrite() {
    SBackup backup;
    std::string reason;
    if (ReadBackup(backup, reason)) {
        if (backup.uid == m_tag.GetUid()) {
            return true;
        }
        m_log.LogWarning("Discarded lamp tag backup %s of another tag", m_path.c_str());
    } else if (reason.empty()) {
        return false;  // no backup: the usual case
    } else {
        m_log.LogWarning("Discarded incomplete lamp tag backup %s (%s)", m_path.c_str(), reason.c_str());
    }
    ClearBackup();
    return false;
}

bool CBackupHandler::RestoreTag() {
    SBackup backup;
    std::string reason;
    if (!CheckPendingWrite() || !ReadBackup(backup, reason)) {
        return false;
    }
    for (const auto& range : backup.ranges) {
        m_tag.Write(range.first.offset, reinterpret_cast<const uint8_t*>(range.second.data()), range.first.size);
    }
    m_log.Log("Restored lamp tag from backup %s after an interrupted write", m_path.c_str());
    ClearBackup();
    return true;
}

void CBackupHandler::ClearBackup() {
    if (unlink(m_path.c_str()) == 0) {
        NFileUtil::SyncDirectoryOf(m_path);
    }
}

void CBackupHandler::StartTransaction() {
    if (m_open) {
        THROW_EXCEPTION("Lamp tag transaction already open");
    }
    RestoreTag();
    m_open = true;
    m_ranges.clear();
}

void CBackupHandler::BackUpTag(const std::vector<SRange>& ranges) {
    if (!m_open || !m_ranges.empty()) {
        THROW_EXCEPTION("Lamp tag backup outside a transaction");
    }
    if (ranges.empty() || ranges.size() > kMaxRanges) {
        THROW_EXCEPTION("Lamp tag backup of %zu ranges", ranges.size());
    }
    std::string file(kMagic, 4);
    Put(file, kVersion, 2);
    Put(file, ranges.size(), 2);
    Put(file, m_tag.GetUid(), 8);
    for (const SRange& range : ranges) {
        if (range.offset > m_tag.GetSize() || range.size > m_tag.GetSize() - range.offset) {
            THROW_EXCEPTION("Lamp tag range %u+%u outside the tag", range.offset, range.size);
        }
        Put(file, range.offset, 4);
        Put(file, range.size, 4);
        std::string bytes(range.size, '\0');
        m_tag.Read(range.offset, reinterpret_cast<uint8_t*>(&bytes[0]), range.size);
        file += bytes;
    }
    Put(file, Crc(file, file.size()), 4);
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(m_path).parent_path(), ignored);
    if (!NFileUtil::WriteFileAtomically(m_path, file, 0600)) {
        THROW_EXCEPTION("Unable to write lamp tag backup %s: %s", m_path.c_str(), strerror(errno));
    }
    m_ranges = ranges;
}

void CBackupHandler::WriteTag(uint32_t offset, const uint8_t* data, uint32_t size) {
    bool inside = false;
    for (const SRange& range : m_ranges) {
        inside = inside || (offset >= range.offset && size <= range.size && offset - range.offset <= range.size - size);
    }
    if (!m_open || !inside) {
        THROW_EXCEPTION("Lamp tag write %u+%u outside the backed-up ranges", offset, size);
    }
    m_tag.Write(offset, data, size);
}

void CBackupHandler::CompleteTransaction() {
    if (!m_open) {
        THROW_EXCEPTION("No lamp tag transaction open");
    }
    ClearBackup();
    m_open = false;
    m_ranges.clear();
}
