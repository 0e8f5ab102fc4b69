#pragma once
// Json::Rpc::ReadQuick: reads the usual shape of a request (objects, arrays, strings
// with the short escapes, integers, true, false, null) into the very value jsoncpp's
// strict reader makes of it, without that reader's token and node machinery.
//
// It decides nothing on its own: a text it is not sure of, it declines (false, `root`
// left in an unspecified state) and the caller hands it to jsoncpp's reader, which then
// accepts or refuses it. Declined: a root that is not an object or an array, numbers with
// a fraction or an exponent, leading zeros or more than 18 digits, "\u" escapes, a name
// given twice, nesting deeper than kMaxQuickDepth, anything after the root but blanks,
// and every syntax error. So the texts it takes are read exactly as before, and the fuzz
// target for JSON-RPC holds it to jsoncpp's reader on every input.
//
// Why: parsing a small request took about a third of the controller's instructions per
// request, most of them in the reader's generality rather than in building the value.
//
// Pure; any thread. Recursion is bounded by kMaxQuickDepth.

#include <json/json.h>

namespace Json {
namespace Rpc {

constexpr unsigned kMaxQuickDepth = 32;

// The first byte at or after `at` that is not one of the blanks jsoncpp's reader skips
// (space, tab, CR, LF); `end` when there is none.
inline const char* SkipBlanks(const char* at, const char* end) {
    while (at != end && (*at == ' ' || *at == '\t' || *at == '\n' || *at == '\r')) {
        ++at;
    }
    return at;
}

bool ReadQuick(const char* begin, const char* end, Json::Value& root);

}  // namespace Rpc
}  // namespace Json
