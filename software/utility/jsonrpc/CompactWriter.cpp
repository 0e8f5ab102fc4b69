#include "jsonrpc/CompactWriter.h"

#include <cmath>
#include <cstdio>

namespace Json {
namespace Rpc {

namespace {

void AppendQuoted(const char* begin, const char* end, std::string& out) {
    static const char kHex[] = "0123456789abcdef";
    out.push_back('"');
    const char* plain = begin;  // start of the bytes that need no escape
    for (const char* c = begin; c != end; ++c) {
        const unsigned char byte = static_cast<unsigned char>(*c);
        if (byte >= 0x20 && byte != '"' && byte != '\\') {
            continue;
        }
        out.append(plain, c);
        plain = c + 1;
        switch (byte) {
            case '"':
                out.append("\\\"");
                break;
            case '\\':
                out.append("\\\\");
                break;
            case '\b':
                out.append("\\b");
                break;
            case '\f':
                out.append("\\f");
                break;
            case '\n':
                out.append("\\n");
                break;
            case '\r':
                out.append("\\r");
                break;
            case '\t':
                out.append("\\t");
                break;
            default: {
                const char escape[] = {'\\', 'u', '0', '0', kHex[byte >> 4], kHex[byte & 0xF]};
                out.append(escape, sizeof escape);
            }
        }
    }
    out.append(plain, end);
    out.push_back('"');
}

void AppendReal(double value, std::string& out) {
    if (std::isnan(value)) {
        out.append("null");
        return;
    }
    if (std::isinf(value)) {
        out.append(value < 0 ? "-1e+9999" : "1e+9999");
        return;
    }
    char text[40];
    const int length = snprintf(text, sizeof text, "%.17g", value);
    const size_t start = out.size();
    out.append(text, static_cast<size_t>(length));
    for (size_t i = start; i < out.size(); ++i) {
        if (out[i] == ',') {
            out[i] = '.';  // a locale's decimal comma is never JSON
        }
    }
    if (out.find_first_of(".e", start) == std::string::npos) {
        out.append(".0");
    }
}

}  // namespace

void AppendCompact(const Json::Value& value, std::string& out) {
    switch (value.type()) {
        case Json::nullValue:
            out.append("null");
            break;
        case Json::intValue:
            out.append(std::to_string(value.asLargestInt()));
            break;
        case Json::uintValue:
            out.append(std::to_string(value.asLargestUInt()));
            break;
        case Json::realValue:
            AppendReal(value.asDouble(), out);
            break;
        case Json::stringValue: {
            const char* begin = nullptr;
            const char* end = nullptr;
            if (value.getString(&begin, &end)) {
                AppendQuoted(begin, end, out);
            } else {
                out.append("\"\"");
            }
            break;
        }
        case Json::booleanValue:
            out.append(value.asBool() ? "true" : "false");
            break;
        case Json::arrayValue: {
            out.push_back('[');
            const Json::ArrayIndex size = value.size();
            for (Json::ArrayIndex i = 0; i < size; ++i) {
                if (i > 0) {
                    out.push_back(',');
                }
                AppendCompact(value[i], out);
            }
            out.push_back(']');
            break;
        }
        case Json::objectValue: {
            out.push_back('{');
            bool first = true;
            for (auto member = value.begin(); member != value.end(); ++member) {
                if (!first) {
                    out.push_back(',');
                }
                first = false;
                const char* nameEnd = nullptr;
                const char* name = member.memberName(&nameEnd);
                AppendQuoted(name, nameEnd, out);
                out.push_back(':');
                AppendCompact(*member, out);
            }
            out.push_back('}');
            break;
        }
    }
}

}  // namespace Rpc
}  // namespace Json
