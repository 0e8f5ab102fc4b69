#include "CC4jSystem.h"

#include <filesystem>
#include <sstream>

#include "NFileUtil.h"
#include "RuntimeRoot.h"

namespace {

// A field of /proc/mounts, with its octal escapes ("\\040" for a blank) decoded.
std::string Unescape(const std::string& field) {
    std::string text;
    for (size_t i = 0; i < field.size(); ++i) {
        const bool escape = field[i] == '\\' && i + 3 < field.size() &&
                            field.find_first_not_of("01234567", i + 1) > i + 3;
        if (escape) {
            text.push_back(static_cast<char>(std::stoi(field.substr(i + 1, 3), nullptr, 8)));
            i += 3;
        } else {
            text.push_back(field[i]);
        }
    }
    return text;
}

}  // namespace

CC4jSystem::CC4jSystem(CJsonRpcServer& server, CNetwork& network, unsigned int family, ILampData* lampData,
                       ILampListener* lampListener)
    : CC4jBaseHandler(server, "system", 2), m_network(network), m_family(family), m_lampData(lampData),
      m_lampListener(lampListener) {
    Publish(*this, &CC4jSystem::SetNetworkAddress, "system:setNetworkAddress");
    Publish(*this, &CC4jSystem::GetFamily, "system:getFamily");
    Publish(*this, &CC4jSystem::GetUsbPath, "system:getUsbPath");
    Publish(*this, &CC4jSystem::GetIconPaths, "system:getIconPaths");
    Publish(*this, &CC4jSystem::KeepAlive, "system:keepAlive");
    Publish(*this, &CC4jSystem::GetAcPowerMode, "system:getAcPowerMode");
    Publish<CC4jBaseHandler>(*this, &CC4jBaseHandler::AddListener, "system:addListener");
    Publish<CC4jBaseHandler>(*this, &CC4jBaseHandler::RemoveListener, "system:removeListener");
    Publish(*this, &CC4jSystem::GetCooldownTime, "system:getCooldownTime");
    Publish(*this, &CC4jSystem::GetLampHistory, "system:getLampHistory");
}

void CC4jSystem::Received(const char* method, const Json::Value& request) const {
    GetLog().Log("Recv'd '%s' from %s", method, GetClientIdString(request).c_str());
}

bool CC4jSystem::GetFamily(const Json::Value& request, Json::Value& response) {
    Received("system:getFamily", request);
    MakeResultResponse(request, response, Json::Value(m_family));
    return true;
}

bool CC4jSystem::GetAcPowerMode(const Json::Value& request, Json::Value& response) {
    Received("system:getAcPowerMode", request);
    Json::Value result;
    result["powerMode"] = m_lampListener && m_lampListener->IsAcPowerLimited() ? "limited" : "full";
    MakeResultResponse(request, response, result);
    return true;
}

bool CC4jSystem::GetUsbPath(const Json::Value& request, Json::Value& response) {
    Received("system:getUsbPath", request);
    std::string mounts;
    std::string error;
    std::string path;
    if (NFileUtil::ReadFile(NRuntimeRoot::Path(kMounts), 1024 * 1024, mounts, error) == NFileUtil::EReadResult::READ) {
        std::istringstream lines(mounts);
        for (std::string line; path.empty() && std::getline(lines, line);) {
            std::istringstream fields(line);
            std::string device;
            std::string mountPoint;
            if (fields >> device >> mountPoint && device.rfind("/dev/sd", 0) == 0) {
                path = Unescape(mountPoint);
            }
        }
    }
    if (path.empty()) {
        MakeErrorResponse(request, response, ERR_BAD_FILE, "Couldn't find USB filesystem");
        return true;
    }
    MakeResultResponse(request, response, Json::Value(path));
    return true;
}

bool CC4jSystem::GetIconPaths(const Json::Value& request, Json::Value& response) {
    Received("system:getIconPaths", request);
    Json::Value folders(Json::arrayValue);
    for (const char* folder : {kShippedIcons, kUploadedIcons}) {
        std::error_code ignored;
        if (std::filesystem::is_directory(NRuntimeRoot::Path(folder), ignored)) {
            folders.append(folder);
        }
    }
    MakeResultResponse(request, response, folders);
    return true;
}

bool CC4jSystem::GetCooldownTime(const Json::Value& request, Json::Value& response) {
    Received("system:getCooldownTime", request);
    Json::Value result;
    result["sec"] = m_lampListener ? m_lampListener->GetCooldownTimeS() : 0;
    MakeResultResponse(request, response, result);
    return true;
}

bool CC4jSystem::GetLampHistory(const Json::Value& request, Json::Value& response) {
    Received("system:getLampHistory", request);
    std::vector<SLampHistoryEntry> history;
    if (!m_lampData || !m_lampData->GetLampHistory(history) || history.empty()) {
        MakeErrorResponse(request, response, ERR_UNKNOWN_REQUEST, "Cannot find any lamp history.");
        return true;
    }
    Json::Value lamps(Json::arrayValue);
    for (const SLampHistoryEntry& entry : history) {
        Json::Value lamp;
        lamp["type"] = entry.type;
        lamp["installDate"] = entry.installDate;
        lamp["strikes"] = entry.strikes;
        lamp["failedStrikes"] = entry.failedStrikes;
        lamp["unexpectedOffs"] = entry.unexpectedOffs;
        lamp["preInstalledHours"] = RoundedHours(entry.preInstalledS);
        lamp["totalHours"] = RoundedHours(uint64_t{entry.preInstalledS} + entry.onTimeS);
        lamps.append(lamp);
    }
    MakeResultResponse(request, response, lamps);
    return true;
}

bool CC4jSystem::SetNetworkAddress(const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    const Json::Value params = request["params"].isObject() ? request["params"] : Json::Value(Json::objectValue);
    const Json::Value& autoMode = params["auto"];
    if (autoMode.isBool() && !autoMode.asBool()) {
        Received("system:setNetworkAddress", request);
        MakeErrorResponse(request, response, ERR_COMMAND_NOT_EXECUTED, "Auto-network mode cannot be disabled in this way");
        return true;
    }
    bool wellTyped = autoMode.isNull() || autoMode.isBool();
    for (const char* name : {"ip", "netmask", "gateway"}) {
        wellTyped = wellTyped && (params[name].isNull() || params[name].isString());
    }
    auto text = [&params](const char* name, const char* fallback) {
        return params[name].isString() ? params[name].asString() : std::string(fallback);
    };
    const std::string ip = text("ip", "");
    const std::string netmask = text("netmask", "");
    const std::string gateway = text("gateway", "0.0.0.0");
    const std::string client = GetClientIdString(request);
    bool accepted = false;
    if (autoMode.isBool()) {
        GetLog().Log("Recv'd 'system:setNetworkAddress' from %s (dhcp)", client.c_str());
        accepted = wellTyped && m_network.StartDhcp(ip, netmask, gateway);
    } else {
        GetLog().Log("Recv'd 'system:setNetworkAddress' from %s (static: %s, %s, %s)", client.c_str(), ip.c_str(),
                     netmask.c_str(), gateway.c_str());
        accepted = wellTyped && m_network.SetStaticAddress(ip, netmask, gateway);
    }
    if (!accepted) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER, "Bad network settings");
        return true;
    }
    Json::Value result;
    result["ip"] = ip;
    result["netmask"] = netmask;
    result["gateway"] = gateway;
    MakeResultResponse(request, response, result);
    return true;
}

bool CC4jSystem::KeepAlive(const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    Received("system:keepAlive", request);
    const Json::Value& params = request["params"];
    if (!params.isObject() || !params["pid"].isInt() || !params["sec"].isUInt() || !params["name"].isString()) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER);
        return true;
    }
    if (!m_monitor || !m_monitor->KeepAlive(params["pid"].asInt(), params["sec"].asUInt(), params["name"].asString())) {
        MakeErrorResponse(request, response, ERR_COMMAND_NOT_EXECUTED);
        return true;
    }
    MakeResultResponse(request, response, Json::Value(true));
    return true;
}

void CC4jSystem::Push(unsigned int seconds, const std::list<std::string>& clients) {
    SJsonNotify notify;
    Json::Value message;
    message["jsonrpc"] = "2.0";
    message["method"] = kNotifyMethod;
    message["params"]["sec"] = seconds;
    notify.message = Json::Rpc::Handler::GetString(message);
    notify.recipients = clients;
    notify.key = kNotifyMethod;
    GetServer().NotifyPush(notify);
}

void CC4jSystem::SendNotification(const std::string&, const std::list<std::string>& clients) {
    Push(m_lampListener ? m_lampListener->GetCooldownTimeS() : 0, clients);
}

void CC4jSystem::NotifyCooldownTimeS(unsigned int seconds) {
    if (seconds == m_lastCooldownS) {
        return;
    }
    m_lastCooldownS = seconds;
    std::list<std::string> clients;
    GetDispatcher().GetC4jNotifyRecipientList(kNotifyMethod, clients);
    if (!clients.empty()) {
        Push(seconds, clients);
    }
}
