#pragma once
// CKeepAliveMonitor: the virtual projector's process monitor for "system:keepAlive": a
// report is handed to the supervisor of the child with that pid, which restarts the child
// when it misses its deadline (CChildSupervisor::Watch). Reports for any other process
// are refused.
//
// Lifetime: the supervisors outlive it. Thread contract: the controller's loop.

#include <vector>

#include "CChildSupervisor.h"
#include "IProcessMonitor.h"

class CKeepAliveMonitor : public IProcessMonitor {
public:
    void Add(CChildSupervisor& supervisor) { m_supervisors.push_back(&supervisor); }

    bool KeepAlive(int pid, unsigned int seconds, const std::string& name) override {
        for (CChildSupervisor* supervisor : m_supervisors) {
            if (supervisor->Watch(pid, seconds, name)) {
                return true;
            }
        }
        return false;
    }

private:
    std::vector<CChildSupervisor*> m_supervisors;
};
