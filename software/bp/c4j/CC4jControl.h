#pragma once
// CC4jControl: the "control" module (version 1): read and set any control by its code,
// read its properties and attributes, and listen for its changes.
//
//   control:get / get                       the value (into "value" with object params)
//   control:set / set                       params {"code","value"} or [code, value];
//                                           text controls take a string, actions any
//                                           value (triggered once), others a number or a
//                                           bool; the result is the value that now stands
//   control:getProperties / getProperties   enabled, list or min/max (soft limits for
//                                           203), and the value
//   control:getAttributes / getAttributes   type, access, label, texts, default, icon
//   control:addListener / addListener       params {"code": code or [codes], "sendNow"}
//                                           or [code...]; result {"count": codes registered}
//   control:removeListener / removeListener the same codes
//   removeAllListeners                      every registration of the calling client;
//                                           result {"removed": [keys]}
//   getListenerList                         [{"code", "count"}] for every key, or with
//                                           params {"client": id or "JSON_TCP.<id>"} that
//                                           client's registrations and their counts
// A change of a listened control goes to its listeners as
// {"jsonrpc":"2.0","method":"control:notify","params":{"code":code,"value":value}}.
//
// Codes served by a custom handler are passed on as IPC messages (ConvertParamsToIpc)
// and its reply converted back. Controls of the protected access group 6 need a client
// access level of 2 or 6 (error 117 otherwise). Errors: 3 wrong value type, 5 no client
// identifier, 7 a result that cannot be built, 101 unknown code, 117, or the setter's
// own code ("This control is read-only" for a read-only control).
//
// Lifetime: registers itself as the dispatcher's JSON notifier until destroyed.
// Thread contract: the server's thread, which is also the controller's event thread.

#include <functional>
#include <list>
#include <string>

#include "CC4jBaseControlHandler.h"
#include "dispatch/IControlNotifier.h"

class CC4jControl : public CC4jBaseControlHandler, public IControlNotifier {
public:
    explicit CC4jControl(CJsonRpcServer& server);
    ~CC4jControl() override;

    bool Get(const Json::Value& request, Json::Value& response);
    // Get's answer to a request of the direct shape, written without building a value;
    // declines a second parameter, custom-handled codes, unknown or refused ones and debug
    // logging.
    bool GetDirect(const Json::Rpc::SDirectRequest& request, int clientId, std::string& reply);
    bool Set(const Json::Value& request, Json::Value& response);
    // Set's answer to a request of the direct shape with a value (object params must be
    // {"code", "value"} in that order): declines, before anything changes, what Set would
    // refuse without trying (custom-handled, unknown or refused codes, a change level too
    // low, a value of the wrong type); once it has tried the change it answers whatever
    // comes of it, refusals included, and never throws.
    bool SetDirect(const Json::Rpc::SDirectRequest& request, int clientId, std::string& reply);
    bool GetProperties(const Json::Value& request, Json::Value& response);
    bool GetAttributes(const Json::Value& request, Json::Value& response);
    bool AddListener(const Json::Value& request, Json::Value& response) override;
    bool RemoveListener(const Json::Value& request, Json::Value& response) override;
    bool RemoveAllListeners(const Json::Value& request, Json::Value& response);
    bool GetListenerList(const Json::Value& request, Json::Value& response);

    std::list<std::string> GetNotifyMethods(const Json::Value& params) const override;
    void SendNotification(const std::string& key, const std::list<std::string>& clients) override;
    void MakeNotification(const CProjCon& control, ENotifyType type,
                          const std::list<std::string>& recipients) override;

private:
    // Looks the control up and checks the protected group; answers the error itself and
    // returns null when the request cannot go on.
    CProjCon* FindControl(const Json::Value& request, Json::Value& response, const std::string& code);
    // Answers a description of the request's control built by `build` (error 7 when it
    // cannot be built).
    bool Describe(const Json::Value& request, Json::Value& response,
                  const std::function<bool(const CProjCon&, Json::Value&)>& build);
    // Answers through the custom handler of the code, when there is one.
    bool TryCustomHandler(const Json::Value& request, Json::Value& response, const std::string& code, bool command);
    Json::Value MakeNotifyText(const CProjCon& control) const;
    // A direct request's control (its code into `code`); null for what the general way
    // must answer: a custom-handled or unknown code, or one the client is not admitted to.
    CProjCon* FindDirect(const Json::Rpc::SDirectRequest& request, int clientId, std::string& code) const;
    // The compact text of the answer holding the control's value (into "value" for object
    // params), as Get's and Set's general way writes it.
    static void AppendValueAnswer(const Json::Rpc::SDirectRequest& request, const CProjCon& control,
                                  std::string& reply);

    // The recipients of the last notification, kept so that the next one refills the same
    // nodes instead of allocating one per listener (event thread only).
    std::list<std::string> m_recipients;
};
