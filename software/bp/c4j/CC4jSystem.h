#pragma once
// CC4jSystem: the "system" module (version 2): general questions about the projector
// and a few system-wide orders.
//
//   system:getFamily         the product family number given at construction (the
//                            product line, so that a controller can tell models apart)
//   system:getAcPowerMode    {"powerMode": "full" | "limited"} from the lamp listener
//                            ("full" without one)
//   system:getUsbPath        the mount point of the first USB mass-storage device (a
//                            /dev/sd* block device in "/proc/mounts" under the runtime
//                            root); 113 "Couldn't find USB filesystem" without one
//   system:getIconPaths      the icon folders that exist: "/usr/share/projector/icons"
//                            (shipped) and "/var/data/icons" (uploaded)
//   system:getCooldownTime   {"sec": remaining cool-down} (0 without a lamp listener)
//   system:getLampHistory    one object per lamp record: {"type" (the lamp type text
//                            stored on the lamp's tag), "installDate" (seconds
//                            since 1970 UTC), "strikes", "failedStrikes",
//                            "unexpectedOffs", "preInstalledHours", "totalHours" (hours
//                            before this projector plus on-time here)}, hours rounded to
//                            nearest (5399 s is 1 h, 5400 s is 2 h); 9 "Cannot find any
//                            lamp history." without data
//   system:setNetworkAddress {"ip", "netmask", "gateway" ("0.0.0.0"), "auto"}: "auto"
//                            false is refused with 7 "Auto-network mode cannot be
//                            disabled in this way" (send a static address instead); true
//                            starts DHCP with the rest as fall-backs; without it the
//                            static address is set; refused settings give 3 "Bad network
//                            settings"; the result echoes {"ip", "netmask", "gateway"}
//   system:keepAlive         {"pid", "sec", "name"} to the process monitor; result true;
//                            3 when a member is missing or of the wrong type, 7 without
//                            a monitor or when it refuses
//   system:addListener / removeListener  for "system:notifyCooldownTime" {"sec"}, pushed
//                            by NotifyCooldownTimeS when the count changes
// system:setNetworkAddress and system:keepAlive need kChangeLevel (117 below it):
// moving the projector or speaking for a supervised process is no anonymous client's.
// Each method logs its receipt: "Recv'd 'system:getIconPaths' from <client>".
//
// Lifetime: server, network, lamp data, lamp listener and monitor outlive it (the lamp
// pointers may be null). Thread contract: the server's thread, NotifyCooldownTimeS too.

#include <string>

#include "CC4jBaseHandler.h"
#include "ILampData.h"
#include "IProcessMonitor.h"
#include "net/CNetwork.h"

class CC4jSystem : public CC4jBaseHandler {
public:
    static constexpr EAccessLevel kChangeLevel = ACCESS_OPERATOR;
    static constexpr const char* kNotifyMethod = "system:notifyCooldownTime";
    static constexpr const char* kMounts = "/proc/mounts";
    static constexpr const char* kShippedIcons = "/usr/share/projector/icons";
    static constexpr const char* kUploadedIcons = "/var/data/icons";

    CC4jSystem(CJsonRpcServer& server, CNetwork& network, unsigned int family, ILampData* lampData,
               ILampListener* lampListener);
    void AddProcessMonitor(IProcessMonitor* monitor) { m_monitor = monitor; }

    bool GetFamily(const Json::Value& request, Json::Value& response);
    bool GetAcPowerMode(const Json::Value& request, Json::Value& response);
    bool GetUsbPath(const Json::Value& request, Json::Value& response);
    bool GetIconPaths(const Json::Value& request, Json::Value& response);
    bool GetCooldownTime(const Json::Value& request, Json::Value& response);
    bool GetLampHistory(const Json::Value& request, Json::Value& response);
    bool SetNetworkAddress(const Json::Value& request, Json::Value& response);
    bool KeepAlive(const Json::Value& request, Json::Value& response);

    std::list<std::string> GetNotifyMethods(const Json::Value&) const override { return {kNotifyMethod}; }
    void SendNotification(const std::string& key, const std::list<std::string>& clients) override;
    // Pushes the count to the listeners when it differs from the last one pushed.
    void NotifyCooldownTimeS(unsigned int seconds);

    // Hours for seconds, rounded to nearest.
    static unsigned int RoundedHours(uint64_t seconds) { return static_cast<unsigned int>((seconds + 1800) / 3600); }

private:
    void Received(const char* method, const Json::Value& request) const;
    void Push(unsigned int seconds, const std::list<std::string>& clients);

    CNetwork& m_network;
    unsigned int m_family;
    ILampData* m_lampData;
    ILampListener* m_lampListener;
    IProcessMonitor* m_monitor = nullptr;
    unsigned int m_lastCooldownS = 0;
};
