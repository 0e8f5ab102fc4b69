#include "BenchSockets.h"

#include <pthread.h>
#include <sched.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>

namespace {

// The CPUs the process was allowed at its first pinning.
const cpu_set_t& StartingCpus() {
    static const cpu_set_t cpus = [] {
        cpu_set_t allowed;
        CPU_ZERO(&allowed);
        sched_getaffinity(0, sizeof allowed, &allowed);
        return allowed;
    }();
    return cpus;
}

}  // namespace

void PinToOneCpu() {
    const cpu_set_t& allowed = StartingCpus();
    for (size_t cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(cpu, &allowed)) {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(cpu, &one);
            sched_setaffinity(0, sizeof one, &one);
            return;
        }
    }
}

double ThreadCpuSeconds(std::thread& thread) {
    clockid_t clock;
    timespec used{};
    if (pthread_getcpuclockid(thread.native_handle(), &clock) != 0 || clock_gettime(clock, &used) != 0) {
        return 0;
    }
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

void UnpinFromOneCpu() { sched_setaffinity(0, sizeof StartingCpus(), &StartingCpus()); }

const std::string& SocketDir() {
    static const std::string dir = [] {
        std::string pattern = "/tmp/bench-XXXXXX";
        if (!mkdtemp(&pattern[0])) {
            abort();
        }
        return pattern;
    }();
    return dir;
}

void RemoveSocketDir() {
    std::error_code ignored;
    std::filesystem::remove_all(SocketDir(), ignored);
}

namespace {

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return address;
}

}  // namespace

int BoundDatagramSocket(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    const sockaddr_un address = AddressOf(path);
    unlink(path.c_str());
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        abort();
    }
    return fd;
}

CRawEcho::CRawEcho(const std::string& path, bool waitsInPoll) : m_path(path), m_fd(BoundDatagramSocket(path)) {
    m_thread = std::thread([fd = m_fd, waitsInPoll] {
        PinToOneCpu();
        // The controller's loop also watches its wake-up pipe, and waits at most 100 ms.
        int idle[2];
        if (pipe(idle) != 0) {
            abort();
        }
        unsigned char buffer[4096];
        for (;;) {
            if (waitsInPoll) {
                pollfd watched[2] = {{fd, POLLIN, 0}, {idle[0], POLLIN, 0}};
                poll(watched, 2, 100);
            }
            sockaddr_un from{};
            socklen_t fromLength = sizeof from;
            const ssize_t n = recvfrom(fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &fromLength);
            if (n <= 1) {
                break;
            }
            sendto(fd, buffer, static_cast<size_t>(n), 0, reinterpret_cast<sockaddr*>(&from), fromLength);
        }
        close(idle[0]);
        close(idle[1]);
    });
}

CRawEcho::~CRawEcho() {
    const int stopper = socket(AF_UNIX, SOCK_DGRAM, 0);
    const sockaddr_un to = AddressOf(m_path);
    const unsigned char stop = 0;
    sendto(stopper, &stop, 1, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    close(stopper);
    m_thread.join();
    close(m_fd);
    unlink(m_path.c_str());
}

void RawRoundTrip(int client, const std::string& to, const unsigned char* data, int size) {
    static thread_local std::string lastPath;
    static thread_local sockaddr_un address;
    if (lastPath != to) {
        address = AddressOf(to);
        lastPath = to;
    }
    unsigned char reply[4096];
    sendto(client, data, static_cast<size_t>(size), 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    recv(client, reply, sizeof reply, 0);
}
