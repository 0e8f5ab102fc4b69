#pragma once
// CC4jBaseControlHandler: a handler that deals in controls: the JSON shape of one
// control (CProjCon) in results and notifications.
//
//   value       by display type: 100-199 a bool; 300-399 the text; 500-799 null; else the
//               integer. Into "value" of an object result, else the result itself.
//   enabled     the enabled state
//   min, max    display types 100-399 only; softmin, softmax only for 203
//   list        display types 400-499 only: one entry per shown item; compact entries are
//               [value, text, icon (only when the item has one)], full ones
//               {"idx", "text", "icon" (when it has one), "selectable": false (only for
//               an item that cannot be chosen, so a page can show it disabled)}; texts
//               given by id are translated into the current language
//   attributes  "type", "access", "label", "confirm"/"continue"/"wait" (each only when the
//               control has that text), "default" (text types: the default text; 500-799:
//               null; 100-199: a bool; else the integer, with "decimals" when non-zero),
//               "icon" (when the control has one), "readOnly": true (only for a control
//               no client may change)
// The helpers return false when the result they should add to is not an object.
//
// Access: a control of the protected group 6 is admitted only to clients at level 2 or 6
// (an operator or a protected session, raised by "session:connect"); every other
// control is open to every client. Every path that reveals or changes a value (get, set,
// properties, attributes, listening and each notification, menu entries) asks IsAdmitted
// at the moment it acts, so a client whose level is lowered stops hearing at once.
// A change must pass the controller's own check as well: a control whose access group
// is above the request's change level is refused (117), as an IPC command of a sender at
// that level is. The change level is the request's level, but at least the default
// access group (2, the group of ordinary settings), which every ASCII client has before
// it logs in: a client that never logged in (level 1) changes what such an ASCII client
// may, and a control of a higher group (remote access, factory settings) needs a
// protected session (6).
// Thread contract: the server's thread only.

#include "CC4jBaseHandler.h"
#include "control/CProjCon.h"
#include "security/CSecurityManager.h"

class CC4jBaseControlHandler : public CC4jBaseHandler {
public:
    using CC4jBaseHandler::CC4jBaseHandler;

    static bool AddValueToResult(const CProjCon& control, Json::Value& result);
    // The control's value as the API shows it: a bool, a number, a text, or null for
    // actions, menus and custom controls.
    static Json::Value ValueOf(const CProjCon& control);
    static bool AddEnabledToResult(const CProjCon& control, Json::Value& result);
    static bool AddMinMaxToResult(const CProjCon& control, Json::Value& result);
    static bool AddListToResult(const CProjCon& control, Json::Value& result, bool compact);
    static bool AddPropToResult(const CProjCon& control, Json::Value& result, bool compact);
    static bool AddAttrToResult(const CProjCon& control, Json::Value& result);
    // Whether the client (an id, or -1 for none) may read and change the control.
    bool IsAdmitted(int clientId, const CProjCon& control) const;
    bool IsAdmitted(const Json::Value& request, const CProjCon& control) const {
        return IsAdmitted(GetClientFd(request), control);
    }
    EAccessLevel GetChangeLevel(int clientId) const;
    EAccessLevel GetChangeLevel(const Json::Value& request) const { return GetChangeLevel(GetClientFd(request)); }

    // A resource text in the current language; "" for id 0 or an unknown id.
    static std::string Text(int textId);
};
