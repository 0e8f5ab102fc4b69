#include "NIpcMsgUtil.h"

#include <cstdarg>
#include <vector>

namespace NIpcMsgUtil {
namespace {

std::vector<int> ReadKinds(unsigned int n, va_list args) {
    std::vector<int> kinds(n);
    for (unsigned int i = 0; i < n; ++i) {
        kinds[i] = va_arg(args, int);
    }
    return kinds;
}

// Checks the kinds of the first `count` positional arguments.
EError CheckKinds(const CIpcMessage& message, const std::vector<int>& kinds, unsigned int count) {
    for (unsigned int i = 0; i < count; ++i) {
        const unsigned short id = static_cast<unsigned short>(i);
        const bool mismatch = kinds[i] == ARG_NUMBER ? message.IsTextArg(id) : message.IsNumberArg(id);
        if (mismatch) {
            return ERR_INVALID_PARAMETER;
        }
    }
    return ERR_NONE;
}

}  // namespace

EError ArgCheckMin(const CIpcMessage& message, unsigned int n, ...) {
    va_list args;
    va_start(args, n);
    const std::vector<int> kinds = ReadKinds(n, args);
    va_end(args);
    if (message.GetNumArgs() < n) {
        return ERR_TOO_FEW_PARAMETERS;
    }
    return CheckKinds(message, kinds, n);
}

EError ArgCheckMax(const CIpcMessage& message, unsigned int n, ...) {
    va_list args;
    va_start(args, n);
    const std::vector<int> kinds = ReadKinds(n, args);
    va_end(args);
    if (message.GetNumArgs() > n) {
        return ERR_TOO_MANY_PARAMETERS;
    }
    return CheckKinds(message, kinds, message.GetNumArgs());
}

EError ArgCheckStrict(const CIpcMessage& message, unsigned int n, ...) {
    va_list args;
    va_start(args, n);
    const std::vector<int> kinds = ReadKinds(n, args);
    va_end(args);
    if (message.GetNumArgs() > n) {
        return ERR_TOO_MANY_PARAMETERS;
    }
    if (message.GetNumArgs() < n) {
        return ERR_TOO_FEW_PARAMETERS;
    }
    return CheckKinds(message, kinds, n);
}

void MakeErrorResponse(CIpcMessage& message, EError error, const std::string& text) {
    message.ClearArgs();
    message.AddArg(CIpcMessage::kErrorCodeParm, static_cast<int>(error));
    message.AddArg(CIpcMessage::kErrorTextParm, text);
}

}  // namespace NIpcMsgUtil
