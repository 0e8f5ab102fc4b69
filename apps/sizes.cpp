// sizes: prints the sizes and properties of the types this code depends on, for the
// target it was built for, one "name value" per line. The projector's computer is 32-bit
// ARM (long, size_t and pointers of 4 bytes, unsigned plain char); the PC build has 8-byte
// longs and signed char. Wire and file formats use fixed-width types only, so the IPC
// message's sizes are the same on both; the packet driver's transfer descriptor holds a
// pointer and so follows the target, as the driver's own does.

#include <sys/types.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "IPtDevice.h"
#include "ipc/CIpcMessage.h"

int main() {
    const struct {
        const char* name;
        unsigned long value;
    } sizes[] = {
        {"char_is_signed", CHAR_MIN < 0 ? 1ul : 0ul},
        {"short", sizeof(short)},
        {"int", sizeof(int)},
        {"long", sizeof(long)},
        {"long_long", sizeof(long long)},
        {"pointer", sizeof(void*)},
        {"size_t", sizeof(size_t)},
        {"off_t", sizeof(off_t)},
        {"time_t", sizeof(time_t)},
        {"double", sizeof(double)},
        {"alignof_uint64_t", alignof(uint64_t)},
        {"ipc_message_header", CIpcMessage::kHeaderSize},
        {"ipc_message_max", CIpcMessage::kMaxMessageSize},
        {"pt_transfer_descriptor", sizeof(SPtTransfer)},  // the packet driver's ioctl argument
    };
    for (const auto& entry : sizes) {
        printf("%s %lu\n", entry.name, entry.value);
    }
    return 0;
}
