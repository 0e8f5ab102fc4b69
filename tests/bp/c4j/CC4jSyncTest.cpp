// The "sync" module on one projector: requests queued, prepared and run together on the
// target v-sync of a 60 Hz output that follows the fixture's hand-driven clock, and
// every step that cannot run refused without changing anything.

#include "C4jFixture.h"
#include "CC4jSync.h"
#include "CUnicastUdp.h"
#include "jsonrpc/ForwardMethod.h"

namespace {

// A 60 Hz v-sync counted from the manual clock; waiting moves the clock on.
class CClockVsync : public IVsyncCounter {
public:
    explicit CClockVsync(CManualClock& clock) : m_clock(clock) {}
    uint16_t ReadVsyncCount() override { return static_cast<uint16_t>(uint64_t{m_clock.GetCount()} * 60 / 1000); }
    uint16_t WaitVsyncs(unsigned int count, unsigned int) override {
        const uint16_t target = static_cast<uint16_t>(ReadVsyncCount() + count);
        while (ReadVsyncCount() != target) {
            m_clock.AdvanceMs(1);
        }
        return target;
    }
    double GetFrameRateHz() const override { return 60; }

private:
    CManualClock& m_clock;
};

class CC4jSyncTest : public CC4jFixture {
protected:
    CC4jSyncTest() {
        loop->AddSource(sync);
        client = Connect();
        server.SetClientAccessLevel(client->id, ACCESS_OPERATOR);  // the group's controller logged in
        server.SetDatagramAccessLevel(ACCESS_OPERATOR);            // and the group is trusted
    }
    ~CC4jSyncTest() override { loop->RemoveSource(sync); }

    void Queue(const std::string& requests) { Result(*client, "sync:queueRequests", R"({"requests": )" + requests + "}"); }

    // One request as a datagram to a UDP road; its answer ("" when none came).
    std::string Datagram(Json::Rpc::UdpServer& road, const std::string& method, const std::string& params) {
        Json::Rpc::UdpClient udp("127.0.0.1", road.GetPort());
        EXPECT_TRUE(udp.Connect());
        EXPECT_TRUE(udp.Send(R"({"jsonrpc": "2.0", "id": 1, "method": ")" + method + R"(", "params": )" + params + "}"));
        road.WaitMessage(1000);
        std::string answer;
        sockaddr_in sender{};
        return udp.Recv(answer, sender, 1000) ? answer : "";
    }

    CClockVsync vsync{clock};
    CC4jSync sync{server, &vsync, nullptr};
    TClient client;
};

}  // namespace

TEST_F(CC4jSyncTest, PreparedRequestsRunTogetherOnTheFirstVsyncAfterTheDelay) {
    Queue(R"([{"method": "control:set", "params": {"code": "BRI", "value": 70}}])");
    Queue(R"([{"method": "control:get", "params": ["BRI"]}])");
    EXPECT_EQ(Result(*client, "sync:prepareToExecute"), J(R"({"ready": true, "count": 2})"));
    clock.SetCount(1000);  // v-sync 60
    EXPECT_EQ(Result(*client, "sync:execute", R"({"delayMs": 100})"), J(R"({"scheduled": true, "vsync": 66})"));
    EXPECT_EQ(Control("BRI").GetValue(), 50);

    clock.AdvanceMs(50);  // not yet: the loop is asked to come back one frame ahead
    loop->RunOnce(0);
    EXPECT_EQ(Control("BRI").GetValue(), 50);
    clock.AdvanceMs(40);
    loop->RunOnce(0);
    EXPECT_EQ(Control("BRI").GetValue(), 70);
    const Json::Value result = Result(*client, "sync:getExecutionResult");
    EXPECT_EQ(result["state"], "executed");
    EXPECT_EQ(result["late"], false);
    ASSERT_EQ(result["results"].size(), 2u);
    EXPECT_EQ(result["results"][0]["vsync"], 66);
    EXPECT_EQ(result["results"][1]["response"]["result"], 70);
    EXPECT_GT(result["results"][1]["timeUs"].asUInt64(), 1700000000000000u);

    EXPECT_EQ(Result(*client, "sync:getExecutionWindow")["windowUs"], 16666 + 1000);
    EXPECT_EQ(Result(*client, "sync:getExecutionWindowMax")["windowUs"], 41708 + 1000);
    const Json::Value timing = Result(*client, "sync:testHandlerVsyncTiming", R"({"count": 3})");
    EXPECT_EQ(timing["samples"], 3);
    EXPECT_EQ(Result(*client, "sync:getExecutionWindow")["windowUs"].asUInt(), 16666 + std::max(timing["maxUs"].asUInt(), 1u));
}

TEST_F(CC4jSyncTest, WhatCannotRunIsRefusedAndChangesNothing) {
    const struct {
        const char* method;
        const char* params;
        int error;
    } steps[] = {
        {"sync:prepareToExecute", "", 133},
        {"sync:execute", "", 7},
        {"sync:queueRequests", R"({"requests": [{"params": []}]})", 3},
        {"sync:queueRequests", R"({"requests": [{"method": "control:set", "params": {"code": "BRI", "value": 9}}]})", 0},
        {"sync:execute", R"({"delayMs": 5})", 7},  // queued, not prepared
        {"sync:queueRequests", R"({"requests": [{"method": "nosuch:method"}]})", 0},
        {"sync:prepareToExecute", "", 135},
        {"sync:clearQueuedRequests", "", 0},
        {"sync:queueRequests", R"({"requests": [{"method": "control:get", "params": 5}]})", 0},
        {"sync:prepareToExecute", "", 3},
        {"sync:clearQueuedRequests", "", 0},
        {"sync:queueRequests", R"({"requests": [{"method": "sync:execute"}]})", 0},
        {"sync:prepareToExecute", "", 135},
        {"sync:execute", R"({"delayMs": 60001})", 3},
        {"sync:setDebugLogging", R"({"enable": 1})", 3},
        {"sync:testHandlerVsyncTiming", R"({"count": 0})", 3},
    };
    for (const auto& step : steps) {
        EXPECT_EQ(ErrorCode(*client, step.method, step.params), step.error) << step.method << " " << step.params;
    }
    std::string many = "[";
    for (size_t i = 0; i < CC4jSync::kMaxQueued; ++i) {
        many += std::string(i ? "," : "") + R"({"method": "control:get", "params": ["BRI"]})";
    }
    EXPECT_EQ(ErrorCode(*client, "sync:queueRequests", R"({"requests": )" + many + "]}"), 134);
    EXPECT_EQ(Result(*client, "sync:getExecutionResult")["state"], "queued");
    EXPECT_EQ(Control("BRI").GetValue(), 50);

    EXPECT_EQ(Result(*client, "sync:clearQueuedRequests")["cleared"], 1);
}

TEST_F(CC4jSyncTest, ALoopTurnAfterTheTargetStillRunsTheQueueButMarksItLate) {
    Result(*client, "sync:setDebugLogging", R"({"enable": true})");
    Queue(R"([{"method": "control:set", "params": {"code": "BRI", "value": 12}}])");
    Result(*client, "sync:prepareToExecute");
    Result(*client, "sync:execute", R"({"delayMs": 20})");
    clock.AdvanceMs(500);
    loop->RunOnce(0);
    EXPECT_EQ(Control("BRI").GetValue(), 12);
    EXPECT_EQ(Result(*client, "sync:getExecutionResult")["late"], true);
    EXPECT_TRUE(log.Logged("Execution lost synchronization"));
    EXPECT_TRUE(log.Logged("sync: scheduled for v-sync"));
}

TEST_F(CC4jSyncTest, RequestsQueuedOverUdpObeyItsMethodsAndTheirResultsArePagedToFitADatagram) {
    CUnicastUdpServer udp(0);
    udp.UnicastBind("lo");
    udp.AddMethod(new Json::Rpc::ForwardMethod(server.GetHandler(), "control:get"));
    sync.PublishTo(udp, false);

    Datagram(udp, "sync:queueRequests", R"({"requests": [{"method": "control:set", "params": {"code": "BRI", "value": 9}}]})");
    EXPECT_EQ(J(Datagram(udp, "sync:prepareToExecute", "{}"))["error"]["code"], 135);
    Datagram(udp, "sync:clearQueuedRequests", "{}");

    std::string sixteen = "[";  // as many as one datagram carries
    for (size_t i = 0; i < 16; ++i) {
        sixteen += std::string(i ? "," : "") + R"({"method": "control:get", "params": ["BRI"]})";
    }
    for (int i = 0; i < 4; ++i) {
        Datagram(udp, "sync:queueRequests", R"({"requests": )" + sixteen + "]}");
    }
    EXPECT_EQ(J(Datagram(udp, "sync:prepareToExecute", "{}"))["result"]["count"], 64);
    Result(*client, "sync:execute", R"({"delayMs": 0})");
    clock.AdvanceMs(20);
    loop->RunOnce(0);

    unsigned int next = 0;
    unsigned int pages = 0;
    unsigned int read = 0;
    while (next < CC4jSync::kMaxQueued && pages < CC4jSync::kMaxQueued) {
        const Json::Value page = J(Datagram(udp, "sync:getExecutionResult", R"({"from": )" + std::to_string(next) + "}"));
        ASSERT_TRUE(page.isMember("result")) << page;
        EXPECT_EQ(page["result"]["count"], 64);
        for (const Json::Value& one : page["result"]["results"]) {
            EXPECT_EQ(one["response"]["result"], 50);
            ++read;
        }
        next = page["result"]["next"].asUInt();
        ++pages;
    }
    EXPECT_EQ(read, 64u);
    EXPECT_GT(pages, 1u);
    EXPECT_EQ(Result(*client, "sync:getExecutionResult")["results"].size(), 64u);  // TCP: all at once
    EXPECT_EQ(ErrorCode(*client, "sync:getExecutionResult", R"({"from": 65})"), 3);

    // A response too large for any datagram is left out rather than stopping the reading.
    Result(*client, "sync:clearQueuedRequests");
    Datagram(udp, "sync:queueRequests", R"({"requests": [{"method": "control:get", "params": ["BIG"]}, {"method": "control:get", "params": ["BRI"]}]})");
    Datagram(udp, "sync:prepareToExecute", "{}");
    Result(*client, "sync:execute", R"({"delayMs": 0})");
    clock.AdvanceMs(20);
    loop->RunOnce(0);
    const Json::Value first = J(Datagram(udp, "sync:getExecutionResult", "{}"))["result"];
    EXPECT_EQ(first["results"][0]["truncated"], true);
    EXPECT_EQ(first["results"][1]["response"]["result"], 50);
    EXPECT_EQ(first["next"], 2);
}

TEST_F(CC4jSyncTest, TheQueueNeedsALoginAndItsRequestsActAtTheLevelOfWhoQueuedThem) {
    CUnicastUdpServer udp(0);
    udp.UnicastBind("lo");
    udp.AddMethod(new Json::Rpc::ForwardMethod(server.GetHandler(), "control:set"));
    sync.PublishTo(udp, false);
    const std::string setFactory = R"({"requests": [{"method": "control:set", "params": {"code": "FAC", "value": 2}}]})";

    // A datagram acts at the configured level, a TCP client at its own.
    server.SetDatagramAccessLevel(ACCESS_USER);
    EXPECT_EQ(J(Datagram(udp, "sync:queueRequests", setFactory))["error"]["code"], ERR_INVALID_ACCESS_GROUP);
    ASSERT_TRUE(server.SetClientAccessLevel(client->id, ACCESS_USER));
    for (const char* method : {"sync:queueRequests", "sync:clearQueuedRequests", "sync:prepareToExecute",
                               "sync:execute", "sync:executeSlave", "sync:setDebugLogging"}) {
        EXPECT_EQ(ErrorCode(*client, method, setFactory), ERR_INVALID_ACCESS_GROUP) << method;
    }

    // Queued by an operator, the change of a factory setting is refused when it runs; queued
    // by a client at the factory level, it is made, though the commit comes by datagram.
    for (const EAccessLevel level : {ACCESS_OPERATOR, ACCESS_FACTORY}) {
        ASSERT_TRUE(server.SetClientAccessLevel(client->id, level));
        Result(*client, "sync:queueRequests", setFactory);
        Result(*client, "sync:prepareToExecute");
        server.SetDatagramAccessLevel(ACCESS_OPERATOR);
        Datagram(udp, "sync:execute", R"({"delayMs": 0})");
        clock.AdvanceMs(20);
        loop->RunOnce(0);
        const Json::Value response = Result(*client, "sync:getExecutionResult")["results"][0]["response"];
        if (level == ACCESS_OPERATOR) {
            EXPECT_EQ(response["error"]["code"], ERR_INVALID_ACCESS_GROUP) << response;
        } else {
            EXPECT_EQ(response["result"]["value"], 2) << response;
        }
    }
}
