// The serial_frontend executable end to end: started as a child process under the test's
// runtime root against a real controller, reached over TCP and a pseudo-terminal.

#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Emulation.h"
#include "SerialPortsFixture.h"

extern char** environ;

namespace {

class CSerialFrontendTest : public CSerialPortsFixture {
protected:
    ~CSerialFrontendTest() override {
        if (child > 0) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
        if (tcp >= 0) {
            close(tcp);
        }
    }

    // Starts the front-end and connects to its server once it listens.
    void Launch() {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, root.Path("/frontend.log").c_str(), O_WRONLY | O_CREAT, 0600);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        std::vector<std::string> command = EmulatedCommand({SERIAL_FRONTEND, "--root", root.GetDir(), "--log-level", "6"});
        std::vector<char*> argv;
        for (std::string& argument : command) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        ASSERT_EQ(posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);

        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while ((tcp = Connect(serverPort)) < 0 && std::chrono::steady_clock::now() < deadline) {
            ASSERT_EQ(waitpid(child, nullptr, WNOHANG), 0) << Output();
            usleep(20000);
        }
        ASSERT_GE(tcp, 0) << Output();
    }
    // The exit status, or -1 when the child did not end within 10 s.
    int WaitForExit() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        int status = 0;
        while (std::chrono::steady_clock::now() < deadline) {
            if (waitpid(child, &status, WNOHANG) == child) {
                child = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            }
            usleep(20000);
        }
        return -1;
    }
    // The front-end's socket files: its event link's two and its error socket.
    size_t FrontendSockets() const {
        size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(root.Path("/var/run/ui"))) {
            count += entry.path().filename().string().find("serial_") != std::string::npos ? 1u : 0u;
        }
        return count;
    }
    std::string Output() const { return CTempRoot::ReadFile(root.Path("/frontend.log")); }

    pid_t child = -1;
    int tcp = -1;
};

}  // namespace

TEST_F(CSerialFrontendTest, AnswersOverTcpAndSerialAndReportsChecksumErrors) {
    ASSERT_NO_FATAL_FAILURE(Launch());
    WriteAll(tcp, "(BRI 075)(BRI?)");
    EXPECT_EQ(ReadUntil(tcp, "(BRI!075)"), "(BRI!075)") << Output();

    const std::string checksumError = "(65535 ERR00010 \"Syntax Error: checksum failed: 5\")";
    WriteAll(tcp, "(&BRI? 5)");
    EXPECT_EQ(ReadUntil(tcp, checksumError), checksumError);
    WriteAll(tcp, "(&BRI? 098)");  // the byte sum of "&BRI? " modulo 256
    EXPECT_EQ(ReadUntil(tcp, ")"), "(&BRI!075 224)");

    WriteAll(prta.master, "(BRI?)");
    EXPECT_EQ(ReadUntil(prta.master, "(BRI!075)"), "(BRI!075)");
}

TEST_F(CSerialFrontendTest, ForwardsRegisteredChangesAndEndsCleanlyOnSigterm) {
    ASSERT_NO_FATAL_FAILURE(Launch());
    WriteAll(tcp, "(NOT \"BRI\")(BRI?)");
    EXPECT_EQ(ReadUntil(tcp, "(BRI!050)"), "(BRI!050)") << Output();
    SetControl("BRI", "", 33);
    EXPECT_EQ(ReadUntil(tcp, "(BRI!033)"), "(BRI!033)");

    EXPECT_EQ(FrontendSockets(), 3u);
    ASSERT_EQ(kill(child, SIGTERM), 0);
    EXPECT_EQ(WaitForExit(), 0) << Output();
    EXPECT_TRUE(ClosedByPeer(tcp));
    EXPECT_EQ(FrontendSockets(), 0u);
}
