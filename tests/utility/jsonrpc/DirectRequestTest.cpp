// The direct request reader: the usual request shape read into its parts, and everything
// whose answer could differ from the general way's declined. (The JSON-RPC fuzz target
// holds what it takes to jsoncpp's reader on every input it reaches.)

#include <gtest/gtest.h>

#include <string>

#include "jsonrpc/DirectRequest.h"

using Json::Rpc::ReadDirect;
using Json::Rpc::SDirectRequest;

TEST(DirectRequestTest, UsualShapesAreReadIntoTheirPartsInAnyOrderAndWithBlanks) {
    SDirectRequest request;
    ASSERT_TRUE(ReadDirect(R"({"jsonrpc":"2.0","id":17,"method":"control:get","params":["BRI"]})", request));
    EXPECT_EQ(request.method, "control:get");
    EXPECT_EQ(request.idText, "17");
    EXPECT_FALSE(request.paramsObject);
    EXPECT_EQ(request.param, "BRI");

    ASSERT_TRUE(ReadDirect(" {\"params\" : {\"code\": \"gio+stat\"},\r\n\t\"id\": \"a b\", \"method\":\"get\","
                           "\"jsonrpc\":\"2.0\"} \n",
                           request));
    EXPECT_EQ(request.method, "get");
    EXPECT_EQ(request.idText, R"("a b")");
    EXPECT_TRUE(request.paramsObject);
    EXPECT_EQ(request.member, "code");
    EXPECT_EQ(request.param, "gio+stat");

    ASSERT_TRUE(ReadDirect(R"({"jsonrpc":"2.0","id":-123456789012345678,"method":"","params":[""]})", request));
    EXPECT_EQ(request.idText, "-123456789012345678");
    EXPECT_EQ(request.param, "");
    EXPECT_EQ(request.valueKind, SDirectRequest::EValue::kNone);
}

TEST(DirectRequestTest, ASecondParameterIsReadAsItsKind) {
    using EValue = SDirectRequest::EValue;
    const std::string head = R"({"jsonrpc":"2.0","id":1,"method":"set","params":)";
    const struct {
        std::string params;
        EValue kind;
        int number;
        std::string value;
    } cases[] = {{R"(["BRI", 40])", EValue::kInteger, 40, "40"},
                 {R"(["BRI",-999999999])", EValue::kInteger, -999999999, "-999999999"},
                 {R"(["BRI",0])", EValue::kInteger, 0, "0"},
                 {R"({"code":"LMP" , "value" : true})", EValue::kBool, 1, "true"},
                 {R"(["LMP",false])", EValue::kBool, 0, "false"},
                 {R"({"value":"Booth 3","code":"NAM"})", EValue::kString, 0, "NAM"}};
    // The parts are views into the text, so each text outlives the checks of its parts.
    for (const auto& c : cases) {
        const std::string text = head + c.params + "}";
        SDirectRequest request;
        ASSERT_TRUE(ReadDirect(text, request)) << c.params;
        EXPECT_EQ(request.valueKind, c.kind) << c.params;
        EXPECT_EQ(request.number, c.number) << c.params;
        EXPECT_EQ(request.value, c.value) << c.params;
    }
    const std::string withValue = head + R"({"code":"BRI","value":7})" + "}";
    SDirectRequest request;
    ASSERT_TRUE(ReadDirect(withValue, request));
    EXPECT_EQ(request.member, "code");
    EXPECT_EQ(request.valueMember, "value");
    // Read again without a value, the parts of the last request are gone.
    const std::string withoutValue = head + R"(["BRI"])" + "}";
    ASSERT_TRUE(ReadDirect(withoutValue, request));
    EXPECT_EQ(request.valueKind, SDirectRequest::EValue::kNone);
    EXPECT_EQ(request.valueMember, "");
}

TEST(DirectRequestTest, WhatTheTextAloneCannotAnswerIsDeclined) {
    const std::string head = R"({"jsonrpc":"2.0","method":"get",)";
    const std::string texts[] = {
        // ids that would not be written back as they stand, or are no ids at all
        head + R"("id":007,"params":["BRI"]})", head + R"("id":-0,"params":["BRI"]})",
        head + R"("id":1.0,"params":["BRI"]})", head + R"("id":1e3,"params":["BRI"]})",
        head + R"("id":1234567890123456789,"params":["BRI"]})", head + R"("id":null,"params":["BRI"]})",
        head + R"("id":true,"params":["BRI"]})", head + R"("id":"\u0041","params":["BRI"]})",
        // strings with something to unescape or a byte outside printable ASCII
        head + R"("id":1,"params":["B\"RI"]})", head + "\"id\":1,\"params\":[\"B\tRI\"]}",
        head + "\"id\":1,\"params\":[\"\xC3\xA9\"]}", head + "\"id\":1,\"params\":[\"\x7F\"]}",
        // other params
        head + R"("id":1,"params":["BRI",1,2]})", head + R"("id":1,"params":[]})",
        head + R"("id":1,"params":{}})", head + R"("id":1,"params":{"code":"BRI","code":1}})",
        head + R"("id":1,"params":[5]})", head + R"("id":1,"params":"BRI"})",
        // second parameters that are not a plain integer, bool or string
        head + R"("id":1,"params":["BRI",1234567890]})", head + R"("id":1,"params":["BRI",007]})",
        head + R"("id":1,"params":["BRI",-0]})", head + R"("id":1,"params":["BRI",1.5]})",
        head + R"("id":1,"params":["BRI",1e2]})", head + R"("id":1,"params":["BRI",null]})",
        head + R"("id":1,"params":["BRI",truex]})", head + R"("id":1,"params":["BRI",[1]]})",
        head + R"("id":1,"params":["BRI","
"]})", head + R"("id":1,"params":["BRI",-]})",
        // members missing, repeated or unknown; another version; not the whole text
        head + R"("params":["BRI"]})", head + R"("id":1,"id":2,"params":["BRI"]})",
        head + R"("id":1,"params":["BRI"],"fd":3})", R"({"jsonrpc":"1.0","method":"get","id":1,"params":["BRI"]})",
        head + R"("id":1,"params":["BRI"]} x)", head + R"("id":1,"params":["BRI"],})",
        std::string(R"({"jsonrpc":"2.0","method":"get","id":1,"params":["BRI"]})") + '\0',
        "[" + head + R"("id":1,"params":["BRI"]}])"};
    for (const std::string& text : texts) {
        SDirectRequest request;
        EXPECT_FALSE(ReadDirect(text, request)) << text;
    }
}

TEST(DirectRequestTest, EveryTruncatedRequestIsDeclined) {
    const std::string text = R"({"jsonrpc":"2.0","id":"q","method":"set","params":{"code":"BRI","value":12}})";
    SDirectRequest request;
    ASSERT_TRUE(ReadDirect(text, request));
    for (size_t length = 0; length < text.size(); ++length) {
        EXPECT_FALSE(ReadDirect(std::string_view(text.data(), length), request)) << length;
    }
}
