#pragma once
// IProcessMonitor: the supervisor of the projector's processes, told by "system:keepAlive"
// that a process lives and when it must report again.
//
// Thread contract: the JSON-RPC server's thread.

#include <string>

class IProcessMonitor {
public:
    virtual ~IProcessMonitor() = default;
    // False when refused (no such process, a bad interval).
    virtual bool KeepAlive(int pid, unsigned int seconds, const std::string& name) = 0;
};
