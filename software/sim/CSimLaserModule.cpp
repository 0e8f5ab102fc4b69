#include "CSimLaserModule.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "CException.h"
#include "ipc/CPollSet.h"

using LibFusion::CCepMessage;

namespace {

constexpr uint16_t kObjectId = 44;
constexpr uint16_t kRefused = 8;
const char kId[] = "LBM-SIM-0001";

int LevelIndex(uint32_t key) {
    switch (key) {
    case 65:
        return 0;
    case 66:
        return 1;
    case 67:
        return 2;
    case 70:
        return 3;
    default:
        return -1;
    }
}

bool IsKnown(uint32_t key) {
    return key == 28 || key == 40 || key == 43 || LevelIndex(key) >= 0 || key == 75 || key == 76 || key == 77;
}

// Moves `value` towards `target` by at most `step`.
double Towards(double value, double target, double step) {
    return value < target ? std::min(target, value + step) : std::max(target, value - step);
}

}  // namespace

CSimLaserModule::CSimLaserModule(unsigned short port, const IMonotonicClock& clock, bool anyAddress)
    : m_clock(clock), m_startCount(clock.GetCount()), m_lastCount(m_startCount) {
    m_listen = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int one = 1;
    setsockopt(m_listen, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(anyAddress ? INADDR_ANY : INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (m_listen < 0 || bind(m_listen, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(m_listen, 8) != 0 || getsockname(m_listen, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        const int error = errno;
        if (m_listen >= 0) {
            close(m_listen);
        }
        errno = error;
        THROW_ERRNO_EXCEPTION("Laser module simulator cannot listen on port %u", port);
    }
    m_port = ntohs(address.sin_port);
}

CSimLaserModule::~CSimLaserModule() {
    for (SClient& client : m_clients) {
        close(client.fd);
    }
    close(m_listen);
}

uint32_t CSimLaserModule::NowMs() const {
    return static_cast<uint32_t>(m_elapsedCounts * 1000 / m_clock.GetFrequency());
}

void CSimLaserModule::Advance() {
    const uint32_t count = m_clock.GetCount();
    m_elapsedCounts += static_cast<uint32_t>(count - m_lastCount);
    m_lastCount = count;
    const uint32_t now = NowMs();
    const double seconds = (now - m_lastAdvanceMs) / 1000.0;
    m_lastAdvanceMs = now;
    if (m_power != m_target && now >= m_transitionEndMs) {
        m_power = m_target;
    }
    const bool on = m_power == 3 || m_power == 2;
    m_laserTemperature = Towards(m_laserTemperature, on ? 4500 : 2500, 400 * seconds);
    m_heatsinkTemperature = Towards(m_heatsinkTemperature, on ? 3500 : 2500, 200 * seconds);
    if (m_power == 3) {
        m_hours += seconds;
    }
}

bool CSimLaserModule::Apply(uint32_t key, uint64_t value) {
    if (key == 40) {
        if (value != 0 && value != 1 && value != 3) {
            return false;
        }
        const uint8_t target = static_cast<uint8_t>(value);
        const bool wasOn = m_target == 3;
        if (target != m_target) {
            m_target = target;
            if (target == 3 && !wasOn) {
                m_power = 2;
                m_transitionEndMs = NowMs() + kStartMs;
            } else if (wasOn) {
                m_power = 10;
                m_transitionEndMs = NowMs() + kCoolMs;
            } else {
                m_power = target;
            }
        }
        return true;
    }
    const int level = LevelIndex(key);
    if (level < 0 || value > kMaxLevel) {
        return false;
    }
    m_levels[level] = static_cast<uint32_t>(value);
    return true;
}

void CSimLaserModule::AddValue(CCepMessage& reply, uint32_t key, bool stale) const {
    if (key == 28) {
        reply.setString(key, stale ? "stale" : kId);
    } else if (key == 40) {
        const int forced = m_forcedPower;
        reply.setUInt8(key, stale ? 4 : static_cast<uint8_t>(forced >= 0 ? forced : m_power.load()));
    } else if (key == 43) {
        reply.setUInt8(key, stale ? 9 : (m_laserTemperature > 5000 ? 1 : 0));
    } else {
        const int level = LevelIndex(key);
        const uint32_t value = level >= 0 ? m_levels[level]
                               : key == 75 ? static_cast<uint32_t>(m_laserTemperature)
                               : key == 76 ? static_cast<uint32_t>(m_heatsinkTemperature)
                                           : static_cast<uint32_t>(m_hours);
        reply.setUInt32(key, stale ? 0xDEAD : value);
    }
}

void CSimLaserModule::Queue(int fd, CCepMessage& reply) {
    SPending pending{fd, NowMs() + m_delayMs, {}};
    if (m_garbage) {
        pending.bytes = {'g', 'a', 'r', 0x7B, 0x02, 'b', 'a', 'g', 0x7B};
    }
    const std::vector<uint8_t> frame = reply.toBytes(LibFusion::VERSION_1, true);
    pending.bytes.insert(pending.bytes.end(), frame.begin(), frame.end());
    m_pending.push_back(std::move(pending));
}

void CSimLaserModule::Handle(SClient& client, const CCepMessage& request) {
    ++m_requests;
    if (request.getObjectID() != kObjectId || request.getProperties().size() != 1) {
        return;
    }
    const uint32_t key = request.getProperties().begin()->first;
    if (!IsKnown(key) || m_drop) {
        return;
    }
    CCepMessage reply;
    reply.setObjectID(kObjectId);
    reply.setCommandCode(request.getCommandCode());
    reply.setSequenceNumber(request.getSequenceNumber());
    bool accepted = !m_refuseAll;
    if (accepted && request.getCommandCode() == LibFusion::COMMAND_SET) {
        uint64_t value = 0;
        const auto* property = request.getProperty(key);
        accepted = property && request.getUnsigned(key, static_cast<unsigned>(std::min<size_t>(property->data.size(), 8)),
                                                    value) &&
                   Apply(key, value);
    }
    if (!accepted) {
        reply.setErrorCode(kRefused);
    }
    AddValue(reply, key, false);
    Queue(client.fd, reply);
    if (m_stale) {
        CCepMessage stale(reply);
        stale.setErrorCode(0);
        AddValue(stale, key, true);
        Queue(client.fd, stale);
    }
}

void CSimLaserModule::Flush() {
    const uint32_t now = NowMs();
    while (!m_pending.empty() && m_pending.front().dueMs <= now) {
        const SPending& pending = m_pending.front();
        const bool known = std::any_of(m_clients.begin(), m_clients.end(),
                                       [&](const SClient& client) { return client.fd == pending.fd; });
        if (known) {
            [[maybe_unused]] const ssize_t sent =
                send(pending.fd, pending.bytes.data(), pending.bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        }
        m_pending.pop_front();
    }
}

void CSimLaserModule::RunOnce(int timeoutMs) {
    CPollSet poll;
    poll.Add(m_listen, true, false);
    for (const SClient& client : m_clients) {
        poll.Add(client.fd, true, false);
    }
    const int wait = m_pending.empty() ? timeoutMs : std::min(timeoutMs, 1);
    poll.Wait(wait);
    Advance();
    if (poll.IsReadable(m_listen)) {
        const int fd = accept4(m_listen, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) {
            const int one = 1;
            setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
            m_clients.push_back(SClient{fd, std::make_unique<LibFusion::CCepParser>(65536)});
        }
    }
    for (auto it = m_clients.begin(); it != m_clients.end();) {
        if (!poll.IsReadable(it->fd)) {
            ++it;
            continue;
        }
        uint8_t buffer[4096];
        const ssize_t count = recv(it->fd, buffer, sizeof buffer, MSG_DONTWAIT);
        if (count <= 0 && !(count < 0 && (errno == EAGAIN || errno == EINTR))) {
            close(it->fd);
            it = m_clients.erase(it);
            continue;
        }
        if (count > 0 && it->parser->addData(buffer, static_cast<uint32_t>(count)) == 0) {
            it->parser->Clear();  // a client that sends only noise is not allowed to jam the module
        }
        while (auto request = it->parser->getCepMsg()) {
            // The parser does not check CRCs; a module does. The frame written back with the
            // CRC it came with is the frame received (properties in key order, as sent).
            const std::vector<uint8_t> frame = request->toBytes(request->getDecodedVersion(), false);
            CCepMessage checked;
            uint32_t consumed = 0;
            if (checked.fromBytes(frame.data(), static_cast<uint32_t>(frame.size()), consumed, true)) {
                Handle(*it, *request);
            }
        }
        ++it;
    }
    Flush();
}
