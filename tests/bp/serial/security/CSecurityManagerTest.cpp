#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/stat.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "BufferedLog.h"
#include "TempRoot.h"
#include "ThrownMessage.h"
#include "security/CSecurityManager.h"

namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

const std::string kFile = "/etc/projector/users.json";
// PBKDF2-HMAC-SHA256("projector", salt 00..0f, 1000 rounds), computed independently.
const std::string kGood = R"({"name": "ann", "access": 4, "salt": "000102030405060708090a0b0c0d0e0f", )"
                          R"("hash": "B0D243FFD8890FE642B1E0B8AF7B29CD53975FFAED7682A644B19120CE120FFC", )"
                          R"("iterations": 1000})";

std::string With(const std::string& from, const std::string& to) {
    std::string text = kGood;
    return text.replace(text.find(from), from.size(), to);
}

class CSecurityManagerTest : public ::testing::Test {
protected:
    bool Login(const std::string& user, const std::string& password) {
        m_level = ACCESS_NONE;
        return m_manager.Login(user, password, m_level);
    }
    Json::Value ReadSaved() const {  // throws, failing the test, when the file is not JSON
        Json::Value root;
        std::istringstream(CTempRoot::ReadFile(m_root.Path(kFile))) >> root;
        return root;
    }

    CTempRoot m_root;
    CBufferedLog m_log;
    CSecurityManager m_manager{m_log, CSecurityManager::kMinIterations};
    EAccessLevel m_level = ACCESS_NONE;
};

TEST_F(CSecurityManagerTest, LoginAcceptsOnlyTheExactPasswordAndReturnsTheLevel) {
    m_manager.AddUser("service tech", "Lamp-42", ACCESS_SERVICE);
    m_manager.AddUser("guest", "", ACCESS_USER);
    EXPECT_TRUE(Login("service tech", "Lamp-42"));
    EXPECT_EQ(m_level, ACCESS_SERVICE);
    for (const char* wrong : {"lamp-42", "Lamp-4", "Lamp-42 ", ""}) {
        EXPECT_FALSE(Login("service tech", wrong)) << wrong;
        EXPECT_EQ(m_level, ACCESS_NONE);
    }
    EXPECT_FALSE(Login("Service tech", "Lamp-42"));
    EXPECT_FALSE(Login("nobody", ""));
    EXPECT_TRUE(Login("guest", ""));
    EXPECT_EQ(m_level, ACCESS_USER);
    // HMAC cannot tell "" from "\0", so a NUL never matches and is never stored.
    EXPECT_FALSE(Login("guest", std::string(1, '\0')));
    EXPECT_NE(ThrownMessage([&] { m_manager.SetPassword("guest", std::string("a\0", 2)); }).find("NUL"),
              std::string::npos);
    EXPECT_TRUE(Login("guest", ""));
}

TEST_F(CSecurityManagerTest, LoginsAreLoggedWithTheUserButNeverThePassword) {
    m_manager.AddUser("alice", "Tr0ub4dor", ACCESS_OPERATOR);
    Login("alice", "Tr0ub4dor");
    EXPECT_TRUE(m_log.Logged("User \"alice\" logged in with access level 2"));
    Login("alice", "Wr0ngGuess");
    Login("mallory\n\"x", "Wr0ngGuess");
    EXPECT_TRUE(m_log.Logged("Login of user \"alice\" refused"));
    EXPECT_TRUE(m_log.Logged("Login of user \"mallory??x\" refused"));
    EXPECT_FALSE(m_log.Logged("Tr0ub4dor"));
    EXPECT_FALSE(m_log.Logged("Wr0ngGuess"));
}

TEST_F(CSecurityManagerTest, SavedFileHoldsOnlyFreshlySaltedKeysInAPrivateFile) {
    m_manager.AddUser("ann", "SamePass", ACCESS_SERVICE);
    m_manager.AddUser("bob", "SamePass", ACCESS_FACTORY);
    m_manager.Save(kFile);  // its directory does not exist yet

    EXPECT_EQ(CTempRoot::ReadFile(m_root.Path(kFile)).find("SamePass"), std::string::npos);
    const Json::Value root = ReadSaved();
    ASSERT_EQ(root.size(), 2u);
    EXPECT_EQ(root[0]["name"].asString(), "ann");
    EXPECT_EQ(root[1]["access"].asInt(), ACCESS_FACTORY);
    EXPECT_EQ(root[1]["iterations"].asInt(), 1000);
    for (const Json::Value& user : root) {
        EXPECT_EQ(user["salt"].asString().find_first_not_of("0123456789abcdef"), std::string::npos);
        EXPECT_EQ(user["salt"].asString().size(), 32u);
        EXPECT_EQ(user["hash"].asString().size(), 64u);
    }
    EXPECT_NE(root[0]["salt"], root[1]["salt"]);
    EXPECT_NE(root[0]["hash"], root[1]["hash"]);

    struct stat info {};
    ASSERT_EQ(stat(m_root.Path(kFile).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(std::distance(fs::directory_iterator(m_root.Path("/etc/projector")), fs::directory_iterator()), 1);
}

TEST_F(CSecurityManagerTest, LoadReplacesUsersWithTheSavedOnesOrNoneWhenMissingAndTakesKeysDerivedElsewhere) {
    m_manager.AddUser("ann", "a-pass", ACCESS_PROTECTED);
    m_manager.Save(kFile);
    m_manager.RemoveUser("ann");
    m_manager.AddUser("temp", "t", ACCESS_USER);
    m_manager.Load(kFile);
    EXPECT_EQ(m_manager.GetUserNames(), Names{"ann"});
    EXPECT_TRUE(Login("ann", "a-pass"));
    EXPECT_EQ(m_level, ACCESS_PROTECTED);
    EXPECT_FALSE(Login("ann", "b-pass"));
    m_manager.Load("/etc/projector/none.json");
    EXPECT_TRUE(m_manager.GetUserNames().empty());
    m_root.WriteFile(kFile, "[" + kGood + "]");  // lower-case salt, upper-case hash
    m_manager.Load(kFile);
    EXPECT_TRUE(Login("ann", "projector"));
    EXPECT_EQ(m_level, ACCESS_ADVANCED_SERVICE);
}

TEST_F(CSecurityManagerTest, MalformedFileIsRefusedWholeNamingFileAndReason) {
    const std::string salt = "000102030405060708090a0b0c0d0e0f";
    const struct {
        std::string contents;
        std::string reason;
    } cases[] = {
        {"[" + kGood, "not valid JSON"},
        {kGood, "not a JSON array"},
        {"[1]", "entry 1: not an object"},
        {"[" + With("\"hash\"", "\"hush\"") + "]", "entry 1: no \"hash\""},
        {"[" + With("\"ann\"", "7") + "]", "must be texts"},
        {"[" + With("4,", "\"4\",") + "]", "must be integers"},
        {"[" + With("4,", "0,") + "]", "access 0 is outside 1..6"},
        {"[" + With("000102", "00010g") + "]", "salt is not 32 hex digits"},
        {"[" + With(salt, salt + "10") + "]", "salt is not 32 hex digits"},
        {"[" + With("B0D2", "B0D") + "]", "hash is not 64 hex digits"},
        {"[" + With("1000}", "999}") + "]", "iteration count 999 is outside 1000..10000000"},
        {"[" + With("1000}", "2000000000}") + "]", "iteration count 2000000000 is outside"},
        {"[" + With("\"ann\"", "\"a\\\"b\"") + "]", "user name \"a?b\" holds a character"},
        {"[" + With("\"ann\"", "\"" + std::string(33, 'n') + "\"") + "]", "longer than 32"},
        {"[" + kGood + ", " + kGood + "]", "entry 2: user \"ann\" appears twice"},
    };
    m_manager.AddUser("bob", "b", ACCESS_OPERATOR);
    for (const auto& bad : cases) {
        m_root.WriteFile(kFile, bad.contents);
        const std::string message = ThrownMessage([&] { m_manager.Load(kFile); });
        EXPECT_NE(message.find("Users file " + m_root.Path(kFile) + ": "), std::string::npos) << message;
        EXPECT_NE(message.find(bad.reason), std::string::npos) << message;
        EXPECT_EQ(m_manager.GetUserNames(), Names{"bob"}) << bad.contents;
    }
    EXPECT_TRUE(Login("bob", "b"));
}

TEST_F(CSecurityManagerTest, FailedSaveKeepsWhatIsThereAndLeavesNoTemporaryFile) {
    m_root.MakeDir(kFile);  // a directory cannot be replaced by the file
    m_manager.AddUser("ann", "x", ACCESS_USER);
    EXPECT_NE(ThrownMessage([&] { m_manager.Save(kFile); }).find("Users file " + m_root.Path(kFile) + ": cannot save"),
              std::string::npos);
    EXPECT_TRUE(fs::is_directory(m_root.Path(kFile)));
    EXPECT_FALSE(fs::exists(m_root.Path("/etc/projector/.users.json.tmp")));
}

TEST_F(CSecurityManagerTest, InvalidArgumentsThrowAndChangeNothing) {
    m_manager.AddUser("ann", "x", ACCESS_USER);
    EXPECT_EQ(ThrownMessage([&] { m_manager.AddUser("", "x", ACCESS_USER); }), "Cannot add user: user name is empty");
    EXPECT_NE(ThrownMessage([&] { m_manager.AddUser(std::string(33, 'a'), "x", ACCESS_USER); }).find("longer than 32"),
              std::string::npos);
    for (const std::string& name : Names{"say \"hi\"", "tab\there", "caf\xc3\xa9", std::string("nul\0x", 5)}) {
        EXPECT_NE(ThrownMessage([&] { m_manager.AddUser(name, "x", ACCESS_USER); }).find("printable ASCII"),
                  std::string::npos) << name;
    }
    EXPECT_EQ(ThrownMessage([&] { m_manager.AddUser("bob", "x", static_cast<EAccessLevel>(7)); }),
              "Cannot add user bob: access level 7 is outside 1..6");
    EXPECT_EQ(ThrownMessage([&] { m_manager.AddUser("ann", "y", ACCESS_FACTORY); }),
              "Cannot add user ann: it already exists");
    EXPECT_EQ(ThrownMessage([&] { m_manager.RemoveUser("bob"); }), "Cannot remove user \"bob\": no such user");
    EXPECT_EQ(ThrownMessage([&] { m_manager.SetPassword("bob", "y"); }),
              "Cannot set the password of user \"bob\": no such user");
    EXPECT_EQ(m_manager.GetUserNames(), Names{"ann"});
    EXPECT_TRUE(Login("ann", "x"));
    EXPECT_EQ(m_level, ACCESS_USER);
    EXPECT_EQ(ThrownMessage([&] { CSecurityManager weak(m_log, 999); }), "Iteration count 999 is outside 1000..10000000");
}

TEST_F(CSecurityManagerTest, APasswordChangedByAnotherProcessIsTakenUpOnRefresh) {
    m_manager.AddUser("ann", "old", ACCESS_SERVICE);
    m_manager.Save(kFile);
    m_manager.Load(kFile);
    EXPECT_FALSE(m_manager.Refresh());  // unchanged since loaded
    CSecurityManager other(m_log, CSecurityManager::kMinIterations);
    other.Load(kFile);
    other.SetPassword("ann", "new");
    other.Save(kFile);
    EXPECT_TRUE(Login("ann", "old"));
    EXPECT_TRUE(m_manager.Refresh());
    EXPECT_FALSE(Login("ann", "old"));
    EXPECT_TRUE(Login("ann", "new"));
    EXPECT_EQ(m_level, ACCESS_SERVICE);
    m_root.WriteFile(kFile, "[broken");
    EXPECT_FALSE(m_manager.Refresh());
    EXPECT_TRUE(Login("ann", "new"));  // a broken file changes nothing
}

TEST(CSecurityManagerRulesTest, RemoteAccessAdmitsCommandsByTheTable) {
    // Columns: set, query, login command, login query; each without and with a logged-in user.
    const struct {
        int access;
        const char* allowed;
    } rows[] = {
        {REMOTE_CLOSED, "--------"},  {REMOTE_FULL, "YYYYYYYY"},   {REMOTE_READ_ONLY, "-YYY-YYY"},
        {REMOTE_LOGIN_REQUIRED, "--YYYYYY"}, {9, "--YYYYYY"}, {-1, "--YYYYYY"},
    };
    for (const auto& row : rows) {
        for (int column = 0; column < 8; ++column) {
            const bool query = column % 2, login = column / 2 % 2, loggedIn = column / 4;
            EXPECT_EQ(CSecurityManager::IsCommandAllowed(static_cast<ERemoteAccess>(row.access), query, login, loggedIn),
                      row.allowed[column] == 'Y') << row.access << " column " << column;
        }
    }
}

}  // namespace
