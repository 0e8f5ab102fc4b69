#pragma once
// CC4jSync: the "sync" module (version 1): a set of JSON-RPC requests that several
// projectors run together, on the same v-sync, so that tiled or stacked projectors change
// on the same frame. Each projector keeps a queue; a controller fills every queue, asks
// every projector whether it is ready, then commits:
//
//   sync:queueRequests       {"requests": [{"method", "params"}...]}: appended to the
//                            queue (at most kMaxQueued in all, else 134; a malformed
//                            entry: 3, nothing queued); any change ends "prepared";
//                            result {"queued": total}
//   sync:clearQueuedRequests empties the queue; {"cleared": how many}
//   sync:prepareToExecute    checks every queued request: the method is served on the
//                            road its queueRequests came in on (a UDP server serves only
//                            the methods it was given) and is no "sync:" method (else 135
//                            naming it), "params" is absent,
//                            an array or an object (else 3); an empty queue is 133. On
//                            success the queue is prepared: {"ready": true, "count": n}
//   sync:execute             {"delayMs": 0..60000, default 200}: received from the group
//                            (see PublishToGroup) it schedules this projector; received
//                            on TCP or unicast it relays "sync:executeSlave" with the same
//                            delay to the group (a notification, which every member,
//                            this one included through multicast loopback, receives) and
//                            answers {"relayed": true, "delayMs"}; without a group it
//                            schedules this projector alone. 7 unless prepared, 137 when
//                            the group cannot be reached.
//   sync:executeSlave        {"delayMs"}: schedules this projector; {"scheduled": true,
//                            "vsync": target}. 7 unless prepared, 136 without a v-sync.
//   sync:getExecutionResult  {"from": index, default 0}: {"state": "idle" | "queued" |
//                            "prepared" | "scheduled" | "executed", "vsync": target,
//                            "late": bool, "count": results in all, "next": index after
//                            the last one given, "results": [{"method", "response",
//                            "vsync", "timeUs"}]} from "from" on; "timeUs": microseconds
//                            since 1970 UTC when the request ran. Over UDP the answer
//                            must fit one datagram, so it carries as many results as fit
//                            and "next" < "count" says where to ask again; a result
//                            whose response alone outgrows a datagram comes with
//                            "response": null and "truncated": true.
//   sync:getExecutionWindow  {"windowUs"}: execution is guaranteed between the delay and
//                            the delay plus this window: one frame at the current rate
//                            plus the handlers' worst measured lateness
//   sync:getExecutionWindowMax  {"windowUs"}: the same at the slowest output rate
//                            (23.976 Hz), the bound a controller can plan with
//   sync:testHandlerVsyncTiming  {"count": 1..120, default 10}: waits for that many
//                            v-syncs and measures, after each, how long until a handler
//                            has run; {"samples", "minUs", "maxUs", "meanUs"}; the maximum
//                            enters the window
//   sync:setDebugLogging     {"enable": bool}: logs each step ("sync: ...")
//
// Access: queueRequests, clearQueuedRequests, prepareToExecute, execute, executeSlave and
// setDebugLogging need kChangeLevel (117 below it); over UDP that is the configured
// datagram level. A queued request runs at the level of the request that queued it, so
// a queue filled by an anonymous client changes no more than that client could.
//
// Scheduling: at receipt the v-sync count c and the delay d give the target count
// c + ceil(d / frame period): the first v-sync at or after the delay. Projectors whose
// v-syncs are locked read the same count at the same moment, so they pick the same
// target. The loop is asked for a turn one frame before it (GetNextDeadlineMs); that
// turn waits for the target v-sync and runs the queue at once, in order, through the
// method table of the road each request was queued on (client id -1), so a request
// queued over UDP can do no more than the same request sent over UDP. A turn that comes after the target (the loop
// was held up) still runs the queue but marks the execution "late" and logs error 130
// "Execution lost synchronization". The queue is then empty and the results stay until
// the next execution.
//
// Lifetime: server, clock, v-sync counter, group and the UDP servers it is published to
// outlive it (counter and group may be null). Thread contract: the controller's loop.

#include <json/json.h>

#include <string>
#include <vector>

#include "CC4jBaseHandler.h"
#include "CControllerLoop.h"
#include "CJsonRpcMulticast.h"
#include "IVsyncCounter.h"
#include "time/IMonotonicClock.h"
#include "jsonrpc/UdpServer.h"

class CC4jSync : public CC4jBaseHandler, public ILoopSource {
public:
    static constexpr size_t kMaxQueued = 64;
    static constexpr EAccessLevel kChangeLevel = ACCESS_OPERATOR;
    static constexpr unsigned int kDefaultDelayMs = 200;
    static constexpr unsigned int kMaxDelayMs = 60000;
    static constexpr double kSlowestRateHz = 23.976;
    static constexpr unsigned int kDefaultLatenessUs = 1000;

    CC4jSync(CJsonRpcServer& server, IVsyncCounter* vsync, CJsonRpcMulticast* group);

    // Publishes the module's methods on a UDP server: every one forwarded to this
    // server's table, except that requests queued there run through the UDP server's own
    // table, results are given a datagram at a time, and on the group's server
    // "sync:execute" schedules this projector instead of relaying.
    void PublishTo(Json::Rpc::UdpServer& server, bool isGroup);

    bool QueueRequests(const Json::Value& request, Json::Value& response);
    bool ClearQueuedRequests(const Json::Value& request, Json::Value& response);
    bool PrepareToExecute(const Json::Value& request, Json::Value& response);
    bool Execute(const Json::Value& request, Json::Value& response);
    bool ExecuteSlave(const Json::Value& request, Json::Value& response);
    bool GetExecutionResult(const Json::Value& request, Json::Value& response);
    bool GetExecutionWindow(const Json::Value& request, Json::Value& response);
    bool GetExecutionWindowMax(const Json::Value& request, Json::Value& response);
    bool TestHandlerVsyncTiming(const Json::Value& request, Json::Value& response);
    bool SetDebugLogging(const Json::Value& request, Json::Value& response);

    void AddDescriptors(CPollSet&) override {}
    void ProcessReady(const CPollSet&) override;
    int GetNextDeadlineMs() const override;

private:
    enum EState { IDLE, QUEUED, PREPARED, SCHEDULED, EXECUTED };
    // A queued request, the method table of the road it came in on, and the access level
    // of the request that queued it.
    struct SQueued {
        Json::Value request;
        Json::Rpc::Handler* road;
        EAccessLevel level;
    };
    static const char* StateName(EState state);

    // The delay of a request's params; an error and its reason when out of range or when
    // the queue is not prepared.
    bool Queue(Json::Rpc::Handler& road, const Json::Value& request, Json::Value& response);
    // The results from params "from" on, as many as keep the answer's text within maxBytes.
    bool ReportResults(size_t maxBytes, const Json::Value& request, Json::Value& response);
    EError CheckDelay(const Json::Value& request, unsigned int& delayMs, std::string& reason) const;
    void Schedule(const Json::Value& request, Json::Value& response, unsigned int delayMs);
    void RunQueue();
    double PeriodUs() const;
    static uint64_t WallTimeUs();
    void Debug(const char* format, const std::string& text) const;

    IVsyncCounter* m_vsync;
    CJsonRpcMulticast* m_group;
    std::vector<SQueued> m_queue;
    EState m_state = IDLE;
    uint16_t m_target = 0;
    uint32_t m_scheduledCount = 0;  // server clock at scheduling
    uint64_t m_turnAfterMs = 0;     // from then, when the loop must turn to wait for the target
    bool m_late = false;
    Json::Value m_results{Json::arrayValue};
    uint32_t m_latenessUs = kDefaultLatenessUs;
    bool m_debug = false;
};
