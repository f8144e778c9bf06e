#define LOG_TAG "RyxCam/TimestampSyncDataUpdater"
#define LOG_SOURCE "hw/camsys/cam_coordinator/SyncHelper/TimestampSyncDataUpdater"

#include "TimestampSyncDataUpdater.h"

#include <NSCam/Properties.h>

#include <cinttypes>
#include <cstdio>
#include <string>

#include "SyncLog.h"
#include "SyncMetaTags.h"

namespace NSCam {
namespace camsys {
namespace camcoordinator {

namespace {

constexpr int kLogDefault = RYX_PROP_UPDATER_LOG_DEFAULT;
constexpr int64_t kNsPerMs = 1000000;
constexpr int64_t kUsPerMs = 1000;
// One compared camera's piece of the comparison line: RYX_MSG_COMPARISON, with the request,
// the frame, the first camera and its start of frame, the other camera and its start of frame,
// the tolerance and the verdict so far. Built only for a line that is written.
//

// Whether time2 lies within the tolerance of time1: in whole milliseconds (truncated), as 32-bit
// values with the wrap-around a 32-bit subtraction and abs() give on the device, so two times
// 0.9 ms apart are 0 or 1 ms apart depending on a millisecond boundary. The bound is inclusive.
bool inTolerance(int64_t time1, int64_t time2, int64_t toleranceUs) {
    uint32_t diff = static_cast<uint32_t>(static_cast<int32_t>(time1 / kNsPerMs)) -
                    static_cast<uint32_t>(static_cast<int32_t>(time2 / kNsPerMs));
    if (static_cast<int32_t>(diff) < 0) {
        diff = 0u - diff;
    }
    return static_cast<int32_t>(diff) <= static_cast<int32_t>(toleranceUs / kUsPerMs);
}

// The comparison text of a frame whose times are all known, one piece per compared camera in
// the map's order with the verdict so far, unseparated:
// "[r<req>:f<frame>], CamId=<id>, time1=<ns>ns, SyncId=<id>, time2=<ns>ns, tolerance=<us>us,
// syncOK=<0|1>". Built only for a line that is written.
std::string comparisonText(SyncData const* data, int32_t firstCam, int64_t time1, int64_t tol) {
    std::string text;
    bool syncOK = true;
    for (auto const& [camId, input] : data->inputParams) {
        if (camId != firstCam && input != nullptr) {
            syncOK = syncOK && inTolerance(time1, input->sofTimeStamp, tol);
            char piece[200];  // at most about 175 characters
            int const n = std::snprintf(piece, sizeof(piece), RYX_MSG_COMPARISON, data->requestNo,
                                        data->frameNo, firstCam, time1, camId, input->sofTimeStamp,
                                        tol, syncOK ? 1 : 0);
            text.append(piece, static_cast<size_t>(n));
        }
    }
    return text;
}

}  // namespace

TimestampSyncDataUpdater::TimestampSyncDataUpdater(
    unsigned long sessionKey, std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo)
    : ISyncDataUpdater(sessionKey, cameraInfo) {
    mLogLevel = NSCam::Utils::Properties::property_get_int32(RYX_PROP_UPDATER_LOG, kLogDefault);
    RYX_LOGD(RYX_MSG_UPDATER_LOG_LEVEL, mLogLevel);
}

TimestampSyncDataUpdater::~TimestampSyncDataUpdater() = default;

bool TimestampSyncDataUpdater::update(SyncData const* data) {
    RYX_LOGD_IF(mLogLevel >= 2, RYX_MSG_UPDATER_ENTER);

    size_t const targets = data->syncTargetList.size();
    if (targets == 1) {
        RYX_LOGD_IF(mLogLevel >= 2, RYX_MSG_SINGLE_CAMERA);
        return true;
    }
    if (targets == 0) {
        RYX_LOGF(RYX_MSG_INVALID_OPERATION);
    }

    int32_t const firstCam = data->syncTargetList[0];
    int64_t tolerance = 0;  // microseconds
    int32_t mode = 0;
    int64_t time1 = 0;
    // The comparison text is built by comparisonText() only for a line that is written.
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
                RYX_LOGW(RYX_MSG_TIMESTAMP_MISSING);
                judge = false;
                result = false;
            }
        }
    } else {
        // Still judged: with time 0 and no tolerance the others almost surely come out of sync.
        RYX_LOGE(RYX_MSG_INPUT_NULL);
    }

    if (judge) {
        // Only the verdict is worked out here: the text is rebuilt from the same frame, in the
        // same map order, when its line is produced, so that a frame that no channel or gate
        // lets through formats nothing.
        for (auto const& [camId, input] : data->inputParams) {
            if (camId == firstCam) {
                continue;
            }
            int64_t const time2 = input != nullptr ? input->sofTimeStamp : 0;
            if (time2 == 0) {
                // Whatever was compared so far is dropped; nothing gets written.
                RYX_LOGW(RYX_MSG_TIMESTAMP_MISSING);
                judge = false;
                result = false;
                break;
            }
            // Once one camera is out of tolerance the frame is out, whatever the others say.
            syncOK = syncOK && inTolerance(time1, time2, tolerance);
        }
    }
    // The text is an argument of the statement that prints it: evaluated once per enabled
    // channel and only when the statement's gate passes, like every other argument. It is the
    // same each time, since the frame is not changed meanwhile, and repeats the progression of
    // syncOK above camera by camera. So a frame in sync costs no formatting while debug lines
    // are gated off (as devices run), and a warning still carries the whole text whatever
    // gates the debug lines.
    auto const comparisons = [&] { return comparisonText(data, firstCam, time1, tolerance); };

    if (judge) {
        int64_t verdict = FRAMESYNC_RESULT_OK;
        if (!syncOK) {
            RYX_LOGW(RYX_MSG_COMPARISONS, comparisons().c_str());
            verdict = mode == 1 ? FRAMESYNC_RESULT_FAIL_DROP : FRAMESYNC_RESULT_FAIL_PASS;
        } else {
            RYX_LOGD(RYX_MSG_COMPARISONS, comparisons().c_str());
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

    RYX_LOGD_IF(mLogLevel >= 2, RYX_MSG_UPDATER_LEAVE);
    return result;
}

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
