// vprojctl: a command-line client of the (virtual) projector for people and scripts.
//
//   vprojctl [options] ascii TEXT            send ASCII commands over TCP, print the answer
//   vprojctl [options] rpc METHOD [PARAMS]   one JSON-RPC request; prints the result
//                                            pretty-printed, or the error (exit status 1)
//   vprojctl [options] get CODE              read a control over IPC ("NET+PORT", "NAM")
//   vprojctl [options] set CODE VALUE        set a control over IPC; prints what now stands
//   vprojctl [options] listen CODE...        print every change of the controls until
//                                            interrupted
// Options: --host ADDRESS (127.0.0.1), --ascii-port N (3002), --jsonrpc-port N (3003),
//          --root DIR (the projector's runtime root, for IPC; "/"), --access LEVEL (2),
//          --login USER:PASSWORD (rpc: "session:connect" first, on the same connection,
//          for methods and controls an anonymous client may not use).
// Exit status: 0 done, 1 the projector refused or could not be reached, 2 bad usage.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <list>
#include <string>
#include <vector>

#include "CException.h"
#include "CJsonRpcTcpClient.h"
#include "RuntimeRoot.h"
#include "jsonrpc/Handler.h"
#include "link/CEventLink.h"
#include "log/CLogger.h"
#include "text/NAsciiCodeUtils.h"
#include "text/NErrorText.h"

namespace {

struct SOptions {
    std::string host = "127.0.0.1";
    int asciiPort = 3002;
    int jsonPort = 3003;
    std::string root = "/";
    int access = ACCESS_OPERATOR;
    std::string login;
};

volatile sig_atomic_t g_interrupted = 0;

void OnInterrupt(int) { g_interrupted = 1; }

int Usage() {
    fprintf(stderr,
            "usage: vprojctl [--host ADDRESS] [--ascii-port N] [--jsonrpc-port N] [--root DIR] [--access LEVEL]\n"
            "                [--login USER:PASSWORD]\n"
            "                ascii TEXT | rpc METHOD [PARAMS_JSON] | get CODE | set CODE VALUE | listen CODE...\n");
    return 2;
}

int Fail(const std::string& text) {
    fprintf(stderr, "vprojctl: %s\n", text.c_str());
    return 1;
}

bool ToInt(const std::string& text, int& value) {
    char* end = nullptr;
    const long parsed = strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || parsed < -2147483647L - 1 || parsed > 2147483647L) {
        return false;
    }
    value = static_cast<int>(parsed);
    return true;
}

int Ascii(const SOptions& options, const std::string& text) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<unsigned short>(options.asciiPort));
    if (inet_pton(AF_INET, options.host.c_str(), &address.sin_addr) != 1 ||
        connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return Fail("cannot reach the ASCII port at " + options.host + ":" + std::to_string(options.asciiPort) +
                    " (is the projector running?)");
    }
    send(fd, text.data(), text.size(), MSG_NOSIGNAL);
    // The answer is complete once the projector has been quiet for a moment.
    std::string answer;
    pollfd entry{fd, POLLIN, 0};
    int quietMs = 2000;
    while (poll(&entry, 1, quietMs) > 0) {
        char buffer[4096];
        const ssize_t n = recv(fd, buffer, sizeof buffer, 0);
        if (n <= 0) {
            break;
        }
        answer.append(buffer, static_cast<size_t>(n));
        quietMs = 300;
    }
    close(fd);
    printf("%s\n", answer.c_str());
    return answer.find("ERR") != std::string::npos || answer.find('^') != std::string::npos ? 1 : 0;
}

// Sends one request and reads its answer; false (with a message) when none came as JSON.
bool Exchange(CJsonRpcTcpClient& client, const Json::Value& request, Json::Value& response) {
    client.Send(Json::Rpc::Handler::GetString(request));
    std::string reply;
    if (!client.Recv(reply, 15000)) {
        Fail("no answer from the JSON-RPC port in time");
        return false;
    }
    Json::CharReaderBuilder builder;
    std::string errors;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    if (!reader->parse(reply.data(), reply.data() + reply.size(), &response, &errors)) {
        Fail("the answer is not JSON: " + reply);
        return false;
    }
    return true;
}

int Rpc(const SOptions& options, const std::string& method, const std::string& paramsText) {
    Json::Value login;
    if (!options.login.empty()) {
        const size_t colon = options.login.find(':');
        if (colon == std::string::npos) {
            return Usage();
        }
        login["jsonrpc"] = "2.0";
        login["method"] = "session:connect";
        login["id"] = 0;
        login["params"]["user"] = options.login.substr(0, colon);
        login["params"]["password"] = options.login.substr(colon + 1);
    }
    Json::Value request;
    request["jsonrpc"] = "2.0";
    request["method"] = method;
    request["id"] = 1;
    if (!paramsText.empty()) {
        Json::CharReaderBuilder builder;
        std::string errors;
        Json::Value params;
        std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
        if (!reader->parse(paramsText.data(), paramsText.data() + paramsText.size(), &params, &errors)) {
            fprintf(stderr, "vprojctl: PARAMS is not JSON: %s", errors.c_str());
            return 2;
        }
        request["params"] = params;
    }
    try {
        CJsonRpcTcpClient client(options.host, static_cast<unsigned short>(options.jsonPort));
        Json::StreamWriterBuilder writer;
        writer["indentation"] = "  ";
        Json::Value response;
        if (!login.isNull()) {
            if (!Exchange(client, login, response)) {
                return 1;
            }
            if (response.isMember("error")) {
                return Fail("login refused: " + Json::writeString(writer, response["error"]));
            }
        }
        if (!Exchange(client, request, response)) {
            return 1;
        }
        if (response.isMember("error")) {
            fprintf(stderr, "%s\n", Json::writeString(writer, response["error"]).c_str());
            return 1;
        }
        printf("%s\n", Json::writeString(writer, response["result"]).c_str());
        return 0;
    } catch (const CException& e) {
        return Fail(e.GetMessage() + " (is the projector running?)");
    }
}

// The display type of a control, through its "T" attribute; 0 when it cannot be read.
int DisplayType(CEventLink& link, int access, const std::string& code, const std::string& subcode) {
    CIpcMessage request;
    request.SetCode(code);
    request.SetSubCode(subcode);
    request.AddArg(0, 0, PARM_TEXT, 'T');
    std::list<CIpcMessage> replies;
    int type = 0;
    if (link.SendRequest(access, request, replies, 5000) == ERR_NONE && replies.size() == 1) {
        replies.front().GetArg(0, type);
    }
    return type;
}

int Ipc(const SOptions& options, const std::vector<std::string>& words) {
    CLogger quiet;  // no sinks: the client reports for itself
    NRuntimeRoot::SetRoot(options.root);
    std::unique_ptr<CEventLink> link;
    try {
        link = std::make_unique<CEventLink>(quiet, "vprojctl");
    } catch (const CException& e) {
        return Fail("cannot open a socket under " + NRuntimeRoot::Path("/var/run/ui") + ": " + e.GetMessage());
    }
    const std::string& command = words[0];
    if (command == "listen") {
        std::list<SControlSet> controls;
        for (size_t i = 1; i < words.size(); ++i) {
            std::string code = words[i];
            if (!NAsciiCodeUtils::ValidateCode(code)) {
                return Fail("not a control code: " + words[i]);
            }
            const auto parts = NAsciiCodeUtils::SplitCode(code);
            controls.push_back({parts.first, parts.second == "!!!!" ? "" : parts.second});
        }
        const EError result = link->NotifyRegister(controls, link->GetNotifySocketName());
        if (result != ERR_NONE) {
            return Fail("cannot register (" + NErrorText::GetErrorString(result) + "; is the projector running?)");
        }
        signal(SIGINT, OnInterrupt);
        signal(SIGTERM, OnInterrupt);
        while (!g_interrupted) {
            pollfd entry{link->GetNotifyDescriptor(), POLLIN, 0};
            if (poll(&entry, 1, 200) <= 0) {
                continue;
            }
            std::list<CIpcMessage> notes;
            link->ProcessNotify(notes);
            for (const CIpcMessage& note : notes) {
                std::string value;
                note.GetArg(0, value);
                printf("%s %s\n", NAsciiCodeUtils::JoinCode(note.GetCode(), note.GetSubCode()).c_str(), value.c_str());
            }
            fflush(stdout);
        }
        link->NotifyUnregisterAll(link->GetNotifySocketName());
        return 0;
    }

    std::string code = words[1];
    if (!NAsciiCodeUtils::ValidateCode(code)) {
        return Fail("not a control code: " + words[1]);
    }
    const auto parts = NAsciiCodeUtils::SplitCode(code);
    const std::string subcode = parts.second == "!!!!" ? "" : parts.second;
    const int type = DisplayType(*link, options.access, parts.first, subcode);
    const bool text = type >= 300 && type < 400;
    EError result = ERR_NONE;
    std::string shown;
    if (command == "get") {
        if (text) {
            result = link->GetText(options.access, parts.first, subcode, shown);
        } else {
            int value = 0;
            result = link->GetValue(options.access, parts.first, subcode, value);
            shown = std::to_string(value);
        }
    } else {
        if (text) {
            shown = words[2];
            result = link->SetText(options.access, parts.first, subcode, shown, true);
        } else {
            int value = 0;
            if (!ToInt(words[2], value)) {
                return Fail(code + " takes a number, not \"" + words[2] + "\"");
            }
            result = link->SetValue(options.access, parts.first, subcode, value, true);
            shown = std::to_string(value);
        }
    }
    if (result == ERR_COMM_TIMEOUT) {
        return Fail("no answer from the controller at " + NRuntimeRoot::Path("/var/run/ui/main_controller.socket") +
                    " (is the projector running?)");
    }
    if (result != ERR_NONE) {
        fprintf(stderr, "vprojctl: %s: error %d %s\n", code.c_str(), result, NErrorText::GetErrorString(result).c_str());
        if (command == "set") {
            printf("%s\n", shown.c_str());  // what stands now
        }
        return 1;
    }
    printf("%s\n", shown.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    SOptions options;
    std::vector<std::string> words;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.rfind("--", 0) == 0 && words.empty()) {
            if (i + 1 >= argc) {
                return Usage();
            }
            const std::string value = argv[++i];
            if (word == "--host") {
                options.host = value;
            } else if (word == "--root") {
                options.root = value;
            } else if (word == "--login") {
                options.login = value;
            } else if ((word == "--ascii-port" && ToInt(value, options.asciiPort)) ||
                       (word == "--jsonrpc-port" && ToInt(value, options.jsonPort)) ||
                       (word == "--access" && ToInt(value, options.access))) {
            } else {
                return Usage();
            }
            continue;
        }
        words.push_back(word);
    }
    if (words.empty()) {
        return Usage();
    }
    const std::string& command = words[0];
    if (command == "ascii" && words.size() == 2) {
        return Ascii(options, words[1]);
    }
    if (command == "rpc" && (words.size() == 2 || words.size() == 3)) {
        return Rpc(options, words[1], words.size() == 3 ? words[2] : "");
    }
    if ((command == "get" && words.size() == 2) || (command == "set" && words.size() == 3) ||
        (command == "listen" && words.size() >= 2)) {
        return Ipc(options, words);
    }
    return Usage();
}
