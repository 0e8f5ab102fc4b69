#pragma once
// Shared pieces of the socket benchmarks: CPU pinning, a private socket directory, and
// the raw Unix-datagram echo that serves as the baseline of every IPC round trip.

#include <string>
#include <thread>

// Pins the calling thread to the first CPU it may run on. Round trips between two
// threads differ several-fold depending on whether they share a core, which would swamp
// what is measured, so both sides of every measured exchange are pinned.
void PinToOneCpu();
// The CPU time a running thread has used so far, in seconds.
double ThreadCpuSeconds(std::thread& thread);
// Lets the calling thread (and the threads it starts from now on) run on every CPU the
// process started with again.
void UnpinFromOneCpu();

// A fresh directory for the benchmark's sockets (removed by RemoveSocketDir).
const std::string& SocketDir();
void RemoveSocketDir();

// A raw datagram socket bound at path (aborts on failure: a benchmark cannot go on).
int BoundDatagramSocket(const std::string& path);

// Echoes every datagram back to its sender on its own pinned thread until a one-byte
// datagram arrives. With waitsInPoll it waits before each receive as the controller's loop
// does (poll() over the socket and a wake-up pipe): the system calls of that loop with no
// work between them.
class CRawEcho {
public:
    explicit CRawEcho(const std::string& path, bool waitsInPoll = false);
    ~CRawEcho();
    const std::string& GetPath() const { return m_path; }

private:
    std::string m_path;
    int m_fd;
    std::thread m_thread;
};

// One raw round trip of `size` bytes from `client` to the echo at `to`.
void RawRoundTrip(int client, const std::string& to, const unsigned char* data, int size);
