#pragma once
// Json::Rpc::RpcMethod<T>: a CallbackMethod that calls a member function of a handler
// object, one object per published method name, and optionally another that answers
// requests of the direct shape (see CallbackMethod). The handler object must outlive the
// method table that owns this object.

#include <string>

#include "jsonrpc/CallbackMethod.h"

namespace Json {
namespace Rpc {

template <class T>
class RpcMethod : public CallbackMethod {
public:
    using Method = bool (T::*)(const Json::Value& request, Json::Value& response);
    using DirectMethod = bool (T::*)(const SDirectRequest& request, int clientId, std::string& reply);

    RpcMethod(T& object, Method method, const std::string& name, const Json::Value& description = Json::Value(),
              DirectMethod direct = nullptr)
        : m_object(&object), m_method(method), m_direct(direct), m_name(name), m_description(description) {}

    bool Call(const Json::Value& request, Json::Value& response) override {
        return (m_object->*m_method)(request, response);
    }
    bool CallDirect(const SDirectRequest& request, int clientId, std::string& reply) override {
        return m_direct && (m_object->*m_direct)(request, clientId, reply);
    }
    Json::Value GetDescription() const override { return m_description; }
    std::string GetName() const override { return m_name; }

private:
    T* m_object;
    Method m_method;
    DirectMethod m_direct;
    std::string m_name;
    Json::Value m_description;
};

}  // namespace Rpc
}  // namespace Json
