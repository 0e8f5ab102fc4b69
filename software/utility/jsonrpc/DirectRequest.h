#pragma once
// Json::Rpc::ReadDirect: recognises, without building a value, the shape nearly every
// request of a control system takes, so that its method can answer from the parts:
//
//   {"jsonrpc":"2.0","id":<id>,"method":"<name>","params":["<text>"]}
//   {"jsonrpc":"2.0","id":<id>,"method":"<name>","params":{"<member>":"<text>"}}
//
// with the four members in any order and blanks (space, tab, CR, LF) between tokens.
// <id> is an integer of at most 18 digits without leading zeros (not "-0") or a string;
// every string (the id, the name, the member and the text) holds only the bytes 0x20 to
// 0x7E other than '"' and '\\', so it is its own text, with nothing to unescape.
//
// It decides nothing on its own: whatever it declines goes the general way (parsed into
// a value), which then answers it or refuses it. Whatever it takes, the strict reader
// reads to exactly these members, and `idText` is byte for byte how the compact writer
// writes that id back; the fuzz target for JSON-RPC holds it to both on every input.
//
// Why: for a small request, building the request and response values and destroying them
// again cost several times the work of reading the parts and writing the answer's text.
//
// Pure; any thread. The views point into the text read.

#include <string_view>

namespace Json {
namespace Rpc {

struct SDirectRequest {
    std::string_view method;
    std::string_view idText;      // as it stands in the text, quotes and sign included
    std::string_view member;      // the params object's one member name; empty for an array
    std::string_view param;       // the one string parameter, without its quotes
    bool paramsObject = false;    // params {"<member>": "<text>"} rather than ["<text>"]
};

bool ReadDirect(std::string_view text, SDirectRequest& request);

}  // namespace Rpc
}  // namespace Json
