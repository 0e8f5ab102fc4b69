// Timers on a hand-driven clock, and the two real monotonic clocks.

#include <gtest/gtest.h>
#include <unistd.h>

#include "CException.h"
#include "ManualClock.h"
#include "time/CMonotonicClockHighResPosix.h"
#include "time/CMonotonicClockLowRes.h"
#include "time/CTimer.h"

TEST(CTimer, ExpiresExactlyWhenItsDurationHasRun) {
    CManualClock clock(1000);
    CTimer timer(clock, 100);
    clock.AdvanceMs(99);
    EXPECT_FALSE(timer.IsExpired());
    EXPECT_EQ(timer.GetRemainingMs(), 1u);
    clock.AdvanceMs(1);
    EXPECT_TRUE(timer.IsExpired());
    EXPECT_EQ(timer.GetRemainingMs(), 0u);
    EXPECT_EQ(timer.GetElapsedMs(), 100u);

    timer.Restart();
    EXPECT_FALSE(timer.IsExpired());
    EXPECT_EQ(timer.GetDurationMs(), 100u);
    timer.Start(0);
    EXPECT_TRUE(timer.IsExpired());
}

TEST(CTimer, MeasuresAcrossTheCounterWrap) {
    CManualClock clock(CMonotonicClockHighResPosix::kFrequency, 0xFFFFFF00u);
    CTimer timer(clock, 10);
    clock.AdvanceMs(5);  // the count wraps past zero here
    EXPECT_LT(clock.GetCount(), 0xFFFFFF00u);
    EXPECT_EQ(timer.GetElapsedMs(), 5u);
    EXPECT_FALSE(timer.IsExpired());
    clock.AdvanceMs(5);
    EXPECT_TRUE(timer.IsExpired());
}

TEST(CTimer, RefusesDurationsTheClockCannotMeasure) {
    CManualClock fast(CMonotonicClockHighResPosix::kFrequency);
    EXPECT_EQ(fast.GetWrapPeriodMs(), 42949u);
    CTimer timer(fast, 42948);
    EXPECT_THROW(timer.Start(42949), CException);
    EXPECT_EQ(timer.GetDurationMs(), 42948u);  // a refused start changes nothing
    CManualClock slow(100);
    EXPECT_NO_THROW(CTimer(slow, 3600u * 1000u));
}

TEST(CMonotonicClocks, CountForwardAtTheirStatedFrequency) {
    const CMonotonicClockHighResPosix high;
    const CMonotonicClockLowRes low;
    EXPECT_EQ(high.GetFrequency(), 100000000u);
    EXPECT_EQ(low.GetFrequency(), static_cast<uint32_t>(sysconf(_SC_CLK_TCK)));

    CTimer highTimer(high, 20);
    CTimer lowTimer(low, 20);
    usleep(60 * 1000);
    EXPECT_TRUE(highTimer.IsExpired());
    EXPECT_GE(highTimer.GetElapsedMs(), 20u);
    EXPECT_LT(highTimer.GetElapsedMs(), 10000u);
    EXPECT_TRUE(lowTimer.IsExpired());
}
