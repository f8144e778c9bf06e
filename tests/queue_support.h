#pragma once
// Helpers for the sync queue tests: a camera's records for one frame, a recording callback and a
// fixture that checks the queue's Android lines exactly.

#include <android/log.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "LogCapture.h"
#include "MetaBuilder.h"
#include "SyncHelperInspector.h"
#include "SyncMetaTags.h"
#include "SyncQueue.h"

namespace queuetest {

using namespace NSCam::camsys::camcoordinator;
using NSCam::IMetadata;
using DropMap = std::map<int, std::vector<int>>;
constexpr ISyncQueueCB::Type kReady = ISyncQueueCB::SYNC_DATA_READY;
constexpr ISyncQueueCB::Type kDrop = ISyncQueueCB::SYNC_DATA_DROP;

// One camera's result for one frame. `syncIds` become RYX_FRAMESYNC_ID (absent when empty).
struct Camera {
    Camera(int id, int frame, std::initializer_list<int> syncIds,
           std::initializer_list<int> masterSlave = {})
        : input{id, frame + 1000, frame, nullptr, &halControl}, output{&halDynamic} {
        if (syncIds.size() != 0) {
            ryxtest::setInts(halControl, RYX_FRAMESYNC_ID, syncIds);
        }
        if (masterSlave.size() != 0) {
            ryxtest::setInts(halControl, RYX_MW_MASTER_SLAVE_LIST, masterSlave);
        }
    }
    Camera(Camera const&) = delete;

    IMetadata halControl, halDynamic;
    SyncResultInputParams input;
    SyncResultOutputParams output;
};

// What the callback saw of one onEvent call: the event and a copy of the frame's sync data.
struct Event {
    ISyncQueueCB::Type type;
    uint32_t processType;
    SyncData data;
};

class RecordingCallback : public ISyncQueueCB {
  public:
    explicit RecordingCallback(bool verdict = true) : mVerdict(verdict) {}

    bool onEvent(Type type, SyncDataUpdaterType const& processType, SyncData const* data) override {
        std::lock_guard<std::mutex> lock(mMutex);
        mEvents.push_back(Event{type, processType, *data});
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

// The event is of `type`, for `frame`, and holds exactly these cameras' records.
inline void expectEvent(Event const& e, ISyncQueueCB::Type type, int frame,
                        std::initializer_list<Camera*> cams) {
    EXPECT_EQ(e.type, type);
    EXPECT_EQ(e.data.frameNo, frame);
    std::map<int, std::pair<void const*, void const*>> want, got;
    for (Camera* c : cams) {
        want[c->input.m_id] = {&c->input, &c->output};
    }
    for (auto const& [id, input] : e.data.inputParams) {
        got[id].first = input;
    }
    for (auto const& [id, output] : e.data.outputParams) {
        got[id].second = output;
    }
    EXPECT_EQ(got, want);
}

class QueueTest : public ::testing::Test {
  protected:
    QueueTest() { queue.setCallback(callback); }

    void useCallback(bool verdict) {
        callback = std::make_shared<RecordingCallback>(verdict);
        queue.setCallback(callback);
    }
    bool enque(Camera& c, std::vector<int> dropList = {}) {
        return queue.enque("syncResultCheck", c.input.frameNo, c.input, &c.output, &dropList);
    }

    // A queue line "(%4d) [func] body" of the priority; an error line must also carry the
    // " (func){#line:source}" suffix with its own function and line.
    bool hasLine(std::string const& func, std::string const& body,
                 int priority = ANDROID_LOG_DEBUG) const {
        std::string const framed = "[" + func + "] " + body;
        for (auto const& line : cap.androidMatching(") " + framed, "RyxCam/SyncQueue")) {
            std::string const suffix = priority != ANDROID_LOG_ERROR
                                           ? ""
                                           : " (" + func + "){#" +
                                                 std::to_string(std::atoi(line.text.c_str() + 1)) +
                                                 ":hw/camsys/cam_coordinator/SyncHelper/SyncQueue}";
            if (line.priority == priority && line.text[0] == '(' &&
                line.text.substr(line.text.find(") [") + 2) == framed + suffix) {
                return true;
            }
        }
        return false;
    }

    ryxtest::LogCapture cap;
    std::shared_ptr<RecordingCallback> callback = std::make_shared<RecordingCallback>(true);
    SyncQueue queue{15};
};

}  // namespace queuetest
