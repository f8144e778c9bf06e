#pragma once
// SyncElement: one frame's rendezvous record inside a SyncQueue.
//
// Made only by SyncQueue::createSyncElement, as a shared object. The queue's map holds one
// reference and every thread inside SyncQueue::enque for the frame holds another, so an element
// that has left the map lives until the last of those threads returns.
//
// Locking: mSyncData is written only with the owning queue's mQueueLock held (the first camera
// fills it, later cameras add their records); mValid changes only with mLock held. mLock is taken
// after the queue's mQueueLock, never before it. Notifications on mCond are notify-all, made with
// mLock held.

#include "ISyncQueueCB.h"
#include "SyncHelperTypes.h"
#include "ThreadAnnotations.h"

#include <condition_variable>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class SyncElement {
  public:
    SyncElement() = default;
    SyncElement(SyncElement const&) = delete;
    SyncElement& operator=(SyncElement const&) = delete;

    std::condition_variable mCond;             // the frame's threads wait here, on mLock
    Mutex mLock;                               // acquired after SyncQueue::mQueueLock
    Mutex mSpareLock;                          // never locked; kept for layout compatibility
    SyncData mSyncData;                        // written under the queue's mQueueLock
    bool mValid RYX_GUARDED_BY(mLock) = true;  // true while threads may still wait on the frame
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
