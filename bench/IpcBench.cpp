// IPC message cost and IPC round trip, beside a raw Unix-datagram ping-pong of the same
// bytes measured in the same run.
//
// Both round trips pin the sending and the echoing thread to one CPU: whether the two
// threads share a core changes a round trip several-fold (cross-core wake-ups), which
// would otherwise swamp the difference being measured.
//
//   build/bin/bench/ipc_bench [--benchmark_min_time=2]
// The last lines print RATIO IpcRoundTrip / RawDatagramRoundTrip against the goal of 1.20.

#include <benchmark/benchmark.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "BenchRatioReporter.h"
#include "RuntimeRoot.h"
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

// Pins the calling thread to the first CPU it may run on.
void PinToOneCpu() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) {
        return;
    }
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(cpu, &allowed)) {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(cpu, &one);
            sched_setaffinity(0, sizeof one, &one);
            return;
        }
    }
}

std::string SocketDir() {
    static const std::string dir = [] {
        std::string pattern = "/tmp/ipc-bench-XXXXXX";
        if (!mkdtemp(&pattern[0])) {
            abort();
        }
        return pattern;
    }();
    return dir;
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

int BoundDatagramSocket(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    unlink(path.c_str());
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        abort();
    }
    return fd;
}

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return address;
}

// Baseline: the same bytes as the IPC round trip, bounced by a thread that echoes each
// datagram to its sender, with plain blocking socket calls and no message objects.
void BM_RawDatagramRoundTrip(benchmark::State& state) {
    const std::string serverPath = SocketDir() + "/raw_server";
    const std::string clientPath = SocketDir() + "/raw_client";
    const int server = BoundDatagramSocket(serverPath);
    const int client = BoundDatagramSocket(clientPath);
    CIpcMessage message = TypicalCommand();
    unsigned char* data = nullptr;
    const int size = message.SerializeMessage(data);

    PinToOneCpu();
    std::thread echo([server] {
        PinToOneCpu();
        unsigned char buffer[4096];
        for (;;) {
            sockaddr_un from{};
            socklen_t fromLength = sizeof from;
            const ssize_t n = recvfrom(server, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &fromLength);
            if (n <= 1) {
                return;  // a one-byte datagram ends the echo
            }
            sendto(server, buffer, static_cast<size_t>(n), 0, reinterpret_cast<sockaddr*>(&from), fromLength);
        }
    });

    const sockaddr_un to = AddressOf(serverPath);
    unsigned char reply[4096];
    for (auto _ : state) {
        sendto(client, data, static_cast<size_t>(size), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
        benchmark::DoNotOptimize(recv(client, reply, sizeof reply, 0));
    }
    const unsigned char stop = 0;
    sendto(client, &stop, 1, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    echo.join();
    close(server);
    close(client);
    unlink(serverPath.c_str());
    unlink(clientPath.c_str());
}
BENCHMARK(BM_RawDatagramRoundTrip)->UseRealTime();

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
    for (auto _ : state) {
        if (!client.TransmitMessage(command, reply, 1000)) {
            state.SkipWithError("no reply");
            break;
        }
    }
    stop.store(true);
    CIpcMessage end;
    end.SetCode("END");
    client.TransmitMessage(end);
    echo.join();
}
BENCHMARK(BM_IpcRoundTrip)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    const int result = RunBenchmarksWithRatios(argc, argv, {{"BM_IpcRoundTrip", "BM_RawDatagramRoundTrip", 1.20}});
    rmdir(SocketDir().c_str());
    return result;
}
