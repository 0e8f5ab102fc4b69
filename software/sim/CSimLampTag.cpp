#include "CSimLampTag.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "CException.h"

CSimLampTag::CSimLampTag(const std::string& path, uint64_t uid) : m_uid(uid), m_image(kSize, 0xFF) {
    m_fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_fd < 0) {
        THROW_ERRNO_EXCEPTION("Unable to open lamp tag image %s", path.c_str());
    }
    struct stat info {};
    fstat(m_fd, &info);
    bool ok = true;
    if (info.st_size == 0) {
        ok = pwrite(m_fd, m_image.data(), kSize, 0) == static_cast<ssize_t>(kSize) && fsync(m_fd) == 0;
    } else {
        ok = info.st_size == kSize && pread(m_fd, m_image.data(), kSize, 0) == static_cast<ssize_t>(kSize);
    }
    if (!ok) {
        close(m_fd);
        THROW_EXCEPTION("Lamp tag image %s is not a %u-byte EEPROM dump", path.c_str(), kSize);
    }
}

CSimLampTag::~CSimLampTag() { close(m_fd); }

void CSimLampTag::Check(uint32_t offset, uint32_t size) const {
    if (!m_present || !m_powered) {
        THROW_EXCEPTION("Lamp tag not answering");
    }
    if (offset > kSize || size > kSize - offset) {
        THROW_EXCEPTION("Lamp tag access %u+%u outside its %u bytes", offset, size, kSize);
    }
}

void CSimLampTag::Read(uint32_t offset, uint8_t* data, uint32_t size) {
    Check(offset, size);
    std::copy_n(m_image.data() + offset, size, data);
}

void CSimLampTag::Write(uint32_t offset, const uint8_t* data, uint32_t size) {
    Check(offset, size);
    const uint32_t stored = std::min(size, m_budget);
    std::copy_n(data, stored, m_image.data() + offset);
    if (stored > 0 && pwrite(m_fd, data, stored, offset) != static_cast<ssize_t>(stored)) {
        THROW_ERRNO_EXCEPTION("Unable to write lamp tag image");
    }
    m_written += stored;
    if (m_budget != kNever) {
        m_budget -= stored;
    }
    if (stored < size) {
        m_powered = !m_cutPower;
        m_budget = kNever;
        THROW_EXCEPTION("Lamp tag write cut after %u of %u bytes", stored, size);
    }
}
