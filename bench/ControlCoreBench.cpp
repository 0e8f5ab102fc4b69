// Control core costs, each beside a baseline measured in the same run:
//  - CEventLink::SetValue round trip to a live controller thread, beside a raw
//    Unix-datagram ping-pong of the same bytes (goal: at most 1.5x);
//  - CIpcEventDispatcher::ProcessCommands per command with 50, 500 and 5,000 controls
//    registered (goal: flat, 5,000 at most 1.5x of 50: only the map's log n may grow);
//  - one change notified to 50 and to 100 registered IPC listeners: the time from the set
//    until all have received it (BM_NotifyListeners, with the share of one listener), and
//    the controller thread's CPU time per change, which is what announcing it costs
//    (controller_cpu_us; goal for 100: under 0.3 ms).
//
//   build/bin/bench/control_core_bench

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "BenchController.h"
#include "BenchRatioReporter.h"
#include "BenchSockets.h"
#include "RuntimeRoot.h"
#include "control/CProjCon.h"
#include "dispatch/CEventDispatcher.h"
#include "dispatch/CIpcEventDispatcher.h"
#include "ipc/CSelectWrapper.h"
#include "link/CEventLink.h"
#include "log/CLogger.h"

namespace {

// A controller of `count` integer controls "CTL+0000"... plus "BRI", served or not.
std::unique_ptr<CBenchController> MakeController(int count, bool serve) {
    auto controller = std::make_unique<CBenchController>();
    controller->AddInteger("BRI", 0, 100, 50);
    for (int i = 0; i < count; ++i) {
        char code[16];
        snprintf(code, sizeof code, "CTL+%04d", i);
        controller->AddInteger(code, 0, 1000, 0);
    }
    if (serve) {
        controller->Serve();
    }
    return controller;
}

void BM_RawSetRoundTrip(benchmark::State& state) {
    PinToOneCpu();
    CRawEcho echo(SocketDir() + "/raw_server");
    const std::string clientPath = SocketDir() + "/raw_client";
    const int client = BoundDatagramSocket(clientPath);
    // The bytes of a SetValue command with its access level, as the link sends them.
    CIpcMessage command;
    command.SetCode("BRI");
    command.SetSubCode("");
    command.AddArg(0, 42);
    command.AddArg(231, 2);
    command.SetFlags(MSG_FLAG_REPLY_WANTED);
    unsigned char* data = nullptr;
    const int size = command.SerializeMessage(data);
    for (auto _ : state) {
        RawRoundTrip(client, echo.GetPath(), data, size);
    }
    close(client);
    unlink(clientPath.c_str());
}
BENCHMARK(BM_RawSetRoundTrip)->UseRealTime();

void BM_EventLinkSetValue(benchmark::State& state) {
    PinToOneCpu();
    const auto controller = MakeController(0, true);
    CEventLink link(controller->Log(), "bench");
    int i = 0;
    for (auto _ : state) {
        int value = ++i % 100;
        if (link.SetValue(ACCESS_OPERATOR, "BRI", "", value, false) != ERR_NONE) {
            state.SkipWithError("set failed");
            break;
        }
    }
}
BENCHMARK(BM_EventLinkSetValue)->UseRealTime();

void BM_ProcessCommands(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    const auto controller = MakeController(count, false);
    std::vector<CIpcMessage> commands;
    for (int i = 0; i < 64; ++i) {
        char subcode[8];
        snprintf(subcode, sizeof subcode, "%04d", (i * 7919) % count);
        CIpcMessage command;
        command.SetCode("CTL");
        command.SetSubCode(subcode);
        command.AddArg(0, i);
        command.AddArg(231, 2);
        commands.push_back(command);
    }
    size_t next = 0;
    for (auto _ : state) {
        CIpcMessage command = commands[next++ % commands.size()];
        CIpcMessage reply(command);
        controller->Ipc().ProcessCommands(command, reply);
        benchmark::DoNotOptimize(reply);
    }
}
BENCHMARK(BM_ProcessCommands)->Arg(50)->Arg(500)->Arg(5000);

// The set through one link, then the wait until every one of the listeners has the change.
void BM_NotifyListeners(benchmark::State& state) {
    PinToOneCpu();
    const auto controller = MakeController(0, true);
    CEventLink setter(controller->Log(), "setter");
    std::vector<std::unique_ptr<CEventLink>> listeners;
    const int count = static_cast<int>(state.range(0));
    for (int i = 0; i < count; ++i) {
        listeners.push_back(std::make_unique<CEventLink>(controller->Log(), ("listener" + std::to_string(i)).c_str()));
        listeners.back()->NotifyRegister("BRI", "", listeners.back()->GetNotifySocketName());
    }
    int i = 0;
    const double cpuBefore = controller->GetCpuSeconds();
    for (auto _ : state) {
        int value = ++i % 100;
        setter.SetValue(ACCESS_OPERATOR, "BRI", "", value, false);
        for (auto& listener : listeners) {
            std::list<CIpcMessage> notes;
            while (notes.empty()) {
                CSelectWrapper select;
                select.Set(listener->GetNotifyDescriptor());
                select.Select(1000u);
                listener->ProcessNotify(notes);
            }
        }
    }
    state.counters["per_listener"] =
        benchmark::Counter(static_cast<double>(count) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    // What announcing costs the controller: its thread's CPU time per change (the set and
    // one datagram per listener), without the listeners' own receiving.
    state.counters["controller_cpu_us"] =
        (controller->GetCpuSeconds() - cpuBefore) * 1e6 / static_cast<double>(state.iterations());
}
BENCHMARK(BM_NotifyListeners)->Arg(50)->Arg(100)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    const int result = RunBenchmarksWithRatios(argc, argv,
                                               {{"BM_EventLinkSetValue", "BM_RawSetRoundTrip", 1.5},
                                                {"BM_ProcessCommands/5000", "BM_ProcessCommands/50", 1.5}});
    RemoveSocketDir();
    return result;
}
