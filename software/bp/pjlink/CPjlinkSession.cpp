#include "CPjlinkSession.h"

#include <cctype>

#include "crypto/NCrypto.h"

namespace {

bool IsPrintable(char c) { return c >= 0x20 && c <= 0x7E; }

std::string Response(char pjlinkClass, const std::string& command, const std::string& data) {
    return std::string("%") + pjlinkClass + command + "=" + data + "\r";
}

}  // namespace

// A NUL cannot come from a password file's line, so no configured password equals it.
const std::string CPjlinkSession::kRefuseAll(1, '\0');

CPjlinkSession::CPjlinkSession(IPjlinkCommands& commands, const std::string& password, const std::string& random,
                               uint64_t nowMs)
    : m_commands(commands), m_password(password), m_random(random), m_authenticated(password.empty()),
      m_lastCommandMs(nowMs) {}

std::string CPjlinkSession::Greeting() const {
    return m_password.empty() ? "PJLINK 0\r" : "PJLINK 1 " + m_random + "\r";
}

std::string CPjlinkSession::Receive(const char* data, size_t size, uint64_t nowMs) {
    std::string out;
    for (size_t i = 0; i < size && !m_closed; ++i) {
        if (data[i] != '\r') {
            // The first line may carry the digest ahead of the command.
            const size_t limit = kMaxLine - 1 + (m_authenticated ? 0 : kDigestLength);
            if (m_line.size() < limit) {
                m_line += data[i];
            } else {
                m_overflow = true;
            }
            continue;
        }
        out += HandleLine(m_line);
        m_line.clear();
        m_overflow = false;
        if (m_authenticated) {
            m_lastCommandMs = nowMs;
        }
    }
    return out;
}

std::string CPjlinkSession::HandleLine(std::string line) {
    if (!line.empty() && line[0] == '\n') {
        line.erase(0, 1);  // a client that ends its lines with CR LF
    }
    if (!m_authenticated) {
        if (m_password == kRefuseAll || line.size() < kDigestLength ||
            line.compare(0, kDigestLength, NCrypto::Md5Hex(m_random + m_password)) != 0) {
            m_closed = true;
            m_refused = m_password != kRefuseAll;
            return "PJLINK ERRA\r";
        }
        m_authenticated = true;
        line.erase(0, kDigestLength);
    }
    // "%", the class digit and four command letters: without them no answer can be made.
    if (line.size() < 6 || line[0] != '%' || !IsPrintable(line[1])) {
        return "";
    }
    const char pjlinkClass = line[1];
    const std::string command = line.substr(2, 4);
    for (char c : command) {
        if (!IsPrintable(c)) {
            return "";
        }
    }
    if (m_overflow) {
        return Response(pjlinkClass, command, "ERR2");
    }
    bool known = pjlinkClass == '1' || pjlinkClass == '2';
    for (char c : command) {
        known = known && (std::isupper(static_cast<unsigned char>(c)) || std::isdigit(static_cast<unsigned char>(c)));
    }
    if (!known || line.size() < 8 || line[6] != ' ') {
        return Response(pjlinkClass, command, "ERR1");
    }
    const std::string parameter = line.substr(7);
    for (char c : parameter) {
        if (!IsPrintable(c)) {
            return Response(pjlinkClass, command, "ERR2");
        }
    }
    return Response(pjlinkClass, command, m_commands.Execute(pjlinkClass, command, parameter));
}
