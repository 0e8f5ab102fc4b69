#pragma once
// ThrownMessage: runs an action and returns the message of the CException it throws, or
// "(no exception)", so a test can compare an error text in one expectation.

#include <functional>
#include <string>

#include "CException.h"

inline std::string ThrownMessage(const std::function<void()>& action) {
    try {
        action();
    } catch (const CException& e) {
        return e.GetMessage();
    }
    return "(no exception)";
}
