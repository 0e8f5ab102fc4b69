#pragma once
// CMulticastUdpServer: a JSON-RPC UDP server (Json::Rpc::UdpServer) that receives a
// multicast group's requests on one network interface: bound to "0.0.0.0" and the port,
// tied to the interface, joined to the group on the interface's address. Answers go to
// each request's sender.
//
// With a source filter set, only datagrams from that sender are served: the next
// datagram's sender is looked at with a one-byte peek, and a datagram from anyone else is
// read and dropped unanswered.
//
// Ownership: owns its socket. Thread contract: one thread (the server's loop).
// Errors: MulticastBind and SetReceiveBufferSize throw CException with the reason and
// the system's error text; a failed MulticastBind leaves no socket open.

#include <string>

#include "jsonrpc/UdpServer.h"

class CMulticastUdpServer : public Json::Rpc::UdpServer {
public:
    CMulticastUdpServer(const std::string& group, unsigned short port);

    void MulticastBind(const std::string& interface);
    void SetReceiveBufferSize(int bytes);
    // Dotted IPv4 sender address; empty: no filter.
    void SetIpFilter(const std::string& ip) { m_filter = ip; }
    const std::string& GetIpFilter() const { return m_filter; }
    bool Recv() override;

private:
    std::string m_group;
    std::string m_filter;
};
