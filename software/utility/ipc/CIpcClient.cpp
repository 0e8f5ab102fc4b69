#include "CIpcClient.h"

#include "CException.h"
#include "ipc/CSelectWrapper.h"

namespace {

const char* CheckedServerPath(const char* serverPath) {
    if (!serverPath) {
        THROW_EXCEPTION("An IPC client needs a server path");
    }
    return serverPath;
}

}  // namespace

CIpcClient::CIpcClient(const char* serverPath, const char* ownPath)
    : m_serverPath(CheckedServerPath(serverPath)), m_socket(ownPath), m_sequence(0),
      m_buffer(new unsigned char[CIpcMessage::kMaxMessageSize]) {}

CIpcClient::~CIpcClient() = default;

void CIpcClient::TransmitMessage(CIpcMessage& message) {
    message.SetSequence(++m_sequence);
    unsigned char* data = nullptr;
    const int size = message.SerializeMessage(data);
    if (size >= static_cast<int>(CIpcMessage::kMaxMessageSize)) {
        THROW_EXCEPTION("TransmitMessage refused a message of %d bytes (the limit is %u)", size,
                        CIpcMessage::kMaxMessageSize - 1);
    }
    const int sent = m_socket.SendTo(data, size, m_serverPath.c_str(), 0);
    if (sent < size) {
        THROW_EXCEPTION("TransmitMessage failed to send full message. %d of %d sent", sent, size);
    }
}

bool CIpcClient::TransmitMessage(CIpcMessage& message, CIpcMessage& reply, unsigned int timeoutMs) {
    message.SetFlags(static_cast<uint16_t>(message.GetFlags() | MSG_FLAG_REPLY_WANTED));
    TransmitMessage(message);
    return MessageWait(reply, timeoutMs);
}

bool CIpcClient::MessageWait(CIpcMessage& reply, unsigned int timeoutMs) {
    CSelectWrapper select;
    select.SetTimeoutMs(timeoutMs);
    for (;;) {
        select.Zero();
        select.Set(m_socket.GetDescriptor());
        if (select.Select() == 0) {
            return false;
        }
        CDomainSocket sender;
        const int received = m_socket.RecvFromNoBlock(m_buffer.get(), CIpcMessage::kMaxMessageSize, 0, &sender);
        if (received <= 0 ||
            !reply.DeserializeMessage(m_buffer.get(), static_cast<unsigned>(received), sender.GetPath().c_str())) {
            continue;
        }
        if (reply.GetSequence() == m_sequence) {
            return true;
        }
        if (reply.GetSequence() > m_sequence) {
            return false;
        }
        // A late answer to an earlier transaction: skip it and wait on.
    }
}
