#include "ascii/CSerialHandler.h"

#include <fcntl.h>
#include <unistd.h>

#include <vector>

#include "CException.h"
#include "RuntimeRoot.h"
#include "ipc/CPollSet.h"
#include "link/CEventLink.h"
#include "port/CEthernetPort.h"
#include "port/CSerialPort.h"

std::atomic<bool> CSerialHandler::s_usbPlugged{false};

namespace {

const char* const kPortNames[] = {"PRTA", "PRTB", "PRTC", "PUSB"};
const char* const kPortControls[] = {"BDR", "MDE", "FLW", "PTL", "RAL"};

bool IsUsb(unsigned char id) { return id == PORT_USB || id == PORT_USB_DEVICE; }

}  // namespace

CSerialHandler::CSerialHandler(ILog& log) : m_log(log) {
    if (pipe2(m_wakePipe, O_NONBLOCK | O_CLOEXEC) != 0) {
        THROW_ERRNO_EXCEPTION("Cannot create the serial handler's wake-up pipe");
    }
}

void CSerialHandler::Stop() {
    m_stop = true;
    const char wake = 1;
    // Only async-signal-safe calls here: Stop may run in a signal handler.
    [[maybe_unused]] const ssize_t written = write(m_wakePipe[1], &wake, 1);
}

CSerialHandler::~CSerialHandler() {
    // Parsers go before their ports, and the concrete class is already gone here, so the
    // connections are dropped without its removal hook.
    for (SConnection& connection : m_connections) {
        connection.parser.reset();
    }
    m_connections.clear();
    close(m_wakePipe[0]);
    close(m_wakePipe[1]);
}

int CSerialHandler::ReadControl(const std::string& code, const std::string& subcode, int fallback) {
    if (!m_link) {
        return fallback;
    }
    int value = 0;
    const EError result = m_link->GetValue(kInternalAccessLevel, code, subcode, value);
    if (result != ERR_NONE) {
        m_log.LogWarning("Cannot read %s+%s (%d); using %d", code.c_str(), subcode.c_str(), result, fallback);
        return fallback;
    }
    return value;
}

int CSerialHandler::GetRemoteAccess(const std::string& portName) const {
    const auto it = m_remoteAccess.find(portName);
    return it == m_remoteAccess.end() ? 1 : it->second;
}

void CSerialHandler::Begin(bool runLoop) {
    m_stop = false;
    m_remoteAccess[""] = ReadControl("RAL", "", 1);
    m_emergency = ReadControl("EME", "", 0) != 0;
    const int port = ReadControl("NET", "PORT", kDefaultServerPort);
    m_serverPort = static_cast<unsigned short>(port >= 0 && port <= 65535 ? port : kDefaultServerPort);
    OnAddressChanged(ReadControl("ADR", "", 0));
    OnRoutingChanged(ReadControl("NTR", "", 0));

    for (unsigned char id : {PORT_A, PORT_B, PORT_C}) {
        const std::string name = CCommPort::GetPortSubCode(id);
        m_remoteAccess[name] = ReadControl("RAL", name, 1);
        if (m_remoteAccess[name] != 0) {
            AddSerialHandler(id);
        }
    }
    m_remoteAccess["PUSB"] = ReadControl("RAL", "PUSB", 1);
    if (GetRemoteAccess("PUSB") != 0) {
        AddUsbPort();
    }
    if (GetRemoteAccess("") != 0) {
        StartServer(false);
    }
    if (!m_errorSocketPath.empty()) {
        try {
            m_errorSocket = std::make_unique<CDomainSocket>(NRuntimeRoot::Path(m_errorSocketPath).c_str());
        } catch (const CException& e) {
            m_log.LogError("Cannot open the error socket: %s", e.GetMessage().c_str());
        }
    }
    AddNotifications();
    while (runLoop && !m_stop) {
        RunOnce(kSelectTimeoutMs);
    }
}

void CSerialHandler::AddNotifications() {
    if (!m_link) {
        return;
    }
    std::list<SControlSet> controls;
    for (const char* code : kPortControls) {
        for (const char* name : kPortNames) {
            controls.push_back(SControlSet{code, name});
        }
    }
    for (const SControlSet& control : {SControlSet{"ADR", ""}, SControlSet{"NTR", ""}, SControlSet{"NET", "PORT"},
                                       SControlSet{"EME", ""}, SControlSet{"RAL", ""}, SControlSet{"KEY", "BKEY"}}) {
        controls.push_back(control);
    }
    const EError result = m_link->NotifyRegister(controls, m_link->GetNotifySocketName());
    if (result != ERR_NONE) {
        m_log.LogError("Cannot register for the port controls (%d)", result);
    }
}

void CSerialHandler::RunOnce(unsigned int timeoutMs) {
    if (s_usbPlugged.exchange(false) && GetRemoteAccess("PUSB") != 0) {
        AddUsbPort();
    }

    m_poll.Clear();
    for (const SConnection& connection : m_connections) {
        if (connection.parser->IsSelectable()) {
            m_poll.Add(connection.port->GetFd(), true, connection.port->HasQueuedOutput());
        }
    }
    const int notifyFd = m_link ? m_link->GetNotifyDescriptor() : -1;
    const int serverFd = m_server ? m_server->GetFd() : -1;
    const int errorFd = m_errorSocket ? m_errorSocket->GetDescriptor() : -1;
    for (int fd : {notifyFd, serverFd, errorFd, m_wakePipe[0]}) {
        m_poll.Add(fd, true, false);
    }
    m_poll.Wait(static_cast<int>(timeoutMs));
    if (m_poll.IsReadable(m_wakePipe[0])) {
        char drained[16];
        while (read(m_wakePipe[0], drained, sizeof drained) > 0) {
        }
    }

    for (auto it = m_connections.begin(); it != m_connections.end();) {
        CSerialParser& parser = *it->parser;
        const int fd = it->port->GetFd();
        bool remove = false;
        if (fd < 0) {
            m_log.LogError("Attempt processing fd -1!");
            remove = true;
        } else if (!parser.IsSelectable()) {
            remove = true;  // closed after a failed write
        } else if (m_poll.IsReadable(fd) || m_poll.IsWritable(fd)) {
            try {
                if (m_poll.IsWritable(fd)) {
                    it->port->WriteQueued();
                }
                remove = m_poll.IsReadable(fd) && parser.ProcessData() == PARSE_NO_DATA;
            } catch (const CException& e) {
                m_log.LogError("Closing %s: %s", it->port->GetName().c_str(), e.GetMessage().c_str());
                remove = true;
            }
        }
        if (remove) {
            if (it->port->GetPortId() == PORT_USB_DEVICE) {
                m_log.Log("Removed USB-TypeA Serial Connection.");
            }
            it = RemoveSerialHandler(it);
        } else {
            ++it;
        }
    }

    if (m_poll.IsReadable(errorFd)) {
        ProcessErrorSocket();
    }
    if (m_poll.IsReadable(serverFd)) {
        AcceptConnection();
    }
    if (m_poll.IsReadable(notifyFd)) {
        ProcessNotifications();
    }
}

void CSerialHandler::AcceptConnection() {
    std::string peer;
    int fd = -1;
    try {
        fd = m_server->Accept(peer);
    } catch (const CException& e) {
        m_log.LogError("%s", e.GetMessage().c_str());
        return;
    }
    AddConnection(std::make_unique<CEthernetPort>(peer, fd));
    if (m_connections.size() > kMaxParsers) {
        m_log.LogWarning("New connection refused - connection limit exceeded");
        RemoveSerialHandler(std::prev(m_connections.end()));
    }
}

void CSerialHandler::AddUsbPort() {
    if (!HasPort(PORT_USB_DEVICE) && AddSerialHandler(PORT_USB_DEVICE)) {
        m_log.Log("Added USB-TypeA Serial Connection.");
    }
}

void CSerialHandler::AddConnection(std::unique_ptr<CCommPort> port) {
    SConnection connection;
    connection.port = std::move(port);
    connection.parser = MakeParser(*connection.port);
    const unsigned char id = connection.port->GetPortId();
    connection.parser->UpdateRemoteAccess(GetRemoteAccess(CCommPort::GetPortSubCode(id)));
    m_connections.push_back(std::move(connection));
}

bool CSerialHandler::AddSerialHandler(unsigned char id) {
    if (FindPort(id)) {
        return true;
    }
    std::unique_ptr<CSerialPort> port;
    try {
        port = std::make_unique<CSerialPort>(id);
        CSerialPort& serial = *port;
        AddConnection(std::move(port));
        if (IsUsb(id)) {
            serial.SetPortRate(BAUD_115200);
        } else {
            UpdateBaudRate(serial, true, kFetchFromControl);
        }
        UpdateProtocol(serial, true, kFetchFromControl);
        return true;
    } catch (const CException& e) {
        if (id != PORT_USB_DEVICE) {
            m_log.LogError("Unable to open serial port %d: %s", id, e.GetMessage().c_str());
        }
        for (auto it = m_connections.begin(); it != m_connections.end(); ++it) {
            if (it->port->GetPortId() == id) {
                RemoveSerialHandler(it);
                break;
            }
        }
        return false;
    }
}

CSerialHandler::Connections::iterator CSerialHandler::RemoveSerialHandler(Connections::iterator it) {
    OnParserRemoved(*it->parser);
    it->parser.reset();
    return m_connections.erase(it);
}

void CSerialHandler::RemovePortParsers(unsigned char id) {
    for (auto it = m_connections.begin(); it != m_connections.end();) {
        it = CCommPort::GetRoutingBit(it->port->GetPortId()) == id ? RemoveSerialHandler(it) : std::next(it);
    }
}

CCommPort* CSerialHandler::FindPort(unsigned char id) const {
    for (const SConnection& connection : m_connections) {
        if (connection.port->GetPortId() == id) {
            return connection.port.get();
        }
    }
    return nullptr;
}

CSerialPort* CSerialHandler::FindSerialPort(const std::string& portName) const {
    const unsigned char id = CCommPort::GetPortId(portName);
    if (id == PORT_NONE || id == PORT_ETHERNET) {
        return nullptr;
    }
    return dynamic_cast<CSerialPort*>(FindPort(id));
}

bool CSerialHandler::StartServer(bool localOnly) {
    if (m_server) {
        m_log.LogWarning("Can't start new Ethernet Server - already exists");
        return false;
    }
    try {
        m_server = std::make_unique<CServerSocket>(m_serverPort, localOnly);
        m_server->Init();
        for (const std::string& warning : m_server->GetKeepAliveWarnings()) {
            m_log.LogWarning("%s", warning.c_str());
        }
        return true;
    } catch (const CException& e) {
        m_log.LogError("Unable to open Ethernet port for serial handler! Processing will continue with Serial ports");
        m_log.LogError("%s", e.what());
        m_server.reset();
        return false;
    }
}

void CSerialHandler::StopServer(bool closeConnections) {
    m_log.Log("Shutting down Ethernet Server");
    m_server.reset();
    if (!closeConnections) {
        return;
    }
    m_log.Log("Shutting down open Ethernet connections");
    size_t left = 0;
    for (const SConnection& connection : m_connections) {
        left += connection.port->GetPortId() == PORT_ETHERNET ? 1u : 0u;
    }
    for (auto it = m_connections.begin(); it != m_connections.end();) {
        if (it->port->GetPortId() == PORT_ETHERNET) {
            it = RemoveSerialHandler(it);
            m_log.Log("Shutting down open Ethernet connections: (%d left)", static_cast<int>(--left));
        } else {
            ++it;
        }
    }
}

unsigned short CSerialHandler::GetServerPort() const { return m_server ? m_server->GetPort() : 0; }

void CSerialHandler::UpdateBaudRate(CSerialPort& port, bool force, int rate) {
    if (IsUsb(port.GetPortId())) {
        rate = BAUD_115200;
    } else if (rate == kFetchFromControl) {
        rate = ReadControl("BDR", CCommPort::GetPortSubCode(port.GetPortId()), BAUD_115200);
    }
    if (force || port.GetPortRate() != rate) {
        port.SetPortRate(static_cast<EBaudRate>(rate));
    }
}

void CSerialHandler::UpdateSerialMode(CSerialPort& port, bool force, int mode) {
    if (mode == kFetchFromControl) {
        mode = ReadControl("MDE", CCommPort::GetPortSubCode(port.GetPortId()), SERIAL_8N1);
    }
    if (mode < SERIAL_8N1 || mode > SERIAL_7O1) {
        m_log.LogError("Unsupported serial mode %d for %s", mode, port.GetName().c_str());
        return;
    }
    ESerialMode current = SERIAL_8N1;
    bool known = true;
    try {
        current = port.GetSerialMode();
    } catch (const CException&) {
        known = false;
    }
    if (force || !known || current != mode) {
        port.SetSerialMode(static_cast<ESerialMode>(mode));
    }
}

void CSerialHandler::UpdateFlowControl(CSerialPort& port, bool force, int flow) {
    if (flow == kFetchFromControl) {
        flow = ReadControl("FLW", CCommPort::GetPortSubCode(port.GetPortId()), FLOW_SOFTWARE);
    }
    if (flow < FLOW_NONE || flow > FLOW_HARDWARE) {
        m_log.LogError("Unsupported flow control %d for %s", flow, port.GetName().c_str());
        return;
    }
    ESerialFlowCtrl current = FLOW_NONE;
    bool known = true;
    try {
        current = port.GetFlowControl();
    } catch (const CException&) {
        known = false;
    }
    if (force || !known || current != flow) {
        port.SetFlowControl(static_cast<ESerialFlowCtrl>(flow));
    }
}

void CSerialHandler::UpdateProtocol(CSerialPort& port, bool force, int protocol) {
    if (protocol == kFetchFromControl) {
        protocol = IsUsb(port.GetPortId())
                       ? PROTOCOL_ASCII
                       : ReadControl("PTL", CCommPort::GetPortSubCode(port.GetPortId()), PROTOCOL_ASCII);
    }
    if (protocol != PROTOCOL_ASCII && protocol != PROTOCOL_SILENT) {
        m_log.LogError("Unsupported protocol %d for %s", protocol, port.GetName().c_str());
        return;
    }
    for (SConnection& connection : m_connections) {
        if (connection.port.get() == &port && (force || connection.parser->GetProtocol() != protocol)) {
            connection.parser->SetProtocol(static_cast<ESerialProtocol>(protocol));
        }
    }
}

void CSerialHandler::RelayMessage(const CSerialParser* from, const unsigned char* text, int length,
                                  unsigned char portMask) {
    for (SConnection& connection : m_connections) {
        if (connection.parser.get() != from && (CCommPort::GetRoutingBit(connection.port->GetPortId()) & portMask) != 0) {
            connection.parser->RelayMessage(text, length);
        }
    }
}

void CSerialHandler::ProcessNotifications() {
    if (!m_link) {
        return;
    }
    std::list<CIpcMessage> notifications;
    try {
        m_link->ProcessNotify(notifications);
    } catch (const CException& e) {
        m_log.LogError("Reading notifications failed: %s", e.GetMessage().c_str());
        return;
    }
    for (const CIpcMessage& notification : notifications) {
        HandleNotifications(notification);
        for (SConnection& connection : m_connections) {
            connection.parser->HandleNotification(notification);
        }
    }
}

void CSerialHandler::ApplyRemoteAccess(const std::string& portName, int access) {
    m_remoteAccess[portName] = access;
    const unsigned char id = CCommPort::GetPortId(portName);
    if (access == 0) {
        if (id == PORT_ETHERNET) {
            StopServer(true);
        } else {
            RemovePortParsers(id);
        }
        return;
    }
    bool open = false;
    for (SConnection& connection : m_connections) {
        if (CCommPort::GetRoutingBit(connection.port->GetPortId()) == id) {
            connection.parser->UpdateRemoteAccess(access);
            open = true;
        }
    }
    if (id == PORT_ETHERNET) {
        if (!m_server) {
            m_log.Log("RAL change: Starting up Ethernet Server (SerialHandler)");
            StartServer(false);
        }
    } else if (!open && id == PORT_USB) {
        AddUsbPort();
    } else if (!open && id != PORT_NONE) {
        m_log.Log("RAL change: Starting up Serial Handler: %d", id);
        AddSerialHandler(id);
    }
}

void CSerialHandler::HandleNotifications(const CIpcMessage& notification) {
    int value = 0;
    if (!notification.GetArg(0, value)) {
        return;
    }
    const std::string code = notification.GetCode();
    const std::string subcode = notification.GetSubCode();
    try {
        CSerialPort* serial = FindSerialPort(subcode);
        if (code == "BDR" && serial) {
            UpdateBaudRate(*serial, true, value);
        } else if (code == "MDE" && serial) {
            UpdateSerialMode(*serial, true, value);
        } else if (code == "FLW" && serial) {
            UpdateFlowControl(*serial, true, value);
        } else if (code == "PTL" && serial) {
            UpdateProtocol(*serial, false, value);
        } else if (code == "RAL") {
            ApplyRemoteAccess(subcode, value);
        } else if (code == "NTR") {
            OnRoutingChanged(value);
        } else if (code == "ADR") {
            m_log.Log("ADR change: updating parsers to %d", value);
            OnAddressChanged(value);
        } else if (code == "NET" && subcode == "PORT") {
            if (value < 0 || value > 65535) {
                m_log.LogError("Invalid server port %d", value);
                return;
            }
            m_serverPort = static_cast<unsigned short>(value);
            StopServer(false);
            m_log.Log("NET+PORT change: Starting up Ethernet Server (SerialHandler) on port %d", value);
            StartServer(false);
        } else if (code == "EME" && subcode.empty()) {
            m_emergency = value != 0;
        } else if (code == "KEY" && subcode == "BKEY") {
            for (SConnection& connection : m_connections) {
                connection.parser->BroadcastKey(value);
            }
        }
    } catch (const CException& e) {
        m_log.LogError("Applying %s+%s = %d failed: %s", code.c_str(), subcode.c_str(), value, e.GetMessage().c_str());
    }
}

void CSerialHandler::ProcessErrorSocket() {
    unsigned char buffer[1024];
    int received = 0;
    try {
        received = m_errorSocket->RecvFromNoBlock(buffer, sizeof buffer - 1, 0, nullptr);
    } catch (const CException& e) {
        m_log.LogError("%s", e.GetMessage().c_str());
        return;
    }
    if (received <= 0) {
        return;
    }
    std::string report(reinterpret_cast<const char*>(buffer), static_cast<size_t>(received));
    report = report.substr(0, report.find('\0'));
    m_log.LogWarning("Error report: %s", report.c_str());
    for (SConnection& connection : m_connections) {
        connection.parser->ProcessErrors(report);
    }
}
