#include "status/NStatusMessage.h"

#include <climits>

namespace NStatusMessage {

const char kStatusCode[] = "STA";
const char kAlarmSubcode[] = "ALRM";

namespace {

void StartRequest(CIpcMessage& request, const char* subcode) {
    request.SetCode(kStatusCode);
    request.SetSubCode(subcode);
    request.ClearArgs();
    request.SetFlags(static_cast<uint16_t>(request.GetFlags() | MSG_FLAG_REQUEST));
}

bool GetNumber(const CIpcMessage& message, unsigned short id, long min, long max, int& value) {
    int number = 0;
    if (!message.IsNumberArg(id) || !message.GetArg(id, number) || number < min || number > max) {
        return false;
    }
    value = number;
    return true;
}

bool GetText(const CIpcMessage& message, unsigned short id, std::string& text) {
    return !message.IsNumberArg(id) && message.GetArg(id, text);
}

}  // namespace

void MakeItemRequest(CIpcMessage& request, const std::string& group, short index) {
    StartRequest(request, "");
    request.AddArg(0, group);
    request.AddArg(1, static_cast<int>(index));
}

void MakeGroupRequest(CIpcMessage& request, const std::string& group) {
    StartRequest(request, "");
    request.AddArg(0, group);
}

void MakeAlertsRequest(CIpcMessage& request) { StartRequest(request, kAlarmSubcode); }

void EncodeStatus(const SStatus& status, CIpcMessage& reply) {
    reply.ClearArgs();
    reply.AddArg(0, static_cast<int>(status.flags));
    reply.AddArg(1, status.labelId);
    reply.AddArg(2, status.number);
    reply.AddArg(3, status.value);
    reply.AddArg(4, status.text);
    reply.AddArg(5, status.group);
    reply.AddArg(6, static_cast<int>(status.index));
}

bool DecodeStatus(const CIpcMessage& reply, SStatus& status) {
    SStatus decoded;
    int flags = 0;
    int index = 0;
    if (!GetNumber(reply, 0, SHRT_MIN, SHRT_MAX, flags) || !GetNumber(reply, 1, INT_MIN, INT_MAX, decoded.labelId) ||
        !GetNumber(reply, 2, INT_MIN, INT_MAX, decoded.number) || !GetText(reply, 3, decoded.value) ||
        !GetText(reply, 4, decoded.text) || !GetText(reply, 5, decoded.group) ||
        !GetNumber(reply, 6, SHRT_MIN, SHRT_MAX, index)) {
        return false;
    }
    decoded.flags = static_cast<short>(flags);
    decoded.index = static_cast<short>(index);
    status = decoded;
    return true;
}

void EncodeSummary(unsigned short summary, unsigned count, CIpcMessage& reply) {
    reply.ClearArgs();
    reply.AddArg(0, static_cast<int>(summary));
    reply.AddArg(1, count > INT_MAX ? INT_MAX : static_cast<int>(count));
}

bool DecodeSummary(const CIpcMessage& reply, unsigned short& summary, unsigned& count) {
    int word = 0;
    int number = 0;
    if (!GetNumber(reply, 0, 0, USHRT_MAX, word) || !GetNumber(reply, 1, 0, INT_MAX, number)) {
        return false;
    }
    summary = static_cast<unsigned short>(word);
    count = static_cast<unsigned>(number);
    return true;
}

}  // namespace NStatusMessage
