#pragma once
// CRpc: a JSON-RPC connection to a virtual projector under test, one request at a time.

#include <gtest/gtest.h>
#include <json/json.h>

#include <string>

#include "CJsonRpcTcpClient.h"
#include "JsonText.h"

class CRpc {
public:
    explicit CRpc(int port) : m_client("127.0.0.1", static_cast<unsigned short>(port)) {}

    // The whole response object of one request (no notification may come before it).
    Json::Value Call(const std::string& method, const std::string& params = "") {
        Json::Value request = J(R"({"jsonrpc": "2.0"})");
        request["id"] = ++m_id;
        request["method"] = method;
        if (!params.empty()) {
            request["params"] = J(params);
        }
        m_client.Send(Json::writeString(Json::StreamWriterBuilder(), request));
        const Json::Value response = Next();
        EXPECT_EQ(response["id"], m_id) << method << ": " << response;
        return response;
    }
    // The next message from the server, or null after 10 s.
    Json::Value Next() {
        std::string text;
        return m_client.Recv(text, 10000) ? J(text) : Json::Value();
    }

private:
    CJsonRpcTcpClient m_client;
    int m_id = 0;
};
