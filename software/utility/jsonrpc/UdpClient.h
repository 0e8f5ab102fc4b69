#pragma once
// Json::Rpc::UdpClient: the sending side of JSON-RPC over UDP: one request text per
// datagram to address:port, and the answers, each one datagram of at most
// UdpServer::kDatagramSize bytes, from whoever sends them back (a multicast group
// answers with one datagram per member).
//
// Ownership: owns its socket. Thread contract: one thread. Errors: Connect and Send
// return false with errno set; Recv returns false on time-out or failure.

#include <netinet/in.h>

#include <string>

namespace Json {
namespace Rpc {

class UdpClient {
public:
    UdpClient(const std::string& address, unsigned short port);
    virtual ~UdpClient();
    UdpClient(const UdpClient&) = delete;
    UdpClient& operator=(const UdpClient&) = delete;

    // Creates the socket (close-on-exec); a socket made before is closed first.
    bool Connect();
    void Close();
    int GetSocket() const { return m_socket; }
    // A dotted IPv4 address; false (nothing changed) for anything else.
    bool SetAddress(const std::string& address);
    const std::string& GetAddress() const { return m_address; }
    unsigned short GetPort() const { return m_port; }

    bool Send(const std::string& text);
    // One datagram within timeoutMs (0: only one already waiting): its text, with a longer
    // datagram's text cut at the buffer, and its sender.
    bool Recv(std::string& text, sockaddr_in& sender, unsigned int timeoutMs);

private:
    std::string m_address;
    unsigned short m_port;
    int m_socket = -1;
};

}  // namespace Rpc
}  // namespace Json
