// ASCII command protocol costs, each beside a baseline measured in the same run:
//  - BM_ParseStream: CVeltraneSerialParser::Feed on a stream of mixed valid messages
//    (queries, commands with numbers, texts with escapes, addressed checksummed
//    commands), in MB/s. Its link answers on the spot and its port writes to /dev/null,
//    so parsing, handling and formatting the replies are what is measured. Baseline:
//    BM_ScanStream, one memchr pass over the same bytes counting "(". Goal: at most 400x.
//    The parser visits every byte in a state machine, builds an IPC message per command
//    and formats and writes the replies, against a vectorised search that touches each
//    cache line once, so a large factor is expected; 400x of a scan running at 4 GB/s
//    still leaves the parser at 10 MB/s, nearly a thousand times what a 115200-baud line
//    delivers (11.5 KB/s) and far above what the TCP clients of a projector send. The
//    goal is there to catch a change of kind (a copy of the stream per byte, a quadratic
//    step), not to hold the parser near the scan.
//  - BM_FrontEndQuery: a TCP client sends "(BRI?)" and waits for the reply, through the
//    serial handler, its parser and event link, and a live controller, all in this
//    process on pinned threads. Baseline: BM_RawTcpPlusDatagramRoundTrip, one raw TCP
//    ping-pong of the same bytes with an echo thread plus one raw Unix-datagram ping-pong
//    of the request the link sends (the two hops of the real path). The figure is the
//    median round trip (p50_us) over nine interleaved repetitions; goal: at most 1.15x.
//    BM_RawTcpRoundTrip and BM_RawDatagramRoundTrip show the two parts on their own.
//    BM_LoopedRelayRoundTrip is the floor the two event loops allow: the same system
//    calls as the real path (the front-end and the controller each wait in poll),
//    nothing done between them. Its ratio to the baseline is what the loops cost; the
//    query's ratio to it, what the front-end's and the controller's work adds.
//  - BM_FrontEndThirteenClients: 13 TCP connections at once (the handler's limit), each
//    with one query outstanding, driven by a poll loop; "queries" is the total rate.
//
// Every thread of an exchange is pinned to the same CPU (PinToOneCpu), so that thread
// placement does not swamp the figures.
//
//   build/bin/bench/ascii_bench

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "BenchController.h"
#include "BenchLatency.h"
#include "BenchRatioReporter.h"
#include "BenchSockets.h"
#include "RuntimeRoot.h"
#include "ascii/CVeltraneSerialHandler.h"
#include "ascii/CVeltraneSerialParser.h"
#include "control/CProjCon.h"
#include "dispatch/CEventDispatcher.h"
#include "dispatch/CIpcEventDispatcher.h"
#include "link/CEventLink.h"
#include "log/CLogger.h"
#include "port/CCommPort.h"
#include "security/CSecurityManager.h"

namespace {

// ---- parser throughput ---------------------------------------------------------------

// A link that answers at once without sockets: a command or request gets back its
// argument 0 (50 when it has none).
class CEchoLink : public CEventLink {
public:
    CEchoLink(ILog& log, const char* name) : CEventLink(log, name) {}

    EError SendCommand(int, CIpcMessage& command, CIpcMessage& reply, unsigned int) override {
        reply = Answer(command);
        return ERR_NONE;
    }
    EError SendRequest(int, CIpcMessage& request, std::list<CIpcMessage>& replies, unsigned int) override {
        replies.clear();
        replies.push_back(Answer(request));
        return ERR_NONE;
    }
    long GetExchanges() const { return m_exchanges; }

private:
    CIpcMessage Answer(const CIpcMessage& request) {
        ++m_exchanges;
        CIpcMessage reply(request);
        reply.MakeReply(0);
        std::string text;
        int value = 50;
        if (request.IsTextArg(0) && request.GetArg(0, text)) {
            reply.AddArg(0, text);
        } else {
            request.GetArg(0, value);
            reply.AddArg(0, value);
        }
        return reply;
    }

    long m_exchanges = 0;
};

std::string WithChecksum(const std::string& body) {
    unsigned sum = 0;
    for (const char c : body) {
        sum += static_cast<unsigned char>(c);
    }
    char checksum[8];
    snprintf(checksum, sizeof checksum, "%03u", sum % 256);
    return "(" + body + checksum + ")";
}

// About 64 KiB of valid messages, every one handled (none is for another projector);
// `messages` receives their count.
std::string MixedStream(long& messages) {
    const std::vector<std::string> pattern = {
        "(BRI?)",
        "(BRI 50)",
        "(CTL+0001 -25)",
        R"((TXT "Line one\nline two \h41\(x\) \"quoted\""))",
        WithChecksum("&65534 00003 BRI 42 "),
        "(NET+PORT?)",
        "(#LMP 1 2 3)",
        R"((TXT+NAME "Projector \h31 \\ hall"))",
        WithChecksum("&$65535 00007 CTL+0002? "),
    };
    std::string stream;
    messages = 0;
    while (stream.size() < 64 * 1024) {
        for (const std::string& message : pattern) {
            stream += message;
            ++messages;
        }
    }
    return stream;
}

long CountOpenings(const std::string& stream) {
    long count = 0;
    const char* at = stream.data();
    const char* const end = at + stream.size();
    while ((at = static_cast<const char*>(memchr(at, '(', static_cast<size_t>(end - at)))) != nullptr) {
        ++count;
        ++at;
    }
    return count;
}

void BM_ScanStream(benchmark::State& state) {
    long messages = 0;
    const std::string stream = MixedStream(messages);
    const long expected = CountOpenings(stream);  // escaped "\(" in texts included
    for (auto _ : state) {
        long count = CountOpenings(stream);
        benchmark::DoNotOptimize(count);
        if (count != expected) {
            state.SkipWithError("scan miscounted");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(stream.size()));
}
BENCHMARK(BM_ScanStream);

void BM_ParseStream(benchmark::State& state) {
    long messages = 0;
    const std::string stream = MixedStream(messages);
    CLogger log;  // no sinks: logging costs only its level check
    CEchoLink link(log, "parse_bench");
    const int fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    CCommPort port(PORT_ETHERNET, fd, "bench");
    CVeltraneSerialParser parser(&link, nullptr, &port, log);
    CVeltraneSerialParser::UpdateAddress(0);
    const auto* bytes = reinterpret_cast<const unsigned char*>(stream.data());
    // As UpdateRxd hands them over: one parser buffer at a time.
    const size_t chunk = CVeltraneSerialParser::kBufferSize;
    for (auto _ : state) {
        const long before = link.GetExchanges();
        for (size_t at = 0; at < stream.size(); at += chunk) {
            parser.Feed(bytes + at, std::min(chunk, stream.size() - at));
        }
        if (link.GetExchanges() - before != messages) {
            state.SkipWithError("not every message reached the link");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(stream.size()));
    const double handled = static_cast<double>(state.iterations()) * static_cast<double>(messages);
    state.counters["messages"] = benchmark::Counter(handled, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ParseStream);

// ---- end to end ------------------------------------------------------------------------

const char kQuery[] = "(BRI?)";
constexpr size_t kQueryLength = sizeof kQuery - 1;

// A controller with what the front-end reads at start ("RAL" of the Ethernet connections
// 1, of the serial ports 0 so that none is opened; "NET"+"PORT" 0, an ephemeral port) and
// "BRI" to be queried.
std::unique_ptr<CBenchController> MakeFrontEndController() {
    auto controller = std::make_unique<CBenchController>();
    controller->AddInteger("BRI", 0, 100, 50);
    controller->AddInteger("RAL", 0, 3, 1);
    for (const char* port : {"PRTA", "PRTB", "PRTC", "PUSB"}) {
        controller->AddInteger(std::string("RAL+") + port, 0, 3, 0);
    }
    controller->AddInteger("NET+PORT", 0, 65535, 0);
    controller->Serve();
    return controller;
}

// The controller plus the serial handler running its loop on its own pinned thread, as
// the front-end process does. The handler, its link and its ports live on that thread.
class CFrontEnd {
public:
    CFrontEnd() {
        std::promise<unsigned short> listening;
        std::future<unsigned short> port = listening.get_future();
        m_thread = std::thread([this, &listening] {
            PinToOneCpu();
            CEventLink link(m_controller->Log(), "ascii_bench_frontend");
            CVeltraneSerialHandler handler(m_controller->Log(), &link, nullptr);
            handler.Begin(false);
            m_handler = &handler;
            listening.set_value(handler.GetServerPort());
            while (!m_stop) {
                handler.RunOnce(CSerialHandler::kSelectTimeoutMs);
            }
        });
        m_port = port.get();
    }
    ~CFrontEnd() {
        m_stop = true;
        m_handler->Stop();  // wakes the loop out of its wait
        m_thread.join();
    }
    unsigned short GetPort() const { return m_port; }

private:
    std::unique_ptr<CBenchController> m_controller = MakeFrontEndController();
    std::atomic<bool> m_stop{false};
    CSerialHandler* m_handler = nullptr;  // Stop() is the one call allowed from elsewhere
    unsigned short m_port = 0;
    std::thread m_thread;
};

int ConnectTcp(unsigned short port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    if (fd < 0 || setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0 ||
        connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        abort();
    }
    return fd;
}

// Collects bytes from fd into pending until a whole reply ")" is there; false when the
// connection ended. The reply is removed from pending.
bool ReadReply(int fd, std::string& pending, std::string* reply = nullptr) {
    for (;;) {
        const size_t end = pending.find(')');
        if (end != std::string::npos) {
            if (reply) {
                *reply = pending.substr(0, end + 1);
            }
            pending.erase(0, end + 1);
            return true;
        }
        char buffer[256];
        const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
        if (got <= 0) {
            return false;
        }
        pending.append(buffer, static_cast<size_t>(got));
    }
}

bool Query(int fd, std::string& pending, std::string* reply = nullptr) {
    return send(fd, kQuery, kQueryLength, MSG_NOSIGNAL) == static_cast<ssize_t>(kQueryLength) &&
           ReadReply(fd, pending, reply);
}

void BM_FrontEndQuery(benchmark::State& state) {
    PinToOneCpu();
    CFrontEnd frontEnd;
    const int client = ConnectTcp(frontEnd.GetPort());
    std::string pending;
    std::string reply;
    if (!Query(client, pending, &reply) || reply.rfind("(BRI!", 0) != 0) {
        state.SkipWithError(("unexpected reply " + reply).c_str());
    }
    CLatencyRecord latency;
    for (auto _ : state) {
        latency.Start();
        if (!Query(client, pending)) {
            state.SkipWithError("connection lost");
            break;
        }
        latency.Stop();
    }
    latency.Report(state);
    close(client);
}
BENCHMARK(BM_FrontEndQuery)->Apply(AsComparedRoundTrip);

void BM_FrontEndThirteenClients(benchmark::State& state) {
    PinToOneCpu();
    CFrontEnd frontEnd;
    constexpr size_t kClients = CSerialHandler::kMaxParsers;
    std::vector<pollfd> polled;
    std::vector<std::string> pending(kClients);
    for (size_t i = 0; i < kClients; ++i) {
        const int fd = ConnectTcp(frontEnd.GetPort());
        polled.push_back(pollfd{fd, POLLIN, 0});
        // One query answered proves the connection was accepted and has its parser.
        if (!Query(fd, pending[i])) {
            state.SkipWithError("a connection was refused");
        }
    }
    for (const pollfd& entry : polled) {
        send(entry.fd, kQuery, kQueryLength, MSG_NOSIGNAL);
    }
    double answered = 0;
    for (auto _ : state) {
        if (poll(polled.data(), polled.size(), 5000) <= 0) {
            state.SkipWithError("no reply within 5 s");
            break;
        }
        for (size_t i = 0; i < kClients; ++i) {
            if ((polled[i].revents & (POLLIN | POLLERR | POLLHUP)) == 0) {
                continue;
            }
            if (!ReadReply(polled[i].fd, pending[i])) {
                state.SkipWithError("connection lost");
                break;
            }
            ++answered;
            send(polled[i].fd, kQuery, kQueryLength, MSG_NOSIGNAL);
        }
    }
    for (size_t i = 0; i < kClients; ++i) {
        ReadReply(polled[i].fd, pending[i]);  // the query still outstanding
        close(polled[i].fd);
    }
    state.counters["queries"] = benchmark::Counter(answered, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FrontEndThirteenClients)->UseRealTime();

// ---- raw baselines -------------------------------------------------------------------

// The request the event link sends for "(BRI?)": the access level travels as 231.
std::vector<unsigned char> LinkRequestBytes() {
    CIpcMessage request;
    request.SetCode("BRI");
    request.SetSubCode("");
    request.SetFlags(MSG_FLAG_REQUEST | MSG_FLAG_REPLY_WANTED);
    request.AddArg(CIpcEventDispatcher::kAccessLevelParm, CSecurityManager::kDefaultAccessGroup);
    unsigned char* data = nullptr;
    const int size = request.SerializeMessage(data);
    return std::vector<unsigned char>(data, data + size);
}

// Echoes the TCP stream of one connection on its own pinned thread until the peer closes.
// Given the path of a datagram echo, it relays as the front-end does, with no work between
// its system calls: it waits in poll() for the bytes, receives them, sends the event
// link's request to the datagram echo and receives the answer, then sends the bytes back.
class CRawTcpEcho {
public:
    explicit CRawTcpEcho(std::string relayTo = "") {
        m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (m_listener < 0 || bind(m_listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            listen(m_listener, 1) != 0 ||
            getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            abort();
        }
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([fd = m_listener, relayTo = std::move(relayTo)] {
            PinToOneCpu();
            const int peer = accept(fd, nullptr, nullptr);
            const std::string relayPath = SocketDir() + "/relay";
            const int relay = relayTo.empty() ? -1 : BoundDatagramSocket(relayPath);
            const std::vector<unsigned char> request = LinkRequestBytes();
            char buffer[4096];
            for (;;) {
                if (relay >= 0) {
                    pollfd readable{peer, POLLIN, 0};
                    poll(&readable, 1, -1);
                }
                const ssize_t got = recv(peer, buffer, sizeof buffer, 0);
                if (got <= 0) {
                    break;
                }
                if (relay >= 0) {
                    RawRoundTrip(relay, relayTo, request.data(), static_cast<int>(request.size()));
                }
                if (send(peer, buffer, static_cast<size_t>(got), MSG_NOSIGNAL) != got) {
                    break;
                }
            }
            close(peer);
            if (relay >= 0) {
                close(relay);
                unlink(relayPath.c_str());
            }
        });
    }
    ~CRawTcpEcho() {
        m_thread.join();  // the client has closed its end by now
        close(m_listener);
    }
    unsigned short GetPort() const { return m_port; }

private:
    int m_listener = -1;
    unsigned short m_port = 0;
    std::thread m_thread;
};

void RawTcpRoundTrip(int client) {
    char reply[kQueryLength];
    send(client, kQuery, kQueryLength, MSG_NOSIGNAL);
    for (size_t got = 0; got < kQueryLength;) {
        const ssize_t n = recv(client, reply + got, kQueryLength - got, 0);
        if (n <= 0) {
            abort();
        }
        got += static_cast<size_t>(n);
    }
}

void BM_RawTcpRoundTrip(benchmark::State& state) {
    PinToOneCpu();
    CRawTcpEcho echo;
    const int client = ConnectTcp(echo.GetPort());
    for (auto _ : state) {
        RawTcpRoundTrip(client);
    }
    close(client);
}
BENCHMARK(BM_RawTcpRoundTrip)->UseRealTime();

void BM_RawDatagramRoundTrip(benchmark::State& state) {
    PinToOneCpu();
    CRawEcho echo(SocketDir() + "/raw_server");
    const std::string clientPath = SocketDir() + "/raw_client";
    const int client = BoundDatagramSocket(clientPath);
    const std::vector<unsigned char> request = LinkRequestBytes();
    for (auto _ : state) {
        RawRoundTrip(client, echo.GetPath(), request.data(), static_cast<int>(request.size()));
    }
    close(client);
    unlink(clientPath.c_str());
}
BENCHMARK(BM_RawDatagramRoundTrip)->UseRealTime();

// The baseline of BM_FrontEndQuery: both raw hops in every iteration.
void BM_RawTcpPlusDatagramRoundTrip(benchmark::State& state) {
    PinToOneCpu();
    CRawTcpEcho tcpEcho;
    const int tcpClient = ConnectTcp(tcpEcho.GetPort());
    CRawEcho datagramEcho(SocketDir() + "/raw_server");
    const std::string clientPath = SocketDir() + "/raw_client";
    const int datagramClient = BoundDatagramSocket(clientPath);
    const std::vector<unsigned char> request = LinkRequestBytes();
    CLatencyRecord latency;
    for (auto _ : state) {
        latency.Start();
        RawTcpRoundTrip(tcpClient);
        RawRoundTrip(datagramClient, datagramEcho.GetPath(), request.data(), static_cast<int>(request.size()));
        latency.Stop();
    }
    latency.Report(state);
    close(datagramClient);
    unlink(clientPath.c_str());
    close(tcpClient);
}
BENCHMARK(BM_RawTcpPlusDatagramRoundTrip)->Apply(AsComparedRoundTrip);

// The floor of BM_FrontEndQuery under the front-end's and the controller's loops: a raw
// relay waiting in poll() and a datagram echo waiting as the controller's loop does, the
// system calls of the real path with nothing between them.
void BM_LoopedRelayRoundTrip(benchmark::State& state) {
    PinToOneCpu();
    CRawEcho datagramEcho(SocketDir() + "/raw_server", true);
    CRawTcpEcho relay(datagramEcho.GetPath());
    const int client = ConnectTcp(relay.GetPort());
    CLatencyRecord latency;
    for (auto _ : state) {
        latency.Start();
        RawTcpRoundTrip(client);
        latency.Stop();
    }
    latency.Report(state);
    close(client);
}
BENCHMARK(BM_LoopedRelayRoundTrip)->Apply(AsComparedRoundTrip);

}  // namespace

int main(int argc, char** argv) {
    // Before any thread: every system path of the front-end (sockets, keep-alive files)
    // resolves into the private directory.
    NRuntimeRoot::SetRoot(SocketDir());
    std::filesystem::create_directories(NRuntimeRoot::Path("/var/run/ui"));
    const int result = RunBenchmarksWithRatios(argc, argv,
                                               {{"BM_ParseStream", "BM_ScanStream", 400.0},
                                                {"BM_FrontEndQuery", "BM_RawTcpPlusDatagramRoundTrip", 1.15, "p50_us"},
                                                {"BM_LoopedRelayRoundTrip", "BM_RawTcpPlusDatagramRoundTrip", 0, "p50_us"},
                                                {"BM_FrontEndQuery", "BM_LoopedRelayRoundTrip", 0, "p50_us"}});
    RemoveSocketDir();
    return result;
}
