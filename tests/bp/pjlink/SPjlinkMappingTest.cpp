// The PJLink mapping read from a configuration: defaults for an empty one, and one clear
// message for each member that is not right.

#include <gtest/gtest.h>

#include "CException.h"
#include "JsonText.h"
#include "SPjlinkMapping.h"

TEST(SPjlinkMapping, DefaultsMapTheShippedControlsAndLampsComeFromTheConfiguration) {
    const SPjlinkMapping defaults = SPjlinkMapping::FromJson(Json::Value(), Json::Value());
    EXPECT_EQ(defaults.port, 4352);
    EXPECT_EQ(defaults.noticePort, 4352);
    EXPECT_EQ(defaults.lampPositions, std::vector<std::string>{"A1"});
    ASSERT_NE(defaults.FindInput("31"), nullptr);
    EXPECT_EQ(defaults.FindInputValue(defaults.FindInput("31")->value)->name, "HDMI");

    const SPjlinkMapping mapped = SPjlinkMapping::FromJson(
        J(R"({"port": 14352, "noticePort": 24352, "input": {"code": "SRC+MAIN", "inputs": [{"number": "6Z", "value": 9}]}})"),
        J(R"([{"position": "A1"}, {"position": "B2"}])"));
    EXPECT_EQ(mapped.port, 14352);
    EXPECT_EQ(mapped.noticePort, 24352);
    EXPECT_EQ(mapped.input, "SRC+MAIN");
    EXPECT_EQ(mapped.FindInput("6Z")->name, "Input 6Z");
    EXPECT_FALSE(SPjlinkMapping::IsClass1Input("6Z"));
    EXPECT_TRUE(SPjlinkMapping::IsClass1Input("59"));
    EXPECT_EQ(mapped.lampPositions, (std::vector<std::string>{"A1", "B2"}));
}

TEST(SPjlinkMapping, EachWrongMemberIsNamedInOneMessage) {
    const struct {
        const char* pjlink;
        const char* said;
    } cases[] = {
        {R"([1])", "\"pjlink\" must be an object"},
        {R"({"colour": 1})", "unknown member \"colour\""},
        {R"({"port": 0})", "\"port\" must be 1..65535"},
        {R"({"noticePort": "4352"})", "\"noticePort\" must be 1..65535"},
        {R"({"accessLevel": 9})", "\"accessLevel\" must be 1..6"},
        {R"({"power": "POWER"})", "\"power\" must be a control code"},
        {R"({"lampHours": "LHR+LPA1"})", "\"lampHours\" must be a control code of 3 characters"},
        {R"({"input": {"code": "INP", "inputs": [{"number": "71", "value": 1}]}})", "\"input\" must be"},
        {R"({"input": {"code": "INP", "inputs": [{"number": "11", "value": 1}, {"number": "12", "value": 1}]}})",
         "free of repeated numbers"},
        {R"({"errors": {"fan": "FAN"}})", "\"errors.fan\" must be a list"},
        {R"({"manufacturer": "a name much longer than thirty-two bytes"})", "at most 32 bytes"},
        {R"({"product": "tab\there"})", "\"product\" must be printable ASCII"},
    };
    for (const auto& test : cases) {
        try {
            SPjlinkMapping::FromJson(J(test.pjlink), Json::Value());
            ADD_FAILURE() << test.pjlink << " was taken";
        } catch (const CException& e) {
            EXPECT_NE(e.GetMessage().find(test.said), std::string::npos) << e.GetMessage();
        }
    }
}
