// Physical-camera metadata: each sensor's own static values, overwrite versus fill-if-absent,
// unknown sensors, and the construction log.

#include "PhysicalMetaSyncDataUpdater.h"

#include <gtest/gtest.h>

#include "updaters_frame.h"

namespace {

using namespace updtest;
using NSCam::MRect;

TEST(PhysicalMetaUpdaterTest, WritesEachSensorsOwnStaticsAndFillsOnlyAbsentControls) {
    ryxtest::LogCapture cap;
    CameraInfos info;
    info[0].activeArrayRegion = MRect(0, 0, 4000, 3000);
    info[0].focalLength = 4.7f;
    info[2].activeArrayRegion = MRect(8, 16, 3264, 2448);
    info[2].focalLength = 12.25f;
    PhysicalMetaSyncDataUpdater updater(1, info);
    Lines const ctor = logged(cap, "RyxCam/PhysicalMetaSyncDataUpdater");
    EXPECT_EQ(ctor.size(), 4u);
    EXPECT_EQ(count(ctor,
                    "D [PhysicalMetaSyncDataUpdater] Sensor 0 "
                    "LENS_INFO_AVAILABLE_FOCAL_LENGTHS: 4.70"),
              1u);
    EXPECT_EQ(count(ctor,
                    "D [PhysicalMetaSyncDataUpdater] Sensor 2 "
                    "SENSOR_INFO_ACTIVE_ARRAY_REGION: (8, 16) 3264x2448"),
              1u);

    Frame f;
    IMetadata& app0 = f.add(0, 1).appDynamic;
    IMetadata& app2 = f.add(2, 1).appDynamic;
    IMetadata& app5 = f.add(5, 1).appDynamic;  // a sensor without static info
    // A focal length the pipeline already put there is replaced by the static one; the
    // controls it set are kept.
    IMetadata::setEntry<float>(&app2, LENS_FOCAL_LENGTH, 1.0f);
    IMetadata::setEntry<int>(&app0, CONTROL_POST_RAW_SENSITIVITY_BOOST, 50);
    IMetadata::setEntry<unsigned char>(&app2, CONTROL_VIDEO_STABILIZATION_MODE, 1);
    EXPECT_TRUE(updater.update(f.get()));

    EXPECT_EQ(read<MRect>(app0, PHYSICAL_ACTIVE_ARRAY_REGION), MRect(0, 0, 4000, 3000));
    EXPECT_EQ(read<float>(app0, LENS_FOCAL_LENGTH), 4.7f);
    EXPECT_EQ(read<MRect>(app2, PHYSICAL_ACTIVE_ARRAY_REGION), MRect(8, 16, 3264, 2448));
    EXPECT_EQ(read<float>(app2, LENS_FOCAL_LENGTH), 12.25f);
    EXPECT_EQ(app2.entryFor(LENS_FOCAL_LENGTH).count(), 1u);
    EXPECT_EQ(read<int>(app0, CONTROL_POST_RAW_SENSITIVITY_BOOST), 50);
    EXPECT_EQ(read<unsigned char>(app0, CONTROL_VIDEO_STABILIZATION_MODE), 0);
    EXPECT_EQ(read<int>(app2, CONTROL_POST_RAW_SENSITIVITY_BOOST), 100);
    EXPECT_EQ(read<unsigned char>(app2, CONTROL_VIDEO_STABILIZATION_MODE), 1);
    EXPECT_EQ(app5.count(), 2u);
    EXPECT_EQ(read<int>(app5, CONTROL_POST_RAW_SENSITIVITY_BOOST), 100);
    EXPECT_EQ(read<unsigned char>(app5, CONTROL_VIDEO_STABILIZATION_MODE), 0);
    for (int id : {0, 2, 5}) {
        EXPECT_TRUE(f.cam(id).halDynamic.isEmpty()) << id;  // only the app result is touched
    }
}

}  // namespace
