#pragma once
// Json::Rpc::ReadDirect: recognises, without building a value, the shape nearly every
// request of a control system takes, so that its method can answer from the parts:
//
//   {"jsonrpc":"2.0","id":<id>,"method":"<name>","params":["<text>"]}
//   {"jsonrpc":"2.0","id":<id>,"method":"<name>","params":{"<member>":"<text>"}}
//
// and the same with a second parameter after the text, ["<text>",<value>] or
// {"<member>":"<text>","<other member>":<value>} (a get names a code, a set a code and a
// value; a repeated member name is the strict reader's parse error), with the four members in any order and blanks (space, tab, CR, LF) between
// tokens. <id> is an integer of at most 18 digits without leading zeros (not "-0") or a
// string; <value> is true, false, an integer of at most 9 digits (so it fits an int)
// without leading zeros (not "-0"), or a string; every string (the id, the name, the
// members, the text and the value) holds only the bytes 0x20 to 0x7E other than '"' and
// '\\', so it is its own text, with nothing to unescape.
//
// It decides nothing on its own: whatever it declines goes the general way (parsed into
// a value), which then answers it or refuses it. Whatever it takes, the strict reader
// reads to exactly these members, and `idText` is byte for byte how the compact writer
// writes that id back; the fuzz target for JSON-RPC holds it to both on every input.
//
// Why: for a small request, building the request and response values and destroying them
// again cost several times the work of reading the parts and writing the answer's text.
//
// AppendDirectError appends the compact text of the error answer to such a request,
// {"error":{"code":<code>,"message":<message>},"id":<id>,"jsonrpc":"2.0"}, for a method
// that has acted on the request and cannot leave its refusal to the general way.
//
// Pure; any thread. The views point into the text read.

#include <string>
#include <string_view>

namespace Json {
namespace Rpc {

struct SDirectRequest {
    std::string_view method;
    std::string_view idText;      // as it stands in the text, quotes and sign included
    std::string_view member;      // the params object's first member name; empty for an array
    std::string_view param;       // the first parameter, a string, without its quotes
    bool paramsObject = false;    // params {"<member>": "<text>"} rather than ["<text>"]
    // The second parameter, when there is one.
    enum class EValue { kNone, kInteger, kBool, kString };
    EValue valueKind = EValue::kNone;
    std::string_view valueMember;  // its member name in a params object
    std::string_view value;        // as it stands in the text; a string without its quotes
    int number = 0;                // an integer's value; 1 for true, 0 for false
};

bool ReadDirect(std::string_view text, SDirectRequest& request);

void AppendDirectError(const SDirectRequest& request, int code, const std::string& message, std::string& reply);

}  // namespace Rpc
}  // namespace Json
