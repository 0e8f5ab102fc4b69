// The round trip of one JSON-RPC request to a multicast group and its answer, beside a
// raw UDP multicast echo of a datagram of the same size on the same interface ("lo"),
// measured in the same run. One member answers in both, on its own pinned thread.
//
//   build/bin/bench/group_bench [--benchmark_min_time=2]
// The last line prints RATIO GroupRoundTrip / RawMulticastEcho (goal: at most 2).

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "BenchRatioReporter.h"
#include "BenchSockets.h"
#include "CMulticastUdpClient.h"
#include "CMulticastUdpServer.h"
#include "jsonrpc/UdpServer.h"

namespace {

constexpr const char* kGroup = "239.192.0.98";

unsigned short FreeUdpPort() {
    Json::Rpc::UdpServer probe("0.0.0.0", 0);
    probe.Bind();
    return probe.GetPort();
}

// A member's method: "control:get"-sized answers to every request.
class CEchoMethod : public Json::Rpc::CallbackMethod {
public:
    bool Call(const Json::Value& request, Json::Value& response) override {
        response["jsonrpc"] = "2.0";
        response["id"] = request["id"];
        response["result"] = 50;
        return true;
    }
    Json::Value GetDescription() const override { return "echo"; }
    std::string GetName() const override { return "control:get"; }
};

// A group member on its own pinned thread, serving one wait at a time until destroyed.
class CMemberThread {
public:
    explicit CMemberThread(std::function<void()> serveOnce)
        : m_thread([this, serveOnce] {
              PinToOneCpu();
              while (!m_stop) {
                  serveOnce();
              }
          }) {}
    ~CMemberThread() {
        m_stop = true;
        m_thread.join();
    }

private:
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

const std::string kRequest = R"({"id":1,"jsonrpc":"2.0","method":"control:get","params":["BRI"]})";

void BM_RawMulticastEcho(benchmark::State& state) {
    const unsigned short port = FreeUdpPort();
    CMulticastUdpServer member(kGroup, port);  // only its socket: joined, then read raw
    member.MulticastBind("lo");
    const CMemberThread echo([&member] {
        char buffer[1500];
        pollfd waiting{member.GetSocket(), POLLIN, 0};
        if (poll(&waiting, 1, 50) <= 0) {
            return;
        }
        sockaddr_in sender{};
        socklen_t length = sizeof sender;
        const ssize_t size =
            recvfrom(member.GetSocket(), buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&sender), &length);
        if (size > 0) {
            sendto(member.GetSocket(), buffer, 38, 0, reinterpret_cast<sockaddr*>(&sender), length);
        }
    });
    PinToOneCpu();
    CMulticastUdpClient client(kGroup, port);
    client.MulticastConnect("lo");
    for (auto _ : state) {
        client.Send(kRequest);
        std::string answer;
        sockaddr_in sender{};
        if (!client.Recv(answer, sender, 1000)) {
            state.SkipWithError("no echo");
            break;
        }
    }
}
BENCHMARK(BM_RawMulticastEcho)->UseRealTime();

void BM_GroupRoundTrip(benchmark::State& state) {
    const unsigned short port = FreeUdpPort();
    CMulticastUdpServer member(kGroup, port);
    member.MulticastBind("lo");
    member.AddMethod(new CEchoMethod);
    const CMemberThread serve([&member] { member.WaitMessage(50); });
    PinToOneCpu();
    CMulticastUdpClient client(kGroup, port);
    client.MulticastConnect("lo");
    for (auto _ : state) {
        client.Send(kRequest);
        std::string text;
        sockaddr_in sender{};
        SJsonRpcMulticastResponse response;
        if (!client.Recv(text, sender, 1000) ||
            !CMulticastUdpClient::ProcessReceivedData(response, text.data(), text.size()) ||
            response.GetValue()["result"] != 50) {
            state.SkipWithError("no answer");
            break;
        }
    }
}
BENCHMARK(BM_GroupRoundTrip)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    return RunBenchmarksWithRatios(argc, argv, {{"BM_GroupRoundTrip", "BM_RawMulticastEcho", 2.0}});
}
