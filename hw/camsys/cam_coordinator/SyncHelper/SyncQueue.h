#pragma once
// SyncQueue: the rendezvous of one session's camera threads on a frame number.
//
// Each camera's pipeline thread calls enque() once per frame result. The queue records the
// arrival, decides whether the result must be dropped, merges the camera's records into the
// frame's SyncElement and either completes the frame (the last sync target to arrive hands the
// frame's SyncData to the owner's ISyncQueueCB with SYNC_DATA_READY and wakes the others) or waits
// until the last camera, a drop or clear() releases it. The drop queue remembers frames that some
// camera gave up, so that the others do not wait for them; the flush list remembers flushed
// frames.
//
// Limits: at most 10 live frames (an 11th is fatal "please check flow"), 20 frames in the arrival
// record (pruning a frame that is still live is fatal "SyncElement should be NULL"), 21 drop-queue
// entries when filled by addDropFrameInfo, 21 flushed frames.
//
// Blocking: only enque() blocks, on its frame's condition variable, with no time limit.
//
// Locking, outermost first: the owner's drop lock, mQueueLock, one element's mLock. The callback
// runs with mQueueLock and the element's mLock held, so it must not call back into the queue.
// Operations marked "caller holds mQueueLock" are building blocks of the others and public only
// so that tests can drive them (SyncHelperInspector::queueLock hands the lock to them).
//
// Verdicts are settled per camera after the wait, by the drop check, not when the frame
// completes. So a drop or flush of the frame that lands between a woken camera's wake-up and its
// drop check fails that camera although the completing camera passed. Kept as designed; the
// schedule fuzz target reaches it with (frame 0 of cameras 0 and 1):
//   cam1 enque f0 (waits); cam0 enque f0 (completes, true, wakes cam1); flush f0; cam1 -> false
// The converse holds too: a frame whose callback failed reaches the woken cameras only through
// its drop-queue entry; if more than 20 other frames enter the drop queue before a woken camera
// takes mQueueLock again, the entry is gone and that camera passes while the completing one
// failed. A campaign schedule showed it (frame 3 of cameras 0-2, camera 2 completing it):
//   cam0, cam1 enque f3 (wait); cam2 enque f3 (master updater refuses a frame inversion, false);
//   master drops of 21 other frames before cam0 and cam1 run their drop check; both -> true
//
// One result per camera per frame is part of the contract, not checked: the first thread to
// leave a frame removes whatever element the frame number maps to then. A camera that enters a
// frame again before a woken camera has left it parks on a new element that this leaving thread
// removes without waking it; no later drop or flush finds it (frame 40, camera 2 its master):
//   cam2 drops f40 as master; cam2 enque f40 (waits); cam1 enque f40 (dropped, wakes cam2);
//   cam1 enque f40 again (waits on a new element); cam2 leaves and removes it; cam1 waits forever
//
// Ownership: owned by its SyncHelper. The callback is held by weak reference and locked for each
// call. Destroy the queue only when no thread is inside it; destruction wakes nobody and reports
// nothing.

#include "ArrivalRecord.h"
#include "ISyncQueueCB.h"
#include "MetaRead.h"
#include "SyncDataReuse.h"
#include "SyncElement.h"
#include "SyncHelperTypes.h"
#include "SyncMessages.h"
#include "ThreadAnnotations.h"

#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class SyncHelperInspector;

class SyncQueue {
  public:
    static constexpr size_t kMaxLiveFrames = synclimits::kMaxLiveFrames;
    static constexpr size_t kMaxArrivedFrames = synclimits::kMaxArrivedFrames;
    static constexpr size_t kMaxDropQueue = synclimits::kMaxDropQueue;
    static constexpr size_t kMaxFlushFrames = synclimits::kMaxFlushFrames;

    explicit SyncQueue(int type);
    ~SyncQueue();
    SyncQueue(SyncQueue const&) = delete;
    SyncQueue& operator=(SyncQueue const&) = delete;

    // --- state and elements ---
    // Stores the callback when it can be locked; logs "set callback fail" otherwise. Returns
    // true either way.
    bool setCallback(std::weak_ptr<ISyncQueueCB> callback);
    SyncDataUpdaterType getSyncDataUpdateType() const;
    // Takes no lock; for tests and tools on a quiet queue.
    std::shared_ptr<SyncElement> getSyncElement(int const& frameNo) RYX_NO_THREAD_SAFETY_ANALYSIS;
    // Caller holds mQueueLock. Keys the element by input.frameNo; keeps an existing element.
    std::shared_ptr<SyncElement> createSyncElement(int const& frameNo,
                                                   SyncResultInputParams const& input,
                                                   SyncResultOutputParams* output)
        RYX_REQUIRES(mQueueLock);
    // Caller holds mQueueLock.
    bool updateSyncElement(std::shared_ptr<SyncElement> const& element,
                           SyncResultInputParams const& input, SyncResultOutputParams* output)
        RYX_REQUIRES(mQueueLock);
    bool removeItem(int const& frameNo) RYX_EXCLUDES(mQueueLock);
    // The same with mQueueLock already held by `held`, so that a leaving camera checks its drop
    // and removes the frame in one pass under the mutex (a subset of the interleavings of
    // separate passes, with the same lines in the same order).
    bool removeItem(int const& frameNo, MutexLock const& held) RYX_REQUIRES(mQueueLock);
    // Takes no lock; the owner serialises it with enque().
    bool getFrameNoList(std::vector<int>* list) RYX_NO_THREAD_SAFETY_ANALYSIS;
    // Reports every live frame as SYNC_DATA_READY, invalidates it, wakes its waiters and empties
    // the element map. Takes no queue lock; the owner serialises it with enque().
    bool clear() RYX_NO_THREAD_SAFETY_ANALYSIS;

    // --- rendezvous ---
    // The verdict of camera input.m_id for frame `frameNo`: true when the result passed
    // synchronisation. May block until the frame completes or is dropped.
    bool enque(std::string callerName, int const& frameNo, SyncResultInputParams const& input,
               SyncResultOutputParams* output, std::vector<int>* dropList) RYX_EXCLUDES(mQueueLock);
    // Caller holds mQueueLock. Returns the number of distinct cameras arrived for the frame.
    int updateArrivedSyncMap(int frameNo, int cameraId) RYX_REQUIRES(mQueueLock);
    // Caller holds mQueueLock. True when dropList is empty afterwards.
    bool sequenceCheck(int const& frameNo, int const& cameraId, std::vector<int>* dropList)
        RYX_REQUIRES(mQueueLock);
    // Public form of sequenceCheck with the input's frame and camera. Takes no lock; the caller
    // makes sure that nothing else touches the drop queue meanwhile.
    bool checkSyncQueue(SyncResultInputParams const& input,
                        std::vector<int>* dropList) RYX_NO_THREAD_SAFETY_ANALYSIS;

    // --- sync targets and sync data (no lock, no member used) ---
    std::vector<int> getSyncTartgetList(SyncResultInputParams const& input);
    std::vector<int> getMWMasterSlaveList(SyncResultInputParams const& input);
    bool genSyncData(SyncData* data, SyncResultInputParams const& input,
                     SyncResultOutputParams* output);

    // --- drop queue ---
    bool addDropFrameInfo(int frameNo, int cameraId, std::vector<int> const* dropCameras)
        RYX_EXCLUDES(mQueueLock);
    bool removeItemFromDropQueue() RYX_REQUIRES(mQueueLock);
    bool clearDropQueue(int const& frameNo, int const& cameraId) RYX_REQUIRES(mQueueLock);
    bool isNeedDropFrame(int const& frameNo) RYX_EXCLUDES(mQueueLock);
    bool isNeedDropFrame(int const& frameNo, MutexLock const& held) RYX_REQUIRES(mQueueLock);
    bool dropItem(int const& frameNo) RYX_REQUIRES(mQueueLock);

    // --- drop operations ---
    bool dropLastItemLocked(int const& frameNo, int const& cameraId) RYX_EXCLUDES(mQueueLock);
    bool dropLastItem(int const& frameNo, int const& cameraId) RYX_REQUIRES(mQueueLock);
    bool dropItemsForFlush(int const& frameNo, int const& unused) RYX_EXCLUDES(mQueueLock);
    bool dropItemsBySensor(int const& sensorId) RYX_EXCLUDES(mQueueLock);

    // --- inspection for tests and tools; each takes mQueueLock ---
    size_t liveFrameCount() RYX_EXCLUDES(mQueueLock);
    std::map<int, std::vector<int>> dropQueueSnapshot() RYX_EXCLUDES(mQueueLock);
    std::vector<int> flushListSnapshot() RYX_EXCLUDES(mQueueLock);
    std::deque<std::pair<int, std::set<int>>> arrivedSnapshot() RYX_EXCLUDES(mQueueLock);

  private:
    friend class SyncHelperInspector;  // hands mQueueLock to tests of the locked operations

    int const mSyncDataUpdateType;
    // Guards the containers below; taken before any element's mLock.
    Mutex mQueueLock;
    std::unordered_map<int, std::shared_ptr<SyncElement>> mQueue RYX_GUARDED_BY(mQueueLock);
    std::map<int, std::vector<int>> mDropQueue RYX_GUARDED_BY(mQueueLock);
    std::vector<int> mFlushDropList RYX_GUARDED_BY(mQueueLock);
    std::weak_ptr<ISyncQueueCB> mCallback;  // set before the queue is used; read-only after
    Mutex mSpareLock;                       // never locked
    std::vector<int> mSpareList;            // never used
    ArrivalRecord<kMaxArrivedFrames> mArrivedSyncMap RYX_GUARDED_BY(mQueueLock);
    // Elements out of mQueue, kept so that a later frame reuses one instead of allocating.
    std::vector<std::shared_ptr<SyncElement>> mRetiredElements RYX_GUARDED_BY(mQueueLock);
    // Map nodes of reused elements, taken by the cameras' records of later frames.
    std::vector<decltype(SyncData::inputParams)::node_type> mSpareInputNodes
        RYX_GUARDED_BY(mQueueLock);
    std::vector<decltype(SyncData::outputParams)::node_type> mSpareOutputNodes
        RYX_GUARDED_BY(mQueueLock);
    // mQueue's nodes of retired frames (holding no element), taken by the next frames' entries.
    std::vector<decltype(mQueue)::node_type> mSpareQueueNodes RYX_GUARDED_BY(mQueueLock);

    // The sync targets of `input` into `list`, replacing what it held.
    static void fillSyncTargets(SyncResultInputParams const& input, std::vector<int>& list);
    // genSyncData without the map entries: frame and request numbers, the sync targets and the
    // master-slave list, written into the record's lists in place.
    static void fillSyncLists(SyncData& data, SyncResultInputParams const& input);

    // --- reuse of elements and their map nodes (SyncQueue.cpp, at its end) ---
    // A retired element whose last holder is the retired list, reset to the state of a new one,
    // or a new element.
    std::shared_ptr<SyncElement> reuseOrMakeElement() RYX_REQUIRES(mQueueLock);
    // Takes the frame's element out of mQueue (keeping it for reuse); false when it is not there.
    bool retireItem(int frameNo) RYX_REQUIRES(mQueueLock);
    // data.inputParams / outputParams .emplace(cameraId, ...), in a spare node when there is one.
    void addInput(SyncData& data, int32_t cameraId, SyncResultInputParams const* input)
        RYX_REQUIRES(mQueueLock);
    void addOutput(SyncData& data, int32_t cameraId, SyncResultOutputParams* output)
        RYX_REQUIRES(mQueueLock);
    // mQueue.emplace(frameNo, element), in a spare node when there is one.
    void addElement(int frameNo, std::shared_ptr<SyncElement> const& element)
        RYX_REQUIRES(mQueueLock);
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
