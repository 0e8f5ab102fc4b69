#pragma once
// CJsonRpcMulticast: JSON-RPC among the projectors of a multicast group: a group server
// (CMulticastUdpServer) whose methods every member serves, and a group client
// (CMulticastUdpClient) that sends a request to the group and collects the answers.
// Both use the group address and port on one interface, given by the creator.
//
// As a source of the controller's loop it serves the group's requests on the loop
// thread (AddDescriptors / ProcessReady).
//
// Lifetime: the log outlives it. Thread contract: the loop's thread (or one thread that
// calls ProcessMessages).
// Errors: CException: Initialize "Error initializing multicast receive socket" / "Error
// initializing multicast send socket" (the reason logged; nothing stays open), the other
// calls before Initialize "Uninitialized JSON multicast client" / "Uninitialized JSON
// multicast server", ProcessFilteredMessages "Failed to ProcessFilteredMessages".

#include <string>
#include <vector>

#include "CControllerLoop.h"
#include "CMulticastUdpClient.h"
#include "CMulticastUdpServer.h"
#include "log/ILog.h"

class CJsonRpcMulticast : public ILoopSource {
public:
    CJsonRpcMulticast(const std::string& group, unsigned short port, const std::string& interface, ILog& log);

    void Initialize();
    bool IsInitialized() const { return m_initialized; }
    // The server owns the method from now on.
    void AddMethod(Json::Rpc::CallbackMethod* method) { m_server.AddMethod(method); }

    // False when the datagram could not be sent.
    bool MulticastRpcSend(const SJsonRpcMulticast& request);
    // Collects the answers that arrive within timeoutMs (sooner once `expected` came, when
    // not 0); a failing receive ends the collection with what was gathered.
    void MulticastRcpRecv(std::vector<SJsonRpcMulticastResponse>& responses, unsigned int timeoutMs,
                          size_t expected = 0);
    void ProcessMessages(unsigned int timeoutMs);
    void ProcessFilteredMessages(const std::string& ip, unsigned int timeoutMs);
    void ClearServerMessages();
    void ClearClientMessages();

    void AddDescriptors(CPollSet& poll) override;
    void ProcessReady(const CPollSet& poll) override;

    const std::string& GetGroup() const { return m_group; }
    unsigned short GetPort() const { return m_port; }
    CMulticastUdpServer& GetServer() { return m_server; }

private:
    std::string m_group;
    unsigned short m_port;
    std::string m_interface;
    ILog& m_log;
    CMulticastUdpServer m_server;
    CMulticastUdpClient m_client;
    bool m_initialized = false;
};
