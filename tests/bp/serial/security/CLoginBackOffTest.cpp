// The back-off against password guessing: free attempts, the doubling refusal, a success
// clearing an address, and a table that a sweep of addresses cannot grow without bound.

#include <gtest/gtest.h>

#include <string>

#include "ManualClock.h"
#include "security/CLoginBackOff.h"

TEST(CLoginBackOff, RefusesAfterThreeFailuresForADoublingTimeUntilASuccess) {
    CManualClock clock;
    CLoginBackOff backOff(clock);
    for (unsigned int failure = 1; failure < CLoginBackOff::kFreeAttempts; ++failure) {
        EXPECT_EQ(backOff.Fail("10.0.0.1"), failure);
        EXPECT_FALSE(backOff.IsBackingOff("10.0.0.1"));
    }
    backOff.Fail("10.0.0.1");
    EXPECT_TRUE(backOff.IsBackingOff("10.0.0.1"));
    EXPECT_FALSE(backOff.IsBackingOff("10.0.0.2"));
    clock.AdvanceMs(999);
    EXPECT_TRUE(backOff.IsBackingOff("10.0.0.1"));
    clock.AdvanceMs(1);
    EXPECT_FALSE(backOff.IsBackingOff("10.0.0.1"));
    backOff.Fail("10.0.0.1");
    clock.AdvanceMs(1999);
    EXPECT_TRUE(backOff.IsBackingOff("10.0.0.1"));
    backOff.Succeed("10.0.0.1");
    EXPECT_FALSE(backOff.IsBackingOff("10.0.0.1"));
}

TEST(CLoginBackOff, ASweepOfAddressesIsForgottenBeforeAnAddressStillBackingOff) {
    CManualClock clock;
    CLoginBackOff backOff(clock);
    for (unsigned int i = 0; i < CLoginBackOff::kFreeAttempts; ++i) {
        backOff.Fail("10.0.0.1");
    }
    for (size_t i = 0; i < 3 * CLoginBackOff::kMaxPeers; ++i) {
        backOff.Fail("192.168." + std::to_string(i / 256) + "." + std::to_string(i % 256));
    }
    EXPECT_LE(backOff.GetPeerCount(), CLoginBackOff::kMaxPeers);
    EXPECT_TRUE(backOff.IsBackingOff("10.0.0.1"));
}
