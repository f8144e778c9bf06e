#pragma once
// A multi-camera session as a pipeline drives it: per camera and frame the four metadata objects
// with the input and output records that point at them, and a fixture that keeps them alive.

#include <NSCam/CameraInfo.h>
#include <NSCam/IMetadata.h>
#include <NSCam/MRect.h>
#include <NSCam/Properties.h>
#include <android/log.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "ISyncHelper.h"
#include "LogCapture.h"
#include "MetaBuilder.h"

namespace facadetest {

using NSCam::CameraInfo;
using NSCam::IMetadata;
using NSCam::MRect;
using namespace NSCam::camsys::camcoordinator;

constexpr int64_t kMs = 1000000;        // nanoseconds per millisecond
constexpr int64_t kFrameNs = 33 * kMs;  // frame interval
constexpr char kCropProperty[] = "vendor.debug.camera.crop_replace";

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
    Request(std::vector<int> g = {}, std::optional<int32_t> m = {}, std::optional<int64_t> t = {},
            std::optional<int32_t> md = {}, std::optional<int32_t> en = {})
        : group(g), master(m), toleranceUs(t), mode(md), enable(en) {}

    std::vector<int> group;              // every sensor of the frame's sync group
    std::optional<int32_t> master;       // RYX_DUALZOOM_REAL_MASTER
    std::optional<int64_t> toleranceUs;  // RYX_FRAMESYNC_TOLERANCE
    std::optional<int32_t> mode;         // RYX_FRAMESYNC_MODE
    std::optional<int32_t> enable;       // RYX_FRAMESYNC_ENABLE
    bool required = true;                // RYX_FRAMESYNC_REQUIRED present
};

template <typename T>
std::optional<T> tagOf(IMetadata const& meta, uint32_t tag) {
    T value{};
    return ryxtest::getOne<T>(meta, tag, value) ? std::optional<T>(value) : std::nullopt;
}

// One camera's result of one frame.
struct CamFrame {
    CamFrame(int sensor, int frameNo, int64_t sof, int64_t exp, Request const& req) {
        in = {sensor, frameNo + 1000, frameNo, &appControl, &halControl, sof, exp};
        out = {&halDynamic, &appDynamic, false};
        // The pipeline lists the other sensors of the group as this sensor's sync ids.
        std::vector<int32_t> ids;
        std::copy_if(req.group.begin(), req.group.end(), std::back_inserter(ids),
                     [&](int id) { return id != sensor; });
        setIds(ids);
        if (req.required) {
            ryxtest::setInts(halControl, RYX_FRAMESYNC_REQUIRED, {1});
        }
        auto put = [this](uint32_t tag, auto const& value) {
            if (value) {
                ryxtest::setOne(halControl, tag, *value);
            }
        };
        put(RYX_DUALZOOM_REAL_MASTER, req.master);
        put(RYX_FRAMESYNC_TOLERANCE, req.toleranceUs);
        put(RYX_FRAMESYNC_MODE, req.mode);
        put(RYX_FRAMESYNC_ENABLE, req.enable);
    }
    CamFrame(CamFrame const&) = delete;

    void setIds(std::vector<int32_t> const& ids) {  // none: no RYX_FRAMESYNC_ID
        IMetadata::IEntry entry(RYX_FRAMESYNC_ID);
        for (int32_t id : ids) {
            entry.push_back(id);
        }
        if (!ids.empty()) {
            halControl.update(RYX_FRAMESYNC_ID, entry);
        }
    }
    auto syncResult() const { return tagOf<int64_t>(halDynamic, RYX_FRAMESYNC_RESULT); }
    auto halMaster() const { return tagOf<int32_t>(halDynamic, RYX_DUALZOOM_REAL_MASTER); }
    auto appMaster() const { return tagOf<int32_t>(appDynamic, RYX_APP_REAL_MASTER); }
    auto activeArray() const { return tagOf<MRect>(appDynamic, PHYSICAL_ACTIVE_ARRAY_REGION); }
    auto cropOverride() const { return tagOf<MRect>(halControl, RYX_SENSOR_CROP_OVERRIDE); }
    size_t written() const { return halDynamic.count() + appDynamic.count(); }

    IMetadata appControl, halControl, halDynamic, appDynamic;
    SyncResultInputParams in;
    SyncResultOutputParams out;
};

// Every metadata value the writers put into a camera's result when its frame completes.
inline void expectWritten(CamFrame const& f, int master) {
    int id = f.in.m_id;
    EXPECT_EQ(f.halMaster(), master) << "cam " << id;
    EXPECT_EQ(f.appMaster(), master) << "cam " << id;
    EXPECT_EQ(f.out.bMasterCam, id == master) << "cam " << id;
    EXPECT_EQ(f.activeArray(), infoOf(id).activeArrayRegion) << "cam " << id;
    EXPECT_EQ(tagOf<float>(f.appDynamic, LENS_FOCAL_LENGTH), infoOf(id).focalLength) << id;
    EXPECT_EQ(tagOf<int32_t>(f.appDynamic, CONTROL_POST_RAW_SENSITIVITY_BOOST), 100) << id;
    EXPECT_EQ(tagOf<uint8_t>(f.appDynamic, CONTROL_VIDEO_STABILIZATION_MODE), 0) << id;
}

// Checks that exactly one Android line contains `message`, with the given priority, and that its
// text is "(%4d) [func] message" followed by `suffix`, in which "#" stands for the line number.
inline void expectLine(ryxtest::LogCapture const& log, int priority, std::string const& func,
                       std::string const& message, std::string const& suffix = "") {
    auto lines = log.androidMatching(message);
    ASSERT_EQ(lines.size(), 1u) << message;
    EXPECT_EQ(lines[0].priority, priority) << message;
    EXPECT_EQ(lines[0].tag, "RyxCam/SyncHelper");
    std::string const& text = lines[0].text;
    ASSERT_TRUE(text.size() > 7 && text[0] == '(' && text.compare(5, 2, ") ") == 0) << text;
    std::string expected = "[" + func + "] " + message + suffix;
    size_t hash = expected.find('#');
    if (hash != std::string::npos) {
        expected.replace(hash, 1, "#" + std::to_string(std::stoi(text.substr(1, 4))));
    }
    EXPECT_EQ(text.substr(7), expected);
}

// Holds the frames of a test and captures the Android log (every severity).
class FacadeFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        NSCam::Utils::Properties::clearHostProperty(kCropProperty);
        mLog = std::make_unique<ryxtest::LogCapture>(0x1, 5);
    }
    void TearDown() override { NSCam::Utils::Properties::clearHostProperty(kCropProperty); }

    // The frame of `sensor`, with start of frame at `sof` and exposure 1 ms later.
    CamFrame& frame(int sensor, int frameNo, int64_t sof, Request const& req) {
        mFrames.push_back(std::make_unique<CamFrame>(sensor, frameNo, sof, sof + kMs, req));
        return *mFrames.back();
    }

    std::unique_ptr<ryxtest::LogCapture> mLog;
    std::vector<std::unique_ptr<CamFrame>> mFrames;
};

}  // namespace facadetest
