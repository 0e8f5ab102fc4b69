// The virtual projector end to end: the vprojector executable started as a child process
// under the test's runtime root on free ports, driven over its three front-ends (ASCII
// over TCP, JSON-RPC over TCP, IPC through an event link) and through vprojctl.

#include <gtest/gtest.h>
#include <fcntl.h>
#include <json/json.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "RpcClient.h"
#include "JsonText.h"
#include "TempRoot.h"
#include "link/CEventLink.h"
#include "log/CLogger.h"
#include "text/NAsciiCodeUtils.h"
#include "text/NText.h"

namespace {

// The shipped configuration's service account (level 3).
constexpr const char* kServiceLogin = R"({"user": "service", "password": "service"})";

// The shipped configuration with members of BRI replaced and a control added.
std::string ShippedWith(const std::string& brightness, const std::string& added = "") {
    Json::Value config = J(CTempRoot::ReadFile(PROJ_SOURCE_DIR "/config/vprojector.json"));
    const Json::Value members = J(brightness);
    for (Json::Value& control : config["controls"]) {
        if (control["code"] == "BRI") {
            for (const std::string& name : members.getMemberNames()) {
                control[name] = members[name];
            }
        }
    }
    if (!added.empty()) {
        config["controls"].append(J(added));
    }
    return Json::writeString(Json::StreamWriterBuilder(), config);
}

class CVirtualProjectorTest : public ::testing::Test {
protected:
    CVirtualProjectorTest() {
        // A serial front-end orphaned by a SIGKILL of the projector becomes our child, so
        // that the test can end and reap it.
        prctl(PR_SET_CHILD_SUBREAPER, 1);
    }
    ~CVirtualProjectorTest() override {
        if (projector > 0) {
            Stop(SIGTERM);
        }
        ReapOrphanedFrontends();
    }

    // Starts the projector (with the shipped configuration unless the options name one)
    // and waits for its ready line.
    void Start(const std::vector<std::string>& options = {}) {
        std::vector<std::string> arguments = {VPROJECTOR,       "--root", root.GetDir(), "--ascii-port", "0",
                                              "--jsonrpc-port", "0",      "--unicast-port", "0",         "--no-pjlink"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const std::string line = SpawnUntilReady(arguments, root.Path("/vprojector.log"), projector, 15);
        ASSERT_GT(projector, 0);
        char ipc[512] = {};
        ASSERT_EQ(sscanf(line.c_str(), "ready ascii=%hu jsonrpc=%hu ipc=%511s", &asciiPort, &jsonPort, ipc), 3)
            << line << Log();
        EXPECT_GT(asciiPort, 0);
        EXPECT_GT(jsonPort, 0);
        EXPECT_EQ(ipc, root.Path("/var/run/ui/main_controller.socket"));
        link = std::make_unique<CEventLink>(quiet, "vprojector_test");
    }

    // Signals the projector and reaps it (killed after 15 s); returns its exit status (-1:
    // it had to be killed).
    int Stop(int signal) {
        link.reset();
        kill(projector, signal);
        const int status = WaitForExit(projector, 15);
        projector = -1;
        return status;
    }

    // The pids of the serial front-ends, from the sockets they keep under /var/run/ui.
    std::vector<pid_t> FrontendPids() const {
        std::vector<pid_t> pids;
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(root.Path("/var/run/ui"), ignored)) {
            const std::string name = entry.path().filename().string();
            const size_t mark = name.find("_serial_frontend_");
            if (mark != std::string::npos) {
                pids.push_back(std::stoi(name.substr(0, mark)));
            }
        }
        return pids;
    }
    // Kills and reaps the front-ends left by a killed projector (now children of this process;
    // waitpid fails for those that are not, or were reaped before).
    void ReapOrphanedFrontends() {
        for (const pid_t pid : FrontendPids()) {
            if (waitpid(pid, nullptr, WNOHANG) == 0) {
                kill(pid, SIGKILL);
                waitpid(pid, nullptr, 0);
            }
        }
    }

    // Sends ASCII commands over a new TCP connection and reads until `expected` arrived.
    std::string Ascii(const std::string& commands, const std::string& expected) const {
        return TcpExchange(asciiPort, commands, expected);
    }

    int IpcValue(const std::string& code) {
        int value = -1;
        EXPECT_EQ(link->GetValue(ACCESS_OPERATOR, code, "", value), ERR_NONE) << code;
        return value;
    }

    // The next change notification for BRI on the IPC listener's socket (-1 after 10 s).
    int NextIpcBrightness() {
        std::list<CIpcMessage> notes;
        const bool arrived = Eventually([&] {
            pollfd watched{link->GetNotifyDescriptor(), POLLIN, 0};
            return poll(&watched, 1, 0) == 1 && link->ProcessNotify(notes);
        });
        int value = -1;
        if (arrived) {
            EXPECT_EQ(notes.front().GetCode(), "BRI");
            notes.front().GetArg(0, value);
        }
        return value;
    }

    std::string Stored(const std::string& code) const {
        return CTempRoot::ReadFile(root.Path("/var/data/controls/" + code));
    }
    // The end of the projector's log, for failure messages.
    std::string Log() const { return LogTail(root.Path("/vprojector.log")); }

    struct SRun {
        int status;
        std::string out, err;
    };
    // Runs a program to its end with its output captured under the root.
    SRun Run(const std::vector<std::string>& arguments) const {
        const std::string outFile = root.Path("/run.out");
        const std::string errFile = root.Path("/run.err");
        std::filesystem::remove(errFile);
        const int out = open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const pid_t pid = Spawn(arguments, out, errFile);
        close(out);
        const int status = pid > 0 ? WaitForExit(pid, 30) : -1;
        return {status, CTempRoot::ReadFile(outFile), CTempRoot::ReadFile(errFile)};
    }

    CTempRoot root;
    CLogger quiet;
    pid_t projector = -1;
    unsigned short asciiPort = 0;
    unsigned short jsonPort = 0;
    std::unique_ptr<CEventLink> link;
};

}  // namespace

TEST_F(CVirtualProjectorTest, AnEmptyRootGetsTheShippedMenuTreeAndKeepsASecondStartsOwn) {
    ASSERT_NO_FATAL_FAILURE(Start());  // the fixture's root holds nothing
    EXPECT_NE(CTempRoot::ReadFile(root.Path("/vprojector.log")).find("installed the shipped one from"), std::string::npos);
    CRpc rpc(jsonPort);
    EXPECT_EQ(rpc.Call("menu:get", R"(["MMM+MAIN"])")["result"]["items"].size(), 5u);
    EXPECT_EQ(Stop(SIGTERM), 0);
    root.WriteFile("/etc/menu.json", R"({"MAIN": {"items": ["BRI"]}})");
    ASSERT_NO_FATAL_FAILURE(Start());
    CRpc again(jsonPort);
    EXPECT_EQ(again.Call("menu:get", R"(["MMM+MAIN"])")["result"]["items"][0]["code"], "BRI");
    EXPECT_EQ(Stop(SIGTERM), 0);

    // A copy of the configuration in a folder of its own falls back to the shipped tree.
    std::filesystem::remove(root.Path("/etc/menu.json"));
    std::filesystem::remove(root.Path("/vprojector.log"));
    const std::string copy = root.WriteFile("/own/vprojector.json", ShippedWith("{}"));
    ASSERT_NO_FATAL_FAILURE(Start({"--config", copy}));
    EXPECT_NE(CTempRoot::ReadFile(root.Path("/vprojector.log")).find("installed the shipped one from " PROJ_SOURCE_DIR "/config/menu.json"),
              std::string::npos)
        << Log();
}

// What a menu or a web page shows of the shipped configuration: every control has a name,
// and every code in the shipped menu tree is a control or a menu of the tree.
TEST_F(CVirtualProjectorTest, TheShippedMenuTreeNamesOnlyNamedControls) {
    for (const Json::Value& control : J(CTempRoot::ReadFile(PROJ_SOURCE_DIR "/config/vprojector.json"))["controls"]) {
        EXPECT_NE(NText::GetSourceString(control.get("name", 0).asInt()), "") << control["code"] << " has no name";
    }
    ASSERT_NO_FATAL_FAILURE(Start());
    CRpc rpc(jsonPort);
    const Json::Value tree = J(CTempRoot::ReadFile(PROJ_SOURCE_DIR "/config/menu.json"));
    for (const std::string& id : tree.getMemberNames()) {
        const Json::Value items = rpc.Call("menu:get", R"({"code": "MMM+)" + id + R"("})")["result"]["items"];
        ASSERT_EQ(items.size(), tree[id]["items"].size()) << id;
        for (const Json::Value& item : items) {
            std::string text = item["label"].asString();
            if (item.isMember("code")) {
                EXPECT_NE(text, "") << id << ": " << item["code"] << " has no name";
            } else {
                EXPECT_FALSE(NAsciiCodeUtils::ValidateCode(text)) << id << ": " << text << " names no control";
            }
        }
    }
}

TEST_F(CVirtualProjectorTest, TheOutputFrameRateLoadsItsSequenceIntoTheSimulatedFormatter) {
    ASSERT_NO_FATAL_FAILURE(Start());
    CRpc rpc(jsonPort);
    auto reg = [&rpc](int offset) {
        return rpc.Call("sim:readRegister", R"({"port": 48, "offset": )" + std::to_string(offset) + "}")["result"]["value"].asUInt();
    };
    // At start the 60 Hz sequence (element period 16658 us) runs from the high half.
    EXPECT_EQ(reg(0x280), 0x80000001u) << Log();
    EXPECT_EQ(reg(0x290), static_cast<unsigned>(16658 / (1000000.0 / 60) * 65536) & 0xFFFF);
    EXPECT_EQ(rpc.Call("control:set", R"({"code": "OFR", "value": 5000})")["result"]["value"], 5000);
    EXPECT_EQ(reg(0x280), 1u);
    EXPECT_EQ(reg(0x290), static_cast<unsigned>(19992 / 20000.0 * 65536) & 0xFFFF);

    // 23 Hz has no sequence: refused, and rate and sequence stay.
    EXPECT_EQ(rpc.Call("control:set", R"({"code": "OFR", "value": 2300})")["error"]["code"], 112);
    EXPECT_EQ(rpc.Call("control:get", R"(["OFR"])")["result"], 5000);
    EXPECT_EQ(reg(0x280), 1u);
    EXPECT_NE(CTempRoot::ReadFile(root.Path("/vprojector.log")).find("Unsupported output frequency 23.00Hz"),
              std::string::npos);
    EXPECT_EQ(rpc.Call("sim:readRegister", R"({"port": 7, "offset": 0})")["error"]["code"], 3);
    EXPECT_EQ(rpc.Call("sim:readRegister", R"({"port": 48, "offset": 2})")["error"]["code"], 3);
}

TEST_F(CVirtualProjectorTest, TheLaserIsControlledThroughItsModuleAndALostModuleRaisesAnAlarm) {
    // The simulated module the projector starts itself comes up a second late (its children
    // start through a "emulator" that waits): it is waited for, not reported missing.
    const std::string slowStart = root.WriteFile(
        "/slow-start", std::string("#!/bin/sh\ncase \"$1\" in */lbmsim) sleep 1 ;; esac\nexec ") + PROJ_EMULATOR + " \"$@\"\n");
    chmod(slowStart.c_str(), 0700);
    setenv("VPROJECTOR_EMULATOR", slowStart.c_str(), 1);
    Start();
    unsetenv("VPROJECTOR_EMULATOR");
    ASSERT_FALSE(HasFatalFailure());
    CRpc rpc(jsonPort);
    auto item = [&rpc](int idx) {
        return rpc.Call("status:getItem", R"(["LASER", )" + std::to_string(idx) + "]")["result"];
    };
    ASSERT_TRUE(Eventually([&] { return item(7)["value"] == "OK"; })) << Log();
    EXPECT_EQ(CTempRoot::ReadFile(root.Path("/vprojector.log")).find("does not answer"), std::string::npos) << Log();
    EXPECT_EQ(item(1)["value"], "LBM-SIM-0001");
    EXPECT_EQ(rpc.Call("control:set", R"({"code": "LGA", "value": 5000})")["result"]["value"], 5000);
    EXPECT_EQ(rpc.Call("control:set", R"({"code": "LPW", "value": 3})")["result"]["value"], 3);
    EXPECT_TRUE(Eventually([&] { return item(2)["value"] == "Starting" || item(2)["value"] == "On"; }));

    // The simulated module stops answering (SIGUSR1), then answers again.
    pid_t module = -1;
    std::ifstream children("/proc/" + std::to_string(projector) + "/task/" + std::to_string(projector) + "/children");
    for (pid_t child; children >> child;) {  // by command line: an emulated child's name is the emulator's
        const std::string command = CTempRoot::ReadFile("/proc/" + std::to_string(child) + "/cmdline");
        if (command.find("/lbmsim") != std::string::npos) {
            module = child;
        }
    }
    ASSERT_GT(module, 0);
    ASSERT_EQ(kill(module, SIGUSR1), 0);
    ASSERT_TRUE(Eventually([&] { return item(7)["status"] == 2; })) << Log();
    EXPECT_EQ(item(7)["value"], "No answer");
    EXPECT_EQ(rpc.Call("control:set", R"({"code": "LRD", "value": 10})")["error"]["code"], 112);
    ASSERT_EQ(kill(module, SIGUSR1), 0);
    EXPECT_TRUE(Eventually([&] { return item(7)["status"] == 0; })) << Log();
}

TEST_F(CVirtualProjectorTest, LampHoursLiveOnTheTagAndPowerOffCoolsDown) {
    ASSERT_NO_FATAL_FAILURE(Start());
    {
        CRpc rpc(jsonPort);
        EXPECT_EQ(rpc.Call("control:set", R"({"code": "POW", "value": 1})")["result"]["value"], 1);
        EXPECT_EQ(rpc.Call("sim:setLampUsage", R"({"position": "A1", "onTimeS": 5400})")["result"], J("{}"));
        EXPECT_EQ(rpc.Call("sim:setLampUsage", R"({"position": "B2", "onTimeS": 1})")["error"]["code"], 3);
        const Json::Value lamp = rpc.Call("system:getLampHistory")["result"][0];
        EXPECT_EQ(lamp["type"], "SIM-LAMP");
        EXPECT_EQ(lamp["strikes"], 1);
        EXPECT_EQ(lamp["totalHours"], 2);

        rpc.Call("system:addListener", R"({"notifyMethod": "system:notifyCooldownTime", "sendNow": false})");
        EXPECT_EQ(rpc.Call("control:set", R"({"code": "POW", "value": 0})")["result"]["value"], 0);
        const Json::Value note = rpc.Next();
        EXPECT_EQ(note["method"], "system:notifyCooldownTime");
        EXPECT_GE(note["params"]["sec"].asInt(), 58);
        EXPECT_EQ(rpc.Call("control:set", R"({"code": "POW", "value": 1})")["error"]["code"], 112);
        EXPECT_EQ(rpc.Call("sim:replaceLamp", R"({"position": "A1", "type": "XEN-2"})")["result"], J("{}"));
    }
    EXPECT_EQ(Stop(SIGTERM), 0);
    EXPECT_EQ(std::filesystem::file_size(root.Path("/var/sim/lamp/A1.tag")), 8192u);

    ASSERT_NO_FATAL_FAILURE(Start());  // the history is read back from the tag image
    CRpc rpc(jsonPort);
    const Json::Value history = rpc.Call("system:getLampHistory")["result"];
    ASSERT_EQ(history.size(), 2u) << history;
    EXPECT_EQ(history[0]["totalHours"], 2);
    EXPECT_EQ(history[1]["type"], "XEN-2");
}

TEST_F(CVirtualProjectorTest, MacrosChangeControlsThroughTheAsciiServerOnTimeAndOnAGpioEdge) {
    ASSERT_NO_FATAL_FAILURE(Start());
    CRpc rpc(jsonPort);
    EXPECT_EQ(rpc.Call("macro:save", R"({"idx": 3, "name": "x", "active": true, "trigger": [], "action": []})")["error"]["code"],
              117);  // only after a login
    ASSERT_EQ(rpc.Call("session:connect", kServiceLogin)["result"]["access"], 3);
    const time_t soon = time(nullptr) + 2;
    struct tm local {};
    localtime_r(&soon, &local);
    char date[16];
    char clock[16];
    strftime(date, sizeof date, "%Y/%m/%d", &local);
    strftime(clock, sizeof clock, "%H:%M:%S", &local);
    const std::string timed = std::string(R"x({"idx": 1, "name": "soon", "active": true, "trigger": [{"type": "timed", )x") +
                              R"x("date": ")x" + date + R"x(", "time": ")x" + clock +
                              R"x("}], "action": [{"cmd": "(BRI 33)"}]})x";
    EXPECT_EQ(rpc.Call("macro:save", timed)["result"], J("{}"));
    EXPECT_EQ(rpc.Call("macro:save", R"x({"idx": 2, "name": "contact", "active": true,
        "trigger": [{"type": "gpio", "pin": 2, "trans": true}], "action": [{"cmd": "(BRI 44)"}]})x")["result"],
              J("{}"));
    EXPECT_TRUE(Eventually([this] { return IpcValue("BRI") == 33; })) << Log();
    EXPECT_EQ(rpc.Call("sim:setGpio", R"({"pin": 2, "level": 1})")["result"], J("{}"));
    EXPECT_TRUE(Eventually([this] { return IpcValue("BRI") == 44; })) << Log();
    EXPECT_EQ(rpc.Call("sim:setGpio", R"({"pin": 40, "level": 1})")["error"]["code"], 3);
    EXPECT_TRUE(rpc.Call("macro:getList")["result"][0].isMember("lastRun"));
}

TEST_F(CVirtualProjectorTest, AChangeThroughOneFrontEndIsSeenAndNotifiedThroughTheOthers) {
    ASSERT_NO_FATAL_FAILURE(Start());
    CRpc listener(jsonPort);
    EXPECT_EQ(listener.Call("control:addListener", R"({"code": "BRI", "sendNow": false})")["result"]["count"], 1);
    ASSERT_EQ(link->NotifyRegister("BRI", "", link->GetNotifySocketName()), ERR_NONE);

    EXPECT_EQ(Ascii("(#BRI 070)", ")"), "(#BRI!070)") << Log();
    CRpc rpc(jsonPort);
    EXPECT_EQ(rpc.Call("control:get", R"(["BRI"])")["result"], 70);
    EXPECT_EQ(IpcValue("BRI"), 70);
    EXPECT_EQ(listener.Next(),
              J(R"({"jsonrpc": "2.0", "method": "control:notify", "params": {"code": "BRI", "value": 70}})"));
    EXPECT_EQ(NextIpcBrightness(), 70);

    EXPECT_EQ(rpc.Call("control:set", R"({"code": "BRI", "value": 35})")["result"]["value"], 35);
    EXPECT_EQ(Ascii("(BRI?)", ")"), "(BRI!035)");
    EXPECT_EQ(IpcValue("BRI"), 35);
    EXPECT_EQ(listener.Next()["params"], J(R"({"code": "BRI", "value": 35})"));
    EXPECT_EQ(NextIpcBrightness(), 35);
}

TEST_F(CVirtualProjectorTest, StoredValuesSurviveSigtermAndSigkillButThePortOptionIsNotStored) {
    ASSERT_NO_FATAL_FAILURE(Start());
    EXPECT_EQ(Ascii("(#BRI 077)", ")"), "(#BRI!077)");
    CRpc rpc(jsonPort);
    EXPECT_EQ(rpc.Call("control:set", R"({"code": "NAM", "value": "Booth 2"})")["result"]["value"], "Booth 2");
    const int firstAsciiPort = asciiPort;
    EXPECT_EQ(Stop(SIGTERM), 0) << Log();
    std::error_code ignored;
    EXPECT_TRUE(std::filesystem::is_empty(root.Path("/var/run/ui"), ignored)) << "sockets left behind";
    EXPECT_NE(Stored("NET+PORT"), std::to_string(firstAsciiPort)) << "a port of one run became the stored port";

    ASSERT_NO_FATAL_FAILURE(Start());
    EXPECT_EQ(IpcValue("BRI"), 77);
    std::string name;
    EXPECT_EQ(link->GetText(ACCESS_OPERATOR, "NAM", "", name), ERR_NONE);
    EXPECT_EQ(name, "Booth 2");

    // A value saved before a SIGKILL survives it.
    int value = 61;
    EXPECT_EQ(link->SetValue(ACCESS_OPERATOR, "BRI", "", value, true), ERR_NONE);
    ASSERT_TRUE(Eventually([this] { return Stored("BRI") == "61"; })) << Log();
    EXPECT_EQ(Stop(SIGKILL), 128 + SIGKILL);
    // Its front-end ends with it (and takes its sockets along) instead of holding the port.
    EXPECT_TRUE(Eventually([this] {
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        return FrontendPids().empty();
    }));
    ReapOrphanedFrontends();
    ASSERT_NO_FATAL_FAILURE(Start());
    EXPECT_EQ(IpcValue("BRI"), 61);
    EXPECT_EQ(Ascii("(BRI?)", ")"), "(BRI!061)") << Log();
}

TEST_F(CVirtualProjectorTest, AFrontEndThatMissesItsKeepAliveIsRestartedWhileJsonRpcGoesOn) {
    ASSERT_NO_FATAL_FAILURE(Start());
    const std::vector<pid_t> frontends = FrontendPids();
    ASSERT_GT(frontends.empty() ? 0 : frontends.front(), 0);
    CRpc rpc(jsonPort);
    ASSERT_EQ(rpc.Call("session:connect", kServiceLogin)["result"]["access"], 3);
    EXPECT_EQ(rpc.Call("system:keepAlive", R"({"pid": 1, "sec": 1, "name": "init"})")["error"]["code"], 7);
    const std::string frontend = std::to_string(frontends.front());
    EXPECT_EQ(rpc.Call("system:keepAlive", R"({"pid": )" + frontend + R"(, "sec": 1, "name": "ascii"})")["result"],
              true);  // and never again
    EXPECT_EQ(rpc.Call("control:get", R"(["BRI"])")["result"], 50);  // the controller serves on
    EXPECT_TRUE(Eventually([this] { return Log().find("Process ascii (" ) != std::string::npos; })) << Log();
    EXPECT_TRUE(Eventually([this] { return Log().find("restarting it") != std::string::npos; })) << Log();
    EXPECT_TRUE(Eventually([this] { return Ascii("(BRI?)", ")") == "(BRI!050)"; })) << Log();
}

TEST_F(CVirtualProjectorTest, OpenSslIsMappedOnlyOnceAPasswordIsChecked) {
    ASSERT_NO_FATAL_FAILURE(Start());
    const std::string maps = "/proc/" + std::to_string(projector) + "/maps";
    const std::string atStart = CTempRoot::ReadFile(maps);
    EXPECT_EQ(atStart.find("libcrypto"), std::string::npos);
    EXPECT_EQ(atStart.find("libssl"), std::string::npos);
    CRpc rpc(jsonPort);
    ASSERT_EQ(rpc.Call("session:connect", kServiceLogin)["result"]["access"], 3);
    EXPECT_NE(CTempRoot::ReadFile(maps).find("libprojector_crypto.so"), std::string::npos);
}

TEST_F(CVirtualProjectorTest, ABadConfigurationEndsWithStatus2AndOneMessageNamingFileControlAndReason) {
    const struct {
        const char* name;
        std::string contents;
        std::vector<std::string> said;
    } kCases[] = {
        {"syntax", R"({"controls": [{"code": "BRI", })", {"not valid JSON", "Line 1"}},
        {"type", ShippedWith(R"({"type": 900})"), {"control BRI", "display type"}},
        {"range", ShippedWith(R"({"min": 10, "max": 5})"), {"control BRI", "Invalid min/max range 10 < 5"}},
        {"duplicate", ShippedWith("{}", R"({"code": "BRI", "type": 200, "min": 0, "max": 1, "default": 0})"),
         {"control BRI", "duplicate code"}},
    };
    for (const auto& bad : kCases) {
        const std::string file = root.WriteFile(std::string("/") + bad.name + ".json", bad.contents);
        const SRun run = Run({VPROJECTOR, "--root", root.GetDir(), "--config", file, "--ascii-port", "0",
                              "--jsonrpc-port", "0", "--no-serial"});
        EXPECT_EQ(run.status, 2) << bad.name;
        EXPECT_EQ(run.out, "") << bad.name;
        EXPECT_EQ(run.err.rfind("vprojector: " + file + ": ", 0), 0u) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        for (const std::string& part : bad.said) {
            EXPECT_NE(run.err.find(part), std::string::npos) << bad.name << ": " << run.err;
        }
    }
}

TEST_F(CVirtualProjectorTest, VprojctlReachesTheRunningProjectorThroughEachFrontEnd) {
    ASSERT_NO_FATAL_FAILURE(Start());
    const struct {
        std::vector<std::string> command;
        int status;
        std::string out, err;
    } kRuns[] = {
        {{VPROJCTL, "--ascii-port", std::to_string(asciiPort), "ascii", "(BRI?)"}, 0, "(BRI!050)\n", ""},
        {{VPROJCTL, "--jsonrpc-port", std::to_string(jsonPort), "rpc", "control:get", R"(["BRI"])"}, 0, "50\n", ""},
        {{VPROJCTL, "--root", root.GetDir(), "set", "BRI", "13"}, 1, "50\n", "error 112"},
        {{VPROJCTL, "--root", root.GetDir(), "get", "NAM"}, 0, "Virtual Projector\n", ""},
        {{VPROJCTL, "--jsonrpc-port", std::to_string(jsonPort), "--login", "service:service", "rpc", "macro:delete",
          R"({"idx": []})"},
         0, "{}\n", ""},
        {{VPROJCTL, "--jsonrpc-port", std::to_string(jsonPort), "--login", "service:wrong", "rpc", "macro:delete",
          R"({"idx": []})"},
         1, "", "login refused"},
    };
    for (const auto& expected : kRuns) {
        const SRun run = Run(expected.command);
        EXPECT_EQ(run.status, expected.status) << expected.command[3] << ": " << run.err;
        EXPECT_EQ(run.out, expected.out) << expected.command[3];
        EXPECT_NE(run.err.find(expected.err), std::string::npos) << run.err;
    }
}

TEST_F(CVirtualProjectorTest, VprojctlWithoutAProjectorSaysSoAndExits1) {
    // A bound socket that does not listen: its port refuses connections and stays ours.
    const int holder = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(holder, reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(getsockname(holder, reinterpret_cast<sockaddr*>(&address), &length), 0);
    const std::string port = std::to_string(ntohs(address.sin_port));
    root.MakeDir("/var/run/ui");

    const std::vector<std::string> commands[] = {
        {VPROJCTL, "--ascii-port", port, "ascii", "(BRI?)"},
        {VPROJCTL, "--jsonrpc-port", port, "rpc", "control:get", R"(["BRI"])"},
        {VPROJCTL, "--root", root.GetDir(), "get", "BRI"},
    };
    for (const auto& command : commands) {
        const SRun run = Run(command);
        EXPECT_EQ(run.status, 1) << command[3];
        EXPECT_NE(run.err.find("is the projector running?"), std::string::npos) << run.err;
    }
    close(holder);
}
