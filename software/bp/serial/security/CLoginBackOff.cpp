#include "security/CLoginBackOff.h"

#include <algorithm>

bool CLoginBackOff::IsBackingOff(const std::string& peer) const {
    const auto failures = m_failures.find(peer);
    return failures != m_failures.end() && failures->second.count >= kFreeAttempts &&
           !failures->second.backOff.IsExpired();
}

unsigned int CLoginBackOff::Fail(const std::string& peer) {
    auto failures = m_failures.find(peer);
    if (failures == m_failures.end()) {
        MakeRoom();
        failures = m_failures.emplace(peer, SFailures{0, CTimer(m_clock), 0}).first;
    }
    SFailures& record = failures->second;
    ++record.count;
    record.order = m_nextOrder++;
    const unsigned int doublings = std::min(record.count - std::min(record.count, kFreeAttempts), 16u);
    record.backOff.Start(record.count < kFreeAttempts ? 0 : std::min<uint32_t>(1000u << doublings, kMaxBackOffMs));
    return record.count;
}

void CLoginBackOff::MakeRoom() {
    if (m_failures.size() < kMaxPeers) {
        return;
    }
    for (auto it = m_failures.begin(); it != m_failures.end();) {
        it = it->second.backOff.IsExpired() ? m_failures.erase(it) : std::next(it);
    }
    if (m_failures.size() >= kMaxPeers) {
        m_failures.erase(std::min_element(m_failures.begin(), m_failures.end(), [](const auto& a, const auto& b) {
            return a.second.order < b.second.order;
        }));
    }
}
