#pragma once
// Json::Rpc::CallbackMethod: one published JSON-RPC method. The handler's method table
// owns its methods and calls them by name on its thread.
//
// Call receives the whole request object (with the caller's client identifier added as
// member "fd") and fills the whole response object: {"jsonrpc", "id", "result"} or
// {"jsonrpc", "id", "error"}; a response left null sends nothing. Its return value says
// whether the method ran (every method of this system returns true).
//
// CallDirect may answer a request of the direct shape (DirectRequest.h) from its parts,
// appending the whole response's text, exactly the compact text Call's response would
// have, to `reply`. It returns false to decline (having appended nothing), and the request
// then goes to Call; declining is always correct, and is what methods without a cheaper
// answer do.

#include <json/json.h>

#include <string>

#include "jsonrpc/DirectRequest.h"

namespace Json {
namespace Rpc {

class CallbackMethod {
public:
    virtual ~CallbackMethod() = default;
    virtual bool Call(const Json::Value& request, Json::Value& response) = 0;
    virtual bool CallDirect(const SDirectRequest& /*request*/, int /*clientId*/, std::string& /*reply*/) {
        return false;
    }
    virtual Json::Value GetDescription() const = 0;
    virtual std::string GetName() const = 0;
};

}  // namespace Rpc
}  // namespace Json
