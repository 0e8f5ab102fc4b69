#pragma once
// CIpcAccessPolicy: the highest access level a local process may state in an IPC
// message (parameter 231), by the user and groups the kernel vouches for (the socket's
// SCM_CREDENTIALS). What a message states is only a claim: the controller takes the lower
// of the claim and this cap, so a process of another user (a compromised web or media
// process) cannot reach the factory settings by writing 6 into its messages.
//
// The policy, as the configuration's "ipcAccess" gives it:
//   {"users": {"root": 6, "media": 2}, "groups": {"projector": 5}, "default": 1}
//   - "users": user names to levels 1..6;
//   - "groups": group names to levels; a sender has a group's level when the group is
//     its gid or one of its user's groups in the system's user database;
//   - "default": the level of every other sender (1).
// The cap of a sender is the highest level any of these gives it. The controller's own
// user and root may always state any level: the front-ends the controller starts run as
// its user and pass on the levels their clients logged in with, and root could change
// the controller's files anyway. Without a configured policy (the default object) they
// are the only ones who may state more than 1.
//
// Names are looked up once, when the policy is read: an unknown user or group is a
// configuration error. Caps are kept per uid once computed (a change of a user's groups
// takes effect at the controller's next start); at most kMaxCachedUsers are kept.
//
// Errors: FromJson throws CException naming the member that is wrong.
// Thread contract: a value; Cap is used by the controller's event thread.

#include <sys/socket.h>
#include <sys/types.h>

#include <json/json.h>

#include <map>

#include "control/ControlTypes.h"

class CIpcAccessPolicy {
public:
    static constexpr size_t kMaxCachedUsers = 64;

    // Every sender but root and the controller's user may state 1 only.
    CIpcAccessPolicy();
    static CIpcAccessPolicy FromJson(const Json::Value& policy);

    // The highest level this sender may state.
    EAccessLevel Cap(const ucred& sender);

private:
    EAccessLevel Compute(uid_t uid, gid_t gid) const;

    uid_t m_ownUid;
    std::map<uid_t, EAccessLevel> m_users;
    std::map<gid_t, EAccessLevel> m_groups;
    EAccessLevel m_default = ACCESS_USER;
    std::map<uid_t, EAccessLevel> m_cache;
};
