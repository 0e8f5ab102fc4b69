#include "CJsonRpcServer.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <string_view>

#include "CException.h"
#include "SameText.h"
#include "dispatch/CNotificationManager.h"
#include "jsonrpc/RpcMethod.h"

CJsonRpcServer::CJsonRpcServer(CEventDispatcher& dispatcher, unsigned short port, const IMonotonicClock& clock,
                               ILog& log, const std::string& bindAddress)
    : CJsonRpcTcpServer(bindAddress, port, log), m_dispatcher(dispatcher), m_clock(clock) {
    Initialize();
    AddMethod(new Json::Rpc::RpcMethod<CJsonRpcServer>(*this, &CJsonRpcServer::GetModules, "getModules"));
    AddMethod(new Json::Rpc::RpcMethod<CJsonRpcServer>(*this, &CJsonRpcServer::GetC4jVersion, "getC4JVersion"));
}

CJsonRpcServer::~CJsonRpcServer() {
    // Registrations of the clients still connected go with them, here as on any close.
    Close();
}

void CJsonRpcServer::Initialize() {
    if (!Bind()) {
        THROW_ERRNO_EXCEPTION("Bind failed");
    }
    if (!Listen()) {
        THROW_ERRNO_EXCEPTION("Listen failed");
    }
    m_initialized = true;
}

void CJsonRpcServer::ProcessMessages() {
    if (!m_initialized) {
        THROW_EXCEPTION("Uninitialized JSON server");
    }
    Update();
    WaitMessage(10);
}

void CJsonRpcServer::NotifyPush(const SJsonNotify& notify) { SendOneNotification(notify); }

void CJsonRpcServer::NotifyPush(const std::string& key, const SJsonNotify& notify, unsigned int delayMs) {
    const auto it = m_queued.find(key);
    if (it != m_queued.end()) {
        it->second.notify = notify;
        return;
    }
    m_queued.emplace(key, SQueuedNotify{notify, CTimer(m_clock, delayMs), delayMs});
}

void CJsonRpcServer::Update() {
    for (auto it = m_queued.begin(); it != m_queued.end();) {
        if (it->second.timer.IsExpired()) {
            const SJsonNotify notify = it->second.notify;
            it = m_queued.erase(it);
            SendOneNotification(notify);
        } else {
            ++it;
        }
    }
}

int CJsonRpcServer::GetNextDeadlineMs() const {
    int next = -1;
    for (const auto& entry : m_queued) {
        const int left = static_cast<int>(entry.second.timer.GetRemainingMs());
        if (next < 0 || left < next) {
            next = left;
        }
    }
    return next;
}

void CJsonRpcServer::SendOneNotification(const SJsonNotify& notify) {
    CNotificationManager& registry = m_dispatcher.GetNotificationManager();
    const bool debug = GetLog().IsLevelEnabled(LOG_LEVEL_DEBUG);
    std::string served;
    for (const std::string& address : notify.recipients) {
        const int id = GetJsonClientDescriptorFromString(address);
        if (id < 0 || !IsClientConnected(static_cast<unsigned int>(id))) {
            GetLog().LogWarning("Can't send notification to unknown client [ID:%d]", id);
            if (id >= 0) {
                ForceClose(static_cast<unsigned int>(id));
            }
            registry.NotifyUnregisterAll(address);
            continue;
        }
        try {
            Send(static_cast<unsigned int>(id), notify.message, notify.key);
            if (debug) {
                served += std::to_string(id) + ",";
            }
        } catch (const CException& e) {
            if (e.GetErrno() == EAGAIN) {
                GetLog().LogWarning("Can't send notification to blocked client [ID:%d]", id);
            } else {
                GetLog().LogWarning("Can't send notification to client [ID:%d] - %s", id, e.what());
                registry.NotifyUnregisterAll(address);
            }
        }
    }
    if (debug) {
        GetLog().LogDebug("Notified clients %s", served.c_str());
    }
}

void CJsonRpcServer::ProcessOutOfBandMessage(const std::string& text, Json::Value& response, int clientId) {
    GetHandler().Process(text, response, clientId);
}

int CJsonRpcServer::GetJsonClientDescriptorFromString(const std::string& address) {
    // Read for every recipient of every notification, so by hand: sscanf costs several
    // times more. "JSON_TCP." and a decimal int, "-1" included, and nothing after it.
    static const char kPrefix[] = "JSON_TCP.";
    const size_t prefix = sizeof kPrefix - 1;
    // Compared in place: a call to memcmp for nine bytes costs 32-bit ARM more than the
    // whole rest of the reading.
    if (address.size() < prefix || !SameText(std::string_view(address.data(), prefix), kPrefix)) {
        return -1;
    }
    size_t at = prefix;
    const bool negative = at < address.size() && address[at] == '-';
    at += negative ? 1 : 0;
    if (at == address.size() || address.size() - at > 10) {
        return -1;
    }
    long long id = 0;
    for (; at < address.size(); ++at) {
        const char digit = address[at];
        if (digit < '0' || digit > '9') {
            return -1;
        }
        id = id * 10 + (digit - '0');
    }
    id = negative ? -id : id;
    return id < INT_MIN || id > INT_MAX ? -1 : static_cast<int>(id);
}

void CJsonRpcServer::OnClientClosed(const SJsonRpcClient& client) {
    m_dispatcher.GetNotificationManager().NotifyUnregisterAll(
        CNotificationManager::MakeAddrFromSocket(static_cast<int>(client.id)));
}

bool CJsonRpcServer::GetModules(const Json::Value& request, Json::Value& response) {
    if (!request.isMember("id")) {
        return true;
    }
    response["jsonrpc"] = "2.0";
    response["id"] = request["id"];
    Json::Value modules(Json::arrayValue);
    for (const auto& module : m_modules) {
        Json::Value entry;
        entry["module"] = module.first;
        entry["version"] = module.second;
        modules.append(entry);
    }
    response["result"] = modules;
    return true;
}

bool CJsonRpcServer::GetC4jVersion(const Json::Value& request, Json::Value& response) {
    if (!request.isMember("id")) {
        return true;
    }
    response["jsonrpc"] = "2.0";
    response["id"] = request["id"];
    response["result"] = kC4jVersion;
    return true;
}

EAccessLevel CJsonRpcServer::GetRequestAccessLevel(int clientId) const {
    if (clientId >= 0) {
        return GetClientAccessLevel(static_cast<unsigned int>(clientId));
    }
    return m_runAs != ACCESS_NONE ? m_runAs : m_datagramLevel;
}
