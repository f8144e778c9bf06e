#define LOG_TAG "RyxCam/SyncQueue"
#define LOG_SOURCE "hw/camsys/cam_coordinator/SyncHelper/SyncQueue"

#include "SyncQueue.h"

#include "SyncLog.h"
#include "SyncMetaTags.h"

#include <algorithm>
#include <mutex>
#include <sstream>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

namespace {

bool contains(std::vector<int> const& list, int value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

// Enters `frame` into the drop queue for every id of `ids` other than `self` (duplicates kept).
// A frame that already has an entry keeps it. Kept a lambda on purpose: its two lines carry
// "operator()" in the function field, which is what log readers of the queue look for.
auto const registerDroppedFrame = [](std::map<int, std::vector<int>>& dropQueue, int frame,
                                     std::vector<int> const& ids, int self) {
    if (dropQueue.count(frame) != 0) {
        RYX_LOGD(RYX_MSG_DROP_ALREADY_QUEUED, frame);
        return;
    }
    std::vector<int> cameraDropList;
    std::ostringstream text;
    for (int const id : ids) {
        if (id != self) {
            cameraDropList.push_back(id);
            text << id << ",";
        }
    }
    dropQueue.emplace(frame, std::move(cameraDropList));
    RYX_LOGD(RYX_MSG_REFUSAL_DROP_LIST, frame, text.str().c_str());
};

}  // namespace

// --- state and elements ---------------------------------------------------------------------

SyncQueue::SyncQueue(int type) : mSyncDataUpdateType(type) {
    mQueue.max_load_factor(1.0f);
    RYX_LOGD(RYX_MSG_QUEUE_CREATED, type);
}

SyncQueue::~SyncQueue() = default;

bool SyncQueue::setCallback(std::weak_ptr<ISyncQueueCB> callback) {
    std::shared_ptr<ISyncQueueCB> const strong = callback.lock();
    if (strong != nullptr) {
        mCallback = callback;
    } else {
        RYX_LOGE(RYX_MSG_SET_CALLBACK_FAILED);
    }
    // Failure shows only in the log.
    return true;
}

SyncDataUpdaterType SyncQueue::getSyncDataUpdateType() const {
    return static_cast<SyncDataUpdaterType>(mSyncDataUpdateType);
}

// No lock: meant for a quiet queue.
std::shared_ptr<SyncElement> SyncQueue::getSyncElement(int const& frameNo) {
    auto const it = mQueue.find(frameNo);
    return it != mQueue.end() ? it->second : nullptr;
}

// The element is keyed by the input's frame number; the frame argument is not consulted.
std::shared_ptr<SyncElement> SyncQueue::createSyncElement(int const& /*frameNo*/,
                                                          SyncResultInputParams const& input,
                                                          SyncResultOutputParams* output) {
    std::shared_ptr<SyncElement> element = reuseOrMakeElement();
    // What genSyncData writes, with the camera's map entries in spare nodes.
    SyncData& data = element->mSyncData;
    fillSyncLists(data, input);
    addInput(data, input.m_id, &input);
    addOutput(data, input.m_id, output);
    // An element already live under that number stays; the new one is handed back regardless.
    addElement(data.frameNo, element);
    if (mQueue.size() > kMaxLiveFrames) {
        RYX_LOGF(RYX_MSG_CHECK_FLOW);
    }
    return element;
}

bool SyncQueue::updateSyncElement(std::shared_ptr<SyncElement> const& element,
                                  SyncResultInputParams const& input,
                                  SyncResultOutputParams* output) {
    if (element == nullptr) {
        RYX_LOGE(RYX_MSG_ELEMENT_NULL, input.frameNo);
        return false;
    }
    SyncData& data = element->mSyncData;
    if (data.inputParams.count(input.m_id) != 0) {
        RYX_LOGF(RYX_MSG_DUPLICATE_INPUT, input.frameNo, input.m_id);
    }
    addInput(data, input.m_id, &input);
    if (data.outputParams.count(input.m_id) != 0) {
        RYX_LOGF(RYX_MSG_DUPLICATE_OUTPUT, input.frameNo, input.m_id);
    }
    addOutput(data, input.m_id, output);
    return true;
}

bool SyncQueue::removeItem(int const& frameNo) {
    MutexLock lock(mQueueLock);
    return removeItem(frameNo, lock);
}

// The caller holds mQueueLock (through `held`).
bool SyncQueue::removeItem(int const& frameNo, MutexLock const& /*held*/) {
    return retireItem(frameNo);
}

// No lock: the owner calls it only while no camera thread is inside the queue.
bool SyncQueue::getFrameNoList(std::vector<int>* list) {
    for (auto const& entry : mQueue) {
        list->push_back(entry.first);
    }
    return true;
}

// No queue lock: the owner calls it only while it keeps camera threads out of the queue's
// containers. Pending frames are reported as ready, with whatever cameras have arrived.
bool SyncQueue::clear() {
    SyncDataUpdaterType const type = getSyncDataUpdateType();
    for (auto const& entry : mQueue) {
        std::shared_ptr<SyncElement> const& element = entry.second;
        if (element == nullptr) {
            continue;
        }
        SyncData const& data = element->mSyncData;
        auto const found = mQueue.find(data.frameNo);
        if (found != mQueue.end() && found->second != nullptr) {
            SyncElement& target = *found->second;
            MutexLock lock(target.mLock);
            target.mValid = false;
            std::shared_ptr<ISyncQueueCB> const callback = mCallback.lock();
            if (callback != nullptr) {
                RYX_LOGI(RYX_MSG_DROP_NOTIFY, data.frameNo);
                callback->onEvent(ISyncQueueCB::SYNC_DATA_READY, type, &target.mSyncData);
            }
            element->mCond.notify_all();
        } else {
            element->mCond.notify_all();
        }
        RYX_LOGD(RYX_MSG_RETIRE_UNLOCK, data.requestNo, data.frameNo);
    }
    if (!mQueue.empty()) {
        mQueue.clear();
    }
    return true;
}

// --- rendezvous -----------------------------------------------------------------------------

bool SyncQueue::enque(std::string callerName, int const& frameNo,
                      SyncResultInputParams const& input, SyncResultOutputParams* output,
                      std::vector<int>* dropList) {
    char const* const name = callerName.c_str();
    int const frame = frameNo;
    int const cam = input.m_id;
    std::vector<int> ownDropList;
    if (dropList == nullptr) {
        dropList = &ownDropList;
    }

    mQueueLock.lock();

    // A flushed frame is dropped on arrival; the arrival is not even recorded.
    if (contains(mFlushDropList, frame)) {
        dropItem(frame);
        mQueueLock.unlock();
        return false;
    }

    int const arrived = updateArrivedSyncMap(frame, cam);
    // Its verdict is carried by dropList, which is walked below.
    (void)sequenceCheck(input.frameNo, cam, dropList);

    if (!dropList->empty()) {
        bool selfDropped = false;
        std::vector<int> const drops = *dropList;
        for (int const dropFrame : drops) {
            if (dropFrame != frame) {
                dropItem(dropFrame);
                continue;
            }
            // Merge first, so that the drop report carries this camera's records.
            auto const it = mQueue.find(frame);
            if (it != mQueue.end() && it->second != nullptr) {
                updateSyncElement(it->second, input, output);
            } else {
                createSyncElement(frame, input, output);
            }
            dropItem(frame);
            selfDropped = true;
        }
        if (selfDropped) {
            mQueueLock.unlock();
            return false;
        }
    }

    std::shared_ptr<SyncElement> element;
    auto const it = mQueue.find(frame);
    if (it != mQueue.end() && it->second != nullptr) {
        element = it->second;
        updateSyncElement(element, input, output);
    } else {
        element = createSyncElement(frame, input, output);
    }
    SyncElement& elem = *element;
    std::vector<int> const& targets = elem.mSyncData.syncTargetList;
    if (!contains(targets, cam)) {
        RYX_LOGF(RYX_MSG_NOT_A_TARGET);
    }

    bool verdict = true;
    elem.mLock.lock();
    if (static_cast<size_t>(arrived) == targets.size()) {
        std::shared_ptr<ISyncQueueCB> callback = mCallback.lock();
        if (callback != nullptr) {
            RYX_LOGD(RYX_MSG_QUEUE_NOTIFY, name, frame, cam);
            SyncDataUpdaterType const type = getSyncDataUpdateType();
            if (!callback->onEvent(ISyncQueueCB::SYNC_DATA_READY, type, &elem.mSyncData)) {
                // The other cameras of the frame give up their results too.
                std::vector<int> syncIds;
                appendItems<int>(input.HalControl, RYX_FRAMESYNC_ID, syncIds);
                registerDroppedFrame(mDropQueue, frame, syncIds, cam);
                verdict = false;
            }
            callback.reset();
        }
        elem.mCond.notify_all();
        mQueueLock.unlock();
        RYX_LOGD(RYX_MSG_QUEUE_UNLOCK, name, frame, cam);
    } else if (mQueue.count(frame) != 0 && elem.mValid) {
        RYX_LOGD(RYX_MSG_QUEUE_WAIT, name, frame, cam, elem.mValid ? 1 : 0);
        mQueueLock.unlock();
        // One wait, no predicate: whatever wakes the thread ends the rendezvous, and the drop
        // check below settles the verdict.
        std::unique_lock<std::mutex> waitLock(elem.mLock.native(), std::adopt_lock);
        elem.mCond.wait(waitLock);
        waitLock.release();
        RYX_LOGD(RYX_MSG_QUEUE_WAITED, name, frame, cam);
    } else {
        mQueueLock.unlock();
        RYX_LOGD(RYX_MSG_QUEUE_NO_WAIT, name, frame, cam);
    }
    elem.mLock.unlock();

    MutexLock lock(mQueueLock);  // one round trip: drop check, drop entry, removal
    if (isNeedDropFrame(frame, lock)) {
        clearDropQueue(frame, cam);
        verdict = false;
    }
    removeItem(frame, lock);
    return verdict;
}

int SyncQueue::updateArrivedSyncMap(int frameNo, int cameraId) {
    // A lambda on purpose: its lines carry "operator()" in the function field.
    auto const pruneOldest = [this]() RYX_REQUIRES(mQueueLock) {
        int const oldest = mArrivedSyncMap.oldestFrame();
        RYX_LOGD(RYX_MSG_ARRIVAL_PRUNED, oldest);
        auto const live = mQueue.find(oldest);
        if (live != mQueue.end() && live->second != nullptr) {
            RYX_LOGF(RYX_MSG_ELEMENT_NOT_NULL);
        }
        mArrivedSyncMap.dropOldest();
    };
    if (mArrivedSyncMap.size() >= kMaxArrivedFrames) {
        pruneOldest();
    }
    if (auto* slot = mArrivedSyncMap.find(frameNo)) {
        return slot->addCamera(cameraId);
    }
    // A slot reused with its list: no allocation once the ring has gone round.
    return mArrivedSyncMap.append(frameNo, cameraId);
}

bool SyncQueue::sequenceCheck(int const& frameNo, int const& cameraId, std::vector<int>* dropList) {
    auto const entry = mDropQueue.find(frameNo);
    if (entry != mDropQueue.end()) {
        int const target = entry->first;
        std::vector<int> const cameras = entry->second;
        bool matched = false;
        for (int const item : cameras) {
            if (item == cameraId) {
                RYX_LOGD(RYX_MSG_EQUAL_TO_DROP,  //
                         item, frameNo, item, target);
                dropList->push_back(frameNo);
                matched = true;
            }
        }
        if (matched && clearDropQueue(frameNo, cameraId) && mQueue.count(frameNo) != 0) {
            RYX_LOGD(RYX_MSG_TARGET_DROPPING, frameNo, frameNo);
        }
    }
    return dropList->empty();
}

// No lock: a public form of sequenceCheck for callers that keep the queue quiet themselves.
bool SyncQueue::checkSyncQueue(SyncResultInputParams const& input, std::vector<int>* dropList) {
    return sequenceCheck(input.frameNo, input.m_id, dropList);
}

// --- sync targets and sync data -------------------------------------------------------------

std::vector<int> SyncQueue::getSyncTartgetList(SyncResultInputParams const& input) {
    std::vector<int> list;
    fillSyncTargets(input, list);
    return list;
}

std::vector<int> SyncQueue::getMWMasterSlaveList(SyncResultInputParams const& input) {
    std::vector<int> list;
    appendItems<int>(input.HalControl, RYX_MW_MASTER_SLAVE_LIST, list);
    return list;
}

// The caller first, then the frame's sync ids as they stand, even when they name the caller
// again or repeat an id: every entry counts towards completion. Written into `list` in place, so
// that a reused record keeps its lists' capacity from frame to frame.
void SyncQueue::fillSyncTargets(SyncResultInputParams const& input, std::vector<int>& list) {
    list.clear();
    list.push_back(input.m_id);
    appendItems<int>(input.HalControl, RYX_FRAMESYNC_ID, list);
}

void SyncQueue::fillSyncLists(SyncData& data, SyncResultInputParams const& input) {
    data.frameNo = input.frameNo;
    data.requestNo = input.requestNo;
    fillSyncTargets(input, data.syncTargetList);
    data.masterSlaveList.clear();
    appendItems<int>(input.HalControl, RYX_MW_MASTER_SLAVE_LIST, data.masterSlaveList);
}

bool SyncQueue::genSyncData(SyncData* data, SyncResultInputParams const& input,
                            SyncResultOutputParams* output) {
    fillSyncLists(*data, input);
    // Existing entries are kept (try_emplace: without making a node only to throw it away);
    // later cameras are added by updateSyncElement.
    data->inputParams.try_emplace(input.m_id, &input);
    data->outputParams.try_emplace(input.m_id, output);
    return true;
}

// --- drop queue -----------------------------------------------------------------------------

bool SyncQueue::addDropFrameInfo(int frameNo, int cameraId, std::vector<int> const* dropCameras) {
    if (frameNo < 0 || cameraId < 0) {
        RYX_LOGE(RYX_MSG_DROP_INVALID, frameNo, cameraId);
        return false;
    }
    MutexLock lock(mQueueLock);
    // The oldest entry goes first, even when this call turns out to be a duplicate.
    if (mDropQueue.size() >= kMaxDropQueue) {
        removeItemFromDropQueue();
    }
    if (mDropQueue.count(frameNo) != 0) {
        RYX_LOGD(RYX_MSG_DROP_DUPLICATE, frameNo, cameraId);
        clearDropQueue(frameNo, cameraId);
        return false;
    }
    mDropQueue.emplace(frameNo, dropCameras != nullptr ? *dropCameras : std::vector<int>{});
    dropItem(frameNo);
    RYX_LOGD(RYX_MSG_MASTER_DROP_QUEUED, frameNo);
    return true;
}

bool SyncQueue::removeItemFromDropQueue() {
    if (mDropQueue.empty()) {
        return false;
    }
    auto const oldest = mDropQueue.begin();
    RYX_LOGD(RYX_MSG_DROP_QUEUE_PRUNED, oldest->first);
    mDropQueue.erase(oldest);
    return true;
}

bool SyncQueue::clearDropQueue(int const& frameNo, int const& cameraId) {
    auto const entry = mDropQueue.find(frameNo);
    if (entry == mDropQueue.end()) {
        return false;
    }
    std::vector<int>& cameras = entry->second;
    auto const pos = std::find(cameras.begin(), cameras.end(), cameraId);
    if (pos != cameras.end()) {
        cameras.erase(pos);
    }
    if (!cameras.empty()) {
        return false;
    }
    RYX_LOGD(RYX_MSG_DROP_QUEUE_CLEARED, frameNo);
    mDropQueue.erase(entry);
    return true;
}

// The caller holds mQueueLock (through `held`); the locking form is at the end of this file.
bool SyncQueue::isNeedDropFrame(int const& frameNo, MutexLock const& /*held*/) {
    // Whoever asks: a frame in the drop queue is dropped for every camera.
    bool const drop = mDropQueue.count(frameNo) != 0 || contains(mFlushDropList, frameNo);
    if (drop) {
        RYX_LOGD(RYX_MSG_NEED_DROP, frameNo);
    }
    return drop;
}

bool SyncQueue::dropItem(int const& frameNo) {
    int const frame = frameNo;
    auto const it = mQueue.find(frame);
    if (it == mQueue.end()) {
        return true;
    }
    std::shared_ptr<SyncElement> const element = it->second;
    if (element != nullptr) {
        SyncElement& elem = *element;
        MutexLock lock(elem.mLock);
        std::shared_ptr<ISyncQueueCB> callback = mCallback.lock();
        if (callback != nullptr) {
            RYX_LOGD(RYX_MSG_DROP_NOTIFY, frame);
            SyncDataUpdaterType const type = getSyncDataUpdateType();
            callback->onEvent(ISyncQueueCB::SYNC_DATA_DROP, type, &elem.mSyncData);
            callback.reset();
        }
        elem.mValid = false;
        elem.mCond.notify_all();
        RYX_LOGD(RYX_MSG_DROP_UNLOCK, frame);
    }
    retireItem(frame);
    return true;
}

// --- drop operations ------------------------------------------------------------------------

bool SyncQueue::dropLastItemLocked(int const& frameNo, int const& cameraId) {
    MutexLock lock(mQueueLock);
    return dropLastItem(frameNo, cameraId);
}

// A drop counts as the camera's arrival; when it was the last one the frame completes here.
bool SyncQueue::dropLastItem(int const& frameNo, int const& cameraId) {
    int const frame = frameNo;
    int const cam = cameraId;
    int const arrived = updateArrivedSyncMap(frame, cam);
    auto const it = mQueue.find(frame);
    if (it == mQueue.end()) {
        return false;
    }
    std::shared_ptr<SyncElement> const element = it->second;
    if (element == nullptr) {
        return false;
    }
    SyncElement& elem = *element;
    MutexLock lock(elem.mLock);
    std::vector<int> const& targets = elem.mSyncData.syncTargetList;
    RYX_LOGD(RYX_MSG_QUEUE_SIZES,  //
             static_cast<unsigned long>(targets.size()), arrived);
    if (static_cast<size_t>(arrived) != targets.size()) {
        return false;
    }
    std::shared_ptr<ISyncQueueCB> callback = mCallback.lock();
    if (callback != nullptr) {
        RYX_LOGD(RYX_MSG_DROP_NOTIFY, frame);
        SyncDataUpdaterType const type = getSyncDataUpdateType();
        if (!callback->onEvent(ISyncQueueCB::SYNC_DATA_READY, type, &elem.mSyncData)) {
            registerDroppedFrame(mDropQueue, frame, targets, cam);
        }
        callback.reset();
    }
    // mValid stays as it is: the frame was completed, not dropped.
    elem.mCond.notify_all();
    RYX_LOGD(RYX_MSG_DROP_UNLOCK, frame);
    retireItem(frame);
    return true;
}

bool SyncQueue::dropItemsForFlush(int const& frameNo, int const& /*unused*/) {
    int const frame = frameNo;
    MutexLock lock(mQueueLock);
    if (contains(mFlushDropList, frame)) {
        return true;
    }
    if (mFlushDropList.size() >= kMaxFlushFrames) {
        mFlushDropList.erase(mFlushDropList.begin());
    }
    mFlushDropList.push_back(frame);
    dropItem(frame);
    return true;
}

// Always false, whatever was dropped.
bool SyncQueue::dropItemsBySensor(int const& sensorId) {
    int const sensor = sensorId;
    MutexLock lock(mQueueLock);
    std::vector<int> frames;
    frames.reserve(mQueue.size());
    for (auto const& entry : mQueue) {
        frames.push_back(entry.first);
    }
    std::ostringstream text;
    for (int const frame : frames) {
        auto const it = mQueue.find(frame);
        if (it == mQueue.end() || it->second == nullptr) {
            continue;
        }
        // Keeps the element alive while dropLastItem takes it out of the map.
        std::shared_ptr<SyncElement> const element = it->second;
        if (contains(element->mSyncData.syncTargetList, sensor)) {
            text << frame << " ";
            dropLastItem(frame, sensor);
        }
    }
    RYX_LOGD(RYX_MSG_SENSOR_LEFT, sensor, text.str().c_str());
    return false;
}

// --- inspection -----------------------------------------------------------------------------

size_t SyncQueue::liveFrameCount() {
    MutexLock lock(mQueueLock);
    return mQueue.size();
}

std::map<int, std::vector<int>> SyncQueue::dropQueueSnapshot() {
    MutexLock lock(mQueueLock);
    return mDropQueue;
}

std::vector<int> SyncQueue::flushListSnapshot() {
    MutexLock lock(mQueueLock);
    return mFlushDropList;
}

std::deque<std::pair<int, std::set<int>>> SyncQueue::arrivedSnapshot() {
    MutexLock lock(mQueueLock);
    return mArrivedSyncMap.snapshot();
}

// --- the locking forms of the building blocks above ------------------------------------------

bool SyncQueue::isNeedDropFrame(int const& frameNo) {
    MutexLock lock(mQueueLock);
    return isNeedDropFrame(frameNo, lock);
}

// --- element reuse -------------------------------------------------------------------------
//
// A frame's element leaves mQueue when its frame is done or dropped, but the threads that met on
// it may still hold it until they return from enque. Retired elements are therefore kept, and
// one is taken again only once the retired list holds the last reference to it: no thread can
// reach it any more (new references are only taken from mQueue, under mQueueLock, and every
// thread's last use of an element comes before its last pass under mQueueLock). A reused element
// gets the state of a new one; its hash maps keep their buckets only while they have exactly the
// bucket count a new map reaches, so that they iterate in the same order as a new one would, and
// their nodes go to spare lists from which later cameras' records are inserted.

namespace {

// Empties `map` into `spares` (up to kMaxSpareNodes nodes kept), node by node, so that later
// insertions take over their memory.
constexpr size_t kMaxSpareNodes = 64;
template <typename Map>
void extractInto(Map& map, std::vector<typename Map::node_type>& spares) {
    while (!map.empty() && spares.size() < kMaxSpareNodes) {
        spares.push_back(map.extract(map.begin()));
    }
}

// map.emplace(key, value), in a spare node when there is one. A node handle is inserted where
// emplace would put a new node, so the map iterates in the same order either way.
template <typename Map>
void emplaceReusing(Map& map, std::vector<typename Map::node_type>& spares,
                    typename Map::key_type key, typename Map::mapped_type value) {
    if (spares.empty()) {
        map.try_emplace(key, std::move(value));
        return;
    }
    typename Map::node_type node = std::move(spares.back());
    spares.pop_back();
    node.key() = key;
    node.mapped() = std::move(value);
    auto result = map.insert(std::move(node));
    if (!result.inserted) {  // the key is there already: kept, as emplace keeps it
        result.node.mapped() = typename Map::mapped_type{};  // a spare holds nothing
        spares.push_back(std::move(result.node));
    }
}

}  // namespace

std::shared_ptr<SyncElement> SyncQueue::reuseOrMakeElement() {
    for (auto it = mRetiredElements.begin(); it != mRetiredElements.end(); ++it) {
        if (it->use_count() != 1) {
            continue;  // a thread is still leaving it, or never will (see the header)
        }
        std::shared_ptr<SyncElement> element = std::move(*it);
        mRetiredElements.erase(it);
        SyncData& data = element->mSyncData;
        data.frameNo = -1;
        data.requestNo = -1;
        data.syncTargetList.clear();
        data.masterSlaveList.clear();
        extractInto(data.inputParams, mSpareInputNodes);
        extractInto(data.outputParams, mSpareOutputNodes);
        clearLikeNew(data.inputParams);
        clearLikeNew(data.outputParams);
        MutexLock lock(element->mLock);
        element->mValid = true;
        return element;
    }
    return std::make_shared<SyncElement>();
}

void SyncQueue::addInput(SyncData& data, int32_t cameraId, SyncResultInputParams const* input) {
    emplaceReusing(data.inputParams, mSpareInputNodes, cameraId, input);
}

void SyncQueue::addOutput(SyncData& data, int32_t cameraId, SyncResultOutputParams* output) {
    emplaceReusing(data.outputParams, mSpareOutputNodes, cameraId, output);
}

void SyncQueue::addElement(int frameNo, std::shared_ptr<SyncElement> const& element) {
    emplaceReusing(mQueue, mSpareQueueNodes, frameNo, element);
}

bool SyncQueue::retireItem(int frameNo) {
    auto const it = mQueue.find(frameNo);
    if (it == mQueue.end()) {
        return false;
    }
    // Bounded: an element some thread keeps for ever is given up rather than kept here.
    if (it->second != nullptr && mRetiredElements.size() < kMaxLiveFrames) {
        mRetiredElements.push_back(std::move(it->second));
    }
    if (mSpareQueueNodes.size() < kMaxLiveFrames) {
        auto node = mQueue.extract(it);
        node.mapped() = nullptr;  // the element's references are the retired list's and threads'
        mSpareQueueNodes.push_back(std::move(node));
    } else {
        mQueue.erase(it);
    }
    return true;
}

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
