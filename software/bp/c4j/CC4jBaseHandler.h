#pragma once
// CC4jBaseHandler: what every JSON-RPC API handler shares: its module in the server's
// registry, the response and error objects, parameter readers, the conversion between
// JSON parameters and IPC messages, and the generic listener methods over the
// controller's notification registry.
//
// Responses: a request without "id" is a notification and gets no response at all, also
// when it fails (the response stays null). Error objects are {"code": EError, "message":
// the given text, or the code's default text (NErrorText) when none is given}.
//
// Client address: "JSON_TCP.<fd>" with the request's "fd" (the client id the server puts
// into every request), or "JSON_TCP.-1" without one; it is the key of the client's
// notification registrations. Log lines name a client as "[ID:<fd>.<id>]".
//
// Lifetime: the server outlives the handler; the method objects a handler publishes
// point at it, so a handler lives as long as the server serves. Thread contract: the
// server's thread only. Handler methods never throw to the server.

#include <json/json.h>

#include <list>
#include <string>
#include <utility>
#include <vector>

#include "CJsonRpcServer.h"
#include "EError.h"
#include "NJsonValueParser.h"
#include "ipc/CIpcMessage.h"
#include "jsonrpc/RpcMethod.h"

class CC4jBaseHandler {
public:
    // Registers the module (name, version) with the server and publishes "<module>:version".
    CC4jBaseHandler(CJsonRpcServer& server, const std::string& module, unsigned int version);
    virtual ~CC4jBaseHandler();
    CC4jBaseHandler(const CC4jBaseHandler&) = delete;
    CC4jBaseHandler& operator=(const CC4jBaseHandler&) = delete;

    virtual bool Version(const Json::Value& request, Json::Value& response);
    // Register / unregister the calling client for the keys of GetNotifyMethods; "sendNow"
    // (default true) makes AddListener send the current state at once.
    virtual bool AddListener(const Json::Value& request, Json::Value& response);
    virtual bool RemoveListener(const Json::Value& request, Json::Value& response);
    // Sends the current state for one key to the given client addresses (the base has none).
    virtual void SendNotification(const std::string& key, const std::list<std::string>& clients);
    // The keys a listener request names: params "notifyMethod" (a string or strings).
    virtual std::list<std::string> GetNotifyMethods(const Json::Value& params) const;

    static bool IsResponseRequired(const Json::Value& request) { return request.isMember("id"); }
    static void InitResponseObj(const Json::Value& request, Json::Value& response);
    // The whole answer {"jsonrpc", "id", "result"}; nothing for a notification.
    static void MakeResultResponse(const Json::Value& request, Json::Value& response, const Json::Value& result);
    static void MakeErrorResponse(const Json::Value& request, Json::Value& response, EError code,
                                  const std::string& message = "");
    static void NewFormatErrorResponse(const Json::Value& request, Json::Value& response, EError code,
                                       const std::string& message = "");
    static int GetId(const Json::Value& request);
    static int GetClientFd(const Json::Value& request);
    static std::string GetClientDescriptor(const Json::Value& request);
    static std::string GetClientIdString(const Json::Value& request);
    static std::string GetClientIdString(int clientFd, int id);

    // Builds an IPC message from a request's params: code and subcode from the code, then
    // the arguments (array params from index 1 on; object params from "value"). Throws
    // CException "Unsupported JSON type: %d (%s)" / "Unsupported JSON container: %d".
    static CIpcMessage ConvertParamsToIpc(const Json::Value& params);
    static Json::Value ConvertFromIpcReply(const CIpcMessage& reply);
    static Json::Value ConvertFromIpcReply(const std::list<CIpcMessage>& replies);

protected:
    // Publishes member function `method` of `handler` under `name`, with `direct` (when
    // given) answering the requests of the direct shape it can (see Json::Rpc::CallbackMethod).
    template <class T>
    void Publish(T& handler, bool (T::*method)(const Json::Value&, Json::Value&), const std::string& name,
                 typename Json::Rpc::RpcMethod<T>::DirectMethod direct = nullptr) {
        m_server.AddMethod(new Json::Rpc::RpcMethod<T>(handler, method, name, Json::Value(), direct));
    }

    // Whether the request acts below `required` (see CJsonRpcServer for a request's level):
    // then the response is error 117 and the refusal is logged.
    bool IsRefusedBelow(const Json::Value& request, Json::Value& response, EAccessLevel required) const;

    CJsonRpcServer& GetServer() const { return m_server; }
    CEventDispatcher& GetDispatcher() const { return m_server.GetDispatcher(); }
    ILog& GetLog() const { return m_server.GetLog(); }
    const std::string& GetModule() const { return m_module; }

private:
    CJsonRpcServer& m_server;
    std::string m_module;
    unsigned int m_version;
};
