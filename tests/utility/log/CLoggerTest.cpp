#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>

#include "log/CLogBuffer.h"
#include "log/CLogger.h"

namespace {

class CLoggerTest : public ::testing::Test {
protected:
    void SetUp() override { m_logger.Initialize("unit"); }

    CLogger m_logger;
    CLogBuffer m_sink{8};
};

TEST_F(CLoggerTest, EachLevelReachesOnlyItsOwnSinkWithItsFyiCode) {
    CLogBuffer sinks[5] = {CLogBuffer(2), CLogBuffer(2), CLogBuffer(2), CLogBuffer(2), CLogBuffer(2)};
    for (int level = LOG_LEVEL_ERROR; level <= LOG_LEVEL_DEBUG; ++level) {
        m_logger.AddLogRule(static_cast<ELogLevel>(level), &sinks[level - LOG_LEVEL_ERROR]);
    }
    m_logger.LogError("e");
    m_logger.LogWarning("w");
    m_logger.LogFYI(FYI_ALARM, "f");
    m_logger.Log("i");
    m_logger.LogDebug("d");

    const char* const expected[] = {"ERR  unit: e", "WARN unit: w", "FYI  unit: f", "INFO unit: i", "DBG  unit: d"};
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(sinks[i].GetNumEntries(), 1u) << expected[i];
        EXPECT_EQ(sinks[i].GetEntry(0).level, LOG_LEVEL_ERROR + i);
        EXPECT_TRUE(std::regex_match(sinks[i].GetLine(0), std::regex(".* " + std::string(expected[i]))))
            << sinks[i].GetLine(0);
    }
    EXPECT_EQ(sinks[2].GetEntry(0).code, FYI_ALARM);

    EXPECT_TRUE(m_logger.IsLevelEnabled(LOG_LEVEL_DEBUG));
    m_logger.AddLogRule(LOG_LEVEL_DEBUG, nullptr);
    m_logger.LogDebug("gone");
    EXPECT_EQ(sinks[4].GetNumEntries(), 1u);
    EXPECT_FALSE(m_logger.IsLevelEnabled(LOG_LEVEL_DEBUG));
    EXPECT_TRUE(m_logger.IsLevelEnabled(LOG_LEVEL_INFO));
}

TEST_F(CLoggerTest, LineCarriesUtcTimestampLevelAndName) {
    // Local time runs 5:30 h off UTC here, so a local stamp cannot pass for a UTC one.
    const char* oldTz = getenv("TZ");
    const std::string savedTz = oldTz ? oldTz : "";
    setenv("TZ", "IST-5:30", 1);
    tzset();
    m_logger.AddLogRule(LOG_LEVEL_INFO, &m_sink);
    const time_t before = time(nullptr);
    m_logger.Log("lamp %s after %d h", "on", 12);
    // Not time(): it reads the kernel's coarse clock, which may still show the second
    // before the one the logger's precise clock stamped.
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t after = now.tv_sec;
    oldTz ? setenv("TZ", savedTz.c_str(), 1) : unsetenv("TZ");
    tzset();

    ASSERT_EQ(m_sink.GetNumEntries(), 1u);
    const std::string line = m_sink.GetLine(0);
    EXPECT_TRUE(std::regex_match(line, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} INFO unit: lamp on after 12 h)")))
        << line;
    tm stamp{};
    ASSERT_NE(strptime(line.c_str(), "%Y-%m-%d %H:%M:%S", &stamp), nullptr) << line;
    EXPECT_GE(timegm(&stamp), before);
    EXPECT_LE(timegm(&stamp), after);
}

TEST_F(CLoggerTest, BodyCutToMessageLengthAndEmptyBodyDropped) {
    m_logger.Initialize("short", 5);
    m_logger.AddLogRule(LOG_LEVEL_INFO, &m_sink);
    m_logger.Log("%s", "abcdefgh");
    m_logger.Log("%s", "");
    ASSERT_EQ(m_sink.GetNumEntries(), 1u);
    EXPECT_TRUE(std::regex_match(m_sink.GetLine(0), std::regex(".* INFO short: abcde"))) << m_sink.GetLine(0);
}

TEST(CLoggerRegistry, LoggersFoundByNameUntilUnregisteredOrDestroyed) {
    CLogger survivor;
    CLogger::RegisterLogger("control", &survivor);
    {
        CLogger temporary;
        CLogger::RegisterLogger("ui", &temporary);
        CLogger::RegisterLogger("alias", &temporary);
        EXPECT_EQ(CLogger::GetLoggerMap().at("ui"), &temporary);
        CLogger::RegisterLogger("alias", &survivor);  // a taken name is replaced
    }
    auto map = CLogger::GetLoggerMap();
    EXPECT_EQ(map.count("ui"), 0u);
    EXPECT_EQ(map.at("alias"), &survivor);
    EXPECT_EQ(map.at("control"), &survivor);

    CLogger::UnregisterLogger("control");
    CLogger::UnregisterLogger("alias");
    map = CLogger::GetLoggerMap();
    EXPECT_EQ(map.count("control") + map.count("alias"), 0u);
}

}  // namespace
