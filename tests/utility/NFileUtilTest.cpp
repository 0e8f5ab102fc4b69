// Replacing stored files whole, and bounded whole-file reads, on real files.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "NFileUtil.h"
#include "TempRoot.h"

namespace {

class NFileUtilTest : public ::testing::Test {
protected:
    CTempRoot root;
    const std::string dir = root.MakeDir("/var/data");
    const std::string path = dir + "/stored.json";
};

}  // namespace

TEST_F(NFileUtilTest, ReplacesTheWholeFileWithItsModeAndLeavesNoTemporary) {
    ASSERT_TRUE(NFileUtil::WriteFileAtomically(path, "old", 0644));
    ASSERT_TRUE(NFileUtil::WriteFileAtomically(path, "new contents", 0600));
    EXPECT_EQ(CTempRoot::ReadFile(path), "new contents");
    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_FALSE(std::filesystem::exists(NFileUtil::TemporaryPathFor(path)));
    EXPECT_EQ(NFileUtil::TemporaryPathFor(path), dir + "/.stored.json.tmp");
}

TEST_F(NFileUtilTest, AFailedWriteKeepsTheOldFile) {
    ASSERT_TRUE(NFileUtil::WriteFileAtomically(path, "kept", 0644));
    // A directory in the temporary file's place makes the write fail before the rename.
    std::filesystem::create_directory(NFileUtil::TemporaryPathFor(path));
    EXPECT_FALSE(NFileUtil::WriteFileAtomically(path, "lost", 0644));
    EXPECT_EQ(CTempRoot::ReadFile(path), "kept");
    EXPECT_FALSE(NFileUtil::WriteFileAtomically(dir + "/missing/x", "y", 0644));
}

TEST_F(NFileUtilTest, LeftoverTemporaryFromAPowerCutIsReplaced) {
    root.WriteFile("/var/data/.stored.json.tmp", "half a wri");
    ASSERT_TRUE(NFileUtil::WriteFileAtomically(path, "whole", 0644));
    EXPECT_EQ(CTempRoot::ReadFile(path), "whole");
}

TEST_F(NFileUtilTest, ReadsAreBounded) {
    ASSERT_TRUE(NFileUtil::WriteFileAtomically(path, std::string(100, 'x'), 0644));
    std::string contents;
    std::string error;
    EXPECT_EQ(NFileUtil::ReadFile(path, 100, contents, error), NFileUtil::EReadResult::READ);
    EXPECT_EQ(contents.size(), 100u);
    EXPECT_EQ(NFileUtil::ReadFile(path, 99, contents, error), NFileUtil::EReadResult::FAILED);
    EXPECT_EQ(error, "file too large");
    EXPECT_EQ(contents.size(), 100u);  // untouched by a failed read
    EXPECT_EQ(NFileUtil::ReadFile(dir + "/absent", 100, contents, error), NFileUtil::EReadResult::MISSING);
    EXPECT_EQ(NFileUtil::ReadFile(dir, 100, contents, error), NFileUtil::EReadResult::FAILED);
}
