// A frame without sync targets is a broken call flow: the guarding updaters abort.

#include "ActiveSyncDataUpdater.h"
#include "MasterCamSyncDataUpdater.h"
#include "TimestampSyncDataUpdater.h"

#include <NSCam/ULogger.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "updaters_frame.h"

namespace {

using namespace NSCam::camsys::camcoordinator;

template <typename Updater>
void updateEmptyFrame() {
    NSCam::Utils::ULog::ULogger::sMode = 1;
    std::unordered_map<unsigned int, NSCam::CameraInfo> info;
    Updater updater(1, info);
    updtest::Frame f;  // no targets, no inputs
    updater.update(f.get());
}

std::string fatalText(const char* unit) {
    return std::string(
               "Invalid operation\\. \\(update\\)\\{#[0-9]+:hw/camsys/cam_coordinator/"
               "SyncHelper/") +
           unit + "\\}";
}

using UpdaterDeathTest = ::testing::Test;

TEST_F(UpdaterDeathTest, TimestampAbortsOnEmptyTargets) {
    EXPECT_DEATH(updateEmptyFrame<TimestampSyncDataUpdater>(),
                 fatalText("TimestampSyncDataUpdater"));
}

TEST_F(UpdaterDeathTest, MasterCamAbortsOnEmptyTargets) {
    EXPECT_DEATH(updateEmptyFrame<MasterCamSyncDataUpdater>(),
                 fatalText("MasterCamSyncDataUpdater"));
}

TEST_F(UpdaterDeathTest, ActiveAbortsOnEmptyTargets) {
    EXPECT_DEATH(updateEmptyFrame<ActiveSyncDataUpdater>(), fatalText("ActiveSyncDataUpdater"));
}

// Arrived inputs and outputs do not stand in for the target list.
void updateFrameWithoutTargets() {
    NSCam::Utils::ULog::ULogger::sMode = 1;
    std::unordered_map<unsigned int, NSCam::CameraInfo> info;
    ActiveSyncDataUpdater updater(1, info);
    updtest::Frame f;
    f.add(0, 1000, 1000);
    f.data.syncTargetList.clear();
    updater.update(f.get());
}

TEST_F(UpdaterDeathTest, AbortsEvenWithOutputsPresent) {
    EXPECT_DEATH(updateFrameWithoutTargets(), fatalText("ActiveSyncDataUpdater"));
}

}  // namespace
