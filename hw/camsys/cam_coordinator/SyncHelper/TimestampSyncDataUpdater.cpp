#define LOG_TAG "RyxCam/TimestampSyncDataUpdater"
#define LOG_SOURCE "hw/camsys/cam_coordinator/SyncHelper/TimestampSyncDataUpdater"

#include "TimestampSyncDataUpdater.h"

#include <NSCam/Properties.h>

#include <string>

#include "SyncLog.h"
#include "SyncMetaTags.h"

namespace NSCam {
namespace camsys {
namespace camcoordinator {

namespace {

constexpr const char* kLogLevelProperty = "vendor.debug.camera.SyncDataUpdater.log";
constexpr int64_t kNsPerMs = 1000000;
constexpr int64_t kUsPerMs = 1000;

// |a - b| with 32-bit wrap-around, the way a 32-bit subtraction and abs() behave on the device.
int32_t absDiff32(int32_t a, int32_t b) {
    uint32_t diff = static_cast<uint32_t>(a) - static_cast<uint32_t>(b);
    if (static_cast<int32_t>(diff) < 0) {
        diff = 0u - diff;
    }
    return static_cast<int32_t>(diff);
}

}  // namespace

TimestampSyncDataUpdater::TimestampSyncDataUpdater(
    unsigned long sessionKey, std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo)
    : ISyncDataUpdater(sessionKey, cameraInfo) {
    mLogLevel = NSCam::Utils::Properties::property_get_int32(kLogLevelProperty, 0);
    RYX_LOGD("SyncDataUpdater mLogLevel(%d)", mLogLevel);
}

TimestampSyncDataUpdater::~TimestampSyncDataUpdater() = default;

bool TimestampSyncDataUpdater::update(SyncData const* data) {
    RYX_LOGD_IF(mLogLevel >= 2, "+");

    size_t const targets = data->syncTargetList.size();
    if (targets == 1) {
        RYX_LOGD_IF(mLogLevel >= 2, "single cam frame, ignore");
        return true;
    }
    if (targets == 0) {
        RYX_LOGF("Invalid operation.");
    }

    int32_t const firstCam = data->syncTargetList[0];
    int64_t tolerance = 0;  // microseconds
    int32_t mode = 0;
    int64_t time1 = 0;
    std::string message;
    bool syncOK = true;
    bool result = true;

    bool judge = true;  // false: leave every camera's HalDynamic untouched
    auto const first = data->inputParams.find(firstCam);
    if (first != data->inputParams.end() && first->second != nullptr) {
        SyncResultInputParams const* input = first->second;
        if (!NSCam::IMetadata::getEntry<long>(input->HalControl, RYX_FRAMESYNC_TOLERANCE,
                                              tolerance) ||
            !NSCam::IMetadata::getEntry<int>(input->HalControl, RYX_FRAMESYNC_MODE, mode)) {
            judge = false;  // the pipeline did not ask for a check
        } else {
            time1 = input->sofTimeStamp;
            if (time1 == 0) {
                RYX_LOGW("Timestamp not exist! Check flow!");
                judge = false;
                result = false;
            }
        }
    } else {
        // Still judged: with time 0 and no tolerance the others almost surely come out of sync.
        RYX_LOGE("SyncResultInputParams is null");
    }

    if (judge) {
        for (auto const& [camId, input] : data->inputParams) {
            if (camId == firstCam) {
                continue;
            }
            int64_t const time2 = input != nullptr ? input->sofTimeStamp : 0;
            if (time2 == 0) {
                // Whatever was compared so far is dropped; nothing gets written.
                RYX_LOGW("Timestamp not exist! Check flow!");
                judge = false;
                result = false;
                break;
            }
            // Compared in whole milliseconds (truncated), kept as 32-bit values: two times 0.9 ms
            // apart are 0 or 1 ms apart depending on whether a millisecond boundary lies between.
            int32_t const t1 = static_cast<int32_t>(time1 / kNsPerMs);
            int32_t const t2 = static_cast<int32_t>(time2 / kNsPerMs);
            int32_t const tol = static_cast<int32_t>(tolerance / kUsPerMs);
            syncOK = syncOK && (absDiff32(t1, t2) <= tol);

            message += "[r" + std::to_string(data->requestNo) + ":f" +
                       std::to_string(data->frameNo) + "], " + "CamId=" + std::to_string(firstCam) +
                       ", " + "time1=" + std::to_string(time1) + "ns, " +
                       "SyncId=" + std::to_string(camId) + ", " + "time2=" + std::to_string(time2) +
                       "ns, " + "tolerance=" + std::to_string(tolerance) + "us, " +
                       "syncOK=" + std::to_string(syncOK ? 1 : 0);
        }
    }

    if (judge) {
        int64_t verdict = FRAMESYNC_RESULT_OK;
        if (!syncOK) {
            RYX_LOGW("%s", message.c_str());
            verdict = mode == 1 ? FRAMESYNC_RESULT_FAIL_DROP : FRAMESYNC_RESULT_FAIL_PASS;
        } else {
            RYX_LOGD("%s", message.c_str());
        }
        // Out of sync is not a refusal: the verdict goes to every camera and readers decide.
        for (auto const& [camId, output] : data->outputParams) {
            (void)camId;
            if (output != nullptr) {
                NSCam::IMetadata::setEntry<long>(output->HalDynamic, RYX_FRAMESYNC_RESULT,
                                                 static_cast<long>(verdict));
            }
        }
    }

    RYX_LOGD_IF(mLogLevel >= 2, "-");
    return result;
}

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
