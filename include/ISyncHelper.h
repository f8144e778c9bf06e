#pragma once
// ISyncHelper: keeps the per-frame results of the sensors of one multi-camera session in step.
//
// A pipeline needs only this header. It brings the records (SyncResultInputParams,
// SyncResultOutputParams), the metadata tags, and the platform types NSCam::IMetadata,
// NSCam::MRect and NSCam::CameraInfo.
//
// Use: one helper per session, from createInstance(). Each sensor's pipeline thread calls
// syncResultCheck() once per frame result, before it delivers the result. The calls of the
// sensors named in a frame's RYX_FRAMESYNC_ID meet inside the helper; the last one to arrive runs
// the result writers for the whole frame, and every caller gets its verdict.
//
// Threads: the helper starts no thread. All operations may be called concurrently from the
// sensors' threads. Only syncResultCheck() blocks: on the queue path it waits, with no time
// limit, until every sync target of its frame has arrived or dropped, or the frame is dropped
// or flushed. A sensor that will not deliver a frame must say so (notifyDrop or
// notifyDropBySensor), or the other sensors of that frame wait for it.
//
// Ownership: the helper is shared-owned by the pipeline. Records and metadata passed in are
// borrowed for the duration of the call only. Destroy the helper (drop the last reference) only
// after every pipeline thread has stopped calling it; destruction neither waits for nor wakes a
// thread still inside syncResultCheck().
//
// Errors: bad input (a null pointer the call needs) gets one error log line and a false result.
// A broken call flow (a camera entering a frame twice, a camera outside the frame's sync group,
// more than 10 frames in flight) aborts the process with a fatal log line.

#include "SyncHelperExport.h"
#include "SyncHelperTypes.h"
#include "SyncMetaTags.h"

#include <NSCam/CameraInfo.h>
#include <NSCam/IMetadata.h>
#include <NSCam/MRect.h>

#include <cstdint>
#include <memory>
#include <unordered_map>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class RYX_SYNCHELPER_EXPORT ISyncHelper {
  public:
    // Makes the helper of one session. `sessionKey` identifies the session to the camera
    // stack's shared-data registry; `allowCropReplace` together with the property
    // "vendor.debug.camera.crop_replace" (default 1) enables crop overrides; `cameraInfo` holds
    // the static description of every sensor, keyed by sensor id. Never returns null.
    static std::shared_ptr<ISyncHelper> createInstance(
        unsigned long sessionKey, bool allowCropReplace,
        std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo);

    // The operations below are declared in the order of the interface's virtual table, which
    // compiled pipelines depend on. Do not reorder.

    // Defined in the library, which so carries the interface's vtable and typeinfo.
    virtual ~ISyncHelper();

    // This camera drops the frame `input` describes. For a slave the drop counts as the
    // camera's arrival; for the frame's real master (RYX_DUALZOOM_REAL_MASTER) the frame is
    // dropped for the other cameras of its RYX_FRAMESYNC_ID. Always returns false.
    virtual bool notifyDrop(SyncResultInputParams const& input) = 0;

    // Flush: frame `frameNo` is dropped for every camera, now and on every later arrival.
    // `unused` is accepted and ignored. Returns true.
    virtual bool notifyDrop(int const& frameNo, int const& unused) = 0;

    // Sensor `sensorId` leaves: its drop counts as its arrival in every frame in flight that
    // lists it. Always returns false.
    virtual bool notifyDropBySensor(int sensorId) = 0;

    // The per-frame check. Returns true when the frame may be delivered as synchronised. On the
    // queue path (RYX_FRAMESYNC_ID and RYX_FRAMESYNC_REQUIRED present) it may block as described
    // above; otherwise the result writers run at once for this camera alone. Writes
    // RYX_FRAMESYNC_RESULT, RYX_DUALZOOM_REAL_MASTER, bMasterCam, RYX_APP_REAL_MASTER and the
    // physical-camera tags into `output`. False, with an error line, when `input.HalControl` or
    // `output` is null, or on the queue path when output->HalDynamic or output->AppDynamic is.
    virtual bool syncResultCheck(SyncResultInputParams const& input,
                                 SyncResultOutputParams* output) = 0;

    // Whether face-detection control is wanted: true unless `metadata` holds
    // RYX_FRAMESYNC_FD_CONTROL with item 0 at most 0.
    virtual bool isNeedFdControl(NSCam::IMetadata* metadata) = 0;

    // The sync-switch flag of this frame: 1 when a run of sync frames starts (only negative,
    // no-control frame numbers with RYX_FRAMESYNC_ID and RYX_NEED_SYNC = 1), 2048 otherwise.
    virtual int32_t getSyncSwitchFlag(SyncResultInputParams const& input) = 0;

    // Kept for interface compatibility: do nothing and return true.
    virtual bool reassignLicense(unsigned int license) = 0;
    virtual bool hasOtherUser(int user) = 0;

    // Stores the crop set of request `requestNo`, one rectangle per sensor id. Returns true.
    virtual bool setSensorCropRegion(int requestNo,
                                     std::unordered_map<int, NSCam::MRect> const& crops) = 0;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
