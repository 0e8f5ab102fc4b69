#pragma once
// Json::Rpc::UdpServer: JSON-RPC over UDP: each datagram carries one JSON text (a request
// or a batch) and is answered, when it has an answer, by one datagram to its sender.
//
//   - datagrams are read into buffers of kDatagramSize (1500) bytes; a longer one is
//     answered with -32600 "Datagram larger than 1500 bytes" (id null), since its text is
//     cut;
//   - everything else goes to the method table (Handler): parse errors, invalid
//     requests and unknown methods get their JSON-RPC errors there, notifications get
//     nothing;
//   - an answer longer than kDatagramSize bytes is replaced by -32603 "Response too large
//     for one datagram", so that no receiver gets a cut text.
// Requests reach their methods with client id kClientId (no TCP client has it).
//
// Ownership: owns the socket and the method table. Thread contract: one thread (the
// server's loop). Errors: Bind returns false (errno set, nothing left open); receiving
// never throws.

#include <netinet/in.h>

#include <string>

#include "jsonrpc/Handler.h"

namespace Json {
namespace Rpc {

class UdpServer {
public:
    static constexpr size_t kDatagramSize = 1500;
    static constexpr int kClientId = -1;

    // address: a dotted IPv4 address ("0.0.0.0" = any); port 0 = any free port.
    // sharePort: several sockets may bind the same port (SO_REUSEADDR), as the members of a
    // multicast group on one host must; otherwise a port another socket holds is refused,
    // so that two servers never silently split one port's datagrams.
    UdpServer(const std::string& address, unsigned short port, bool sharePort = false);
    virtual ~UdpServer();
    UdpServer(const UdpServer&) = delete;
    UdpServer& operator=(const UdpServer&) = delete;

    // Creates the socket (close-on-exec, non-blocking) and binds it; false with errno
    // EADDRINUSE when the port is taken (and not shared).
    bool Bind();
    void Close();
    int GetSocket() const { return m_socket; }
    unsigned short GetPort() const;

    void AddMethod(CallbackMethod* method) { m_handler.AddMethod(method); }
    Handler& GetHandler() { return m_handler; }

    // Serves one waiting datagram; false when none was waiting (or the socket failed).
    virtual bool Recv();
    // Waits up to timeoutMs for a datagram and serves it; false when none came.
    bool WaitMessage(unsigned int timeoutMs);
    // Serves what is waiting now (a bounded number, so a flood cannot hold the loop).
    void ServeWaiting();

protected:
    // Reads one datagram and answers it.
    bool ReadAndDispatch();

private:
    std::string m_address;
    unsigned short m_port;
    bool m_sharePort;
    int m_socket = -1;
    Handler m_handler;
};

}  // namespace Rpc
}  // namespace Json
