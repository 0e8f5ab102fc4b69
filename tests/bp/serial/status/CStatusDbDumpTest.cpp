#include <gtest/gtest.h>

#include <util/neo_hdf.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "TempRoot.h"
#include "ThrownMessage.h"
#include "status/CStatusDb.h"

namespace {

const SStatusDesc kLamp[] = {
    {1, 101, 0, "Off", 0, nullptr, 0},
    {2, 102, 0, "", 0, nullptr, 110},  // hours, shown through text 110
    {3, 103, 0, "", 0, nullptr, 111},  // a translation with a stray %s
};
const SStatusDesc kFan[] = {{7, 201, 0, "", 0, nullptr, 0}};

std::string Line(int severity, const char* label, const char* value, const char* group, int index) {
    char line[256];
    snprintf(line, sizeof line, "%03d %45s %40s (%s:%03d)", severity, label, value, group, index);
    return line;
}

class CStatusDbDumpTest : public ::testing::Test {
protected:
    CStatusDbDumpTest() : db(2, "dump", [this](int id) { return texts.at(id); }), dir(root.MakeDir("/var/run/ui")) {
        db.AddStatusGroup(kFan, 1, "Fan");
        db.AddStatusGroup(kLamp, 3, "Lamp");
    }

    // The value of `name` in the dumped file, read back through HDF; "(none)" when absent.
    std::string ReadBack(const char* name) const {
        HDF* hdf = nullptr;
        EXPECT_EQ(hdf_init(&hdf), STATUS_OK);
        NEOERR* error = hdf_read_file(hdf, (dir + "/statusDb.txt").c_str());
        EXPECT_EQ(error, STATUS_OK);
        nerr_ignore(&error);
        const char* value = hdf_get_value(hdf, name, nullptr);
        const std::string result = value ? value : "(none)";
        hdf_destroy(&hdf);
        return result;
    }

    std::map<int, std::string> texts{{101, "Power"}, {102, "Hours"}, {103, "Strikes"},
                                     {110, "%d h"},  {111, "%s left"}, {201, "Fan speed"}};
    CStatusDb db;
    CTempRoot root;
    std::string dir;
};

TEST_F(CStatusDbDumpTest, AlarmsAreWrittenInAlarmOrderAsFormattedLines) {
    db.UpdateStatusValue("Lamp", 2, 2, 1200);
    db.UpdateStatusValue("Fan", 7, 1, "stalled");
    db.UpdateStatusValue("Lamp", 1, 1, "Failed");
    db.DumpStatusToFile(dir);

    EXPECT_EQ(ReadBack("ALRM.000"), Line(1, "Fan speed", "stalled", "Fan", 7));
    EXPECT_EQ(ReadBack("ALRM.001"), Line(1, "Power", "Failed", "Lamp", 1));
    EXPECT_EQ(ReadBack("ALRM.002"), Line(2, "Hours", "1200 h", "Lamp", 2));
    EXPECT_EQ(ReadBack("ALRM.003"), "(none)");
}

TEST_F(CStatusDbDumpTest, ValueFormatOtherThanOneIntegerShowsThePlainNumber) {
    db.UpdateStatusValue("Lamp", 3, 1, 77);
    texts[110] = "%d of %d";
    db.UpdateStatusValue("Lamp", 2, 1, 5);
    db.SwitchLanguage();
    db.DumpStatusToFile(dir);
    EXPECT_EQ(ReadBack("ALRM.000"), Line(1, "Hours", "5", "Lamp", 2));
    EXPECT_EQ(ReadBack("ALRM.001"), Line(1, "Strikes", "77", "Lamp", 3));
}

TEST_F(CStatusDbDumpTest, OverlongTextsAreCutTo255Characters) {
    db.UpdateStatusValue("Fan", 7, 1, std::string(300, 'v'));
    db.DumpStatusToFile(dir);
    const std::string line = ReadBack("ALRM.000");
    EXPECT_EQ(line.size(), 255u);
    EXPECT_EQ(line.substr(0, 60), Line(1, "Fan speed", "", "", 0).substr(0, 50) + std::string(10, 'v'));
}

TEST_F(CStatusDbDumpTest, DumpWithoutAlarmsReplacesTheOldFileAndLeavesNoTemporary) {
    db.UpdateStatusValue("Fan", 7, 1, "stalled");
    db.DumpStatusToFile(dir);
    db.UpdateStatusValue("Fan", 7, 0, "ok");
    db.DumpStatusToFile(dir);
    EXPECT_EQ(ReadBack("ALRM.000"), "(none)");
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        files.push_back(entry.path().filename());
    }
    EXPECT_EQ(files, std::vector<std::string>{"statusDb.txt"});
}

TEST_F(CStatusDbDumpTest, DumpIntoMissingDirectoryThrowsAndLeavesNothing) {
    const std::string missing = root.Path("/var/run/none");
    const std::string message = ThrownMessage([&] { db.DumpStatusToFile(missing); });
    EXPECT_EQ(message.rfind("Cannot write status file " + missing + "/statusDb.txt: ", 0), 0u) << message;
    EXPECT_FALSE(std::filesystem::exists(missing));
}

}  // namespace
