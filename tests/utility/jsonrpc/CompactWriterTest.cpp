// The replies' compact writer against jsoncpp's stream writer, on the values where the two
// could part: escapes, raw and broken UTF-8, embedded NULs, every kind of number, nesting,
// member names that need escapes. (The JSON-RPC fuzz target compares them on every value
// it reaches.)

#include <json/json.h>

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "jsonrpc/CompactWriter.h"

namespace {

std::string Stream(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["commentStyle"] = "None";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, value);
}

std::string Compact(const Json::Value& value) {
    std::string text;
    Json::Rpc::AppendCompact(value, text);
    return text;
}

TEST(CompactWriterTest, WritesWhatTheStreamWriterWrites) {
    std::string controls;
    for (int c = 0; c < 0x20; ++c) {
        controls.push_back(static_cast<char>(c));
    }
    Json::Value object(Json::objectValue);
    object["z\"\\key\n"] = Json::Value(Json::arrayValue);
    object["a"] = Json::Value(Json::objectValue);
    object["a"]["nested"].append(1);
    object["a"]["nested"].append(Json::Value());
    object["b"] = true;
    const Json::Value values[] = {
        Json::Value(),
        Json::Value(false),
        Json::Value(std::numeric_limits<Json::Int64>::min()),
        Json::Value(std::numeric_limits<Json::Int64>::max()),
        Json::Value(std::numeric_limits<Json::UInt64>::max()),
        Json::Value(0.0),
        Json::Value(-0.0),
        Json::Value(0.1),
        Json::Value(3.0),
        Json::Value(-2.5e-300),
        Json::Value(1e300),
        Json::Value(std::nan("")),
        Json::Value(std::numeric_limits<double>::infinity()),
        Json::Value(-std::numeric_limits<double>::infinity()),
        Json::Value(""),
        Json::Value("plain / text with \x7f"),
        Json::Value(controls),
        Json::Value("quote \" backslash \\ caf\xc3\xa9 broken \xff\xfe"),
        Json::Value(std::string("nul\0inside", 10)),
        Json::Value(Json::arrayValue),
        Json::Value(Json::objectValue),
        object,
    };
    for (const Json::Value& value : values) {
        EXPECT_EQ(Stream(value), Compact(value));
    }
}

}  // namespace
