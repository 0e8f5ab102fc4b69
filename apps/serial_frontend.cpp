// serial_frontend: the ASCII command front-end, run as its own process beside the
// controller. It serves the ASCII protocol on the serial ports, the USB serial adapter
// and TCP, reaching the controller through an event link, and follows the port controls
// the controller holds.
//
//   serial_frontend [--root DIR] [--log-level 3..7] [--error-socket PATH] [--exit-with-parent]
//
// SIGINT or SIGTERM ends it (exit 0); SIGUSR1 tells it a USB serial adapter appeared.
// With --exit-with-parent it also ends when the process that started it dies, however it
// dies, so a supervisor killed outright leaves no front-end holding the ASCII port.

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "CException.h"
#include "ProgramOptions.h"
#include "RuntimeRoot.h"
#include "ascii/CVeltraneSerialHandler.h"
#include "link/CEventLink.h"
#include "log/CLogConsole.h"
#include "log/CLogger.h"
#include "security/CSecurityManager.h"
#include "text/NText.h"

namespace {

CSerialHandler* g_handler = nullptr;

void OnStopSignal(int) {
    if (g_handler) {
        g_handler->Stop();
    }
}

void OnUsbSignal(int) { CSerialHandler::SetUsbAdapterPlugged(); }

int Usage(const char* program) {
    fprintf(stderr, "usage: %s [--root DIR] [--log-level 3..7] [--error-socket PATH] [--exit-with-parent]\n",
            program);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::string root = "/";
    std::string errorSocket = "/var/run/ui/serial_errors.socket";
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
        if (option == "--root") {
            root = argv[++i];
        } else if (option == "--log-level") {
            if (!ParseNumber(argv[++i], LOG_LEVEL_ERROR, LOG_LEVEL_DEBUG, level)) {
                return Usage(argv[0]);
            }
        } else if (option == "--error-socket") {
            errorSocket = argv[++i];
        } else {
            return Usage(argv[0]);
        }
    }

    NRuntimeRoot::SetRoot(root);
    NText::SetTranslationFallbacksBesideExecutable();
    CLogConsole console;
    CLogger log;
    log.Initialize("serial_frontend");
    for (int l = LOG_LEVEL_ERROR; l <= level; ++l) {
        log.AddLogRule(static_cast<ELogLevel>(l), &console);
    }
    signal(SIGPIPE, SIG_IGN);

    try {
        std::filesystem::create_directories(NRuntimeRoot::Path("/var/run/ui"));
        CEventLink link(log, "serial_frontend");
        CSecurityManager security(log);
        try {
            security.Load();
        } catch (const CException& e) {
            log.LogError("No user can log in: %s", e.GetMessage().c_str());
        }
        CVeltraneSerialHandler handler(log, &link, &security);
        handler.SetErrorSocketPath(errorSocket);
        g_handler = &handler;
        OnStopSignals(OnStopSignal);
        struct sigaction usb {};
        usb.sa_handler = OnUsbSignal;  // no SA_RESTART: the handler's wait wakes at once
        sigemptyset(&usb.sa_mask);
        sigaction(SIGUSR1, &usb, nullptr);
        if (exitWithParent) {
            ExitWithParent();
        }
        log.LogFYI(FYI_STARTUP, "Serial front-end starting under %s", NRuntimeRoot::GetRoot().c_str());
        handler.Begin(true);
        g_handler = nullptr;
        log.LogFYI(FYI_SHUTDOWN, "Serial front-end stopped");
    } catch (const CException& e) {
        g_handler = nullptr;
        log.LogError("Serial front-end failed: %s", e.what());
        return 1;
    }
    return 0;
}
