#pragma once
// CSimLaserModule: a simulated laser bank module: a TCP server that speaks the light-source
// link as a module does (answers in version-1 frames with CRC, object ID 44, the request's
// command code and key) and behaves plausibly:
//
//   28 id            "LBM-SIM-0001" (text)
//   40 power state   set 0 off, 1 standby or 3 on: switching on passes through 2 (starting)
//                    for kStartMs, switching off or to standby through 10 (cooling) for
//                    kCoolMs; other values are refused with error code 8
//   43 alarm state   1 (warning) while the laser is above 50 degrees, else 0
//   65-67, 70        actual red, green, blue and gain: 0..10000, others refused (error 8)
//   75, 76           laser and heat-sink temperature in hundredths of a degree: they move
//                    towards 45 / 35 degrees while on and 25 degrees otherwise
//   77               operating hours: a simulated hour passes every second the laser is on
// Requests with a bad CRC, another object ID or an unknown key get no answer.
//
// Misbehaviour, switchable at any time: drop every reply; answer late (a delay); answer
// every request with error code 8; after every reply send a stale one (the same key with a
// wrong value) that a careful client must discard; send garbage before every frame.
//
// Time comes from the clock given (transitions, temperatures, late replies). The owner
// drives the module with RunOnce. Thread contract: one thread; the misbehaviour setters
// and Get* may be called from another thread (atomics), so a test can flip them while
// the module runs on a thread of its own.

#include <atomic>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "CCepMessage.h"
#include "CCepParser.h"
#include "time/IMonotonicClock.h"

class CSimLaserModule {
public:
    static constexpr unsigned int kStartMs = 2000;
    static constexpr unsigned int kCoolMs = 2000;
    static constexpr uint32_t kMaxLevel = 10000;

    // Listens on 127.0.0.1 (or any address when `anyAddress`) at port (0: any free port).
    // Throws CException when it cannot listen.
    CSimLaserModule(unsigned short port, const IMonotonicClock& clock, bool anyAddress = false);
    ~CSimLaserModule();
    CSimLaserModule(const CSimLaserModule&) = delete;
    CSimLaserModule& operator=(const CSimLaserModule&) = delete;

    unsigned short GetPort() const { return m_port; }
    // Waits at most timeoutMs for connections and requests and serves them.
    void RunOnce(int timeoutMs);

    void SetDropReplies(bool on) { m_drop = on; }
    void SetReplyDelayMs(unsigned int ms) { m_delayMs = ms; }
    void SetRefuseAll(bool on) { m_refuseAll = on; }
    void SetStaleReplies(bool on) { m_stale = on; }
    void SetGarbage(bool on) { m_garbage = on; }
    // Makes the module report a power state of its own (one no client may set); -1 ends it.
    void ForcePowerState(int state) { m_forcedPower = state; }
    unsigned int GetRequestsReceived() const { return m_requests; }
    uint8_t GetPowerState() const { return m_power; }

private:
    struct SClient {
        int fd;
        std::unique_ptr<LibFusion::CCepParser> parser;
    };
    struct SPending {
        int fd;
        uint32_t dueMs;
        std::vector<uint8_t> bytes;
    };

    uint32_t NowMs() const;
    void Advance();
    void Handle(SClient& client, const LibFusion::CCepMessage& request);
    // Applies a set; false when the value is refused.
    bool Apply(uint32_t key, uint64_t value);
    void AddValue(LibFusion::CCepMessage& reply, uint32_t key, bool stale) const;
    void Queue(int fd, LibFusion::CCepMessage& reply);
    void Flush();

    const IMonotonicClock& m_clock;
    int m_listen = -1;
    unsigned short m_port = 0;
    std::list<SClient> m_clients;
    std::deque<SPending> m_pending;
    uint32_t m_startCount;
    uint64_t m_elapsedCounts = 0;
    uint32_t m_lastCount;
    uint32_t m_lastAdvanceMs = 0;

    std::atomic<bool> m_drop{false};
    std::atomic<unsigned int> m_delayMs{0};
    std::atomic<bool> m_refuseAll{false};
    std::atomic<bool> m_stale{false};
    std::atomic<bool> m_garbage{false};
    std::atomic<unsigned int> m_requests{0};
    std::atomic<uint8_t> m_power{1};
    std::atomic<int> m_forcedPower{-1};

    uint8_t m_target = 1;
    uint32_t m_transitionEndMs = 0;
    uint32_t m_levels[4] = {kMaxLevel, kMaxLevel, kMaxLevel, kMaxLevel};  // red, green, blue, gain
    double m_laserTemperature = 2500;
    double m_heatsinkTemperature = 2500;
    double m_hours = 0;
};
