#pragma once
// IStatusListener: told by CStatusDb that the alarm picture changed, so that it can push
// the new alarm list and summary to its clients.
//
// Called on the controller's event thread, after the database is fully updated (the
// listener may read it back, and may even store again). Must not throw: an exception
// would reach the producer whose update has already been made.

class IStatusListener {
public:
    virtual ~IStatusListener() = default;

    // A group's alarm mask changed (an item entered or left an alarm severity, or an
    // item in alarm was removed, or a group in alarm was added).
    virtual void StatusAlarmsChanged() = 0;
};
