#pragma once
// ILampData and ILampListener: what the system module needs from the lamp side. The
// lamp data source gives the lamp history (one entry per lamp record, oldest first, of
// every lamp position); the lamp listener is the object that follows the lamps' power
// state and supply, and answers the remaining cool-down and the AC power mode.
//
// Thread contract: called on the JSON-RPC server's thread; implementations that are fed
// from another thread say how they hand their data over.

#include <cstdint>
#include <string>
#include <vector>

struct SLampHistoryEntry {
    std::string type;
    uint32_t installDate = 0;  // seconds since 1970 UTC
    uint32_t strikes = 0;
    uint32_t failedStrikes = 0;
    uint32_t unexpectedOffs = 0;
    uint32_t preInstalledS = 0;  // hours of use before this projector, in seconds
    uint32_t onTimeS = 0;        // use in this projector
};

class ILampData {
public:
    virtual ~ILampData() = default;
    // False when no lamp data can be read at all.
    virtual bool GetLampHistory(std::vector<SLampHistoryEntry>& history) const = 0;
};

class ILampListener {
public:
    virtual ~ILampListener() = default;
    virtual unsigned int GetCooldownTimeS() const = 0;
    // True when the projector runs on a limited AC supply (lamps held below full power).
    virtual bool IsAcPowerLimited() const = 0;
};
