#include "CHalvorLbmControl.h"

#include <chrono>
#include <cstring>
#include <thread>

#include "CException.h"
#include "time/CTimer.h"

using LibFusion::CCepMessage;

namespace {

IHalvorLbmControl::EHalvorLbmPowerStates PowerState(uint64_t value) {
    switch (value) {
    case 0:
    case 1:
    case 2:
    case 3:
    case 10:
    case 11:
        return static_cast<IHalvorLbmControl::EHalvorLbmPowerStates>(value);
    default:
        return IHalvorLbmControl::POWER_UNKNOWN;
    }
}

IHalvorLbmControl::EHalvorLbmStates AlarmState(uint64_t value) {
    return value <= 2 ? static_cast<IHalvorLbmControl::EHalvorLbmStates>(value) : IHalvorLbmControl::STATE_UNKNOWN;
}

}  // namespace

CHalvorLbmControl::CHalvorLbmControl(const std::string& host, unsigned short port, const IMonotonicClock& clock,
                                     unsigned int sourceId, std::function<void(unsigned int)> sleepMs, ILog* log)
    : m_host(host),
      m_port(port),
      m_clock(clock),
      m_sourceId(sourceId),
      m_sleepMs(std::move(sleepMs)),
      m_parser(kParserBytes, log) {
    if (!m_sleepMs) {
        m_sleepMs = [](unsigned int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); };
    }
    m_connection.Connect(m_host, m_port);
}

CCepMessage CHalvorLbmControl::Request(uint8_t command) const {
    CCepMessage request;
    request.setObjectID(kObjectId);
    request.setCommandCode(command);
    request.setSourceID(static_cast<uint8_t>(m_sourceId));
    return request;
}

void CHalvorLbmControl::Send(CCepMessage& request) {
    const std::vector<uint8_t> frame = request.toBytes(LibFusion::VERSION_1, true);
    ++m_sent;
    const int error = m_connection.Send(frame.data(), frame.size());
    if (error != 0) {
        m_lastError = error;
    }
}

std::unique_ptr<CCepMessage> CHalvorLbmControl::GetResponse() {
    uint8_t buffer[2048];
    memset(buffer, 0, sizeof buffer);
    const int received = m_connection.Receive(buffer, sizeof buffer);
    if (received > 0) {
        m_parser.addData(buffer, static_cast<uint32_t>(received));
    }
    return m_parser.getCepMsg();
}

std::unique_ptr<CCepMessage> CHalvorLbmControl::Exchange(CCepMessage& request, uint32_t key) {
    m_lastError = 0;
    while (GetResponse()) {
        // an answer to an earlier request: not this one's
    }
    Send(request);
    for (int poll = 1; poll <= kPolls; ++poll) {
        CTimer timer(m_clock, kPollMs);
        while (!timer.IsExpired()) {
            m_sleepMs(kSleepMs);
        }
        std::unique_ptr<CCepMessage> reply = GetResponse();
        if (!reply) {
            if (poll == kResendPoll) {
                Send(request);
            }
            continue;
        }
        if (reply->getErrorCode() == kRefusedError) {
            m_lastError = 2;
            return nullptr;
        }
        if (reply->getObjectID() == kObjectId && reply->hasProperty(key) &&
            reply->getCommandCode() == request.getCommandCode()) {
            return reply;
        }
    }
    return nullptr;
}

void CHalvorLbmControl::Get(uint32_t key, uint32_t bytes, uint64_t& value) {
    CCepMessage request = Request(LibFusion::COMMAND_GET);
    request.setUInt8(key, 0);
    const std::unique_ptr<CCepMessage> reply = Exchange(request, key);
    if (!reply || !reply->getUnsigned(key, bytes, value)) {
        THROW_EXCEPTION("CEP retry count exceeded: GET command failed");
    }
}

uint8_t CHalvorLbmControl::GetUint8(uint32_t key) {
    uint64_t value = 0;
    Get(key, 1, value);
    return static_cast<uint8_t>(value);
}

uint32_t CHalvorLbmControl::GetUint32(uint32_t key) {
    uint64_t value = 0;
    Get(key, 4, value);
    return static_cast<uint32_t>(value);
}

std::string CHalvorLbmControl::GetString(uint32_t key) {
    CCepMessage request = Request(LibFusion::COMMAND_GET);
    request.setUInt8(key, 0);
    const std::unique_ptr<CCepMessage> reply = Exchange(request, key);
    std::string text;
    if (!reply || !reply->getString(key, text)) {
        THROW_EXCEPTION("CEP retry count exceeded: GET command failed");
    }
    return text.substr(0, text.find('\0'));
}

void CHalvorLbmControl::SetUint8(uint32_t key, uint8_t value) {
    CCepMessage request = Request(LibFusion::COMMAND_SET);
    request.setUInt8(key, value);
    if (!Exchange(request, key)) {
        THROW_EXCEPTION("CEP retry count exceeded: SET command failed");
    }
}

void CHalvorLbmControl::SetUint32(uint32_t key, uint32_t value) {
    CCepMessage request = Request(LibFusion::COMMAND_SET);
    request.setUInt32(key, value);
    if (!Exchange(request, key)) {
        THROW_EXCEPTION("CEP retry count exceeded: SET command failed");
    }
}

void CHalvorLbmControl::GetId(SId& id) { id.id = GetString(PARAM_ID); }

IHalvorLbmControl::EHalvorLbmPowerStates CHalvorLbmControl::GetPowerState() {
    return PowerState(GetUint8(PARAM_POWER));
}

void CHalvorLbmControl::SetPowerState(EHalvorLbmPowerStates state) { SetUint8(PARAM_POWER, state); }

IHalvorLbmControl::EHalvorLbmStates CHalvorLbmControl::GetAlarmState() { return AlarmState(GetUint8(PARAM_ALARM)); }

void CHalvorLbmControl::GetFullOperatingCondition(SStatus& status) {
    status.powerState = GetPowerState();
    status.alarmState = GetAlarmState();
    status.laserTemperature = GetUint32(PARAM_LASER_TEMPERATURE);
    status.heatsinkTemperature = GetUint32(PARAM_HEATSINK_TEMPERATURE);
    status.operatingHours = GetUint32(PARAM_HOURS);
}

void CHalvorLbmControl::ResetCommunication() {
    m_connection.Disconnect();
    m_parser.Clear();
    const int error = m_connection.Connect(m_host, m_port);
    if (error != 0) {
        m_lastError = error;
    }
}

void CHalvorLbmControl::CloseCommunication() {
    m_connection.Disconnect();
    m_parser.Clear();
}
