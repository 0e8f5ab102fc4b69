#pragma once
// CSimModule: the virtual projector's "sim" JSON-RPC module (version 1), which stands in
// for the projector's sensors so that integrators can raise and clear alarms and watch
// their systems react.
//
//   sim:setStatus  params {"group", "idx", "value" (text), "number", "severity" (0..3)}:
//                  stores the status item (missing members keep the item's current ones)
//                  and answers {}. Errors: 3 a member of the wrong type, 9 "Cannot find
//                  status group or item".
//
// Lifetime: the server and database outlive it. Thread contract: the controller's loop.

#include "CC4jBaseHandler.h"
#include "status/CStatusDb.h"

class CSimModule : public CC4jBaseHandler {
public:
    CSimModule(CJsonRpcServer& server, CStatusDb& database);
    bool SetStatus(const Json::Value& request, Json::Value& response);

private:
    CStatusDb& m_database;
};
