#pragma once
// Json::Rpc::AppendCompact: the compact text of a value, byte for byte what jsoncpp's
// stream writer writes with no indentation, no comments and UTF-8 kept (the form every
// reply and notification of the API takes), without its stream: object members in name
// order, no blanks, strings with '"', '\\', the control characters (\b \f \n \r \t by
// name, the others as \u00xx) escaped and every other byte as it is, integers in decimal,
// other numbers with 17 significant digits and ".0" when they would read as an integer,
// and the non-finite ones as null, -1e+9999 and 1e+9999.
//
// Why: a reply is small, and the stream writer's stream and virtual calls cost more than
// the text. The fuzz target for JSON-RPC holds this writer to jsoncpp's on every value.
//
// Pure; any thread. Recursion follows the value's nesting (a parsed request is bounded
// by the handler's depth limit).

#include <json/json.h>

#include <string>

namespace Json {
namespace Rpc {

void AppendCompact(const Json::Value& value, std::string& out);

}  // namespace Rpc
}  // namespace Json
