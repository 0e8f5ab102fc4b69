#pragma once
// CServerSocket: the listening TCP socket of the ASCII command protocol; each accepted
// connection becomes a CEthernetPort.
//
// Init also sets the system-wide TCP keep-alive (idle 120 s, probes every 30 s, 3 probes)
// by writing the three /proc/sys/net/ipv4/tcp_keepalive_* files through the runtime root,
// again at every Init. A file that cannot be written (missing under a test root, no
// permission) does not stop the server: nothing is created, and the failure is kept as a
// text in GetKeepAliveWarnings() for the owner to log.
//
// Ownership: owns the listening descriptor (closed when destroyed or by the next Init);
// the descriptors returned by Accept belong to the caller.
// Thread contract: the thread of the handler that owns the server only.

#include <netinet/in.h>

#include <cstddef>
#include <string>
#include <vector>

class CServerSocket {
public:
    static constexpr int kBacklog = 10;
    static constexpr size_t kMaxPeerName = 25;

    // Nothing is opened yet. localOnly binds to 127.0.0.1, otherwise to every address.
    // Port 0 asks for an ephemeral port (see GetPort).
    CServerSocket(unsigned short port, bool localOnly);
    ~CServerSocket();
    CServerSocket(const CServerSocket&) = delete;
    CServerSocket& operator=(const CServerSocket&) = delete;

    // Opens the non-blocking listening socket (closing one opened before) and returns its
    // descriptor. Throws "Error clearing old socket", "Failed to set keepalive", "Failed
    // binding" or "Failed listening" (with errno); on a throw nothing stays open.
    int Init();

    // Accepts one waiting connection; peerName becomes "a.b.c.d-port". The listening
    // socket is non-blocking, so call it once select/poll reports the descriptor readable.
    // Throws "Failed to accept incoming connection" (with errno), also when none waits.
    int Accept(std::string& peerName);

    // The listening descriptor, -1 before Init.
    int GetFd() const { return m_fd; }
    // The port actually bound after Init (the ephemeral one for port 0); before Init the
    // port given. Throws "Failed to read the bound port" (with errno).
    unsigned short GetPort() const;
    // One text per keep-alive setting the last Init could not write.
    const std::vector<std::string>& GetKeepAliveWarnings() const { return m_keepAliveWarnings; }

private:
    void Close();
    // Closes the half-made socket and throws message with the errno of the failure.
    [[noreturn]] void CloseAndThrow(const char* message);
    void WriteKeepAliveSetting(const char* systemPath, const char* value);

    unsigned short m_port;
    in_addr_t m_address;  // network byte order
    int m_fd = -1;
    std::vector<std::string> m_keepAliveWarnings;
};
