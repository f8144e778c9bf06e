#pragma once
// MasterCamSyncDataUpdater (key MASTER_CAM, 2): validates and publishes each frame's master
// camera: the RYX_DUALZOOM_REAL_MASTER requested in the first sync target's HalControl, or the
// first sync target. Refuses a frame whose number goes back (unless the master's request is a
// still capture) or whose master exposure time goes back. On acceptance writes the master id into
// every camera's HalDynamic (RYX_DUALZOOM_REAL_MASTER) and AppDynamic (RYX_APP_REAL_MASTER) and
// sets bMasterCam on the master's output only.
//
// State: one history (previous frame, master, exposure time) per updater, under mLock, the
// innermost lock of the library. At construction it attaches a reader to the session's streaming
// data container (key: the session key), held until destruction.
//
// mLogLevel ("vendor.debug.camera.SyncDataUpdater.log", read once): >= 1 enables the decision
// lines, >= 2 also the "+" and "-" lines.

#include "ISyncDataUpdater.h"
#include "ThreadAnnotations.h"

#include <NSCam/IGenericContainer.h>

#include <cstdint>
#include <memory>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class MasterCamSyncDataUpdater : public virtual ISyncDataUpdater {
  public:
    using FovaContainer =
        NSCam::IGenericContainer<std::shared_ptr<NSCam::v3::Customer_FOVA_Streaming_Data>>;

    MasterCamSyncDataUpdater(unsigned long sessionKey,
                             std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo);
    ~MasterCamSyncDataUpdater() override;
    bool update(SyncData const* data) override;

  private:
    Mutex mLock;  // innermost: taken inside the queue's and the element's locks
    int32_t mLogLevel = 0;
    int32_t mPrevFrameNo RYX_GUARDED_BY(mLock) = -1;
    int32_t mPrevMasterId RYX_GUARDED_BY(mLock) = -1;
    uint64_t mPrevShutterTs RYX_GUARDED_BY(mLock) = 0;
    std::shared_ptr<FovaContainer::Reader> mFovaReader;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
