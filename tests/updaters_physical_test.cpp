// Physical-camera metadata: each sensor's own static values, overwrite versus fill-if-absent,
// unknown sensors, and the construction log. Also the active updater, which only validates.

#include "ActiveSyncDataUpdater.h"
#include "PhysicalMetaSyncDataUpdater.h"

#include <gtest/gtest.h>

#include "LogCapture.h"
#include "SyncMetaTags.h"
#include "updaters_frame.h"

namespace {

using namespace NSCam::camsys::camcoordinator;
using NSCam::IMetadata;
using NSCam::MRect;
using updtest::Frame;
using updtest::lines;
using updtest::read;

constexpr const char* kTag = "RyxCam/PhysicalMetaSyncDataUpdater";

class PhysicalMetaUpdaterTest : public ::testing::Test {
  protected:
    PhysicalMetaUpdaterTest() {
        mInfo[0].activeArrayRegion = MRect(0, 0, 4000, 3000);
        mInfo[0].focalLength = 4.7f;
        mInfo[2].activeArrayRegion = MRect(8, 16, 3264, 2448);
        mInfo[2].focalLength = 12.25f;
    }

    ryxtest::LogCapture mCap;
    std::unordered_map<unsigned int, NSCam::CameraInfo> mInfo;
};

TEST_F(PhysicalMetaUpdaterTest, EachSensorGetsItsOwnRegionAndFocalLength) {
    PhysicalMetaSyncDataUpdater updater(1, mInfo);
    Frame f;
    f.add(0, 1);
    f.add(2, 1);
    // A focal length the pipeline already put there is replaced by the static one.
    IMetadata::IEntry stale(LENS_FOCAL_LENGTH);
    stale.push_back(1.0f);
    f.cam(2).appDynamic.update(LENS_FOCAL_LENGTH, stale);

    EXPECT_TRUE(updater.update(f.get()));

    EXPECT_EQ(read<MRect>(f.cam(0).appDynamic, PHYSICAL_ACTIVE_ARRAY_REGION),
              MRect(0, 0, 4000, 3000));
    EXPECT_EQ(read<float>(f.cam(0).appDynamic, LENS_FOCAL_LENGTH), 4.7f);
    EXPECT_EQ(read<MRect>(f.cam(2).appDynamic, PHYSICAL_ACTIVE_ARRAY_REGION),
              MRect(8, 16, 3264, 2448));
    EXPECT_EQ(read<float>(f.cam(2).appDynamic, LENS_FOCAL_LENGTH), 12.25f);
    EXPECT_EQ(f.cam(2).appDynamic.entryFor(LENS_FOCAL_LENGTH).count(), 1u);
    // Only the app result is touched.
    EXPECT_TRUE(f.cam(0).halDynamic.isEmpty());
    EXPECT_TRUE(f.cam(2).halDynamic.isEmpty());
}

TEST_F(PhysicalMetaUpdaterTest, ControlDefaultsFillOnlyWhatIsAbsent) {
    PhysicalMetaSyncDataUpdater updater(1, mInfo);
    Frame f;
    f.add(0, 1);
    f.add(2, 1);
    IMetadata::setEntry<int>(&f.cam(0).appDynamic, CONTROL_POST_RAW_SENSITIVITY_BOOST, 50);
    IMetadata::setEntry<unsigned char>(&f.cam(2).appDynamic, CONTROL_VIDEO_STABILIZATION_MODE, 1);

    EXPECT_TRUE(updater.update(f.get()));

    EXPECT_EQ(read<int>(f.cam(0).appDynamic, CONTROL_POST_RAW_SENSITIVITY_BOOST), 50);
    EXPECT_EQ(read<unsigned char>(f.cam(0).appDynamic, CONTROL_VIDEO_STABILIZATION_MODE), 0);
    EXPECT_EQ(read<int>(f.cam(2).appDynamic, CONTROL_POST_RAW_SENSITIVITY_BOOST), 100);
    EXPECT_EQ(read<unsigned char>(f.cam(2).appDynamic, CONTROL_VIDEO_STABILIZATION_MODE), 1);
}

TEST_F(PhysicalMetaUpdaterTest, UnknownSensorGetsOnlyTheDefaults) {
    PhysicalMetaSyncDataUpdater updater(1, mInfo);
    Frame f;
    f.add(5, 1);

    EXPECT_TRUE(updater.update(f.get()));

    IMetadata const& app = f.cam(5).appDynamic;
    EXPECT_EQ(app.count(), 2u);
    EXPECT_EQ(read<int>(app, CONTROL_POST_RAW_SENSITIVITY_BOOST), 100);
    EXPECT_EQ(read<unsigned char>(app, CONTROL_VIDEO_STABILIZATION_MODE), 0);
}

TEST_F(PhysicalMetaUpdaterTest, ConstructionLogsEachSensor) {
    std::unordered_map<unsigned int, NSCam::CameraInfo> one;
    one[0] = mInfo[0];
    mCap.clear();
    PhysicalMetaSyncDataUpdater updater(1, one);

    auto const all = lines(mCap, kTag);
    ASSERT_EQ(all.size(), 2u);
    for (auto const& l : all) {
        EXPECT_EQ(l.priority, ANDROID_LOG_DEBUG);
        EXPECT_EQ(l.func, "PhysicalMetaSyncDataUpdater");
    }
    EXPECT_EQ(all[0].msg, "Sensor 0 LENS_INFO_AVAILABLE_FOCAL_LENGTHS: 4.70");
    EXPECT_EQ(all[1].msg, "Sensor 0 SENSOR_INFO_ACTIVE_ARRAY_REGION: (0, 0) 4000x3000");
}

TEST_F(PhysicalMetaUpdaterTest, EmptyFrameStillPasses) {
    PhysicalMetaSyncDataUpdater updater(1, mInfo);
    Frame f;
    EXPECT_TRUE(updater.update(f.get()));
}

TEST(ActiveUpdaterTest, PassesAnyFrameWithTargetsUntouched) {
    std::unordered_map<unsigned int, NSCam::CameraInfo> info;
    ActiveSyncDataUpdater updater(1, info);
    for (int targets : {1, 3}) {
        Frame f;
        for (int id = 0; id < targets; ++id) {
            f.add(id, 1000, 1000).output.bMasterCam = true;
        }
        EXPECT_TRUE(updater.update(f.get()));
        for (int id = 0; id < targets; ++id) {
            EXPECT_TRUE(f.cam(id).halDynamic.isEmpty());
            EXPECT_TRUE(f.cam(id).appDynamic.isEmpty());
            EXPECT_TRUE(f.cam(id).output.bMasterCam);
        }
    }
}

}  // namespace
