#pragma once
// CLogSyslog: a sink that sends each line as one datagram to the system log node,
// prefixed "<134>" (facility local0, severity informational) whatever the line's level.
// The node is "/dev/log" under the runtime root unless another path is given.
// A missing node makes Write throw; CLogger drops that, so logging goes on.
// Thread contract: Write may be called from any thread (one datagram per call).

#include <string>

#include "ILogFile.h"
#include "ipc/CDomainSocket.h"

class CLogSyslog : public ILogFile {
public:
    static constexpr const char* kDefaultNode = "/dev/log";

    // nodePath is a system path and is resolved through the runtime root.
    explicit CLogSyslog(const std::string& nodePath = kDefaultNode);
    void Write(const std::string& line, ELogLevel level, EFyiCode code) override;

private:
    std::string m_node;
    CDomainSocket m_socket;  // unbound: the log node never answers
};
