#pragma once
// CProjectorConfig: the virtual projector's configuration file (JSON), checked whole
// before anything is built, and the objects it describes.
//
// Top level: "controls" (array), "statusGroups" (array), optional "users" (accounts of
// the ASCII front-end, in the users-file form: {"name","access","salt","hash",
// "iterations"}; written to "/etc/projector/users.json" for the front-end) and "menu"
// (the menu tree file under "/etc/", default "menu.json") and "formatter" ({"sequence":
// the DMD sequence archive's name, "hdr": true for a dual-modulation loader with its
// pre-modulation formatter, default false) and "laser" ({"host": text, "port": 1..65535}: the
// laser bank module to control; without it the projector runs its own simulated one),
// "lamps" ([{"position": "A1".."B3", "type": lamp type}], default one lamp at A1 of type
// "SIM-LAMP"), "power" ({"cooldownS": 0..3600, default 60; "warmupS": 0..600, default 0}) and "family" (the product
// family number "system:getFamily" answers, default 1), "multicast" ({"group": a multicast
// address, "port", "interface"}, default 239.192.0.1, 3004, "lo") and "unicast"
// ({"port"}, default 3005, 0 for any free port) and "pjlink" (the PJLink front-end's
// mapping, see SPjlinkMapping) and "ipcAccess" (the highest levels local processes of
// other users may state over IPC, see CIpcAccessPolicy) and "udpAccessLevel" (1..6,
// default 1: the access level of every request that comes by datagram, on the unicast
// port or the multicast group) and "web" (the web page: {"httpPort": 0..65535, default 0;
// "httpsPort": -1..65535, default 0, -1 for none; "plainHttp": false to serve HTTPS only,
// default true; "root": the page's folder, relative to the configuration file's, default
// the page shipped with the build or the installation}) and "snmp" (the SNMP front-end's
// settings, see SSnmpConfig; without it the front-end runs only when --agentx names a
// master agent). A port of 0 is any free one (the
// ready line says which), so virtual projectors side by side never collide.
// A control: "code", "type" (display type), and where its kind uses them: "persistent"
// (false), "min", "max", "default" (a number, or a text for types 300..399), "access"
// (2), "name", "help" (text ids), "decimals", "readOnly", "softMin", "softMax",
// "softMinEnabled", "softMaxEnabled" (type 203), "list" ([{"value", "text", "textId",
// "shown" (true), "selectable" (true), "icon"}]), "text" (menus and custom controls),
// "refuse" (values or texts the simulated hardware refuses).
// A status group: {"name", "label" (text id), "icon", "items": [{"idx", "label",
// "value", "number", "severity"}]}.
//
// Any fault (syntax, an unknown member type, an unknown display type, a bad range, a
// duplicate code, ...) throws CException with one message naming the file, the control
// (or group) and the reason: "<file>: control BRI: Invalid min/max range 10 < 5".
// Nothing is half-built: Build makes every control or throws and destroys them all.
//
// Thread contract: the host's start-up thread, before the controller runs.

#include <json/json.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "CLampPlant.h"
#include "CSyncPlant.h"
#include "CWebServer.h"
#include "SPjlinkMapping.h"
#include "SSnmpConfig.h"
#include "control/CProjCon.h"
#include "dispatch/CEventDispatcher.h"
#include "dispatch/CIpcAccessPolicy.h"
#include "status/CStatusDb.h"

// The hardware behind the virtual projector's controls: it takes every value except the
// ones the configuration lists under "refuse", which it refuses as real hardware refuses
// a setting it cannot take. A control served by a plant component (a simulated device)
// is handed to it once the refuse list has let it through, and takes its answer.
class CSimulatedHardware : public IControlProxy {
public:
    explicit CSimulatedHardware(ILog& log) : m_log(log) {}
    bool ApplyControlValue(const std::string& code, int value) override;
    bool ApplyControlText(const std::string& code, const std::string& text) override;
    void RefuseValue(const std::string& code, int value) { m_refusedValues[code].insert(value); }
    void RefuseText(const std::string& code, const std::string& text) { m_refusedTexts[code].insert(text); }
    // The plant must outlive the controls that reach it.
    void AddPlant(const std::string& code, IControlProxy& plant) { m_plants[code] = &plant; }

private:
    ILog& m_log;
    std::map<std::string, IControlProxy*> m_plants;
    std::map<std::string, std::set<int>> m_refusedValues;
    std::map<std::string, std::set<std::string>> m_refusedTexts;
};

class CProjectorConfig {
public:
    // Reads and checks the file (a real path, not under the runtime root).
    explicit CProjectorConfig(const std::string& path);

    // Builds every control into the dispatcher, each applying through `hardware`.
    std::vector<std::unique_ptr<CProjCon>> BuildControls(CEventDispatcher& dispatcher,
                                                         CSimulatedHardware& hardware) const;
    // Adds every status group to the database.
    void BuildStatus(CStatusDb& database) const;
    size_t GetStatusGroupCount() const { return m_root["statusGroups"].size(); }
    const Json::Value& GetUsers() const { return m_root["users"]; }
    std::string GetMenuFile() const;
    // The formatter's sequence archive name; empty when the configuration has no formatter.
    std::string GetSequenceName() const;
    bool IsHighDynamicRange() const { return m_root["formatter"].get("hdr", false).asBool(); }
    // The configured laser bank module; an empty host when none is configured.
    std::string GetLaserHost() const { return m_root["laser"].get("host", "").asString(); }
    unsigned short GetLaserPort() const { return static_cast<unsigned short>(m_root["laser"].get("port", 0).asUInt()); }
    const std::string& GetPath() const { return m_path; }
    std::vector<CLampPlant::SLampConfig> GetLamps() const;
    CSyncPlant::SConfig GetGroup() const;
    unsigned int GetCooldownS() const { return m_root["power"].get("cooldownS", 60).asUInt(); }
    unsigned int GetWarmupS() const { return m_root["power"].get("warmupS", 0).asUInt(); }
    // Throws CException for a mapping that is not right.
    SPjlinkMapping GetPjlink() const;
    // Throws CException for settings that are not right.
    SSnmpConfig GetSnmp() const;
    bool HasSnmp() const { return m_root.isMember("snmp"); }
    // Throws CException for a policy that is not right (an unknown user, say).
    CIpcAccessPolicy GetIpcAccess() const;
    unsigned int GetFamily() const { return m_root.get("family", 1).asUInt(); }
    // The "web" member; root is empty when the configuration names none.
    SWebConfig GetWeb() const;
    EAccessLevel GetUdpAccessLevel() const {
        return static_cast<EAccessLevel>(m_root.get("udpAccessLevel", ACCESS_USER).asInt());
    }
    static constexpr const char* kDefaultLampType = "SIM-LAMP";

private:
    [[noreturn]] void Fail(const std::string& where, const std::string& reason) const;
    void CheckControl(const Json::Value& control, std::set<std::string>& codes) const;
    void CheckLamps() const;
    void CheckGroup() const;
    std::unique_ptr<CProjCon> MakeControl(const Json::Value& control, CEventDispatcher& dispatcher,
                                          CSimulatedHardware& hardware) const;

    std::string m_path;
    Json::Value m_root;
};
