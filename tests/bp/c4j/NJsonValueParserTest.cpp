#include <gtest/gtest.h>

#include <json/json.h>

#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "JsonText.h"
#include "NJsonValueParser.h"

namespace {

using namespace NJsonValueParser;

// One element text, placed both as [X] and as {"v": X}, and what every reader form of one
// number type must make of it: the value, else the given default (0 for the one-result form).
struct SNumberCase {
    const char* element;
    bool found;
    long long value;
};

template <typename T, typename FromObj, typename FromArray2, typename FromArray>
void CheckReaders(std::initializer_list<SNumberCase> cases, T fallback, FromObj fromObj, FromArray2 fromArray2,
                  FromArray fromArray) {
    for (const SNumberCase& c : cases) {
        SCOPED_TRACE(c.element);
        const Json::Value array = J(std::string("[") + c.element + "]");
        const T expected = c.found ? static_cast<T>(c.value) : fallback;
        EXPECT_EQ(fromObj(J(std::string("{\"v\":") + c.element + "}"), "v", fallback), std::make_pair(c.found, expected));
        EXPECT_EQ(fromArray2(array, 0, fallback), std::make_pair(c.found, expected));
        EXPECT_EQ(fromArray(array, 0), c.found ? expected : T(0));
    }
}

TEST(NJsonValueParserTest, IntReadersAcceptWholeNumbersInRangeOnly) {
    CheckReaders({{"3", true, 3},            {"-7", true, -7},          {"3.0", true, 3},
                  {"-0.0", true, 0},         {"2147483647", true, INT_MAX}, {"-2147483648", true, INT_MIN},
                  {"3.5", false, 0},         {"1e20", false, 0},        {"2147483648", false, 0},
                  {"-2147483649", false, 0}, {"true", false, 0},        {"\"3\"", false, 0},
                  {"null", false, 0},        {"[3]", false, 0}},
                 -99, GetIntFromObj, GetIntFromArray2, GetIntFromArray);
}

TEST(NJsonValueParserTest, UIntReadersRefuseNegativesAndValuesBeyondUnsignedRange) {
    CheckReaders({{"0", true, 0},    {"4294967295", true, UINT_MAX}, {"7.0", true, 7},
                  {"-1", false, 0},  {"-1.0", false, 0},             {"4294967296", false, 0},
                  {"0.5", false, 0}, {"false", false, 0},            {"\"7\"", false, 0}},
                 99u, GetUIntFromObj, GetUIntFromArray2, GetUIntFromArray);
}

TEST(NJsonValueParserTest, BoolAndStringReadersAcceptTheirOwnKindOnly) {
    const Json::Value array = J(R"([true, false, 1, 0, "true", null])");
    EXPECT_EQ(GetBoolFromArray2(array, 1, true), std::make_pair(true, false));
    for (Json::ArrayIndex i : {2u, 3u, 4u, 5u, 6u}) {
        EXPECT_EQ(GetBoolFromArray2(array, i, true), std::make_pair(false, true)) << i;
        EXPECT_FALSE(GetBoolFromArray(array, i)) << i;
    }
    EXPECT_TRUE(GetBoolFromArray(array, 0));
    const Json::Value object = J(R"({"t": true, "one": 1, "name": "proj", "port": 7000})");
    EXPECT_EQ(GetBoolFromObj(object, "t", false), std::make_pair(true, true));
    EXPECT_EQ(GetBoolFromObj(object, "one", false), std::make_pair(false, false));
    EXPECT_EQ(GetBoolFromObj(object, "name", false), std::make_pair(false, false));

    const Json::Value texts = J(R"(["BRI", "", 5, null])");
    EXPECT_EQ(GetStringFromArray(texts, 0), "BRI");
    EXPECT_EQ(GetStringFromArray2(texts, 1, "d"), std::make_pair(true, std::string()));
    EXPECT_EQ(GetStringFromArray2(texts, 2, "d"), std::make_pair(false, std::string("d")));
    EXPECT_EQ(GetStringFromArray(texts, 3), "");
    EXPECT_EQ(GetStringFromObj(object, "name", "d"), std::make_pair(true, std::string("proj")));
    EXPECT_EQ(GetStringFromObj(object, "port", "d"), std::make_pair(false, std::string("d")));
}

// Reading through the wrong container must neither throw (jsoncpp asserts on operator[]
// of the wrong kind) nor find anything.
TEST(NJsonValueParserTest, WrongContainersAndMissingElementsGiveTheDefault) {
    const char* notArrays[] = {"5", "\"abc\"", "null", "true", R"({"0": 1})"};
    for (const char* text : notArrays) {
        SCOPED_TRACE(text);
        const Json::Value container = J(text);
        EXPECT_FALSE(ValueExistInArray(container, 0));
        EXPECT_EQ(GetIntFromArray2(container, 0, 4), std::make_pair(false, 4));
        EXPECT_EQ(GetStringFromArray(container, 0), "");
    }
    const char* notObjects[] = {"5", "\"abc\"", "null", R"(["v"])"};
    for (const char* text : notObjects) {
        SCOPED_TRACE(text);
        const Json::Value container = J(text);
        EXPECT_FALSE(ValueExistInObj(container, "v"));
        EXPECT_EQ(GetUIntFromObj(container, "v", 4u), std::make_pair(false, 4u));
        EXPECT_TRUE(GetObjFromObj(container, "v").isNull());
        EXPECT_TRUE(GetStringsFromObj(container, "v").empty());
    }
    const Json::Value array = J("[1, null]");
    EXPECT_TRUE(ValueExistInArray(array, 1));  // a null element is still there
    EXPECT_FALSE(ValueExistInArray(array, 2));
    EXPECT_EQ(GetIntFromArray2(array, 0xFFFFFFFFu, 4), std::make_pair(false, 4));
    const Json::Value object = J(R"({"v": null})");
    EXPECT_TRUE(ValueExistInObj(object, "v"));
    EXPECT_FALSE(ValueExistInObj(object, "w"));
    EXPECT_EQ(GetBoolFromObj(object, "w", true), std::make_pair(false, true));
}

TEST(NJsonValueParserTest, ArrayObjectAndStringsMembersAreReturnedOnlyWithTheirKind) {
    Json::Value object = J(R"({"list": [1, "a"], "map": {"k": 2}, "n": 3})");
    EXPECT_EQ(GetArrayFromObj(object, "list"), J(R"([1, "a"])"));
    EXPECT_TRUE(GetArrayFromObj(object, "map").isNull());
    EXPECT_TRUE(GetArrayFromObj(object, "n").isNull());
    EXPECT_EQ(GetObjFromObj(object, "map"), J(R"({"k": 2})"));
    EXPECT_TRUE(GetObjFromObj(object, "list").isNull());
    EXPECT_TRUE(GetObjFromObj(object, "missing").isNull());

    // Strings take one text or the texts of a list.
    object = J(R"({"one": "BRI", "list": ["BRI", "CON"], "mixed": [1, "CON", null, "BRI"], "number": 5, "map": {"a": "b"}})");
    using Texts = std::vector<std::string>;
    EXPECT_EQ(GetStringsFromObj(object, "one"), Texts({"BRI"}));
    EXPECT_EQ(GetStringsFromObj(object, "list"), Texts({"BRI", "CON"}));
    EXPECT_EQ(GetStringsFromObj(object, "mixed"), Texts({"CON", "BRI"}));
    EXPECT_EQ(GetStringsFromObj(object, "number"), Texts());
    EXPECT_EQ(GetStringsFromObj(object, "map"), Texts());
    EXPECT_EQ(GetStringsFromObj(object, "missing"), Texts());
}

TEST(NJsonValueParserTest, CodeOfARequestIsTheFirstParameterOrCodeMemberInUpperCaseAsciiOnly) {
    const std::pair<const char*, const char*> cases[] = {
        {R"(["summ"])", "SUMM"},  {R"({"code": "gio+stat"})", "GIO+STAT"}, {R"(["Bri", 5])", "BRI"},
        {"5", ""},                {R"("bri")", ""},                         {"[]", ""},
        {"[5]", ""},              {R"({"code": 5})", ""},                   {R"({"name": "bri"})", ""},
        {"null", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(GetCodeFromParams(J(c.first)), c.second) << c.first;
    }
    // ParseCode upper-cases ASCII only and leaves the code alone on non-strings.
    std::string code = "OLD";
    EXPECT_FALSE(ParseCode(Json::Value(12), code));
    EXPECT_EQ(code, "OLD");
    EXPECT_TRUE(ParseCode(Json::Value("net+port_2\xC3\xA9"), code));
    EXPECT_EQ(code, "NET+PORT_2\xC3\xA9");
}

}  // namespace
