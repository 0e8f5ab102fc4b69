#include "CJsonRpcMulticast.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <chrono>

#include "CException.h"

CJsonRpcMulticast::CJsonRpcMulticast(const std::string& group, unsigned short port, const std::string& interface,
                                     ILog& log)
    : m_group(group), m_port(port), m_interface(interface), m_log(log), m_server(group, port), m_client(group, port) {}

void CJsonRpcMulticast::Initialize() {
    try {
        m_server.MulticastBind(m_interface);
    } catch (const CException& e) {
        m_log.LogError("%s", e.GetMessage().c_str());
        THROW_EXCEPTION("Error initializing multicast receive socket");
    }
    try {
        m_client.MulticastConnect(m_interface);
    } catch (const CException& e) {
        m_log.LogError("%s", e.GetMessage().c_str());
        m_server.Close();
        THROW_EXCEPTION("Error initializing multicast send socket");
    }
    m_initialized = true;
}

bool CJsonRpcMulticast::MulticastRpcSend(const SJsonRpcMulticast& request) {
    if (!m_initialized) {
        THROW_EXCEPTION("Uninitialized JSON multicast client");
    }
    return m_client.Send(request.GetText());
}

void CJsonRpcMulticast::MulticastRcpRecv(std::vector<SJsonRpcMulticastResponse>& responses, unsigned int timeoutMs,
                                         size_t expected) {
    if (!m_initialized) {
        THROW_EXCEPTION("Uninitialized JSON multicast client");
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (expected == 0 || responses.size() < expected) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
        std::string text;
        sockaddr_in sender{};
        if (left < 0 || !m_client.Recv(text, sender, static_cast<unsigned int>(left))) {
            break;
        }
        SJsonRpcMulticastResponse response;
        char address[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &sender.sin_addr, address, sizeof address);
        response.sender = address;
        if (CMulticastUdpClient::ProcessReceivedData(response, text.data(), text.size())) {
            responses.push_back(response);
        }
    }
}

void CJsonRpcMulticast::ProcessMessages(unsigned int timeoutMs) {
    if (!m_initialized) {
        THROW_EXCEPTION("Uninitialized JSON multicast server");
    }
    m_server.WaitMessage(timeoutMs);
}

void CJsonRpcMulticast::ProcessFilteredMessages(const std::string& ip, unsigned int timeoutMs) {
    try {
        if (!m_initialized) {
            THROW_EXCEPTION("Uninitialized JSON multicast server");
        }
        m_server.SetIpFilter(ip);
        m_server.WaitMessage(timeoutMs);
    } catch (const CException&) {
        m_server.SetIpFilter("");
        THROW_EXCEPTION("Failed to ProcessFilteredMessages");
    }
    m_server.SetIpFilter("");
}

void CJsonRpcMulticast::ClearServerMessages() {
    char dropped[Json::Rpc::UdpServer::kDatagramSize];
    while (m_server.GetSocket() >= 0 && recv(m_server.GetSocket(), dropped, sizeof dropped, MSG_DONTWAIT) >= 0) {
    }
}

void CJsonRpcMulticast::ClearClientMessages() {
    char dropped[Json::Rpc::UdpServer::kDatagramSize];
    while (m_client.GetSocket() >= 0 && recv(m_client.GetSocket(), dropped, sizeof dropped, MSG_DONTWAIT) >= 0) {
    }
}

void CJsonRpcMulticast::AddDescriptors(CPollSet& poll) {
    if (m_server.GetSocket() >= 0) {
        poll.Add(m_server.GetSocket(), true, false);
    }
}

void CJsonRpcMulticast::ProcessReady(const CPollSet& poll) {
    if (m_server.GetSocket() >= 0 && poll.IsReadable(m_server.GetSocket())) {
        m_server.ServeWaiting();
    }
}
