#pragma once
// IHalvorLbmControl: what the projector asks of a laser bank module: its identity, its
// power and alarm state, the actual red, green, blue and gain it drives, and its
// operating condition.
//
// Power states (parameter 40): 0 off, 1 standby, 2 starting, 3 on, 10 cooling down,
// 11 service; alarm states (parameter 43): 0 none, 1 warning, 2 alarm. Any other value a
// module reports reads as 255 (unknown). Operating condition: parameters 75 (laser
// temperature), 76 (heat-sink temperature), both in hundredths of a degree Celsius, and 77
// (operating hours).
//
// Errors: gets and sets that fail throw CException; GetLastError() tells why (see
// CHalvorLbmControl).

#include <cstdint>
#include <string>

class IHalvorLbmControl {
public:
    enum EHalvorLbmPowerStates : uint8_t {
        POWER_OFF = 0,
        POWER_STANDBY = 1,
        POWER_STARTING = 2,
        POWER_ON = 3,
        POWER_COOLING = 10,
        POWER_SERVICE = 11,
        POWER_UNKNOWN = 255,
    };
    enum EHalvorLbmStates : uint8_t {
        STATE_NONE = 0,
        STATE_WARNING = 1,
        STATE_ALARM = 2,
        STATE_UNKNOWN = 255,
    };
    struct SId {
        std::string id;
    };
    struct SStatus {
        EHalvorLbmPowerStates powerState = POWER_UNKNOWN;
        EHalvorLbmStates alarmState = STATE_UNKNOWN;
        uint32_t laserTemperature = 0;     // parameter 75
        uint32_t heatsinkTemperature = 0;  // parameter 76
        uint32_t operatingHours = 0;       // parameter 77
    };

    virtual ~IHalvorLbmControl() = default;
    virtual void GetId(SId& id) = 0;
    virtual EHalvorLbmPowerStates GetPowerState() = 0;
    virtual void SetPowerState(EHalvorLbmPowerStates state) = 0;
    virtual EHalvorLbmStates GetAlarmState() = 0;
    virtual void SetActualRed(uint32_t value) = 0;
    virtual void SetActualGreen(uint32_t value) = 0;
    virtual void SetActualBlue(uint32_t value) = 0;
    virtual void SetActualGain(uint32_t value) = 0;
    virtual void GetFullOperatingCondition(SStatus& status) = 0;
    virtual void ResetCommunication() = 0;
    virtual void CloseCommunication() = 0;
    virtual bool IsConnected() const = 0;
    virtual int GetLastError() const = 0;
};
