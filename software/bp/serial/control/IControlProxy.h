#pragma once
// IControlProxy: the application's side of its controls. A control hands every accepted
// change to the proxy before it announces it; a false return refuses the change and the
// control restores the value that stood.
//
// Called on the controller's event thread only. The proxy must outlive its controls.
// An exception thrown here counts as a refusal: the control logs it and restores the
// value that stood, exactly as for a false return.

#include <string>

class IControlProxy {
public:
    virtual ~IControlProxy() = default;
    virtual bool ApplyControlValue(const std::string& code, int value) = 0;
    virtual bool ApplyControlText(const std::string& code, const std::string& text) = 0;
};
