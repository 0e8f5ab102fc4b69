#pragma once
// NStatusMessage: the IPC layout of status requests and their replies, shared by the
// controller (CStatusRequestHandler) and every client that reads status over IPC.
//
// Requests, code "STA", sent as requests (MSG_FLAG_REQUEST):
//   item    no subcode; arg 0 = group (text), arg 1 = index (number, -32768..32767)
//   group   no subcode; arg 0 = group (text)
//   alerts  subcode "ALRM"; no arguments
// Other argument ids (such as the sender's access level, 231) are ignored.
//
// Replies (the request's header turned into a reply; every reply but the last of one
// request carries MSG_FLAG_MORE_FOLLOWS, set by the dispatcher):
//   item    one status item
//   group   one status item per item of the group, in index order; an empty group
//           answers one reply without arguments
//   alerts  first the summary, then one status item per alarm, in alarm-list order
//           (see CStatusDb::AlarmSort)
//
// One status item:  arg 0 = flags (number: the 16-bit word as signed, -32768..32767;
//   bits 0-1 severity, bit 8 sticky), 1 = label id (number: resource text id),
//   2 = number (number), 3 = value string (text), 4 = additional text (text),
//   5 = group (text), 6 = index (number, -32768..32767).
//   The translated texts and the value text id are not carried; a client translates the
//   label id itself.
// The summary:  arg 0 = alarm summary (number, 0..65535), arg 1 = number of alarm
//   replies that follow (number, 0 or more).
//
// Errors: one reply with parameter 220 = EError (number) and 221 = text:
//   5 ERR_TOO_FEW_PARAMETERS  "Missing status group"        (no arg 0)
//   3 ERR_INVALID_PARAMETER   "Status group must be text"    (arg 0 a number)
//   3 ERR_INVALID_PARAMETER   "Status index must be a number from -32768 to 32767"
//   9 ERR_UNKNOWN_REQUEST     "Cannot find status group or item"  (item request)
//   9 ERR_UNKNOWN_REQUEST     "Cannot find status group"          (group request)
//   9 ERR_UNKNOWN_REQUEST     "Unknown status request <subcode>"   (other subcode)
//   132 ERR_REQUEST_THREW     the failure's message: a status that cannot be encoded
//                             (a NUL in a text) or whose reply would not fit one datagram
// Commands (no request flag) of code "STA" are declined and answered "not found".
//
// Thread contract: plain functions on the caller's messages; any thread. The encoders
// throw CException only when a text holds a NUL character (the wire cannot carry it);
// the decoders never throw.

#include <string>

#include "ipc/CIpcMessage.h"
#include "status/StatusTypes.h"

namespace NStatusMessage {

extern const char kStatusCode[];    // "STA": the IPC code of status requests
extern const char kAlarmSubcode[];  // "ALRM": subcode of the global-alerts request

// Each sets code and subcode, replaces the arguments and sets MSG_FLAG_REQUEST.
void MakeItemRequest(CIpcMessage& request, const std::string& group, short index);
void MakeGroupRequest(CIpcMessage& request, const std::string& group);
void MakeAlertsRequest(CIpcMessage& request);

// Replaces the message's arguments by the item's seven.
void EncodeStatus(const SStatus& status, CIpcMessage& reply);
// Fills the seven carried fields (the others are reset). False, with `status` untouched,
// when any field is missing, of the wrong kind or out of range.
bool DecodeStatus(const CIpcMessage& reply, SStatus& status);

// Replaces the message's arguments by the summary and the alarm count.
void EncodeSummary(unsigned short summary, unsigned count, CIpcMessage& reply);
// False, with the outputs untouched, when a field is missing, of the wrong kind or out
// of range.
bool DecodeSummary(const CIpcMessage& reply, unsigned short& summary, unsigned& count);

}  // namespace NStatusMessage
