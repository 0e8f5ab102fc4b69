#pragma once
// Json::Rpc::ForwardMethod: a method of one table that runs the method of the same name
// in another table, so that a second transport (a UDP server) serves chosen methods of
// the main server without a second copy of their handlers. The request keeps the client
// id the second transport gave it.
//
// Lifetime: the target table outlives the method. Thread contract: the thread of both
// tables (they must share one).

#include "jsonrpc/CallbackMethod.h"
#include "jsonrpc/Handler.h"

namespace Json {
namespace Rpc {

class ForwardMethod : public CallbackMethod {
public:
    ForwardMethod(Handler& target, const std::string& name) : m_target(target), m_name(name) {}

    bool Call(const Json::Value& request, Json::Value& response) override {
        m_target.Process(request, response, request.get("fd", -1).asInt());
        return true;
    }
    Json::Value GetDescription() const override { return Json::Value(m_name); }
    std::string GetName() const override { return m_name; }

private:
    Handler& m_target;
    std::string m_name;
};

}  // namespace Rpc
}  // namespace Json
