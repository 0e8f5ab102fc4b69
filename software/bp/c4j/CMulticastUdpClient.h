#pragma once
// CMulticastUdpClient: sends JSON-RPC requests to a multicast group through one network
// interface, with multicast loopback on (the sender's own group server receives them
// too), and takes the members' answers.
//
// ProcessReceivedData applies the first-character rule to answers: a text that starts
// with a NUL or a decimal digit is no JSON-RPC answer; "Ignoring response: " and its
// first character go to standard output and the text is dropped.
//
// Ownership: owns its socket. Thread contract: one thread.
// Errors: MulticastConnect throws CException with the reason and the system's error
// text, leaving no socket open.

#include <string>

#include "SJsonRpcMulticast.h"
#include "jsonrpc/UdpClient.h"

class CMulticastUdpClient : public Json::Rpc::UdpClient {
public:
    CMulticastUdpClient(const std::string& group, unsigned short port) : Json::Rpc::UdpClient(group, port) {}

    void MulticastConnect(const std::string& interface);
    // Appends the bytes to the answer's text; false (text cleared) when it is no answer.
    static bool ProcessReceivedData(SJsonRpcMulticastResponse& response, const char* data, size_t size);
};
