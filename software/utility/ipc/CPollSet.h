#pragma once
// CPollSet: one poll() over many descriptors, for event loops that wait on sockets for
// reading and, where output is queued, for writing. Unlike select it has no descriptor
// limit. Build the set anew for each wait (Clear, Add...), then ask what is ready.
//
// Thread contract: one thread uses a set at a time. A failing poll throws CException;
// a wait interrupted by a signal returns 0 (nothing ready) so the loop can look at its
// stop flag.

#include <poll.h>

#include <cstddef>
#include <vector>

class CPollSet {
public:
    // Keeps the index's size, so that a loop rebuilding its set every turn does not
    // refill it: only the entries of the descriptors that were added are reset.
    void Clear() {
        for (const pollfd& entry : m_fds) {
            m_index[static_cast<size_t>(entry.fd)] = -1;
        }
        m_fds.clear();
    }
    void Add(int fd, bool read, bool write);
    // The ready count, 0 on time-out or interruption; a negative timeout waits forever.
    int Wait(int timeoutMs);
    bool IsReadable(int fd) const;
    bool IsWritable(int fd) const;
    // Hang-up or error on the descriptor: reading it will tell which.
    bool HasFailed(int fd) const;

private:
    const pollfd* Find(int fd) const;
    std::vector<pollfd> m_fds;
    // Position of each descriptor in m_fds (-1: not added), so a lookup costs no search
    // however many clients a loop watches.
    std::vector<int> m_index;
};
