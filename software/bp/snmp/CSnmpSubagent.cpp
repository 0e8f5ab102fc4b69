#include "CSnmpSubagent.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/agent_callbacks.h>
#include <fcntl.h>
#include <sys/select.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "CException.h"
#include "control/ControlTypes.h"

namespace {

const char kAppName[] = "projector";

// Arcs below the module: objects 1 (system 1, tables 2..5), notifications 0.
enum : oid { kSystem = 1, kLampTable = 2, kStatusTable = 3, kAlarmTable = 4, kControlTable = 5 };
enum : oid { kName = 1, kSerial = 2, kVersion = 3, kPower = 4, kInput = 5, kAlarmCount = 6 };
enum : oid { kAlarmRaised = 1, kAlarmCleared = 2, kPowerChanged = 3 };
// Columns of the control table.
enum : unsigned { kColKind = 2, kColValue = 3, kColText = 4, kColMin = 5, kColMax = 6, kColEnabled = 7, kColReadOnly = 8 };

constexpr int kTruthTrue = 1;
constexpr int kTruthFalse = 2;
constexpr size_t kMaxText = 255;

uint64_t NowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000u + static_cast<uint64_t>(now.tv_nsec) / 1000000u;
}

void SetInteger(netsnmp_request_info* request, long value) {
    snmp_set_var_typed_integer(request->requestvb, ASN_INTEGER, value);
}

void SetString(netsnmp_request_info* request, const std::string& text) {
    const size_t length = text.size() < kMaxText ? text.size() : kMaxText;
    snmp_set_var_typed_value(request->requestvb, ASN_OCTET_STR, reinterpret_cast<const u_char*>(text.data()), length);
}

std::string StringOf(const netsnmp_variable_list* value) {
    return std::string(reinterpret_cast<const char*>(value->val.string), value->val_len);
}

// How a refusal by the controller reads in SNMP.
int SnmpError(EError error) {
    switch (error) {
        case ERR_NONE:
            return SNMP_ERR_NOERROR;
        case ERR_INVALID_ACCESS_GROUP:
            return SNMP_ERR_NOACCESS;
        case ERR_INVALID_VALUE:
        case ERR_INVALID_PARAMETER:
            return SNMP_ERR_WRONGVALUE;
        case ERR_DISABLED_CONTROL:
        case ERR_HARDWARE_REFUSED:
        case ERR_SYSTEM_BUSY:
        case ERR_WRONG_CONTROL_TYPE:
            return SNMP_ERR_INCONSISTENTVALUE;
        case ERR_CONTROL_NOT_FOUND:
        case ERR_SUBCONTROL_NOT_FOUND:
            return SNMP_ERR_NOCREATION;
        default:
            return SNMP_ERR_GENERR;
    }
}

int KindOf(int displayType) {
    const int kind = displayType / 100;
    return kind >= 1 && kind <= 7 ? kind : 7;
}

}  // namespace

struct CSnmpSubagent::STables {
    std::vector<oid> base;  // 1.3.6.1.4.1.<enterprise>.1
    netsnmp_tdata* lamps = nullptr;
    netsnmp_tdata* status = nullptr;
    netsnmp_tdata* alarms = nullptr;
    netsnmp_tdata* controls = nullptr;
    size_t lampRows = 0;
    size_t statusRows = 0;
    size_t alarmRows = 0;
    int lastPower = -1;

    std::vector<oid> Oid(std::initializer_list<oid> arcs) const {
        std::vector<oid> made = base;
        made.insert(made.end(), arcs);
        return made;
    }
};

// The agent library's callbacks, given the instance through the handler's void pointer.
struct CSnmpSubagent::SAccess {
    static int Scalar(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                      netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
        CSnmpSubagent& self = *static_cast<CSnmpSubagent*>(handler->myvoid);
        // The scalar helper has appended the instance's 0 to the registered OID.
        const oid which = registration->rootoid[registration->rootoid_len - 2];
        for (netsnmp_request_info* request = requests; request; request = request->next) {
            if (request->processed) {
                continue;
            }
            const int error = info->mode == MODE_GET ? self.GetScalar(which, request) : self.SetScalar(which, info->mode, request);
            if (error != SNMP_ERR_NOERROR) {
                netsnmp_set_request_error(info, request, error);
            }
        }
        return SNMP_ERR_NOERROR;
    }

    static int Table(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                     netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
        CSnmpSubagent& self = *static_cast<CSnmpSubagent*>(handler->myvoid);
        const oid which = registration->rootoid[registration->rootoid_len - 1];
        for (netsnmp_request_info* request = requests; request; request = request->next) {
            if (request->processed) {
                continue;
            }
            netsnmp_table_request_info* cell = netsnmp_extract_table_info(request);
            void* entry = netsnmp_tdata_extract_entry(request);
            int error = SNMP_ERR_NOERROR;
            if (!cell || !entry) {
                error = info->mode == MODE_GET ? SNMP_NOSUCHINSTANCE : SNMP_ERR_NOCREATION;
            } else if (info->mode == MODE_GET) {
                error = self.GetCell(which, cell->colnum, entry, request);
            } else if (which == kControlTable) {
                error = self.SetControl(cell->colnum, info->mode, *static_cast<const SCatalogControl*>(entry), request);
            } else if (info->mode == MODE_SET_RESERVE1) {
                error = SNMP_ERR_NOTWRITABLE;
            }
            if (error != SNMP_ERR_NOERROR) {
                netsnmp_set_request_error(info, request, error);
            }
        }
        return SNMP_ERR_NOERROR;
    }

    static int Connection(int, int operation, void*, void* client) {
        CSnmpSubagent& self = *static_cast<CSnmpSubagent*>(client);
        self.m_registered = operation == SNMPD_CALLBACK_INDEX_START;
        return 0;
    }
};

CSnmpSubagent::CSnmpSubagent(CSnmpProjector& projector, const SSnmpConfig& config, ILog& log)
    : m_projector(projector), m_config(config), m_log(log), m_tables(new STables) {
    if (pipe2(m_wake, O_CLOEXEC | O_NONBLOCK) != 0) {
        delete m_tables;
        THROW_EXCEPTION("Cannot make a pipe: %s", strerror(errno));
    }
    m_tables->base = {1, 3, 6, 1, 4, 1, static_cast<oid>(config.enterprise), 1};
    // No configuration or state files of the library's own, and no MIB files: this
    // process only serves the objects it registers.
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_ALARM_DONT_USE_SIG, 1);
    setenv("MIBS", "", 1);
    snmp_disable_log();
    snmp_enable_stderrlog();
    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, m_config.agentx.c_str());
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, &SAccess::Connection, this);
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, &SAccess::Connection, this);
    if (init_agent(kAppName) != 0) {
        close(m_wake[0]);
        close(m_wake[1]);
        delete m_tables;
        THROW_EXCEPTION("SNMP: the agent library cannot be started");
    }
    // After init_agent, which sets the library's default of 15 s.
    netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL, 1);
    Register();
    init_snmp(kAppName);
    m_log.Log("SNMP: serving 1.3.6.1.4.1.%u.1 through the master agent at %s", static_cast<unsigned>(config.enterprise),
              m_config.agentx.c_str());
}

CSnmpSubagent::~CSnmpSubagent() {
    // Before the shutdown, which would free whatever callback arguments are left.
    snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, &SAccess::Connection, this, 1);
    snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, &SAccess::Connection, this, 1);
    snmp_shutdown(kAppName);
    close(m_wake[0]);
    close(m_wake[1]);
    delete m_tables;
}

void CSnmpSubagent::Register() {
    STables& t = *m_tables;
    const int canWrite[] = {0, HANDLER_CAN_RWRITE, HANDLER_CAN_RONLY, HANDLER_CAN_RONLY,
                            HANDLER_CAN_RWRITE, HANDLER_CAN_RWRITE, HANDLER_CAN_RONLY};
    for (oid which = kName; which <= kAlarmCount; ++which) {
        const std::vector<oid> where = t.Oid({1, kSystem, which});
        netsnmp_handler_registration* registration = netsnmp_create_handler_registration(
            "projScalar", &SAccess::Scalar, where.data(), where.size(), canWrite[which]);
        registration->handler->myvoid = this;
        netsnmp_register_scalar(registration);
    }
    struct {
        oid arc;
        netsnmp_tdata** table;
        u_char indexType;
        unsigned maxColumn;
        int modes;
    } tables[] = {{kLampTable, &t.lamps, ASN_INTEGER, 3, HANDLER_CAN_RONLY},
                  {kStatusTable, &t.status, ASN_INTEGER, 5, HANDLER_CAN_RONLY},
                  {kAlarmTable, &t.alarms, ASN_INTEGER, 5, HANDLER_CAN_RONLY},
                  {kControlTable, &t.controls, ASN_OCTET_STR, kColReadOnly, HANDLER_CAN_RWRITE}};
    for (const auto& table : tables) {
        const std::vector<oid> where = t.Oid({1, table.arc});
        netsnmp_handler_registration* registration = netsnmp_create_handler_registration(
            "projTable", &SAccess::Table, where.data(), where.size(), table.modes);
        registration->handler->myvoid = this;
        *table.table = netsnmp_tdata_create_table("projTable", 0);
        netsnmp_table_registration_info* info = SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
        netsnmp_table_helper_add_indexes(info, table.indexType, 0);
        info->min_column = 2;
        info->max_column = table.maxColumn;
        netsnmp_tdata_register(registration, *table.table, info);
    }
    for (const auto& entry : m_projector.GetControls()) {
        netsnmp_tdata_row* row = netsnmp_tdata_create_row();
        row->data = const_cast<SCatalogControl*>(&entry.second);
        netsnmp_tdata_row_add_index(row, ASN_OCTET_STR, entry.first.data(), entry.first.size());
        netsnmp_tdata_add_row(t.controls, row);
    }
    t.lastPower = m_projector.GetPowerState();
    SyncRows();
}

// Rows of the integer-indexed tables carry their number (from 1) as their data.
void CSnmpSubagent::SyncRows() {
    STables& t = *m_tables;
    const struct {
        netsnmp_tdata* table;
        size_t* rows;
        size_t wanted;
    } tables[] = {{t.lamps, &t.lampRows, m_projector.GetLamps().size()},
                  {t.status, &t.statusRows, m_projector.GetStatus().size()},
                  {t.alarms, &t.alarmRows, m_projector.GetAlarms().size()}};
    for (const auto& table : tables) {
        while (*table.rows < table.wanted) {
            const long number = static_cast<long>(++*table.rows);
            netsnmp_tdata_row* row = netsnmp_tdata_create_row();
            row->data = reinterpret_cast<void*>(static_cast<intptr_t>(number));
            netsnmp_tdata_row_add_index(row, ASN_INTEGER, &number, sizeof number);
            netsnmp_tdata_add_row(table.table, row);
        }
        while (*table.rows > table.wanted) {
            oid number = static_cast<oid>((*table.rows)--);
            netsnmp_tdata_row* last = netsnmp_tdata_row_get_byoid(table.table, &number, 1);
            if (last) {
                netsnmp_tdata_remove_and_delete_row(table.table, last);
            }
        }
    }
}

int CSnmpSubagent::GetScalar(unsigned long which, netsnmp_request_info* request) {
    const SPjlinkMapping& codes = m_projector.GetCodes();
    auto control = [&](const std::string& code) {
        const SCatalogControl* found = m_projector.Find(code);
        return found && m_projector.IsReadable(*found) ? found : nullptr;
    };
    switch (which) {
        case kName: {
            const SCatalogControl* name = control(codes.name);
            SetString(request, name ? name->text : std::string());
            break;
        }
        case kSerial:
            SetString(request, codes.serialNumber);
            break;
        case kVersion:
            SetString(request, codes.softwareVersion);
            break;
        case kPower: {
            const int state = m_projector.GetPowerState();
            if (state < 0 || state > 3) {
                return SNMP_NOSUCHINSTANCE;
            }
            SetInteger(request, state + 1);
            break;
        }
        case kInput: {
            const SCatalogControl* input = control(codes.input);
            if (!input) {
                return SNMP_NOSUCHINSTANCE;
            }
            SetInteger(request, input->value);
            break;
        }
        case kAlarmCount:
            SetInteger(request, static_cast<long>(m_projector.GetAlarms().size()));
            break;
        default:
            return SNMP_NOSUCHOBJECT;
    }
    return SNMP_ERR_NOERROR;
}

int CSnmpSubagent::SetScalar(unsigned long which, int mode, netsnmp_request_info* request) {
    const SPjlinkMapping& codes = m_projector.GetCodes();
    netsnmp_variable_list* value = request->requestvb;
    if (mode == MODE_SET_RESERVE1) {
        if (which == kName) {
            return netsnmp_check_vb_type_and_max_size(value, ASN_OCTET_STR, kMaxText);
        }
        if (which == kPower || which == kInput) {
            const int error = netsnmp_check_vb_type(value, ASN_INTEGER);
            if (error == SNMP_ERR_NOERROR && which == kPower && *value->val.integer != 1 && *value->val.integer != 2) {
                return SNMP_ERR_WRONGVALUE;  // cooling down and warming up are not orders
            }
            return error;
        }
        return SNMP_ERR_NOTWRITABLE;
    }
    if (mode != MODE_SET_RESERVE2) {
        return SNMP_ERR_NOERROR;
    }
    // Made now: the controller tests a change by making it.
    if (which == kName) {
        return SnmpError(m_projector.SetText(codes.name, StringOf(value)));
    }
    const long number = *value->val.integer;
    if (which == kPower) {
        return SnmpError(m_projector.SetValue(codes.power, number == 2 ? 1 : 0));
    }
    if (number < INT32_MIN || number > INT32_MAX) {
        return SNMP_ERR_WRONGVALUE;
    }
    return SnmpError(m_projector.SetValue(codes.input, static_cast<int>(number)));
}

int CSnmpSubagent::GetCell(unsigned long table, unsigned column, void* entry, netsnmp_request_info* request) {
    if (table == kControlTable) {
        const SCatalogControl& control = *static_cast<const SCatalogControl*>(entry);
        const bool readable = m_projector.IsReadable(control);
        switch (column) {
            case kColKind:
                SetInteger(request, KindOf(control.displayType));
                break;
            case kColValue:
                SetInteger(request, control.value);
                break;
            case kColText:
                SetString(request, !readable                             ? std::string()
                                   : IsTextType(control.displayType) ? control.text
                                                                     : std::to_string(control.value));
                break;
            case kColMin:
                SetInteger(request, control.minimum);
                break;
            case kColMax:
                SetInteger(request, control.maximum);
                break;
            case kColEnabled:
                SetInteger(request, control.enabled ? kTruthTrue : kTruthFalse);
                break;
            case kColReadOnly:
                SetInteger(request, control.readOnly ? kTruthTrue : kTruthFalse);
                break;
            default:
                return SNMP_NOSUCHOBJECT;
        }
        return SNMP_ERR_NOERROR;
    }
    const size_t row = static_cast<size_t>(reinterpret_cast<intptr_t>(entry)) - 1;
    if (table == kLampTable && row < m_projector.GetLamps().size()) {
        const CSnmpProjector::SLamp& lamp = m_projector.GetLamps()[row];
        if (column == 2) {
            SetInteger(request, m_projector.IsReadable(*lamp.hours) ? lamp.hours->value : 0);
        } else {
            SetString(request, lamp.type && m_projector.IsReadable(*lamp.type) ? lamp.type->text : std::string());
        }
        return SNMP_ERR_NOERROR;
    }
    if (table == kStatusTable && row < m_projector.GetStatus().size()) {
        const SStatus& item = m_projector.GetStatus()[row];
        switch (column) {
            case 2:
                SetString(request, item.group);
                break;
            case 3:
                SetInteger(request, item.index);
                break;
            case 4:
                SetString(request, item.value);
                break;
            default:
                SetInteger(request, StatusSeverity(item.flags));
                break;
        }
        return SNMP_ERR_NOERROR;
    }
    if (table == kAlarmTable && row < m_projector.GetAlarms().size()) {
        const CSnmpProjector::SAlarm& alarm = m_projector.GetAlarms()[row];
        switch (column) {
            case 2:
                SetString(request, alarm.group);
                break;
            case 3:
                SetInteger(request, alarm.item);
                break;
            case 4:
                SetInteger(request, alarm.severity);
                break;
            default:
                SetString(request, alarm.text);
                break;
        }
        return SNMP_ERR_NOERROR;
    }
    return SNMP_NOSUCHINSTANCE;
}

int CSnmpSubagent::SetControl(unsigned column, int mode, const SCatalogControl& control, netsnmp_request_info* request) {
    netsnmp_variable_list* value = request->requestvb;
    if (mode == MODE_SET_RESERVE1) {
        if (column != kColValue && column != kColText) {
            return SNMP_ERR_NOTWRITABLE;
        }
        if (!m_projector.IsReadable(control)) {
            return SNMP_ERR_NOACCESS;
        }
        if (control.readOnly) {
            return SNMP_ERR_NOTWRITABLE;
        }
        return column == kColValue ? netsnmp_check_vb_type(value, ASN_INTEGER)
                                   : netsnmp_check_vb_type_and_max_size(value, ASN_OCTET_STR, kMaxText);
    }
    if (mode != MODE_SET_RESERVE2) {
        return SNMP_ERR_NOERROR;
    }
    if (column == kColText) {
        return SnmpError(m_projector.SetText(control.code, StringOf(value)));
    }
    const long number = *value->val.integer;
    if (number < INT32_MIN || number > INT32_MAX) {
        return SNMP_ERR_WRONGVALUE;
    }
    return SnmpError(m_projector.SetValue(control.code, static_cast<int>(number)));
}

void CSnmpSubagent::Stop() {
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = write(m_wake[1], &byte, 1);
}

void CSnmpSubagent::Run() {
    uint64_t nextRefresh = 0;
    for (;;) {
        fd_set readable;
        FD_ZERO(&readable);
        const int notify = m_projector.GetNotifyDescriptor();
        FD_SET(m_wake[0], &readable);
        FD_SET(notify, &readable);
        int count = (m_wake[0] > notify ? m_wake[0] : notify) + 1;
        timeval timeout{0, static_cast<suseconds_t>(kRefreshMs * 1000)};
        int block = 0;
        snmp_select_info(&count, &readable, &timeout, &block);
        const int ready = select(count, &readable, nullptr, nullptr, &timeout);
        if (ready < 0 && errno != EINTR) {
            THROW_EXCEPTION("SNMP: select failed: %s", strerror(errno));
        }
        if (ready > 0) {
            if (FD_ISSET(m_wake[0], &readable)) {
                return;
            }
            if (FD_ISSET(notify, &readable) && m_projector.ProcessNotifications()) {
                SendPowerTrap();
            }
            snmp_read(&readable);
        } else if (ready == 0) {
            snmp_timeout();
        }
        run_alarms();
        netsnmp_check_outstanding_agent_requests();
        const uint64_t now = NowMs();
        if (now >= nextRefresh) {
            nextRefresh = now + kRefreshMs;
            Refresh();
        }
        if (m_registered != m_wasRegistered) {
            m_wasRegistered = m_registered;
            if (m_registered) {
                m_log.Log("SNMP: registered with the master agent at %s", m_config.agentx.c_str());
            } else {
                m_log.LogWarning("SNMP: lost the master agent at %s; trying again every second", m_config.agentx.c_str());
            }
        }
        if (m_registered && !m_announced) {
            m_announced = true;
            printf("ready snmp=%s\n", m_config.agentx.c_str());
            fflush(stdout);
        }
    }
}

void CSnmpSubagent::Refresh() {
    std::vector<CSnmpProjector::SAlarm> raised;
    std::vector<CSnmpProjector::SAlarm> cleared;
    if (!m_projector.RefreshStatus(raised, cleared)) {
        return;
    }
    SyncRows();
    for (const CSnmpProjector::SAlarm& alarm : cleared) {
        SendAlarmTrap(alarm, false);
    }
    for (const CSnmpProjector::SAlarm& alarm : raised) {
        SendAlarmTrap(alarm, true);
    }
}

void CSnmpSubagent::SendAlarmTrap(const CSnmpProjector::SAlarm& alarm, bool raised) {
    if (!m_registered) {
        return;  // no master agent to hand it to
    }
    static const oid kTrapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
    const STables& t = *m_tables;
    const std::vector<oid> notification = t.Oid({0, raised ? kAlarmRaised : kAlarmCleared});
    netsnmp_variable_list* vars = nullptr;
    snmp_varlist_add_variable(&vars, kTrapOid, OID_LENGTH(kTrapOid), ASN_OBJECT_ID,
                              reinterpret_cast<const u_char*>(notification.data()), notification.size() * sizeof(oid));
    const oid row = static_cast<oid>(alarm.row);
    const long item = alarm.item;
    const long severity = alarm.severity;
    const std::string text = alarm.text.substr(0, kMaxText);
    const std::vector<oid> group = t.Oid({1, kAlarmTable, 1, 2, row});
    const std::vector<oid> itemOid = t.Oid({1, kAlarmTable, 1, 3, row});
    const std::vector<oid> severityOid = t.Oid({1, kAlarmTable, 1, 4, row});
    const std::vector<oid> textOid = t.Oid({1, kAlarmTable, 1, 5, row});
    snmp_varlist_add_variable(&vars, group.data(), group.size(), ASN_OCTET_STR,
                              reinterpret_cast<const u_char*>(alarm.group.data()), alarm.group.size());
    snmp_varlist_add_variable(&vars, itemOid.data(), itemOid.size(), ASN_INTEGER,
                              reinterpret_cast<const u_char*>(&item), sizeof item);
    snmp_varlist_add_variable(&vars, severityOid.data(), severityOid.size(), ASN_INTEGER,
                              reinterpret_cast<const u_char*>(&severity), sizeof severity);
    snmp_varlist_add_variable(&vars, textOid.data(), textOid.size(), ASN_OCTET_STR,
                              reinterpret_cast<const u_char*>(text.data()), text.size());
    send_v2trap(vars);
    snmp_free_varbind(vars);
}

void CSnmpSubagent::SendPowerTrap() {
    const int state = m_projector.GetPowerState();
    if (!m_registered || state < 0 || state == m_tables->lastPower) {
        return;
    }
    m_tables->lastPower = state;
    static const oid kTrapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
    const std::vector<oid> notification = m_tables->Oid({0, kPowerChanged});
    const std::vector<oid> power = m_tables->Oid({1, kSystem, kPower, 0});
    const long value = state + 1;
    netsnmp_variable_list* vars = nullptr;
    snmp_varlist_add_variable(&vars, kTrapOid, OID_LENGTH(kTrapOid), ASN_OBJECT_ID,
                              reinterpret_cast<const u_char*>(notification.data()), notification.size() * sizeof(oid));
    snmp_varlist_add_variable(&vars, power.data(), power.size(), ASN_INTEGER, reinterpret_cast<const u_char*>(&value),
                              sizeof value);
    send_v2trap(vars);
    snmp_free_varbind(vars);
}
