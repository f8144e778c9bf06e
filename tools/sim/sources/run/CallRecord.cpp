#include "sources/run/CallRecord.h"

#include <optional>
#include <vector>

namespace ryxsim {

using namespace NSCam::camsys::camcoordinator;
using NSCam::IMetadata;
using NSCam::MRect;

namespace {

void setInts(IMetadata& meta, uint32_t tag, std::vector<int32_t> const& items) {
    IMetadata::IEntry entry(tag);
    for (int32_t v : items) {
        entry.push_back(v);
    }
    meta.update(tag, entry);
}

}  // namespace

void build(CallRow const& row, CallRecord& rec) {
    if (row.syncIds) {
        setInts(rec.halControl, RYX_FRAMESYNC_ID, *row.syncIds);
    }
    if (row.required) {
        IMetadata::setEntry<int32_t>(&rec.halControl, RYX_FRAMESYNC_REQUIRED, 1);
    }
    if (row.enable) {
        IMetadata::setEntry<int32_t>(&rec.halControl, RYX_FRAMESYNC_ENABLE, *row.enable);
    }
    if (row.toleranceUs) {
        IMetadata::setEntry<int64_t>(&rec.halControl, RYX_FRAMESYNC_TOLERANCE, *row.toleranceUs);
    }
    if (row.mode) {
        IMetadata::setEntry<int32_t>(&rec.halControl, RYX_FRAMESYNC_MODE, *row.mode);
    }
    if (row.master) {
        IMetadata::setEntry<int32_t>(&rec.halControl, RYX_DUALZOOM_REAL_MASTER, *row.master);
    }
    if (row.msList) {
        setInts(rec.halControl, RYX_MW_MASTER_SLAVE_LIST, *row.msList);
    }
    if (row.intent) {
        IMetadata::setEntry<uint8_t>(&rec.appControl, CAPTURE_INTENT,
                                     static_cast<uint8_t>(*row.intent));
    }
    rec.input.m_id = row.sensor;
    rec.input.requestNo = row.request;
    rec.input.frameNo = row.frame;
    rec.input.AppControl = &rec.appControl;
    rec.input.HalControl = &rec.halControl;
    rec.input.sofTimeStamp = row.sofNs;
    rec.input.expTimeStamp = row.expNs;
    rec.output.HalDynamic = &rec.halDynamic;
    rec.output.AppDynamic = &rec.appDynamic;
    rec.output.bMasterCam = false;
}

namespace {

template <typename T>
std::optional<T> read(IMetadata const& meta, uint32_t tag) {
    T v{};
    if (IMetadata::getEntry<T>(&meta, tag, v)) {
        return v;
    }
    return std::nullopt;
}

}  // namespace

void readBack(CallRecord const& rec, CallOutcome& out) {
    out.syncResult = read<int64_t>(rec.halDynamic, RYX_FRAMESYNC_RESULT);
    out.halMaster = read<int32_t>(rec.halDynamic, RYX_DUALZOOM_REAL_MASTER);
    out.appMaster = read<int32_t>(rec.appDynamic, RYX_APP_REAL_MASTER);
    out.masterCam = rec.output.bMasterCam;
    out.cropOverride = read<MRect>(rec.halControl, RYX_SENSOR_CROP_OVERRIDE);
    out.activeArray = read<MRect>(rec.appDynamic, PHYSICAL_ACTIVE_ARRAY_REGION);
    out.focalLength = read<float>(rec.appDynamic, LENS_FOCAL_LENGTH);
}

}  // namespace ryxsim
