#include "CControlCatalogHandler.h"

#include <utility>

#include "CException.h"
#include "NControlCatalog.h"
#include "control/CProjCon.h"
#include "dispatch/CEventDispatcher.h"

CControlCatalogHandler::CControlCatalogHandler(CEventDispatcher& dispatcher)
    : CCustomEventHandler(NControlCatalog::kCatalogCode, dispatcher, true) {}

bool CControlCatalogHandler::HandleIpcRequest(const CIpcMessage& request, std::list<CIpcMessage>& replies) {
    CIpcMessage empty(request);
    empty.ClearArgs();
    empty.MakeReply(0);
    for (const auto& entry : GetDispatcher().GetControls()) {
        const CProjCon& control = *entry.second;
        SCatalogControl listed;
        listed.code = entry.first;
        listed.displayType = static_cast<int>(control.GetDisplayType());
        listed.accessGroup = static_cast<int>(control.GetAccessGroup());
        listed.readOnly = control.IsReadOnly();
        listed.enabled = control.GetEnabled();
        listed.minimum = control.GetMinValue();
        listed.maximum = control.GetMaxValue();
        if (IsTextType(listed.displayType)) {
            listed.text = control.GetText();
        } else {
            listed.value = control.GetValue();
        }
        CIpcMessage reply(empty);
        try {
            NControlCatalog::EncodeControl(listed, reply);
            if (reply.GetSerializedSize() >= CIpcMessage::kMaxMessageSize) {
                listed.text.clear();
                NControlCatalog::EncodeControl(listed, reply);
            }
        } catch (const CException&) {
            listed.text.clear();
            NControlCatalog::EncodeControl(listed, reply);
        }
        replies.push_back(std::move(reply));
    }
    if (replies.empty()) {
        replies.push_back(empty);
    }
    return true;
}
