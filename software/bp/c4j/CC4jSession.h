#pragma once
// CC4jSession: the "session" module (version 1): a JSON-RPC client logs in to raise the
// access level of its connection, and changes a password.
//
//   session:connect         params {"user", "password"}: checked by the security manager
//                           against its salted PBKDF2 records. Accepted: the connection's
//                           level becomes the user's level; result {"access": level}.
//                           Refused: error 116 "Invalid Security Token", and the
//                           connection falls back to level 1.
//   session:changePassword  params {"user", "password", "newPassword"}: the old password
//                           must be right, as for connect; the new one is stored as a new
//                           salted hash in the users file, written atomically (temporary
//                           file, flush, rename); result {}. The connection's level is
//                           unchanged. A users file that cannot be written: error 113 and
//                           the accounts stay as the file has them.
// Missing params: error 5; params of the wrong type, or a new password holding a NUL:
// error 3.
//
// Guessing is slowed per peer address (whatever its connection) by CLoginBackOff: after
// kFreeAttempts failures in a row, each further attempt is refused with 118 "System Busy
// - Try Again Later", without a check, until the back-off has passed. One check costs one
// key derivation on the controller's thread (about 0.1 s at the default rounds), so the
// back-off also bounds how much of the loop a guesser can take.
//
// Logging: every attempt is logged with the client and the user name (the security
// manager's FYI login line, and "Session ... from %s: user %s ..."); a password never
// appears in any log line, and the server logs no request text.
//
// Time comes from the clock handed in (see CLoginBackOff for the clock it needs).
//
// Lifetime: the server, the security manager and the clock outlive the handler.
// Thread contract: the server's thread, which is also the controller's.

#include <string>

#include "CC4jBaseHandler.h"
#include "security/CLoginBackOff.h"
#include "security/CSecurityManager.h"
#include "time/IMonotonicClock.h"

class CC4jSession : public CC4jBaseHandler {
public:
    // usersFile: the system path the accounts are saved to after a password change.
    CC4jSession(CJsonRpcServer& server, CSecurityManager& security, const IMonotonicClock& clock,
                const std::string& usersFile = CSecurityManager::kDefaultUsersFile);

    bool Connect(const Json::Value& request, Json::Value& response);
    bool ChangePassword(const Json::Value& request, Json::Value& response);

private:
    // Reads "user" and the password member `passwordName`; answers 5 or 3 itself.
    bool ReadCredentials(const Json::Value& request, Json::Value& response, const char* passwordName,
                         std::string& user, std::string& password);
    // Checks the password with the back-off above; answers 118 or 116 itself.
    bool Check(const Json::Value& request, Json::Value& response, const char* what, const std::string& user,
               const std::string& password, EAccessLevel& level);
    std::string PeerAddress(const Json::Value& request) const;

    CSecurityManager& m_security;
    std::string m_usersFile;
    CLoginBackOff m_backOff;
};
