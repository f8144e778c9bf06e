#pragma once
// Every metadata tag the sync helper reads or writes. Ids at 0x80000000 and above are private to
// the camera stack; the others are public camera metadata tags.

#include <cstdint>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

// Control (request) tags, read from the input's HalControl unless noted.
constexpr uint32_t RYX_FRAMESYNC_ID = 0xc0080000;          // int32 list: the frame's sync group
constexpr uint32_t RYX_FRAMESYNC_TOLERANCE = 0xc0080002;   // int64, microseconds
constexpr uint32_t RYX_FRAMESYNC_MODE = 0xc0080003;        // int32: 1 fails out-of-sync frames
constexpr uint32_t RYX_FRAMESYNC_RESULT = 0xc0080004;      // int64 in HalDynamic: 0, 1 or 2
constexpr uint32_t RYX_FRAMESYNC_REQUIRED = 0xc0080005;    // presence selects the queue path
constexpr uint32_t RYX_FRAMESYNC_ENABLE = 0xc0080006;      // int32: bit 0 clear skips sync
constexpr uint32_t RYX_FRAMESYNC_FD_CONTROL = 0xc0080007;  // int32 in isNeedFdControl's meta
constexpr uint32_t RYX_NEED_SYNC = 0xc0070004;             // int32: 1 when the sensor needs sync
constexpr uint32_t RYX_MW_MASTER_SLAVE_LIST = 0xc0070006;  // int32 list
constexpr uint32_t RYX_DUALZOOM_REAL_MASTER = 0xc00d000f;  // int32: read in HalControl,
                                                           // written in HalDynamic
constexpr uint32_t RYX_APP_REAL_MASTER = 0x800a0006;       // int32, written in AppDynamic
constexpr uint32_t RYX_SENSOR_CROP_OVERRIDE = 0xc0010011;  // MRect, written in HalControl

// Public tags.
constexpr uint32_t CAPTURE_INTENT = 0x1000d;                      // uint8 in AppControl; 2 still
constexpr uint32_t PHYSICAL_ACTIVE_ARRAY_REGION = 0xd0014;        // MRect in AppDynamic
constexpr uint32_t LENS_FOCAL_LENGTH = 0x80002;                   // float in AppDynamic
constexpr uint32_t CONTROL_POST_RAW_SENSITIVITY_BOOST = 0x10028;  // int32, filled with 100
constexpr uint32_t CONTROL_VIDEO_STABILIZATION_MODE = 0x10011;    // uint8, filled with 0

// Values of RYX_FRAMESYNC_RESULT.
constexpr int64_t FRAMESYNC_RESULT_OK = 0;
constexpr int64_t FRAMESYNC_RESULT_FAIL_PASS = 1;  // out of sync, delivered anyway
constexpr int64_t FRAMESYNC_RESULT_FAIL_DROP = 2;  // out of sync, syncResultCheck fails the frame

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
