#include "jsonrpc/NulFramer.h"

#include <cstring>
#include <utility>

bool CNulFramer::Add(const char* data, size_t length, std::deque<std::string>& messages) {
    if (!data) {
        return true;
    }
    const char* const end = data + length;
    const char* start = data;
    while (start < end) {
        const char* nul = static_cast<const char*>(memchr(start, '\0', static_cast<size_t>(end - start)));
        if (!nul) {
            break;
        }
        m_pending.append(start, static_cast<size_t>(nul - start));
        messages.push_back(std::move(m_pending));
        m_pending.clear();  // a moved-from string is valid but unspecified
        start = nul + 1;
    }
    const size_t tail = static_cast<size_t>(end - start);
    // Checked before appending, so a refused tail never costs its memory.
    if (tail > m_maxPending - m_pending.size()) {
        m_pending.clear();
        return false;
    }
    m_pending.append(start, tail);
    return true;
}
