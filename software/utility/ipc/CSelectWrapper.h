#pragma once
// CSelectWrapper: a select() descriptor set with millisecond time-outs.
//
// Select works on the wrapper's own set, so after it returns IsSet tells which
// descriptors are ready; add the descriptors again before the next wait. Select() and
// SelectWrite() use the stored time-out and hand the same timeval to every call; Linux
// counts the time spent down in it, so a loop of waits shares one overall time-out
// (set it again with SetTimeoutMs to start over). A wait interrupted by a signal is
// resumed with the time that is left.
//
// Thread contract: one thread uses a wrapper at a time.
// Errors: a descriptor outside 0..1023, or a failing select, throws CException.

#include <sys/select.h>
#include <sys/time.h>

class CSelectWrapper {
public:
    CSelectWrapper();

    void Zero();
    void Set(int fd);
    void Clear(int fd);
    bool IsSet(int fd) const;
    void SetTimeoutMs(unsigned int ms);

    // Wait for readability; the ready count, 0 on time-out.
    int Select(timeval& timeout);
    int Select(unsigned int ms);
    int Select();
    // Wait for writability; the ready count, 0 on time-out.
    int SelectWrite(timeval& timeout);
    int SelectWrite(unsigned int ms);
    int SelectWrite();

private:
    int Wait(bool forWrite, timeval& timeout);

    fd_set m_set;
    int m_maxFd;
    timeval m_timeout;
};
