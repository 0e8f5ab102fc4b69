#include "CC4jSession.h"

#include "CException.h"

CC4jSession::CC4jSession(CJsonRpcServer& server, CSecurityManager& security, const IMonotonicClock& clock,
                         const std::string& usersFile)
    : CC4jBaseHandler(server, "session", 1), m_security(security), m_usersFile(usersFile), m_backOff(clock) {
    Publish(*this, &CC4jSession::Connect, "session:connect");
    Publish(*this, &CC4jSession::ChangePassword, "session:changePassword");
}

std::string CC4jSession::PeerAddress(const Json::Value& request) const {
    const int fd = GetClientFd(request);
    const std::string peer = fd < 0 ? std::string() : GetServer().GetClientPeerName(static_cast<unsigned int>(fd));
    return peer.substr(0, peer.rfind('-'));  // "a.b.c.d-port": the port changes with each connection
}

bool CC4jSession::ReadCredentials(const Json::Value& request, Json::Value& response, const char* passwordName,
                                  std::string& user, std::string& password) {
    const Json::Value& params = request["params"];
    if (!params.isObject() || !params.isMember("user") || !params.isMember(passwordName)) {
        MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS);
        return false;
    }
    if (!params["user"].isString() || !params[passwordName].isString()) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER);
        return false;
    }
    user = params["user"].asString();
    password = params[passwordName].asString();
    return true;
}

bool CC4jSession::Check(const Json::Value& request, Json::Value& response, const char* what,
                        const std::string& user, const std::string& password, EAccessLevel& level) {
    const std::string client = GetClientIdString(request);
    const std::string peer = PeerAddress(request);
    if (m_backOff.IsBackingOff(peer)) {
        GetLog().LogWarning("Session %s from %s: user %s refused unchecked (too many failures)", what,
                            client.c_str(), user.c_str());
        MakeErrorResponse(request, response, ERR_SYSTEM_BUSY);
        return false;
    }
    m_security.Refresh();
    if (m_security.Login(user, password, level)) {
        m_backOff.Succeed(peer);
        return true;
    }
    const unsigned int failures = m_backOff.Fail(peer);
    GetLog().LogWarning("Session %s from %s: user %s refused (%u failures in a row)", what, client.c_str(),
                        user.c_str(), failures);
    MakeErrorResponse(request, response, ERR_INVALID_SECURITY_TOKEN);
    return false;
}

bool CC4jSession::Connect(const Json::Value& request, Json::Value& response) {
    std::string user;
    std::string password;
    if (!ReadCredentials(request, response, "password", user, password)) {
        return true;
    }
    const int fd = GetClientFd(request);
    EAccessLevel level = ACCESS_USER;
    if (!Check(request, response, "connect", user, password, level)) {
        if (fd >= 0) {
            GetServer().SetClientAccessLevel(static_cast<unsigned int>(fd), ACCESS_USER);
        }
        return true;
    }
    if (fd >= 0) {
        GetServer().SetClientAccessLevel(static_cast<unsigned int>(fd), level);
    }
    GetLog().Log("Session connect from %s: user %s accepted, level %d", GetClientIdString(request).c_str(),
                 user.c_str(), static_cast<int>(level));
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"]["access"] = static_cast<int>(level);
    }
    return true;
}

bool CC4jSession::ChangePassword(const Json::Value& request, Json::Value& response) {
    std::string user;
    std::string password;
    std::string newPassword;
    if (!ReadCredentials(request, response, "password", user, password) ||
        !ReadCredentials(request, response, "newPassword", user, newPassword)) {
        return true;
    }
    if (newPassword.find('\0') != std::string::npos) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER, "A password cannot hold a NUL character");
        return true;
    }
    EAccessLevel level = ACCESS_USER;
    if (!Check(request, response, "changePassword", user, password, level)) {
        return true;
    }
    try {
        m_security.SetPassword(user, newPassword);
        m_security.Save(m_usersFile);
    } catch (const CException& e) {
        GetLog().LogError("Session changePassword from %s: user %s: %s", GetClientIdString(request).c_str(),
                          user.c_str(), e.GetMessage().c_str());
        try {
            m_security.Load(m_usersFile);  // what the file holds is what stands
        } catch (const CException& reload) {
            GetLog().LogError("Session changePassword: %s", reload.GetMessage().c_str());
        }
        MakeErrorResponse(request, response, ERR_BAD_FILE);
        return true;
    }
    GetLog().Log("Session changePassword from %s: user %s changed", GetClientIdString(request).c_str(), user.c_str());
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = Json::Value(Json::objectValue);
    }
    return true;
}
