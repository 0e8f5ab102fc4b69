#pragma once
// IStatusListener: told by CStatusDb of changes, so that it can push items, the alarm
// list and the summary to its clients.
//
// Called on the controller's event thread, after the database is fully updated (the
// listener may read it back, and may even store again). Must not throw: an exception
// would reach the producer whose update has already been made.

#include "status/StatusTypes.h"

class IStatusListener {
public:
    virtual ~IStatusListener() = default;

    // A group's alarm mask changed (an item entered or left an alarm severity, or an
    // item in alarm was removed, or a group in alarm was added).
    virtual void StatusAlarmsChanged() = 0;
    // A store changed an item (value, number, text or flags); oldFlags are its flags
    // before. Told after StatusAlarmsChanged when both happen. The default ignores it.
    virtual void StatusItemChanged(const SStatus& item, short oldFlags) {
        (void)item;
        (void)oldFlags;
    }
};
