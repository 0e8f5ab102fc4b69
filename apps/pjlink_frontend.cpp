// pjlink_frontend: the PJLink front-end, run as its own process beside the controller. It
// serves PJLink class 1 and 2 on TCP and the class 2 search and notices on UDP, reaching
// the controller through an event link, with the mapping of the configuration file's
// "pjlink" member (and its "lamps").
//
//   pjlink_frontend [--root DIR] [--config FILE] [--port N] [--idle-ms N]
//                   [--log-level 3..7] [--exit-with-parent]
//
// --port overrides the mapping's port (0: any free port). --idle-ms shortens the idle
// time of the standard's 30 s, for tests. Once it serves, it logs "PJLink serving on port
// <port>". SIGINT or SIGTERM ends it (exit 0); with --exit-with-parent it also ends when
// the process that started it dies. A bad configuration: exit status 2.

#include <signal.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "CException.h"
#include "CPjlinkServer.h"
#include "ProgramOptions.h"
#include "RuntimeRoot.h"
#include "link/CEventLink.h"
#include "log/CLogConsole.h"
#include "log/CLogger.h"

namespace {

CPjlinkServer* g_server = nullptr;

void OnStopSignal(int) {
    if (g_server) {
        g_server->Stop();
    }
}

int Usage(const char* program) {
    fprintf(stderr,
            "usage: %s [--root DIR] [--config FILE] [--port N] [--idle-ms N] [--log-level 3..7] "
            "[--exit-with-parent]\n",
            program);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::string root = "/";
    std::string configPath;
    int port = -1;
    int idleMs = static_cast<int>(CPjlinkSession::kIdleMs);
    int level = LOG_LEVEL_INFO;
    bool exitWithParent = false;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--exit-with-parent") {
            exitWithParent = true;
            continue;
        }
        if (i + 1 >= argc) {
            return Usage(argv[0]);
        }
        const char* value = argv[++i];
        bool ok = true;
        if (option == "--root") {
            root = value;
        } else if (option == "--config") {
            configPath = value;
        } else if (option == "--port") {
            ok = ParseNumber(value, 0, 65535, port);
        } else if (option == "--idle-ms") {
            ok = ParseNumber(value, 100, 3600000, idleMs);
        } else if (option == "--log-level") {
            ok = ParseNumber(value, LOG_LEVEL_ERROR, LOG_LEVEL_DEBUG, level);
        } else {
            ok = false;
        }
        if (!ok) {
            return Usage(argv[0]);
        }
    }

    NRuntimeRoot::SetRoot(root);
    CLogConsole console;
    CLogger log;
    log.Initialize("pjlink_frontend");
    for (int l = LOG_LEVEL_ERROR; l <= level; ++l) {
        log.AddLogRule(static_cast<ELogLevel>(l), &console);
    }
    signal(SIGPIPE, SIG_IGN);

    SPjlinkMapping mapping;
    try {
        Json::Value config;
        if (!configPath.empty()) {
            std::ifstream in(configPath);
            Json::CharReaderBuilder reader;
            reader["allowComments"] = true;
            std::string errors;
            if (!in || !Json::parseFromStream(reader, in, &config, &errors)) {
                THROW_EXCEPTION("%s: cannot be read: %s", configPath.c_str(), errors.c_str());
            }
        }
        mapping = SPjlinkMapping::FromJson(config["pjlink"], config["lamps"]);
        if (port >= 0) {
            mapping.port = static_cast<uint16_t>(port);
        }
    } catch (const CException& e) {
        fprintf(stderr, "pjlink_frontend: %s\n", e.GetMessage().c_str());
        return 2;
    }

    try {
        CEventLink link(log, "pjlink_frontend");
        CPjlinkServer server(link, mapping, log, static_cast<uint64_t>(idleMs));
        g_server = &server;
        OnStopSignals(OnStopSignal);
        if (exitWithParent) {
            ExitWithParent();
        }
        log.LogFYI(FYI_STARTUP, "PJLink serving on port %u", static_cast<unsigned>(server.GetPort()));
        server.Run();
        g_server = nullptr;
        log.LogFYI(FYI_SHUTDOWN, "PJLink front-end stopped");
    } catch (const CException& e) {
        g_server = nullptr;
        log.LogError("PJLink front-end failed: %s", e.what());
        return 1;
    }
    return 0;
}
