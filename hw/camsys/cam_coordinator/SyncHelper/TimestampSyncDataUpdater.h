#pragma once
// TimestampSyncDataUpdater (key TIMESTAMP, 1): judges whether the cameras of a frame started it
// together. Compares the first sync target's start-of-frame time with every other camera's, in
// whole milliseconds (truncated), against RYX_FRAMESYNC_TOLERANCE (microseconds, inclusive
// bound) from the first target's HalControl, and writes RYX_FRAMESYNC_RESULT (0 in sync; out of
// sync: 2 with RYX_FRAMESYNC_MODE 1, else 1) into every camera's HalDynamic. Returns false only
// when a start-of-frame time is missing (0). Stateless after construction; takes no lock.
//
// mLogLevel ("vendor.debug.camera.SyncDataUpdater.log", read once) >= 2 enables the "+", "-" and
// single-camera debug lines.

#include "ISyncDataUpdater.h"

#include <cstdint>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class TimestampSyncDataUpdater : public virtual ISyncDataUpdater {
  public:
    TimestampSyncDataUpdater(unsigned long sessionKey,
                             std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo);
    ~TimestampSyncDataUpdater() override;
    bool update(SyncData const* data) override;

  private:
    int32_t mLogLevel = 0;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
