#include "jsonrpc/QuickReader.h"

#include <cstdint>
#include <string>

namespace Json {
namespace Rpc {

namespace {

// The member names of nearly every request: held as static strings, whose names jsoncpp
// keeps as the literal instead of copying them into every object.
const char* KnownName(const std::string& name) {
    struct SName {
        const char* text;
        size_t length;
    };
    static const SName kNames[] = {{"jsonrpc", 7}, {"method", 6}, {"params", 6}, {"id", 2}, {"code", 4}, {"value", 5}};
    for (const SName& known : kNames) {
        if (name.size() == known.length && std::char_traits<char>::compare(name.data(), known.text, known.length) == 0) {
            return known.text;
        }
    }
    return nullptr;
}

class CQuickReader {
public:
    CQuickReader(const char* begin, const char* end) : m_at(begin), m_end(end) {}

    bool ReadRoot(Json::Value& root) {
        SkipBlanks();
        if (m_at == m_end || (*m_at != '{' && *m_at != '[')) {
            return false;
        }
        if (!ReadValue(root, 0)) {
            return false;
        }
        SkipBlanks();
        return m_at == m_end;
    }

private:
    void SkipBlanks() { m_at = Json::Rpc::SkipBlanks(m_at, m_end); }

    bool ReadValue(Json::Value& value, unsigned depth) {
        SkipBlanks();
        if (m_at == m_end) {
            return false;
        }
        switch (*m_at) {
            case '{':
                return depth < kMaxQuickDepth && ReadObject(value, depth + 1);
            case '[':
                return depth < kMaxQuickDepth && ReadArray(value, depth + 1);
            case '"': {
                std::string& text = m_scratch;
                if (!ReadString(text)) {
                    return false;
                }
                value = Json::Value(text.data(), text.data() + text.size());
                return true;
            }
            case 't':
                return ReadWord("true", Json::Value(true), value);
            case 'f':
                return ReadWord("false", Json::Value(false), value);
            case 'n':
                return ReadWord("null", Json::Value(), value);
            default:
                return ReadInteger(value);
        }
    }

    bool ReadWord(const char* word, Json::Value literal, Json::Value& value) {
        for (; *word != '\0'; ++word, ++m_at) {
            if (m_at == m_end || *m_at != *word) {
                return false;
            }
        }
        value = std::move(literal);
        return true;
    }

    bool ReadInteger(Json::Value& value) {
        const bool negative = *m_at == '-';
        if (negative) {
            ++m_at;
        }
        const char* const digits = m_at;
        uint64_t magnitude = 0;
        while (m_at != m_end && *m_at >= '0' && *m_at <= '9') {
            magnitude = magnitude * 10 + static_cast<unsigned>(*m_at - '0');
            ++m_at;
        }
        const size_t count = static_cast<size_t>(m_at - digits);
        if (count == 0 || count > 18 || (count > 1 && *digits == '0')) {
            return false;
        }
        if (m_at != m_end && (*m_at == '.' || *m_at == 'e' || *m_at == 'E')) {
            return false;  // a real number: the full reader's conversion decides its value
        }
        const int64_t signedMagnitude = static_cast<int64_t>(magnitude);  // below 10^18
        value = Json::Value(static_cast<Json::Int64>(negative ? -signedMagnitude : signedMagnitude));
        return true;
    }

    // Reads a string whose opening quote is at m_at into text.
    bool ReadString(std::string& text) {
        ++m_at;
        text.clear();
        for (;;) {
            const char* const run = m_at;
            while (m_at != m_end && *m_at != '"' && *m_at != '\\') {
                ++m_at;
            }
            text.append(run, m_at);
            if (m_at == m_end) {
                return false;
            }
            if (*m_at++ == '"') {
                return true;
            }
            if (m_at == m_end) {
                return false;
            }
            switch (*m_at++) {
                case '"': text += '"'; break;
                case '\\': text += '\\'; break;
                case '/': text += '/'; break;
                case 'b': text += '\b'; break;
                case 'f': text += '\f'; break;
                case 'n': text += '\n'; break;
                case 'r': text += '\r'; break;
                case 't': text += '\t'; break;
                default: return false;  // "\u" and anything else: the full reader's
            }
        }
    }

    // Makes value an empty container of this type at its opening character; true when the
    // closing character follows at once.
    bool OpenEmpty(Json::Value& value, Json::ValueType type, char close) {
        ++m_at;
        value = Json::Value(type);
        SkipBlanks();
        if (m_at == m_end || *m_at != close) {
            return false;
        }
        ++m_at;
        return true;
    }

    // After a member or element: the comma or the closing character read, '\0' for
    // anything else.
    char ReadSeparator(char close) {
        SkipBlanks();
        if (m_at == m_end || (*m_at != ',' && *m_at != close)) {
            return '\0';
        }
        return *m_at++;
    }

    bool ReadObject(Json::Value& object, unsigned depth) {
        if (OpenEmpty(object, Json::objectValue, '}')) {
            return true;
        }
        std::string name;
        for (;;) {
            SkipBlanks();
            if (m_at == m_end || *m_at != '"' || !ReadString(name)) {
                return false;
            }
            SkipBlanks();
            if (m_at == m_end || *m_at != ':') {
                return false;
            }
            ++m_at;
            const Json::ArrayIndex before = object.size();
            const char* const known = KnownName(name);
            Json::Value& member =
                known ? object[Json::StaticString(known)] : *object.demand(name.data(), name.data() + name.size());
            if (object.size() == before) {
                return false;  // a name given twice is refused, by the full reader
            }
            const char next = ReadValue(member, depth) ? ReadSeparator('}') : '\0';
            if (next != ',') {
                return next == '}';
            }
        }
    }

    bool ReadArray(Json::Value& array, unsigned depth) {
        if (OpenEmpty(array, Json::arrayValue, ']')) {
            return true;
        }
        for (;;) {
            const char next = ReadValue(array.append(Json::Value()), depth) ? ReadSeparator(']') : '\0';
            if (next != ',') {
                return next == ']';
            }
        }
    }

    const char* m_at;
    const char* const m_end;
    std::string m_scratch;  // a string value's text, reused
};

}  // namespace

bool ReadQuick(const char* begin, const char* end, Json::Value& root) {
    CQuickReader reader(begin, end);
    return reader.ReadRoot(root);
}

}  // namespace Rpc
}  // namespace Json
