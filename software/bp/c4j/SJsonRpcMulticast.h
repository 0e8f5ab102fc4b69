#pragma once
// SJsonRpcMulticast and SJsonRpcMulticastResponse: one JSON-RPC request sent to a
// multicast group, and one answer to it as a group member sent it back.
//
// Thread contract: plain values.

#include <json/json.h>

#include <string>

#include "jsonrpc/Handler.h"

struct SJsonRpcMulticast {
    std::string method;
    Json::Value params;  // null: none
    Json::Value id = 1;  // null: a notification, which no member answers

    std::string GetText() const {
        Json::Value request;
        request["jsonrpc"] = "2.0";
        request["method"] = method;
        if (!params.isNull()) {
            request["params"] = params;
        }
        if (!id.isNull()) {
            request["id"] = id;
        }
        return Json::Rpc::Handler::GetString(request);
    }
};

struct SJsonRpcMulticastResponse {
    std::string sender;  // dotted IPv4 address of the member
    std::string text;    // the answer as received

    // The answer parsed; null when it is not JSON.
    Json::Value GetValue() const {
        Json::Value value;
        std::string errors;
        std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
            return Json::Value();
        }
        return value;
    }
};
