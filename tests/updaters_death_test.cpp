// A frame without sync targets is a broken call flow: the guarding updaters abort, even when
// results have arrived.

#include "ActiveSyncDataUpdater.h"
#include "MasterCamSyncDataUpdater.h"
#include "TimestampSyncDataUpdater.h"

#include <NSCam/ULogger.h>

#include <gtest/gtest.h>

#include <string>

#include "updaters_frame.h"

namespace {

using namespace updtest;

template <typename Updater>
void updateFrameWithoutTargets() {
    NSCam::Utils::ULog::ULogger::sMode = 1;
    Updater updater(1, CameraInfos{});
    Frame f;
    f.add(0, 1000, 1000);
    f.data.syncTargetList.clear();
    updater.update(f.get());
}

std::string fatalText(std::string const& unit) {
    return "Invalid operation\\. \\(update\\)\\{#[0-9]+:hw/camsys/cam_coordinator/SyncHelper/" +
           unit + "\\}";
}

TEST(UpdaterDeathTest, AbortsOnEmptyTargets) {
    EXPECT_DEATH(updateFrameWithoutTargets<TimestampSyncDataUpdater>(),
                 fatalText("TimestampSyncDataUpdater"));
    EXPECT_DEATH(updateFrameWithoutTargets<MasterCamSyncDataUpdater>(),
                 fatalText("MasterCamSyncDataUpdater"));
    EXPECT_DEATH(updateFrameWithoutTargets<ActiveSyncDataUpdater>(),
                 fatalText("ActiveSyncDataUpdater"));
}

}  // namespace
