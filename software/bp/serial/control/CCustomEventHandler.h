#pragma once
// CCustomEventHandler: a handler registered for a whole code that answers IPC commands
// and requests itself instead of holding a value (status reads, diagnostics, ...).
// The dispatcher offers it every message for its code before looking for a control.
//
// Lifetime: the constructor registers the handler with the dispatcher (throws
// "%s Invalid event handler code" or "%s Event handler already exists."); the destructor
// removes it. Used on the controller's event thread only.
//
// `exclusive`: when true, the code belongs to the handler alone: a command or request it
// declines (returns false for) is answered "not found" instead of falling through to a
// control of the same code.

#include <list>
#include <string>

#include "ipc/CIpcMessage.h"

class CEventDispatcher;

class CCustomEventHandler {
public:
    CCustomEventHandler(const std::string& code, CEventDispatcher& dispatcher, bool exclusive);
    virtual ~CCustomEventHandler();
    CCustomEventHandler(const CCustomEventHandler&) = delete;
    CCustomEventHandler& operator=(const CCustomEventHandler&) = delete;

    // True when the handler answered; the reply or replies keep the message's header.
    bool HandleCommand(const CIpcMessage& command, CIpcMessage& reply) { return HandleIpcCommand(command, reply); }
    bool HandleRequest(const CIpcMessage& request, std::list<CIpcMessage>& replies) {
        return HandleIpcRequest(request, replies);
    }

    const std::string& GetCode() const { return m_code; }
    bool IsExclusive() const { return m_exclusive; }

protected:
    // Subclasses override what they answer; the defaults decline.
    virtual bool HandleIpcCommand(const CIpcMessage& command, CIpcMessage& reply);
    virtual bool HandleIpcRequest(const CIpcMessage& request, std::list<CIpcMessage>& replies);

    CEventDispatcher& GetDispatcher() const { return m_dispatcher; }

private:
    std::string m_code;
    CEventDispatcher& m_dispatcher;
    bool m_exclusive;
};
