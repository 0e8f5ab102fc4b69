#include "ipc/CPollSet.h"

#include <cerrno>

#include "CException.h"

void CPollSet::Add(int fd, bool read, bool write) {
    if (fd < 0) {
        return;
    }
    pollfd entry{};
    entry.fd = fd;
    entry.events = static_cast<short>((read ? POLLIN : 0) | (write ? POLLOUT : 0));
    if (static_cast<size_t>(fd) >= m_index.size()) {
        m_index.resize(static_cast<size_t>(fd) + 1, -1);
    }
    m_index[static_cast<size_t>(fd)] = static_cast<int>(m_fds.size());
    m_fds.push_back(entry);
}

int CPollSet::Wait(int timeoutMs) {
    const int ready = poll(m_fds.data(), m_fds.size(), timeoutMs);
    if (ready < 0) {
        if (errno == EINTR) {
            for (pollfd& entry : m_fds) {
                entry.revents = 0;
            }
            return 0;
        }
        THROW_ERRNO_EXCEPTION("Poll error");
    }
    return ready;
}

const pollfd* CPollSet::Find(int fd) const {
    if (fd < 0 || static_cast<size_t>(fd) >= m_index.size() || m_index[static_cast<size_t>(fd)] < 0) {
        return nullptr;
    }
    return &m_fds[static_cast<size_t>(m_index[static_cast<size_t>(fd)])];
}

bool CPollSet::IsReadable(int fd) const {
    const pollfd* entry = Find(fd);
    return entry && (entry->revents & (POLLIN | POLLHUP | POLLERR)) != 0;
}

bool CPollSet::IsWritable(int fd) const {
    const pollfd* entry = Find(fd);
    return entry && (entry->revents & POLLOUT) != 0;
}

bool CPollSet::HasFailed(int fd) const {
    const pollfd* entry = Find(fd);
    return entry && (entry->revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}
