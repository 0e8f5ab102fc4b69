#include "CLogSyslog.h"

#include "RuntimeRoot.h"

CLogSyslog::CLogSyslog(const std::string& nodePath) : m_node(NRuntimeRoot::Path(nodePath)), m_socket("") {}

void CLogSyslog::Write(const std::string& line, ELogLevel, EFyiCode) {
    const std::string datagram = "<134>" + line;
    m_socket.SendTo(reinterpret_cast<const unsigned char*>(datagram.data()), static_cast<int>(datagram.size()),
                    m_node.c_str(), 0);
}
