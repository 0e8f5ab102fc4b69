// The "session" module over real TCP: logging a connection in against the security
// manager's records, slowing guessers down, and changing a password on disk.

#include "C4jFixture.h"
#include "CC4jSession.h"
#include "security/CSecurityManager.h"

namespace {

class CC4jSessionTest : public CC4jFixture {
protected:
    CC4jSessionTest() {
        security.AddUser("op", "right", ACCESS_OPERATOR);
        security.Save();
        client = Connect();
    }

    int Login(STestClient& who, const std::string& password) {
        return ErrorCode(who, "session:connect", R"({"user":"op","password":")" + password + "\"}");
    }

    CSecurityManager security{log, CSecurityManager::kMinIterations};
    CC4jSession session{server, security, clock};
    TClient client;
};

}  // namespace

TEST_F(CC4jSessionTest, ConnectRaisesOnlyThatConnectionsLevelAndAFailureDropsIt) {
    EXPECT_EQ(ErrorCode(*client, "get", R"(["SEC"])"), ERR_INVALID_ACCESS_GROUP);
    EXPECT_EQ(Result(*client, "session:connect", R"({"user":"op","password":"right"})"), J(R"({"access":2})"));
    EXPECT_EQ(Result(*client, "get", R"(["SEC"])"), 0);
    TClient other = Connect();
    EXPECT_EQ(ErrorCode(*other, "get", R"(["SEC"])"), ERR_INVALID_ACCESS_GROUP);

    EXPECT_EQ(Login(*client, "wrong"), ERR_INVALID_SECURITY_TOKEN);
    EXPECT_EQ(ErrorCode(*client, "get", R"(["SEC"])"), ERR_INVALID_ACCESS_GROUP);
    EXPECT_EQ(ErrorCode(*client, "session:connect", R"({"user":"op"})"), ERR_TOO_FEW_PARAMETERS);
    EXPECT_EQ(ErrorCode(*client, "session:connect"), ERR_TOO_FEW_PARAMETERS);
    EXPECT_EQ(ErrorCode(*client, "session:connect", R"({"user":"op","password":7})"), ERR_INVALID_PARAMETER);
    EXPECT_TRUE(log.Logged("user op refused"));
    EXPECT_FALSE(log.Logged("right"));
    EXPECT_FALSE(log.Logged("wrong"));
}

TEST_F(CC4jSessionTest, RepeatedFailuresFromOneAddressAreRefusedUncheckedUntilTheBackOffPasses) {
    for (unsigned int attempt = 0; attempt < CLoginBackOff::kFreeAttempts; ++attempt) {
        EXPECT_EQ(Login(*client, "guess"), ERR_INVALID_SECURITY_TOKEN) << attempt;
    }
    TClient again = Connect();  // a new connection from the same address
    EXPECT_EQ(Login(*again, "right"), ERR_SYSTEM_BUSY);
    clock.AdvanceMs(1000);
    EXPECT_EQ(Login(*again, "right"), ERR_NONE);
    EXPECT_EQ(Login(*again, "guess"), ERR_INVALID_SECURITY_TOKEN);  // a success starts the count anew
    EXPECT_EQ(Login(*again, "right"), ERR_NONE);
}

TEST_F(CC4jSessionTest, AChangedPasswordIsStoredAsANewSaltedHashAndTheOldOneStopsWorking) {
    const std::string usersFile = root.Path(CSecurityManager::kDefaultUsersFile);
    EXPECT_EQ(ErrorCode(*client, "session:changePassword", R"({"user":"op","password":"bad","newPassword":"x"})"),
              ERR_INVALID_SECURITY_TOKEN);
    EXPECT_EQ(ErrorCode(*client, "session:changePassword",
                        R"({"user":"op","password":"right","newPassword":"a\u0000b"})"),
              ERR_INVALID_PARAMETER);
    EXPECT_EQ(Result(*client, "session:changePassword",
                     R"({"user":"op","password":"right","newPassword":"long new phrase"})"),
              J("{}"));
    EXPECT_EQ(CTempRoot::ReadFile(usersFile).find("long new phrase"), std::string::npos);
    CSecurityManager reloaded(log, CSecurityManager::kMinIterations);
    reloaded.Load();
    EAccessLevel level = ACCESS_NONE;
    EXPECT_TRUE(reloaded.Login("op", "long new phrase", level));
    EXPECT_FALSE(reloaded.Login("op", "right", level));
    EXPECT_EQ(Login(*client, "right"), ERR_INVALID_SECURITY_TOKEN);
    EXPECT_FALSE(log.Logged("long new phrase"));
}
