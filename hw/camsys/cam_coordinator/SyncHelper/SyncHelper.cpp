#define LOG_TAG "RyxCam/SyncHelper"
#define LOG_SOURCE "hw/camsys/cam_coordinator/SyncHelper/SyncHelper"

#include "SyncHelper.h"

#include "ActiveSyncDataUpdater.h"
#include "MasterCamSyncDataUpdater.h"
#include "PhysicalMetaSyncDataUpdater.h"
#include "SyncLog.h"
#include "SyncMetaTags.h"
#include "SyncQueue.h"
#include "SyncQueue_ResultCheck_Cb.h"
#include "TimestampSyncDataUpdater.h"

#include <NSCam/Properties.h>

#include <sstream>
#include <string>
#include <vector>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

namespace {

constexpr int32_t kSwitchFlagStartRun = 1;
constexpr int32_t kSwitchFlagDefault = 2048;

// The updaters run in this order; a mask bit without an updater counts as a pass.
constexpr SyncDataUpdaterType kUpdaterOrder[] = {TIMESTAMP, MASTER_CAM, ACTIVE, PHYSICAL_META};

}  // namespace

std::shared_ptr<ISyncHelper> ISyncHelper::createInstance(
    unsigned long sessionKey, bool allowCropReplace,
    std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo) {
    // Every helper a pipeline gets carries the system-trace points (TracedSyncHelper.h).
    return makeTracedSyncHelper(sessionKey, allowCropReplace, cameraInfo);
}

ISyncHelper::~ISyncHelper() = default;

SyncHelper::SyncHelper(unsigned long sessionKey, bool allowCropReplace,
                       std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo)
    : mUniqueKey(sessionKey), mAllowCropReplace(allowCropReplace) {
    mUpdaters.max_load_factor(1.0f);
    {
        MutexLock lock(mCropLock);
        mLatestCrop.max_load_factor(1.0f);
        // The per-frame crop records (mFrameCrops) live in pages of their own, made as frames
        // come.
    }
    mSyncFlags.max_load_factor(1.0f);

    mSyncQueue_ResultCheck = std::make_unique<SyncQueue>(
        static_cast<int>(TIMESTAMP | MASTER_CAM | ACTIVE | PHYSICAL_META));
    mResultCheckCb = std::make_shared<SyncQueue_ResultCheck_Cb>(this);
    mSyncQueue_ResultCheck->setCallback(std::weak_ptr<ISyncQueueCB>(mResultCheckCb));

    // insert() keeps an entry already present under the key.
    mUpdaters.insert(std::make_pair(
        TIMESTAMP, std::unique_ptr<ISyncDataUpdater>(
                       std::make_unique<TimestampSyncDataUpdater>(mUniqueKey, cameraInfo))));
    mUpdaters.insert(std::make_pair(
        MASTER_CAM, std::unique_ptr<ISyncDataUpdater>(
                        std::make_unique<MasterCamSyncDataUpdater>(mUniqueKey, cameraInfo))));
    mUpdaters.insert(std::make_pair(
        ACTIVE, std::unique_ptr<ISyncDataUpdater>(
                    std::make_unique<ActiveSyncDataUpdater>(mUniqueKey, cameraInfo))));
    mUpdaters.insert(std::make_pair(
        PHYSICAL_META, std::unique_ptr<ISyncDataUpdater>(
                           std::make_unique<PhysicalMetaSyncDataUpdater>(mUniqueKey, cameraInfo))));

    int32_t cropReplace = NSCam::Utils::Properties::property_get_int32(
        RYX_PROP_CROP_REPLACE, RYX_PROP_CROP_REPLACE_DEFAULT);
    mNeedCropReplace = cropReplace >= 1 && mAllowCropReplace;
    RYX_LOGI(RYX_MSG_NEED_CROP_REPLACE, mNeedCropReplace ? 1 : 0);
}

// Members go in reverse declaration order: the callback before the queue, so that frames still
// queued are freed without a report, and the updaters last.
SyncHelper::~SyncHelper() {
    RYX_LOGD(RYX_MSG_RELEASE);
}

bool SyncHelper::syncResultCheck(SyncResultInputParams const& input,
                                 SyncResultOutputParams* output) {
    if (mSyncQueue_ResultCheck == nullptr) {
        RYX_LOGE(RYX_MSG_QUEUE_NULL);
        return false;
    }
    if (input.HalControl == nullptr) {
        RYX_LOGE(RYX_MSG_CONTROL_NULL);
        return false;
    }
    if (output == nullptr) {
        RYX_LOGE(RYX_MSG_OUTPUT_NULL);
        return false;
    }

    // The sync ids are only looked at when the frame asks for sync at all.
    if (!hasItems<int>(input.HalControl, RYX_FRAMESYNC_REQUIRED) ||
        !hasItems<int>(input.HalControl, RYX_FRAMESYNC_ID)) {
        // Synchronised with nobody: the updaters for this camera alone, in this thread's record.
        thread_local SingleCameraScratch scratch;
        SyncData& data = scratch.begin(input, output);
        mSyncQueue_ResultCheck->genSyncData(&data, input, output);
        SyncDataUpdaterType processType = mSyncQueue_ResultCheck->getSyncDataUpdateType();
        return scratch.end(updateData(processType, &data));
    }

    RYX_LOGD(RYX_MSG_CHECK_ENTERED, input.frameNo);
    if (output->HalDynamic == nullptr || output->AppDynamic == nullptr) {
        RYX_LOGE(RYX_MSG_DYNAMIC_NULL, static_cast<void*>(output->HalDynamic),
                 static_cast<void*>(output->AppDynamic));
        return false;
    }

    int32_t enable = 0;
    if (IMetadata::getEntry<int>(input.HalControl, RYX_FRAMESYNC_ENABLE, enable) &&
        (enable & 1) == 0) {
        return true;
    }

    std::vector<int> dropList;
    bool verdict =
        mSyncQueue_ResultCheck->enque("syncResultCheck", input.frameNo, input, output, &dropList);

    if (output->bMasterCam) {
        // The timer is read once per enabled channel and only when the line is produced.
        RYX_LOGD(RYX_MSG_CHECK_DONE,  //
                 input.m_id, input.frameNo, mCheckTimer.getTimeDiff());
    }

    long syncResult = FRAMESYNC_RESULT_FAIL_PASS;
    IMetadata::getEntry<long>(output->HalDynamic, RYX_FRAMESYNC_RESULT, syncResult);
    return verdict && syncResult != FRAMESYNC_RESULT_FAIL_DROP;
}

bool SyncHelper::updateData(SyncDataUpdaterType const& processType, SyncData const* data) {
    bool result = true;
    for (SyncDataUpdaterType type : kUpdaterOrder) {
        if ((processType & type) == 0) {
            continue;
        }
        auto it = mUpdaters.find(type);
        if (it == mUpdaters.end() || it->second == nullptr) {
            continue;
        }
        // Every selected updater runs, whatever the earlier ones said.
        bool updated = it->second->update(data);
        result = result && updated;
    }
    return result;
}

bool SyncHelper::notifyDrop(SyncResultInputParams const& input) {
    IMetadata::IEntry syncIds;
    if (input.HalControl != nullptr) {
        syncIds = input.HalControl->entryFor(RYX_FRAMESYNC_ID);
    }
    if (syncIds.isEmpty()) {
        RYX_LOGD(RYX_MSG_DROP_NO_SYNC_ID);
        return false;
    }

    int32_t masterId = -1;
    if (!IMetadata::getEntry<int>(input.HalControl, RYX_DUALZOOM_REAL_MASTER, masterId)) {
        RYX_LOGW(RYX_MSG_MASTER_NOT_FOUND);
    }

    if (masterId != input.m_id) {
        // A slave's drop (or a drop without a known master) counts as its arrival.
        MutexLock lock(mDropLock);
        bool isLastItem = mSyncQueue_ResultCheck->dropLastItemLocked(input.frameNo, input.m_id);
        RYX_LOGD(RYX_MSG_SLAVE_DROP,  //
                 input.frameNo, input.m_id, isLastItem ? 1 : 0);
        return false;
    }

    // The master drops: the frame is dropped for every other camera of its sync group.
    std::vector<int> cameraDropList;
    std::ostringstream text;
    for (size_t i = 0; i < syncIds.count(); ++i) {
        int id = syncIds.itemAt<int>(i);
        if (id == input.m_id) {
            continue;
        }
        cameraDropList.push_back(id);
        text << id << ",";
    }
    MutexLock lock(mDropLock);
    if (mSyncQueue_ResultCheck->addDropFrameInfo(input.frameNo, input.m_id, &cameraDropList)) {
        RYX_LOGD(RYX_MSG_MASTER_DROP_LIST,  //
                 input.frameNo, text.str().c_str());
    }
    return false;
}

bool SyncHelper::notifyDrop(int const& frameNo, int const& unused) {
    return mSyncQueue_ResultCheck->dropItemsForFlush(frameNo, unused);
}

bool SyncHelper::notifyDropBySensor(int sensorId) {
    return mSyncQueue_ResultCheck->dropItemsBySensor(sensorId);
}

bool SyncHelper::isNeedFdControl(NSCam::IMetadata* metadata) {
    if (metadata == nullptr) {
        return true;
    }
    IMetadata::IEntry entry = metadata->entryFor(RYX_FRAMESYNC_FD_CONTROL);
    if (entry.isEmpty()) {
        return true;
    }
    return entry.itemAt<int>(0) > 0;
}

int32_t SyncHelper::getSyncSwitchFlag(SyncResultInputParams const& input) {
    // Only the pipeline's no-control frames (negative numbers) are classified.
    if (input.frameNo >= 0) {
        return kSwitchFlagDefault;
    }
    RYX_LOGD(RYX_MSG_NO_CONTROL, input.m_id, input.frameNo);

    if (input.HalControl == nullptr) {
        return kSwitchFlagDefault;
    }
    IMetadata::IEntry syncIds = input.HalControl->entryFor(RYX_FRAMESYNC_ID);
    IMetadata::IEntry needSync = input.HalControl->entryFor(RYX_NEED_SYNC);
    if (syncIds.isEmpty()) {
        return kSwitchFlagDefault;
    }
    // An absent tag reads as 0 here.
    if (needSync.itemAt<int>(0) != 1) {
        return kSwitchFlagDefault;
    }

    int32_t result = kSwitchFlagStartRun;
    {
        MutexLock lock(mSyncFlagLock);
        SyncFlagData& flag = mSyncFlags[static_cast<uint32_t>(input.m_id)];
        if (static_cast<int64_t>(flag.frameNo) == static_cast<int64_t>(input.frameNo) - 1 &&
            flag.needSync) {
            result = kSwitchFlagDefault;  // a run of sync frames continues
        }
        flag.frameNo = input.frameNo;
        flag.needSync = true;
    }
    RYX_LOGD(RYX_MSG_CONTROL,  //
             input.m_id, input.frameNo, 1, result);
    return result;
}

bool SyncHelper::reassignLicense(unsigned int /*license*/) {
    return true;
}

bool SyncHelper::hasOtherUser(int /*user*/) {
    return true;
}

bool SyncHelper::setSensorCropRegion(int requestNo,
                                     std::unordered_map<int, NSCam::MRect> const& crops) {
    MutexLock lock(mCropLock);
    mLatestCropRequest = requestNo;
    mLatestCrop = crops;
    mLatestCrop.max_load_factor(crops.max_load_factor());
    mFrameCrops.latestChanged();
    return true;
}

bool SyncHelper::getSensorCropRegion(SyncResultInputParams const& input) {
    MutexLock lock(mCropLock);
    int const frameNo = input.frameNo;
    int const sensorId = input.m_id;
    bool found = false;
    NSCam::MRect crop;

    // A frame's snapshot serves one further caller after the first: the second caller consumes
    // it and counts one user down; a third starts over, with a fresh snapshot and the count set
    // to the group size again. For groups of two or more the count never reaches 0, so a record
    // stays for every frame served; the table keeps each in 8 bytes.
    if (FrameCropTable::CropSet const* snapshot = mFrameCrops.snapshot(frameNo)) {
        // The frame's second caller takes its crop from the snapshot the first one made.
        auto rect = std::find_if(snapshot->begin(), snapshot->end(),
                                 [&](auto const& r) { return r.first == sensorId; });
        if (rect == snapshot->end()) {
            return true;
        }
        crop = rect->second;
        found = true;
        mFrameCrops.dropSnapshot(frameNo);
        mFrameCrops.countDownUser(frameNo);
    } else {
        if (input.HalControl != nullptr) {
            IMetadata::IEntry syncIds = input.HalControl->entryFor(RYX_FRAMESYNC_ID);
            if (!syncIds.isEmpty()) {
                mFrameCrops.takeSnapshot(frameNo, mLatestCrop);
                mFrameCrops.setUsersLeft(frameNo, static_cast<int32_t>(syncIds.count()));
            }
        }
        auto rect = mLatestCrop.find(sensorId);
        if (rect != mLatestCrop.end()) {
            crop = rect->second;
            found = true;
        }
    }

    if (mNeedCropReplace && found && input.HalControl != nullptr) {
        IMetadata::setEntry<NSCam::MRect>(input.HalControl, RYX_SENSOR_CROP_OVERRIDE, crop);
        RYX_LOGD(RYX_MSG_CROP_OVERRIDE, frameNo, mLatestCropRequest, crop.left, crop.top,
                 crop.width, crop.height);
    }
    return true;
}

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
