#pragma once
// PhysicalMetaSyncDataUpdater (key PHYSICAL_META, 8): stamps every camera's AppDynamic with its
// sensor's active array region and focal length (replacing any value), and fills
// CONTROL_POST_RAW_SENSITIVITY_BOOST (100) and CONTROL_VIDEO_STABILIZATION_MODE (0) only where
// they are absent. Per-sensor values are taken from the camera information at construction and
// never change; update always returns true and takes no lock.

#include "ISyncDataUpdater.h"
#include "MetaRead.h"

#include <NSCam/MRect.h>

#include <cstdint>
#include <map>
#include <vector>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class PhysicalMetaSyncDataUpdater : public virtual ISyncDataUpdater {
  public:
    PhysicalMetaSyncDataUpdater(
        unsigned long sessionKey,
        std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo);
    ~PhysicalMetaSyncDataUpdater() override;
    bool update(SyncData const* data) override;

  private:
    // One sensor's values as update() looks them up: both maps' entries for that id together.
    struct SensorStatics {
        int32_t sensorId;
        NSCam::MRect region;
        float focalLength;
    };
    SensorStatics const* staticsOf(int32_t sensorId) const;

    std::map<int32_t, NSCam::MRect> mActiveArrayRegions;
    std::map<int32_t, float> mFocalLengths;
    // Built once from the two maps (which never change afterwards): a session has a handful of
    // sensors, so a short scan per camera replaces two tree lookups.
    std::vector<SensorStatics> mStatics;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
