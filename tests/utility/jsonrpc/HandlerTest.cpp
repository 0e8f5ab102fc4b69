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

const std::string kParseError = R"({"error":{"code":-32700,"message":"Parse error"},"id":null,"jsonrpc":"2.0"})";

std::string InvalidRequest(const std::string& id) {
    return R"({"error":{"code":-32600,"message":"Invalid Request"},"id":)" + id + R"(,"jsonrpc":"2.0"})";
}

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
        handler.AddMethod(new RpcMethod<Methods>(methods, &Methods::Echo, "echo", "returns its params"));
        handler.AddMethod(new RpcMethod<Methods>(methods, &Methods::Silent, "silent"));
        handler.AddMethod(new RpcMethod<Methods>(methods, &Methods::Bare, "bare"));
        handler.AddMethod(new RpcMethod<Methods>(methods, &Methods::Throw, "throw"));
        handler.AddMethod(new RpcMethod<Methods>(methods, &Methods::ThrowInt, "throwInt"));
        handler.AddMethod(new RpcMethod<Methods>(methods, &Methods::Refuse, "refuse"));
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

std::string Nested(int depth) { return std::string(depth, '[') + std::string(depth, ']'); }

}  // namespace

TEST_F(HandlerTest, TextThatIsNotOneStrictJsonValueIsAParseError) {
    const std::vector<std::string> texts = {"", "{", R"({"jsonrpc":"2.0"} x)", "[1,]", "/* c */ {}",
                                            R"({"id":1,"id":2})", std::string("{}\0{}", 5), "\xEF\xBB\xBF{}",
                                            Nested(Handler::kMaxDepth + 1), Nested(10000)};
    for (const std::string& text : texts) {
        EXPECT_EQ(Answer(text), kParseError) << text.substr(0, 20);
    }
    // As deep as allowed, it parses: a batch whose one member is an array.
    EXPECT_EQ(Answer(Nested(Handler::kMaxDepth)), "[" + InvalidRequest("null") + "]");
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","id":1,"params":[]})" "\n"),
              R"({"id":1,"jsonrpc":"2.0","result":[]})");
}

TEST_F(HandlerTest, InvalidRequestsCarryTheirIdOnlyWhenItIsReadable) {
    EXPECT_EQ(Answer("5"), InvalidRequest("null"));
    EXPECT_EQ(Answer(R"("echo")"), InvalidRequest("null"));
    EXPECT_EQ(Answer(R"({"jsonrpc":"1.0","method":"echo","id":3})"), InvalidRequest("3"));
    EXPECT_EQ(Answer(R"({"method":"echo","id":"a"})"), InvalidRequest(R"("a")"));
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0\u0000","method":"echo","id":null})"), InvalidRequest("null"));
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","id":4})"), InvalidRequest("4"));
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","id":true})"), InvalidRequest("null"));
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","id":[1]})"), InvalidRequest("null"));
    // Without an id, but not a valid request either: so not a notification.
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":1,"params":"bar"})"), InvalidRequest("null"));
    EXPECT_EQ(methods.calls, 0);
}

TEST_F(HandlerTest, UnknownMethodsAndBadParamsAreAnsweredOnlyWithAnId) {
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"nope","id":1})"),
              R"({"error":{"code":-32601,"message":"Method not found"},"id":1,"jsonrpc":"2.0"})");
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","params":"x","id":2})"),
              R"({"error":{"code":-32602,"message":"Invalid params"},"id":2,"jsonrpc":"2.0"})");
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","params":null,"id":3})"),
              R"({"error":{"code":-32602,"message":"Invalid params"},"id":3,"jsonrpc":"2.0"})");
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"nope"})"), "null");
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","params":7})"), "null");
    EXPECT_EQ(methods.calls, 0);
}

TEST_F(HandlerTest, NotificationRunsItsMethodButIsNeverAnswered) {
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","params":{"a":1}})"), "null");
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"throw"})"), "null");
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"refuse"})"), "null");
    EXPECT_EQ(methods.calls, 3);
}

TEST_F(HandlerTest, EveryKindOfIdIsEchoed) {
    for (const std::string id : {R"("x")", R"("")", "0", "-5", "18446744073709551615", "1.5", "null"}) {
        EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"echo","params":[],"id":)" + id + "}"),
                  R"({"id":)" + id + R"(,"jsonrpc":"2.0","result":[]})");
    }
}

TEST_F(HandlerTest, MethodSeesTheClientIdAsFdInPlaceOfAnySentOne) {
    Answer(R"({"jsonrpc":"2.0","method":"silent","id":1,"fd":"forged","params":{"fd":1}})");
    EXPECT_EQ(methods.last["fd"], Json::Value(42));
    EXPECT_EQ(methods.last["params"]["fd"], Json::Value(1));
}

TEST_F(HandlerTest, MethodThatThrowsOrRefusesIsAnInternalError) {
    const std::string error = R"({"error":{"code":-32603,"message":"Internal error"},"id":"q","jsonrpc":"2.0"})";
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"throw","id":"q"})"), error);  // its half answer is dropped
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"throwInt","id":"q"})"), error);
    EXPECT_EQ(Answer(R"({"jsonrpc":"2.0","method":"refuse","id":"q"})"), error);
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

TEST_F(HandlerTest, ParsedRequestMayBeProcessedIntoItself) {
    Json::Value value(Json::objectValue);
    value["jsonrpc"] = "2.0";
    value["method"] = "echo";
    value["id"] = 5;
    value["params"]["x"] = true;
    handler.Process(value, value, 1);
    EXPECT_EQ(Handler::GetString(value), R"({"id":5,"jsonrpc":"2.0","result":{"x":true}})");
}

TEST_F(HandlerTest, TextIsCompactInNameOrderWithUtf8Kept) {
    Json::Value value(Json::objectValue);
    value["result"] = 2;
    value["jsonrpc"] = "2.0";
    value["id"] = 7;
    EXPECT_EQ(Handler::GetString(value), R"({"id":7,"jsonrpc":"2.0","result":2})");
    value["result"] = "\xC3\xA9\n";
    EXPECT_EQ(Handler::GetString(value), "{\"id\":7,\"jsonrpc\":\"2.0\",\"result\":\"\xC3\xA9\\n\"}");
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
