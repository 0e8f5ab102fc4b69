#include "CIpcServer.h"

#include "ipc/CSelectWrapper.h"

CIpcServer::CIpcServer(const char* path)
    : m_socket(path), m_buffer(new unsigned char[CIpcMessage::kMaxMessageSize]) {}

bool CIpcServer::IsMessageAvailable(unsigned int timeoutMs) {
    CSelectWrapper select;
    select.Set(m_socket.GetDescriptor());
    return select.Select(timeoutMs) > 0;
}

bool CIpcServer::GetMessage(CIpcMessage& message, bool* complete) {
    m_sender = CDomainSocket();
    const int received = m_socket.RecvFrom(m_buffer.get(), CIpcMessage::kMaxMessageSize, 0, &m_sender);
    Take(received, message, complete);
    return received > 0;
}

bool CIpcServer::TryGetMessage(CIpcMessage& message, bool* complete) {
    m_sender = CDomainSocket();
    const int received = m_socket.RecvFromTimed(m_buffer.get(), CIpcMessage::kMaxMessageSize, &m_sender, 0);
    if (received < 0) {
        return false;
    }
    Take(received, message, complete);
    return true;
}

void CIpcServer::Take(int received, CIpcMessage& message, bool* complete) {
    const bool whole = received > 0 && message.DeserializeMessage(m_buffer.get(), static_cast<unsigned>(received),
                                                                  m_sender.GetPathCStr());
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
