#pragma once
// Json::Rpc::Handler: JSON-RPC 2.0 request processing over a table of methods: parse,
// validate, dispatch by method name, and the protocol's own error objects.
//
//   -32700 parse error       the text is not one strict JSON value: trailing text,
//                            comments, trailing commas, a duplicate member name, a NUL
//                            byte or nesting deeper than kMaxDepth
//   -32600 invalid request   not an object (or a batch of them), "jsonrpc" not "2.0",
//                            "method" not a string, "id" not a string, number or null,
//                            an empty batch, a batch of more than kMaxBatch members
//   -32601 method not found  no method of that name
//   -32602 invalid params    "params" present but neither an array nor an object (looked
//                            at only once the method is known)
//   -32603 internal error    the method threw, or its Call returned false
// A valid request without "id" is a notification: it is never answered, not even with
// an error, whatever its method does (its method runs; what it leaves in the response
// is dropped). An object that is not a valid request is not a notification: it is
// answered with -32600 and its "id" when that is a string, number or null, else with
// "id": null. A batch (an array) is answered by an array of the answers of its members
// that have one, in order; a batch of notifications only is not answered at all. A
// member of a batch that is not an object (an array included: batches do not nest) is
// answered with -32600 and "id": null.
//
// Methods build their whole response ({"jsonrpc", "id", "result" or "error"}); the
// handler passes it on as the method left it, without adding or checking members. A
// method that leaves the response null answers nothing, even to a request with an id.
//
// Every request that reaches a method carries the caller's client identifier as member
// "fd" (any "fd" the caller sent is replaced). Error objects are
// {"jsonrpc":"2.0","id":<id>,"error":{"code":<n>,"message":<text>}}.
//
// Parsing is bounded: nesting deeper than kMaxDepth is a parse error, so no input can
// exhaust the stack; a batch is bounded by kMaxBatch, so no request can make the answer
// grow without bound. A value handed in already parsed is trusted to be that shallow.
//
// Answer is Process with text out: a request of the direct shape (DirectRequest.h) whose
// method answers it directly costs no value at all; every other text, and every direct
// request its method declines, is answered as Process answers it, in the compact text.
//
// Ownership: the handler owns its methods. A method may add or delete methods (itself
// included) while it runs. Thread contract: one thread uses a handler (the server's
// event thread); no locks.

#include <json/json.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "jsonrpc/CallbackMethod.h"

namespace Json {
namespace Rpc {

enum EErrorCode {
    PARSE_ERROR = -32700,
    INVALID_REQUEST = -32600,
    METHOD_NOT_FOUND = -32601,
    INVALID_PARAMS = -32602,
    INTERNAL_ERROR = -32603,
};

class Handler {
public:
    static constexpr int kMaxDepth = 64;
    static constexpr size_t kMaxBatch = 1024;

    Handler();
    ~Handler();
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;

    // Takes ownership (null is ignored); a method of an existing name replaces the old one.
    void AddMethod(CallbackMethod* method);
    void DeleteMethod(const std::string& name);
    bool HasMethod(const std::string& name) const;
    // Every method name in name order, with its description: {"<name>": <description>}.
    Json::Value GetDescriptions() const;

    // Processes one request text (or batch) for the client; response becomes the value to
    // send back, or null when nothing is to be sent. Never throws (out of memory, nothing
    // is sent).
    void Process(const std::string& text, Json::Value& response, int clientId);
    // The same for an already parsed value (request and response may be one object).
    void Process(const Json::Value& request, Json::Value& response, int clientId);
    // Appends the compact text of the answer to one request text (or batch) to `reply`;
    // nothing when there is none. Never throws.
    void Answer(const std::string& text, std::string& reply, int clientId);

    // The compact text of a value, without a trailing newline: object members in name
    // order, no blanks, UTF-8 kept as it is ({"id":7,"jsonrpc":"2.0","result":2}).
    static std::string GetString(const Json::Value& value);
    // An error object for a request id (null when unknown).
    static Json::Value MakeError(const Json::Value& id, int code, const std::string& message);

private:
    // The request is the handler's own (parsed or copied), so the client id is written into
    // it in place.
    void ProcessOwned(Json::Value& request, Json::Value& response, int clientId);
    void ProcessOne(Json::Value& request, Json::Value& response, int clientId);
    // Runs a known method; an exception or a false return is INTERNAL_ERROR.
    void Call(CallbackMethod& method, Json::Value& request, Json::Value& response, int clientId);

    // Shared so that a method deleting or replacing itself stays alive until its call ends.
    struct SMethod {
        std::unique_ptr<const std::string> name;  // the key's text, left in place when the entry moves
        std::shared_ptr<CallbackMethod> method;
    };
    // A hash keyed by views, so that a request's method name is looked up without a string
    // made and without a comparison per level of a tree.
    std::unordered_map<std::string_view, SMethod> m_methods;
    std::unique_ptr<Json::CharReader> m_reader;
};

}  // namespace Rpc
}  // namespace Json
