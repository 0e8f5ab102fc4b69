// The serial_frontend executable end to end: started as a child process under the test's
// runtime root against a real controller, reached over TCP and a pseudo-terminal.

#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>

#include <filesystem>
#include <string>

#include "ChildProcess.h"
#include "SerialPortsFixture.h"

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
        const std::string output = root.Path("/frontend.log");
        const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        child = Spawn({SERIAL_FRONTEND, "--root", root.GetDir(), "--log-level", "6"}, out, output);
        close(out);
        ASSERT_GT(child, 0);
        Eventually([&] { return (tcp = ConnectLocal(serverPort)) >= 0 || waitpid(child, nullptr, WNOHANG) != 0; });
        ASSERT_GE(tcp, 0) << Output();
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

TEST_F(CSerialFrontendTest, ForwardsRegisteredChangesAndEndsCleanlyOnSigterm) {
    ASSERT_NO_FATAL_FAILURE(Launch());
    WriteAll(tcp, "(NOT \"BRI\")(BRI?)");
    EXPECT_EQ(ReadUntil(tcp, "(BRI!050)"), "(BRI!050)") << Output();
    SetControl("BRI", "", 33);
    EXPECT_EQ(ReadUntil(tcp, "(BRI!033)"), "(BRI!033)");

    EXPECT_EQ(FrontendSockets(), 3u);
    ASSERT_EQ(kill(child, SIGTERM), 0);
    EXPECT_EQ(WaitForExit(child, 10), 0) << Output();
    child = -1;
    EXPECT_TRUE(ClosedByPeer(tcp));
    EXPECT_EQ(FrontendSockets(), 0u);
}
