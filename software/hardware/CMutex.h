#pragma once
// CMutex: the lock of the light-source link parser (a reader thread adds bytes while a
// consumer takes messages). Not recursive.

#include <mutex>

namespace LibFusion {

class CMutex {
public:
    void lock() { m_mutex.lock(); }
    void unlock() { m_mutex.unlock(); }
    bool tryLock() { return m_mutex.try_lock(); }
    // Waits at most timeoutMs for the lock.
    bool tryLock(int timeoutMs);

private:
    std::timed_mutex m_mutex;
};

}  // namespace LibFusion
