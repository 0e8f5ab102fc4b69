#include "jsonrpc/DirectRequest.h"

#include <cstddef>

#include "SameText.h"
#include "jsonrpc/CompactWriter.h"
#include "jsonrpc/QuickReader.h"

namespace Json {
namespace Rpc {

namespace {

// The bytes that stand for themselves in a string: printable ASCII other than '"' and
// '\\'. A table, since every byte of every string is looked up: three comparisons and
// their flags cost 32-bit ARM three times the load.
struct SPlainBytes {
    bool plain[256] = {};
    constexpr SPlainBytes() {
        for (int c = 0x20; c <= 0x7E; ++c) {
            plain[c] = c != '"' && c != '\\';
        }
    }
};
constexpr SPlainBytes kPlainBytes;

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
            if (SameText(name, "jsonrpc")) {
                std::string_view version;
                member = kVersion;
                read = ReadPlainString(version) && SameText(version, "2.0");
            } else if (SameText(name, "id")) {
                member = kId;
                read = ReadId(request.idText);
            } else if (SameText(name, "method")) {
                member = kMethod;
                read = ReadPlainString(request.method);
            } else if (SameText(name, "params")) {
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

    static bool IsPlain(char c) { return kPlainBytes.plain[static_cast<unsigned char>(c)]; }

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
        // Written back, a longer number would not read the same.
        std::string_view digits;
        if (!ReadInteger(18, digits) || (m_at != m_end && (*m_at == '.' || *m_at == 'e' || *m_at == 'E'))) {
            return false;
        }
        idText = std::string_view(begin, static_cast<size_t>(m_at - begin));
        return true;
    }

    // Reads an integer as the compact writer writes one: an optional '-' and 1 to
    // maxDigits digits, without a leading zero, and not "-0". Its digits into `digits`.
    bool ReadInteger(size_t maxDigits, std::string_view& digits) {
        const bool negative = m_at != m_end && *m_at == '-';
        if (negative) {
            ++m_at;
        }
        const char* const first = m_at;
        while (m_at != m_end && *m_at >= '0' && *m_at <= '9') {
            ++m_at;
        }
        digits = std::string_view(first, static_cast<size_t>(m_at - first));
        return !digits.empty() && digits.size() <= maxDigits && (digits[0] != '0' || (digits.size() == 1 && !negative));
    }

    bool ReadParams(SDirectRequest& request) {
        request.valueKind = SDirectRequest::EValue::kNone;
        request.valueMember = std::string_view();
        request.value = std::string_view();
        request.number = 0;
        if (Take('[')) {
            request.paramsObject = false;
            request.member = std::string_view();
            return ReadPlainString(request.param) && (!Take(',') || ReadValue(request)) && Take(']');
        }
        request.paramsObject = true;
        return Take('{') && ReadPlainString(request.member) && Take(':') && ReadPlainString(request.param) &&
               (!Take(',') || (ReadPlainString(request.valueMember) && request.valueMember != request.member &&
                               Take(':') && ReadValue(request))) &&
               Take('}');
    }

    bool TakeWord(std::string_view word) {
        if (static_cast<size_t>(m_end - m_at) < word.size() || std::string_view(m_at, word.size()) != word) {
            return false;
        }
        m_at += word.size();
        return true;
    }

    bool ReadValue(SDirectRequest& request) {
        using EValue = SDirectRequest::EValue;
        SkipBlanks();
        const char* const begin = m_at;
        if (m_at != m_end && *m_at == '"') {
            request.valueKind = EValue::kString;
            return ReadPlainString(request.value);
        }
        if (TakeWord("true") || TakeWord("false")) {
            request.valueKind = EValue::kBool;
            request.number = *begin == 't' ? 1 : 0;
        } else {
            // A fraction or an exponent ends the reading here, and the next token fails.
            std::string_view digits;
            if (!ReadInteger(9, digits)) {
                return false;
            }
            int number = 0;
            for (const char digit : digits) {
                number = number * 10 + (digit - '0');  // nine digits at most: never overflows
            }
            request.valueKind = EValue::kInteger;
            request.number = *begin == '-' ? -number : number;
        }
        request.value = std::string_view(begin, static_cast<size_t>(m_at - begin));
        return true;
    }

    const char* m_at;
    const char* const m_end;
};

}  // namespace

bool ReadDirect(std::string_view text, SDirectRequest& request) {
    CDirectReader reader(text);
    return reader.ReadRequest(request);
}

void AppendDirectError(const SDirectRequest& request, int code, const std::string& message, std::string& reply) {
    // Members in name order, as the compact writer writes the general way's error.
    reply.append(R"({"error":{"code":)").append(std::to_string(code)).append(R"(,"message":)");
    AppendCompact(Json::Value(message), reply);
    reply.append(R"(},"id":)").append(request.idText).append(R"(,"jsonrpc":"2.0"})");
}

}  // namespace Rpc
}  // namespace Json
