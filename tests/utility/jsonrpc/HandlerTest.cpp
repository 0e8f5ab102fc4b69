// JSON-RPC 2.0 processing through a table of test methods: the protocol's error objects,
// notifications, ids, the client identifier, batches, failing methods and bounded parsing.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "jsonrpc/Handler.h"
#include "jsonrpc/RpcMethod.h"

using Json::Rpc::Handler;
using Json::Rpc::RpcMethod;

namespace {

std::string Error(int code, const std::string& message, const std::string& id) {
    return R"({"error":{"code":)" + std::to_string(code) + R"(,"message":")" + message + R"("},"id":)" + id +
           R"(,"jsonrpc":"2.0"})";
}
std::string InvalidRequest(const std::string& id) { return Error(-32600, "Invalid Request", id); }

// The methods the tests publish; each counts its calls and keeps the last request.
class Methods {
public:
    bool Echo(const Json::Value& request, Json::Value& response) {
        Record(request);
        response["jsonrpc"] = "2.0";
        response["id"] = request["id"];
        response["result"] = request.get("params", Json::Value());
        return true;
    }
    // Echo's direct answer; declines the param "decline" and throws on "throw".
    bool EchoDirect(const Json::Rpc::SDirectRequest& request, int, std::string& reply) {
        if (request.param == "decline") {
            return false;
        }
        reply += R"({"id":)" + std::string(request.idText) + R"(,"jsonrpc":"2.0","result":)";
        if (request.param == "throw") {
            throw std::runtime_error("broken");
        }
        const std::string param = '"' + std::string(request.param) + '"';
        reply += request.paramsObject ? R"({")" + std::string(request.member) + R"(":)" + param + "}}"
                                      : "[" + param + "]}";
        ++directCalls;
        return true;
    }
    bool Silent(const Json::Value& request, Json::Value&) { return Record(request); }
    bool Bare(const Json::Value& request, Json::Value& response) {
        response["result"] = 1;
        return Record(request);
    }
    bool Throw(const Json::Value& request, Json::Value& response) {
        Record(request);
        response["result"] = "half done";
        throw std::runtime_error("broken");
    }
    bool ThrowInt(const Json::Value&, Json::Value&) { throw 42; }
    bool Refuse(const Json::Value& request, Json::Value&) { return !Record(request); }

    int calls = 0;
    int directCalls = 0;
    Json::Value last;

private:
    bool Record(const Json::Value& request) {
        ++calls;
        last = request;
        return true;
    }
};

class HandlerTest : public ::testing::Test {
protected:
    HandlerTest() {
        handler.AddMethod(
            new RpcMethod<Methods>(methods, &Methods::Echo, "echo", "returns its params", &Methods::EchoDirect));
        for (const auto& [method, name] : {std::pair{&Methods::Silent, "silent"}, {&Methods::Bare, "bare"},
                                           {&Methods::Throw, "throw"}, {&Methods::ThrowInt, "throwInt"},
                                           {&Methods::Refuse, "refuse"}}) {
            handler.AddMethod(new RpcMethod<Methods>(methods, method, name));
        }
    }

    // The answer's text, "null" when nothing is to be sent.
    std::string Answer(const std::string& text) {
        Json::Value response("not touched");
        handler.Process(text, response, 42);
        return Handler::GetString(response);
    }

    Methods methods;
    Handler handler;
};

std::string Nested(size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

}  // namespace

TEST_F(HandlerTest, TextThatIsNotOneStrictJsonValueIsAParseError) {
    const std::vector<std::string> texts = {"", "{", R"({"jsonrpc":"2.0"} x)", "[1,]", "/* c */ {}",
                                            R"({"id":1,"id":2})", std::string("{}\0{}", 5), "\xEF\xBB\xBF{}",
                                            Nested(Handler::kMaxDepth + 1), Nested(10000)};
    for (const std::string& text : texts) {
        EXPECT_EQ(Answer(text), Error(-32700, "Parse error", "null")) << text.substr(0, 20);
    }
    // As deep as allowed, it parses: a batch whose one member is an array.
    EXPECT_EQ(Answer(Nested(Handler::kMaxDepth)), "[" + InvalidRequest("null") + "]");
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","id":1,"params":[]})" "\n"),
              R"({"id":1,"jsonrpc":"2.0","result":[]})");
}

TEST_F(HandlerTest, InvalidRequestsCarryTheirIdOnlyWhenItIsReadable) {
    const std::pair<std::string, std::string> cases[] = {
        {"5", "null"}, {R"("echo")", "null"}, {R"({"jsonrpc":"1.0","method":"echo","id":3})", "3"},
        {R"({"method":"echo","id":"a"})", R"("a")"}, {R"({"jsonrpc":"2.0\u0000","method":"echo","id":null})", "null"},
        {R"({"jsonrpc":"2.0","id":4})", "4"}, {R"({"jsonrpc":"2.0","method":"echo","id":true})", "null"},
        {R"({"jsonrpc":"2.0","method":"echo","id":[1]})", "null"},
        // Without an id, but not a valid request either: so not a notification.
        {R"({"jsonrpc":"2.0","method":1,"params":"bar"})", "null"}};
    for (const auto& [request, id] : cases) {
        EXPECT_EQ(Answer(request), InvalidRequest(id)) << request;
    }
    EXPECT_EQ(methods.calls, 0);
}

TEST_F(HandlerTest, UnknownMethodsAndBadParamsAreAnsweredOnlyWithAnId) {
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"nope","id":1})"), Error(-32601, "Method not found", "1"));
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","params":"x","id":2})"), Error(-32602, "Invalid params", "2"));
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","params":null,"id":3})"),
              Error(-32602, "Invalid params", "3"));
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"nope"})"), "null");
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","params":7})"), "null");
    EXPECT_EQ(methods.calls, 0);
}

TEST_F(HandlerTest, MethodThatThrowsOrRefusesIsAnInternalErrorButANotificationIsNeverAnswered) {
    for (const std::string method : {"throw", "throwInt", "refuse"}) {  // the half answer of throw is dropped
        EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":")" + method + R"(","id":"q"})"),
                  Error(-32603, "Internal error", R"("q")"));
    }
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","params":{"a":1}})"), "null");
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"throw"})"), "null");
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"refuse"})"), "null");
    EXPECT_EQ(methods.calls, 5);  // throwInt throws before counting
}

TEST_F(HandlerTest, EveryKindOfIdAndNumberIsEchoedByteForByte) {
    for (const std::string id : {R"("x")", R"("")", "0", "-5", "18446744073709551615", "1.5", "null"}) {
        EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","params":[],"id":)" + id + "}"),
                  R"({"id":)" + id + R"(,"jsonrpc":"2.0","result":[]})");
    }
    // Numbers past 32 bits come back the same on a 32-bit target.
    const std::string numbers = "[4294967296,-2147483649,9007199254740993,-9223372036854775808,0.5]";
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","params":)" + numbers + R"(,"id":1})"),
              R"({"id":1,"jsonrpc":"2.0","result":)" + numbers + "}");
}

TEST_F(HandlerTest, MethodSeesTheClientIdAsFdInPlaceOfAnySentOne) {
    Answer(R"({"jsonrpc":"2.0","method":"silent","id":1,"fd":"forged","params":{"fd":1}})");
    EXPECT_EQ(methods.last["fd"], Json::Value(42));
    EXPECT_EQ(methods.last["params"]["fd"], Json::Value(1));
}

TEST_F(HandlerTest, MethodsAnswerIsPassedOnAsTheMethodLeftIt) {
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"bare","id":1})"), R"({"result":1})");
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"silent","id":1})"), "null");
    EXPECT_EQ(methods.calls, 2);
}

TEST_F(HandlerTest, BatchIsAnsweredByItsMembersAnswersInOrder) {
    EXPECT_EQ(Answer(R"([{"jsonrpc":"2.0","method":"echo","params":[1],"id":1},
                         {"jsonrpc":"2.0","method":"echo","params":[2]},
                         {"jsonrpc":"2.0","method":"nope","id":2}, 1, [], [{"jsonrpc":"2.0","method":"echo","id":9}],
                         {"jsonrpc":"2.0","method":"silent","id":3}, {"jsonrpc":"2.0","method":"echo","id":4}])"),
              "[" R"({"id":1,"jsonrpc":"2.0","result":[1]},)"
              R"({"error":{"code":-32601,"message":"Method not found"},"id":2,"jsonrpc":"2.0"},)" +
                  InvalidRequest("null") + "," + InvalidRequest("null") + "," + InvalidRequest("null") + "," +
                  R"({"id":4,"jsonrpc":"2.0","result":null}])");
    EXPECT_EQ(methods.calls, 4);
    EXPECT_EQ(Answer("[]"), InvalidRequest("null"));
    EXPECT_EQ(Answer(R"([{"jsonrpc":"2.0","method":"silent"},{"jsonrpc":"2.0","method":"nope"}])"), "null");
    EXPECT_EQ(methods.calls, 5);
}

TEST_F(HandlerTest, BatchBeyondTheCapIsRefusedWhole) {
    std::string batch = "[";
    for (size_t i = 0; i < Handler::kMaxBatch; ++i) {
        batch += R"({"jsonrpc":"2.0","method":"silent"},)";
    }
    EXPECT_EQ(Answer(batch.substr(0, batch.size() - 1) + "]"), "null");
    EXPECT_EQ(methods.calls, static_cast<int>(Handler::kMaxBatch));
    EXPECT_EQ(Answer(batch + R"({"jsonrpc":"2.0","method":"silent"}])"), InvalidRequest("null"));
    EXPECT_EQ(methods.calls, static_cast<int>(Handler::kMaxBatch));
}

TEST_F(HandlerTest, ParsedRequestMayBeProcessedIntoItselfAndIsWrittenCompactInNameOrder) {
    Json::Value value(Json::objectValue);
    value["method"] = "echo";
    value["jsonrpc"] = "2.0";
    value["id"] = 5;
    value["params"]["x"] = true;
    handler.Process(value, value, 1);
    EXPECT_EQ(Handler::GetString(value), R"({"id":5,"jsonrpc":"2.0","result":{"x":true}})");
    value["result"] = "\xC3\xA9\n";  // UTF-8 is kept as it is
    EXPECT_EQ(Handler::GetString(value), "{\"id\":5,\"jsonrpc\":\"2.0\",\"result\":\"\xC3\xA9\\n\"}");
}

TEST_F(HandlerTest, MethodTableReplacesByNameAndSurvivesAMethodDeletingItself) {
    class SelfDeleting : public Json::Rpc::CallbackMethod {
    public:
        explicit SelfDeleting(Handler& owner) : m_owner(owner) {}
        bool Call(const Json::Value&, Json::Value& response) override {
            m_owner.DeleteMethod(GetName());
            response = m_reply;  // its own member, read after the table let go of it
            return true;
        }
        Json::Value GetDescription() const override { return Json::Value(); }
        std::string GetName() const override { return "echo"; }

    private:
        Handler& m_owner;
        Json::Value m_reply = "still here";
    };
    EXPECT_EQ(handler.GetDescriptions()["echo"], Json::Value("returns its params"));
    handler.AddMethod(new SelfDeleting(handler));
    handler.AddMethod(nullptr);
    EXPECT_EQ(handler.GetDescriptions().size(), 6u);
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","id":1})"), R"("still here")");
    EXPECT_FALSE(handler.HasMethod("echo"));
    EXPECT_TRUE(handler.HasMethod("silent"));
}

TEST_F(HandlerTest, TextAnswerIsProcesssAnswerAndTakesTheDirectWayWhereTheMethodHasOne) {
    const std::string direct = R"({"jsonrpc":"2.0","method":"echo","id":"d","params":)";
    const std::string texts[] = {direct + R"(["x"]})", direct + R"({"k":"v"}})", direct + R"(["decline"]})",
                                 direct + R"(["throw"]})", R"({"jsonrpc":"2.0","method":"bare","id":1,"params":["x"]})",
                                 R"({"jsonrpc":"2.0","method":"nope","id":1,"params":["x"]})",
                                 R"({"jsonrpc":"2.0","method":"echo","params":["x"]})",
                                 R"([{"jsonrpc":"2.0","method":"echo","id":1,"params":["x"]}])", "{"};
    for (const std::string& text : texts) {
        std::string reply = "kept";
        handler.Answer(text, reply, 42);
        const std::string general = Answer(text);
        EXPECT_EQ(reply, "kept" + (general == "null" ? "" : general)) << text;
    }
    EXPECT_EQ(methods.directCalls, 2);
}
