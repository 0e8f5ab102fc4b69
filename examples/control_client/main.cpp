// control_client: what a program of a firmware team does with the control-plane
// libraries: it opens an event link to the projector's controller over IPC, reads a
// control, sets it, and reads it back.
//
//   control_client ROOT CODE VALUE    (ROOT: the projector's runtime root, "/" on the
//                                      projector; prints "CODE old -> new")

#include <cstdio>
#include <cstdlib>
#include <string>

#include "CException.h"
#include "RuntimeRoot.h"
#include "link/CEventLink.h"
#include "log/CLogConsole.h"
#include "log/CLogger.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: %s ROOT CODE VALUE\n", argv[0]);
        return 2;
    }
    NRuntimeRoot::SetRoot(argv[1]);
    const std::string code = argv[2];
    int wanted = atoi(argv[3]);

    CLogConsole console;
    CLogger log;
    log.Initialize("control_client");
    log.AddLogRule(LOG_LEVEL_ERROR, &console);
    try {
        CEventLink link(log, "control_client");
        const int access = 2;
        int before = 0;
        int after = 0;
        EError error = link.GetValue(access, code, "", before);
        if (error == ERR_NONE) {
            error = link.SetValue(access, code, "", wanted, true);
        }
        if (error == ERR_NONE) {
            error = link.GetValue(access, code, "", after);
        }
        if (error != ERR_NONE) {
            fprintf(stderr, "control_client: %s: error %d\n", code.c_str(), static_cast<int>(error));
            return 1;
        }
        printf("%s %d -> %d\n", code.c_str(), before, after);
    } catch (const CException& e) {
        fprintf(stderr, "control_client: %s\n", e.GetMessage().c_str());
        return 1;
    }
    return 0;
}
