#include "NIpcMsgUtil.h"

#include <cstdarg>

namespace NIpcMsgUtil {
namespace {

enum ECountRule { AT_LEAST_N, AT_MOST_N, EXACTLY_N };

// The shared check: the count rule first, then the kinds of the arguments it covers.
EError Check(const CIpcMessage& message, unsigned int n, va_list kinds, ECountRule rule) {
    const unsigned int held = message.GetNumArgs();
    if (held > n && rule != AT_LEAST_N) {
        return ERR_TOO_MANY_PARAMETERS;
    }
    if (held < n && rule != AT_MOST_N) {
        return ERR_TOO_FEW_PARAMETERS;
    }
    const unsigned int checked = held < n ? held : n;
    for (unsigned int i = 0; i < checked; ++i) {
        const unsigned short id = static_cast<unsigned short>(i);
        const bool mismatch = va_arg(kinds, int) == ARG_NUMBER ? message.IsTextArg(id) : message.IsNumberArg(id);
        if (mismatch) {
            return ERR_INVALID_PARAMETER;
        }
    }
    return ERR_NONE;
}

}  // namespace

// The variadic list must be opened in each public function itself.
#define CHECK_WITH_RULE(rule)                              \
    va_list kinds;                                         \
    va_start(kinds, n);                                    \
    const EError result = Check(message, n, kinds, rule);  \
    va_end(kinds);                                         \
    return result

EError ArgCheckMin(const CIpcMessage& message, unsigned int n, ...) { CHECK_WITH_RULE(AT_LEAST_N); }
EError ArgCheckMax(const CIpcMessage& message, unsigned int n, ...) { CHECK_WITH_RULE(AT_MOST_N); }
EError ArgCheckStrict(const CIpcMessage& message, unsigned int n, ...) { CHECK_WITH_RULE(EXACTLY_N); }

void MakeErrorResponse(CIpcMessage& message, EError error, const std::string& text) {
    message.ClearArgs();
    message.AddArg(CIpcMessage::kErrorCodeParm, static_cast<int>(error));
    message.AddArg(CIpcMessage::kErrorTextParm, text);
}

}  // namespace NIpcMsgUtil
