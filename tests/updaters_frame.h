#pragma once
// Hand-built frames for the updater tests: each camera owns its four metadata objects and its
// input and output records; the SyncData points at them the way the queue's would.

#include <NSCam/IMetadata.h>
#include <NSCam/Properties.h>
#include <android/log.h>

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "SyncHelperTypes.h"

namespace updtest {

using NSCam::IMetadata;
using NSCam::camsys::camcoordinator::SyncData;
using NSCam::camsys::camcoordinator::SyncResultInputParams;
using NSCam::camsys::camcoordinator::SyncResultOutputParams;

struct Camera {
    IMetadata halControl;
    IMetadata appControl;
    IMetadata halDynamic;
    IMetadata appDynamic;
    SyncResultInputParams input;
    SyncResultOutputParams output;
};

class Frame {
  public:
    explicit Frame(int32_t frameNo = 10, int32_t requestNo = 7) {
        data.frameNo = frameNo;
        data.requestNo = requestNo;
    }
    Frame(Frame const&) = delete;
    Frame& operator=(Frame const&) = delete;

    // A camera that is a sync target and has arrived (input and output records).
    Camera& add(int32_t id, int64_t sof, int64_t exp = 0) {
        Camera& cam = make(id, sof, exp);
        data.syncTargetList.push_back(id);
        data.inputParams[id] = &cam.input;
        data.outputParams[id] = &cam.output;
        return cam;
    }
    // A sync target whose result never reached the frame.
    void addMissingTarget(int32_t id) { data.syncTargetList.push_back(id); }

    Camera& cam(int32_t id) { return *mCams.at(id); }
    SyncData const* get() const { return &data; }

    // Ids of the compared cameras in the order the frame's input map is walked.
    std::vector<int32_t> inputOrder() const {
        std::vector<int32_t> ids;
        for (auto const& entry : data.inputParams) {
            ids.push_back(entry.first);
        }
        return ids;
    }

    SyncData data;

  private:
    Camera& make(int32_t id, int64_t sof, int64_t exp) {
        auto cam = std::make_unique<Camera>();
        cam->input.m_id = id;
        cam->input.frameNo = data.frameNo;
        cam->input.requestNo = data.requestNo;
        cam->input.HalControl = &cam->halControl;
        cam->input.AppControl = &cam->appControl;
        cam->input.sofTimeStamp = sof;
        cam->input.expTimeStamp = exp;
        cam->output.HalDynamic = &cam->halDynamic;
        cam->output.AppDynamic = &cam->appDynamic;
        Camera& ref = *cam;
        mCams[id] = std::move(cam);
        return ref;
    }
    std::map<int32_t, std::unique_ptr<Camera>> mCams;
};

template <typename T>
std::optional<T> read(IMetadata const& meta, uint32_t tag) {
    T value{};
    if (!IMetadata::getEntry<T>(&meta, tag, value)) {
        return std::nullopt;
    }
    return value;
}

// The updaters' verbosity property, set for the lifetime of the guard.
class ScopedLogLevel {
  public:
    explicit ScopedLogLevel(const char* value) {
        if (value != nullptr) {
            NSCam::Utils::Properties::setHostProperty(kKey, value);
        } else {
            NSCam::Utils::Properties::clearHostProperty(kKey);
        }
    }
    ~ScopedLogLevel() { NSCam::Utils::Properties::clearHostProperty(kKey); }
    ScopedLogLevel(ScopedLogLevel const&) = delete;
    ScopedLogLevel& operator=(ScopedLogLevel const&) = delete;

  private:
    static constexpr const char* kKey = "vendor.debug.camera.SyncDataUpdater.log";
};

// An Android line taken apart: "(%4d) [func] msg", with an error line's " (func){#n:src}"
// suffix split off into `suffixFunc` and `suffixSource`.
struct Line {
    int priority = 0;
    std::string tag;
    int lineNo = 0;
    std::string func;
    std::string msg;
    std::string suffixFunc;
    std::string suffixSource;
};

inline std::vector<Line> lines(ryxtest::LogCapture const& cap, std::string const& tag) {
    static const std::regex frame(R"(^\(\s*(\d+)\) \[([^\]]*)\] ([\s\S]*)$)");
    static const std::regex suffix(
        R"(^([\s\S]*) \(([A-Za-z_~][\w~]*(?:\(\))?)\)\{#(\d+):([^}]*)\}$)");
    std::vector<Line> out;
    for (auto const& a : cap.android()) {
        if (a.tag != tag) {
            continue;
        }
        Line l;
        l.priority = a.priority;
        l.tag = a.tag;
        std::smatch m;
        if (!std::regex_match(a.text, m, frame)) {
            ADD_FAILURE() << "unframed line: " << a.text;
            continue;
        }
        l.lineNo = std::stoi(m[1]);
        l.func = m[2];
        l.msg = m[3];
        std::string const framed = l.msg;  // the match below refers into it
        std::smatch s;
        if (a.priority == ANDROID_LOG_ERROR && std::regex_match(framed, s, suffix)) {
            EXPECT_EQ(std::stoi(s[3]), l.lineNo) << a.text;
            l.msg = s[1];
            l.suffixFunc = s[2];
            l.suffixSource = s[4];
        }
        out.push_back(l);
    }
    return out;
}

// Lines whose message is exactly `msg`.
inline std::vector<Line> withMsg(std::vector<Line> const& all, std::string const& msg) {
    std::vector<Line> out;
    for (auto const& l : all) {
        if (l.msg == msg) {
            out.push_back(l);
        }
    }
    return out;
}

}  // namespace updtest
