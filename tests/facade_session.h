#pragma once
// A multi-camera session as a pipeline drives it: one helper, and per camera and frame the
// four metadata objects with the input and output records that point at them.

#include <NSCam/CameraInfo.h>
#include <NSCam/IMetadata.h>
#include <NSCam/MRect.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ISyncHelper.h"
#include "MetaBuilder.h"

namespace facadetest {

using NSCam::CameraInfo;
using NSCam::IMetadata;
using NSCam::MRect;
using namespace NSCam::camsys::camcoordinator;

constexpr int64_t kMs = 1000000;        // nanoseconds per millisecond
constexpr int64_t kFrameNs = 33 * kMs;  // frame interval

// Static description of sensor `id`, distinct per sensor so that mix-ups show.
inline CameraInfo infoOf(int id) {
    CameraInfo info;
    info.activeArrayRegion = MRect(id, 2 * id, 4000 + id, 3000 + id);
    info.focalLength = 4.5f + static_cast<float>(id);
    return info;
}

inline std::unordered_map<unsigned int, CameraInfo> infoFor(std::vector<int> const& sensors) {
    std::unordered_map<unsigned int, CameraInfo> map;
    for (int id : sensors) {
        map[static_cast<unsigned int>(id)] = infoOf(id);
    }
    return map;
}

// What a frame's control metadata asks for. Unset optionals leave the tag out.
struct Request {
    Request(std::vector<int> g = {}, std::optional<int32_t> m = std::nullopt,
            std::optional<int64_t> tol = std::nullopt, std::optional<int32_t> md = std::nullopt,
            std::optional<int32_t> en = std::nullopt)
        : group(std::move(g)), master(m), toleranceUs(tol), mode(md), enable(en) {}

    std::vector<int> group;              // every sensor of the frame's sync group
    std::optional<int32_t> master;       // RYX_DUALZOOM_REAL_MASTER
    std::optional<int64_t> toleranceUs;  // RYX_FRAMESYNC_TOLERANCE
    std::optional<int32_t> mode;         // RYX_FRAMESYNC_MODE
    std::optional<int32_t> enable;       // RYX_FRAMESYNC_ENABLE
    bool required = true;                // RYX_FRAMESYNC_REQUIRED present
};

// Splits a log text framed "(%4d) [function] ..." into the line number and what follows the
// frame's "(%4d) "; false when the text is not framed so.
inline bool unframe(std::string const& text, int& line, std::string& rest) {
    if (text.size() < 7 || text[0] != '(' || text[5] != ')' || text[6] != ' ') {
        return false;
    }
    std::string digits = text.substr(1, 4);
    digits.erase(0, digits.find_first_not_of(' '));
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    line = std::stoi(digits);
    rest = text.substr(7);
    return true;
}

// An updater mask from its bits.
inline SyncDataUpdaterType mask(uint32_t bits) {
    return static_cast<SyncDataUpdaterType>(bits);
}

// One camera's result of one frame.
struct CamFrame {
    CamFrame(int sensor, int frameNo, int64_t sof, int64_t exp, Request const& req) {
        in.m_id = sensor;
        in.frameNo = frameNo;
        in.requestNo = frameNo + 1000;
        in.AppControl = &appControl;
        in.HalControl = &halControl;
        in.sofTimeStamp = sof;
        in.expTimeStamp = exp;
        out.HalDynamic = &halDynamic;
        out.AppDynamic = &appDynamic;
        // The pipeline lists the other sensors of the group as this sensor's sync ids.
        IMetadata::IEntry ids(RYX_FRAMESYNC_ID);
        for (int id : req.group) {
            if (id != sensor) {
                ids.push_back(static_cast<int32_t>(id));
            }
        }
        if (!ids.isEmpty()) {
            halControl.update(RYX_FRAMESYNC_ID, ids);
        }
        if (req.required) {
            ryxtest::setInts(halControl, RYX_FRAMESYNC_REQUIRED, {1});
        }
        if (req.master) {
            ryxtest::setOne<int32_t>(halControl, RYX_DUALZOOM_REAL_MASTER, *req.master);
        }
        if (req.toleranceUs) {
            ryxtest::setOne<int64_t>(halControl, RYX_FRAMESYNC_TOLERANCE, *req.toleranceUs);
        }
        if (req.mode) {
            ryxtest::setOne<int32_t>(halControl, RYX_FRAMESYNC_MODE, *req.mode);
        }
        if (req.enable) {
            ryxtest::setOne<int32_t>(halControl, RYX_FRAMESYNC_ENABLE, *req.enable);
        }
    }
    CamFrame(CamFrame const&) = delete;
    CamFrame& operator=(CamFrame const&) = delete;

    std::optional<int64_t> syncResult() const {
        return get<int64_t>(halDynamic, RYX_FRAMESYNC_RESULT);
    }
    std::optional<int32_t> halMaster() const {
        return get<int32_t>(halDynamic, RYX_DUALZOOM_REAL_MASTER);
    }
    std::optional<int32_t> appMaster() const {
        return get<int32_t>(appDynamic, RYX_APP_REAL_MASTER);
    }
    std::optional<MRect> activeArray() const {
        return get<MRect>(appDynamic, PHYSICAL_ACTIVE_ARRAY_REGION);
    }
    std::optional<float> focalLength() const { return get<float>(appDynamic, LENS_FOCAL_LENGTH); }
    std::optional<int32_t> boost() const {
        return get<int32_t>(appDynamic, CONTROL_POST_RAW_SENSITIVITY_BOOST);
    }
    std::optional<uint8_t> stabilization() const {
        return get<uint8_t>(appDynamic, CONTROL_VIDEO_STABILIZATION_MODE);
    }
    std::optional<MRect> cropOverride() const {
        return get<MRect>(halControl, RYX_SENSOR_CROP_OVERRIDE);
    }

    IMetadata appControl;
    IMetadata halControl;
    IMetadata halDynamic;
    IMetadata appDynamic;
    SyncResultInputParams in;
    SyncResultOutputParams out;

  private:
    template <typename T>
    static std::optional<T> get(IMetadata const& meta, uint32_t tag) {
        T value{};
        if (!ryxtest::getOne<T>(meta, tag, value)) {
            return std::nullopt;
        }
        return value;
    }
};

}  // namespace facadetest
