#pragma once
// IPjlinkCommands: the projector as a PJLink session sees it: one command of a class
// ('1' or '2') with its parameter ("?" for a query) in, the response data out: "OK" for a
// set that was done, the value for a query, or an error: "ERR1" undefined command,
// "ERR2" out of parameter, "ERR3" unavailable now, "ERR4" projector failure.
//
// Thread contract: the session's thread.

#include <string>

class IPjlinkCommands {
public:
    virtual ~IPjlinkCommands() = default;
    virtual std::string Execute(char pjlinkClass, const std::string& command, const std::string& parameter) = 0;
};
