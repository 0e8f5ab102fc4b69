#pragma once
// CLampPlant: the virtual projector's lamps and their power: one simulated NFC tag per
// lamp position (its EEPROM image in "<root>/var/sim/lamp/<position>.tag", backups of
// unfinished writes in "<root>/var/data/lamp/"), read and written through the real lamp
// memory code, and the power control "POW" (0 off, 1 on) behind them.
//
//   - At start a blank tag gets the NDEF layout and a formatted lamp memory, and a tag
//     without a lamp record gets one for the configured lamp type (serial
//     "SIM-<position>-0001", installed now). A tag that cannot be read is logged and its
//     lamp left out; the others go on.
//   - Power on counts a strike on every lamp; refused while the lamps cool down. The
//     lamps then warm up for the configured seconds before they are on.
//   - While on, on-time accumulates; it is written to the tags every minute of use and
//     when the power goes off or the projector stops (the care-taker writes only the
//     pages that changed, each write backed up). History answers include the minute in
//     progress.
//   - Power off starts the cool-down (configured seconds); its remaining whole seconds
//     go to the cool-down callback whenever they change.
//   - Read-only controls tell every front-end what the plant knows (PublishControls):
//     "PWS" the power state (0 standby, 1 on, 2 cooling, 3 warming up), "LHR+LP<position>"
//     each lamp's hours on its current record (rounded to the nearest hour, as the system
//     API rounds) and "LTY+LP<position>" its lamp type ("LHR+LPA1": subcodes have four
//     characters). Update keeps them current.
//   - SetLampUsage and ReplaceLamp (the "sim" module) write a lamp's on-time or a new
//     lamp record through the same code.
//
// Lifetime: clock, wall time and log outlive it. Thread contract: the controller's loop
// (Update is its periodic task; the JSON-RPC server runs on the same thread).

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CLmmNdefTagAdapter.h"
#include "CSimLampTag.h"
#include "ILampData.h"
#include "control/CProjCon.h"
#include "control/IControlProxy.h"
#include "dispatch/CEventDispatcher.h"
#include "log/ILog.h"
#include "time/ILocalTime.h"
#include "time/IMonotonicClock.h"

class CLampPlant : public IControlProxy, public IPeriodicTask, public ILampData, public ILampListener {
public:
    static constexpr const char* kPowerCode = "POW";
    static constexpr const char* kImageDirectory = "/var/sim/lamp/";
    static constexpr unsigned int kUsageWriteS = 60;

    struct SLampConfig {
        std::string position;
        std::string type;
    };
    static constexpr const char* kPowerStateCode = "PWS";
    static constexpr const char* kLampHoursCode = "LHR";
    static constexpr const char* kLampTypeCode = "LTY";
    static constexpr const char* kLampSubcodePrefix = "LP";
    // Text ids of the three controls' names.
    static constexpr int kPowerStateName = 1088;
    static constexpr int kLampHoursName = 1089;
    static constexpr int kLampTypeName = 1090;
    enum EPowerState { POWER_STANDBY = 0, POWER_ON = 1, POWER_COOLING = 2, POWER_WARMING = 3 };

    CLampPlant(const std::vector<SLampConfig>& lamps, unsigned int cooldownS, unsigned int warmupS,
               const IMonotonicClock& clock, const ILocalTime& wallTime, ILog& log);
    ~CLampPlant() override;

    void SetCooldownCallback(std::function<void(unsigned int)> callback) { m_onCooldown = std::move(callback); }
    // Writes the on-time not yet on the tags.
    void Flush();
    // Adds the read-only state controls to the dispatcher; the plant owns them, so it must
    // be destroyed before the dispatcher. Throws CException when a code is taken.
    void PublishControls(CEventDispatcher& dispatcher);

    bool ApplyControlValue(const std::string& code, int value) override;
    bool ApplyControlText(const std::string&, const std::string&) override { return false; }
    void Update() override;

    bool GetLampHistory(std::vector<SLampHistoryEntry>& history) const override;
    unsigned int GetCooldownTimeS() const override;
    bool IsAcPowerLimited() const override { return false; }
    EPowerState GetPowerState() const;

    // False, with the reason, for an unknown position or a tag that refuses the write.
    bool SetLampUsage(const std::string& position, uint32_t onTimeS, std::string& error);
    bool ReplaceLamp(const std::string& position, const std::string& type, std::string& error);

private:
    struct SLamp {
        std::string position;
        std::unique_ptr<CSimLampTag> tag;
        std::unique_ptr<CLmmNdefTagAdapter> adapter;
        std::unique_ptr<CLampMemoryDevice> device;
        std::unique_ptr<CProjCon> hours;
        std::unique_ptr<CProjCon> type;
    };
    void Open(SLamp& lamp, const std::string& type);
    SLamp* Find(const std::string& position, std::string& error);
    // Adds `seconds` of on-time (and `strikes`) to every lamp's current record.
    void AddUsage(uint32_t seconds, uint32_t strikes);
    uint64_t CountsPerSecond() const { return m_clock.GetFrequency(); }
    // Sets the published controls to what stands now.
    void PublishState();

    const IMonotonicClock& m_clock;
    const ILocalTime& m_wallTime;
    ILog& m_log;
    std::vector<SLamp> m_lamps;
    uint64_t m_cooldownTotalCounts;
    uint64_t m_warmupTotalCounts;
    bool m_on = false;
    uint32_t m_lastCount;
    uint64_t m_pendingCounts = 0;   // on-time not yet written
    uint64_t m_cooldownCounts = 0;  // cool-down left
    uint64_t m_warmupCounts = 0;    // warm-up left
    std::unique_ptr<CProjCon> m_powerState;
    unsigned int m_reportedCooldownS = 0;
    std::function<void(unsigned int)> m_onCooldown;
};
