#pragma once
// SStatusConditionSet: the projector's global alert state as a client reads it: the
// alarm summary word (OR of every group's alarm mask) and the items in alarm, in the
// status database's alarm order.

#include <list>

#include "status/StatusTypes.h"

struct SStatusConditionSet {
    unsigned short summary = 0;
    std::list<SStatus> alarms;
};
