#include "jsonrpc/DirectRequest.h"

#include <cstddef>

#include "jsonrpc/QuickReader.h"

namespace Json {
namespace Rpc {

namespace {

class CDirectReader {
public:
    explicit CDirectReader(std::string_view text) : m_at(text.data()), m_end(text.data() + text.size()) {}

    bool ReadRequest(SDirectRequest& request) {
        enum : unsigned { kVersion = 1, kId = 2, kMethod = 4, kParams = 8, kAll = 15 };
        unsigned seen = 0;
        if (!Take('{')) {
            return false;
        }
        do {
            std::string_view name;
            if (!ReadPlainString(name) || !Take(':')) {
                return false;
            }
            unsigned member = 0;
            bool read = false;
            if (name == "jsonrpc") {
                std::string_view version;
                member = kVersion;
                read = ReadPlainString(version) && version == "2.0";
            } else if (name == "id") {
                member = kId;
                read = ReadId(request.idText);
            } else if (name == "method") {
                member = kMethod;
                read = ReadPlainString(request.method);
            } else if (name == "params") {
                member = kParams;
                read = ReadParams(request);
            }
            // A member given twice is the strict reader's parse error, not this reader's.
            if (!read || (seen & member) != 0) {
                return false;
            }
            seen |= member;
        } while (Take(','));
        if (!Take('}') || seen != kAll) {
            return false;
        }
        SkipBlanks();
        return m_at == m_end;
    }

private:
    void SkipBlanks() { m_at = Json::Rpc::SkipBlanks(m_at, m_end); }

    // Skips blanks and takes the character c when it comes next.
    bool Take(char c) {
        SkipBlanks();
        if (m_at == m_end || *m_at != c) {
            return false;
        }
        ++m_at;
        return true;
    }

    static bool IsPlain(char c) { return c >= 0x20 && c <= 0x7E && c != '"' && c != '\\'; }

    bool ReadPlainString(std::string_view& text) {
        if (!Take('"')) {
            return false;
        }
        const char* const begin = m_at;
        while (m_at != m_end && IsPlain(*m_at)) {
            ++m_at;
        }
        if (m_at == m_end || *m_at != '"') {
            return false;
        }
        text = std::string_view(begin, static_cast<size_t>(m_at - begin));
        ++m_at;
        return true;
    }

    bool ReadId(std::string_view& idText) {
        SkipBlanks();
        const char* const begin = m_at;
        if (m_at != m_end && *m_at == '"') {
            std::string_view text;
            if (!ReadPlainString(text)) {
                return false;
            }
            idText = std::string_view(begin, static_cast<size_t>(m_at - begin));
            return true;
        }
        const bool negative = m_at != m_end && *m_at == '-';
        if (negative) {
            ++m_at;
        }
        const char* const digits = m_at;
        while (m_at != m_end && *m_at >= '0' && *m_at <= '9') {
            ++m_at;
        }
        const size_t count = static_cast<size_t>(m_at - digits);
        // Written back, a leading zero, "-0" or a longer number would not read the same.
        if (count == 0 || count > 18 || (count > 1 && *digits == '0') || (negative && *digits == '0')) {
            return false;
        }
        if (m_at != m_end && (*m_at == '.' || *m_at == 'e' || *m_at == 'E')) {
            return false;
        }
        idText = std::string_view(begin, static_cast<size_t>(m_at - begin));
        return true;
    }

    bool ReadParams(SDirectRequest& request) {
        if (Take('[')) {
            request.paramsObject = false;
            request.member = std::string_view();
            return ReadPlainString(request.param) && Take(']');
        }
        request.paramsObject = true;
        return Take('{') && ReadPlainString(request.member) && Take(':') && ReadPlainString(request.param) &&
               Take('}');
    }

    const char* m_at;
    const char* const m_end;
};

}  // namespace

bool ReadDirect(std::string_view text, SDirectRequest& request) {
    CDirectReader reader(text);
    return reader.ReadRequest(request);
}

}  // namespace Rpc
}  // namespace Json
