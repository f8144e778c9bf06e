#define LOG_TAG "RyxCam/MasterCamSyncDataUpdater"
#define LOG_SOURCE "hw/camsys/cam_coordinator/SyncHelper/MasterCamSyncDataUpdater"

#include "MasterCamSyncDataUpdater.h"

#include <NSCam/Properties.h>

#include "SyncLog.h"
#include "SyncMetaTags.h"

namespace NSCam {
namespace camsys {
namespace camcoordinator {

namespace {
constexpr int kLogDefault = RYX_PROP_UPDATER_LOG_DEFAULT;
constexpr int kFovaContainerType = 1;
constexpr unsigned char kCaptureIntentStill = 2;
}  // namespace

MasterCamSyncDataUpdater::MasterCamSyncDataUpdater(
    unsigned long sessionKey, std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo)
    : ISyncDataUpdater(sessionKey, cameraInfo) {
    // Held for the updater's lifetime only so that the session's streaming-data container
    // exists and counts us among its readers; update() never reads through it.
    mFovaReader =
        FovaContainer::makeUser<FovaContainer::Reader>(LOG_TAG, mSessionKey, kFovaContainerType);
    mLogLevel = NSCam::Utils::Properties::property_get_int32(RYX_PROP_UPDATER_LOG, kLogDefault);
}

MasterCamSyncDataUpdater::~MasterCamSyncDataUpdater() = default;

bool MasterCamSyncDataUpdater::update(SyncData const* data) {
    RYX_LOGD_IF(mLogLevel >= 2, RYX_MSG_UPDATER_ENTER);

    if (data->syncTargetList.empty()) {
        RYX_LOGF(RYX_MSG_INVALID_OPERATION);
    }

    int32_t const firstCam = data->syncTargetList[0];
    int32_t const frameNo = data->frameNo;
    int32_t masterId = -1;
    bool result = true;

    auto const first = data->inputParams.find(firstCam);
    if (first != data->inputParams.end() && first->second != nullptr) {
        if (!NSCam::IMetadata::getEntry<int>(first->second->HalControl, RYX_DUALZOOM_REAL_MASTER,
                                             masterId)) {
            RYX_LOGD_IF(mLogLevel != 0, RYX_MSG_MASTER_DEFAULT, firstCam);
            masterId = firstCam;
        }
        RYX_LOGD_IF(mLogLevel != 0, RYX_MSG_MASTER_IS, masterId);

        MutexLock lock(mLock);
        // The decision against the history runs as one callable under mLock.
        auto decide = [this, data, frameNo, masterId]() RYX_REQUIRES(mLock) -> bool {
            auto const master = data->inputParams.find(masterId);
            if (master == data->inputParams.end() || master->second == nullptr) {
                // The requested master did not take part in this frame: nobody is master, the
                // frame passes and the history stays as it was.
                RYX_LOGD(RYX_MSG_SLAVE_WITHOUT_MASTER_TS);
                for (auto const& [camId, output] : data->outputParams) {
                    RYX_LOGD(RYX_MSG_SLAVE_NOT_MASTER, camId);
                    if (output != nullptr) {
                        output->bMasterCam = false;
                    }
                }
                return true;
            }
            SyncResultInputParams const* masterInput = master->second;

            if (masterInput->sofTimeStamp == 0 || masterInput->expTimeStamp == 0) {
                if (masterInput->sofTimeStamp == 0) {
                    RYX_LOGE(RYX_MSG_SOF_MISSING, masterId, frameNo);
                } else {
                    RYX_LOGE(RYX_MSG_EXPOSURE_MISSING, masterId, frameNo);
                }
                RYX_LOGD(RYX_MSG_NO_TIMES_DROP, frameNo);
                return false;
            }
            uint64_t const shutterTs = static_cast<uint64_t>(masterInput->expTimeStamp);
            RYX_LOGD_IF(mLogLevel != 0, RYX_MSG_MASTER_TIMES, masterId,
                        static_cast<unsigned long>(masterInput->sofTimeStamp),
                        static_cast<unsigned long>(shutterTs));

            if (frameNo < mPrevFrameNo) {
                // A frame older than one already seen: only a still capture may come late.
                unsigned char intent = 1;
                auto const again = data->inputParams.find(masterId);
                if (again != data->inputParams.end() && again->second != nullptr) {
                    if (!NSCam::IMetadata::getEntry<unsigned char>(again->second->AppControl,
                                                                   CAPTURE_INTENT, intent)) {
                        RYX_LOGE(RYX_MSG_INTENT_MISSING,  //
                                 masterId, frameNo);
                    }
                }
                bool const isCapture = intent == kCaptureIntentStill;
                RYX_LOGD(RYX_MSG_MASTER_CAPTURE, masterId, isCapture ? 1 : 0);
                if (!isCapture) {
                    RYX_LOGW(RYX_MSG_FRAME_INVERSION, masterId, frameNo, mPrevMasterId,
                             mPrevFrameNo);
                    return false;
                }
            }

            // A frame refused for its exposure time still counts as seen for the frame order.
            mPrevFrameNo = frameNo;
            if (shutterTs < mPrevShutterTs) {
                RYX_LOGW(RYX_MSG_TIME_INVERSION,                 //
                         masterId,                               //
                         frameNo,                                //
                         static_cast<unsigned long>(shutterTs),  //
                         static_cast<unsigned long>(mPrevShutterTs));
                return false;
            }
            for (auto const& [camId, output] : data->outputParams) {
                if (output == nullptr) {
                    continue;
                }
                output->bMasterCam = camId == masterId;
                NSCam::IMetadata::setEntry<int>(output->HalDynamic, RYX_DUALZOOM_REAL_MASTER,
                                                masterId);
                NSCam::IMetadata::setEntry<int>(output->AppDynamic, RYX_APP_REAL_MASTER, masterId);
            }
            RYX_LOGD_IF(mLogLevel != 0, RYX_MSG_MASTER_SET, masterId, frameNo);
            mPrevMasterId = masterId;
            mPrevShutterTs = shutterTs;
            return true;
        };
        result = decide();
    }

    RYX_LOGD_IF(mLogLevel >= 2, RYX_MSG_UPDATER_LEAVE);
    return result;
}

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
