#define LOG_TAG "RyxCam/ActiveSyncDataUpdater"
#define LOG_SOURCE "hw/camsys/cam_coordinator/SyncHelper/ActiveSyncDataUpdater"

#include "ActiveSyncDataUpdater.h"

#include "SyncLog.h"

namespace NSCam {
namespace camsys {
namespace camcoordinator {

ActiveSyncDataUpdater::ActiveSyncDataUpdater(
    unsigned long sessionKey, std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo)
    : ISyncDataUpdater(sessionKey, cameraInfo) {}

ActiveSyncDataUpdater::~ActiveSyncDataUpdater() = default;

bool ActiveSyncDataUpdater::update(SyncData const* data) {
    // A completed frame always names at least the camera that brought it; an empty target list
    // means the caller's flow is broken.
    if (data->syncTargetList.empty()) {
        RYX_LOGF(RYX_MSG_INVALID_OPERATION);
    }
    return true;
}

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
