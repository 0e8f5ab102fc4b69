#include "CLampPlant.h"

#include <filesystem>

#include "CC4jSystem.h"
#include "CException.h"
#include "RuntimeRoot.h"

namespace {

// The position's index among "A1".."B3"; kPositions when unknown.
unsigned int PositionIndex(const std::string& position) {
    for (unsigned int i = 0; i < CLmmNdefTagAdapter::kPositions; ++i) {
        if (position == CLmmNdefTagAdapter::PositionName(i)) {
            return i;
        }
    }
    return CLmmNdefTagAdapter::kPositions;
}

std::string Serial(const std::string& position, uint32_t number) {
    char serial[24];
    snprintf(serial, sizeof serial, "SIM-%s-%04u", position.c_str(), number % 10000);
    return serial;
}

}  // namespace

CLampPlant::CLampPlant(const std::vector<SLampConfig>& lamps, unsigned int cooldownS, unsigned int warmupS,
                       const IMonotonicClock& clock, const ILocalTime& wallTime, ILog& log)
    : m_clock(clock), m_wallTime(wallTime), m_log(log),
      m_cooldownTotalCounts(uint64_t{cooldownS} * clock.GetFrequency()),
      m_warmupTotalCounts(uint64_t{warmupS} * clock.GetFrequency()), m_lastCount(clock.GetCount()) {
    std::error_code ignored;
    std::filesystem::create_directories(NRuntimeRoot::Path(kImageDirectory), ignored);
    for (const SLampConfig& config : lamps) {
        SLamp lamp;
        lamp.position = config.position;
        try {
            Open(lamp, config.type);
            m_lamps.push_back(std::move(lamp));
        } catch (const CException& e) {
            m_log.LogError("Lamp %s left out: %s", config.position.c_str(), e.GetMessage().c_str());
        }
    }
}

CLampPlant::~CLampPlant() { Flush(); }

void CLampPlant::PublishControls(CEventDispatcher& dispatcher) {
    m_powerState = std::make_unique<CProjCon>(DT_LIST, dispatcher, *this, kPowerStateCode, false, POWER_STANDBY,
                                              ACCESS_USER, kPowerStateName, 0, true);
    std::vector<SListEntry> states(4);
    const char* names[] = {"Standby", "On", "Cooling", "Warming up"};
    for (int i = 0; i < 4; ++i) {
        states[static_cast<size_t>(i)].value = i;
        states[static_cast<size_t>(i)].text = names[i];
    }
    m_powerState->AddList(states);
    for (SLamp& lamp : m_lamps) {
        const std::string suffix = std::string("+") + kLampSubcodePrefix + lamp.position;
        lamp.hours = std::make_unique<CProjCon>(DT_INTEGER, dispatcher, *this, kLampHoursCode + suffix, false, 0,
                                                INT32_MAX, 0, ACCESS_USER, kLampHoursName, 0, 0, true);
        lamp.type = std::make_unique<CProjCon>(DT_TEXT_FREE, dispatcher, *this, kLampTypeCode + suffix, false, 0,
                                               static_cast<int>(CLampMemoryDevice::kTypeLength), "", ACCESS_USER,
                                               kLampTypeName, 0, true);
    }
    PublishState();
}

void CLampPlant::PublishState() {
    if (m_powerState && m_powerState->GetValue() != GetPowerState()) {
        m_powerState->SetValue(GetPowerState(), CHANGE_STORE_ONLY);
    }
    const uint32_t pendingS = static_cast<uint32_t>(m_pendingCounts / CountsPerSecond());
    for (SLamp& lamp : m_lamps) {
        if (!lamp.hours || !lamp.device->HasValidLampRecord()) {
            continue;
        }
        const SLmmLampRecord& record = lamp.device->GetHistory().back();
        const int hours = static_cast<int>(CC4jSystem::RoundedHours(uint64_t{record.usage.OnTimeS()} + pendingS));
        if (lamp.hours->GetValue() != hours) {
            lamp.hours->SetValue(hours, CHANGE_STORE_ONLY);
        }
        if (lamp.type->GetText() != record.type) {
            lamp.type->SetText(record.type, CHANGE_STORE_ONLY);
        }
    }
}

void CLampPlant::Open(SLamp& lamp, const std::string& type) {
    const unsigned int index = PositionIndex(lamp.position);
    const std::string image = NRuntimeRoot::Path(kImageDirectory + lamp.position + ".tag");
    // A fixed UID per position: a backup is only ever put back onto the tag it came from.
    lamp.tag = std::make_unique<CSimLampTag>(image, 0xE002000000000000ull | (uint64_t{index} + 1));
    lamp.adapter = std::make_unique<CLmmNdefTagAdapter>(*lamp.tag, index, m_log);
    lamp.device = std::make_unique<CLampMemoryDevice>(lamp.adapter->GetPayloadArea(), lamp.adapter->GetBackupHandler(),
                                                      m_log);
    if (lamp.adapter->ParseTag()) {
        lamp.adapter->InitializeLmm(*lamp.device);
    } else {
        m_log.Log("Lamp %s: blank tag, writing the NDEF layout", lamp.position.c_str());
        lamp.adapter->FormatTag("Lamp " + lamp.position);
        if (!lamp.adapter->ParseTag() || lamp.device->Initialize() == CLampMemoryDevice::STATE_NO_DEVICE) {
            THROW_EXCEPTION("tag holds no lamp memory after formatting");
        }
    }
    if (lamp.device->GetState() != CLampMemoryDevice::STATE_VALID) {
        lamp.device->Format(1, "virtual projector");
    }
    if (!lamp.device->HasValidLampRecord()) {
        SLmmLampRecord record;
        record.type = type;
        record.serial = Serial(lamp.position, 1);
        record.installDate = static_cast<uint32_t>(m_wallTime.Now());
        lamp.device->CreateNewRecord(record);
        m_log.Log("Lamp %s: new lamp %s (%s)", lamp.position.c_str(), record.serial.c_str(), type.c_str());
    }
}

CLampPlant::SLamp* CLampPlant::Find(const std::string& position, std::string& error) {
    for (SLamp& lamp : m_lamps) {
        if (lamp.position == position) {
            return &lamp;
        }
    }
    error = "No lamp at position \"" + position + "\"";
    return nullptr;
}

void CLampPlant::AddUsage(uint32_t seconds, uint32_t strikes) {
    for (SLamp& lamp : m_lamps) {
        try {
            SLmmLampUsage usage = lamp.device->GetMasterLampUsage();
            usage.OnTimeS() += seconds;
            usage.Strikes() += strikes;
            lamp.device->UpdateLampUsage(usage);
        } catch (const CException& e) {
            m_log.LogError("Lamp %s: usage not written: %s", lamp.position.c_str(), e.GetMessage().c_str());
        }
    }
}

void CLampPlant::Flush() {
    const uint64_t seconds = m_pendingCounts / CountsPerSecond();
    if (seconds > 0) {
        m_pendingCounts -= seconds * CountsPerSecond();
        AddUsage(static_cast<uint32_t>(seconds), 0);
    }
}

bool CLampPlant::ApplyControlValue(const std::string& code, int value) {
    if (code != kPowerCode || (value != 0 && value != 1)) {
        return false;
    }
    Update();
    const bool on = value == 1;
    if (on == m_on) {
        return true;
    }
    if (on) {
        if (m_cooldownCounts > 0) {
            m_log.Log("Power on refused: the lamps cool down for %u s more", GetCooldownTimeS());
            return false;
        }
        m_on = true;
        m_warmupCounts = m_warmupTotalCounts;
        AddUsage(0, 1);
        PublishState();  // a reader that asks right after the answer sees the new state
        return true;
    }
    m_on = false;
    m_warmupCounts = 0;
    Flush();
    m_cooldownCounts = m_cooldownTotalCounts;  // reported by the next Update, after the answer
    PublishState();
    return true;
}

void CLampPlant::Update() {
    const uint32_t now = m_clock.GetCount();
    const uint32_t elapsed = now - m_lastCount;
    m_lastCount = now;
    if (m_on) {
        m_pendingCounts += elapsed;
        if (m_pendingCounts >= kUsageWriteS * CountsPerSecond()) {
            Flush();
        }
    }
    m_cooldownCounts -= std::min<uint64_t>(m_cooldownCounts, elapsed);
    m_warmupCounts -= std::min<uint64_t>(m_warmupCounts, elapsed);
    PublishState();
    const unsigned int cooldownS = GetCooldownTimeS();
    if (cooldownS != m_reportedCooldownS) {
        m_reportedCooldownS = cooldownS;
        if (m_onCooldown) {
            m_onCooldown(cooldownS);
        }
    }
}

unsigned int CLampPlant::GetCooldownTimeS() const {
    return static_cast<unsigned int>((m_cooldownCounts + CountsPerSecond() - 1) / CountsPerSecond());
}

CLampPlant::EPowerState CLampPlant::GetPowerState() const {
    if (m_on) {
        return m_warmupCounts > 0 ? POWER_WARMING : POWER_ON;
    }
    return m_cooldownCounts > 0 ? POWER_COOLING : POWER_STANDBY;
}

bool CLampPlant::GetLampHistory(std::vector<SLampHistoryEntry>& history) const {
    history.clear();
    const uint32_t pendingS = static_cast<uint32_t>(m_pendingCounts / CountsPerSecond());
    for (const SLamp& lamp : m_lamps) {
        const std::vector<SLmmLampRecord>& records = lamp.device->GetHistory();
        for (size_t i = 0; i < records.size(); ++i) {
            const SLmmLampRecord& record = records[i];
            const bool current = i + 1 == records.size();
            history.push_back({record.type, record.installDate, record.usage.counters[1], record.usage.counters[2],
                               record.usage.counters[3], record.preInstalledS,
                               record.usage.OnTimeS() + (current ? pendingS : 0)});
        }
    }
    return !m_lamps.empty();
}

bool CLampPlant::SetLampUsage(const std::string& position, uint32_t onTimeS, std::string& error) {
    SLamp* lamp = Find(position, error);
    if (!lamp) {
        return false;
    }
    try {
        SLmmLampUsage usage = lamp->device->GetMasterLampUsage();
        usage.OnTimeS() = onTimeS;
        lamp->device->UpdateLampUsage(usage);
    } catch (const CException& e) {
        error = e.GetMessage();
        return false;
    }
    return true;
}

bool CLampPlant::ReplaceLamp(const std::string& position, const std::string& type, std::string& error) {
    SLamp* lamp = Find(position, error);
    if (!lamp) {
        return false;
    }
    Flush();  // the old lamp keeps the hours it ran
    try {
        SLmmLampRecord record;
        record.type = type;
        record.serial = Serial(position, lamp->device->GetTotalLampRecordCount() + 1);
        record.installDate = static_cast<uint32_t>(m_wallTime.Now());
        lamp->device->CreateNewRecord(record);
        m_log.Log("Lamp %s: replaced by %s (%s)", position.c_str(), record.serial.c_str(), type.c_str());
    } catch (const CException& e) {
        error = e.GetMessage();
        return false;
    }
    return true;
}
