#include "CJsonRpcTcpServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <vector>

#include "CException.h"

unsigned int SJsonRpcClient::mGlobalId = 0;

CJsonRpcTcpServer::CJsonRpcTcpServer(const std::string& address, unsigned short port, ILog& log)
    : Json::Rpc::Server(address, port), m_log(log), m_reserveFd(open("/dev/null", O_RDONLY | O_CLOEXEC)) {}

CJsonRpcTcpServer::~CJsonRpcTcpServer() {
    Close();
    if (m_reserveFd >= 0) {
        close(m_reserveFd);
    }
}

void CJsonRpcTcpServer::Close() {
    for (auto& client : m_clients) {
        OnClientClosed(*client);
        close(client->fd);
    }
    m_clients.clear();
    m_byId.clear();
    m_purge.clear();
    Json::Rpc::Server::Close();
}

int CJsonRpcTcpServer::Accept() {
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    int fd = accept4(GetSocket(), reinterpret_cast<sockaddr*>(&peer), &length, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
        if ((errno == EMFILE || errno == ENFILE) && m_reserveFd >= 0) {
            close(m_reserveFd);
            Refuse(accept(GetSocket(), nullptr, nullptr), "no descriptor left");
            m_reserveFd = open("/dev/null", O_RDONLY | O_CLOEXEC);
        }
        return 0;
    }
    const int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    char address[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &peer.sin_addr, address, sizeof address);
    char name[32];
    snprintf(name, sizeof name, "%s-%d", address, ntohs(peer.sin_port));
    return Adopt(fd, name) ? 1 : 0;
}

bool CJsonRpcTcpServer::Adopt(int fd, const std::string& peerName) {
    if (m_clients.size() >= m_maxClients) {
        Refuse(fd, "client limit reached");
        return false;
    }
    m_refusing = false;
    m_clients.push_back(std::make_unique<SJsonRpcClient>(fd, peerName));
    m_byId[m_clients.back()->id] = m_clients.back().get();
    m_log.Log("Accepted connection from %s [ID:%d]", peerName.c_str(), m_clients.back()->id);
    return true;
}

void CJsonRpcTcpServer::Refuse(int fd, const char* why) {
    if (fd >= 0) {
        close(fd);
    }
    if (!m_refusing) {
        m_log.LogError("Refusing JSON-RPC connections: %s (%zu clients connected)", why, m_clients.size());
        m_refusing = true;
    }
}

void CJsonRpcTcpServer::AddDescriptors(CPollSet& poll) const {
    poll.Add(GetSocket(), true, false);
    for (const auto& client : m_clients) {
        poll.Add(client->fd, true, client->outputSent < client->output.size());
    }
}

int CJsonRpcTcpServer::WaitMessage(unsigned int timeoutMs) {
    CPollSet poll;
    AddDescriptors(poll);
    const int ready = poll.Wait(static_cast<int>(timeoutMs));
    if (ready > 0) {
        ProcessReady(poll);
    }
    return ready;
}

void CJsonRpcTcpServer::ProcessReady(const CPollSet& poll) {
    if (GetSocket() >= 0 && poll.IsReadable(GetSocket())) {
        Accept();
    }
    // Ready clients are taken by identifier first: handling one request may close others.
    // Clients accepted in this pass are not in the poll result; they are served next pass.
    m_ready.clear();
    for (const auto& client : m_clients) {
        if (poll.IsWritable(client->fd) || poll.IsReadable(client->fd)) {
            m_ready.push_back(client->id);
        }
    }
    for (unsigned int id : m_ready) {
        SJsonRpcClient* client = FindClient(id);
        if (!client || std::find(m_purge.begin(), m_purge.end(), id) != m_purge.end()) {
            continue;
        }
        if (poll.IsWritable(client->fd)) {
            Flush(*client);
        }
        if (poll.IsReadable(client->fd)) {
            Recv(*client);
        }
    }
    Purge();
}

void CJsonRpcTcpServer::Recv(SJsonRpcClient& client) {
    const ssize_t received = recv(client.fd, m_receiveArea, sizeof m_receiveArea, MSG_DONTWAIT);
    if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
        return;
    }
    if (received <= 0) {
        m_log.Log("Terminated connection from %s [ID:%d]", client.peerName.c_str(), client.id);
        MarkForPurge(client);
        return;
    }
    std::deque<std::string> requests;
    if (!client.receiveBuffer.Add(m_receiveArea, static_cast<size_t>(received), requests)) {
        m_log.LogError("Closing %s [ID:%d]: request of more than %zu bytes without its end", client.peerName.c_str(),
                       client.id, kMaxRequestBytes);
        MarkForPurge(client);
        return;
    }
    for (std::string& request : requests) {
        if (request.empty() || (request[0] >= '0' && request[0] <= '9')) {
            request = "$";  // a bare number would be valid JSON; make it the parse error it is here
        }
        HandleRequest(client, request);
        if (std::find(m_purge.begin(), m_purge.end(), client.id) != m_purge.end()) {
            return;
        }
    }
}

void CJsonRpcTcpServer::HandleRequest(SJsonRpcClient& client, const std::string& request) {
    m_replyText.clear();
    GetHandler().Answer(request, m_replyText, static_cast<int>(client.id));
    if (!m_replyText.empty()) {
        QueueReply(client, m_replyText);
    }
}

void CJsonRpcTcpServer::QueueReply(SJsonRpcClient& client, const std::string& text) {
    if (client.output.size() - client.outputSent + text.size() + 1 > kMaxQueuedBytes) {
        m_log.LogError("Closing %s [ID:%d]: more than %zu bytes of replies unsent", client.peerName.c_str(), client.id,
                       kMaxQueuedBytes);
        MarkForPurge(client);
        return;
    }
    client.output.append(text);
    client.output.push_back('\0');
    if (!Flush(client)) {
        m_log.LogError("Unable to reply to client %s [ID:%d] %s (%d)", client.peerName.c_str(), client.id,
                       strerror(errno), errno);
    }
}

bool CJsonRpcTcpServer::Flush(SJsonRpcClient& client) {
    while (client.outputSent < client.output.size()) {
        const ssize_t sent = send(client.fd, client.output.data() + client.outputSent,
                                  client.output.size() - client.outputSent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent > 0) {
            client.outputSent += static_cast<size_t>(sent);
            continue;
        }
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            break;
        }
        const int error = errno;
        MarkForPurge(client);
        errno = error;
        return false;
    }
    if (client.outputSent == client.output.size()) {
        client.output.clear();
        client.outputSent = 0;
        if (!client.missed.empty()) {
            // Caught up: what it missed follows, the latest of each key.
            for (const auto& missed : client.missed) {
                client.output.append(missed.second);
                client.output.push_back('\0');
            }
            client.missed.clear();
            return Flush(client);
        }
    } else if (client.outputSent > 64 * 1024) {
        client.output.erase(0, client.outputSent);  // keep the queue from growing by what was sent
        client.outputSent = 0;
    }
    return true;
}

void CJsonRpcTcpServer::Send(unsigned int clientId, const std::string& text, const std::string& key) {
    SJsonRpcClient* client = FindClient(clientId);
    if (!client) {
        THROW_EXCEPTION("Unable to send data to client ID:%d (client not found)", clientId);
    }
    const std::string& slot = key.empty() ? text : key;
    const size_t backlog = client->output.size() - client->outputSent;
    // An idle client takes any one message: what is refused must have a backlog to wait
    // behind, whose draining sends it.
    if (backlog > 0 && backlog + text.size() + 1 > kMaxNotifyBacklogBytes) {
        client->missed[slot] = text;
        if (client->missed.size() > kMaxMissedKeys) {
            m_log.LogError("Closing %s [ID:%d]: behind on more than %zu notifications", client->peerName.c_str(),
                           client->id, kMaxMissedKeys);
            MarkForPurge(*client);
        }
        errno = EAGAIN;
        THROW_ERRNO_EXCEPTION("Unable to send data to client ID:%d", clientId);
    }
    client->missed.erase(slot);
    client->output.append(text);
    client->output.push_back('\0');
    if (!Flush(*client)) {
        THROW_ERRNO_EXCEPTION("Unable to send data to client ID:%d", clientId);
    }
}

SJsonRpcClient* CJsonRpcTcpServer::FindClient(unsigned int clientId) const {
    const auto found = m_byId.find(clientId);
    return found == m_byId.end() ? nullptr : found->second;
}

void CJsonRpcTcpServer::MarkForPurge(SJsonRpcClient& client) {
    if (std::find(m_purge.begin(), m_purge.end(), client.id) == m_purge.end()) {
        m_purge.push_back(client.id);
    }
}

void CJsonRpcTcpServer::CloseClient(std::unique_ptr<SJsonRpcClient>& client) {
    m_byId.erase(client->id);
    OnClientClosed(*client);
    close(client->fd);
    client.reset();
}

void CJsonRpcTcpServer::Purge() {
    for (unsigned int id : m_purge) {
        for (auto it = m_clients.begin(); it != m_clients.end(); ++it) {
            if ((*it)->id == id) {
                m_log.Log("Purging connection from %s [ID:%d]", (*it)->peerName.c_str(), id);
                CloseClient(*it);
                m_clients.erase(it);
                break;
            }
        }
    }
    m_purge.clear();
}

void CJsonRpcTcpServer::ForceClose(unsigned int clientId) {
    for (auto it = m_clients.begin(); it != m_clients.end(); ++it) {
        if ((*it)->id == clientId) {
            m_log.Log("Force closing connection from %s [ID:%d]", (*it)->peerName.c_str(), clientId);
            CloseClient(*it);
            m_clients.erase(it);
            m_purge.remove(clientId);
            return;
        }
    }
}

bool CJsonRpcTcpServer::SetClientAccessLevel(unsigned int clientId, EAccessLevel level) {
    SJsonRpcClient* client = FindClient(clientId);
    if (!client) {
        return false;
    }
    client->accessLevel = level;
    return true;
}

EAccessLevel CJsonRpcTcpServer::GetClientAccessLevel(unsigned int clientId) const {
    const SJsonRpcClient* client = FindClient(clientId);
    return client ? client->accessLevel : ACCESS_USER;
}

std::string CJsonRpcTcpServer::GetClientPeerName(unsigned int clientId) const {
    const SJsonRpcClient* client = FindClient(clientId);
    return client ? client->peerName : std::string();
}

void CJsonRpcTcpServer::OnClientClosed(const SJsonRpcClient&) {}
