// The callback shares the helper's log tag: it is the helper's half of the queue's report.
#define LOG_TAG "RyxCam/SyncHelper"
#define LOG_SOURCE "hw/camsys/cam_coordinator/SyncHelper/SyncQueue_ResultCheck_Cb"

#include "SyncQueue_ResultCheck_Cb.h"

#include "SyncHelper.h"
#include "SyncLog.h"

namespace NSCam {
namespace camsys {
namespace camcoordinator {

// Ready and dropped frames run the same updaters; the type is only printed.
bool SyncQueue_ResultCheck_Cb::onEvent(Type type, SyncDataUpdaterType const& processType,
                                       SyncData const* data) {
    RYX_LOGD(RYX_MSG_UPDATERS_RUN, data->requestNo, data->frameNo, static_cast<int>(type),
             static_cast<int>(processType));
    return mOwner->updateData(processType, data);
}

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
