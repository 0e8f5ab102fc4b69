#pragma once
// IControlNotifier: a front-end that announces control changes to its own listeners
// (the JSON-RPC control API). The dispatcher hands it each change together with the
// addresses of that front-end registered for the control.
// Called on the controller's event thread.

#include <list>
#include <string>

#include "control/ControlTypes.h"

class CProjCon;

class IControlNotifier {
public:
    virtual ~IControlNotifier() = default;
    virtual void MakeNotification(const CProjCon& control, ENotifyType type,
                                  const std::list<std::string>& recipients) = 0;
};
