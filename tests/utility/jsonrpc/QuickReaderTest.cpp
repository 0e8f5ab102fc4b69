// The quick request reader against jsoncpp's reader with the handler's settings: what it
// takes it reads to the same value, kinds included; what could part the two it declines.
// (The JSON-RPC fuzz target compares them on every input it reaches.)

#include <json/json.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "jsonrpc/Handler.h"
#include "jsonrpc/QuickReader.h"

namespace {

bool Full(const std::string& text, Json::Value& value) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["strictRoot"] = false;
    builder["stackLimit"] = Json::Rpc::Handler::kMaxDepth;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    try {
        return reader->parse(text.data(), text.data() + text.size(), &value, nullptr);
    } catch (const std::exception&) {
        return false;
    }
}

bool Quick(const std::string& text, Json::Value& value) {
    return Json::Rpc::ReadQuick(text.data(), text.data() + text.size(), value);
}

TEST(QuickReaderTest, ReadsCommonRequestsAsTheFullReaderDoes) {
    const std::string deep = std::string(Json::Rpc::kMaxQuickDepth, '[') + std::string(Json::Rpc::kMaxQuickDepth, ']');
    for (const std::string& text : std::vector<std::string>{
             R"({"jsonrpc":"2.0","method":"control:get","params":{"code":"BRI"},"id":1})",
             " \t\r\n[ {\"a\" : [ ] , \"b\":{ } } , null,true ,false ] \n",
             R"([0,-0,7,-123456789012345678,123456789012345678,"",""])",
             R"({"esc":"\"\\\/\b\f\n\r\t","raw":"caf\u00e9 is not read here"})",
             std::string("{\"bytes\":\"\x01\x7f\xff\xc3\xa9\"}"),
             deep,
         }) {
        Json::Value quick;
        Json::Value full;
        const bool taken = Quick(text, quick);
        ASSERT_TRUE(Full(text, full)) << text;
        EXPECT_EQ(taken, text.find("\\u") == std::string::npos) << text;
        if (taken) {
            EXPECT_EQ(quick, full) << text;
        }
    }
}

TEST(QuickReaderTest, DeclinesWhatTheFullReaderMustDecide) {
    for (const std::string& text : std::vector<std::string>{
             "", "  ", "1", "\"text\"", "null",                               // not an object or array
             "[1.5]", "[1e3]", "[1E3]", "[01]", "[-]", "[1234567890123456789]",  // numbers
             R"(["\u0041"])", R"(["\x"])", "[\"open", "[\"ends in \\",           // strings
             R"({"a":1,"a":2})", R"({"a":1,})", "[1,]", "[1 2]", "{\"a\" 1}", "{1:2}",
             "[tru]", "[nul]", "[true false]", "{}x", "[] []", "[", "{",
             std::string(Json::Rpc::kMaxQuickDepth + 1, '[') + std::string(Json::Rpc::kMaxQuickDepth + 1, ']'),
         }) {
        Json::Value quick;
        EXPECT_FALSE(Quick(text, quick)) << text;
    }
}

}  // namespace
