// foundation_demo: a short tour of what the foundation does, run under a private runtime
// root. A controller thread serves the controller socket and answers every command; a
// client sends a few commands and prints the exchanges; texts are shown in every
// language whose translation file is installed under the root.
//
//   foundation_demo --root DIR [--log-level 3..7]

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "CException.h"
#include "RuntimeRoot.h"
#include "ipc/CIpcClient.h"
#include "ipc/CIpcServer.h"
#include "ipc/NIpcMsgUtil.h"
#include "log/CLogComposite.h"
#include "log/CLogConsole.h"
#include "log/CLogFileByDate.h"
#include "log/CLogger.h"
#include "text/NErrorText.h"
#include "text/NText.h"

namespace {

const char kControllerSocket[] = "/var/run/ui/main_controller.socket";

void ServeController(CIpcServer& server, ILog& log) {
    CIpcMessage message;
    for (;;) {
        bool complete = false;
        if (!server.GetMessage(message, &complete) || !complete) {
            continue;
        }
        log.Log("Processing CMD from %s: %s", message.GetReplyAddress().c_str(),
                CIpcMessage::GetMsgAsString(message).c_str());
        if (message.GetCode() == "END") {
            return;
        }
        CIpcMessage reply(message);
        reply.MakeReply(0);
        std::string value;
        if (message.GetCode() == "XXX") {
            NIpcMsgUtil::MakeErrorResponse(reply, ERR_CONTROL_NOT_FOUND, NErrorText::GetErrorString(ERR_CONTROL_NOT_FOUND));
        } else if (message.GetArg(0, value)) {
            reply.AddArg(0, value);
        }
        server.ResponseMessage(reply);
    }
}

void Exchange(CIpcClient& client, const std::string& code, const std::string& subcode, const std::string& value) {
    CIpcMessage command;
    command.SetCode(code);
    command.SetSubCode(subcode);
    if (!value.empty()) {
        command.AddArg(0, value);
    }
    CIpcMessage reply;
    if (!client.TransmitMessage(command, reply, 2000)) {
        printf("  %-28s -> no reply in time (%s)\n", CIpcMessage::GetMsgAsString(command).c_str(),
               NErrorText::GetErrorString(ERR_COMM_TIMEOUT).c_str());
        return;
    }
    int error = 0;
    std::string errorText;
    if (reply.GetArg(CIpcMessage::kErrorCodeParm, error) && reply.GetArg(CIpcMessage::kErrorTextParm, errorText)) {
        printf("  %-28s -> error %d \"%s\"\n", CIpcMessage::GetMsgAsString(command).c_str(), error, errorText.c_str());
        return;
    }
    printf("  %-28s -> %s\n", CIpcMessage::GetMsgAsString(command).c_str(), CIpcMessage::GetMsgAsString(reply).c_str());
}

void ShowTexts() {
    printf("Resource texts 1..5:\n");
    const NText::ELanguage languages[] = {NText::LANG_ENGLISH, NText::LANG_FRENCH, NText::LANG_GERMAN};
    for (NText::ELanguage language : languages) {
        try {
            NText::SetLanguage(language);
        } catch (const CException& e) {
            printf("  language %d: %s\n", static_cast<int>(language), e.GetMessage().c_str());
            continue;
        }
        printf("  language %d:", static_cast<int>(language));
        for (int id = 1; id <= 5; ++id) {
            printf(" [%s]", NText::GetString(id).c_str());
        }
        printf("\n");
    }
    NText::SetLanguage(NText::LANG_ENGLISH);
}

}  // namespace

int main(int argc, char** argv) {
    std::string root = "/";
    int logLevel = LOG_LEVEL_INFO;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--root") == 0 && i + 1 < argc) {
            root = argv[++i];
        } else if (strcmp(argv[i], "--log-level") == 0 && i + 1 < argc) {
            logLevel = atoi(argv[++i]);
        } else {
            fprintf(stderr, "usage: %s --root DIR [--log-level 3..7]\n", argv[0]);
            return 2;
        }
    }
    if (logLevel < LOG_LEVEL_ERROR || logLevel > LOG_LEVEL_DEBUG) {
        fprintf(stderr, "log level must be 3..7\n");
        return 2;
    }

    try {
        NRuntimeRoot::SetRoot(root);
        std::filesystem::create_directories(NRuntimeRoot::Path("/var/run/ui"));
        std::filesystem::create_directories(NRuntimeRoot::Path("/var/log"));

        CLogConsole console;
        CLogFileByDate file(NRuntimeRoot::Path("/var/log/"), "foundation_demo-", 7);
        CLogComposite both({&console, &file});
        CLogger log;
        log.Initialize("foundation_demo");
        for (int level = LOG_LEVEL_ERROR; level <= logLevel; ++level) {
            log.AddLogRule(static_cast<ELogLevel>(level), &both);
        }
        log.LogFYI(FYI_STARTUP, "Runtime root %s, log file %s", NRuntimeRoot::GetRoot().c_str(),
                   file.GetFileName().c_str());

        const std::string serverPath = NRuntimeRoot::Path(kControllerSocket);
        CIpcServer server(serverPath.c_str());
        std::thread controller([&] { ServeController(server, log); });

        const std::string clientPath = NRuntimeRoot::Path("/var/run/ui/foundation_demo.0");
        CIpcClient client(serverPath.c_str(), clientPath.c_str());
        printf("IPC exchanges with %s:\n", serverPath.c_str());
        Exchange(client, "BRI", "", "50");
        Exchange(client, "NET", "PORT", "3002");
        Exchange(client, "XXX", "", "");
        CIpcMessage end;
        end.SetCode("END");
        end.SetSubCode("");
        client.TransmitMessage(end);
        controller.join();

        ShowTexts();
        log.LogFYI(FYI_SHUTDOWN, "Done");
    } catch (const CException& e) {
        fprintf(stderr, "foundation_demo: %s\n", e.what());
        return 1;
    }
    return 0;
}
