#define LOG_TAG "RyxCam/PhysicalMetaSyncDataUpdater"
#define LOG_SOURCE "hw/camsys/cam_coordinator/SyncHelper/PhysicalMetaSyncDataUpdater"

#include "PhysicalMetaSyncDataUpdater.h"

#include <utility>

#include "SyncLog.h"
#include "SyncMetaTags.h"

namespace NSCam {
namespace camsys {
namespace camcoordinator {

namespace {
constexpr int32_t kDefaultPostRawSensitivityBoost = 100;
constexpr uint8_t kDefaultVideoStabilizationMode = 0;
}  // namespace

PhysicalMetaSyncDataUpdater::PhysicalMetaSyncDataUpdater(
    unsigned long sessionKey, std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo)
    : ISyncDataUpdater(sessionKey, cameraInfo) {
    for (auto const& [sensor, info] : cameraInfo) {
        int32_t const sensorId = static_cast<int32_t>(sensor);
        RYX_LOGD(RYX_MSG_SENSOR_FOCAL_LENGTHS,  //
                 sensorId, static_cast<double>(info.focalLength));
        mFocalLengths[sensorId] = info.focalLength;

        NSCam::MRect const& region = info.activeArrayRegion;
        RYX_LOGD(RYX_MSG_SENSOR_ACTIVE_ARRAY, sensorId, region.left, region.top, region.width,
                 region.height);
        mActiveArrayRegions[sensorId] = region;
    }
    // Both maps were filled from the same sensors just above: the same ids, in the same order.
    auto focal = mFocalLengths.begin();
    for (auto const& [sensorId, region] : mActiveArrayRegions) {
        mStatics.push_back({sensorId, region, (focal++)->second});
    }
}

PhysicalMetaSyncDataUpdater::SensorStatics const* PhysicalMetaSyncDataUpdater::staticsOf(
    int32_t sensorId) const {
    for (SensorStatics const& statics : mStatics) {
        if (statics.sensorId == sensorId) {
            return &statics;
        }
    }
    return nullptr;
}

PhysicalMetaSyncDataUpdater::~PhysicalMetaSyncDataUpdater() = default;

bool PhysicalMetaSyncDataUpdater::update(SyncData const* data) {
    for (auto const& [sensorId, output] : data->outputParams) {
        NSCam::IMetadata* appDynamic = output->AppDynamic;

        // The sensor's own static values always win over whatever the pipeline put there.
        SensorStatics const* statics = staticsOf(sensorId);
        if (statics != nullptr) {
            NSCam::IMetadata::IEntry region(PHYSICAL_ACTIVE_ARRAY_REGION);
            region.push_back(statics->region);
            appDynamic->update(PHYSICAL_ACTIVE_ARRAY_REGION, std::move(region));
            NSCam::IMetadata::IEntry focal(LENS_FOCAL_LENGTH);
            focal.push_back(statics->focalLength);
            appDynamic->update(LENS_FOCAL_LENGTH, std::move(focal));
        }

        // The two controls are only defaults: a value the pipeline set is kept.
        if (!hasItems<int32_t>(appDynamic, CONTROL_POST_RAW_SENSITIVITY_BOOST)) {
            NSCam::IMetadata::IEntry entry(CONTROL_POST_RAW_SENSITIVITY_BOOST);
            entry.push_back(kDefaultPostRawSensitivityBoost);
            appDynamic->update(CONTROL_POST_RAW_SENSITIVITY_BOOST, std::move(entry));
        }
        if (!hasItems<uint8_t>(appDynamic, CONTROL_VIDEO_STABILIZATION_MODE)) {
            NSCam::IMetadata::IEntry entry(CONTROL_VIDEO_STABILIZATION_MODE);
            entry.push_back(kDefaultVideoStabilizationMode);
            appDynamic->update(CONTROL_VIDEO_STABILIZATION_MODE, std::move(entry));
        }
    }
    return true;
}

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
