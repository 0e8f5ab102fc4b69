#include "CIpcClient.h"

#include <chrono>

#include "CException.h"

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
    // The whole wait is bounded by timeoutMs: after a skipped datagram the next receive
    // only gets the time that is left. The first receive uses timeoutMs itself, so the
    // socket's time-out need not be set again while callers keep using the same value.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    unsigned int waitMs = timeoutMs;
    for (;;) {
        const int received = m_socket.RecvFromTimed(m_buffer.get(), CIpcMessage::kMaxMessageSize, nullptr, waitMs);
        if (received < 0) {
            return false;
        }
        if (received > 0 &&
            reply.DeserializeMessage(m_buffer.get(), static_cast<unsigned>(received), m_serverPath.c_str())) {
            if (reply.GetSequence() == m_sequence) {
                return true;
            }
            if (reply.GetSequence() > m_sequence) {
                return false;
            }
            // A late answer to an earlier transaction: skip it and wait on.
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        waitMs = static_cast<unsigned int>(left.count());
    }
}
