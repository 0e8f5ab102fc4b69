// snmp_frontend: the SNMP front-end, run as its own process beside the controller. It
// serves the projector's MIB module through the system's SNMP master agent as an AgentX
// subagent, reaching the controller through an event link, with the configuration
// file's "snmp" member (and the codes and identity of its "pjlink" and "lamps" members,
// and the status groups of "statusGroups").
//
//   snmp_frontend [--root DIR] [--config FILE] [--agentx SOCKET] [--log-level 3..7]
//                 [--exit-with-parent]
//
// --agentx overrides the configuration's socket. Once registered with the master agent
// it prints "ready snmp=<socket>". SIGINT or SIGTERM ends it (exit 0); with
// --exit-with-parent it also ends when the process that started it dies. A bad
// configuration: exit status 2.

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "CException.h"
#include "CSnmpProjector.h"
#include "CSnmpSubagent.h"
#include "ProgramOptions.h"
#include "RuntimeRoot.h"
#include "SSnmpConfig.h"
#include "link/CEventLink.h"
#include "log/CLogConsole.h"
#include "log/CLogger.h"

namespace {

CSnmpSubagent* g_agent = nullptr;
volatile sig_atomic_t g_stopped = 0;

void OnStopSignal(int) {
    g_stopped = 1;
    if (g_agent) {
        g_agent->Stop();
    }
}

int Usage(const char* program) {
    fprintf(stderr, "usage: %s [--root DIR] [--config FILE] [--agentx SOCKET] [--log-level 3..7] [--exit-with-parent]\n",
            program);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::string root = "/";
    std::string configPath;
    std::string agentx;
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
        } else if (option == "--agentx") {
            agentx = value;
            ok = !agentx.empty();
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
    log.Initialize("snmp_frontend");
    for (int l = LOG_LEVEL_ERROR; l <= level; ++l) {
        log.AddLogRule(static_cast<ELogLevel>(l), &console);
    }
    signal(SIGPIPE, SIG_IGN);

    SSnmpConfig config;
    SPjlinkMapping codes;
    std::vector<std::string> statusGroups;
    try {
        Json::Value file;
        if (!configPath.empty()) {
            std::ifstream in(configPath);
            Json::CharReaderBuilder reader;
            reader["allowComments"] = true;
            std::string errors;
            if (!in || !Json::parseFromStream(reader, in, &file, &errors)) {
                THROW_EXCEPTION("%s: cannot be read: %s", configPath.c_str(), errors.c_str());
            }
        }
        config = SSnmpConfig::FromJson(file["snmp"]);
        if (!agentx.empty()) {
            config.agentx = agentx;
        }
        codes = SPjlinkMapping::FromJson(file["pjlink"], file["lamps"]);
        for (const Json::Value& group : file["statusGroups"]) {
            if (group.isObject() && group["name"].isString()) {
                statusGroups.push_back(group["name"].asString());
            }
        }
    } catch (const CException& e) {
        fprintf(stderr, "snmp_frontend: %s\n", e.GetMessage().c_str());
        return 2;
    }

    try {
        CEventLink link(log, "snmp_frontend");
        CSnmpProjector projector(link, codes, statusGroups, config.accessLevel, log);
        OnStopSignals(OnStopSignal);
        if (exitWithParent) {
            ExitWithParent();
        }
        // The controller may still be starting: its catalog is asked for until it answers.
        while (!projector.Load()) {
            if (g_stopped) {
                return 0;
            }
            sleep(1);
        }
        CSnmpSubagent agent(projector, config, log);
        g_agent = &agent;
        if (!g_stopped) {
            agent.Run();
        }
        g_agent = nullptr;
        log.LogFYI(FYI_SHUTDOWN, "SNMP front-end stopped");
    } catch (const CException& e) {
        g_agent = nullptr;
        log.LogError("SNMP front-end failed: %s", e.what());
        return 1;
    }
    return 0;
}
