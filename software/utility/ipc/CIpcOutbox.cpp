#include "ipc/CIpcOutbox.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "CException.h"

CIpcOutbox::ESend CIpcOutbox::SendNow(const unsigned char* data, int size, const std::string& path) {
    try {
        const int sent = m_socket.SendTo(data, size, path.c_str(), MSG_DONTWAIT);
        if (sent == size) {
            return ESend::SENT;
        }
        m_log.LogError("Unable to send to %s: %d of %d bytes sent", path.c_str(), sent, size);
    } catch (const CException& e) {
        if (e.GetErrno() == EAGAIN || e.GetErrno() == EWOULDBLOCK) {
            return ESend::FULL;
        }
        m_log.LogError("Unable to send to %s. %s", path.c_str(), e.GetMessage().c_str());
    }
    return ESend::FAILED;
}

bool CIpcOutbox::Send(const unsigned char* data, int size, const std::string& path) {
    std::string datagram;  // made only when it has to wait
    auto waiting = m_waiting.find(path);
    if (waiting != m_waiting.end()) {
        datagram.assign(reinterpret_cast<const char*>(data), static_cast<size_t>(size));
        SDestination& destination = waiting->second;
        if (destination.bytes + datagram.size() > kMaxQueuedBytes) {
            m_log.LogError("Dropping %zu datagrams waiting for %s: it does not read", destination.datagrams.size() + 1,
                           path.c_str());
            m_waiting.erase(waiting);
            return false;
        }
        destination.bytes += datagram.size();
        destination.datagrams.push_back(std::move(datagram));
        return true;
    }

    const ESend result = SendNow(data, size, path);
    if (result != ESend::FULL) {
        return result == ESend::SENT;
    }
    datagram.assign(reinterpret_cast<const char*>(data), static_cast<size_t>(size));
    if (m_waiting.size() >= kMaxDestinations) {
        m_log.LogError("Unable to send to %s: its queue is full and %zu others wait", path.c_str(), m_waiting.size());
        return false;
    }
    SDestination destination;
    if (!ConnectProbe(path, destination) || !WaitForRoom(path, destination)) {
        return false;
    }
    destination.bytes = datagram.size();
    destination.datagrams.push_back(std::move(datagram));
    m_waiting.emplace(path, std::move(destination));
    return true;
}

bool CIpcOutbox::WaitForRoom(const std::string& path, SDestination& destination) {
    pollfd room[2] = {{destination.probe.GetDescriptor(), POLLOUT, 0}, {m_socket.GetDescriptor(), POLLOUT, 0}};
    if (::poll(room, 2, 0) < 0) {
        return true;  // the probe, watched as usual, will tell
    }
    const bool probeFailed = (room[0].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
    if ((room[0].revents & POLLOUT) == 0 && !probeFailed) {
        return true;
    }
    if ((room[1].revents & POLLOUT) == 0 && !probeFailed) {
        if (!m_ownBufferFull) {
            m_log.LogError("Unable to send from %s: its send buffer is full", m_socket.GetPathCStr());
        }
        m_ownBufferFull = true;
        return true;
    }
    return ConnectProbe(path, destination);
}

bool CIpcOutbox::ConnectProbe(const std::string& path, SDestination& destination) {
    try {
        destination.probe.Create("");
        destination.probe.Connect(path.c_str());
    } catch (const CException& e) {
        m_log.LogError("Unable to wait for %s. %s", path.c_str(), e.GetMessage().c_str());
        return false;
    }
    return true;
}

void CIpcOutbox::SendToEach(const unsigned char* data, int size, const std::list<std::string>& paths,
                            const std::function<void(const std::string&)>& dropped) {
    const std::string* batch[CDomainSocket::kMaxSendBatch];
    int count = 0;
    auto flush = [&] {
        for (int done = 0; done < count;) {
            done += m_socket.SendToEach(data, size, batch + done, count - done, MSG_DONTWAIT);
            if (done < count) {
                // Refused: Send, alone, tells why and queues or drops it.
                if (!Send(data, size, *batch[done])) {
                    dropped(*batch[done]);
                }
                ++done;
            }
        }
        count = 0;
    };
    for (const std::string& path : paths) {
        if (path.empty()) {  // no name: an abstract address nobody meant
            m_log.LogError("Unable to send: no address");
            dropped(path);
            continue;
        }
        if (m_waiting.count(path) != 0) {
            if (!Send(data, size, path)) {  // queued behind what waits
                dropped(path);
            }
            continue;
        }
        batch[count] = &path;
        if (++count == CDomainSocket::kMaxSendBatch) {
            flush();
        }
    }
    flush();
}

void CIpcOutbox::AddDescriptors(CPollSet& poll) const {
    if (m_ownBufferFull) {
        return;
    }
    for (const auto& entry : m_waiting) {
        poll.Add(entry.second.probe.GetDescriptor(), false, true);
    }
}

bool CIpcOutbox::Drain(const std::string& path, SDestination& destination) {
    while (!destination.datagrams.empty()) {
        const std::string& front = destination.datagrams.front();
        const ESend result =
            SendNow(reinterpret_cast<const unsigned char*>(front.data()), static_cast<int>(front.size()), path);
        if (result == ESend::FULL) {
            return WaitForRoom(path, destination);
        }
        if (result == ESend::FAILED) {
            return false;
        }
        destination.bytes -= destination.datagrams.front().size();
        destination.datagrams.pop_front();
    }
    return true;
}

void CIpcOutbox::ProcessReady(const CPollSet& poll) {
    // Once the server's own buffer has room again every destination is tried, since the
    // probes were not watched meanwhile.
    const bool tryAll = m_ownBufferFull;
    if (tryAll) {
        if (!poll.IsWritable(m_socket.GetDescriptor())) {
            return;
        }
        m_ownBufferFull = false;
    }
    for (auto it = m_waiting.begin(); it != m_waiting.end() && !m_ownBufferFull;) {
        const int probe = it->second.probe.GetDescriptor();
        const bool failed = poll.HasFailed(probe);
        if (!tryAll && !poll.IsWritable(probe) && !failed) {
            ++it;
            continue;
        }
        if (!Drain(it->first, it->second)) {
            m_log.LogError("Dropping %zu datagrams waiting for %s", it->second.datagrams.size(), it->first.c_str());
            it = m_waiting.erase(it);
        } else if (it->second.datagrams.empty()) {
            it = m_waiting.erase(it);
        } else {
            ++it;
        }
    }
}
