#pragma once
// SyncHelper: the implementation of ISyncHelper, one per multi-camera session.
//
// Pipelines normally hold it as ISyncHelper. The two public non-virtual operations below are
// reached through the concrete class:
//
//   auto helper = std::dynamic_pointer_cast<SyncHelper>(ISyncHelper::createInstance(...));
//   helper->getSensorCropRegion(input);   // before the frame's crop is applied
//
// Owns the session's SyncQueue (made with the updater mask 15), the only strong reference to the
// queue's callback, and the four updaters (keys 1, 2, 4, 8). Destruction order: the callback,
// then the queue (frames still queued are freed without any report), then the updaters.
//
// Locks: mDropLock serialises notifyDrop(input) around its queue call; mCropLock guards the crop
// tables and is never held with another lock. Lock order: mDropLock -> the queue's locks.

#include "FrameCropTable.h"
#include "ISyncDataUpdater.h"
#include "ISyncHelper.h"
#include "MetaRead.h"
#include "SyncDataReuse.h"
#include "SyncHelperExport.h"
#include "ThreadAnnotations.h"
#include "Timer.h"

#include <NSCam/MRect.h>

#include <cstdint>
#include <memory>
#include <unordered_map>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class SyncQueue;
class SyncQueue_ResultCheck_Cb;
class SyncHelperInspector;

class RYX_SYNCHELPER_EXPORT SyncHelper : public virtual ISyncHelper {
  public:
    // Per-sensor record of getSyncSwitchFlag.
    struct SyncFlagData {
        int32_t frameNo = 0;
        bool needSync = false;
    };

    SyncHelper(unsigned long sessionKey, bool allowCropReplace,
               std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo);
    ~SyncHelper() override;
    SyncHelper(SyncHelper const&) = delete;
    SyncHelper& operator=(SyncHelper const&) = delete;

    bool notifyDrop(SyncResultInputParams const& input) override;
    bool notifyDrop(int const& frameNo, int const& unused) override;
    bool notifyDropBySensor(int sensorId) override;
    bool syncResultCheck(SyncResultInputParams const& input,
                         SyncResultOutputParams* output) override;
    bool isNeedFdControl(NSCam::IMetadata* metadata) override;
    int32_t getSyncSwitchFlag(SyncResultInputParams const& input) override;
    bool reassignLicense(unsigned int license) override;
    bool hasOtherUser(int user) override;
    bool setSensorCropRegion(int requestNo,
                             std::unordered_map<int, NSCam::MRect> const& crops) override;

    // Runs the updaters selected by `processType` in the order 1, 2, 4, 8 and ANDs their
    // verdicts without short-circuit; true when none ran. Takes no lock of its own: on the queue
    // path it runs under the queue's locks, which serialise it per session.
    bool updateData(SyncDataUpdaterType const& processType, SyncData const* data);

    // Writes this sensor's crop of the frame's crop set into input.HalControl as
    // RYX_SENSOR_CROP_OVERRIDE (when crop replacement is on). The first sensor of a synchronised
    // frame snapshots the latest set so that the next sensor of that frame uses the same set even
    // if a new set arrives meanwhile. Always returns true. Takes mCropLock.
    bool getSensorCropRegion(SyncResultInputParams const& input) RYX_EXCLUDES(mCropLock);

  private:
    friend class SyncHelperInspector;  // tests and tools, through the internal archive

    using UpdaterMap = std::unordered_map<SyncDataUpdaterType, std::unique_ptr<ISyncDataUpdater>>;
    using CropMap = std::unordered_map<int, NSCam::MRect>;

    UpdaterMap mUpdaters;                               // fixed after construction
    Mutex mDropLock;                                    // outermost; only in notifyDrop(input)
    std::unique_ptr<SyncQueue> mSpareQueue;             // never filled
    std::unique_ptr<SyncQueue> mSyncQueue_ResultCheck;  // the session's queue
    std::shared_ptr<SyncQueue_ResultCheck_Cb> mResultCheckCb;  // the only strong reference
    Timer mCheckTimer;  // no lock needed (atomic): read by the masters' threads for a debug line
    Mutex mCropLock;    // never held with another lock
    uint64_t mUniqueKey;
    bool mAllowCropReplace;
    int32_t mLatestCropRequest RYX_GUARDED_BY(mCropLock) = -1;
    CropMap mLatestCrop RYX_GUARDED_BY(mCropLock);
    FrameCropTable mFrameCrops RYX_GUARDED_BY(mCropLock);  // snapshots and users-left counts
    bool mNeedCropReplace = false;                         // fixed after construction
    // Not locked: each entry is touched only by its own sensor's thread; only a sensor's first
    // entry changes the table's shape, so that insertion takes mSyncFlagLock.
    std::unordered_map<uint32_t, SyncFlagData> mSyncFlags;
    Mutex mSyncFlagLock;
};

// The helper ISyncHelper::createInstance gives: a SyncHelper with its trace points, made in one
// allocation with its count (TracedSyncHelper.cpp).
std::shared_ptr<ISyncHelper> makeTracedSyncHelper(
    unsigned long sessionKey, bool allowCropReplace,
    std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo);

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
