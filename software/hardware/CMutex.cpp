#include "CMutex.h"

#include <chrono>

namespace LibFusion {

bool CMutex::tryLock(int timeoutMs) {
    return m_mutex.try_lock_for(std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs));
}

}  // namespace LibFusion
