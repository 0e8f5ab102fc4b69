#include "CLaserPlant.h"

#include <chrono>

#include "CException.h"
#include "control/CProjCon.h"

namespace {

const char* PowerText(int state) {
    switch (state) {
    case 0:
        return "Off";
    case 1:
        return "Standby";
    case 2:
        return "Starting";
    case 3:
        return "On";
    case 10:
        return "Cooling";
    case 11:
        return "Service";
    default:
        return "Unknown";
    }
}

const char* AlarmText(int state) { return state == 0 ? "None" : state == 1 ? "Warning" : state == 2 ? "Alarm" : "Unknown"; }

std::string Degrees(uint32_t hundredths) {
    char text[16];
    snprintf(text, sizeof text, "%.1f", hundredths / 100.0);
    return text;
}

}  // namespace

CLaserPlant::CLaserPlant(const std::string& host, unsigned short port, CEventDispatcher& dispatcher, CStatusDb& status,
                         const IMonotonicClock& clock, ILog& log)
    : m_dispatcher(dispatcher), m_status(status), m_log(log), m_module(host, port, clock, 1, nullptr, &log) {}

CLaserPlant::~CLaserPlant() {
    {
        std::lock_guard<std::mutex> lock(m_wakeMutex);
        m_stop = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void CLaserPlant::Start(std::function<bool()> moduleReady) {
    m_thread = std::thread([this, moduleReady] { RefreshLoop(moduleReady); });
}

void CLaserPlant::RefreshLoop(const std::function<bool()>& moduleReady) {
    for (unsigned int waited = 0; moduleReady && waited < kReadyWaitMs && !m_stop && !moduleReady();
         waited += kReadyPollMs) {
        std::unique_lock<std::mutex> lock(m_wakeMutex);
        m_wake.wait_for(lock, std::chrono::milliseconds(kReadyPollMs), [this] { return m_stop.load(); });
    }
    while (!m_stop) {
        Refresh();
        std::unique_lock<std::mutex> lock(m_wakeMutex);
        m_wake.wait_for(lock, std::chrono::milliseconds(kRefreshMs), [this] { return m_stop.load(); });
    }
}

void CLaserPlant::Refresh() {
    SSnapshot reading;
    {
        std::lock_guard<std::mutex> lock(m_moduleMutex);
        try {
            if (!m_module.IsConnected()) {
                m_module.ResetCommunication();
            }
            IHalvorLbmControl::SId id;
            m_module.GetId(id);
            reading.id = id.id;
            m_module.GetFullOperatingCondition(reading.status);
            reading.answered = true;
        } catch (const CException&) {
            reading.answered = false;
        }
    }
    m_answering = reading.answered;
    std::lock_guard<std::mutex> lock(m_snapshotMutex);
    reading.serial = m_snapshot.serial + 1;
    m_snapshot = reading;
}

bool CLaserPlant::ApplyControlValue(const std::string& code, int value) {
    if (!m_answering) {
        m_log.LogWarning("Laser module does not answer: %s %d refused", code.c_str(), value);
        return false;
    }
    std::lock_guard<std::mutex> lock(m_moduleMutex);
    try {
        if (code == "LPW") {
            m_module.SetPowerState(static_cast<IHalvorLbmControl::EHalvorLbmPowerStates>(value));
        } else if (code == "LRD") {
            m_module.SetActualRed(static_cast<uint32_t>(value));
        } else if (code == "LGN") {
            m_module.SetActualGreen(static_cast<uint32_t>(value));
        } else if (code == "LBL") {
            m_module.SetActualBlue(static_cast<uint32_t>(value));
        } else if (code == "LGA") {
            m_module.SetActualGain(static_cast<uint32_t>(value));
        } else {
            return false;
        }
        return true;
    } catch (const CException& e) {
        m_log.LogError("Laser module: %s %d: %s (last error %d)", code.c_str(), value, e.GetMessage().c_str(),
                       m_module.GetLastError());
        return false;
    }
}

bool CLaserPlant::ApplyControlText(const std::string&, const std::string&) { return false; }

void CLaserPlant::Update() {
    SSnapshot reading;
    {
        std::lock_guard<std::mutex> lock(m_snapshotMutex);
        if (m_snapshot.serial == m_applied) {
            return;
        }
        reading = m_snapshot;
        m_applied = reading.serial;
    }
    try {
        Show(reading);
    } catch (const CException& e) {
        m_log.LogError("Laser status: %s", e.GetMessage().c_str());  // a configuration without the items
    }
}

void CLaserPlant::Show(const SSnapshot& reading) {
    if (!m_status.HasGroup(kGroup)) {
        return;
    }
    if (!reading.answered) {
        if (!m_linkReported) {
            m_log.LogError("Laser module does not answer");
        }
        m_linkReported = true;
        m_status.UpdateStatusValue(kGroup, 7, 2, "No answer");
        return;
    }
    if (m_linkReported) {
        m_log.Log("Laser module answers again");
    }
    m_linkReported = false;
    const IHalvorLbmControl::SStatus& status = reading.status;
    m_status.UpdateStatusValue(kGroup, 1, 0, reading.id);
    m_status.UpdateStatusValue(kGroup, 2, 0, PowerText(status.powerState));
    m_status.UpdateStatusValue(kGroup, 3, status.alarmState == 2 ? 2 : status.alarmState == 1 ? 1 : 0,
                               AlarmText(status.alarmState));
    m_status.UpdateStatusValue(kGroup, 4, 0, Degrees(status.laserTemperature));
    m_status.UpdateStatusValue(kGroup, 5, 0, Degrees(status.heatsinkTemperature));
    m_status.UpdateStatusValue(kGroup, 6, 0, static_cast<int>(status.operatingHours));
    m_status.UpdateStatusValue(kGroup, 7, 0, "OK");
    CProjCon* power = m_dispatcher.GetControl("LPW");
    if (power && power->GetValue() != status.powerState) {
        power->SetValue(status.powerState, CHANGE_STORE_ONLY);
    }
}
