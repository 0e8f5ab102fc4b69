#pragma once
// CUnicastUdpServer and CUnicastUdpClient: JSON-RPC over UDP between two projectors (or
// a controller and one projector): a server on a port, optionally tied to one network
// interface, and a client that sends to one address and waits for the answer with a
// receive time-out.
//
// As a source of the controller's loop the server serves its requests on the loop thread.
//
// Ownership: each owns its socket. Thread contract: one thread each.
// Errors: CException with the reason and the system's error text: "Error binding to
// unicast server socket: %s", "Error building unicast client socket: %s", "Error setting
// the network interface to %s: %s", "Invalid IP Address given : [%s]", "Error setting a
// timeout for a UnicastUdpClient receive socket: %s"; a failed bind or connect leaves no
// socket open.

#include <string>

#include "CControllerLoop.h"
#include "jsonrpc/UdpClient.h"
#include "jsonrpc/UdpServer.h"

class CUnicastUdpServer : public Json::Rpc::UdpServer, public ILoopSource {
public:
    explicit CUnicastUdpServer(unsigned short port) : Json::Rpc::UdpServer("0.0.0.0", port) {}

    // An empty interface name leaves the socket on every interface.
    void UnicastBind(const std::string& interface);

    void AddDescriptors(CPollSet& poll) override;
    void ProcessReady(const CPollSet& poll) override;
};

class CUnicastUdpClient : public Json::Rpc::UdpClient {
public:
    CUnicastUdpClient(const std::string& address, unsigned short port) : Json::Rpc::UdpClient(address, port) {}

    // An empty interface name leaves the socket on every interface.
    void UnicastConnect(const std::string& interface);
    void SetIp(const std::string& address);
    void SetRecvTimeout(unsigned int ms);
    // Sends the request and waits (up to the receive time-out) for one answer.
    bool Call(const std::string& request, std::string& answer);
};
