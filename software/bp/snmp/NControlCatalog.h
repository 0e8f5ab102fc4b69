#pragma once
// NControlCatalog: the IPC layout of the control catalog, the one request that lists every
// control of the controller with its attributes and value, so that a front-end which
// mirrors all controls (the SNMP agent) learns them in one exchange instead of several
// per control. Shared by the controller's CControlCatalogHandler and its clients.
//
// Request: code "CAT", flag MSG_FLAG_REQUEST, no subcode, no arguments.
// Replies: one per control, in code order (every reply but the last "more follows"); a
// controller without controls answers one reply without arguments.
//   arg 0 = joined code (text), 1 = display type (number), 2 = access group (number),
//   3 = read-only (0/1), 4 = enabled (0/1), 5 = minimum, 6 = maximum, 7 = value (number;
//   0 for a text control), 8 = text (a text control's text, else "").
//
// Thread contract: plain functions on the caller's messages; any thread. Nothing throws
// but EncodeControl, for a text holding a NUL (the wire cannot carry it).

#include <string>

#include "ipc/CIpcMessage.h"

struct SCatalogControl {
    std::string code;  // joined: "NAM", "LHR+LPA1"
    int displayType = 0;
    int accessGroup = 0;
    bool readOnly = false;
    bool enabled = true;
    int minimum = 0;
    int maximum = 0;
    int value = 0;
    std::string text;
};

namespace NControlCatalog {

extern const char kCatalogCode[];  // "CAT"

// Sets code and flags and clears the arguments.
void MakeRequest(CIpcMessage& request);
// Replaces the reply's arguments by the control's nine.
void EncodeControl(const SCatalogControl& control, CIpcMessage& reply);
// False, with `control` untouched, when a field is missing or of the wrong kind.
bool DecodeControl(const CIpcMessage& reply, SCatalogControl& control);

}  // namespace NControlCatalog
