#pragma once
// Hand-built frames for the updater tests, the verbosity property and exact log lines.

#include <NSCam/IMetadata.h>
#include <NSCam/Properties.h>
#include <android/log.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "SyncHelperTypes.h"
#include "SyncMetaTags.h"

namespace updtest {

using namespace NSCam::camsys::camcoordinator;
using NSCam::IMetadata;
using CameraInfos = std::unordered_map<unsigned int, NSCam::CameraInfo>;

struct Camera {
    IMetadata halControl, appControl, halDynamic, appDynamic;
    SyncResultInputParams input;
    SyncResultOutputParams output;
};

// A frame whose SyncData points at its cameras' records the way the queue's would.
struct Frame {
    explicit Frame(int32_t frameNo = 10, int32_t requestNo = 7) {
        data.frameNo = frameNo;
        data.requestNo = requestNo;
    }
    // A sync target that has arrived (input and output records).
    Camera& add(int32_t id, int64_t sof, int64_t exp = 0) {
        auto& cam = cams[id] = std::make_unique<Camera>();
        cam->input = {id, data.requestNo, data.frameNo, &cam->appControl, &cam->halControl, sof,
                      exp};
        cam->output = {&cam->halDynamic, &cam->appDynamic, false};
        data.syncTargetList.push_back(id);
        data.inputParams[id] = &cam->input;
        data.outputParams[id] = &cam->output;
        return *cam;
    }
    Camera& cam(int32_t id) { return *cams.at(id); }
    SyncData const* get() const { return &data; }

    SyncData data;
    std::map<int32_t, std::unique_ptr<Camera>> cams;
};

template <typename T>
std::optional<T> read(IMetadata const& meta, uint32_t tag) {
    T value{};
    return IMetadata::getEntry<T>(&meta, tag, value) ? std::optional<T>(value) : std::nullopt;
}

// An updater made while the verbosity property is `level` (unset for nullptr).
template <typename Updater>
std::unique_ptr<Updater> withLogLevel(const char* level, unsigned long sessionKey = 1) {
    constexpr const char* kKey = "vendor.debug.camera.SyncDataUpdater.log";
    if (level != nullptr) {
        NSCam::Utils::Properties::setHostProperty(kKey, level);
    }
    auto updater = std::make_unique<Updater>(sessionKey, CameraInfos{});
    NSCam::Utils::Properties::clearHostProperty(kKey);
    return updater;
}

using Lines = std::vector<std::string>;

// The tag's Android lines as "<D|I|W|E> [func] msg", without the line number. An error line
// keeps its " (func){#line:source}" suffix unless it names its own function, line and the tag's
// source.
inline Lines logged(ryxtest::LogCapture const& cap, std::string const& tag) {
    std::string const source =
        "hw/camsys/cam_coordinator/SyncHelper/" + tag.substr(tag.find('/') + 1);
    Lines out;
    for (auto const& a : cap.android()) {
        size_t const open = a.text.find(") [");
        size_t const close = a.text.find("] ", open);
        if (a.tag != tag || a.text[0] != '(' || close == std::string::npos) {
            EXPECT_NE(a.tag, tag) << "unframed line: " << a.text;
            continue;
        }
        std::string body = a.text.substr(open + 2);
        std::string const suffix = " (" + a.text.substr(open + 3, close - open - 3) + "){#" +
                                   std::to_string(std::atoi(a.text.c_str() + 1)) + ":" + source +
                                   "}";
        if (a.priority == ANDROID_LOG_ERROR && body.size() > suffix.size() &&
            body.compare(body.size() - suffix.size(), suffix.size(), suffix) == 0) {
            body.resize(body.size() - suffix.size());
        }
        out.push_back(std::string(1, "??VDIWEF"[a.priority & 7]) + " " + body);
    }
    return out;
}

inline size_t count(Lines const& lines, std::string const& line) {
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
}

}  // namespace updtest
