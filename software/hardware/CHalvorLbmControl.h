#pragma once
// CHalvorLbmControl: a laser bank module over TCP with light-source link messages: every
// operation gets or sets one numbered parameter as a request (version-1 frame with CRC,
// object ID 44, command 2 get or 1 set, one property keyed by the parameter; a get's
// value is an 8-bit 0) and its matching reply.
//
// The exchange: replies already waiting are taken and discarded (stale answers to an
// earlier request); the request is sent; then up to kPolls polls, each waiting 8 ms
// (sleeping 10 ms at a time) and taking the next message: error code 8 fails the
// operation (last error 2); a reply with object ID 44, the key and the request's command
// code succeeds; anything else is discarded. With no reply at the 26th poll the request
// is sent once more. Failures throw CException: "CEP retry count exceeded: GET command
// failed" for a get, "CEP retry count exceeded: SET command failed" for a set.
//
// Last error (GetLastError): 1 before any operation, 0 from the start of each, 2 when the
// module answered error 8, or the TCP layer's errno when sending failed (the exchange
// then goes on polling, and the connection can be re-established with
// ResetCommunication).
//
// `sourceId` is this controller's node number, sent as the requests' source ID.
// Time: the 8 ms waits are measured on the clock given; the pauses go through sleepMs
// (real sleeping by default). Frames from the module that can never decode are skipped
// and logged to log (when given).
//
// Lifetime: the clock and the log outlive the control. Thread contract: one thread drives an
// instance; the parser's own lock is the only lock.

#include <functional>
#include <memory>

#include "CCepMessage.h"
#include "CCepParser.h"
#include "CTcpConnection.h"
#include "IHalvorLbmControl.h"
#include "time/IMonotonicClock.h"

class CHalvorLbmControl : public IHalvorLbmControl {
public:
    static constexpr uint16_t kObjectId = 44;
    static constexpr uint16_t kRefusedError = 8;
    static constexpr int kPolls = 50;
    static constexpr int kResendPoll = 26;
    static constexpr unsigned int kPollMs = 8;
    static constexpr unsigned int kSleepMs = 10;
    static constexpr uint32_t kParserBytes = 100000;
    enum EParameter : uint32_t {
        PARAM_ID = 28,
        PARAM_POWER = 40,
        PARAM_ALARM = 43,
        PARAM_RED = 65,
        PARAM_GREEN = 66,
        PARAM_BLUE = 67,
        PARAM_GAIN = 70,
        PARAM_LASER_TEMPERATURE = 75,
        PARAM_HEATSINK_TEMPERATURE = 76,
        PARAM_HOURS = 77,
    };

    // Connects at once (a failure is kept as the last error; ResetCommunication retries).
    CHalvorLbmControl(const std::string& host, unsigned short port, const IMonotonicClock& clock,
                      unsigned int sourceId, std::function<void(unsigned int)> sleepMs = nullptr, ILog* log = nullptr);

    void GetId(SId& id) override;
    EHalvorLbmPowerStates GetPowerState() override;
    void SetPowerState(EHalvorLbmPowerStates state) override;
    EHalvorLbmStates GetAlarmState() override;
    void SetActualRed(uint32_t value) override { SetUint32(PARAM_RED, value); }
    void SetActualGreen(uint32_t value) override { SetUint32(PARAM_GREEN, value); }
    void SetActualBlue(uint32_t value) override { SetUint32(PARAM_BLUE, value); }
    void SetActualGain(uint32_t value) override { SetUint32(PARAM_GAIN, value); }
    void GetFullOperatingCondition(SStatus& status) override;
    void ResetCommunication() override;
    void CloseCommunication() override;
    bool IsConnected() const override { return m_connection.IsConnected(); }
    int GetLastError() const override { return m_lastError; }

    uint8_t GetUint8(uint32_t key);
    uint32_t GetUint32(uint32_t key);
    std::string GetString(uint32_t key);
    void SetUint8(uint32_t key, uint8_t value);
    void SetUint32(uint32_t key, uint32_t value);
    // Requests sent since construction (resends included), for tests and diagnostics.
    unsigned int GetRequestsSent() const { return m_sent; }

private:
    // The matching reply, or null when the operation failed.
    std::unique_ptr<LibFusion::CCepMessage> Exchange(LibFusion::CCepMessage& request, uint32_t key);
    std::unique_ptr<LibFusion::CCepMessage> GetResponse();
    void Send(LibFusion::CCepMessage& request);
    LibFusion::CCepMessage Request(uint8_t command) const;
    void Get(uint32_t key, uint32_t bytes, uint64_t& value);

    std::string m_host;
    unsigned short m_port;
    const IMonotonicClock& m_clock;
    unsigned int m_sourceId;
    std::function<void(unsigned int)> m_sleepMs;
    CTcpConnection m_connection;
    LibFusion::CCepParser m_parser;
    int m_lastError = 1;
    unsigned int m_sent = 0;
};
