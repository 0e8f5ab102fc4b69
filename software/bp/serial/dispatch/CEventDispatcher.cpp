#include "dispatch/CEventDispatcher.h"

#include <algorithm>

#include "SameText.h"
#include "control/CCustomEventHandler.h"
#include "control/CProjCon.h"
#include "dispatch/CIpcEventDispatcher.h"

CEventDispatcher::CEventDispatcher(ILog& log) : m_log(log) {}

bool CEventDispatcher::AddControl(CProjCon& control) {
    return m_controls.emplace(control.GetCode(), &control).second;
}

void CEventDispatcher::RemoveControl(const std::string& code) { m_controls.erase(code); }

CProjCon* CEventDispatcher::GetControl(const std::string& code) const {
    const auto it = m_controls.find(code);
    return it == m_controls.end() ? nullptr : it->second;
}

bool CEventDispatcher::AddCustomHandler(CCustomEventHandler& handler) {
    if (GetCustomHandler(handler.GetCode())) {
        return false;
    }
    m_handlers.push_back(&handler);
    return true;
}

void CEventDispatcher::RemoveCustomHandler(const std::string& code) {
    m_handlers.erase(std::remove_if(m_handlers.begin(), m_handlers.end(),
                                    [&code](const CCustomEventHandler* handler) { return handler->GetCode() == code; }),
                     m_handlers.end());
}

CCustomEventHandler* CEventDispatcher::GetCustomHandler(const std::string& code) const {
    // Asked for every request, so the codes are compared in place.
    for (CCustomEventHandler* handler : m_handlers) {
        if (SameText(handler->GetCode(), code)) {
            return handler;
        }
    }
    return nullptr;
}

void CEventDispatcher::SendNotificationMessage(const CProjCon& control, ENotifyType type) {
    // Each kept list is taken out for this announcement, so one made while it is under way
    // finds it empty and fills a list of its own.
    std::list<std::string> recipients;
    if (m_ipc) {
        recipients.swap(m_ipcRecipients);
        m_notifications.GetIpcRecipientList(control.GetCode(), recipients);
        if (!recipients.empty()) {
            m_ipc->MakeNotification(control, type, recipients);
        }
        m_ipcRecipients.swap(recipients);
    }
    if (m_json) {
        recipients.swap(m_jsonRecipients);
        m_notifications.GetC4jRecipientList(control.GetCode(), recipients);
        if (!recipients.empty()) {
            m_json->MakeNotification(control, type, recipients);
        }
        m_jsonRecipients.swap(recipients);
    }
}

void CEventDispatcher::GetIpcNotifyRecipientList(const std::string& key, std::list<std::string>& recipients) const {
    m_notifications.GetIpcRecipientList(key, recipients);
}

void CEventDispatcher::GetC4jNotifyRecipientList(const std::string& key, std::list<std::string>& recipients) const {
    m_notifications.GetC4jRecipientList(key, recipients);
}

void CEventDispatcher::AddPeriodicTask(IPeriodicTask& task) {
    if (std::find(m_tasks.begin(), m_tasks.end(), &task) == m_tasks.end()) {
        m_tasks.push_back(&task);
    }
}

void CEventDispatcher::RemovePeriodicTask(IPeriodicTask& task) {
    m_tasks.erase(std::remove(m_tasks.begin(), m_tasks.end(), &task), m_tasks.end());
}

void CEventDispatcher::Update() {
    for (IPeriodicTask* task : m_tasks) {
        task->Update();
    }
}
