#pragma once
// Helpers for the sync queue tests: a camera's records for one frame, a recording callback and
// exact-line checks on the queue's Android log.

#include <NSCam/IMetadata.h>
#include <android/log.h>

#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "ISyncQueueCB.h"
#include "LogCapture.h"
#include "MetaBuilder.h"
#include "SyncMetaTags.h"
#include "SyncQueue.h"

namespace queuetest {

using NSCam::IMetadata;
using NSCam::camsys::camcoordinator::ISyncQueueCB;
using NSCam::camsys::camcoordinator::SyncData;
using NSCam::camsys::camcoordinator::SyncDataUpdaterType;
using NSCam::camsys::camcoordinator::SyncQueue;
using NSCam::camsys::camcoordinator::SyncResultInputParams;
using NSCam::camsys::camcoordinator::SyncResultOutputParams;
using DropMap = std::map<int, std::vector<int>>;

// One camera's result for one frame. `syncIds` become RYX_FRAMESYNC_ID (absent when empty).
struct Camera {
    Camera(int id, int frame, std::initializer_list<int> syncIds,
           std::initializer_list<int> masterSlave = {}) {
        if (syncIds.size() != 0) {
            ryxtest::setInts(halControl, NSCam::camsys::camcoordinator::RYX_FRAMESYNC_ID, syncIds);
        }
        if (masterSlave.size() != 0) {
            ryxtest::setInts(halControl, NSCam::camsys::camcoordinator::RYX_MW_MASTER_SLAVE_LIST,
                             masterSlave);
        }
        input.m_id = id;
        input.frameNo = frame;
        input.requestNo = frame + 1000;
        input.HalControl = &halControl;
        output.HalDynamic = &halDynamic;
    }
    Camera(Camera const&) = delete;
    Camera& operator=(Camera const&) = delete;

    IMetadata halControl;
    IMetadata halDynamic;
    SyncResultInputParams input;
    SyncResultOutputParams output;
};

// What the callback saw of one onEvent call.
struct Event {
    ISyncQueueCB::Type type;
    uint32_t processType;
    int frameNo;
    int requestNo;
    std::vector<int> targets;
    std::vector<int> masterSlave;
    std::map<int, SyncResultInputParams const*> inputs;
    std::map<int, SyncResultOutputParams*> outputs;
};

class RecordingCallback : public ISyncQueueCB {
  public:
    explicit RecordingCallback(bool verdict = true) : mVerdict(verdict) {}

    bool onEvent(Type type, SyncDataUpdaterType const& processType, SyncData const* data) override {
        Event e{type,
                processType,
                data->frameNo,
                data->requestNo,
                data->syncTargetList,
                data->masterSlaveList,
                {data->inputParams.begin(), data->inputParams.end()},
                {data->outputParams.begin(), data->outputParams.end()}};
        std::lock_guard<std::mutex> lock(mMutex);
        mEvents.push_back(std::move(e));
        return mVerdict;
    }

    std::vector<Event> events() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mEvents;
    }

  private:
    bool const mVerdict;
    mutable std::mutex mMutex;
    std::vector<Event> mEvents;
};

// The text after the "(%4d) " line column, with the line number; empty when unframed.
inline std::string unframed(std::string const& text, int* lineNo = nullptr) {
    size_t const close = text.find(") ");
    if (text.empty() || text[0] != '(' || close == std::string::npos) {
        return {};
    }
    std::string const digits = text.substr(1, close - 1);
    size_t const first = digits.find_first_not_of(' ');
    if (first == std::string::npos ||
        digits.find_first_not_of("0123456789", first) != std::string::npos) {
        return {};
    }
    if (lineNo != nullptr) {
        *lineNo = std::stoi(digits.substr(first));
    }
    return text.substr(close + 2);
}

// The queue's Android lines of one priority without the line column, e.g.
// "[enque] [syncResultCheck][f7] CamId = 2 notify".
inline std::vector<std::string> queueLines(ryxtest::LogCapture const& cap,
                                           int priority = ANDROID_LOG_DEBUG) {
    std::vector<std::string> out;
    for (auto const& line : cap.android()) {
        if (line.tag == "RyxCam/SyncQueue" && line.priority == priority) {
            std::string body = unframed(line.text);
            if (!body.empty()) {
                out.push_back(std::move(body));
            }
        }
    }
    return out;
}

inline bool hasLine(ryxtest::LogCapture const& cap, std::string const& body,
                    int priority = ANDROID_LOG_DEBUG) {
    for (auto const& l : queueLines(cap, priority)) {
        if (l == body) {
            return true;
        }
    }
    return false;
}

}  // namespace queuetest
