// lbmsim: a simulated laser bank module on TCP (see CSimLaserModule for what it answers).
//
//   lbmsim [--port N] [--any] [--drop] [--late MS] [--refuse] [--stale] [--garbage]
//          [--exit-with-parent]
//
//   --port N    TCP port (default 0: any free port); on 127.0.0.1 unless --any
//   --drop      answer nothing        --late MS   answer MS milliseconds late
//   --refuse    answer error code 8   --stale     follow each reply with a stale one
//   --garbage   send garbage before every frame
//   --exit-with-parent  end when the process that started it ends (a supervisor's child)
// Prints "ready port=<port>" once it listens (a supervising projector waits for it). SIGUSR1 switches dropping every reply on
// and off (a module that stops answering, and comes back). SIGINT or SIGTERM ends it.

#include <signal.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "CException.h"
#include "CSimLaserModule.h"
#include "ProgramOptions.h"
#include "time/CMonotonicClockHighResPosix.h"

namespace {

volatile sig_atomic_t g_stop = 0;
volatile sig_atomic_t g_toggleDrop = 0;

void OnStop(int) { g_stop = 1; }
void OnToggle(int) { g_toggleDrop = 1; }

int Usage(const char* program) {
    fprintf(stderr,
            "usage: %s [--port N] [--any] [--drop] [--late MS] [--refuse] [--stale] [--garbage] "
            "[--exit-with-parent]\n",
            program);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    unsigned long port = 0;
    unsigned long late = 0;
    bool any = false, drop = false, refuse = false, stale = false, garbage = false;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        char* end = nullptr;
        if ((option == "--port" || option == "--late") && i + 1 < argc) {
            const unsigned long value = strtoul(argv[++i], &end, 10);
            if (*end != '\0' || (option == "--port" && value > 65535) || value > 600000) {
                return Usage(argv[0]);
            }
            (option == "--port" ? port : late) = value;
        } else if (option == "--any") {
            any = true;
        } else if (option == "--drop") {
            drop = true;
        } else if (option == "--refuse") {
            refuse = true;
        } else if (option == "--stale") {
            stale = true;
        } else if (option == "--garbage") {
            garbage = true;
        } else if (option == "--exit-with-parent") {
            ExitWithParent();
        } else {
            return Usage(argv[0]);
        }
    }
    signal(SIGPIPE, SIG_IGN);
    signal(SIGINT, OnStop);
    signal(SIGTERM, OnStop);
    signal(SIGUSR1, OnToggle);
    try {
        CMonotonicClockHighResPosix clock;
        CSimLaserModule module(static_cast<unsigned short>(port), clock, any);
        module.SetDropReplies(drop);
        module.SetReplyDelayMs(static_cast<unsigned int>(late));
        module.SetRefuseAll(refuse);
        module.SetStaleReplies(stale);
        module.SetGarbage(garbage);
        printf("ready port=%u\n", module.GetPort());
        fflush(stdout);
        while (!g_stop) {
            if (g_toggleDrop) {
                g_toggleDrop = 0;
                drop = !drop;
                module.SetDropReplies(drop);
            }
            module.RunOnce(50);
        }
    } catch (const CException& e) {
        fprintf(stderr, "lbmsim: %s\n", e.what());
        return 1;
    }
    return 0;
}
