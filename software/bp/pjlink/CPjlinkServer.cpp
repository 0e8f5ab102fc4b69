#include "CPjlinkServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <list>

#include "CException.h"
#include "RuntimeRoot.h"
#include "net/NNetInterface.h"

namespace {

constexpr uint64_t kErrorCheckMs = 1000;
constexpr int kPollMs = 250;

uint64_t NowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000u + static_cast<uint64_t>(now.tv_nsec) / 1000000u;
}

int Bound(int type, uint16_t port) {
    const int fd = socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        THROW_EXCEPTION("Cannot make a PJLink socket: %s", strerror(errno));
    }
    const int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (type == SOCK_DGRAM) {
        setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &one, sizeof one);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        (type == SOCK_STREAM && listen(fd, 16) != 0)) {
        const int error = errno;
        close(fd);
        THROW_EXCEPTION("Cannot serve PJLink on port %u: %s", static_cast<unsigned>(port), strerror(error));
    }
    return fd;
}

std::string AddressOf(const sockaddr_in& peer) {
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text);
    return text;
}

uint16_t PortOf(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

}  // namespace

CPjlinkServer::CPjlinkServer(CEventLink& link, const SPjlinkMapping& mapping, ILog& log, uint64_t idleMs)
    : m_link(link), m_mapping(mapping), m_projector(link, mapping), m_log(log), m_idleMs(idleMs) {
    // Before the port is open, so that what the file means is logged before any client
    // can come.
    std::string password;
    if (ReadPassword(password)) {
        if (password.empty()) {
            m_log.LogWarning("PJLink: no password file %s: connections need no password",
                             m_mapping.passwordFile.c_str());
        } else {
            m_log.Log("PJLink: connections need the password of %s", m_mapping.passwordFile.c_str());
        }
    }
    try {
        m_listenFd = Bound(SOCK_STREAM, mapping.port);
        m_port = PortOf(m_listenFd);
        m_udpFd = Bound(SOCK_DGRAM, m_port);
        if (pipe2(m_wake, O_CLOEXEC | O_NONBLOCK) != 0) {
            THROW_EXCEPTION("Cannot make a pipe: %s", strerror(errno));
        }
    } catch (const CException&) {
        for (int fd : {m_listenFd, m_udpFd}) {
            if (fd >= 0) {
                close(fd);
            }
        }
        throw;
    }
    if (!NNetInterface::GetMacAddress(m_mapping.interface, m_mac)) {
        m_log.LogWarning("PJLink: no MAC address of interface %s (%s); search answers 00:00:00:00:00:00",
                         m_mapping.interface.c_str(), strerror(errno));
        m_mac = "00:00:00:00:00:00";
    }
    const std::string notify = m_link.GetNotifySocketName();
    for (const std::string& joined : {m_mapping.PowerStateCode(), m_mapping.input}) {
        std::string code;
        std::string subcode;
        SPjlinkMapping::SplitCode(joined, code, subcode);
        const EError error = m_link.NotifyRegister(code, subcode, notify);
        if (error != ERR_NONE) {
            m_log.LogWarning("PJLink: no change notifications of %s (error %d)", joined.c_str(), error);
        }
    }
    m_lastPower = m_projector.PowerStatus();
    m_lastInput = m_projector.InputStatus();
    m_lastErrors = m_projector.ErrorStatus();
    sockaddr_in linkUp{};
    linkUp.sin_family = AF_INET;
    linkUp.sin_port = htons(m_mapping.noticePort);
    if (inet_pton(AF_INET, m_mapping.linkUpAddress.c_str(), &linkUp.sin_addr) == 1) {
        SendTo("%2LKUP=" + m_mac + "\r", linkUp);
    } else {
        m_log.LogWarning("PJLink: link-up address %s is not an IPv4 address", m_mapping.linkUpAddress.c_str());
    }
}

CPjlinkServer::~CPjlinkServer() {
    for (SClient& client : m_clients) {
        close(client.fd);
    }
    for (int fd : {m_listenFd, m_udpFd, m_wake[0], m_wake[1]}) {
        if (fd >= 0) {
            close(fd);
        }
    }
}

void CPjlinkServer::Stop() {
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = write(m_wake[1], &byte, 1);
}

void CPjlinkServer::Run() {
    for (;;) {
        std::vector<pollfd> fds = {{m_wake[0], POLLIN, 0},
                                   {m_listenFd, POLLIN, 0},
                                   {m_udpFd, POLLIN, 0},
                                   {m_link.GetNotifyDescriptor(), POLLIN, 0}};
        for (const SClient& client : m_clients) {
            fds.push_back({client.fd, static_cast<short>(POLLIN | (client.pending.empty() ? 0 : POLLOUT)), 0});
        }
        if (poll(fds.data(), fds.size(), kPollMs) < 0 && errno != EINTR) {
            THROW_EXCEPTION("PJLink: poll failed: %s", strerror(errno));
        }
        if (fds[0].revents) {
            return;
        }
        const uint64_t now = NowMs();
        // Clients first: the descriptors of this round belong to the clients as they are.
        std::vector<SClient> kept;
        for (size_t i = 0; i < m_clients.size(); ++i) {
            SClient& client = m_clients[i];
            const short events = fds[4 + i].revents;
            bool open = true;
            if (events & (POLLIN | POLLHUP | POLLERR)) {
                open = Read(client, now);
            }
            if (open && !client.pending.empty()) {
                open = Flush(client);
            }
            if (open && client.session->IsIdle(now, m_idleMs)) {
                m_log.LogDebug("PJLink: closing an idle connection");
                open = false;
            }
            if (open) {
                kept.push_back(std::move(client));
            } else {
                close(client.fd);
            }
        }
        m_clients = std::move(kept);
        if (fds[1].revents & POLLIN) {
            Accept();
        }
        if (fds[2].revents & POLLIN) {
            ReceiveDatagram();
        }
        if (fds[3].revents & POLLIN) {
            std::list<CIpcMessage> notifications;
            m_link.ProcessNotify(notifications);
            Notify("POWR", m_projector.PowerStatus(), m_lastPower);
            Notify("INPT", m_projector.InputStatus(), m_lastInput);
        }
        if (m_haveController && now >= m_nextErrorCheckMs) {  // no one to tell: no reads
            m_nextErrorCheckMs = now + kErrorCheckMs;
            Notify("ERST", m_projector.ErrorStatus(), m_lastErrors);
        }
    }
}

void CPjlinkServer::Accept() {
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    const int fd = accept4(m_listenFd, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) {
        return;
    }
    if (m_clients.size() >= kMaxClients) {
        m_log.LogWarning("PJLink: %zu connections already; refusing one more", m_clients.size());
        close(fd);
        return;
    }
    SClient client;
    client.fd = fd;
    client.peer = peer;
    std::string password;
    if (!ReadPassword(password)) {
        password = CPjlinkSession::kRefuseAll;
    } else if (!password.empty() && m_backOff.IsBackingOff(AddressOf(peer))) {
        m_log.LogWarning("PJLink: connection from %s refused unchecked (too many wrong passwords)",
                         AddressOf(peer).c_str());
        password = CPjlinkSession::kRefuseAll;
        client.checked = false;
    }
    client.session = std::make_unique<CPjlinkSession>(m_projector, password, Random(), NowMs());
    client.pending = client.session->Greeting();
    if (Flush(client)) {
        m_clients.push_back(std::move(client));
    } else {
        close(fd);
    }
}

bool CPjlinkServer::Read(SClient& client, uint64_t nowMs) {
    char buffer[512];
    const ssize_t got = recv(client.fd, buffer, sizeof buffer, 0);
    if (got < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    if (got == 0) {
        return false;
    }
    const bool wasAuthenticated = client.session->IsAuthenticated();
    const std::string answers = client.session->Receive(buffer, static_cast<size_t>(got), nowMs);
    if (client.checked && !wasAuthenticated && (client.session->IsAuthenticated() || client.session->IsRefused())) {
        RecordAuthentication(client);
    }
    if (!answers.empty() && !client.session->IsClosed()) {
        m_controller = client.peer;  // a controller that was answered, not a mere probe
        m_haveController = true;
    }
    client.pending += answers;
    if (client.pending.size() > kMaxPending) {
        m_log.LogWarning("PJLink: a client does not read its answers; closing it");
        return false;
    }
    return Flush(client) && !(client.session->IsClosed() && client.pending.empty());
}

void CPjlinkServer::RecordAuthentication(SClient& client) {
    const std::string peer = AddressOf(client.peer);
    if (client.session->IsAuthenticated()) {
        m_backOff.Succeed(peer);
        return;
    }
    m_log.LogWarning("PJLink: wrong password from %s (%u in a row)", peer.c_str(), m_backOff.Fail(peer));
}

bool CPjlinkServer::Flush(SClient& client) {
    while (!client.pending.empty()) {
        const ssize_t sent = send(client.fd, client.pending.data(), client.pending.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            return errno == EAGAIN || errno == EINTR;
        }
        client.pending.erase(0, static_cast<size_t>(sent));
    }
    return !client.session->IsClosed();
}

void CPjlinkServer::ReceiveDatagram() {
    char buffer[512];
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    const ssize_t got =
        recvfrom(m_udpFd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&sender), &length);
    if (got <= 0 || length != sizeof sender) {
        return;
    }
    const std::string text(buffer, static_cast<size_t>(got));
    if (text != "%2SRCH\r" && text != "%2SRCH") {
        return;  // our own notices, other devices' answers: not for us
    }
    m_controller = sender;
    m_haveController = true;
    sender.sin_port = htons(m_mapping.noticePort);
    SendTo("%2ACKN=" + m_mac + "\r", sender);
}

void CPjlinkServer::Notify(const char* command, const std::string& data, std::string& last) {
    if (data == last || data.compare(0, 3, "ERR") == 0) {
        return;  // a status that cannot be read now is no change
    }
    last = data;
    if (m_haveController) {
        sockaddr_in to = m_controller;
        to.sin_port = htons(m_mapping.noticePort);
        SendTo(std::string("%2") + command + "=" + data + "\r", to);
    }
}

void CPjlinkServer::SendTo(const std::string& text, const sockaddr_in& address) {
    if (sendto(m_udpFd, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
        m_log.LogDebug("PJLink: %s not sent: %s", text.substr(0, 7).c_str(), strerror(errno));
    }
}

bool CPjlinkServer::ReadPassword(std::string& password) {
    const std::string path = NRuntimeRoot::Path(m_mapping.passwordFile);
    struct stat info {};
    if (stat(path.c_str(), &info) != 0 && errno == ENOENT) {
        LogPasswordProblem("");
        password.clear();
        return true;
    }
    std::ifstream in(path);
    std::string line;
    std::string problem;
    if (!S_ISREG(info.st_mode) || !in || !std::getline(in, line)) {
        problem = "cannot be read";
    } else if ((info.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        problem = "may be read by group or others (its mode must be 0600)";
    } else {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        bool printable = !line.empty() && line.size() <= 32;
        for (char c : line) {
            printable = printable && c > 0x20 && c < 0x7F;
        }
        if (!printable) {
            problem = "must hold one line of 1 to 32 printable characters";
        }
    }
    LogPasswordProblem(problem);
    password = line;
    return problem.empty();
}

void CPjlinkServer::LogPasswordProblem(const std::string& problem) {
    if (problem != m_passwordProblem && !problem.empty()) {
        m_log.LogError("PJLink password file %s %s; every connection is refused until it is mended",
                       m_mapping.passwordFile.c_str(), problem.c_str());
    }
    m_passwordProblem = problem;
}

std::string CPjlinkServer::Random() {
    uint8_t bytes[4] = {};
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
        THROW_EXCEPTION("PJLink: no random numbers: %s", strerror(errno));
    }
    char hex[9];
    snprintf(hex, sizeof hex, "%02x%02x%02x%02x", bytes[0], bytes[1], bytes[2], bytes[3]);
    return hex;
}
