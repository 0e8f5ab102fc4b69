// vprojector: the virtual projector: a complete projector control plane on any Linux
// machine, with simulated hardware behind the controls. It is also the reference for how
// a host builds the graph of objects:
//
//   configuration -> dispatcher + controls (simulated hardware behind them; the formatter
//                    plant, a simulated FPGA on the real packet bus, behind "OFR")
//                 -> status database, users file, menu tree
//   stored values (CFlashStorage) loaded over the defaults
//   controller loop: IPC event dispatcher + JSON-RPC server (control, status, menu,
//                    session, macro, system, sim); simulated GPIO inputs feed the macros
//   lamp plant: simulated NFC lamp tags and the power control "POW" behind them
//   sync plant: the JSON-RPC multicast group and unicast server with the "sync" module
//   child processes: the ASCII serial front-end, the PJLink front-end and the SNMP
//                    front-end (with "snmp" configured or --agentx given), each restarted
//                    when it dies
//   laser plant: the configured laser bank module, or lbmsim run as a second child
//   web server: the page and the WebSocket road to the JSON-RPC server, on a thread of
//               its own that hands each WebSocket to the controller loop
//
//   vprojector [--root DIR] [--config FILE] [--ascii-port N] [--jsonrpc-port N]
//              [--unicast-port N] [--pjlink-port N] [--http-port N] [--https-port N]
//              [--log-level 3..7] [--no-serial] [--no-pjlink] [--agentx SOCKET]
//
// When every server listens it prints exactly one line to standard output:
//   ready ascii=<port> jsonrpc=<port> ipc=<socket path> unicast=<port> pjlink=<port>
//         http=<port> https=<port> [snmp=<socket path>]
// (snmp= when the SNMP front-end runs: the line waits until it registered with the master
// agent at that socket, or 20 s with a logged error when no master agent answers)
// (a port of 0: that front-end is not run). A port option of 0 picks a free port.
// SIGINT or SIGTERM: stop accepting, save stored values, stop the child, exit 0.
// A bad configuration: one message on standard error, exit status 2.

#include <arpa/inet.h>
#include <malloc.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "CC4jControl.h"
#include "CC4jMenu.h"
#include "CC4jSession.h"
#include "CC4jStatus.h"
#include "CChildSupervisor.h"
#include "CControlCatalogHandler.h"
#include "CC4jSystem.h"
#include "CKeepAliveMonitor.h"
#include "CLampPlant.h"
#include "CC4jMacro.h"
#include "CFormatterPlant.h"
#include "CGpioPlant.h"
#include "CLaserPlant.h"
#include "CControllerLoop.h"
#include "CException.h"
#include "CJsonMenu.h"
#include "CProjectorConfig.h"
#include "CSimModule.h"
#include "CSyncPlant.h"
#include "CWebServer.h"
#include "NFileUtil.h"
#include "ProgramOptions.h"
#include "RuntimeRoot.h"
#include "control/CFlashStorage.h"
#include "log/CLogConsole.h"
#include "log/CLogger.h"
#include "net/NFreePort.h"
#include "security/CSecurityManager.h"
#include "status/CStatusRequestHandler.h"
#include "text/NText.h"
#include "time/CMonotonicClockHighResPosix.h"
#include "time/CMonotonicClockLowRes.h"

#ifndef VPROJECTOR_DEFAULT_CONFIG
#define VPROJECTOR_DEFAULT_CONFIG "config/vprojector.json"
#endif
#ifndef VPROJECTOR_SEQUENCE_DIR
#define VPROJECTOR_SEQUENCE_DIR "seq"
#endif
#ifndef VPROJECTOR_WEB_ROOT
#define VPROJECTOR_WEB_ROOT "www"
#endif

namespace {

const char kControllerSocket[] = "/var/run/ui/main_controller.socket";
const unsigned short kDefaultJsonRpcPort = 3003;

CControllerLoop* g_loop = nullptr;

void OnStopSignal(int) {
    if (g_loop) {
        g_loop->Stop();
    }
}

struct SOptions {
    std::string root = "/";
    std::string config;  // empty: the shipped one (ShippedPath)
    int asciiPort = -1;  // -1: the configuration's "NET"+"PORT"
    int jsonPort = kDefaultJsonRpcPort;
    int unicastPort = -1;  // -1: the configuration's
    int pjlinkPort = -1;   // -1: the configuration's
    int httpPort = -1;     // -1: the configuration's
    int httpsPort = -1;    // -1: the configuration's
    int logLevel = LOG_LEVEL_INFO;
    bool serial = true;
    bool pjlink = true;
    std::string agentx;  // empty: the configuration's, if any
};

int Usage(const char* program) {
    fprintf(stderr,
            "usage: %s [--root DIR] [--config FILE] [--ascii-port N] [--jsonrpc-port N] [--unicast-port N] "
            "[--pjlink-port N] [--http-port N] [--https-port N] [--log-level 3..7] [--no-serial] [--no-pjlink] "
            "[--agentx SOCKET]\n",
            program);
    return 2;
}

bool ParseOptions(int argc, char** argv, SOptions& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--no-serial" || option == "--no-pjlink") {
            (option == "--no-serial" ? options.serial : options.pjlink) = false;
            continue;
        }
        if (i + 1 >= argc) {
            return false;
        }
        const char* value = argv[++i];
        if (option == "--root") {
            options.root = value;
        } else if (option == "--config") {
            options.config = value;
        } else if (option == "--agentx") {
            options.agentx = value;
            if (options.agentx.empty()) {
                return false;
            }
        } else if (option == "--ascii-port") {
            if (!ParseNumber(value, 0, 65535, options.asciiPort)) {
                return false;
            }
        } else if (option == "--jsonrpc-port") {
            if (!ParseNumber(value, 0, 65535, options.jsonPort)) {
                return false;
            }
        } else if (option == "--unicast-port") {
            if (!ParseNumber(value, 0, 65535, options.unicastPort)) {
                return false;
            }
        } else if (option == "--pjlink-port") {
            if (!ParseNumber(value, 0, 65535, options.pjlinkPort)) {
                return false;
            }
        } else if (option == "--http-port" || option == "--https-port") {
            if (!ParseNumber(value, 0, 65535, option == "--http-port" ? options.httpPort : options.httpsPort)) {
                return false;
            }
        } else if (option == "--log-level") {
            if (!ParseNumber(value, LOG_LEVEL_ERROR, LOG_LEVEL_DEBUG, options.logLevel)) {
                return false;
            }
        } else {
            return false;
        }
    }
    return true;
}

bool IsListening(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<unsigned short>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool listening = fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return listening;
}

// Prints the ready line once the front-ends' servers accept connections.
class CReadyAnnouncer : public IPeriodicTask {
public:
    // A port of 0 in `waitFor` is not waited for; `registered`, when given, is waited for
    // until the time-out only.
    CReadyAnnouncer(ILog& log, const IMonotonicClock& clock, std::string line, std::vector<int> waitFor,
                    std::function<bool()> registered = nullptr)
        : m_log(log),
          m_timeout(clock, 20000),
          m_line(std::move(line)),
          m_waitFor(std::move(waitFor)),
          m_registered(std::move(registered)) {}

    void Update() override {
        if (m_done) {
            return;
        }
        for (int port : m_waitFor) {
            if (port > 0 && !IsListening(port)) {
                if (m_timeout.IsExpired() && !m_warned) {
                    m_log.LogError("A front-end is not listening on port %d yet", port);
                    m_warned = true;
                }
                return;
            }
        }
        if (m_registered && !m_registered()) {
            if (!m_timeout.IsExpired()) {
                return;
            }
            m_log.LogError("The SNMP front-end has not registered with a master agent");
        }
        printf("%s\n", m_line.c_str());
        fflush(stdout);
        m_done = true;
    }

private:
    ILog& m_log;
    CTimer m_timeout;
    std::string m_line;
    std::vector<int> m_waitFor;
    std::function<bool()> m_registered;
    bool m_done = false;
    bool m_warned = false;
};

constexpr const char* kInstalledConfig = "share/vprojector/vprojector.json";

// A shipped file or folder: where the build left it, or else where an installation puts
// it relative to the installed program (usr/bin/vprojector -> usr/<installed>).
std::string ShippedPath(const char* built, const char* installed) {
    if (access(built, F_OK) == 0) {
        return built;
    }
    const std::string dir = NFileUtil::GetExecutableDir();
    return dir.empty() ? built : dir + "/../" + installed;
}

// A program built beside this one.
std::string SiblingPath(const char* program) {
    const std::string dir = NFileUtil::GetExecutableDir();
    return dir.empty() ? program : dir + "/" + program;
}

// Loads the configuration's menu tree from "<root>/etc/"; when the root has none yet,
// installs one there first, and says which: the one beside the configuration file, else
// the one shipped with the build or the installation (a configuration copied into a
// folder of its own still gets a menu tree).
void LoadMenu(const CProjectorConfig& config, CJsonMenu& menu, ILog& log) {
    const std::string name = config.GetMenuFile();
    const std::string installed = NRuntimeRoot::Path(CJsonMenu::kMenuDirectory + name);
    const std::string configPath = config.GetPath();
    const std::string shippedConfig = ShippedPath(VPROJECTOR_DEFAULT_CONFIG, kInstalledConfig);
    for (const std::string& folder : {configPath.substr(0, configPath.rfind('/') + 1),
                                      shippedConfig.substr(0, shippedConfig.rfind('/') + 1)}) {
        const std::string shipped = folder + name;
        if (access(shipped.c_str(), F_OK) == 0) {
            if (NFileUtil::InstallIfMissing(shipped, installed, CJsonMenu::kMaxFileSize)) {
                log.Log("No menu tree %s: installed the shipped one from %s", installed.c_str(), shipped.c_str());
            }
            break;
        }
    }
    try {
        menu.Initialize(name.c_str());
    } catch (const CException& e) {
        THROW_EXCEPTION("%s: menu: %s", config.GetPath().c_str(), e.GetMessage().c_str());
    }
}

// Writes the configuration's accounts as the users file when there is none yet, and
// checks them by reading the file back. An existing file is kept: it holds the passwords
// changed since ("session:changePassword").
void InstallUsers(const CProjectorConfig& config, ILog& log) {
    const std::string path = NRuntimeRoot::Path(CSecurityManager::kDefaultUsersFile);
    if (config.GetUsers().isNull() || std::filesystem::exists(path)) {
        return;
    }
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    const std::string temporarySystemPath = std::string(CSecurityManager::kDefaultUsersFile) + ".tmp";
    const std::string temporary = NRuntimeRoot::Path(temporarySystemPath);
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        Json::StreamWriterBuilder writer;
        out << Json::writeString(writer, config.GetUsers());
        if (!out) {
            THROW_EXCEPTION("%s: users: cannot write %s", config.GetPath().c_str(), path.c_str());
        }
    }
    CSecurityManager check(log, CSecurityManager::kMinIterations);
    try {
        check.Load(temporarySystemPath);  // Load resolves through the runtime root itself
    } catch (const CException& e) {
        std::filesystem::remove(temporary);
        THROW_EXCEPTION("%s: users: %s", config.GetPath().c_str(), e.GetMessage().c_str());
    }
    check.Save(CSecurityManager::kDefaultUsersFile);
    std::filesystem::remove(temporary);
}

}  // namespace

int main(int argc, char** argv) {
    // A fixed threshold: blocks of 128 KiB and more (the configuration's text, a large
    // reply) are mapped and given back when freed. glibc would otherwise raise it to the
    // size of the first such block freed, and later ones would stay in the heap, whose
    // holes cost the controller about 80 bytes more per control after start.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    SOptions options;
    if (!ParseOptions(argc, argv, options)) {
        return Usage(argv[0]);
    }
    NRuntimeRoot::SetRoot(options.root);
    NText::SetTranslationFallbacksBesideExecutable();
    signal(SIGPIPE, SIG_IGN);

    CLogConsole console;
    CLogger log;
    log.Initialize("vprojector");
    for (int level = LOG_LEVEL_ERROR; level <= options.logLevel; ++level) {
        log.AddLogRule(static_cast<ELogLevel>(level), &console);
    }

    std::unique_ptr<CProjectorConfig> config;
    CSimulatedHardware hardware(log);
    CEventDispatcher dispatcher(log);
    std::vector<std::unique_ptr<CProjCon>> controls;
    std::unique_ptr<CStatusDb> status;
    CJsonMenu menu;
    try {
        if (options.config.empty()) {
            options.config = ShippedPath(VPROJECTOR_DEFAULT_CONFIG, kInstalledConfig);
        }
        config = std::make_unique<CProjectorConfig>(options.config);
        controls = config->BuildControls(dispatcher, hardware);
        status = std::make_unique<CStatusDb>(static_cast<unsigned int>(config->GetStatusGroupCount() + 1),
                                             "vprojector");
        config->BuildStatus(*status);
        for (const char* dir : {"/var/run/ui", "/var/data", "/etc"}) {
            std::filesystem::create_directories(NRuntimeRoot::Path(dir));
        }
        InstallUsers(*config, log);
        LoadMenu(*config, menu, log);
    } catch (const CException& e) {
        fprintf(stderr, "vprojector: %s\n", e.GetMessage().c_str());
        return 2;
    } catch (const std::exception& e) {
        fprintf(stderr, "vprojector: %s: %s\n", options.config.c_str(), e.what());
        return 2;
    }

    try {
        CMonotonicClockHighResPosix clock;
        std::unique_ptr<CFormatterPlant> formatter;
        if (!config->GetSequenceName().empty()) {
            formatter = std::make_unique<CFormatterPlant>(config->GetSequenceName(), config->IsHighDynamicRange(),
                                                          ShippedPath(VPROJECTOR_SEQUENCE_DIR, "lib/firmware/seq"), clock,
                                                          log);
            hardware.AddPlant(CFormatterPlant::kRateCode, *formatter);
        }
        CSystemLocalTime localTime;
        CLampPlant lamps(config->GetLamps(), config->GetCooldownS(), config->GetWarmupS(), clock, localTime, log);
        hardware.AddPlant(CLampPlant::kPowerCode, lamps);
        lamps.PublishControls(dispatcher);
        CFlashStorage storage(dispatcher, log, clock);
        storage.BindAllPersistent();
        storage.LoadAll();
        if (CProjCon* rate = formatter ? dispatcher.GetControl(CFormatterPlant::kRateCode) : nullptr) {
            rate->UpdateHardware();  // the formatter starts with the sequence of the rate that stands
        }

        CProjCon* port = dispatcher.GetControl("NET+PORT");
        int asciiPort = options.asciiPort == 0 ? NFreePort::Pick() : options.asciiPort;
        if (port && asciiPort > 0) {
            port->SetValue(asciiPort, CHANGE_STORE_ONLY);
            port->ClearSavePending();  // an option for this run, not a stored setting
        }
        asciiPort = port ? port->GetValue() : asciiPort;

        const std::string ipcPath = NRuntimeRoot::Path(kControllerSocket);
        CIpcEventDispatcher ipc(dispatcher, ipcPath.c_str(), log);
        ipc.SetAccessPolicy(config->GetIpcAccess());
        CJsonRpcServer json(dispatcher, static_cast<unsigned short>(options.jsonPort), clock, log);
        json.SetDatagramAccessLevel(config->GetUdpAccessLevel());
        CC4jControl controlApi(json);
        CC4jStatus statusApi(json, *status);
        CC4jMenu menuApi(json, menu);
        CMonotonicClockLowRes sessionClock;
        CSecurityManager security(log);
        try {
            security.Load();
        } catch (const CException& e) {
            log.LogError("%s; JSON-RPC logins are refused until it is mended", e.GetMessage().c_str());
        }
        CC4jSession sessionApi(json, security, sessionClock);
        CC4jMacro macroApi(json, localTime, static_cast<unsigned short>(asciiPort));
        macroApi.Initialize();
        CSimGpio gpio;
        CGpioPlant gpioPlant(gpio, macroApi);
        dispatcher.AddPeriodicTask(gpioPlant);
        CNetwork network;
        CC4jSystem systemApi(json, network, config->GetFamily(), &lamps, &lamps);
        CKeepAliveMonitor keepAlive;
        systemApi.AddProcessMonitor(&keepAlive);
        lamps.SetCooldownCallback([&systemApi](unsigned int seconds) { systemApi.NotifyCooldownTimeS(seconds); });
        dispatcher.AddPeriodicTask(lamps);
        CSimModule sim(json, *status, formatter.get(), &gpio, &lamps);
        CStatusRequestHandler statusRequests(dispatcher, *status);
        CControlCatalogHandler catalog(dispatcher);
        CControllerLoop loop(dispatcher, ipc, &json);
        CSyncPlant::SConfig group = config->GetGroup();
        if (options.unicastPort >= 0) {
            group.unicastPort = static_cast<unsigned short>(options.unicastPort);
        }
        CSyncPlant sync(group, json, loop, formatter.get(), log);

        CChildSupervisor frontend(log, clock, SiblingPath("serial_frontend"),
                                  {"--root", NRuntimeRoot::GetRoot(), "--log-level", std::to_string(options.logLevel),
                                   "--exit-with-parent"});
        if (options.serial) {
            frontend.Start();
            dispatcher.AddPeriodicTask(frontend);
            keepAlive.Add(frontend);
        }
        // The web page, its WebSockets handed to the controller loop's JSON-RPC server. Started
        // before the laser plant's thread: its certificate check forks, which is safest while
        // the process has one thread.
        SWebConfig webConfig = config->GetWeb();
        if (options.httpPort >= 0) {
            webConfig.httpPort = options.httpPort;
        }
        if (options.httpsPort >= 0) {
            webConfig.httpsPort = options.httpsPort;
        }
        if (webConfig.root.empty()) {
            webConfig.root = ShippedPath(VPROJECTOR_WEB_ROOT, "share/projector/www");
        }
        webConfig.tlsFolder = NRuntimeRoot::Path("/etc/projector/tls");
        const CProjCon* name = dispatcher.GetControl(config->GetPjlink().name);
        webConfig.name = name ? name->GetText() : std::string();
        CWebServer web(webConfig, log, [&loop, &json](int fd, const std::string& peer) {
            loop.Post([&json, fd, peer] { json.Adopt(fd, peer); });
        });
        web.Start();
        if (access((webConfig.root + "/index.html").c_str(), F_OK) != 0) {
            log.LogError("Web: no page in %s (scripts/build-web.sh builds it)", webConfig.root.c_str());
        }

        // The laser: the configured module, or a simulated one run (and restarted) here.
        std::unique_ptr<CChildSupervisor> laserSim;
        std::unique_ptr<CLaserPlant> laser;
        if (dispatcher.GetControl("LPW") || !config->GetLaserHost().empty()) {
            std::string laserHost = config->GetLaserHost();
            unsigned short laserPort = config->GetLaserPort();
            if (laserHost.empty()) {
                laserHost = "127.0.0.1";
                laserPort = static_cast<unsigned short>(NFreePort::Pick());
                laserSim = std::make_unique<CChildSupervisor>(
                    log, clock, SiblingPath("lbmsim"),
                    std::vector<std::string>{"--port", std::to_string(laserPort), "--exit-with-parent"});
                laserSim->WatchReadyLine();
                laserSim->Start();
                dispatcher.AddPeriodicTask(*laserSim);
                keepAlive.Add(*laserSim);
            }
            laser = std::make_unique<CLaserPlant>(laserHost, laserPort, dispatcher, *status, clock, log);
            for (const char* code : CLaserPlant::kCodes) {
                hardware.AddPlant(code, *laser);
            }
            dispatcher.AddPeriodicTask(*laser);
            laser->Start(laserSim ? std::function<bool()>([sim = laserSim.get()] { return sim->IsReady(); })
                                  : nullptr);
        }
        // The PJLink front-end, on the configured port or the one the options give.
        int pjlinkPort = 0;
        std::unique_ptr<CChildSupervisor> pjlink;
        if (options.pjlink) {
            pjlinkPort = options.pjlinkPort < 0   ? config->GetPjlink().port
                         : options.pjlinkPort == 0 ? NFreePort::Pick()
                                                   : options.pjlinkPort;
            pjlink = std::make_unique<CChildSupervisor>(
                log, clock, SiblingPath("pjlink_frontend"),
                std::vector<std::string>{"--root", NRuntimeRoot::GetRoot(), "--config", config->GetPath(), "--port",
                                         std::to_string(pjlinkPort), "--log-level", std::to_string(options.logLevel),
                                         "--exit-with-parent"});
            pjlink->Start();
            dispatcher.AddPeriodicTask(*pjlink);
            keepAlive.Add(*pjlink);
        }
        // The SNMP front-end, when configured or asked for; it prints "ready" once registered.
        std::unique_ptr<CChildSupervisor> snmp;
        std::string agentx = options.agentx;
        if (agentx.empty() && config->HasSnmp()) {
            agentx = config->GetSnmp().agentx;
        }
        if (!agentx.empty()) {
            snmp = std::make_unique<CChildSupervisor>(
                log, clock, SiblingPath("snmp_frontend"),
                std::vector<std::string>{"--root", NRuntimeRoot::GetRoot(), "--config", config->GetPath(), "--agentx",
                                         agentx, "--log-level", std::to_string(options.logLevel),
                                         "--exit-with-parent"});
            snmp->WatchReadyLine();
            snmp->Start();
            dispatcher.AddPeriodicTask(*snmp);
            keepAlive.Add(*snmp);
        }
        const int shownAscii = options.serial ? asciiPort : 0;
        const std::string readyLine = "ready ascii=" + std::to_string(shownAscii) +
                                      " jsonrpc=" + std::to_string(json.GetPort()) + " ipc=" + ipcPath +
                                      " unicast=" + std::to_string(sync.GetUnicastPort()) +
                                      " pjlink=" + std::to_string(pjlinkPort) +
                                      " http=" + std::to_string(web.GetHttpPort()) +
                                      " https=" + std::to_string(web.GetHttpsPort()) +
                                      (snmp ? " snmp=" + agentx : std::string());
        CReadyAnnouncer ready(log, clock, readyLine, {shownAscii, pjlinkPort},
                              snmp ? std::function<bool()>([&snmp] { return snmp->IsReady(); }) : nullptr);
        dispatcher.AddPeriodicTask(ready);

        // Everything is built: the parsed configuration (a tree of values per control,
        // several times the controls' own size) is not kept for the run, and the pages it
        // and the start-up took go back to the system.
        config.reset();
        malloc_trim(0);
        g_loop = &loop;
        OnStopSignals(OnStopSignal);

        loop.Run();

        g_loop = nullptr;
        log.LogFYI(FYI_SHUTDOWN, "Stopping");
        web.Stop();
        json.Close();
        storage.Save();  // what is pending; not forced, or the run's --ascii-port would be stored
        dispatcher.RemovePeriodicTask(frontend);
        dispatcher.RemovePeriodicTask(ready);
        dispatcher.RemovePeriodicTask(gpioPlant);
        dispatcher.RemovePeriodicTask(lamps);
        lamps.SetCooldownCallback(nullptr);
        lamps.Flush();
        frontend.Stop();
        if (laser) {
            dispatcher.RemovePeriodicTask(*laser);
            laser.reset();
        }
        if (laserSim) {
            dispatcher.RemovePeriodicTask(*laserSim);
            laserSim->Stop();
        }
        if (pjlink) {
            dispatcher.RemovePeriodicTask(*pjlink);
            pjlink->Stop();
        }
        if (snmp) {
            dispatcher.RemovePeriodicTask(*snmp);
            snmp->Stop();
        }
    } catch (const CException& e) {
        fprintf(stderr, "vprojector: %s\n", e.what());
        return 1;
    }
    return 0;
}
