// The laser bank module control over real TCP against the simulated module running on a
// thread of its own: parameters read and set, refusals, a module that never answers,
// stale replies, garbage between frames and late answers.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "CException.h"
#include "CHalvorLbmControl.h"
#include "CSimLaserModule.h"
#include "ThrownMessage.h"
#include "time/CMonotonicClockHighResPosix.h"

namespace {

class CHalvorLbmControlTest : public ::testing::Test {
protected:
    CHalvorLbmControlTest() : module(0, clock) {
        thread = std::thread([this] {
            while (!stop) {
                module.RunOnce(5);
            }
        });
        control = std::make_unique<CHalvorLbmControl>("127.0.0.1", module.GetPort(), clock, 1);
    }
    ~CHalvorLbmControlTest() override {
        stop = true;
        thread.join();
    }

    CMonotonicClockHighResPosix clock;
    CSimLaserModule module;
    std::atomic<bool> stop{false};
    std::thread thread;
    std::unique_ptr<CHalvorLbmControl> control;
};

}  // namespace

TEST_F(CHalvorLbmControlTest, ParametersAreReadAndSetAndTheModuleRefusesWhatItCannotTake) {
    EXPECT_EQ(control->GetLastError(), 1);  // nothing done yet
    IHalvorLbmControl::SId id;
    control->GetId(id);
    EXPECT_EQ(id.id, "LBM-SIM-0001");
    EXPECT_EQ(control->GetLastError(), 0);
    EXPECT_EQ(control->GetPowerState(), IHalvorLbmControl::POWER_STANDBY);
    control->SetPowerState(IHalvorLbmControl::POWER_ON);
    EXPECT_EQ(control->GetPowerState(), IHalvorLbmControl::POWER_STARTING);  // switching on takes time
    control->SetActualRed(1234);
    EXPECT_EQ(control->GetUint32(CHalvorLbmControl::PARAM_RED), 1234u);
    IHalvorLbmControl::SStatus status;
    control->GetFullOperatingCondition(status);
    EXPECT_EQ(status.alarmState, IHalvorLbmControl::STATE_NONE);
    EXPECT_GE(status.laserTemperature, 2500u);

    EXPECT_EQ(ThrownMessage([&] { control->SetActualGain(20000); }), "CEP retry count exceeded: SET command failed");
    EXPECT_EQ(control->GetLastError(), 2);
    EXPECT_EQ(ThrownMessage([&] { control->SetPowerState(IHalvorLbmControl::POWER_COOLING); }),
              "CEP retry count exceeded: SET command failed");
    module.ForcePowerState(4);
    EXPECT_EQ(control->GetPowerState(), IHalvorLbmControl::POWER_UNKNOWN);  // 4 is no power state
    module.ForcePowerState(-1);
    module.SetRefuseAll(true);
    EXPECT_EQ(ThrownMessage([&] { control->GetAlarmState(); }), "CEP retry count exceeded: GET command failed");
    EXPECT_EQ(control->GetLastError(), 2);
}

TEST_F(CHalvorLbmControlTest, AModuleThatNeverAnswersGetsTwoSendsAndFiftyPolls) {
    module.SetDropReplies(true);
    const unsigned int before = module.GetRequestsReceived();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ThrownMessage([&] { control->GetPowerState(); }), "CEP retry count exceeded: GET command failed");
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(control->GetRequestsSent(), 2u);
    EXPECT_EQ(module.GetRequestsReceived() - before, 2u);
    EXPECT_GE(elapsed, std::chrono::milliseconds(50 * CHalvorLbmControl::kPollMs));
    EXPECT_LT(elapsed, std::chrono::seconds(3));
}

TEST_F(CHalvorLbmControlTest, StaleRepliesGarbageAndLateAnswersDoNotConfuseIt) {
    module.SetStaleReplies(true);
    module.SetGarbage(true);
    for (int round = 0; round < 3; ++round) {
        // Every reply is followed by a stale one saying 4, which the next get of the same
        // key would take if it were not discarded before the request.
        EXPECT_EQ(control->GetPowerState(), IHalvorLbmControl::POWER_STANDBY) << round;
        EXPECT_EQ(control->GetPowerState(), IHalvorLbmControl::POWER_STANDBY) << round;
        control->SetActualBlue(77 + static_cast<uint32_t>(round));
    }
    EXPECT_EQ(control->GetUint32(CHalvorLbmControl::PARAM_BLUE), 79u);
    module.SetReplyDelayMs(150);
    EXPECT_EQ(control->GetPowerState(), IHalvorLbmControl::POWER_STANDBY);

    control->CloseCommunication();
    EXPECT_FALSE(control->IsConnected());
    control->ResetCommunication();
    EXPECT_TRUE(control->IsConnected());
    EXPECT_EQ(control->GetPowerState(), IHalvorLbmControl::POWER_STANDBY);
}
