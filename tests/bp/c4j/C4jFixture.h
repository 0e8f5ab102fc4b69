#pragma once
// CC4jFixture: a controller's JSON-RPC API under a private runtime root, driven from the
// test thread: controls of each kind, a status database, a menu model (empty until loaded),
// the server on 127.0.0.1 (any free port) with a hand-driven clock, the handlers and the
// controller loop, which turns only inside the helpers (so tests may touch controls and
// the database directly between exchanges).
//
// Controls (access group 2 unless said):
//   BRI  integer 0..100, default 50, label text 11 ("Auto Detect")
//   CON  integer with soft limits (203) 0..100, default 40, 1 decimal, soft range 10..90
//   LMP  boolean, default off
//   RST  action, confirm text 5 ("OK")
//   INP  list 1 "HDMI" (icon "input/hdmi"), 2 "DVI" (not selectable), 3 "SDI" (hidden)
//   NAM  text, length 1..16, default "Projector"
//   RDO  integer 0..10, read-only
//   SEC  integer 0..10, protected access group 6
//   FAC  integer 0..10, factory access group 5
//   BIG  free text holding 64 KiB, for large replies

#include <gtest/gtest.h>
#include <json/json.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "JsonText.h"
#include "BufferedLog.h"
#include "CC4jControl.h"
#include "CC4jMenu.h"
#include "CC4jStatus.h"
#include "CControllerLoop.h"
#include "CJsonMenu.h"
#include "CJsonRpcServer.h"
#include "CJsonRpcTcpClient.h"
#include "ManualClock.h"
#include "RecordingProxy.h"
#include "TempRoot.h"
#include "control/CProjCon.h"
#include "dispatch/CIpcEventDispatcher.h"
#include "status/CStatusDb.h"

// One connected client as the server knows it, with the messages that arrived while the
// test waited for something else.
struct STestClient {
    std::unique_ptr<CJsonRpcTcpClient> tcp;
    unsigned int id = 0;
    std::deque<Json::Value> notes;
    int nextRequestId = 1;
};
using TClient = std::unique_ptr<STestClient>;

// A JSON value from its text; a test failure when the text is not JSON.
class CC4jFixture : public ::testing::Test {
protected:
    static constexpr size_t kBigTextSize = 64 * 1024;

    // Logging up to `mostVerbose`: debug logging turns the direct ways of methods off.
    explicit CC4jFixture(ELogLevel mostVerbose = LOG_LEVEL_DEBUG) : log(5000, mostVerbose) {
        AddControls();
        root.MakeDir("/var/run/ui");
        ipc = std::make_unique<CIpcEventDispatcher>(dispatcher, root.Path("/var/run/ui/main_controller.socket").c_str(),
                                                    log);
        loop = std::make_unique<CControllerLoop>(dispatcher, *ipc, &server);
    }
    ~CC4jFixture() override { loop.reset(); }

    static std::string Address(unsigned int clientId) {
        return CNotificationManager::MakeAddrFromSocket(static_cast<int>(clientId));
    }

    CProjCon& Control(const std::string& code) { return *dispatcher.GetControl(code); }
    CNotificationManager& Registry() { return dispatcher.GetNotificationManager(); }

    // Turns the loop until done() holds or a generous deadline passes; returns done().
    bool TurnUntil(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            loop->RunOnce(10);
        }
        return true;
    }

    // Connects and turns the loop until the server has accepted; ids are sequential, so
    // the client's id is the counter's value before the connection.
    TClient Connect() {
        auto client = std::make_unique<STestClient>();
        client->id = SJsonRpcClient::mGlobalId;
        client->tcp = std::make_unique<CJsonRpcTcpClient>("127.0.0.1", server.GetPort());
        EXPECT_TRUE(TurnUntil([&] { return server.IsClientConnected(client->id); }));
        return client;
    }

    // The next message for the client (what arrived earlier first), turning the loop
    // while none is there; null on time-out.
    Json::Value Next(STestClient& client) {
        if (client.notes.empty()) {
            std::string text;
            if (!TurnUntil([&] { return client.tcp->Recv(text, 0); })) {
                ADD_FAILURE() << "no message for client " << client.id;
                return Json::Value();
            }
            client.notes.push_back(J(text));
        }
        Json::Value message = client.notes.front();
        client.notes.pop_front();
        return message;
    }

    // Sends one request text and returns its answer (a message with an "id", or a batch
    // answer); notifications that come first are kept in the client's notes.
    Json::Value Exchange(STestClient& client, const std::string& text) {
        client.tcp->Send(text);
        Json::Value reply;
        const bool answered = TurnUntil([&] {
            std::string received;
            while (client.tcp->Recv(received, 0)) {
                Json::Value message = J(received);
                if (message.isArray() || message.isMember("id")) {
                    reply = message;
                    return true;
                }
                client.notes.push_back(message);
            }
            return false;
        });
        EXPECT_TRUE(answered) << "no answer to " << text;
        return reply;
    }

    Json::Value Call(STestClient& client, const std::string& method, const std::string& params = "") {
        Json::Value request;
        request["jsonrpc"] = "2.0";
        request["method"] = method;
        request["id"] = client.nextRequestId++;
        if (!params.empty()) {
            request["params"] = J(params);
        }
        return Exchange(client, Json::Rpc::Handler::GetString(request));
    }
    Json::Value Result(STestClient& client, const std::string& method, const std::string& params = "") {
        const Json::Value reply = Call(client, method, params);
        EXPECT_FALSE(reply.isMember("error")) << Json::Rpc::Handler::GetString(reply);
        return reply["result"];
    }
    // The error code of the answer, 0 when it succeeded.
    int ErrorCode(STestClient& client, const std::string& method, const std::string& params = "") {
        return Call(client, method, params)["error"]["code"].asInt();
    }

    // True when nothing reached the client ahead of the answer to a fresh request: the
    // stream keeps order, so anything sent to it before would have come first.
    bool Quiet(STestClient& client) {
        Call(client, "getC4JVersion");
        const bool quiet = client.notes.empty();
        client.notes.clear();
        return quiet;
    }

    CTempRoot root;
    CBufferedLog log;
    CRecordingProxy proxy;
    CManualClock clock;
    CEventDispatcher dispatcher{log};
    std::vector<std::unique_ptr<CProjCon>> controls;
    CStatusDb status{8, "c4j", [](int id) { return StatusText(id); }};
    CJsonMenu menu;
    std::unique_ptr<CIpcEventDispatcher> ipc;
    CJsonRpcServer server{dispatcher, 0, clock, log, "127.0.0.1"};
    CC4jControl controlHandler{server};
    CC4jMenu menuHandler{server, menu};
    CC4jStatus statusHandler{server, status};
    std::unique_ptr<CControllerLoop> loop;

private:
    // Texts of the status items the status tests build; a label holds quotation marks.
    static std::string StatusText(int id) {
        static const std::map<int, std::string> texts = {
            {25, "Alarms"}, {29, "Lamp Info"}, {101, "Lamp hours"}, {102, "Lamp \"A\" state"}, {201, "Sync"}};
        const auto it = texts.find(id);
        return it == texts.end() ? "" : it->second;
    }

    void AddControls() {
        auto add = [this](CProjCon* control) { return controls.emplace_back(control).get(); };
        add(new CProjCon(DT_INTEGER, dispatcher, proxy, "BRI", false, 0, 100, 50, ACCESS_OPERATOR, 11, 0, 0, false));
        add(new CProjCon(DT_INTEGER_SOFT_LIMITS, dispatcher, proxy, "CON", false, 0, 100, 40, ACCESS_OPERATOR, 0, 0, 1,
                         false))
            ->SetSoftRange(10, true, 90, true);
        add(new CProjCon(DT_BOOLEAN, dispatcher, proxy, "LMP", false, false, ACCESS_OPERATOR, 0, 0, false));
        add(new CProjCon(DT_ACTION, dispatcher, proxy, "RST", false, ACCESS_OPERATOR, 0, 0, 0, false))->SetConfirmText(5);
        // value, text id, user data, shown, selectable, text, icon
        add(new CProjCon(DT_LIST, dispatcher, proxy, "INP", false, 1, ACCESS_OPERATOR, 0, 0, false))
            ->AddList({SListEntry{1, 0, 0, true, true, "HDMI", "input/hdmi"}, SListEntry{2, 0, 0, true, false, "DVI", ""},
                       SListEntry{3, 0, 0, false, true, "SDI", ""}});
        add(new CProjCon(DT_TEXT, dispatcher, proxy, "NAM", false, 1, 16, "Projector", ACCESS_OPERATOR, 0, 0, false));
        add(new CProjCon(DT_INTEGER, dispatcher, proxy, "RDO", false, 0, 10, 0, ACCESS_OPERATOR, 0, 0, 0, true));
        add(new CProjCon(DT_INTEGER, dispatcher, proxy, "SEC", false, 0, 10, 0, ACCESS_PROTECTED, 0, 0, 0, false));
        add(new CProjCon(DT_INTEGER, dispatcher, proxy, "FAC", false, 0, 10, 0, ACCESS_FACTORY, 0, 0, 0, false));
        add(new CProjCon(DT_TEXT_FREE, dispatcher, proxy, "BIG", false, 0, 0, std::string(kBigTextSize, 'x'),
                         ACCESS_OPERATOR, 0, 0, false));
        proxy.calls.clear();
    }
};
