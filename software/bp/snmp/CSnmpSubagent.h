#pragma once
// CSnmpSubagent: serves a CSnmpProjector as the module PROJECTOR-CONTROL-MIB (under
// 1.3.6.1.4.1.<enterprise>.1) through the system's SNMP master agent, as an AgentX
// subagent on the configured socket. It never opens an SNMP port: the master agent does
// the protocol versions, communities, users, access rules and trap sinks.
//
//   reads      answered from the projector copy, which change notifications keep current
//   changes    projName, projPowerState (on(2) / standby(1) through the power control),
//              projInput, and projControlValue / projControlText of any control, made
//              through the controller when the master agent tests them (the controller
//              tests and makes a change in one exchange), so a request of several changes
//              keeps those made before one that is refused. Errors: noAccess for a control
//              above the access level, notWritable for a read-only control or column,
//              wrongValue for a value the control refuses as invalid (and for coolingDown
//              or warmingUp written to projPowerState), inconsistentValue for a change
//              refused now (disabled, refused by the hardware, a text to a number control
//              or the reverse), genErr when the controller does not answer.
//   traps      projAlarmRaised / projAlarmCleared from the status refresh (every
//              kRefreshMs) and projPowerStateChanged from the power state's change
//              notification, handed to the master agent, which sends them to its sinks.
//   master     absent or gone: the subagent tries again every second (AgentX ping) and
//              registers again; the controller never waits for it.
//
// Once registered the first time, it prints "ready snmp=<socket>" on standard output; each
// registration and loss of the master agent is logged.
//
// The agent library keeps its state in globals: one subagent per process.
// Lifetime: the projector outlives it. Thread contract: Run on one thread; Stop may be
// called from a signal handler.

#include <cstdint>
#include <string>

#include "CSnmpProjector.h"
#include "SSnmpConfig.h"
#include "log/ILog.h"

struct netsnmp_request_info_s;

class CSnmpSubagent {
public:
    static constexpr unsigned int kRefreshMs = 250;

    // Starts the agent library and registers the module. Throws CException when the
    // library cannot be started.
    CSnmpSubagent(CSnmpProjector& projector, const SSnmpConfig& config, ILog& log);
    ~CSnmpSubagent();
    CSnmpSubagent(const CSnmpSubagent&) = delete;
    CSnmpSubagent& operator=(const CSnmpSubagent&) = delete;

    // Serves until Stop.
    void Run();
    void Stop();

    // The library's callbacks reach the instance through these; not for other callers.
    struct SAccess;
    friend struct SAccess;

private:
    // The library's request modes and errors are plain ints here, so that this header
    // needs none of its own.
    int GetScalar(unsigned long which, struct netsnmp_request_info_s* request);
    int SetScalar(unsigned long which, int mode, struct netsnmp_request_info_s* request);
    int GetCell(unsigned long table, unsigned column, void* entry, struct netsnmp_request_info_s* request);
    int SetControl(unsigned column, int mode, const SCatalogControl& control, struct netsnmp_request_info_s* request);
    void Register();
    void SyncRows();
    void Refresh();
    void SendAlarmTrap(const CSnmpProjector::SAlarm& alarm, bool raised);
    void SendPowerTrap();

    CSnmpProjector& m_projector;
    SSnmpConfig m_config;
    ILog& m_log;
    int m_wake[2] = {-1, -1};
    bool m_registered = false;
    bool m_announced = false;
    bool m_wasRegistered = false;
    struct STables;
    STables* m_tables = nullptr;
};
