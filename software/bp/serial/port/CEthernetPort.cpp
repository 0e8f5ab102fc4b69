#include "CEthernetPort.h"

#include <fcntl.h>

#include "CException.h"

CEthernetPort::CEthernetPort(const std::string& name, int fd) : CCommPort(PORT_ETHERNET, fd, name) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) {
        THROW_ERRNO_EXCEPTION("Failed to set port %s non-blocking", name.c_str());
    }
}

void CEthernetPort::Flush() {
    unsigned char chunk[kBufferSize];
    for (unsigned int discarded = 0; discarded < kFlushLimit; discarded += kBufferSize) {
        if (ReadString(chunk, sizeof chunk) != static_cast<int>(sizeof chunk)) {
            return;
        }
    }
}
