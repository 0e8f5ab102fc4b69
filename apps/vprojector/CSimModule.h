#pragma once
// CSimModule: the virtual projector's "sim" JSON-RPC module (version 1), which stands in
// for the projector's sensors so that integrators can raise and clear alarms and watch
// their systems react.
//
//   sim:setStatus  params {"group", "idx", "value" (text), "number", "severity" (0..3)}:
//                  stores the status item (missing members keep the item's current ones)
//                  and answers {}. Errors: 3 a member of the wrong type, 9 "Cannot find
//                  status group or item".
//   sim:readRegister  params {"port", "offset"}: {"value"} read from the simulated FPGA
//                  itself (not a shadow), so that integrators see what the formatter was
//                  given. Error 3 for a port without a block, an offset that is not a
//                  register, or no simulated FPGA.
//   sim:setGpio    params {"pin" 0..31, "level" (bool or 0/1)}: sets a simulated GPIO input
//                  (macros with a GPIO trigger act on the edge); {}. Error 3 otherwise.
//   sim:setLampUsage  params {"position" ("A1".."B3"), "onTimeS"}: writes the on-time of the
//                  lamp in place to its tag; {}.
//   sim:replaceLamp   params {"position", "type"}: a new lamp (a new record on the tag,
//                  installed now, no use yet); {}. Both: error 3 for bad params or a
//                  position without a lamp, 111 when the tag refuses the write.
//
// Lifetime: the server, database, formatter plant, GPIO inputs and lamps (any may be
// null) outlive it.
// Thread contract: the controller's loop.

#include "CC4jBaseHandler.h"
#include "CFormatterPlant.h"
#include "CLampPlant.h"
#include "CSimGpio.h"
#include "status/CStatusDb.h"

class CSimModule : public CC4jBaseHandler {
public:
    CSimModule(CJsonRpcServer& server, CStatusDb& database, const CFormatterPlant* formatter, CSimGpio* gpio,
               CLampPlant* lamps);
    bool SetStatus(const Json::Value& request, Json::Value& response);
    bool ReadRegister(const Json::Value& request, Json::Value& response);
    bool SetGpio(const Json::Value& request, Json::Value& response);
    bool SetLampUsage(const Json::Value& request, Json::Value& response);
    bool ReplaceLamp(const Json::Value& request, Json::Value& response);

private:
    // {} when `error` is empty; else 3 for a position without a lamp, 111 for the tag.
    bool LampAnswer(const Json::Value& request, Json::Value& response, const std::string& error);

    CStatusDb& m_database;
    const CFormatterPlant* m_formatter;
    CSimGpio* m_gpio;
    CLampPlant* m_lamps;
};
