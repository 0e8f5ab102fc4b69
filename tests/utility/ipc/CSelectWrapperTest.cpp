// Readiness waits on real descriptors.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "CException.h"
#include "ipc/CSelectWrapper.h"

namespace {

class CSelectWrapperTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, fds), 0); }
    void TearDown() override {
        close(fds[0]);
        close(fds[1]);
    }
    int fds[2];
};

}  // namespace

TEST_F(CSelectWrapperTest, ReportsOnlyTheReadyDescriptorForReadingOrWriting) {
    CSelectWrapper select;
    ASSERT_EQ(write(fds[1], "x", 1), 1);
    select.Set(fds[0]);
    select.Set(fds[1]);
    EXPECT_EQ(select.Select(1000u), 1);
    EXPECT_TRUE(select.IsSet(fds[0]));
    EXPECT_FALSE(select.IsSet(fds[1]));
    select.Zero();
    select.Set(fds[1]);
    EXPECT_EQ(select.SelectWrite(0u), 1);
    EXPECT_TRUE(select.IsSet(fds[1]));
    select.Clear(fds[1]);
    EXPECT_FALSE(select.IsSet(fds[1]));
}

TEST_F(CSelectWrapperTest, TimeOutGivesZeroAndStoredTimeOutIsUsedUp) {
    CSelectWrapper select;
    select.SetTimeoutMs(30);
    select.Set(fds[0]);
    EXPECT_EQ(select.Select(), 0);
    select.Set(fds[0]);
    EXPECT_EQ(select.Select(), 0);  // nothing left of the stored time-out: returns at once
    select.Zero();
    EXPECT_FALSE(select.IsSet(fds[0]));
}

TEST_F(CSelectWrapperTest, DescriptorsOutsideTheSetAreRefused) {
    CSelectWrapper select;
    EXPECT_THROW(select.Set(FD_SETSIZE), CException);
    EXPECT_THROW(select.Set(-1), CException);
    EXPECT_FALSE(select.IsSet(FD_SETSIZE + 5));
    int spare[2];
    ASSERT_EQ(pipe(spare), 0);
    select.Set(spare[0]);
    close(spare[0]);
    close(spare[1]);
    EXPECT_THROW(select.Select(0u), CException);  // a closed descriptor: EBADF
}
