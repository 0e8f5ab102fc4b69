// The PJLink front-end end to end: the virtual projector started with its PJLink
// front-end on a free port, driven by PJLink clients over real TCP connections from
// 127.0.0.2 and a UDP listener bound to 127.0.0.2 on the controller's notice port, while the same
// controls are read and changed over JSON-RPC.

#include <gtest/gtest.h>
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "crypto/NCrypto.h"
#include "ChildProcess.h"
#include "FreePort.h"
#include "RpcClient.h"
#include "TempRoot.h"

namespace {

sockaddr_in Address(const char* ip, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<unsigned short>(port));
    inet_pton(AF_INET, ip, &address.sin_addr);
    return address;
}

// One PJLink control connection from 127.0.0.2.
class CPjlinkClient {
public:
    explicit CPjlinkClient(int port) : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_in own = Address("127.0.0.2", 0);
        const sockaddr_in server = Address("127.0.0.1", port);
        m_connected = bind(m_fd, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 &&
                      connect(m_fd, reinterpret_cast<const sockaddr*>(&server), sizeof server) == 0;
    }
    ~CPjlinkClient() { close(m_fd); }

    void Send(const std::string& bytes) { send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    // The next line without its CR; "" after 10 s, "<closed>" when the server closed.
    std::string Line() {
        for (;;) {
            const size_t end = m_buffer.find('\r');
            if (end != std::string::npos) {
                const std::string line = m_buffer.substr(0, end);
                m_buffer.erase(0, end + 1);
                return line;
            }
            pollfd watched{m_fd, POLLIN, 0};
            char chunk[512];
            if (poll(&watched, 1, 10000) != 1) {
                return "";
            }
            const ssize_t got = recv(m_fd, chunk, sizeof chunk, 0);
            if (got <= 0) {
                return "<closed>";
            }
            m_buffer.append(chunk, static_cast<size_t>(got));
        }
    }
    std::string Ask(const std::string& command) {
        Send(command + "\r");
        return Line();
    }
    bool IsConnected() const { return m_connected; }

private:
    int m_fd;
    bool m_connected = false;
    std::string m_buffer;
};

class CPjlinkFrontendTest : public ::testing::Test {
protected:
    CPjlinkFrontendTest() {
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        port = FreePort();
        noticePort = FreePort();
        listener = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const sockaddr_in own = Address("127.0.0.2", noticePort);
        bound = bind(listener, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0;
    }
    ~CPjlinkFrontendTest() override {
        for (pid_t pid : {frontend, projector}) {
            if (pid > 0) {
                kill(pid, SIGTERM);
                WaitForExit(pid, 15);
            }
        }
        close(listener);
    }

    // Starts the projector with the shipped configuration made quick to warm up and cool
    // down, one class 2 input added, link-up notices sent to 127.0.0.2; with `ownFrontend`
    // the projector runs none and the test starts one with a short idle time.
    void Start(bool ownFrontend = false) {
        Json::Value config = J(CTempRoot::ReadFile(PROJ_SOURCE_DIR "/config/vprojector.json"));
        config["power"] = J(R"({"cooldownS": 3, "warmupS": 3})");
        config["pjlink"]["linkUpAddress"] = "127.0.0.2";
        config["pjlink"]["noticePort"] = noticePort;
        config["pjlink"]["input"] = J(R"({"code": "INP", "inputs": [{"number": "31", "value": 1, "name": "HDMI"},
            {"number": "32", "value": 2}, {"number": "5A", "value": 4, "name": "Service input"},
            {"number": "33", "value": 3, "name": "SDI"}]})");
        config["pjlink"]["errors"] = J(R"({"lamp": ["LAMP"], "other": ["SYST"]})");
        root.WriteFile("/etc/menu.json", CTempRoot::ReadFile(PROJ_SOURCE_DIR "/config/menu.json"));
        const std::string file = root.WriteFile("/test.json", Json::writeString(Json::StreamWriterBuilder(), config));
        std::vector<std::string> arguments = {VPROJECTOR,       "--root",         root.GetDir(), "--config",
                                              file,             "--ascii-port",   "0",           "--jsonrpc-port",
                                              "0",              "--unicast-port", "0",           "--pjlink-port",
                                              std::to_string(port), "--no-serial"};
        if (ownFrontend) {
            arguments.push_back("--no-pjlink");
        }
        const std::string line = SpawnUntilReady(arguments, root.Path("/vprojector.log"), projector, 20);
        ASSERT_GT(projector, 0);
        int pjlink = -1;
        ASSERT_EQ(sscanf(line.c_str(), "ready ascii=%*d jsonrpc=%d ipc=%*s unicast=%*d pjlink=%d", &jsonPort, &pjlink),
                  2)
            << line << Log();
        if (ownFrontend) {
            frontend = Spawn({PJLINK_FRONTEND, "--root", root.GetDir(), "--config", file, "--port",
                              std::to_string(port), "--idle-ms", "1000"},
                             open("/dev/null", O_WRONLY | O_CLOEXEC), root.Path("/pjlink.log"));
            ASSERT_TRUE(Eventually([&] { return CPjlinkClient(port).Line() == "PJLINK 0"; })) << Log();
        } else {
            EXPECT_EQ(pjlink, port);
        }
        rpc = std::make_unique<CRpc>(jsonPort);
    }

    // The next datagram on the listener that starts with `prefix` ("" after 10 s).
    std::string Datagram(const std::string& prefix) {
        for (;;) {
            pollfd watched{listener, POLLIN, 0};
            char text[256];
            const ssize_t got = poll(&watched, 1, 10000) == 1 ? recv(listener, text, sizeof text, 0) : 0;
            const std::string datagram(text, static_cast<size_t>(std::max<ssize_t>(got, 0)));
            if (datagram.empty() || datagram.rfind(prefix, 0) == 0) {
                return datagram;
            }
        }
    }
    int Control(const std::string& code) {
        return rpc->Call("control:get", R"({"code": ")" + code + R"("})")["result"]["value"].asInt();
    }
    std::string Log() const { return LogTail(root.Path("/vprojector.log")); }

    CTempRoot root;
    int port = 0;
    int noticePort = 0;  // the controller's, where the listener hears
    int listener = -1;
    bool bound = false;
    pid_t projector = -1;
    pid_t frontend = -1;
    int jsonPort = 0;
    std::unique_ptr<CRpc> rpc;
};

TEST_F(CPjlinkFrontendTest, EveryCommandOfBothClassesActsOnTheSameControls) {
    ASSERT_TRUE(bound);
    ASSERT_NO_FATAL_FAILURE(Start());
    CPjlinkClient client(port);
    ASSERT_TRUE(client.IsConnected());
    EXPECT_EQ(client.Line(), "PJLINK 0");
    EXPECT_EQ(rpc->Call("sim:setLampUsage", R"({"position": "A1", "onTimeS": 7200})")["result"], J("{}"));
    struct SCase {
        const char* command;
        const char* answer;
    };
    const SCase kCases[] = {
        {"%1POWR ?", "%1POWR=0"},           {"%1LAMP ?", "%1LAMP=2 0"},         {"%1INST ?", "%1INST=31 32 33"},
        {"%2INST ?", "%2INST=31 32 5A 33"}, {"%1INPT 5A", "%1INPT=ERR2"},       {"%2INPT 5A", "%2INPT=OK"},
        {"%1INPT ?", "%1INPT=ERR3"},        {"%2INPT ?", "%2INPT=5A"},          {"%2INPT 33", "%2INPT=ERR3"},
        {"%1INPT 99", "%1INPT=ERR2"},       {"%1INPT 31", "%1INPT=OK"},         {"%1INPT ?", "%1INPT=31"},
        {"%1AVMT ?", "%1AVMT=30"},          {"%1AVMT 11", "%1AVMT=OK"},         {"%1AVMT ?", "%1AVMT=11"},
        {"%1AVMT 21", "%1AVMT=OK"},         {"%1AVMT ?", "%1AVMT=31"},          {"%1AVMT 30", "%1AVMT=OK"},
        {"%1AVMT ?", "%1AVMT=30"},          {"%1AVMT 40", "%1AVMT=ERR2"},       {"%1ERST ?", "%1ERST=000000"},
        {"%1ERST 0", "%1ERST=ERR2"},        {"%1NAME ?", "%1NAME=Virtual Projector"},
        {"%1INF1 ?", "%1INF1=Virtual"},     {"%1INF2 ?", "%1INF2=vprojector"},  {"%1INFO ?", "%1INFO=simulated hardware"},
        {"%1CLSS ?", "%1CLSS=2"},           {"%2SNUM ?", "%2SNUM=VP-000001"},   {"%2SVER ?", "%2SVER=1.0.0"},
        {"%2INNM ?5A", "%2INNM=Service input"},       {"%2INNM ?32", "%2INNM=Input 32"},  {"%2INNM ?11", "%2INNM=ERR2"},
        {"%2IRES ?", "%2IRES=1920x1080"},   {"%2RRES ?", "%2RRES=4096x2160"},   {"%2FILT ?", "%2FILT=0"},
        {"%2RLMP ?", "%2RLMP=SIM-LAMP"},    {"%2RFIL ?", "%2RFIL=SIM-FILTER"},  {"%2SVOL 1", "%2SVOL=OK"},
        {"%2SVOL 1", "%2SVOL=OK"},          {"%2MVOL 0", "%2MVOL=OK"},          {"%2SVOL ?", "%2SVOL=ERR2"},
        {"%2FREZ 1", "%2FREZ=OK"},          {"%2FREZ ?", "%2FREZ=1"},           {"%2FREZ 2", "%2FREZ=ERR2"},
        {"%1FREZ ?", "%1FREZ=ERR1"},        {"%1SNUM ?", "%1SNUM=ERR1"},        {"%1ABCD ?", "%1ABCD=ERR1"},
        {"%3POWR ?", "%3POWR=ERR1"},        {"%1POWR", "%1POWR=ERR1"},          {"%1POWR 2", "%1POWR=ERR2"},
        {"%1POWR 1", "%1POWR=OK"},          {"%1POWR ?", "%1POWR=3"},           {"%1LAMP ?", "%1LAMP=2 1"},
    };
    for (const SCase& test : kCases) {
        EXPECT_EQ(client.Ask(test.command), test.answer) << test.command;
    }
    EXPECT_EQ(Control("INP"), 1);
    EXPECT_EQ(Control("VOL"), 52);
    EXPECT_EQ(Control("MIC"), 49);
    EXPECT_EQ(Control("FRZ"), 1);

    // Warm-up ends, power off cools down and refuses power on, then stands by.
    EXPECT_TRUE(Eventually([&] { return client.Ask("%1POWR ?") == "%1POWR=1"; })) << Log();
    EXPECT_EQ(client.Ask("%1POWR 0"), "%1POWR=OK");
    EXPECT_EQ(client.Ask("%1POWR ?"), "%1POWR=2");
    EXPECT_EQ(client.Ask("%1POWR 1"), "%1POWR=ERR3");
    EXPECT_EQ(Control("POW"), 0);
    EXPECT_TRUE(Eventually([&] { return client.Ask("%1POWR ?") == "%1POWR=0"; })) << Log();

    // Status groups: a warning on the lamp, an error on the system.
    rpc->Call("sim:setStatus", R"({"group": "LAMP", "idx": 2, "severity": 1})");
    rpc->Call("sim:setStatus", R"({"group": "SYST", "idx": 1, "severity": 3})");
    EXPECT_EQ(client.Ask("%2ERST ?"), "%2ERST=010002");
}

TEST_F(CPjlinkFrontendTest, ALampWhoseMemoryCannotBeReadIsAProjectorFailure) {
    root.MakeDir("/var/sim/lamp/A1.tag");  // the tag image cannot be opened: the lamp is left out
    ASSERT_NO_FATAL_FAILURE(Start());
    CPjlinkClient client(port);
    EXPECT_EQ(client.Line(), "PJLINK 0");
    EXPECT_EQ(client.Ask("%1LAMP ?"), "%1LAMP=ERR4");
    EXPECT_EQ(client.Ask("%2RLMP ?"), "%2RLMP=ERR4");
    EXPECT_EQ(client.Ask("%1POWR ?"), "%1POWR=0");
}

TEST_F(CPjlinkFrontendTest, SearchLinkUpAndChangesMadeElsewhereAreAnnouncedByUdp) {
    ASSERT_TRUE(bound);
    ASSERT_NO_FATAL_FAILURE(Start());
    EXPECT_EQ(Datagram("%2LKUP"), "%2LKUP=00:00:00:00:00:00\r");

    const std::string search = "%2SRCH\r";
    const sockaddr_in server = Address("127.0.0.1", port);
    sendto(listener, search.data(), search.size(), 0, reinterpret_cast<const sockaddr*>(&server), sizeof server);
    EXPECT_EQ(Datagram("%2ACKN"), "%2ACKN=00:00:00:00:00:00\r");

    // Changes made over JSON-RPC reach the controller heard from last.
    rpc->Call("control:set", R"({"code": "INP", "value": 4})");
    EXPECT_EQ(Datagram("%2INPT"), "%2INPT=5A\r");
    rpc->Call("control:set", R"({"code": "POW", "value": 1})");
    EXPECT_EQ(Datagram("%2POWR"), "%2POWR=3\r");
    EXPECT_EQ(Datagram("%2POWR"), "%2POWR=1\r");
    rpc->Call("sim:setStatus", R"({"group": "LAMP", "idx": 1, "severity": 2})");
    EXPECT_EQ(Datagram("%2ERST"), "%2ERST=020000\r");
}

TEST_F(CPjlinkFrontendTest, PasswordDigestRightWrongOrUnsafeFile) {
    ASSERT_NO_FATAL_FAILURE(Start());
    const std::string password = root.WriteFile("/etc/projector/pjlink.password", "s3cret\n");
    ASSERT_EQ(chmod(password.c_str(), 0600), 0);
    struct SCase {
        const char* name;
        mode_t mode;
        const char* secret;  // what the client hashes; null: no digest at all
        const char* answer;
    };
    const SCase kCases[] = {
        {"right", 0600, "s3cret", "%1POWR=0"},
        {"wrong", 0600, "secret", "PJLINK ERRA"},
        {"missing", 0600, nullptr, "PJLINK ERRA"},
        {"readable by others", 0644, "s3cret", "PJLINK ERRA"},  // no guess: not counted
        {"wrong again", 0600, "s3cr3t", "PJLINK ERRA"},
        {"right, but after three wrong ones", 0600, "s3cret", "PJLINK ERRA"},
    };
    for (const SCase& test : kCases) {
        ASSERT_EQ(chmod(password.c_str(), test.mode), 0);
        CPjlinkClient client(port);
        const std::string greeting = client.Line();
        ASSERT_EQ(greeting.rfind("PJLINK 1 ", 0), 0u) << greeting;
        const std::string random = greeting.substr(9);
        EXPECT_EQ(random.size(), 8u);
        const std::string digest = test.secret ? NCrypto::Md5Hex(random + test.secret) : "";
        EXPECT_EQ(client.Ask(digest + "%1POWR ?"), test.answer) << test.name;
        if (std::string(test.answer) == "PJLINK ERRA") {
            EXPECT_EQ(client.Line(), "<closed>") << test.name;
        } else {
            EXPECT_EQ(client.Ask("%1CLSS ?"), "%1CLSS=2") << "later commands carry no digest";
        }
    }
    std::remove(password.c_str());
    EXPECT_EQ(CPjlinkClient(port).Line(), "PJLINK 0");
    const std::string log = CTempRoot::ReadFile(root.Path("/vprojector.log"));
    for (const char* said : {"PJLink: no password file /etc/projector/pjlink.password",
                             "PJLink: wrong password from 127.0.0.2 (3 in a row)",
                             "PJLink: connection from 127.0.0.2 refused unchecked"}) {
        EXPECT_NE(log.find(said), std::string::npos) << said << Log();
    }
}

TEST_F(CPjlinkFrontendTest, ASplitLineManyClientsIdleAndDeafOnes) {
    ASSERT_NO_FATAL_FAILURE(Start(true));
    {
        CPjlinkClient client(port);
        EXPECT_EQ(client.Line(), "PJLINK 0");
        client.Send("%1CL");  // the session frames lines; the server keeps it between reads
        usleep(2000);
        EXPECT_EQ(client.Ask("SS ?"), "%1CLSS=2");
    }

    // As many clients as are served at once, each answered; one more is closed.
    std::vector<std::unique_ptr<CPjlinkClient>> clients;
    for (size_t i = 0; i < 16; ++i) {
        clients.push_back(std::make_unique<CPjlinkClient>(port));
        EXPECT_EQ(clients.back()->Line(), "PJLINK 0") << i;
    }
    EXPECT_EQ(CPjlinkClient(port).Line(), "<closed>");
    for (auto& client : clients) {
        EXPECT_EQ(client->Ask("%1INPT ?"), "%1INPT=31");
    }
    clients.clear();

    // A client that sends without ever reading is closed; the others go on being served.
    CPjlinkClient deaf(port);
    CPjlinkClient other(port);
    EXPECT_EQ(other.Line(), "PJLINK 0");
    std::string flood;
    for (int i = 0; i < 500; ++i) {
        flood += "%1INF2 ?\r";
    }
    for (int round = 0; round < 200; ++round) {
        deaf.Send(flood);
    }
    EXPECT_EQ(other.Ask("%1CLSS ?"), "%1CLSS=2");

    // Silence for the idle time closes a connection.
    EXPECT_EQ(other.Line(), "<closed>");
}

}  // namespace
