// The "control" module over real TCP: reading and setting controls of every kind, their
// properties and attributes, access to the protected group, and change listeners; the
// conversions between JSON parameters and IPC messages at unit level.

#include "C4jFixture.h"
#include "ThrownMessage.h"

namespace {

class CC4jControlTest : public CC4jFixture {
protected:
    explicit CC4jControlTest(ELogLevel mostVerbose = LOG_LEVEL_DEBUG) : CC4jFixture(mostVerbose) {}
    void SetUp() override { client = Connect(); }

    static Json::Value Notify(const std::string& code, const Json::Value& value) {
        Json::Value notify = J(R"({"jsonrpc":"2.0","method":"control:notify"})");
        notify["params"]["code"] = code;
        notify["params"]["value"] = value;
        return notify;
    }

    TClient client;
};

class CC4jControlDirectTest : public CC4jControlTest {
protected:
    CC4jControlDirectTest() : CC4jControlTest(LOG_LEVEL_INFO) {}

    // Calls check(text, parts, direct) for every case, as "<name>" and "control:<name>",
    // with a number and a string for its id.
    template <class Cases, class Check>
    void ForEachRequest(const std::string& name, const Cases& cases, Check check) {
        for (const std::string& method : {name, "control:" + name}) {
            for (const std::string requestId : {"7", R"("q")"}) {
                for (const auto& [params, direct] : cases) {
                    const std::string text = R"({"jsonrpc":"2.0","id":)" + requestId + R"(,"method":")" + method +
                                             R"(","params":)" + params + "}";
                    Json::Rpc::SDirectRequest parts;
                    ASSERT_TRUE(Json::Rpc::ReadDirect(text, parts)) << text;
                    check(text, parts, direct);
                }
            }
        }
    }
};

}  // namespace

TEST_F(CC4jControlTest, ValuesAreReadAndSetByKindWithArrayOrObjectParams) {
    EXPECT_EQ(Result(*client, "get", R"(["BRI"])"), 50);
    EXPECT_EQ(Result(*client, "control:get", R"({"code":"bri"})"), J(R"({"value":50})"));
    EXPECT_EQ(Result(*client, "set", R"(["BRI",70])"), 70);
    EXPECT_EQ(Result(*client, "control:set", R"({"code":"BRI","value":150})"), J(R"({"value":100})"));  // clamped
    EXPECT_EQ(Control("BRI").GetValue(), 100);
    EXPECT_EQ(ErrorCode(*client, "set", R"(["BRI","60"])"), ERR_INVALID_PARAMETER);
    EXPECT_EQ(ErrorCode(*client, "control:get", R"(["NET+PORT"])"), ERR_CONTROL_NOT_FOUND);

    EXPECT_EQ(Result(*client, "set", R"(["LMP",true])"), true);
    EXPECT_EQ(Control("LMP").GetValue(), 1);
    EXPECT_EQ(Result(*client, "get", R"({"code":"LMP"})"), J(R"({"value":true})"));
    EXPECT_EQ(Result(*client, "set", R"({"code":"LMP","value":false})"), J(R"({"value":false})"));
    EXPECT_EQ(Control("LMP").GetValue(), 0);

    EXPECT_EQ(ErrorCode(*client, "set", R"(["NAM",5])"), ERR_INVALID_PARAMETER);
    EXPECT_EQ(Result(*client, "get", R"(["NAM"])"), "Projector");
    EXPECT_EQ(Result(*client, "set", R"(["NAM","Booth 3"])"), "Booth 3");
    EXPECT_EQ(Control("NAM").GetText(), "Booth 3");
    EXPECT_EQ(Control("BRI").GetValue(), 100);  // untouched by the refused text
}

TEST_F(CC4jControlDirectTest, GetAnswersByteForByteAsTheGeneralWayAndLeavesRefusalsToIt) {
    EXPECT_EQ(Result(*client, "set", R"(["NAM","Booth \"3\""])"), "Booth \"3\"");  // a text to escape
    const std::pair<std::string, bool> cases[] = {
        {R"(["BRI"])", true},   {R"({"code":"bri"})", true}, {R"(["LMP"])", true},  {R"({"code":"NAM"})", true},
        {R"(["RST"])", true},   {R"(["SEC"])", false},       {R"(["XYZ"])", false}, {R"({"value":"BRI"})", false}};
    Json::Rpc::Handler& handler = server.GetHandler();
    const int id = static_cast<int>(client->id);
    ForEachRequest("get", cases, [&](const std::string& text, const Json::Rpc::SDirectRequest& parts, bool direct) {
        std::string answer;
        EXPECT_EQ(controlHandler.GetDirect(parts, id, answer), direct) << text;
        answer.clear();
        handler.Answer(text, answer, id);
        Json::Value response;
        handler.Process(text, response, id);
        EXPECT_EQ(answer, Json::Rpc::Handler::GetString(response)) << text;
    });
}

TEST_F(CC4jControlDirectTest, SetAnswersLogsAndChangesAsTheGeneralWayAndLeavesRefusalsToIt) {
    // params, and whether the direct way answers it (after trying the change, refusals too)
    const std::pair<std::string, bool> cases[] = {
        {R"(["BRI",70])", true},          {R"({"code":"bri","value":150})", true}, {R"(["LMP",true])", true},
        {R"({"code":"LMP","value":0})", true}, {R"(["NAM","Booth 3"])", true}, {R"(["RST",5])", true},
        {R"(["INP",7])", true},           {R"(["RDO",3])", true},                  {R"(["BRI","60"])", false},
        {R"(["NAM",5])", false},          {R"(["SEC",1])", false},                 {R"(["FAC",1])", false},
        {R"(["XYZ",1])", false},          {R"({"value":"7","code":"BRI"})", false}, {R"(["BRI"])", false}};
    Json::Rpc::Handler& handler = server.GetHandler();
    const int id = static_cast<int>(client->id);
    const auto reset = [this] {
        Control("BRI").SetValue(50);
        Control("LMP").SetValue(0);
        Control("NAM").SetText("Projector");
        proxy.calls.clear();
        log.Clear();
    };
    // What a way left behind: the answer, the values, the hardware calls and the set's log line.
    const auto outcome = [this](const std::string& answer) {
        const std::string logged = log.GetContents();
        const size_t line = logged.find("Recv'd 'set'");
        return answer + "|" + std::to_string(Control("BRI").GetValue()) + "|" +
               std::to_string(Control("LMP").GetValue()) + "|" + Control("NAM").GetText() + "|" +
               std::to_string(proxy.calls.size()) + "|" +
               (line == std::string::npos ? "" : logged.substr(line, logged.find('\n', line) - line));
    };
    ForEachRequest("set", cases, [&](const std::string& text, const Json::Rpc::SDirectRequest& parts, bool direct) {
        reset();
        const std::string untouched = outcome("");
        std::string answer;
        EXPECT_EQ(controlHandler.SetDirect(parts, id, answer), direct) << text;
        if (!direct) {
            EXPECT_EQ(outcome(answer), untouched) << text;  // nothing written, nothing changed
            handler.Answer(text, answer, id);
        }
        const std::string directWay = outcome(answer);
        reset();
        Json::Value response;
        handler.Process(text, response, id);
        EXPECT_EQ(directWay, outcome(Json::Rpc::Handler::GetString(response))) << text;
    });
}

TEST_F(CC4jControlTest, ActionIsTriggeredOnceWhateverTheValue) {
    EXPECT_EQ(Result(*client, "set", R"(["RST","whatever"])"), Json::Value());
    ASSERT_EQ(proxy.calls.size(), 1u);
    EXPECT_EQ(proxy.calls[0].code, "RST");
    EXPECT_EQ(Result(*client, "control:set", R"({"code":"RST","value":[1,2]})"), J(R"({"value":null})"));
    EXPECT_EQ(Result(*client, "set", R"(["RST"])"), Json::Value());
    ASSERT_EQ(proxy.calls.size(), 3u);
    EXPECT_EQ(proxy.calls[2].code, "RST");
}

TEST_F(CC4jControlTest, RefusalsCarryTheControlsCode) {
    EXPECT_EQ(ErrorCode(*client, "set", R"(["INP",7])"), ERR_INVALID_VALUE);
    EXPECT_EQ(Control("INP").GetValue(), 1);
    EXPECT_EQ(ErrorCode(*client, "set", R"(["XYZ",1])"), ERR_CONTROL_NOT_FOUND);
    const Json::Value readOnly = Call(*client, "set", R"(["RDO",3])");
    EXPECT_EQ(readOnly["error"]["code"], ERR_DISABLED_CONTROL);
    EXPECT_EQ(readOnly["error"]["message"], "This control is read-only");
    EXPECT_EQ(Control("RDO").GetValue(), 0);
}

TEST_F(CC4jControlTest, EveryMethodTakingACodeKeepsAProtectedControlFromAClientNotAdmitted) {
    root.WriteFile("/etc/menu.json", R"({"MAIN":{"items":["SEC","BRI"]}})");
    menu.Initialize("menu.json");
    const char* const calls[][2] = {
        {"get", R"(["SEC"])"},
        {"control:get", R"({"code":"sec"})"},
        {"set", R"(["SEC",4])"},
        {"control:set", R"({"code":"SEC","value":4})"},
        {"getProperties", R"(["SEC"])"},
        {"control:getProperties", R"({"code":"SEC"})"},
        {"getAttributes", R"(["SEC"])"},
        {"control:getAttributes", R"({"code":"SEC"})"},
        {"addListener", R"(["SEC"])"},
        {"control:addListener", R"({"code":["BRI","SEC"]})"},
    };
    for (const auto& call : calls) {
        EXPECT_EQ(ErrorCode(*client, call[0], call[1]), ERR_INVALID_ACCESS_GROUP) << call[0];
    }
    EXPECT_TRUE(log.Logged("not logged in for executing the protected code: SEC"));
    EXPECT_EQ(Control("SEC").GetValue(), 0);
    Control("SEC").SetValue(3);
    EXPECT_TRUE(Quiet(*client));  // nothing was registered, nothing was sent
    const Json::Value items = Result(*client, "menu:get", R"({"code":"MMM+MAIN","addListener":true})")["items"];
    EXPECT_EQ(items[0]["code"], "SEC");
    EXPECT_FALSE(items[0].isMember("value"));
    EXPECT_EQ(items[1]["value"], 50);
    Control("SEC").SetValue(4);
    EXPECT_EQ(Registry().GetNotifyList("SEC").json.size(), 0u);

    // An operator (or protected) connection is admitted everywhere, and hears changes
    // only while it stays admitted; 6 is a group apart, not "above" 5. Changing the
    // control is a protected session's, as it is for an IPC sender.
    ASSERT_TRUE(server.SetClientAccessLevel(client->id, ACCESS_OPERATOR));
    for (const auto& call : calls) {
        const bool change = std::string(call[0]).find("set") != std::string::npos;
        EXPECT_EQ(ErrorCode(*client, call[0], call[1]), change ? ERR_INVALID_ACCESS_GROUP : ERR_NONE) << call[0];
    }
    EXPECT_TRUE(log.Logged("at access level 2 may not change SEC (access group 6)"));
    EXPECT_EQ(Result(*client, "menu:get", R"(["MMM+MAIN"])")["items"][0]["value"], 4);
    client->notes.clear();
    Control("SEC").SetValue(7);
    EXPECT_EQ(Next(*client), Notify("SEC", 7));
    ASSERT_TRUE(server.SetClientAccessLevel(client->id, ACCESS_FACTORY));
    EXPECT_EQ(ErrorCode(*client, "get", R"(["SEC"])"), ERR_INVALID_ACCESS_GROUP);
    Control("SEC").SetValue(8);
    EXPECT_TRUE(Quiet(*client));
    ASSERT_TRUE(server.SetClientAccessLevel(client->id, ACCESS_PROTECTED));
    EXPECT_EQ(Result(*client, "set", R"(["SEC",9])"), 9);
}

TEST_F(CC4jControlTest, PropertiesAndAttributesDependOnTheKind) {
    EXPECT_EQ(Result(*client, "getProperties", R"(["BRI"])"), J(R"({"enabled":true,"min":0,"max":100,"value":50})"));
    EXPECT_EQ(Result(*client, "getProperties", R"(["RDO"])")["enabled"], false);
    EXPECT_EQ(Result(*client, "getAttributes", R"(["RDO"])")["readOnly"], true);
    EXPECT_EQ(Result(*client, "control:getAttributes", R"({"code":"BRI"})"),
              J(R"({"type":200,"access":2,"label":"Auto Detect","default":50})"));
    EXPECT_EQ(Result(*client, "getAttributes", R"(["LMP"])"), J(R"({"type":100,"access":2,"label":"","default":false})"));
    EXPECT_EQ(Result(*client, "getAttributes", R"(["NAM"])")["default"], "Projector");
    EXPECT_EQ(Result(*client, "getAttributes", R"(["RST"])"),
              J(R"({"type":500,"access":2,"label":"","confirm":"OK","default":null})"));
}

TEST_F(CC4jControlTest, ListenerHearsTheCurrentValueAtOnceUnlessToldNotToAndEveryChange) {
    EXPECT_EQ(Result(*client, "addListener", R"({"code":"bri"})"), J(R"({"count":1})"));
    EXPECT_EQ(Next(*client), Notify("BRI", 50));
    Control("BRI").SetValue(60);
    EXPECT_EQ(Next(*client), Notify("BRI", 60));
    Control("NAM").SetText("Hall");  // not listened to
    EXPECT_TRUE(Quiet(*client));

    EXPECT_EQ(Result(*client, "control:addListener", R"({"code":["LMP","CON"],"sendNow":false})"),
              J(R"({"count":2})"));
    EXPECT_TRUE(Quiet(*client));
    Control("LMP").SetValue(1);
    EXPECT_EQ(Next(*client), Notify("LMP", true));
    EXPECT_EQ(ErrorCode(*client, "addListener", R"(["BRI","XYZ"])"), ERR_CONTROL_NOT_FOUND);
}

TEST_F(CC4jControlTest, RemovingListenersEndsNotificationsAndShowsInTheList) {
    TClient other = Connect();
    Result(*client, "addListener", R"({"code":["BRI","LMP"],"sendNow":false})");
    Result(*client, "addListener", R"({"code":"BRI","sendNow":false})");
    Result(*other, "addListener", R"(["BRI","LMP"])");
    EXPECT_EQ(Next(*other), Notify("BRI", 50));
    EXPECT_EQ(Next(*other), Notify("LMP", false));
    // Without a client: the listeners per code; with one: that client's registrations.
    EXPECT_EQ(Result(*client, "getListenerList"), J(R"([{"code":"BRI","count":2},{"code":"LMP","count":2}])"));
    EXPECT_EQ(Result(*client, "getListenerList", "{\"client\":" + std::to_string(client->id) + "}"),
              J(R"([{"code":"BRI","count":2},{"code":"LMP","count":1}])"));
    EXPECT_EQ(Result(*client, "getListenerList", "{\"client\":\"" + Address(other->id) + "\"}"),
              J(R"([{"code":"BRI","count":1},{"code":"LMP","count":1}])"));

    Result(*client, "removeListener", R"({"code":"LMP"})");
    Control("LMP").SetValue(1);
    EXPECT_TRUE(Quiet(*client));
    EXPECT_EQ(Next(*other), Notify("LMP", true));
    EXPECT_EQ(Result(*client, "removeAllListeners"), J(R"({"removed":["BRI"]})"));
    Control("BRI").SetValue(10);
    EXPECT_TRUE(Quiet(*client));
    EXPECT_EQ(Next(*other), Notify("BRI", 10));
    EXPECT_EQ(Result(*client, "getListenerList"), J(R"([{"code":"BRI","count":1},{"code":"LMP","count":1}])"));
}

TEST_F(CC4jControlTest, ListenerRequestWithoutClientIdRegistersUnderMinusOne) {
    Json::Value response;
    controlHandler.AddListener(J(R"({"jsonrpc":"2.0","method":"addListener","id":1,
                                     "params":{"code":"LMP","sendNow":false}})"),
                               response);
    EXPECT_EQ(response["result"], J(R"({"count":1})"));
    ASSERT_EQ(Registry().GetNotifyList("LMP").json.size(), 1u);
    EXPECT_EQ(Registry().GetNotifyList("LMP").json.front().address, "JSON_TCP.-1");
}

TEST(CC4jBaseHandlerTest, ParamsBecomeIpcArguments) {
    const CIpcMessage array = CC4jBaseHandler::ConvertParamsToIpc(J(R"(["net+port", 5, true, "x"])"));
    EXPECT_EQ(array.GetCode(), "NET");
    EXPECT_EQ(array.GetSubCode(), "PORT");
    ASSERT_EQ(array.GetNumArgs(), 3u);
    std::string text;
    for (const auto& [id, expected] : {std::pair<unsigned short, const char*>{0, "5"}, {1, "1"}, {2, "x"}}) {
        EXPECT_TRUE(array.GetArg(id, text));
        EXPECT_EQ(text, expected) << id;
    }
    EXPECT_TRUE(array.IsNumberArg(0));
    EXPECT_TRUE(array.IsTextArg(2));

    const CIpcMessage object = CC4jBaseHandler::ConvertParamsToIpc(J(R"({"code":"BRI","value":[7,"y"]})"));
    EXPECT_EQ(object.GetCode(), "BRI");
    EXPECT_EQ(object.GetSubCode(), "");
    EXPECT_EQ(object.GetNumArgs(), 2u);

    EXPECT_EQ(ThrownMessage([] { CC4jBaseHandler::ConvertParamsToIpc(J(R"(["NET+PORT", 1.5])")); }),
              "Unsupported JSON type: 3 (1.5)");
    EXPECT_EQ(ThrownMessage([] { CC4jBaseHandler::ConvertParamsToIpc(J("7")); }),
              "Unsupported JSON container: 1");
}

TEST(CC4jBaseHandlerTest, IpcRepliesBecomeJsonByTheirShape) {
    CIpcMessage none, number, text, both;
    number.AddArg(0, 42);
    text.AddArg(0, std::string("42"));
    both.AddArg(0, 5);
    both.AddArg(1, std::string("on"));
    EXPECT_EQ(CC4jBaseHandler::ConvertFromIpcReply(none), Json::Value());
    EXPECT_EQ(CC4jBaseHandler::ConvertFromIpcReply(number), 42);
    EXPECT_EQ(CC4jBaseHandler::ConvertFromIpcReply(text), "42");
    EXPECT_EQ(CC4jBaseHandler::ConvertFromIpcReply(both), J(R"([5,"on"])"));
    EXPECT_EQ(CC4jBaseHandler::ConvertFromIpcReply(std::list<CIpcMessage>{}), Json::Value());
    EXPECT_EQ(CC4jBaseHandler::ConvertFromIpcReply(std::list<CIpcMessage>{number}), 42);
    EXPECT_EQ(CC4jBaseHandler::ConvertFromIpcReply(std::list<CIpcMessage>{number, both}), J(R"([42,[5,"on"]])"));
}

TEST_F(CC4jControlTest, AChangeIsRefusedWhereAnIpcSenderAtTheClientsLevelWouldBe) {
    // Never logged in: ordinary settings (group 2) change, as for an ASCII client that
    // has not logged in; the factory group does not, on any change path.
    EXPECT_EQ(Result(*client, "set", R"(["BRI",7])"), 7);
    EXPECT_EQ(ErrorCode(*client, "set", R"(["FAC",1])"), ERR_INVALID_ACCESS_GROUP);
    EXPECT_EQ(ErrorCode(*client, "control:set", R"({"code":"FAC","value":1})"), ERR_INVALID_ACCESS_GROUP);
    EXPECT_EQ(Result(*client, "get", R"(["FAC"])"), 0);  // reading it stays open
    EXPECT_TRUE(log.Logged("at access level 1 may not change FAC (access group 5)"));
    for (const EAccessLevel level : {ACCESS_FACTORY, ACCESS_PROTECTED}) {
        ASSERT_TRUE(server.SetClientAccessLevel(client->id, level));
        EXPECT_EQ(Result(*client, "set", R"(["FAC",3])"), 3) << level;
    }
    EXPECT_EQ(Control("FAC").GetValue(), 3);
}
