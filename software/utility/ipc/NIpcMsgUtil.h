#pragma once
// NIpcMsgUtil: argument checks for received IPC commands and the standard error reply.
//
// The checks take n and then, per positional argument 0..n-1, the expected kind as an
// int: ARG_NUMBER (0) or ARG_TEXT (1). They count the arguments actually held and return
//   ERR_NONE, ERR_INVALID_PARAMETER (3) on a kind mismatch, ERR_TOO_MANY_PARAMETERS (4),
//   ERR_TOO_FEW_PARAMETERS (5).
// Min:    fewer than n arguments gives 5, else the first n are checked.
// Max:    more than n gives 4, else the arguments present (at most n) are checked.
// Strict: any other count than n gives 4 (more) or 5 (fewer), else all are checked.

#include <string>

#include "EError.h"
#include "ipc/CIpcMessage.h"

namespace NIpcMsgUtil {

enum EArgKind { ARG_NUMBER = 0, ARG_TEXT = 1 };

EError ArgCheckMin(const CIpcMessage& message, unsigned int n, ...);
EError ArgCheckMax(const CIpcMessage& message, unsigned int n, ...);
EError ArgCheckStrict(const CIpcMessage& message, unsigned int n, ...);

// Clears the arguments and adds parameter 220 = the error code (a number) and
// parameter 221 = the text.
void MakeErrorResponse(CIpcMessage& message, EError error, const std::string& text);

}  // namespace NIpcMsgUtil
