#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "CException.h"
#include "TempRoot.h"
#include "ipc/CDomainSocket.h"
#include "log/CLogSyslog.h"
#include "log/CLogger.h"

namespace {

std::string Receive(CDomainSocket& node) {
    unsigned char buffer[512];
    const int length = node.RecvFromNoBlock(buffer, sizeof buffer, 0, nullptr);
    return std::string(reinterpret_cast<const char*>(buffer), static_cast<size_t>(length > 0 ? length : 0));
}

TEST(CLogSyslog, SendsEachLineAsOneDatagramToDevLog) {
    CTempRoot root;
    root.MakeDir("/dev");
    CDomainSocket node(root.Path("/dev/log").c_str());
    CLogSyslog sink;
    CLogger logger;
    logger.Initialize("syslogd-test");
    logger.AddLogRule(LOG_LEVEL_ERROR, &sink);
    logger.AddLogRule(LOG_LEVEL_DEBUG, &sink);
    logger.LogError("first %d", 1);
    logger.LogDebug("second");

    using ::testing::MatchesRegex;
    EXPECT_THAT(Receive(node),
                MatchesRegex("<134>[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}\\.[0-9]{3} ERR  syslogd-test: first 1"));
    EXPECT_THAT(Receive(node), MatchesRegex("<134>.* DBG  syslogd-test: second"));
    EXPECT_EQ(Receive(node), "");
}

TEST(CLogSyslog, MissingNodeDoesNotStopLogging) {
    CTempRoot root;
    CLogSyslog sink;
    EXPECT_THROW(sink.Write("direct", LOG_LEVEL_INFO, FYI_GENERAL), CException);
    CLogger logger;
    logger.AddLogRule(LOG_LEVEL_INFO, &sink);
    EXPECT_NO_THROW(logger.Log("nobody listens"));
}

}  // namespace
