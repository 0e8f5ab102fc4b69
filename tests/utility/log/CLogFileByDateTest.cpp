#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <string>

#include "CException.h"
#include "TempRoot.h"
#include "ThrownMessage.h"
#include "log/CLogFileByDate.h"

namespace {

// Local noon of a calendar day; mktime normalises days outside the month.
time_t NoonOn(int year, int month, int day) {
    tm local{};
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = 12;
    local.tm_isdst = -1;
    return mktime(&local);
}

// The day shared by every file sink of the process is moved to (year, month, day) through the
// day before it, so that the final Update is a real day change whatever an earlier test left.
void ChangeDayTo(int year, int month, int day) {
    CLogFileByDate::Update(NoonOn(year, month, day - 1));
    CLogFileByDate::Update(NoonOn(year, month, day));
}

bool Exists(const std::string& path) { return std::filesystem::exists(path); }

class CLogFileByDateTest : public ::testing::Test {
protected:
    CTempRoot m_root;
    const std::string m_dir = m_root.MakeDir("/var/log/projector") + "/";
};

TEST_F(CLogFileByDateTest, FileNamedByDirectoryPrefixAndLocalDateForEverySinkOfTheProcess) {
    CLogFileByDate::Update(NoonOn(2041, 3, 14));
    CLogFileByDate control(m_dir.substr(0, m_dir.size() - 1), "control-", 7);
    EXPECT_EQ(control.GetFileName(), m_dir + "control-2041-03-14");
    EXPECT_TRUE(Exists(m_dir + "control-2041-03-14"));

    CLogFileByDate service(m_dir, "service-", 3);
    CLogFileByDate::Update(NoonOn(2041, 3, 15));  // the sinks change day together
    EXPECT_EQ(control.GetFileName(), m_dir + "control-2041-03-15");
    EXPECT_EQ(service.GetFileName(), m_dir + "service-2041-03-15");
    EXPECT_TRUE(Exists(m_dir + "control-2041-03-15"));
}

TEST_F(CLogFileByDateTest, MissingDirectoryThrowsAtStartAndAtDayChange) {
    const std::string missing = m_root.Path("/var/log/absent/");
    EXPECT_EQ(ThrownMessage([&] { CLogFileByDate sink(missing, "control-", 7); }),
              "Cannot locate log-by-date directory: " + missing);
    CLogFileByDate sink(m_dir, "control-", 7);
    std::filesystem::remove_all(m_dir);
    EXPECT_EQ(ThrownMessage([] { ChangeDayTo(2041, 5, 20); }), "Cannot locate log-by-date directory: " + m_dir);
}

TEST_F(CLogFileByDateTest, DayChangeDeletesOwnFilesKeepDaysOldUnlessKeepDaysIsZero) {
    for (const char* name : {"control-2041-07-03", "control-2041-07-04", "service-2041-06-01", "control-notes"}) {
        m_root.WriteFile("/var/log/projector/" + std::string(name), "old\n");
    }
    CLogFileByDate::Update(NoonOn(2041, 7, 9));
    CLogFileByDate sink(m_dir, "control-", 7);
    CLogFileByDate keepAll(m_dir, "service-", 0);
    EXPECT_TRUE(Exists(m_dir + "control-2041-07-03")) << "deleted before its day came";

    CLogFileByDate::Update(NoonOn(2041, 7, 10));
    EXPECT_FALSE(Exists(m_dir + "control-2041-07-03"));
    for (const char* kept : {"control-2041-07-04", "service-2041-06-01", "control-notes"}) {
        EXPECT_TRUE(Exists(m_dir + kept)) << kept;
    }
}

TEST_F(CLogFileByDateTest, SizeCountsBytesWritten) {
    CLogFileByDate sink(m_dir, "control-", 7);
    // Writing checks the real clock, so this lands in today's file.
    sink.Write("abc", LOG_LEVEL_INFO, FYI_GENERAL);
    EXPECT_EQ(sink.GetSize(), 4);
    sink.Write("hello", LOG_LEVEL_ERROR, FYI_GENERAL);
    EXPECT_EQ(sink.GetSize(), 10);
    EXPECT_EQ(CTempRoot::ReadFile(sink.GetFileName()), "abc\nhello\n");
}

}  // namespace
