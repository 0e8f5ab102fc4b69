#include "jsonrpc/Handler.h"

#include "jsonrpc/CompactWriter.h"
#include "jsonrpc/DirectRequest.h"
#include "jsonrpc/QuickReader.h"

#include <new>
#include <string>
#include <utility>

namespace Json {
namespace Rpc {

namespace {

std::unique_ptr<Json::CharReader> MakeReader() {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    builder["allowComments"] = false;
    builder["allowTrailingCommas"] = false;
    builder["strictRoot"] = false;  // a bare value parses, to be refused as an invalid request
    builder["allowDroppedNullPlaceholders"] = false;
    builder["allowNumericKeys"] = false;
    builder["allowSingleQuotes"] = false;
    builder["allowSpecialFloats"] = false;
    builder["failIfExtra"] = true;
    // {"id":1,"id":2} would leave it to the reader which id the answer carries.
    builder["rejectDupKeys"] = true;
    builder["skipBom"] = false;
    builder["stackLimit"] = Handler::kMaxDepth;
    return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

bool IsMember(const Json::Value& object, const char* name, const Json::Value*& member) {
    member = object.find(name, name + std::char_traits<char>::length(name));
    return member != nullptr;
}

// A string value equal to text, read in place.
bool IsText(const Json::Value& value, const char* text) {
    const char* begin = nullptr;
    const char* end = nullptr;
    const size_t length = std::char_traits<char>::length(text);
    return value.getString(&begin, &end) && static_cast<size_t>(end - begin) == length &&
           std::char_traits<char>::compare(begin, text, length) == 0;
}

bool IsValidId(const Json::Value& id) {
    switch (id.type()) {
        case Json::nullValue:
        case Json::intValue:
        case Json::uintValue:
        case Json::realValue:
        case Json::stringValue:
            return true;
        default:
            return false;
    }
}

}  // namespace

Handler::Handler() : m_reader(MakeReader()) {}

Handler::~Handler() = default;

void Handler::AddMethod(CallbackMethod* method) {
    if (!method) {
        return;
    }
    SMethod entry{std::make_unique<const std::string>(method->GetName()), std::shared_ptr<CallbackMethod>(method)};
    // The key views the entry's own name, so the entry it replaces goes first.
    m_methods.erase(*entry.name);
    const std::string_view key(*entry.name);
    m_methods.emplace(key, std::move(entry));
}

void Handler::DeleteMethod(const std::string& name) { m_methods.erase(name); }

bool Handler::HasMethod(const std::string& name) const { return m_methods.count(name) != 0; }

Json::Value Handler::GetDescriptions() const {
    Json::Value descriptions(Json::objectValue);
    for (const auto& entry : m_methods) {
        descriptions[*entry.second.name] = entry.second.method->GetDescription();
    }
    return descriptions;
}

void Handler::Process(const std::string& text, Json::Value& response, int clientId) {
    Json::Value request;
    bool parsed = false;
    // The reader takes a NUL for the end of the text: "{}\0junk" must not pass as "{}".
    if (text.find('\0') == std::string::npos) {
        try {
            // No error text asked for: the answer carries none, and formatting it is slow.
            parsed = ReadQuick(text.data(), text.data() + text.size(), request);
            if (!parsed) {
                request = Json::Value();  // what the quick reader declined, the full one decides
                parsed = m_reader->parse(text.data(), text.data() + text.size(), &request, nullptr);
            }
        } catch (const std::exception&) {
            parsed = false;  // the reader throws, rather than fails, past its stack limit
        }
    }
    if (!parsed) {
        try {
            response = MakeError(Json::Value(), PARSE_ERROR, "Parse error");
        } catch (const std::bad_alloc&) {
            response = Json::Value();
        }
        return;
    }
    ProcessOwned(request, response, clientId);
}

void Handler::Answer(const std::string& text, std::string& reply, int clientId) {
    const size_t before = reply.size();
    SDirectRequest direct;
    if (ReadDirect(text, direct)) {
        const auto entry = m_methods.find(direct.method);
        if (entry != m_methods.end()) {
            const std::shared_ptr<CallbackMethod> method = entry->second.method;
            try {
                if (method->CallDirect(direct, clientId, reply)) {
                    return;
                }
            } catch (...) {
                // The general way calls the method again and answers what it throws.
            }
            reply.resize(before);
        }
    }
    Json::Value response;
    Process(text, response, clientId);
    if (response.isNull()) {
        return;
    }
    try {
        AppendCompact(response, reply);
    } catch (const std::bad_alloc&) {
        reply.resize(before);  // out of memory, nothing is sent
    }
}

void Handler::Process(const Json::Value& request, Json::Value& response, int clientId) {
    // A copy of its own: the caller may pass one value as both arguments, and the methods
    // get the client id written into their request.
    Json::Value owned = request;
    ProcessOwned(owned, response, clientId);
}

void Handler::ProcessOwned(Json::Value& request, Json::Value& response, int clientId) {
    Json::Value answer;
    try {
        if (!request.isArray()) {
            ProcessOne(request, answer, clientId);
        } else if (request.empty() || request.size() > kMaxBatch) {
            answer = MakeError(Json::Value(), INVALID_REQUEST, "Invalid Request");
        } else {
            for (Json::Value& member : request) {
                Json::Value one;
                ProcessOne(member, one, clientId);
                if (!one.isNull()) {
                    answer.append(std::move(one));
                }
            }
        }
    } catch (const std::bad_alloc&) {
        answer = Json::Value();
    }
    response.swap(answer);
}

void Handler::ProcessOne(Json::Value& request, Json::Value& response, int clientId) {
    response = Json::Value();
    if (!request.isObject()) {
        response = MakeError(Json::Value(), INVALID_REQUEST, "Invalid Request");
        return;
    }
    const Json::Value* id = nullptr;
    const Json::Value* version = nullptr;
    const Json::Value* name = nullptr;
    const Json::Value* params = nullptr;
    const bool hasId = IsMember(request, "id", id);
    if ((hasId && !IsValidId(*id)) || !IsMember(request, "jsonrpc", version) || !IsText(*version, "2.0") || !IsMember(request, "method", name) || !name->isString()) {
        response = MakeError(hasId && IsValidId(*id) ? *id : Json::Value(), INVALID_REQUEST, "Invalid Request");
        return;
    }
    const char* begin = nullptr;
    const char* end = nullptr;
    name->getString(&begin, &end);
    const auto entry = m_methods.find(std::string_view(begin, static_cast<size_t>(end - begin)));
    if (entry == m_methods.end()) {
        if (hasId) {
            response = MakeError(*id, METHOD_NOT_FOUND, "Method not found");
        }
        return;
    }
    if (IsMember(request, "params", params) && !params->isArray() && !params->isObject()) {
        if (hasId) {
            response = MakeError(*id, INVALID_PARAMS, "Invalid params");
        }
        return;
    }
    const std::shared_ptr<CallbackMethod> method = entry->second.method;
    Call(*method, request, response, clientId);
    if (!hasId) {
        response = Json::Value();
    }
}

void Handler::Call(CallbackMethod& method, Json::Value& request, Json::Value& response, int clientId) {
    // Written into the handler's own copy of the request, so no method sees another
    // client's id and no request is copied again for it.
    // Names and fixed texts given as static strings are kept as the literal, not copied.
    request[Json::StaticString("fd")] = clientId;
    Json::Value answer;
    bool ran = false;
    try {
        ran = method.Call(request, answer);
    } catch (...) {
        ran = false;  // whatever a method throws, the loop that called it goes on
    }
    if (ran) {
        response.swap(answer);
        return;
    }
    const Json::Value* id = nullptr;
    response = MakeError(IsMember(request, "id", id) ? *id : Json::Value(), INTERNAL_ERROR, "Internal error");
}

std::string Handler::GetString(const Json::Value& value) {
    std::string text;
    AppendCompact(value, text);
    return text;
}

Json::Value Handler::MakeError(const Json::Value& id, int code, const std::string& message) {
    Json::Value error(Json::objectValue);
    error[Json::StaticString("jsonrpc")] = Json::StaticString("2.0");
    error[Json::StaticString("id")] = id;
    error["error"]["code"] = code;
    error["error"]["message"] = message;
    return error;
}

}  // namespace Rpc
}  // namespace Json
