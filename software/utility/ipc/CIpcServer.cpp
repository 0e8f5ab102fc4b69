#include "CIpcServer.h"

#include "ipc/CSelectWrapper.h"

CIpcServer::CIpcServer(const char* path)
    : m_socket(path), m_buffers(new unsigned char[kBatch * CIpcMessage::kMaxMessageSize]) {
    for (size_t i = 0; i < kBatch; ++i) {
        m_batch[i].buffer = m_buffers.get() + i * CIpcMessage::kMaxMessageSize;
        m_batch[i].capacity = static_cast<int>(CIpcMessage::kMaxMessageSize);
    }
}

bool CIpcServer::IsMessageAvailable(unsigned int timeoutMs) {
    if (HasReceivedMessages()) {
        return true;
    }
    CSelectWrapper select;
    select.Set(m_socket.GetDescriptor());
    return select.Select(timeoutMs) > 0;
}

bool CIpcServer::GetMessage(CIpcMessage& message, bool* complete) {
    if (m_next == m_received) {
        SDomainDatagram& slot = m_batch[0];
        slot.from = CDomainSocket();
        slot.length = m_socket.RecvFrom(slot.buffer, slot.capacity, 0, &slot.from);
        m_received = 1;
        m_next = 0;
        m_endedShort = false;
    }
    const bool any = m_batch[m_next].length > 0;
    TakeNext(message, complete);
    return any;
}

bool CIpcServer::TryGetMessage(CIpcMessage& message, bool* complete) {
    if (m_next == m_received) {
        if (m_endedShort) {
            m_endedShort = false;
            return false;
        }
        m_received = static_cast<size_t>(m_socket.RecvBatchNoBlock(m_batch.data(), static_cast<int>(kBatch)));
        m_next = 0;
        if (m_received == 0) {
            return false;
        }
        m_endedShort = m_received < kBatch;
    }
    TakeNext(message, complete);
    return true;
}

void CIpcServer::TakeNext(CIpcMessage& message, bool* complete) {
    m_current = m_next++;
    const SDomainDatagram& slot = m_batch[m_current];
    const bool whole = slot.length > 0 && message.DeserializeMessage(slot.buffer, static_cast<unsigned>(slot.length),
                                                                     slot.from.GetPathCStr());
    if (complete) {
        *complete = whole;
    }
}

bool CIpcServer::ResponseMessage(CIpcMessage& message) { return SendMessage(message, message.GetReplyAddress()); }

bool CIpcServer::SendMessage(CIpcMessage& message, const std::string& path) {
    if (path.empty()) {
        return false;
    }
    unsigned char* data = nullptr;
    const int size = message.SerializeMessage(data);
    if (size >= static_cast<int>(CIpcMessage::kMaxMessageSize)) {
        return false;
    }
    return m_socket.SendTo(data, size, path.c_str(), MSG_DONTWAIT) == size;
}
