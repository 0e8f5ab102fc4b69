#pragma once
// Json::Rpc::RpcMethod<T>: a CallbackMethod that calls a member function of a handler
// object, one object per published method name. The handler object must outlive the
// method table that owns this object.

#include <string>

#include "jsonrpc/CallbackMethod.h"

namespace Json {
namespace Rpc {

template <class T>
class RpcMethod : public CallbackMethod {
public:
    using Method = bool (T::*)(const Json::Value& request, Json::Value& response);

    RpcMethod(T& object, Method method, const std::string& name, const Json::Value& description = Json::Value())
        : m_object(&object), m_method(method), m_name(name), m_description(description) {}

    bool Call(const Json::Value& request, Json::Value& response) override {
        return (m_object->*m_method)(request, response);
    }
    Json::Value GetDescription() const override { return m_description; }
    std::string GetName() const override { return m_name; }

private:
    T* m_object;
    Method m_method;
    std::string m_name;
    Json::Value m_description;
};

}  // namespace Rpc
}  // namespace Json
