#pragma once
// J: the JSON value of a text written in a test; a text that is not one JSON value (with
// nothing after it) fails the test that wrote it.

#include <gtest/gtest.h>
#include <json/json.h>

#include <memory>
#include <string>

inline Json::Value J(const std::string& text) {
    Json::Value value;
    std::string errors;
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
        ADD_FAILURE() << "not JSON: " << text << ": " << errors;
    }
    return value;
}
