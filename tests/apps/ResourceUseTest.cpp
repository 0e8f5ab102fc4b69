// Long running: the virtual projector and every child it runs (the ASCII front-end, the
// PJLink front-end, the simulated laser module) give back what they open. After a warm-up
// every process is measured, each child is killed and restarted, and the new children's
// memory is measured after a warm-up of their own; then thousands of mixed requests go
// through every front-end, and at the end every process (and every new child) holds as
// many descriptors as were measured and no more resident memory than the tolerance below.

#include <gtest/gtest.h>
#include <fcntl.h>
#include <json/json.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "JsonText.h"
#include "RpcClient.h"
#include "TempRoot.h"
#include "jsonrpc/UdpClient.h"
#include "link/CEventLink.h"
#include "log/CLogger.h"

namespace {

constexpr int kRequests = 10000;
constexpr int kWarmUp = 500;
// Resident memory may grow by this much per process between its measurement and the end
// (allocator pools, the emulator's translated code; a sanitizer's allocator keeps more
// back); a leak of a few hundred bytes per request (a kilobyte under a sanitizer) passes
// it within the run. Descriptors must come back exactly.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long kRssToleranceKb = 8192;
#else
constexpr long kRssToleranceKb = 3072;
#endif

struct SUsage {
    long descriptors = 0;
    long rssKb = 0;
};

SUsage UsageOf(pid_t pid) {
    SUsage usage;
    std::error_code ignored;
    for (auto it = std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", ignored);
         it != std::filesystem::directory_iterator(); it.increment(ignored)) {
        ++usage.descriptors;
    }
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) {
            usage.rssKb = std::atol(line.c_str() + 6);
        }
    }
    return usage;
}

class CResourceUseTest : public ::testing::Test {
protected:
    ~CResourceUseTest() override {
        if (projector > 0) {
            kill(projector, SIGTERM);
            WaitForExit(projector, 15);
        }
    }

    void Start() {
#if defined(__SANITIZE_ADDRESS__)
        // Freed memory is held back to catch its use; a small quarantine keeps that from
        // looking like growth.
        const char* asan = getenv("ASAN_OPTIONS");
        setenv("ASAN_OPTIONS", (std::string(asan ? asan : "") + ":quarantine_size_mb=1").c_str(), 1);
#endif
        root.WriteFile("/etc/menu.json", CTempRoot::ReadFile(PROJ_SOURCE_DIR "/config/menu.json"));
        const std::string line = SpawnUntilReady({VPROJECTOR, "--root", root.GetDir(), "--ascii-port", "0",
                                                  "--jsonrpc-port", "0", "--unicast-port", "0", "--pjlink-port", "0"},
                                                 root.Path("/vprojector.log"), projector, 20);
        ASSERT_GT(projector, 0);
        ASSERT_EQ(sscanf(line.c_str(), "ready ascii=%hu jsonrpc=%hu ipc=%*s unicast=%hu pjlink=%hu", &asciiPort, &jsonPort,
                         &unicastPort, &pjlinkPort),
                  4)
            << line;
        link = std::make_unique<CEventLink>(quiet, "resource_use_test");
        ASSERT_TRUE(Eventually([this] { return Children().size() == 3; })) << "children: " << Children().size();
    }

    // The projector's children by role: the program each runs.
    std::map<std::string, pid_t> Children() const {
        std::map<std::string, pid_t> children;
        std::ifstream list("/proc/" + std::to_string(projector) + "/task/" + std::to_string(projector) + "/children");
        for (pid_t child; list >> child;) {
            const std::string command = CTempRoot::ReadFile("/proc/" + std::to_string(child) + "/cmdline");
            for (const char* role : {"serial_frontend", "pjlink_frontend", "lbmsim"}) {
                if (command.find(std::string("/") + role) != std::string::npos) {
                    children[role] = child;
                }
            }
        }
        return children;
    }

    // The usage once every process has noticed the connections closed before: two readings
    // half a second apart hold the same descriptors.
    std::map<std::string, SUsage> SettledUsage() const {
        std::map<std::string, SUsage> last = Usage();
        for (int i = 0; i < 20; ++i) {
            usleep(500 * 1000);
            const std::map<std::string, SUsage> now = Usage();
            bool same = now.size() == last.size();
            for (const auto& [role, usage] : now) {
                same = same && last.count(role) && last.at(role).descriptors == usage.descriptors;
            }
            if (same) {
                return now;
            }
            last = now;
        }
        ADD_FAILURE() << "the descriptors never settled";
        return last;
    }

    std::map<std::string, SUsage> Usage() const {
        std::map<std::string, SUsage> usage;
        usage["vprojector"] = UsageOf(projector);
        for (const auto& [role, pid] : Children()) {
            usage[role] = UsageOf(pid);
        }
        return usage;
    }

    // Request i of the mix: JSON-RPC over TCP (one connection per 100 requests), ASCII over
    // TCP, IPC, a datagram on the unicast port, and PJLink, each getting and setting; the
    // laser module is reached through its controls.
    void Mixed(int i) {
        if (!rpc || i % 100 == 0) {
            rpc = std::make_unique<CRpc>(jsonPort);
        }
        const int value = i % 100;
        switch (i % 5) {
            case 0:
                ASSERT_TRUE(rpc->Call("control:get", R"(["BRI"])").isMember("result")) << i;
                break;
            case 1:
                if (i % 50 == 1) {  // answered by the module, or refused while it does not answer
                    ASSERT_FALSE(rpc->Call("control:set", R"({"code": "LRD", "value": )" + std::to_string(value) + "}")
                                     .isNull())
                        << i;
                } else {
                    ASSERT_TRUE(rpc->Call("control:set", R"({"code": "BRI", "value": )" + std::to_string(value) + "}")
                                    .isMember("result"))
                        << i;
                }
                break;
            case 2:
                ASSERT_NE(TcpExchange(asciiPort, "(BRI " + std::to_string(value) + ")(BRI?)", ")"), "") << i;
                break;
            case 3: {
                int read = -1;
                ASSERT_EQ(link->GetValue(ACCESS_OPERATOR, "BRI", "", read), ERR_NONE) << i;
                break;
            }
            default:
                if (i % 2) {
                    Json::Rpc::UdpClient udp("127.0.0.1", unicastPort);
                    ASSERT_TRUE(udp.Connect());
                    ASSERT_TRUE(udp.Send(R"({"jsonrpc": "2.0", "id": 1, "method": "control:get", "params": ["BRI"]})"));
                    std::string answer;
                    sockaddr_in sender{};
                    ASSERT_TRUE(udp.Recv(answer, sender, 5000)) << i;
                } else {
                    ASSERT_NE(TcpExchange(pjlinkPort, "%1POWR ?\r", "%1POWR=").find("%1POWR="), std::string::npos) << i;
                }
        }
    }

    // Kills every child and waits until each role runs again and answers.
    void RestartChildren() {
        const std::map<std::string, pid_t> before = Children();
        for (const auto& [role, pid] : before) {
            kill(pid, SIGKILL);
        }
        ASSERT_TRUE(Eventually(
            [&] {
                const std::map<std::string, pid_t> now = Children();
                if (now.size() != before.size()) {
                    return false;
                }
                for (const auto& [role, pid] : now) {
                    if (before.at(role) == pid) {
                        return false;
                    }
                }
                return true;
            },
            30));
        ASSERT_TRUE(Eventually([&] { return TcpExchange(asciiPort, "(BRI?)", ")") != ""; }, 30));
        ASSERT_TRUE(Eventually([&] { return TcpExchange(pjlinkPort, "%1POWR ?\r", "%1POWR=").find("%1POWR=") != std::string::npos; }, 30));
    }

    CTempRoot root;
    CLogger quiet;
    pid_t projector = -1;
    unsigned short asciiPort = 0, jsonPort = 0, unicastPort = 0, pjlinkPort = 0;
    std::unique_ptr<CEventLink> link;
    std::unique_ptr<CRpc> rpc;
};

}  // namespace

TEST_F(CResourceUseTest, EveryProcessGivesBackWhatItOpensThroughManyRequestsAndRestarts) {
    ASSERT_NO_FATAL_FAILURE(Start());
    for (int i = 0; i < kWarmUp; ++i) {
        ASSERT_NO_FATAL_FAILURE(Mixed(i));
    }
    rpc.reset();
    // Descriptors as they stand before the restarts: a new child holds as many as the one
    // it replaced. Memory from the projector now and from each new child after its warm-up.
    std::map<std::string, SUsage> before = SettledUsage();
    ASSERT_NO_FATAL_FAILURE(RestartChildren());
    for (int i = 0; i < kWarmUp; ++i) {
        ASSERT_NO_FATAL_FAILURE(Mixed(i));
    }
    rpc.reset();
    for (const auto& [role, usage] : SettledUsage()) {
        if (role != "vprojector") {
            before[role].rssKb = usage.rssKb;
        }
    }

    for (int i = 0; i < kRequests; ++i) {
        ASSERT_NO_FATAL_FAILURE(Mixed(i));
    }
    rpc.reset();

    // Closed connections are noticed on each process's next turn.
    EXPECT_TRUE(Eventually([&] {
        const std::map<std::string, SUsage> now = Usage();
        for (const auto& [role, usage] : before) {
            if (now.count(role) == 0 || now.at(role).descriptors != usage.descriptors) {
                return false;
            }
        }
        return true;
    }));
    const std::map<std::string, SUsage> after = Usage();
    for (const auto& [role, usage] : before) {
        ASSERT_EQ(after.count(role), 1u) << role;
        EXPECT_EQ(after.at(role).descriptors, usage.descriptors) << role;
        EXPECT_LE(after.at(role).rssKb, usage.rssKb + kRssToleranceKb)
            << role << ": " << usage.rssKb << " kB after the warm-up, " << after.at(role).rssKb << " kB at the end";
    }
}
