#include "NControlCatalog.h"

const char NControlCatalog::kCatalogCode[] = "CAT";

void NControlCatalog::MakeRequest(CIpcMessage& request) {
    request.ClearArgs();
    request.SetCode(kCatalogCode);
    request.SetSubCode("");
    request.SetFlags(static_cast<uint16_t>(request.GetFlags() | MSG_FLAG_REQUEST));
}

void NControlCatalog::EncodeControl(const SCatalogControl& control, CIpcMessage& reply) {
    reply.ClearArgs();
    reply.AddArg(0, control.code);
    reply.AddArg(1, control.displayType, PARM_NUMBER);
    reply.AddArg(2, control.accessGroup, PARM_NUMBER);
    reply.AddArg(3, control.readOnly ? 1 : 0, PARM_NUMBER);
    reply.AddArg(4, control.enabled ? 1 : 0, PARM_NUMBER);
    reply.AddArg(5, control.minimum, PARM_NUMBER);
    reply.AddArg(6, control.maximum, PARM_NUMBER);
    reply.AddArg(7, control.value, PARM_NUMBER);
    reply.AddArg(8, control.text);
}

bool NControlCatalog::DecodeControl(const CIpcMessage& reply, SCatalogControl& control) {
    SCatalogControl decoded;
    int readOnly = 0;
    int enabled = 0;
    const bool ok = reply.GetArg(0, decoded.code) && !decoded.code.empty() &&
                    reply.GetArg(1, decoded.displayType) && reply.GetArg(2, decoded.accessGroup) &&
                    reply.GetArg(3, readOnly) && reply.GetArg(4, enabled) && reply.GetArg(5, decoded.minimum) &&
                    reply.GetArg(6, decoded.maximum) && reply.GetArg(7, decoded.value) && reply.GetArg(8, decoded.text);
    if (!ok) {
        return false;
    }
    decoded.readOnly = readOnly != 0;
    decoded.enabled = enabled != 0;
    control = decoded;
    return true;
}
