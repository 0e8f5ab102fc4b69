#pragma once
// CLaserPlant: the virtual projector's laser light source: a laser bank module (the
// configured one, or an lbmsim the projector runs itself) driven over TCP by
// CHalvorLbmControl, behind these controls and status items:
//
//   LPW               the module's power state (list: 0 off, 1 standby, 2 starting, 3 on,
//                     10 cooling, 11 service, 255 unknown); a new value is set on the module
//   LRD LGN LBL LGA   actual red, green, blue and gain (0..10000), set on the module
//   status LASER      1 id, 2 power state, 3 alarm state, 4 laser and 5 heat-sink
//                     temperature (degrees), 6 operating hours, 7 link: severity 2
//                     "No answer" while the module does not answer, 0 "OK" again after
// A change the module refuses or never acknowledges is refused (112, reverted). While the
// module is known not to answer, a change is refused at once instead of waiting out the
// exchange's half second.
//
// Threads: a worker thread (started by Start, stopped by the destructor) reads the
// module's condition every kRefreshMs and leaves it in a snapshot; the controller thread
// sets values (ApplyControlValue) and, as a periodic task (Update), copies a new snapshot
// into the status database and into LPW (CHANGE_STORE_ONLY). The module control is used
// by one thread at a time under m_moduleMutex; the snapshot is guarded by m_snapshotMutex.
// Controls and the status database are touched by the controller thread only.
//
// Lifetime: dispatcher, status database, clock and log outlive it.

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "CHalvorLbmControl.h"
#include "control/IControlProxy.h"
#include "dispatch/CEventDispatcher.h"
#include "status/CStatusDb.h"

class CLaserPlant : public IControlProxy, public IPeriodicTask {
public:
    static constexpr const char* kGroup = "LASER";
    static constexpr unsigned int kRefreshMs = 2000;
    static constexpr unsigned int kReadyWaitMs = 20000;
    static constexpr unsigned int kReadyPollMs = 20;
    static constexpr const char* kCodes[] = {"LPW", "LRD", "LGN", "LBL", "LGA"};

    CLaserPlant(const std::string& host, unsigned short port, CEventDispatcher& dispatcher, CStatusDb& status,
                const IMonotonicClock& clock, ILog& log);
    ~CLaserPlant() override;
    CLaserPlant(const CLaserPlant&) = delete;
    CLaserPlant& operator=(const CLaserPlant&) = delete;

    // Starts the refresh thread. With moduleReady (called on that thread, so it must be
    // safe there) the first reading waits until it answers true, at most kReadyWaitMs: a
    // module started alongside the projector is not reported missing while it starts.
    void Start(std::function<bool()> moduleReady = nullptr);

    bool ApplyControlValue(const std::string& code, int value) override;
    bool ApplyControlText(const std::string& code, const std::string& text) override;
    void Update() override;

private:
    struct SSnapshot {
        bool answered = false;
        std::string id;
        IHalvorLbmControl::SStatus status;
        unsigned int serial = 0;  // counts refreshes, so Update sees a new one
    };

    void Refresh();
    void RefreshLoop(const std::function<bool()>& moduleReady);
    // Stores a reading in the status database and LPW (controller thread).
    void Show(const SSnapshot& reading);

    CEventDispatcher& m_dispatcher;
    CStatusDb& m_status;
    ILog& m_log;
    std::mutex m_moduleMutex;
    CHalvorLbmControl m_module;
    std::mutex m_snapshotMutex;
    SSnapshot m_snapshot;
    unsigned int m_applied = 0;
    bool m_linkReported = false;
    std::atomic<bool> m_answering{true};
    std::atomic<bool> m_stop{false};
    std::mutex m_wakeMutex;
    std::condition_variable m_wake;
    std::thread m_thread;
};
