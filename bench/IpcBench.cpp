// IPC message cost and IPC round trip, beside a raw Unix-datagram ping-pong of the same
// bytes measured in the same run.
//
// Both round trips pin the sending and the echoing thread to one CPU (BenchSockets.h).
// Their figure is the median round trip (p50_us), taken over nine repetitions that run in
// turns with one another (AsComparedRoundTrip). BM_LoopedDatagramRoundTrip bounces the
// same bytes off an echo that waits in poll() before each receive, as the controller's
// loop does: what that wait costs a request to the controller, against the raw ping-pong.
//
//   build/bin/bench/ipc_bench [--benchmark_min_time=2]
// The last lines print RATIO IpcRoundTrip / RawDatagramRoundTrip against the goal of 1.08,
// and the looped echo's ratio to the raw one.

#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "BenchLatency.h"
#include "BenchRatioReporter.h"
#include "BenchSockets.h"
#include "ipc/CIpcClient.h"
#include "ipc/CIpcServer.h"

namespace {

// A typical command: a three-letter code with subcode and a value, plus the access level.
CIpcMessage TypicalCommand() {
    CIpcMessage message;
    message.SetCode("BRI");
    message.SetSubCode("PRTA");
    message.AddArg(0, 4200);
    message.AddArg(231, 2);
    return message;
}

void BM_Serialize(benchmark::State& state) {
    CIpcMessage message = TypicalCommand();
    for (auto _ : state) {
        unsigned char* data = nullptr;
        benchmark::DoNotOptimize(message.SerializeMessage(data));
        benchmark::DoNotOptimize(data);
    }
}
BENCHMARK(BM_Serialize);

void BM_Deserialize(benchmark::State& state) {
    CIpcMessage message = TypicalCommand();
    unsigned char* data = nullptr;
    const int size = message.SerializeMessage(data);
    const std::vector<unsigned char> bytes(data, data + size);
    CIpcMessage target;
    for (auto _ : state) {
        benchmark::DoNotOptimize(target.DeserializeMessage(bytes.data(), static_cast<unsigned>(bytes.size()), "/c"));
    }
}
BENCHMARK(BM_Deserialize);

// Baseline: the same bytes as the IPC round trip, bounced by a thread that echoes each
// datagram to its sender, with plain blocking socket calls and no message objects.
void RawDatagramRoundTrips(benchmark::State& state, bool echoWaitsInPoll) {
    PinToOneCpu();
    CRawEcho echo(SocketDir() + "/raw_server", echoWaitsInPoll);
    const std::string clientPath = SocketDir() + "/raw_client";
    const int client = BoundDatagramSocket(clientPath);
    CIpcMessage message = TypicalCommand();
    unsigned char* data = nullptr;
    const int size = message.SerializeMessage(data);
    CLatencyRecord latency;
    for (auto _ : state) {
        latency.Start();
        RawRoundTrip(client, echo.GetPath(), data, size);
        latency.Stop();
    }
    latency.Report(state);
    close(client);
    unlink(clientPath.c_str());
}
void BM_RawDatagramRoundTrip(benchmark::State& state) { RawDatagramRoundTrips(state, false); }
BENCHMARK(BM_RawDatagramRoundTrip)->Apply(AsComparedRoundTrip);
void BM_LoopedDatagramRoundTrip(benchmark::State& state) { RawDatagramRoundTrips(state, true); }
BENCHMARK(BM_LoopedDatagramRoundTrip)->Apply(AsComparedRoundTrip);

// Measured: CIpcClient::TransmitMessage with reply against a CIpcServer thread that
// answers every command with its reply (MakeReply, the value as argument 0).
void BM_IpcRoundTrip(benchmark::State& state) {
    const std::string serverPath = SocketDir() + "/ipc_server";
    const std::string clientPath = SocketDir() + "/ipc_client";
    CIpcServer server(serverPath.c_str());
    std::atomic<bool> stop{false};
    PinToOneCpu();
    std::thread echo([&] {
        PinToOneCpu();
        CIpcMessage request;
        while (!stop.load()) {
            bool complete = false;
            if (!server.GetMessage(request, &complete) || !complete || request.GetCode() == "END") {
                continue;
            }
            std::string value;
            request.GetArg(0, value);
            request.MakeReply(0);
            request.AddArg(0, value);
            server.ResponseMessage(request);
        }
    });

    CIpcClient client(serverPath.c_str(), clientPath.c_str());
    CIpcMessage command = TypicalCommand();
    CIpcMessage reply;
    CLatencyRecord latency;
    for (auto _ : state) {
        latency.Start();
        if (!client.TransmitMessage(command, reply, 1000)) {
            state.SkipWithError("no reply");
            break;
        }
        latency.Stop();
    }
    latency.Report(state);
    stop.store(true);
    CIpcMessage end;
    end.SetCode("END");
    client.TransmitMessage(end);
    echo.join();
}
BENCHMARK(BM_IpcRoundTrip)->Apply(AsComparedRoundTrip);

}  // namespace

int main(int argc, char** argv) {
    const int result =
        RunBenchmarksWithRatios(argc, argv,
                                {{"BM_IpcRoundTrip", "BM_RawDatagramRoundTrip", 1.08, "p50_us"},
                                 {"BM_LoopedDatagramRoundTrip", "BM_RawDatagramRoundTrip", 0, "p50_us"}});
    RemoveSocketDir();
    return result;
}
