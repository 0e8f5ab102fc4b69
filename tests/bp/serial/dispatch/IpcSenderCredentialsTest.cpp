// The access level an IPC sender states is capped by what the kernel says of the sender:
// a process of another user (the test forks one and makes it "nobody") claiming level 6
// is refused what needs more than the policy gives its user, may still do what level 1
// may, and gets its level once the policy lists it.

#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <grp.h>
#include <unistd.h>

#include <cstring>

#include "ControllerFixture.h"
#include "JsonText.h"
#include "ThrownMessage.h"
#include "dispatch/CIpcAccessPolicy.h"

namespace {

class CIpcSenderCredentialsTest : public CControllerFixture {
protected:
    // Sends the message with the reply-wanted flag from a child process running as the
    // user, and returns the controller's reply.
    CIpcMessage SendAs(const passwd& user, CIpcMessage message) {
        message.SetFlags(MSG_FLAG_REPLY_WANTED);
        message.SetSequence(++m_sequence);
        unsigned char* bytes = nullptr;
        const int size = message.SerializeMessage(bytes);
        // Everything the child needs is made before the fork: it only makes system calls.
        const std::string own = root.Path("/var/run/ui/other_user_" + std::to_string(m_sequence));
        sockaddr_un from{};
        from.sun_family = AF_UNIX;
        strncpy(from.sun_path, own.c_str(), sizeof from.sun_path - 1);
        sockaddr_un to{};
        to.sun_family = AF_UNIX;
        strncpy(to.sun_path, root.Path(kControllerSocket).c_str(), sizeof to.sun_path - 1);
        int out[2];
        EXPECT_EQ(pipe(out), 0);
        const pid_t child = fork();
        if (child == 0) {
            close(out[0]);
            unsigned char reply[CIpcMessage::kMaxMessageSize];
            const timeval timeout{5, 0};
            const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
            const bool sent = setgroups(0, nullptr) == 0 && setgid(user.pw_gid) == 0 && setuid(user.pw_uid) == 0 &&
                              bind(fd, reinterpret_cast<const sockaddr*>(&from), sizeof from) == 0 &&
                              setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) == 0 &&
                              sendto(fd, bytes, static_cast<size_t>(size), 0, reinterpret_cast<const sockaddr*>(&to),
                                     sizeof to) == size;
            const ssize_t got = sent ? recv(fd, reply, sizeof reply, 0) : -1;
            if (got > 0 && write(out[1], reply, static_cast<size_t>(got)) != got) {
                _exit(2);
            }
            unlink(from.sun_path);
            _exit(got > 0 ? 0 : 1);
        }
        close(out[1]);
        unsigned char reply[CIpcMessage::kMaxMessageSize];
        pollfd ready{out[0], POLLIN, 0};
        const ssize_t got = poll(&ready, 1, 10000) == 1 ? read(out[0], reply, sizeof reply) : -1;
        close(out[0]);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0) << "the child could not send as " << user.pw_name;
        CIpcMessage answer;
        EXPECT_GT(got, 0);
        if (got > 0) {
            answer.DeserializeMessage(reply, static_cast<unsigned>(got), "");
        }
        return answer;
    }
    CIpcMessage Set(const std::string& code, int value, int statedLevel) {
        CIpcMessage message = Message(code);
        message.AddArg(0, value, PARM_NUMBER);
        message.AddArg(CIpcEventDispatcher::kAccessLevelParm, statedLevel, PARM_NUMBER);
        return message;
    }

private:
    uint32_t m_sequence = 0;
};

}  // namespace

TEST_F(CIpcSenderCredentialsTest, AnotherUserIsHeldToWhatThePolicyGivesItWhateverItStates) {
    const passwd* nobody = getpwnam("nobody");
    if (geteuid() != 0 || !nobody) {
        GTEST_SKIP() << "sending as another user needs root (to setuid to nobody) and a user nobody";
    }
    const passwd user = *nobody;
    // The other user must reach the sockets: the folders and the controller's socket open to all.
    ASSERT_EQ(chmod(root.GetDir().c_str(), 0755), 0);
    ASSERT_EQ(chmod(root.Path("/var/run/ui").c_str(), 0777), 0);
    ASSERT_EQ(chmod(root.Path(kControllerSocket).c_str(), 0666), 0);
    controller->RunOnController([&] {
        controls.push_back(std::make_unique<CProjCon>(DT_INTEGER, dispatcher, proxy, "PUB", false, 0, 10, 0,
                                                      ACCESS_USER, 0, 0, 0, false));
    });

    EXPECT_EQ(ErrorOf(SendAs(user, Set("FAC", 3, ACCESS_PROTECTED))), ERR_INVALID_ACCESS_GROUP);
    EXPECT_EQ(ErrorOf(SendAs(user, Set("BRI", 60, ACCESS_PROTECTED))), ERR_INVALID_ACCESS_GROUP);
    const CIpcMessage allowed = SendAs(user, Set("PUB", 7, ACCESS_PROTECTED));
    EXPECT_EQ(ErrorOf(allowed), ERR_NONE);
    EXPECT_EQ(Arg(allowed, 0), "7");
    EXPECT_TRUE(Logged("IPC sender uid " + std::to_string(user.pw_uid) + " (pid "));
    // The controller's own user (this process) states what it likes.
    int value = 60;
    EXPECT_EQ(link->SetValue(ACCESS_PROTECTED, "BRI", "", value, false), ERR_NONE);

    controller->RunOnController([&] {
        controller->GetIpc().SetAccessPolicy(
            CIpcAccessPolicy::FromJson(J(R"({"users": {")" + std::string(user.pw_name) + R"(": 5}})")));
    });
    EXPECT_EQ(ErrorOf(SendAs(user, Set("FAC", 3, ACCESS_PROTECTED))), ERR_NONE);
    EXPECT_EQ(ErrorOf(SendAs(user, Set("FAC", 4, ACCESS_USER))), ERR_INVALID_ACCESS_GROUP) << "the lower level counts";
}

TEST(CIpcAccessPolicy, NamesAreLookedUpAndEachWrongMemberIsNamed) {
    const struct {
        const char* policy;
        const char* said;
    } cases[] = {
        {"[1]", "\"ipcAccess\" must be an object"},
        {R"({"level": 2})", "unknown member \"level\""},
        {R"({"default": 7})", "\"default\" must be a level 1..6"},
        {R"({"users": {"no-such-user-here": 2}})", "no user \"no-such-user-here\""},
        {R"({"groups": {"no-such-group-here": 2}})", "no group \"no-such-group-here\""},
        {R"({"groups": ["root"]})", "\"groups\" must be an object of names and levels"},
    };
    for (const auto& bad : cases) {
        const std::string message = ThrownMessage([&] { CIpcAccessPolicy::FromJson(J(bad.policy)); });
        EXPECT_NE(message.find(bad.said), std::string::npos) << bad.policy << ": " << message;
    }
    const group* rootGroup = getgrgid(0);
    ASSERT_NE(rootGroup, nullptr);
    CIpcAccessPolicy policy =
        CIpcAccessPolicy::FromJson(J(R"({"groups": {")" + std::string(rootGroup->gr_name) + R"(": 4}, "default": 2})"));
    EXPECT_EQ(policy.Cap(ucred{1, 0, 0}), ACCESS_PROTECTED);  // root
    EXPECT_EQ(policy.Cap(ucred{1, 54321, 0}), ACCESS_ADVANCED_SERVICE);  // by its gid
    EXPECT_EQ(policy.Cap(ucred{1, 54322, 54322}), ACCESS_OPERATOR);
}
