#pragma once
// Host implementation of the camera stack's static per-sensor description. Only the fields the
// sync helper reads are present; a real stack's record carries more.

#include <NSCam/MRect.h>

namespace NSCam {

struct CameraInfo {
    MRect activeArrayRegion;   // SENSOR_INFO_ACTIVE_ARRAY_REGION of the physical sensor
    float focalLength = 0.0f;  // first LENS_INFO_AVAILABLE_FOCAL_LENGTHS value, in millimetres
};

}  // namespace NSCam
