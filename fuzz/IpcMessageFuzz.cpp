// Arbitrary datagrams into CIpcMessage: a datagram is either dropped, or it decodes to a
// message that encodes to a complete datagram which decodes and encodes to the same bytes.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "ipc/CIpcMessage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CIpcMessage message;
    const unsigned length = size > 0xFFFFFFu ? 0xFFFFFFu : static_cast<unsigned>(size);
    if (!message.DeserializeMessage(data, length, "/var/run/ui/fuzz")) {
        return 0;
    }
    CIpcMessage::GetMsgAsString(message);

    unsigned char* first = nullptr;
    const int firstSize = message.SerializeMessage(first);
    if (firstSize >= static_cast<int>(CIpcMessage::kMaxMessageSize)) {
        return 0;  // larger than any receive buffer: never sent
    }
    if (!CIpcMessage::IsCompleteMessage(first, static_cast<unsigned>(firstSize))) {
        abort();
    }
    CIpcMessage again;
    if (!again.DeserializeMessage(first, static_cast<unsigned>(firstSize), "")) {
        abort();
    }
    unsigned char* second = nullptr;
    const int secondSize = again.SerializeMessage(second);
    if (secondSize != firstSize || memcmp(first, second, static_cast<size_t>(firstSize)) != 0) {
        abort();
    }
    return 0;
}
