#pragma once
// CRecordingProxy: an application proxy for tests. It records every change the controls
// hand it, and refuses (or throws for) the values and texts a test names, the way real
// hardware refuses a setting it cannot take. Not locked: it belongs to the thread that runs
// the controls; a test whose controller runs on a thread of its own reads and changes it
// there (CControllerThread::RunOnController).

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "control/IControlProxy.h"

class CRecordingProxy : public IControlProxy {
public:
    struct SCall {
        std::string code;
        int value;
        std::string text;
        bool isText;
    };

    bool ApplyControlValue(const std::string& code, int value) override {
        calls.push_back(SCall{code, value, "", false});
        if (throwValues.count(value)) {
            throw std::runtime_error("hardware fault");
        }
        return refusedValues.count(value) == 0;
    }

    bool ApplyControlText(const std::string& code, const std::string& text) override {
        calls.push_back(SCall{code, 0, text, true});
        return refusedTexts.count(text) == 0;
    }

    std::vector<SCall> calls;
    std::set<int> refusedValues;
    std::set<int> throwValues;
    std::set<std::string> refusedTexts;
};
