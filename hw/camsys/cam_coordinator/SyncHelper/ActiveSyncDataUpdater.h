#pragma once
// ActiveSyncDataUpdater (key ACTIVE, 4): a validation step. A frame without sync targets is a
// broken call flow and aborts with "Invalid operation."; every other frame passes unchanged.
// Stateless; takes no lock.

#include "ISyncDataUpdater.h"

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class ActiveSyncDataUpdater : public virtual ISyncDataUpdater {
  public:
    ActiveSyncDataUpdater(unsigned long sessionKey,
                          std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo);
    ~ActiveSyncDataUpdater() override;
    bool update(SyncData const* data) override;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
