#pragma once
// CControllerFixture: a complete controller under a private runtime root for end-to-end
// tests: a logger into a ring buffer, the dispatcher with a few controls of every kind,
// a recording application proxy, the controller running on its own thread, and an event
// link to it, as another process would hold one.
//
// Controls (all access group 2 unless said):
//   BRI       integer 0..100, default 50, persistent
//   NET+PORT  integer 1..65535, default 3002
//   LMP       boolean, default off
//   RST       action
//   INP       list with entries 1 "HDMI", 2 "DVI" (not selectable), 3 "SDI" (hidden), default 1
//   NAM       text 300, length 1..16, default "Projector"
//   FAC       integer 0..10, access group 5
//   RDO       integer 0..10, read-only

#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "BufferedLog.h"
#include "ControllerThread.h"
#include "RecordingProxy.h"
#include "TempRoot.h"
#include "control/CProjCon.h"
#include "link/CEventLink.h"

class CControllerFixture : public ::testing::Test {
protected:
    static constexpr const char* kControllerSocket = "/var/run/ui/main_controller.socket";

    CControllerFixture();
    ~CControllerFixture() override;

    // The value text of a reply's argument (empty when absent).
    static std::string Arg(const CIpcMessage& message, unsigned short id);
    static int ErrorOf(const CIpcMessage& message);
    bool Logged(const std::string& text) const { return log.Logged(text); }
    CIpcMessage Message(const std::string& code, const std::string& subcode = "") const;
    // The link's notifications once `count` have arrived (fewer after a second).
    std::list<CIpcMessage> Notes(size_t count);

    CTempRoot root;
    CBufferedLog log;
    CRecordingProxy proxy;
    CEventDispatcher dispatcher{log};
    std::vector<std::unique_ptr<CProjCon>> controls;
    std::unique_ptr<CControllerThread> controller;
    std::unique_ptr<CEventLink> link;
};
