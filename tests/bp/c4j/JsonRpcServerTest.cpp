// The JSON-RPC API server over real TCP on the loopback: framing at NULs, the built-in
// methods, client identifiers, keyed notifications, and how misbehaving or vanished
// clients are dropped without disturbing the others.

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "C4jFixture.h"

namespace {

class JsonRpcServerTest : public CC4jFixture {
protected:
    // Bytes exactly as given, in one send() (one segment on the loopback).
    static void SendRaw(STestClient& client, const std::string& bytes) {
        ASSERT_EQ(send(client.tcp->GetSocket(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

    // Sends without ever blocking the test, turning the loop while the socket is full;
    // stops early when the server has closed the connection.
    void Pump(STestClient& client, const std::string& bytes) {
        size_t done = 0;
        TurnUntil([&] {
            while (done < bytes.size()) {
                const ssize_t sent = send(client.tcp->GetSocket(), bytes.data() + done,
                                          std::min<size_t>(bytes.size() - done, 65536), MSG_DONTWAIT | MSG_NOSIGNAL);
                if (sent < 0) {
                    return errno != EAGAIN && errno != EWOULDBLOCK;
                }
                done += static_cast<size_t>(sent);
            }
            return true;
        });
    }

    static std::string GetBig(int id) {
        return R"({"jsonrpc":"2.0","method":"get","params":["BIG"],"id":)" + std::to_string(id) + "}";
    }
};

const char* const kVersion = R"({"jsonrpc":"2.0","method":"getC4JVersion","id":)";

}  // namespace

TEST_F(JsonRpcServerTest, RequestsAreFramedAtNulsWhateverTheSegments) {
    TClient client = Connect();
    // Two requests in one segment are answered in order.
    SendRaw(*client, std::string(kVersion) + "1}" + '\0' + R"({"jsonrpc":"2.0","method":"getModules","id":2})" + '\0');
    EXPECT_EQ(Next(*client)["id"], 1);
    EXPECT_EQ(Next(*client)["id"], 2);
    // One request split over three segments gets one reply.
    for (const char* part : {R"({"jsonrpc":)", R"("2.0","method":"getC4J)"}) {
        SendRaw(*client, part);
        loop->RunOnce(10);
    }
    SendRaw(*client, std::string(R"(Version","id":3})") + '\0');
    EXPECT_EQ(Next(*client), J(R"({"jsonrpc":"2.0","id":3,"result":2})"));
    EXPECT_TRUE(Quiet(*client));
    // A bare number and an empty request are parse errors.
    SendRaw(*client, std::string("42") + '\0' + '\0');
    const Json::Value parseError = J(R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"Parse error"}})");
    EXPECT_EQ(Next(*client), parseError);
    EXPECT_EQ(Next(*client), parseError);
}

TEST_F(JsonRpcServerTest, NotificationsAreNeverAnsweredAloneOrInABatch) {
    TClient client = Connect();
    client->tcp->Send(R"({"jsonrpc":"2.0","method":"getC4JVersion"})");
    client->tcp->Send(R"({"jsonrpc":"2.0","method":"noSuchMethod"})");
    EXPECT_EQ(Exchange(*client, std::string(kVersion) + "8}")["id"], 8);
    EXPECT_TRUE(client->notes.empty());
    const Json::Value answer = Exchange(*client, std::string("[") + kVersion + R"(1},)" +
                                                     R"({"jsonrpc":"2.0","method":"getC4JVersion"},)" +
                                                     R"({"jsonrpc":"2.0","method":"control:version","id":2}])");
    EXPECT_EQ(answer, J(R"([{"jsonrpc":"2.0","id":1,"result":2},
                            {"jsonrpc":"2.0","id":2,"result":{"version":1}}])"));
}

TEST_F(JsonRpcServerTest, ReplyIsExactlyTheCompactTextAndItsNul) {
    TClient client = Connect();
    client->tcp->Send(std::string(kVersion) + "7}");
    std::string received;
    TurnUntil([&] {
        char buffer[256];
        const ssize_t got = recv(client->tcp->GetSocket(), buffer, sizeof buffer, MSG_DONTWAIT);
        if (got > 0) {
            received.append(buffer, static_cast<size_t>(got));
        }
        return received.find('\0') != std::string::npos;
    });
    EXPECT_EQ(received, std::string(R"({"id":7,"jsonrpc":"2.0","result":2})") + '\0');
}

TEST_F(JsonRpcServerTest, ModulesAreListedInNameOrderWithTheirVersions) {
    TClient client = Connect();
    EXPECT_EQ(Result(*client, "getModules"), J(R"([{"module":"control","version":1},{"module":"menu","version":1},
                                                    {"module":"status","version":1}])"));
}

TEST_F(JsonRpcServerTest, EveryConnectionGetsTheNextClientIdAndReconnectingGetsANewOne) {
    const unsigned int first = SJsonRpcClient::mGlobalId;
    TClient a = Connect();  // Connect() waits for the id it expects
    EXPECT_FALSE(server.IsClientConnected(first + 1));
    TClient b = Connect();
    EXPECT_TRUE(log.Logged("[ID:" + std::to_string(first + 1) + "]"));

    a.reset();
    ASSERT_TRUE(TurnUntil([&] { return !server.IsClientConnected(first); }));
    a = Connect();
    EXPECT_EQ(a->id, first + 2);
    EXPECT_FALSE(server.IsClientConnected(first));
    EXPECT_EQ(server.GetClientCount(), 2u);

    EXPECT_EQ(server.GetClientAccessLevel(first), ACCESS_USER);
    EXPECT_FALSE(server.SetClientAccessLevel(first, ACCESS_FACTORY));
    EXPECT_TRUE(server.SetClientAccessLevel(first + 2, ACCESS_FACTORY));
    EXPECT_EQ(server.GetClientAccessLevel(first + 2), ACCESS_FACTORY);
    EXPECT_EQ(server.GetClientAccessLevel(first + 1), ACCESS_USER);
}

TEST_F(JsonRpcServerTest, KeyedPushSendsOnlyTheLatestMessageOnceTheFirstDeadlinePasses) {
    TClient client = Connect();
    EXPECT_EQ(server.GetNextDeadlineMs(), -1);
    const std::list<std::string> to = {Address(client->id)};
    server.NotifyPush("key", SJsonNotify{R"({"jsonrpc":"2.0","method":"tick","params":[1]})", to, ""}, 100);
    clock.AdvanceMs(60);
    server.NotifyPush("key", SJsonNotify{R"({"jsonrpc":"2.0","method":"tick","params":[2]})", to, ""}, 100);
    EXPECT_EQ(server.GetNextDeadlineMs(), 40);  // the second push does not restart the delay
    clock.AdvanceMs(39);
    EXPECT_TRUE(Quiet(*client));

    clock.AdvanceMs(1);
    loop->RunOnce(0);
    EXPECT_EQ(Next(*client), J(R"({"jsonrpc":"2.0","method":"tick","params":[2]})"));
    EXPECT_TRUE(Quiet(*client));
    EXPECT_EQ(server.GetNextDeadlineMs(), -1);
}

TEST_F(JsonRpcServerTest, RequestWithoutEndPastOneMebibyteClosesOnlyThatClient) {
    TClient flooder = Connect();
    TClient other = Connect();
    Pump(*flooder, std::string(CJsonRpcTcpServer::kMaxRequestBytes + 64 * 1024, ' '));
    ASSERT_TRUE(TurnUntil([&] { return !server.IsClientConnected(flooder->id); }));
    EXPECT_TRUE(log.Logged("request of more than 1048576 bytes without its end"));
    EXPECT_EQ(Result(*other, "getC4JVersion"), 2);
}

TEST_F(JsonRpcServerTest, ClientThatNeverReadsIsClosedOnceItsUnsentRepliesPassTheCap) {
    TClient reader = Connect();
    TClient deaf = Connect();
    int sent = 0;
    // 64 KiB per reply: the cap plus whatever the kernel buffers is reached well before.
    while (server.IsClientConnected(deaf->id) && sent < 1000) {
        deaf->tcp->Send(GetBig(++sent));
        loop->RunOnce(10);
        if (sent % 40 == 0) {
            EXPECT_EQ(Result(*reader, "getC4JVersion"), 2) << "after " << sent << " requests";
        }
    }
    EXPECT_FALSE(server.IsClientConnected(deaf->id));
    EXPECT_GT(static_cast<size_t>(sent) * kBigTextSize, CJsonRpcTcpServer::kMaxQueuedBytes);
    EXPECT_TRUE(log.Logged("more than 4194304 bytes of replies unsent"));
    EXPECT_EQ(Result(*reader, "get", R"(["BIG"])").asString().size(), kBigTextSize);
}

TEST_F(JsonRpcServerTest, ClientVanishingMidReplyDoesNotDisturbOthers) {
    TClient other = Connect();
    TClient leaving = Connect();
    const unsigned int leavingId = leaving->id;
    for (int id = 1; id <= 30; ++id) {
        leaving->tcp->Send(GetBig(id));
        loop->RunOnce(10);
    }
    leaving.reset();  // unread replies make the close a reset
    EXPECT_EQ(Result(*other, "get", R"(["BRI"])"), 50);
    ASSERT_TRUE(TurnUntil([&] { return !server.IsClientConnected(leavingId); }));
    EXPECT_EQ(Result(*other, "get", R"(["BIG"])").asString().size(), kBigTextSize);
}

TEST_F(JsonRpcServerTest, RegistrationsGoWithAClientThatHasGone) {
    TClient gone = Connect();
    TClient staying = Connect();
    const unsigned int goneId = gone->id;
    Result(*gone, "addListener", R"({"code":["BRI","LMP"],"sendNow":false})");
    Result(*staying, "addListener", R"({"code":"BRI","sendNow":false})");
    gone.reset();
    ASSERT_TRUE(TurnUntil([&] { return !server.IsClientConnected(goneId); }));
    EXPECT_EQ(Registry().GetKeys(), std::vector<std::string>{"BRI"});

    // A registration left behind for the client goes with the first notification to it.
    Registry().NotifyRegister("BRI", Address(goneId));
    Registry().NotifyRegister("LMP", Address(goneId));
    Control("BRI").SetValue(60);
    EXPECT_TRUE(log.Logged("Can't send notification to unknown client [ID:" + std::to_string(goneId) + "]"));
    EXPECT_EQ(Registry().GetKeys(), std::vector<std::string>{"BRI"});
    ASSERT_EQ(Registry().GetNotifyList("BRI").json.size(), 1u);
    EXPECT_EQ(Registry().GetNotifyList("BRI").json.front().address, Address(staying->id));
    EXPECT_EQ(Next(*staying), J(R"({"jsonrpc":"2.0","method":"control:notify","params":{"code":"BRI","value":60}})"));
}

TEST_F(JsonRpcServerTest, AListenerThatFellBehindStillEndsWithTheValuesThatStand) {
    TClient slow = Connect();
    Result(*slow, "addListener", R"({"code":["BIG","BRI"],"sendNow":false})");
    // Changes of 64 KiB each while the client reads nothing: far past what the sockets and
    // the backlog hold.
    for (int round = 0; round < 200; ++round) {
        Control("BIG").SetText(std::string(kBigTextSize, static_cast<char>('a' + round % 26)));
        Control("BRI").SetValue(round % 100);
        loop->RunOnce(0);
    }
    EXPECT_TRUE(log.Logged("Can't send notification to blocked client"));
    std::map<std::string, Json::Value> last;
    for (int exchange = 0; exchange < 100; ++exchange) {
        Call(*slow, "getC4JVersion");
        if (slow->notes.empty()) {
            break;
        }
        for (const Json::Value& note : slow->notes) {
            last[note["params"]["code"].asString()] = note["params"]["value"];
        }
        slow->notes.clear();
    }
    EXPECT_EQ(last["BIG"], std::string(kBigTextSize, static_cast<char>('a' + 199 % 26)));
    EXPECT_EQ(last["BRI"], 99);
}

TEST_F(JsonRpcServerTest, ConnectionsPastTheLimitAreRefusedAndLoggedOnceWhileOthersAreServed) {
    server.SetMaxClients(2);
    TClient first = Connect();
    TClient second = Connect();
    for (int attempt = 0; attempt < 3; ++attempt) {
        CJsonRpcTcpClient refused("127.0.0.1", server.GetPort());
        EXPECT_TRUE(TurnUntil([&] {
            char byte;
            return recv(refused.GetSocket(), &byte, 1, MSG_DONTWAIT) == 0;
        }));
    }
    EXPECT_EQ(log.Count("Refusing JSON-RPC connections: client limit reached (2 clients connected)"), 1u);
    EXPECT_EQ(Result(*first, "getC4JVersion"), 2);
    const unsigned int secondId = second->id;
    second.reset();
    ASSERT_TRUE(TurnUntil([&] { return !server.IsClientConnected(secondId); }));
    TClient third = Connect();
    EXPECT_EQ(Result(*third, "getC4JVersion"), 2);
}

TEST_F(JsonRpcServerTest, RunningOutOfDescriptorsRefusesTheConnectionInsteadOfSpinning) {
    TClient served = Connect();
    CJsonRpcTcpClient waiting("127.0.0.1", server.GetPort());  // in the backlog, not accepted yet
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    const int lowestFree = dup(0);
    close(lowestFree);
    rlimit tight = saved;
    tight.rlim_cur = static_cast<rlim_t>(lowestFree);  // every descriptor number is taken
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    const bool closed = TurnUntil([&] {
        char byte;
        return recv(waiting.GetSocket(), &byte, 1, MSG_DONTWAIT) == 0;
    });
    CPollSet poll;
    server.AddDescriptors(poll);
    poll.Wait(0);
    const bool listenerQuiet = !poll.IsReadable(server.GetSocket());
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
    EXPECT_TRUE(closed);
    EXPECT_TRUE(listenerQuiet);
    EXPECT_EQ(log.Count("Refusing JSON-RPC connections: no descriptor left"), 1u);
    EXPECT_EQ(Result(*served, "getC4JVersion"), 2);
}

TEST(JsonRpcClientAddressTest, OnlyAWholeClientAddressGivesItsId) {
    EXPECT_EQ(5, CJsonRpcServer::GetJsonClientDescriptorFromString("JSON_TCP.5"));
    EXPECT_EQ(-1, CJsonRpcServer::GetJsonClientDescriptorFromString("JSON_TCP.-1"));
    for (const char* address : {"JSON_TCP.", "JSON_TCP.5x", "JSON_TCP.x", "JSON_UDP.5", "IPC.5", "", "JSON_TCP",
                                "JSON_TCP.99999999999999999999", "JSON_TCP.4294967296"}) {
        EXPECT_EQ(-1, CJsonRpcServer::GetJsonClientDescriptorFromString(address)) << address;
    }
}
