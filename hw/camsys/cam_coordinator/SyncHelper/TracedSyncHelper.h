#pragma once
// TracedSyncHelper: the helper a pipeline gets from ISyncHelper::createInstance. It is SyncHelper
// with the system-trace points of a pipeline's calls around it (SyncTrace.h, camera tag); the
// library's warnings and errors go to the trace from the log statements themselves (SyncLog.h).
//
// With tracing off, each call costs one check of the enabled tags on top of SyncHelper's.
// With it on, on the caller's thread:
//   "RyxSync f<frame> cam<id>"          section: the syncResultCheck call, rendezvous included
//   "RyxSync drop f<frame> cam<id>"     section: the sensor's own drop of the frame
//   "RyxSync f<frame> cam<id> <verdict>; sof <ns>[; tolerance <us> us][; mode <m>][; master]"
//       mark at the end of either section; the verdict is "passed", "passed, not checked",
//       "out of sync, RESULT 1", "out of sync, RESULT 2", "dropped" (the flush, master-drop or
//       warning marks say why) or "dropped by its sensor"
//   "RyxSync flush f<frame>", "RyxSync master drop f<frame> cam<id>", "RyxSync leave cam<id>"
//   "RyxSync session <key> cameras <id>,<id>..." at creation, "RyxSync session <key> end" at
//       destruction
// and the process-wide counters "RyxSync master" (the master camera, at each of its calls) and
// "RyxSync sof cam<a>-cam<b> us" (start of frame of b minus that of a, once both have called).
// A mark is a section that ends where it begins.

#include "SyncHelper.h"
#include "ThreadAnnotations.h"

#include <array>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class TracedSyncHelper final : public SyncHelper {
  public:
    TracedSyncHelper(unsigned long sessionKey, bool allowCropReplace,
                     std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo);
    ~TracedSyncHelper() override;

    bool notifyDrop(SyncResultInputParams const& input) override;
    bool notifyDrop(int const& frameNo, int const& unused) override;
    bool notifyDropBySensor(int sensorId) override;
    bool syncResultCheck(SyncResultInputParams const& input,
                         SyncResultOutputParams* output) override;

  private:
    bool tracedCheck(SyncResultInputParams const& input, SyncResultOutputParams* output);
    // Notes this camera's start of frame and sets the counters of the pairs it completes.
    void countSofDifferences(int frameNo, int cameraId, int64_t sofNs) RYX_EXCLUDES(mSofLock);

    // The latest frames' starts of frame, by frame slot and camera; touched only while tracing.
    static constexpr int kFrameSlots = 32;
    static constexpr int kCameras = 8;
    struct SofSlot {
        int frame = -1;
        std::array<int64_t, kCameras> sofNs{};
    };
    Mutex mSofLock;
    std::array<SofSlot, kFrameSlots> mSof RYX_GUARDED_BY(mSofLock);
    unsigned long mKey;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
