#include "dispatch/CNotificationManager.h"

#include <algorithm>
#include <cstdio>

namespace {

using Registrations = std::list<CNotificationManager::SRegistration>;

Registrations::iterator FindAddress(Registrations& list, const std::string& address) {
    return std::find_if(list.begin(), list.end(),
                        [&](const CNotificationManager::SRegistration& r) { return r.address == address; });
}

// Over the list's own nodes and strings first: a caller that keeps its list from one
// change to the next then announces each without allocating.
void CopyAddresses(const Registrations& list, std::list<std::string>& out) {
    auto to = out.begin();
    for (const auto& registration : list) {
        if (to == out.end()) {
            out.push_back(registration.address);
        } else {
            *to++ = registration.address;
        }
    }
    out.erase(to, out.end());
}

}  // namespace

int CNotificationManager::NotifyRegister(const std::string& key, const std::string& address) {
    SEntry& entry = m_keys[key];
    const bool json = IsJsonAddr(address);
    Registrations& list = json ? entry.json : entry.ipc;
    const auto it = FindAddress(list, address);
    if (it != list.end()) {
        return ++it->count;
    }
    list.push_back(SRegistration{address, 1});
    ++(json ? entry.jsonCount : entry.ipcCount);
    return 1;
}

void CNotificationManager::NotifyUnregister(const std::string& key, const std::string& address, bool force) {
    const auto found = m_keys.find(key);
    if (found == m_keys.end()) {
        return;
    }
    const bool json = IsJsonAddr(address);
    Registrations& list = json ? found->second.json : found->second.ipc;
    const auto it = FindAddress(list, address);
    if (it == list.end()) {
        return;
    }
    --it->count;
    if (it->count < 1 || force) {
        list.erase(it);
        --(json ? found->second.jsonCount : found->second.ipcCount);
    }
    if (found->second.ipc.empty() && found->second.json.empty()) {
        m_keys.erase(found);
    }
}

std::string CNotificationManager::NotifyUnregisterAll(const std::string& address) {
    const bool json = IsJsonAddr(address);
    std::vector<std::string> keys;
    for (auto it = m_keys.begin(); it != m_keys.end();) {
        Registrations& list = json ? it->second.json : it->second.ipc;
        const auto registration = FindAddress(list, address);
        if (registration != list.end()) {
            list.erase(registration);
            --(json ? it->second.jsonCount : it->second.ipcCount);
            keys.push_back(it->first);
        }
        it = it->second.ipc.empty() && it->second.json.empty() ? m_keys.erase(it) : std::next(it);
    }
    std::sort(keys.begin(), keys.end());
    std::string removedFrom;
    for (const std::string& key : keys) {
        removedFrom += key + ' ';
    }
    return removedFrom;
}

void CNotificationManager::GetIpcRecipientList(const std::string& key, std::list<std::string>& recipients) const {
    const auto it = m_keys.find(key);
    if (it == m_keys.end()) {
        recipients.clear();
        return;
    }
    CopyAddresses(it->second.ipc, recipients);
}

void CNotificationManager::GetC4jRecipientList(const std::string& key, std::list<std::string>& recipients) const {
    const auto it = m_keys.find(key);
    if (it == m_keys.end()) {
        recipients.clear();
        return;
    }
    CopyAddresses(it->second.json, recipients);
}

CNotificationManager::SEntry CNotificationManager::GetNotifyList(const std::string& key) const {
    const auto it = m_keys.find(key);
    return it == m_keys.end() ? SEntry() : it->second;
}

std::vector<std::string> CNotificationManager::GetKeys() const {
    std::vector<std::string> keys;
    keys.reserve(m_keys.size());
    for (const auto& entry : m_keys) {
        keys.push_back(entry.first);
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

std::string CNotificationManager::MakeAddrFromSocket(int clientId) {
    char address[32];  // "JSON_TCP." plus any int, "-2147483648" included
    snprintf(address, sizeof address, "%s.%d", "JSON_TCP", clientId);
    return address;
}

bool CNotificationManager::IsJsonAddr(const std::string& address) {
    return address.find("JSON_TCP") != std::string::npos;
}
