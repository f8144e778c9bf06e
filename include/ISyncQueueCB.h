#pragma once
// The callback through which a sync queue hands a frame's SyncData to its owner.

#include "SyncHelperTypes.h"

#include <cstdint>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class ISyncQueueCB {
  public:
    enum Type : int32_t {
        SYNC_DATA_READY = 0,  // the frame's rendezvous is complete (or the queue was cleared)
        SYNC_DATA_DROP = 1,   // the frame was dropped
    };

    virtual ~ISyncQueueCB() = default;

    // Called with the queue lock and the frame's element lock held; must not call back into
    // the queue. The result matters only for SYNC_DATA_READY from a rendezvous: false fails the
    // frame for every camera.
    virtual bool onEvent(Type type, SyncDataUpdaterType const& processType,
                         SyncData const* data) = 0;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
