#include "dispatch/CIpcAccessPolicy.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "CException.h"

namespace {

EAccessLevel ReadLevel(const Json::Value& value, const std::string& member) {
    if (!value.isInt() || value.asInt() < ACCESS_USER || value.asInt() > ACCESS_PROTECTED) {
        THROW_EXCEPTION("\"ipcAccess\": %s must be a level 1..6", member.c_str());
    }
    return static_cast<EAccessLevel>(value.asInt());
}

// The groups of a user in the system's database, its primary group first.
std::vector<gid_t> GroupsOf(uid_t uid, gid_t gid) {
    std::vector<gid_t> groups{gid};
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) != 0 || !found) {
        return groups;
    }
    int count = 64;
    std::vector<gid_t> listed(static_cast<size_t>(count));
    if (getgrouplist(found->pw_name, gid, listed.data(), &count) < 0 && count > 0) {
        listed.resize(static_cast<size_t>(count));
        getgrouplist(found->pw_name, gid, listed.data(), &count);
    }
    listed.resize(static_cast<size_t>(std::max(count, 0)));
    groups.insert(groups.end(), listed.begin(), listed.end());
    return groups;
}

}  // namespace

CIpcAccessPolicy::CIpcAccessPolicy() : m_ownUid(geteuid()) {}

CIpcAccessPolicy CIpcAccessPolicy::FromJson(const Json::Value& policy) {
    CIpcAccessPolicy result;
    if (policy.isNull()) {
        return result;
    }
    if (!policy.isObject()) {
        THROW_EXCEPTION("\"ipcAccess\" must be an object");
    }
    for (const std::string& member : policy.getMemberNames()) {
        if (member != "users" && member != "groups" && member != "default") {
            THROW_EXCEPTION("\"ipcAccess\": unknown member \"%s\"", member.c_str());
        }
    }
    if (policy.isMember("default")) {
        result.m_default = ReadLevel(policy["default"], "\"default\"");
    }
    for (const char* kind : {"users", "groups"}) {
        const Json::Value& names = policy[kind];
        if (names.isNull()) {
            continue;
        }
        if (!names.isObject()) {
            THROW_EXCEPTION("\"ipcAccess\": \"%s\" must be an object of names and levels", kind);
        }
        for (const std::string& name : names.getMemberNames()) {
            const EAccessLevel level = ReadLevel(names[name], "\"" + std::string(kind) + "\": \"" + name + "\"");
            if (kind[0] == 'u') {
                const passwd* user = getpwnam(name.c_str());
                if (!user) {
                    THROW_EXCEPTION("\"ipcAccess\": no user \"%s\" on this system", name.c_str());
                }
                result.m_users[user->pw_uid] = level;
            } else {
                const group* found = getgrnam(name.c_str());
                if (!found) {
                    THROW_EXCEPTION("\"ipcAccess\": no group \"%s\" on this system", name.c_str());
                }
                result.m_groups[found->gr_gid] = level;
            }
        }
    }
    return result;
}

EAccessLevel CIpcAccessPolicy::Cap(const ucred& sender) {
    if (sender.uid == m_ownUid || sender.uid == 0) {
        return ACCESS_PROTECTED;
    }
    const auto cached = m_cache.find(sender.uid);
    if (cached != m_cache.end()) {
        return cached->second;
    }
    const EAccessLevel level = Compute(sender.uid, sender.gid);
    if (m_cache.size() >= kMaxCachedUsers) {
        m_cache.clear();
    }
    m_cache[sender.uid] = level;
    return level;
}

EAccessLevel CIpcAccessPolicy::Compute(uid_t uid, gid_t gid) const {
    EAccessLevel level = m_default;
    const auto user = m_users.find(uid);
    if (user != m_users.end()) {
        level = std::max(level, user->second);
    }
    if (!m_groups.empty()) {
        for (const gid_t member : GroupsOf(uid, gid)) {
            const auto found = m_groups.find(member);
            if (found != m_groups.end()) {
                level = std::max(level, found->second);
            }
        }
    }
    return level;
}
