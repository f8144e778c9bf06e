#pragma once
// SyncHelperInspector: read access to a helper's and a queue's private state, for the tests, the
// benchmarks and the fuzz targets, which link the internal archive.
//
// Not part of the exported interface: this header is not installed and everything here is
// inline, so nothing of it reaches the shared library. Each count takes the lock that guards what
// it reads (the helper's crop lock or switch-flag lock), so it may be called while sessions run.

#include "SyncHelper.h"
#include "SyncQueue.h"
#include "ThreadAnnotations.h"

#include <cstddef>
#include <cstdint>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class SyncHelperInspector {
  public:
    static bool needCropReplace(SyncHelper const& helper) { return helper.mNeedCropReplace; }

    // Frames holding a crop snapshot, and frames with a users-left count.
    static size_t cropSnapshotCount(SyncHelper& helper) {
        MutexLock lock(helper.mCropLock);
        return helper.mFrameCrops.snapshotCount();
    }
    static size_t cropUsersLeftCount(SyncHelper& helper) {
        MutexLock lock(helper.mCropLock);
        return helper.mFrameCrops.usersLeftCount();
    }
    static bool hasCropSnapshot(SyncHelper& helper, int frameNo) {
        MutexLock lock(helper.mCropLock);
        return helper.mFrameCrops.snapshot(frameNo) != nullptr;
    }
    // The users-left count of the frame's crop snapshot, or -1 when the frame has none.
    static int32_t cropUsersLeft(SyncHelper& helper, int frameNo) {
        MutexLock lock(helper.mCropLock);
        return helper.mFrameCrops.usersLeft(frameNo);
    }
    // Number of sensors with a switch-flag record.
    static size_t syncFlagCount(SyncHelper& helper) {
        MutexLock lock(helper.mSyncFlagLock);
        return helper.mSyncFlags.size();
    }

    static SyncQueue* queue(SyncHelper const& helper) {
        return helper.mSyncQueue_ResultCheck.get();
    }
    // The queue's lock, for driving the queue operations that require it held.
    static Mutex& queueLock(SyncQueue& queue) RYX_RETURN_CAPABILITY(queue.mQueueLock) {
        return queue.mQueueLock;
    }
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
