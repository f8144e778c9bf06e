#pragma once
// The queue callback of a SyncHelper: runs the helper's updaters on a frame the queue reports,
// ready or dropped alike. Holds a non-owning pointer back to its helper, which owns the only
// strong reference to it, so the callback never outlives the helper.

#include "ISyncQueueCB.h"

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class SyncHelper;

class SyncQueue_ResultCheck_Cb : public virtual ISyncQueueCB {
  public:
    explicit SyncQueue_ResultCheck_Cb(SyncHelper* owner) : mOwner(owner) {}
    ~SyncQueue_ResultCheck_Cb() override = default;

    bool onEvent(Type type, SyncDataUpdaterType const& processType, SyncData const* data) override;

  private:
    SyncHelper* mOwner;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
