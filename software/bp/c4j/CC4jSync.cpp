#include "CC4jSync.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <functional>

#include "CException.h"
#include "jsonrpc/ForwardMethod.h"
#include "text/NErrorText.h"

namespace {

const char* const kMethods[] = {"sync:version", "sync:queueRequests", "sync:clearQueuedRequests",
                                "sync:prepareToExecute", "sync:execute", "sync:getExecutionWindow",
                                "sync:getExecutionWindowMax", "sync:getExecutionResult",
                                "sync:testHandlerVsyncTiming", "sync:setDebugLogging", "sync:executeSlave"};

// A method of the sync module as one UDP road serves it: the same handler, told which
// road the request came in on.
class CRoadMethod : public Json::Rpc::CallbackMethod {
public:
    using TCall = std::function<bool(const Json::Value&, Json::Value&)>;
    CRoadMethod(std::string name, TCall call) : m_name(std::move(name)), m_call(std::move(call)) {}
    bool Call(const Json::Value& request, Json::Value& response) override { return m_call(request, response); }
    Json::Value GetDescription() const override { return m_name; }
    std::string GetName() const override { return m_name; }

private:
    std::string m_name;
    TCall m_call;
};

}  // namespace

CC4jSync::CC4jSync(CJsonRpcServer& server, IVsyncCounter* vsync, CJsonRpcMulticast* group)
    : CC4jBaseHandler(server, "sync", 1), m_vsync(vsync), m_group(group) {
    Publish(*this, &CC4jSync::QueueRequests, "sync:queueRequests");
    Publish(*this, &CC4jSync::ClearQueuedRequests, "sync:clearQueuedRequests");
    Publish(*this, &CC4jSync::PrepareToExecute, "sync:prepareToExecute");
    Publish(*this, &CC4jSync::Execute, "sync:execute");
    Publish(*this, &CC4jSync::GetExecutionWindow, "sync:getExecutionWindow");
    Publish(*this, &CC4jSync::GetExecutionWindowMax, "sync:getExecutionWindowMax");
    Publish(*this, &CC4jSync::GetExecutionResult, "sync:getExecutionResult");
    Publish(*this, &CC4jSync::TestHandlerVsyncTiming, "sync:testHandlerVsyncTiming");
    Publish(*this, &CC4jSync::SetDebugLogging, "sync:setDebugLogging");
    Publish(*this, &CC4jSync::ExecuteSlave, "sync:executeSlave");
}

void CC4jSync::PublishTo(Json::Rpc::UdpServer& server, bool isGroup) {
    Json::Rpc::Handler& road = server.GetHandler();
    for (const char* name : kMethods) {
        const std::string method = name;
        if (method == "sync:queueRequests") {
            server.AddMethod(new CRoadMethod(method, [this, &road](const Json::Value& request, Json::Value& response) {
                return Queue(road, request, response);
            }));
        } else if (method == "sync:getExecutionResult") {
            server.AddMethod(new CRoadMethod(method, [this](const Json::Value& request, Json::Value& response) {
                return ReportResults(Json::Rpc::UdpServer::kDatagramSize, request, response);
            }));
        } else if (isGroup && method == "sync:execute") {
            server.AddMethod(new CRoadMethod(method, [this](const Json::Value& request, Json::Value& response) {
                return ExecuteSlave(request, response);
            }));
        } else {
            server.AddMethod(new Json::Rpc::ForwardMethod(GetServer().GetHandler(), method));
        }
    }
}

const char* CC4jSync::StateName(EState state) {
    static const char* const names[] = {"idle", "queued", "prepared", "scheduled", "executed"};
    return names[state];
}

void CC4jSync::Debug(const char* format, const std::string& text) const {
    if (m_debug) {
        GetLog().Log(format, text.c_str());
    }
}

double CC4jSync::PeriodUs() const {
    const double rate = m_vsync ? m_vsync->GetFrameRateHz() : 0;
    return rate > 0 ? 1e6 / rate : 1e6 / kSlowestRateHz;
}

uint64_t CC4jSync::WallTimeUs() {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count());
}

bool CC4jSync::QueueRequests(const Json::Value& request, Json::Value& response) {
    return Queue(GetServer().GetHandler(), request, response);
}

bool CC4jSync::Queue(Json::Rpc::Handler& road, const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    const Json::Value& params = request["params"];
    const Json::Value& requests = params.isObject() ? params["requests"] : Json::Value::nullSingleton();
    bool wellFormed = requests.isArray() && !requests.empty();
    for (const Json::Value& entry : requests) {
        wellFormed = wellFormed && entry.isObject() && entry["method"].isString();
    }
    if (!wellFormed) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER,
                          "Expected {\"requests\": [{\"method\": name, \"params\": ...}, ...]}");
        return true;
    }
    if (m_queue.size() + requests.size() > kMaxQueued) {
        MakeErrorResponse(request, response, ERR_REQUEST_LIST_TOO_LONG,
                          "At most " + std::to_string(kMaxQueued) + " requests can be queued");
        return true;
    }
    for (const Json::Value& entry : requests) {
        Json::Value queued;
        queued["jsonrpc"] = "2.0";
        queued["method"] = entry["method"];
        if (entry.isMember("params")) {
            queued["params"] = entry["params"];
        }
        queued["id"] = static_cast<Json::UInt>(m_queue.size() + 1);
        m_queue.push_back(SQueued{queued, &road, GetServer().GetRequestAccessLevel(GetClientFd(request))});
        Debug("sync: queued %s", entry["method"].asString());
    }
    m_state = QUEUED;
    Json::Value result;
    result["queued"] = static_cast<Json::UInt>(m_queue.size());
    MakeResultResponse(request, response, result);
    return true;
}

bool CC4jSync::ClearQueuedRequests(const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    Json::Value result;
    result["cleared"] = static_cast<Json::UInt>(m_queue.size());
    m_queue.clear();
    m_state = IDLE;
    MakeResultResponse(request, response, result);
    return true;
}

bool CC4jSync::PrepareToExecute(const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    if (m_queue.empty()) {
        MakeErrorResponse(request, response, ERR_REQUEST_LIST_EMPTY);
        return true;
    }
    for (const SQueued& entry : m_queue) {
        const Json::Value& queued = entry.request;
        const std::string method = queued["method"].asString();
        if (method.rfind("sync:", 0) == 0 || !entry.road->HasMethod(method)) {
            MakeErrorResponse(request, response, ERR_REQUEST_NOT_SUPPORTED, "Request not supported: " + method);
            return true;
        }
        const Json::Value& params = queued["params"];
        if (!params.isNull() && !params.isArray() && !params.isObject()) {
            MakeErrorResponse(request, response, ERR_INVALID_PARAMETER, "Params of " + method + " do not decode");
            return true;
        }
    }
    m_state = PREPARED;
    Debug("sync: prepared %s", std::to_string(m_queue.size()) + " requests");
    Json::Value result;
    result["ready"] = true;
    result["count"] = static_cast<Json::UInt>(m_queue.size());
    MakeResultResponse(request, response, result);
    return true;
}

EError CC4jSync::CheckDelay(const Json::Value& request, unsigned int& delayMs, std::string& reason) const {
    const Json::Value& params = request["params"];
    const Json::Value delay = params.isObject() ? params.get("delayMs", kDefaultDelayMs) : Json::Value(kDefaultDelayMs);
    if (!delay.isUInt() || delay.asUInt() > kMaxDelayMs) {
        reason = "Expected {\"delayMs\": 0..60000}";
        return ERR_INVALID_PARAMETER;
    }
    if (m_state != PREPARED) {
        reason = "The queued requests are not prepared";
        return ERR_COMMAND_NOT_EXECUTED;
    }
    delayMs = delay.asUInt();
    return ERR_NONE;
}

bool CC4jSync::Execute(const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    unsigned int delayMs = 0;
    std::string reason;
    const EError error = CheckDelay(request, delayMs, reason);
    if (error != ERR_NONE) {
        MakeErrorResponse(request, response, error, reason);
        return true;
    }
    if (!m_group) {
        Schedule(request, response, delayMs);
        return true;
    }
    SJsonRpcMulticast slave;
    slave.method = "sync:executeSlave";
    slave.params["delayMs"] = delayMs;
    slave.id = Json::Value();
    if (!m_group->MulticastRpcSend(slave)) {
        MakeErrorResponse(request, response, ERR_UDP_MULTICAST_FAILED);
        return true;
    }
    Debug("sync: relayed the execution to the group %s", m_group->GetGroup());
    Json::Value result;
    result["relayed"] = true;
    result["delayMs"] = delayMs;
    MakeResultResponse(request, response, result);
    return true;
}

bool CC4jSync::ExecuteSlave(const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    unsigned int delayMs = 0;
    std::string reason;
    const EError error = CheckDelay(request, delayMs, reason);
    if (error != ERR_NONE) {
        // The relayed commit is a notification, so the log is the only place this shows.
        GetLog().LogError("sync: execution refused: %s", reason.c_str());
        MakeErrorResponse(request, response, error, reason);
        return true;
    }
    Schedule(request, response, delayMs);
    return true;
}

void CC4jSync::Schedule(const Json::Value& request, Json::Value& response, unsigned int delayMs) {
    uint16_t now = 0;
    try {
        if (!m_vsync) {
            THROW_EXCEPTION("no v-sync counter");
        }
        now = m_vsync->ReadVsyncCount();
    } catch (const CException&) {
        MakeErrorResponse(request, response, ERR_NO_VSYNC);
        return;
    }
    const double periodUs = PeriodUs();
    const unsigned int frames = static_cast<unsigned int>(std::ceil(delayMs * 1000.0 / periodUs));
    m_target = static_cast<uint16_t>(now + std::max(frames, 1u));
    m_scheduledCount = GetServer().GetClock().GetCount();
    // Turn one frame (and a millisecond) ahead of the target; the turn waits for it.
    const double turnAfterUs = (std::max(frames, 1u) - 1) * periodUs - 1000;
    m_turnAfterMs = turnAfterUs > 0 ? static_cast<uint64_t>(turnAfterUs / 1000) : 0;
    m_state = SCHEDULED;
    m_late = false;
    Debug("sync: scheduled for v-sync %s", std::to_string(m_target));
    Json::Value result;
    result["scheduled"] = true;
    result["vsync"] = m_target;
    MakeResultResponse(request, response, result);
}

int CC4jSync::GetNextDeadlineMs() const {
    if (m_state != SCHEDULED) {
        return -1;
    }
    const IMonotonicClock& clock = GetServer().GetClock();
    const uint64_t elapsed = clock.CountsToMs(m_scheduledCount, clock.GetCount());
    return elapsed >= m_turnAfterMs ? 0 : static_cast<int>(std::min<uint64_t>(m_turnAfterMs - elapsed, 1000));
}

void CC4jSync::ProcessReady(const CPollSet&) {
    if (m_state != SCHEDULED || GetNextDeadlineMs() > 0) {
        return;
    }
    try {
        const int16_t ahead = static_cast<int16_t>(m_target - m_vsync->ReadVsyncCount());
        if (ahead > 0) {
            m_vsync->WaitVsyncs(static_cast<unsigned int>(ahead),
                                static_cast<unsigned int>(ahead * PeriodUs() / 1000) + 100);
        } else if (ahead < 0) {
            m_late = true;
            GetLog().LogError("sync: %s: v-sync %u already passed by %d", NErrorText::GetErrorString(ERR_EXECUTION_LOST_SYNC).c_str(),
                              m_target, -ahead);
        }
    } catch (const CException& e) {
        m_late = true;
        GetLog().LogError("sync: %s", e.GetMessage().c_str());
    }
    RunQueue();
}

void CC4jSync::RunQueue() {
    m_results = Json::Value(Json::arrayValue);
    for (const SQueued& queued : m_queue) {
        Json::Value entry;
        entry["method"] = queued.request["method"];
        entry["timeUs"] = static_cast<Json::UInt64>(WallTimeUs());
        try {
            entry["vsync"] = m_vsync->ReadVsyncCount();
        } catch (const CException&) {
            entry["vsync"] = Json::Value();
        }
        Json::Value answer;
        const CJsonRpcServer::CRunAs level(GetServer(), queued.level);
        queued.road->Process(queued.request, answer, Json::Rpc::UdpServer::kClientId);
        entry["response"] = answer;
        m_results.append(entry);
    }
    Debug("sync: executed %s", std::to_string(m_queue.size()) + " requests");
    m_queue.clear();
    m_state = EXECUTED;
}

bool CC4jSync::GetExecutionResult(const Json::Value& request, Json::Value& response) {
    return ReportResults(SIZE_MAX, request, response);
}

bool CC4jSync::ReportResults(size_t maxBytes, const Json::Value& request, Json::Value& response) {
    const Json::Value& params = request["params"];
    const Json::Value from = params.isObject() ? params.get("from", 0) : Json::Value(0);
    if (!from.isUInt() || from.asUInt() > m_results.size()) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER,
                          "Expected {\"from\": 0.." + std::to_string(m_results.size()) + "}");
        return true;
    }
    Json::Value result;
    result["state"] = StateName(m_state);
    result["vsync"] = m_target;
    result["late"] = m_late;
    result["count"] = m_results.size();
    result["results"] = Json::Value(Json::arrayValue);
    Json::ArrayIndex next = from.asUInt();
    result["next"] = next;
    MakeResultResponse(request, response, result);
    Json::Value& results = response["result"]["results"];
    for (; next < m_results.size(); ++next) {
        results.append(m_results[next]);
        response["result"]["next"] = next + 1;
        if (Json::Rpc::Handler::GetString(response).size() <= maxBytes) {
            continue;
        }
        if (results.size() > 1) {
            // The answer is full: the rest is read from "next" on.
            Json::Value dropped;
            results.removeIndex(results.size() - 1, &dropped);
            response["result"]["next"] = next;
            break;
        }
        // One response alone outgrows the answer: it is left out, so that reading goes on.
        results[0]["response"] = Json::Value();
        results[0]["truncated"] = true;
    }
    return true;
}

bool CC4jSync::GetExecutionWindow(const Json::Value& request, Json::Value& response) {
    Json::Value result;
    result["windowUs"] = static_cast<Json::UInt>(PeriodUs()) + m_latenessUs;
    MakeResultResponse(request, response, result);
    return true;
}

bool CC4jSync::GetExecutionWindowMax(const Json::Value& request, Json::Value& response) {
    Json::Value result;
    result["windowUs"] = static_cast<Json::UInt>(1e6 / kSlowestRateHz) + m_latenessUs;
    MakeResultResponse(request, response, result);
    return true;
}

bool CC4jSync::TestHandlerVsyncTiming(const Json::Value& request, Json::Value& response) {
    const Json::Value& params = request["params"];
    const Json::Value count = params.isObject() ? params.get("count", 10) : Json::Value(10);
    if (!count.isUInt() || count.asUInt() < 1 || count.asUInt() > 120) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER, "Expected {\"count\": 1..120}");
        return true;
    }
    if (!m_vsync) {
        MakeErrorResponse(request, response, ERR_NO_VSYNC);
        return true;
    }
    const IMonotonicClock& clock = GetServer().GetClock();
    const Json::Value probe = [] {
        Json::Value value;
        value["jsonrpc"] = "2.0";
        value["method"] = "sync:version";
        value["id"] = 1;
        return value;
    }();
    uint64_t total = 0;
    uint64_t least = UINT64_MAX;
    uint64_t most = 0;
    try {
        for (unsigned int i = 0; i < count.asUInt(); ++i) {
            m_vsync->WaitVsyncs(1, static_cast<unsigned int>(PeriodUs() / 1000) + 100);
            const uint32_t edge = clock.GetCount();
            Json::Value answer;
            GetServer().GetHandler().Process(probe, answer, Json::Rpc::UdpServer::kClientId);
            const uint64_t lateUs =
                static_cast<uint64_t>(static_cast<uint32_t>(clock.GetCount() - edge)) * 1000000 / clock.GetFrequency();
            total += lateUs;
            least = std::min(least, lateUs);
            most = std::max(most, lateUs);
        }
    } catch (const CException& e) {
        MakeErrorResponse(request, response, ERR_NO_VSYNC, e.GetMessage());
        return true;
    }
    m_latenessUs = static_cast<uint32_t>(std::max<uint64_t>(most, 1));
    Json::Value result;
    result["samples"] = count.asUInt();
    result["minUs"] = static_cast<Json::UInt64>(least);
    result["maxUs"] = static_cast<Json::UInt64>(most);
    result["meanUs"] = static_cast<Json::UInt64>(total / count.asUInt());
    MakeResultResponse(request, response, result);
    return true;
}

bool CC4jSync::SetDebugLogging(const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    const Json::Value& params = request["params"];
    if (!params.isObject() || !params["enable"].isBool()) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER, "Expected {\"enable\": true or false}");
        return true;
    }
    m_debug = params["enable"].asBool();
    GetLog().Log("sync: debug logging %s", m_debug ? "on" : "off");
    MakeResultResponse(request, response, Json::Value(m_debug));
    return true;
}
