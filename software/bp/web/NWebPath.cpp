#include "NWebPath.h"

namespace {

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// Decodes one segment's escapes; false for a malformed escape or a byte no path may hold.
bool DecodeSegment(const std::string& raw, std::string& segment) {
    segment.clear();
    for (size_t i = 0; i < raw.size(); ++i) {
        unsigned char byte = static_cast<unsigned char>(raw[i]);
        if (byte == '%') {
            if (i + 2 >= raw.size()) {
                return false;
            }
            const int high = HexDigit(raw[i + 1]);
            const int low = HexDigit(raw[i + 2]);
            if (high < 0 || low < 0) {
                return false;
            }
            byte = static_cast<unsigned char>(high * 16 + low);
            if (byte == '.' || byte == '/') {
                return false;
            }
            i += 2;
        }
        if (byte < 0x20 || byte == 0x7f || byte == '\\') {
            return false;
        }
        segment.push_back(static_cast<char>(byte));
    }
    return true;
}

}  // namespace

bool NWebPath::Resolve(const std::string& target, std::string& path) {
    if (target.empty() || target[0] != '/' || target.size() > kMaxTargetBytes) {
        return false;
    }
    const std::string::size_type end = target.find_first_of("?#");
    const std::string whole = target.substr(0, end);
    std::string result;
    std::string segment;
    std::string::size_type start = 1;
    while (start <= whole.size()) {
        std::string::size_type slash = whole.find('/', start);
        if (slash == std::string::npos) {
            slash = whole.size();
        }
        const std::string raw = whole.substr(start, slash - start);
        start = slash + 1;
        if (raw.empty()) {
            continue;
        }
        if (!DecodeSegment(raw, segment) || segment[0] == '.') {
            return false;
        }
        if (!result.empty()) {
            result.push_back('/');
        }
        result += segment;
    }
    if (result.empty() || whole.back() == '/') {
        result += result.empty() ? "index.html" : "/index.html";
    }
    path = result;
    return true;
}
