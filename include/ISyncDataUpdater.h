#pragma once
// Base of the result writers ("updaters") that turn a completed frame's SyncData into metadata
// edits and a verdict. The sync helper makes one of each kind per session and owns them.

#include "SyncHelperTypes.h"

#include <NSCam/CameraInfo.h>

#include <cstdint>
#include <unordered_map>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class ISyncDataUpdater {
  public:
    ISyncDataUpdater(unsigned long sessionKey,
                     std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo)
        : mSessionKey(sessionKey), mCameraInfo(cameraInfo) {}
    virtual ~ISyncDataUpdater() = default;

    // Runs once per completed frame, serialised by the caller's locks. May edit the metadata
    // and output records `data` points to; keeps no pointer from it. False fails the frame.
    virtual bool update(SyncData const* data) = 0;

  protected:
    uint64_t mSessionKey;
    std::unordered_map<uint32_t, NSCam::CameraInfo> mCameraInfo;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
