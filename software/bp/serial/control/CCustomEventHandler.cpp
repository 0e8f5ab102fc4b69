#include "control/CCustomEventHandler.h"

#include "CException.h"
#include "dispatch/CEventDispatcher.h"
#include "text/NAsciiCodeUtils.h"

namespace {

std::string ValidatedHandlerCode(std::string code) {
    if (!NAsciiCodeUtils::ValidateCode(code)) {
        THROW_EXCEPTION("%s Invalid event handler code", code.c_str());
    }
    return code;
}

}  // namespace

CCustomEventHandler::CCustomEventHandler(const std::string& code, CEventDispatcher& dispatcher, bool exclusive)
    : m_code(ValidatedHandlerCode(code)), m_dispatcher(dispatcher), m_exclusive(exclusive) {
    if (!m_dispatcher.AddCustomHandler(*this)) {
        THROW_EXCEPTION("%s Event handler already exists.", m_code.c_str());
    }
}

CCustomEventHandler::~CCustomEventHandler() {
    if (m_dispatcher.GetCustomHandler(m_code) == this) {
        m_dispatcher.RemoveCustomHandler(m_code);
    }
}

bool CCustomEventHandler::HandleIpcCommand(const CIpcMessage&, CIpcMessage&) { return false; }

bool CCustomEventHandler::HandleIpcRequest(const CIpcMessage&, std::list<CIpcMessage>&) { return false; }
