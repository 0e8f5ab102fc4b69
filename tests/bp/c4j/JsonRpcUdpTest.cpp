// JSON-RPC over UDP on loopback: one datagram per text and its answer, the errors a bad
// datagram deserves, the multicast group (its own requests heard back, a source filter,
// answers that are no answers) and the unicast client's checks.

#include <gtest/gtest.h>
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "BufferedLog.h"
#include "CJsonRpcMulticast.h"
#include "CUnicastUdp.h"
#include "Emulation.h"
#include "FreePort.h"
#include "JsonText.h"
#include "ThrownMessage.h"

namespace {

// "echo" answers its params; "big" answers a text of the size asked for.
class CTestMethod : public Json::Rpc::CallbackMethod {
public:
    explicit CTestMethod(std::string name) : m_name(std::move(name)) {}
    bool Call(const Json::Value& request, Json::Value& response) override {
        response["jsonrpc"] = "2.0";
        response["id"] = request["id"];
        response["result"] = m_name == "big" ? Json::Value(std::string(request["params"][0].asUInt(), 'x'))
                                             : request["params"];
        return true;
    }
    Json::Value GetDescription() const override { return m_name; }
    std::string GetName() const override { return m_name; }

private:
    std::string m_name;
};

// Sends one datagram from a plain socket and returns the answer ("" when none comes).
std::string Exchange(Json::Rpc::UdpServer& server, const std::string& text) {
    Json::Rpc::UdpClient client("127.0.0.1", server.GetPort());
    EXPECT_TRUE(client.Connect());
    EXPECT_TRUE(client.Send(text));
    server.WaitMessage(1000);
    std::string answer;
    sockaddr_in sender{};
    return client.Recv(answer, sender, 100) ? answer : "";
}

constexpr const char* kGroup = "239.192.0.99";

}  // namespace

TEST(JsonRpcUdp, EachDatagramIsAnsweredOrRefusedWithTheErrorItDeserves) {
    Json::Rpc::UdpServer server("127.0.0.1", 0);
    ASSERT_TRUE(server.Bind());
    server.AddMethod(new CTestMethod("echo"));
    server.AddMethod(new CTestMethod("big"));
    const struct {
        std::string datagram;
        std::string answer;
    } cases[] = {
        {R"({"jsonrpc": "2.0", "method": "echo", "params": [1], "id": 7})", R"({"id":7,"jsonrpc":"2.0","result":[1]})"},
        {R"({"jsonrpc": "2.0", "method": "echo", "params": [1]})", ""},  // a notification
        {R"({"jsonrpc": "2.0", "method": "echo", "id": 1)", R"({"error":{"code":-32700,"message":"Parse error"},"id":null,"jsonrpc":"2.0"})"},
        {std::string(R"({"jsonrpc": "2.0", "method": "echo", "params": [")") + std::string(1500, 'a') + R"("], "id": 2})",
         R"({"error":{"code":-32600,"message":"Datagram larger than 1500 bytes"},"id":null,"jsonrpc":"2.0"})"},
        {R"({"jsonrpc": "2.0", "method": "big", "params": [1465], "id": 3})",
         R"({"error":{"code":-32603,"message":"Response too large for one datagram"},"id":3,"jsonrpc":"2.0"})"},
        {R"({"jsonrpc": "2.0", "method": "none", "id": 4})", R"({"error":{"code":-32601,"message":"Method not found"},"id":4,"jsonrpc":"2.0"})"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(Exchange(server, test.datagram), test.answer) << test.datagram.substr(0, 60);
    }
    EXPECT_EQ(Exchange(server, R"({"jsonrpc": "2.0", "method": "big", "params": [1464], "id": 3})").size(), 1500u);
}

TEST(JsonRpcUdp, TheGroupHearsItsOwnRequestsAndAFilterDropsOtherSenders) {
    if (!CanChooseMulticastInterface()) {
        GTEST_SKIP() << "this system (an emulator) cannot choose a multicast interface (IP_MULTICAST_IF)";
    }
    CBufferedLog log;
    CJsonRpcMulticast group(kGroup, FreePort(), "lo", log);
    EXPECT_EQ(ThrownMessage([&] { group.MulticastRpcSend(SJsonRpcMulticast{"echo", Json::Value(), 1}); }),
              "Uninitialized JSON multicast client");
    EXPECT_EQ(ThrownMessage([&] { group.ProcessMessages(0); }), "Uninitialized JSON multicast server");
    ASSERT_NO_THROW(group.Initialize());
    group.AddMethod(new CTestMethod("echo"));
    const std::string forced = ThrownMessage([&] { group.GetServer().SetReceiveBufferSize(256 * 1024); });
    EXPECT_TRUE(forced == "(no exception)" ||
                forced.rfind("Unable to set the socket's receive buffer size: ", 0) == 0)  // without CAP_NET_ADMIN
        << forced;

    SJsonRpcMulticast request{"echo", J("[42]"), 9};
    ASSERT_TRUE(group.MulticastRpcSend(request));
    group.ProcessMessages(1000);  // loopback: this member's own server has the request
    std::vector<SJsonRpcMulticastResponse> answers;
    group.MulticastRcpRecv(answers, 1000, 1);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].sender, "127.0.0.1");
    EXPECT_EQ(answers[0].GetValue()["result"], J("[42]"));

    // Only 10.1.2.3 may speak: the request is consumed and not answered.
    ASSERT_TRUE(group.MulticastRpcSend(request));
    group.ProcessFilteredMessages("10.1.2.3", 1000);
    EXPECT_EQ(group.GetServer().GetIpFilter(), "");
    answers.clear();
    group.MulticastRcpRecv(answers, 200);
    EXPECT_TRUE(answers.empty());
    group.ClearServerMessages();

    // An answer that starts with a digit (or a NUL) is no JSON-RPC answer.
    testing::internal::CaptureStdout();
    SJsonRpcMulticastResponse digit;
    EXPECT_FALSE(CMulticastUdpClient::ProcessReceivedData(digit, "0", 1));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Ignoring response: 0\n");
    EXPECT_EQ(digit.text, "");

    CJsonRpcMulticast nowhere(kGroup, FreePort(), "nosuch0", log);
    EXPECT_EQ(ThrownMessage([&] { nowhere.Initialize(); }), "Error initializing multicast receive socket");
    EXPECT_TRUE(log.Logged("Error setting the network interface to nosuch0"));
    EXPECT_EQ(nowhere.GetServer().GetSocket(), -1);
}

TEST(JsonRpcUdp, UnicastClientChecksItsAddressAndGivesUpAfterItsTimeout) {
    CUnicastUdpServer server(0);
    server.UnicastBind("lo");
    server.AddMethod(new CTestMethod("echo"));
    CUnicastUdpClient client("127.0.0.1", server.GetPort());
    EXPECT_EQ(ThrownMessage([&] { client.SetIp("10.0.0.256"); }), "Invalid IP Address given : [10.0.0.256]");
    EXPECT_EQ(client.GetAddress(), "127.0.0.1");
    client.UnicastConnect("lo");
    client.SetRecvTimeout(2000);
    std::thread serve([&] { server.WaitMessage(2000); });
    std::string answer;
    EXPECT_TRUE(client.Call(R"({"jsonrpc": "2.0", "method": "echo", "params": [5], "id": 1})", answer));
    serve.join();
    EXPECT_EQ(J(answer)["result"], J("[5]"));

    CUnicastUdpClient unheard("127.0.0.1", FreePort());
    unheard.UnicastConnect("");
    unheard.SetRecvTimeout(50);
    EXPECT_FALSE(unheard.Call(R"({"jsonrpc": "2.0", "method": "echo", "id": 1})", answer));
}

TEST(JsonRpcUdp, AUnicastPortIsNeverSharedWhileGroupMembersShareTheirs) {
    CUnicastUdpServer first(0);
    first.UnicastBind("");
    CUnicastUdpServer second(first.GetPort());
    EXPECT_EQ(ThrownMessage([&] { second.UnicastBind(""); }),
              "Error binding to unicast server socket: " + std::string(strerror(EADDRINUSE)));
    EXPECT_EQ(second.GetSocket(), -1);

    const unsigned short port = FreePort();
    CMulticastUdpServer member(kGroup, port);
    CMulticastUdpServer other(kGroup, port);
    EXPECT_TRUE(member.Bind());
    EXPECT_TRUE(other.Bind());
}
