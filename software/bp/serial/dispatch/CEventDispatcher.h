#pragma once
// CEventDispatcher: the controller's registry of controls and custom handlers, and the
// router of change notifications to the front-ends.
//
// Controls and handlers register themselves in their constructors and leave in their
// destructors (not owned). The registry is keyed by the joined code ("BRI", "NET+PORT")
// and hashed: every request looks a control up, and a hash costs one comparison of codes
// where an ordered tree of some hundred controls costs eight, for the same memory.
// The notification registry (CNotificationManager) is owned here. The IPC event
// dispatcher and the JSON control notifier attach themselves; either may be absent, and
// notifications go only to the front-ends present.
//
// Update() runs the controller's periodic duties: each attached periodic task
// (IPeriodicTask, such as the storage of control values) gets one turn.
//
// Thread contract: owned by the controller's event thread; every method runs there and
// nothing locks. Controls, handlers and attached objects must be removed before the
// dispatcher is destroyed.

#include <cstdint>
#include <list>
#include <string>
#include <unordered_map>
#include <vector>

#include "control/ControlTypes.h"
#include "dispatch/CNotificationManager.h"
#include "dispatch/IControlNotifier.h"
#include "log/ILog.h"

class CProjCon;
class CCustomEventHandler;
class CIpcEventDispatcher;

// A duty the controller's loop runs on every Update().
class IPeriodicTask {
public:
    virtual ~IPeriodicTask() = default;
    virtual void Update() = 0;
};

class CEventDispatcher {
public:
    explicit CEventDispatcher(ILog& log);
    CEventDispatcher(const CEventDispatcher&) = delete;
    CEventDispatcher& operator=(const CEventDispatcher&) = delete;

    // False when the joined code is taken (the registry is left unchanged).
    bool AddControl(CProjCon& control);
    void RemoveControl(const std::string& code);
    // Null when absent.
    CProjCon* GetControl(const std::string& code) const;
    // In no particular order.
    const std::unordered_map<std::string, CProjCon*>& GetControls() const { return m_controls; }

    bool AddCustomHandler(CCustomEventHandler& handler);
    void RemoveCustomHandler(const std::string& code);
    CCustomEventHandler* GetCustomHandler(const std::string& code) const;

    // Called by a control whenever its value, text, enabled state, range or list changes.
    void SendNotificationMessage(const CProjCon& control, ENotifyType type);

    void GetIpcNotifyRecipientList(const std::string& key, std::list<std::string>& recipients) const;
    void GetC4jNotifyRecipientList(const std::string& key, std::list<std::string>& recipients) const;
    CNotificationManager& GetNotificationManager() { return m_notifications; }

    void SetIpcEventDispatcher(CIpcEventDispatcher* ipc) { m_ipc = ipc; }
    void SetJsonNotifier(IControlNotifier* json) { m_json = json; }
    void AddPeriodicTask(IPeriodicTask& task);
    void RemovePeriodicTask(IPeriodicTask& task);

    ILog& GetLog() const { return m_log; }
    void Update();

    // Counts the accepted changes that left a persistent control's save pending (called by
    // the control), so that the storage, a periodic task run at every turn of the loop,
    // can tell without a look at each of its controls that there is nothing new to save.
    void NoteSavePending() { ++m_savesNoted; }
    uint32_t GetSavesNoted() const { return m_savesNoted; }

private:
    ILog& m_log;
    std::unordered_map<std::string, CProjCon*> m_controls;
    // A handful at most, so looked through in turn.
    std::vector<CCustomEventHandler*> m_handlers;
    CNotificationManager m_notifications;
    CIpcEventDispatcher* m_ipc = nullptr;
    IControlNotifier* m_json = nullptr;
    std::vector<IPeriodicTask*> m_tasks;
    uint32_t m_savesNoted = 0;
    // The recipients of the last announcement, one list per kind, kept so that the next
    // one refills the same nodes and strings instead of allocating one of each per listener.
    std::list<std::string> m_ipcRecipients;
    std::list<std::string> m_jsonRecipients;
};
