// Arbitrary bytes down the JSON-RPC request path: NUL framing, then Handler::Process.
//
// The first input byte picks where the rest is cut into two Add calls (and the client
// id), so whole and split deliveries are both exercised; the framer's cap is small
// enough for long inputs to pass it. One handler lives for the whole run, with three
// methods: "echo" answers its params as its result (directly too), "throw" throws,
// "silent" leaves the response null.
//
// Checked for every message (a violation aborts):
//  - the framer accounts for every byte: messages, their NULs and the tail make the input;
//  - Process does not throw;
//  - a response serialises and parses back (strictly) to an equal value, and the compact
//    writer writes the request and the response byte for byte as jsoncpp's stream writer;
//  - text that a reader with the handler's settings refuses is answered with the parse
//    error, and only such text is; text the quick reader takes, that reader takes too,
//    and to an equal value; text the direct reader takes, that reader reads to an object
//    of exactly those four members, its id written back as the direct reader's id text;
//  - the text answer (Handler::Answer) is the compact text of Process's answer;
//  - a single request is answered, if at all, by an object with "jsonrpc":"2.0", an "id"
//    and one of "result" or "error"; a request with an id to any method but "silent" is
//    answered, with that id when it is a string, number or null; a valid notification is
//    not; "echo" answers its params unchanged;
//  - a batch is answered by null or a non-empty array of such objects, or one -32600.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>

#include "jsonrpc/DirectRequest.h"
#include "jsonrpc/Handler.h"
#include "jsonrpc/NulFramer.h"
#include "jsonrpc/QuickReader.h"
#include "jsonrpc/RpcMethod.h"

namespace {

struct Methods {
    bool Echo(const Json::Value& request, Json::Value& response) {
        response["jsonrpc"] = "2.0";
        response["id"] = request["id"];
        response["result"] = request.get("params", Json::Value());
        return true;
    }
    bool Throw(const Json::Value&, Json::Value& response) {
        response["result"] = 1;
        throw std::runtime_error("fuzz");
    }
    // Writes the params back from the parts, as Echo's compact answer has them.
    bool EchoDirect(const Json::Rpc::SDirectRequest& request, int, std::string& reply) {
        const bool hasValue = request.valueKind != Json::Rpc::SDirectRequest::EValue::kNone;
        const std::string param = '"' + std::string(request.param) + '"';
        const std::string value = request.valueKind == Json::Rpc::SDirectRequest::EValue::kString
                                      ? '"' + std::string(request.value) + '"'
                                      : std::string(request.value);
        std::string result;
        if (!request.paramsObject) {
            result = "[" + param + (hasValue ? "," + value : "") + "]";
        } else {
            std::string first = '"' + std::string(request.member) + "\":" + param;
            std::string second = '"' + std::string(request.valueMember) + "\":" + value;
            if (hasValue && request.valueMember < request.member) {
                first.swap(second);  // members in name order
            }
            result = "{" + first + (hasValue ? "," + second : "") + "}";
        }
        reply += R"({"id":)" + std::string(request.idText) + R"(,"jsonrpc":"2.0","result":)" + result + "}";
        return true;
    }
    bool Silent(const Json::Value&, Json::Value&) { return true; }
};

Json::Rpc::Handler& GetHandler() {
    static Methods methods;
    static Json::Rpc::Handler* handler = [] {
        auto* h = new Json::Rpc::Handler;
        h->AddMethod(new Json::Rpc::RpcMethod<Methods>(methods, &Methods::Echo, "echo", Json::Value(),
                                                       &Methods::EchoDirect));
        h->AddMethod(new Json::Rpc::RpcMethod<Methods>(methods, &Methods::Throw, "throw"));
        h->AddMethod(new Json::Rpc::RpcMethod<Methods>(methods, &Methods::Silent, "silent"));
        return h;
    }();
    return *handler;
}

// A reader with the handler's settings; stackLimit is a parameter since answers nest
// deeper than their requests.
std::unique_ptr<Json::CharReader> MakeReader(int stackLimit) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["strictRoot"] = false;
    builder["stackLimit"] = stackLimit;
    return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

bool Parse(Json::CharReader& reader, const std::string& text, Json::Value& value) {
    try {
        return reader.parse(text.data(), text.data() + text.size(), &value, nullptr);
    } catch (const std::exception&) {
        return false;
    }
}

void Check(bool condition) {
    if (!condition) {
        abort();
    }
}

bool IsAnswer(const Json::Value& answer) {
    return answer.isObject() && answer["jsonrpc"] == "2.0" && answer.isMember("id") &&
           answer.isMember("result") != answer.isMember("error");
}

bool IsError(const Json::Value& answer, int code) {
    return IsAnswer(answer) && answer["error"]["code"] == code;
}

void CheckSingle(const Json::Value& request, const Json::Value& response) {
    if (!response.isNull()) {
        Check(IsAnswer(response));
    }
    if (!request.isObject()) {
        Check(IsError(response, Json::Rpc::INVALID_REQUEST));
        return;
    }
    const Json::Value& method = request["method"];
    const bool wellFormed = request["jsonrpc"] == "2.0" && method.isString();
    if (request.isMember("id")) {
        Check(method == "silent" || !response.isNull());
    } else if (wellFormed) {
        Check(response.isNull());
    }
    const Json::Value& id = request["id"];
    const bool answerable = request.isMember("id") && (id.isNull() || id.isNumeric() || id.isString());
    const Json::Value& params = request["params"];
    if (answerable && !response.isNull()) {
        Check(response["id"] == id);
    }
    if (wellFormed && answerable && method == "echo" && (params.isArray() || params.isObject())) {
        Check(response["result"] == params);
    }
}

// The replies' own writer against jsoncpp's, configured as the replies were written before.
void CheckWriter(const Json::Value& value) {
    static const Json::StreamWriterBuilder builder = [] {
        Json::StreamWriterBuilder b;
        b["indentation"] = "";
        b["commentStyle"] = "None";
        b["emitUTF8"] = true;
        return b;
    }();
    Check(Json::Rpc::Handler::GetString(value) == Json::writeString(builder, value));
}

void CheckDirect(const Json::Rpc::SDirectRequest& direct, bool parsed, const Json::Value& request) {
    Check(parsed && request.isObject() && request.size() == 4 && request["jsonrpc"] == "2.0" &&
          request["method"] == std::string(direct.method) &&
          Json::Rpc::Handler::GetString(request["id"]) == direct.idText);
    const Json::Value& params = request["params"];
    const std::string param(direct.param);
    using EValue = Json::Rpc::SDirectRequest::EValue;
    const bool hasValue = direct.valueKind != EValue::kNone;
    const Json::Value value = direct.valueKind == EValue::kString ? Json::Value(std::string(direct.value))
                              : direct.valueKind == EValue::kBool ? Json::Value(direct.number != 0)
                                                                  : Json::Value(direct.number);
    const Json::ArrayIndex size = hasValue ? 2 : 1;
    if (direct.paramsObject) {
        Check(params.isObject() && params.size() == size && params[std::string(direct.member)] == param &&
              (!hasValue || params[std::string(direct.valueMember)] == value));
    } else {
        Check(params.isArray() && params.size() == size && params[0] == param && (!hasValue || params[1] == value));
    }
}

void CheckMessage(const std::string& text, int clientId) {
    static const std::unique_ptr<Json::CharReader> requestReader = MakeReader(Json::Rpc::Handler::kMaxDepth);
    static const std::unique_ptr<Json::CharReader> answerReader = MakeReader(4 * Json::Rpc::Handler::kMaxDepth);

    Json::Value response;
    try {
        GetHandler().Process(text, response, clientId);
    } catch (...) {
        abort();
    }
    std::string answer;
    if (!response.isNull()) {
        answer = Json::Rpc::Handler::GetString(response);
        Json::Value back;
        Check(Parse(*answerReader, answer, back) && back == response);
        CheckWriter(response);
    }
    std::string textAnswer;
    GetHandler().Answer(text, textAnswer, clientId);
    Check(textAnswer == answer);

    Json::Value request;
    const bool parsed = Parse(*requestReader, text, request);
    Json::Value quick;
    if (Json::Rpc::ReadQuick(text.data(), text.data() + text.size(), quick)) {
        Check(parsed && quick == request);
    }
    Json::Rpc::SDirectRequest direct;
    if (Json::Rpc::ReadDirect(text, direct)) {
        CheckDirect(direct, parsed, request);
    }
    if (!parsed) {
        Check(IsError(response, Json::Rpc::PARSE_ERROR) && response["id"].isNull());
        return;
    }
    CheckWriter(request);
    Check(!IsError(response, Json::Rpc::PARSE_ERROR));
    if (!request.isArray()) {
        CheckSingle(request, response);
    } else if (request.empty() || request.size() > Json::Rpc::Handler::kMaxBatch) {
        Check(IsError(response, Json::Rpc::INVALID_REQUEST));
    } else if (!response.isNull()) {
        Check(response.isArray() && !response.empty() && response.size() <= request.size());
        for (const Json::Value& answer : response) {
            Check(IsAnswer(answer));
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const char* stream = reinterpret_cast<const char*>(data + 1);
    const size_t length = size - 1;
    const size_t cut = length * data[0] / 255;
    const int clientId = data[0] % 7;

    CNulFramer framer(1024);
    std::deque<std::string> messages;
    const bool kept = framer.Add(stream, cut, messages) && framer.Add(stream + cut, length - cut, messages);
    if (kept) {
        size_t total = framer.GetPendingSize();
        for (const std::string& message : messages) {
            total += message.size() + 1;
        }
        Check(total == length);
    }
    for (const std::string& message : messages) {
        Check(message.find('\0') == std::string::npos);
        CheckMessage(message, clientId);
    }
    return 0;
}
