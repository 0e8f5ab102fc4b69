#include "CControlCatalogHandler.h"

#include <algorithm>
#include <utility>
#include <vector>

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
    // Listed in code order, so that a reader sees the same catalog from every run.
    std::vector<const CProjCon*> controls;
    controls.reserve(GetDispatcher().GetControls().size());
    for (const auto& entry : GetDispatcher().GetControls()) {
        controls.push_back(entry.second);
    }
    std::sort(controls.begin(), controls.end(),
              [](const CProjCon* a, const CProjCon* b) { return a->GetCode() < b->GetCode(); });
    for (const CProjCon* listedControl : controls) {
        const CProjCon& control = *listedControl;
        SCatalogControl listed;
        listed.code = control.GetCode();
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
