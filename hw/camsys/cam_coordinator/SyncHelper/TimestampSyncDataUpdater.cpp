#define LOG_TAG "RyxCam/TimestampSyncDataUpdater"
#define LOG_SOURCE "hw/camsys/cam_coordinator/SyncHelper/TimestampSyncDataUpdater"

#include "TimestampSyncDataUpdater.h"

#include <NSCam/Properties.h>

#include <charconv>
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

void appendNumber(std::string& out, int64_t value) {
    char buf[24];
    auto const res = std::to_chars(buf, buf + sizeof(buf), value);
    out.append(buf, static_cast<size_t>(res.ptr - buf));
}

// One camera's comparison:
// "[r<req>:f<frame>], CamId=<id>, time1=<ns>ns, SyncId=<id>, time2=<ns>ns, tolerance=<us>us,
// syncOK=<0|1>" (no separator between two cameras' texts).
void appendComparison(std::string& out, int32_t requestNo, int32_t frameNo, int32_t firstCam,
                      int64_t time1, int32_t camId, int64_t time2, int64_t tolerance, bool syncOK) {
    out += "[r";
    appendNumber(out, requestNo);
    out += ":f";
    appendNumber(out, frameNo);
    out += "], CamId=";
    appendNumber(out, firstCam);
    out += ", time1=";
    appendNumber(out, time1);
    out += "ns, SyncId=";
    appendNumber(out, camId);
    out += ", time2=";
    appendNumber(out, time2);
    out += "ns, tolerance=";
    appendNumber(out, tolerance);
    out += syncOK ? "us, syncOK=1" : "us, syncOK=0";
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
        // A comparison text is about 110 characters, at most 170: one allocation in the usual case.
        size_t const compared = data->inputParams.size();
        message.reserve(128 * (compared > 1 ? compared - 1 : 1));
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

            appendComparison(message, data->requestNo, data->frameNo, firstCam, time1, camId, time2,
                             tolerance, syncOK);
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
