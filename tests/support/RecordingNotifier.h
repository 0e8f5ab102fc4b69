#pragma once
// CRecordingNotifier: a front-end for tests that records each change notification the
// dispatcher hands it (control code, notification type, and the value or text then
// standing), for the listeners registered as "JSON_TCP.<n>".

#include <list>
#include <string>
#include <vector>

#include "control/CProjCon.h"
#include "dispatch/IControlNotifier.h"

class CRecordingNotifier : public IControlNotifier {
public:
    struct SNotice {
        std::string code;
        int type;
        int value;
        std::string text;
    };

    void MakeNotification(const CProjCon& control, ENotifyType type, const std::list<std::string>&) override {
        notices.push_back(SNotice{control.GetCode(), type, control.GetValue(), control.GetText()});
    }

    std::vector<SNotice> notices;
};
