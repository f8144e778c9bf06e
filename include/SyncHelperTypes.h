#pragma once
// Records exchanged between a camera pipeline and the sync helper, and the record the sync
// queue assembles for a frame once its cameras have met.

#include <NSCam/IMetadata.h>

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

// What one camera's pipeline knows about one frame result. Owned by the caller; the library
// keeps pointers to it only while the caller is inside the call it was passed to.
struct SyncResultInputParams {
    int32_t m_id = -1;                       // sensor id of the caller
    int32_t requestNo = -1;                  // request number ("r%d")
    int32_t frameNo = -1;                    // pipeline frame number; the rendezvous key ("f%d")
    NSCam::IMetadata* AppControl = nullptr;  // application control metadata (capture intent)
    NSCam::IMetadata* HalControl = nullptr;  // HAL control metadata: every sync control tag
    int64_t sofTimeStamp = 0;                // start of frame, ns; 0 when not known
    int64_t expTimeStamp = 0;                // exposure (shutter) time, ns; 0 when not known
};

// Where the library writes its answers for one camera's frame. Owned by the caller.
struct SyncResultOutputParams {
    NSCam::IMetadata* HalDynamic = nullptr;  // HAL result metadata; required on the sync path
    NSCam::IMetadata* AppDynamic = nullptr;  // app result metadata; required on the sync path
    bool bMasterCam = false;                 // true for the frame's master camera
};

// One frame's rendezvous outcome, handed read-only to the updaters. Updaters must not keep
// pointers into it past their update() call.
struct SyncData {
    SyncData() {
        inputParams.max_load_factor(1.0f);
        outputParams.max_load_factor(1.0f);
    }

    int32_t frameNo = -1;
    int32_t requestNo = -1;
    std::vector<int32_t> syncTargetList;   // caller's own id first, then RYX_FRAMESYNC_ID items
    std::vector<int32_t> masterSlaveList;  // RYX_MW_MASTER_SLAVE_LIST items
    std::unordered_map<int32_t, SyncResultInputParams const*> inputParams;  // by m_id
    std::unordered_map<int32_t, SyncResultOutputParams*> outputParams;      // by m_id
};

// Names one updater (as a key) or selects several (as a mask). Bits above 8 select nothing.
enum SyncDataUpdaterType : uint32_t {
    TIMESTAMP = 1,
    MASTER_CAM = 2,
    ACTIVE = 4,
    PHYSICAL_META = 8,
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
