// Cameras meeting on a frame on real threads: completion by the last arrival, failed updates,
// drops counted as arrivals, flushes and clear. "Camera N is waiting" is observed through the
// queue's own "wait(1)+" line, never assumed after a sleep.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <thread>

#include "Watchdog.h"
#include "queue_support.h"

namespace queuetest {
namespace {

using NSCam::camsys::camcoordinator::MutexLock;
using NSCam::camsys::camcoordinator::SyncElement;

struct Arrival {
    Arrival(int id, int frame, std::initializer_list<int> syncIds,
            std::initializer_list<int> masterSlave)
        : cam(id, frame, syncIds, masterSlave) {}
    Camera cam;
    bool verdict = false;
    size_t thread = 0;
};

class QueueRendezvousTest : public ::testing::Test {
  protected:
    QueueRendezvousTest()
        : dog(::testing::UnitTest::GetInstance()->current_test_info()->name(),
              std::chrono::seconds(30)) {
        queue.setCallback(callback);
    }
    void TearDown() override { dog.join(threads); }

    void failUpdates() {
        callback = std::make_shared<RecordingCallback>(false);
        queue.setCallback(callback);
    }

    // Camera `id` delivers frame `frame` on a thread of its own.
    Arrival& arrive(int id, int frame, std::initializer_list<int> syncIds,
                    std::initializer_list<int> masterSlave = {}) {
        arrivals.push_back(std::make_unique<Arrival>(id, frame, syncIds, masterSlave));
        Arrival& a = *arrivals.back();
        a.thread = threads.size();
        threads.emplace_back([this, &a] {
            std::vector<int> dropList;
            a.verdict = queue.enque("syncResultCheck", a.cam.input.frameNo, a.cam.input,
                                    &a.cam.output, &dropList);
        });
        return a;
    }
    void awaitWaiting(int id, int frame) {
        EXPECT_TRUE(cap.waitForAndroid("[syncResultCheck][f" + std::to_string(frame) +
                                       "] CamId = " + std::to_string(id) + " wait(1)+"));
    }
    void finish(Arrival& a) { threads[a.thread].join(); }
    void joinAll() { dog.join(threads); }

    std::shared_ptr<SyncElement> element(int frame) {
        MutexLock lock(queue.mQueueLock);
        return queue.getSyncElement(frame);
    }
    static bool valid(SyncElement& e) {
        MutexLock lock(e.mLock);
        return e.mValid;
    }
    std::set<int> arrivedAt(int frame) {
        for (auto const& pair : queue.arrivedSnapshot()) {
            if (pair.first == frame) {
                return pair.second;
            }
        }
        return {};
    }

    ryxtest::LogCapture cap;
    std::shared_ptr<RecordingCallback> callback = std::make_shared<RecordingCallback>(true);
    SyncQueue queue{15};
    std::deque<std::unique_ptr<Arrival>> arrivals;
    std::vector<std::thread> threads;
    ryxtest::Watchdog dog;
};

// The event holds exactly these cameras' records.
void expectRecords(Event const& e, std::initializer_list<Arrival*> cams) {
    std::map<int, SyncResultInputParams const*> inputs;
    std::map<int, SyncResultOutputParams*> outputs;
    for (Arrival* a : cams) {
        inputs[a->cam.input.m_id] = &a->cam.input;
        outputs[a->cam.input.m_id] = &a->cam.output;
    }
    EXPECT_EQ(e.inputs, inputs);
    EXPECT_EQ(e.outputs, outputs);
}

TEST_F(QueueRendezvousTest, TwoCamerasCompleteOnTheSecondArrival) {
    Arrival& a = arrive(0, 7, {2});
    awaitWaiting(0, 7);
    Arrival& b = arrive(2, 7, {0});
    joinAll();

    EXPECT_TRUE(a.verdict);
    EXPECT_TRUE(b.verdict);
    auto const events = callback->events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].type, ISyncQueueCB::SYNC_DATA_READY);
    EXPECT_EQ(events[0].processType, 15u);
    EXPECT_EQ(events[0].frameNo, 7);
    EXPECT_EQ(events[0].requestNo, 1007);
    EXPECT_EQ(events[0].targets, (std::vector<int>{0, 2}));
    expectRecords(events[0], {&a, &b});
    EXPECT_TRUE(hasLine(cap, "[enque] [syncResultCheck][f7] CamId = 2 notify"));
    EXPECT_TRUE(hasLine(cap, "[enque] [syncResultCheck][f7] CamId = 2 unlock"));
    EXPECT_TRUE(hasLine(cap, "[enque] [syncResultCheck][f7] CamId = 0 wait-"));
    EXPECT_EQ(queue.liveFrameCount(), 0u);
    EXPECT_TRUE(queue.dropQueueSnapshot().empty());
}

TEST_F(QueueRendezvousTest, ThreeCamerasKeepTheFirstCamerasLists) {
    Arrival& a = arrive(0, 7, {1, 2}, {1, 0, 2});
    awaitWaiting(0, 7);
    Arrival& b = arrive(1, 7, {0, 2}, {9});
    awaitWaiting(1, 7);
    Arrival& c = arrive(2, 7, {0, 1});
    joinAll();

    EXPECT_TRUE(a.verdict && b.verdict && c.verdict);
    auto const events = callback->events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].targets, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(events[0].masterSlave, (std::vector<int>{1, 0, 2}));
    expectRecords(events[0], {&a, &b, &c});
    EXPECT_EQ(queue.liveFrameCount(), 0u);
}

TEST_F(QueueRendezvousTest, FailedUpdateFailsEveryCameraAndTheWaitersClearTheirDrop) {
    failUpdates();
    Arrival& a = arrive(0, 7, {1, 2});
    awaitWaiting(0, 7);
    Arrival& b = arrive(1, 7, {0, 2});
    awaitWaiting(1, 7);
    Arrival& c = arrive(2, 7, {0, 1});
    joinAll();

    EXPECT_FALSE(a.verdict);
    EXPECT_FALSE(b.verdict);
    EXPECT_FALSE(c.verdict);
    EXPECT_EQ(callback->events().size(), 1u);
    EXPECT_TRUE(hasLine(cap, "[operator()] Frame:7 Update cameraDropList[0,1,] to DropQueue."));
    EXPECT_TRUE(hasLine(cap, "[clearDropQueue] All cam's frameno: 7 has delete from DropQueue"));
    EXPECT_TRUE(queue.dropQueueSnapshot().empty());
    EXPECT_EQ(queue.liveFrameCount(), 0u);
}

TEST_F(QueueRendezvousTest, SingleTargetCompletesWithoutWaiting) {
    Arrival& a = arrive(3, 5, {});
    joinAll();
    EXPECT_TRUE(a.verdict);
    auto const events = callback->events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].targets, (std::vector<int>{3}));
    expectRecords(events[0], {&a});
    EXPECT_FALSE(cap.androidHas("wait("));
}

TEST_F(QueueRendezvousTest, SingleTargetWithFailedUpdateLeavesNoDropEntry) {
    failUpdates();
    Arrival& a = arrive(3, 5, {});
    joinAll();
    EXPECT_FALSE(a.verdict);
    EXPECT_TRUE(hasLine(cap, "[operator()] Frame:5 Update cameraDropList[] to DropQueue."));
    EXPECT_TRUE(queue.dropQueueSnapshot().empty());
}

TEST_F(QueueRendezvousTest, FailedUpdateLeavesTheCompletingCameraOffItsOwnDropList) {
    failUpdates();
    // Two drops count as arrivals; camera 0, which lists itself again, then completes the frame.
    EXPECT_FALSE(queue.dropLastItemLocked(5, 9));
    EXPECT_FALSE(queue.dropLastItemLocked(5, 4));
    Arrival& a = arrive(0, 5, {0, 4});
    joinAll();
    EXPECT_FALSE(a.verdict);
    EXPECT_TRUE(hasLine(cap, "[operator()] Frame:5 Update cameraDropList[4,] to DropQueue."));
    EXPECT_EQ(queue.dropQueueSnapshot(), (DropMap{{5, {4}}}));
}

TEST_F(QueueRendezvousTest, NoCallbackCompletesWithTrue) {
    callback.reset();
    Arrival& a = arrive(0, 7, {2});
    awaitWaiting(0, 7);
    Arrival& b = arrive(2, 7, {0});
    joinAll();
    EXPECT_TRUE(a.verdict && b.verdict);
    EXPECT_FALSE(cap.androidHas("notify"));
    EXPECT_EQ(queue.liveFrameCount(), 0u);
}

TEST_F(QueueRendezvousTest, CallerListedTwiceIsReleasedOnlyByAFlush) {
    Arrival& a = arrive(0, 7, {0, 2});
    awaitWaiting(0, 7);
    Arrival& b = arrive(2, 7, {0});
    awaitWaiting(2, 7);
    EXPECT_TRUE(callback->events().empty());
    auto const e = element(7);
    ASSERT_NE(e, nullptr);

    EXPECT_TRUE(queue.dropItemsForFlush(7, 0));
    joinAll();
    EXPECT_FALSE(a.verdict);
    EXPECT_FALSE(b.verdict);
    EXPECT_FALSE(valid(*e));
    auto const events = callback->events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].type, ISyncQueueCB::SYNC_DATA_DROP);
    EXPECT_EQ(events[0].targets, (std::vector<int>{0, 0, 2}));
    expectRecords(events[0], {&a, &b});
    EXPECT_EQ(queue.flushListSnapshot(), (std::vector<int>{7}));
}

TEST_F(QueueRendezvousTest, FlushedFrameDropsLaterArrivalsUncounted) {
    Arrival& a = arrive(0, 7, {2});
    awaitWaiting(0, 7);
    EXPECT_TRUE(queue.dropItemsForFlush(7, 0));
    finish(a);
    EXPECT_FALSE(a.verdict);

    Arrival& b = arrive(2, 7, {0});
    joinAll();
    EXPECT_FALSE(b.verdict);
    EXPECT_EQ(arrivedAt(7), (std::set<int>{0}));
    EXPECT_TRUE(queue.dropItemsForFlush(7, 0));
    EXPECT_EQ(callback->events().size(), 1u);
    EXPECT_EQ(queue.liveFrameCount(), 0u);
}

TEST_F(QueueRendezvousTest, LateCameraStartsANewElementAfterTheFrameWasDropped) {
    Arrival& a = arrive(0, 7, {1, 2});
    awaitWaiting(0, 7);
    std::vector<int> const nobody;
    EXPECT_TRUE(queue.addDropFrameInfo(7, 0, &nobody));
    finish(a);
    EXPECT_FALSE(a.verdict);
    EXPECT_TRUE(queue.dropQueueSnapshot().empty());

    Arrival& b = arrive(1, 7, {0, 2});
    awaitWaiting(1, 7);
    Arrival& c = arrive(2, 7, {0, 1});
    joinAll();
    EXPECT_TRUE(b.verdict);
    EXPECT_TRUE(c.verdict);
    auto const events = callback->events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].type, ISyncQueueCB::SYNC_DATA_DROP);
    expectRecords(events[0], {&a});
    EXPECT_EQ(events[1].type, ISyncQueueCB::SYNC_DATA_READY);
    EXPECT_EQ(events[1].targets, (std::vector<int>{1, 0, 2}));
    expectRecords(events[1], {&b, &c});
    EXPECT_EQ(arrivedAt(7), (std::set<int>{0, 1, 2}));
}

TEST_F(QueueRendezvousTest, LastDropCompletesTheFrameAndLeavesItValid) {
    Arrival& a = arrive(0, 10, {1});
    awaitWaiting(0, 10);
    auto const e = element(10);
    ASSERT_NE(e, nullptr);

    EXPECT_TRUE(queue.dropLastItemLocked(10, 1));
    joinAll();
    EXPECT_TRUE(a.verdict);
    EXPECT_TRUE(valid(*e));
    auto const events = callback->events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].type, ISyncQueueCB::SYNC_DATA_READY);
    expectRecords(events[0], {&a});
    EXPECT_TRUE(hasLine(cap, "[dropLastItem] mSyncTarget.size(2), mArrivedSyncMap.size(2)"));
    EXPECT_EQ(queue.liveFrameCount(), 0u);
}

TEST_F(QueueRendezvousTest, LastDropWithFailedUpdateFailsTheWaiter) {
    failUpdates();
    Arrival& a = arrive(0, 10, {1});
    awaitWaiting(0, 10);
    EXPECT_TRUE(queue.dropLastItemLocked(10, 1));
    joinAll();
    EXPECT_FALSE(a.verdict);
    EXPECT_TRUE(hasLine(cap, "[operator()] Frame:10 Update cameraDropList[0,] to DropQueue."));
    EXPECT_TRUE(queue.dropQueueSnapshot().empty());
}

TEST_F(QueueRendezvousTest, DropBeforeTheFrameExistsCountsAsArrival) {
    EXPECT_FALSE(queue.dropLastItemLocked(10, 1));
    EXPECT_EQ(arrivedAt(10), (std::set<int>{1}));
    Arrival& a = arrive(0, 10, {1});
    joinAll();
    EXPECT_TRUE(a.verdict);
    EXPECT_FALSE(cap.androidHas("wait("));
    EXPECT_EQ(callback->events().size(), 1u);
}

TEST_F(QueueRendezvousTest, DropThatIsNotLastWakesNobody) {
    Arrival& a = arrive(0, 10, {1, 2});
    awaitWaiting(0, 10);
    EXPECT_FALSE(queue.dropLastItemLocked(10, 2));
    EXPECT_EQ(queue.liveFrameCount(), 1u);
    EXPECT_TRUE(callback->events().empty());

    Arrival& b = arrive(1, 10, {0, 2});
    joinAll();
    EXPECT_TRUE(a.verdict && b.verdict);
    auto const events = callback->events();
    ASSERT_EQ(events.size(), 1u);
    expectRecords(events[0], {&a, &b});
}

TEST_F(QueueRendezvousTest, DropItemsBySensorCountsTheSensorInEveryFrameListingIt) {
    Arrival& f3 = arrive(0, 3, {1});
    awaitWaiting(0, 3);
    Arrival& f4 = arrive(0, 4, {1, 2});
    awaitWaiting(0, 4);
    Arrival& f5 = arrive(0, 5, {2});
    awaitWaiting(0, 5);

    EXPECT_FALSE(queue.dropItemsBySensor(1));
    finish(f3);
    EXPECT_TRUE(f3.verdict);
    EXPECT_TRUE(hasLine(cap, "[dropItemsBySensor] [S:1] list : 3 4 ") ||
                hasLine(cap, "[dropItemsBySensor] [S:1] list : 4 3 "));
    EXPECT_EQ(queue.liveFrameCount(), 2u);
    EXPECT_EQ(arrivedAt(4), (std::set<int>{0, 1}));
    EXPECT_EQ(arrivedAt(5), (std::set<int>{0}));
    auto const events = callback->events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].frameNo, 3);

    EXPECT_TRUE(queue.dropItemsForFlush(4, 0));
    EXPECT_TRUE(queue.dropItemsForFlush(5, 0));
    joinAll();
    EXPECT_FALSE(f4.verdict || f5.verdict);
    EXPECT_FALSE(queue.dropItemsBySensor(7));
    EXPECT_TRUE(hasLine(cap, "[dropItemsBySensor] [S:7] list : "));
}

TEST_F(QueueRendezvousTest, ClearReportsPendingFramesAsReadyAndKeepsTheDropRecords) {
    std::vector<int> const later{1};
    EXPECT_TRUE(queue.addDropFrameInfo(30, 0, &later));
    EXPECT_TRUE(queue.dropItemsForFlush(40, 0));
    Arrival& a = arrive(0, 7, {2});
    awaitWaiting(0, 7);
    Arrival& b = arrive(0, 8, {2});
    awaitWaiting(0, 8);
    {
        // The owner keeps the camera threads off the containers while it clears.
        MutexLock lock(queue.mQueueLock);
        EXPECT_TRUE(queue.clear());
    }
    joinAll();

    EXPECT_TRUE(a.verdict);
    EXPECT_TRUE(b.verdict);
    auto events = callback->events();
    ASSERT_EQ(events.size(), 2u);
    std::sort(events.begin(), events.end(),
              [](Event const& l, Event const& r) { return l.frameNo < r.frameNo; });
    EXPECT_EQ(events[0].type, ISyncQueueCB::SYNC_DATA_READY);
    EXPECT_EQ(events[0].frameNo, 7);
    expectRecords(events[0], {&a});
    EXPECT_EQ(events[1].type, ISyncQueueCB::SYNC_DATA_READY);
    expectRecords(events[1], {&b});
    EXPECT_TRUE(hasLine(cap, "[clear] [f7] notify", ANDROID_LOG_INFO));
    EXPECT_TRUE(hasLine(cap, "[clear] [r1008:f8] unlock"));
    EXPECT_EQ(queue.liveFrameCount(), 0u);
    EXPECT_EQ(queue.dropQueueSnapshot(), (DropMap{{30, {1}}}));
    EXPECT_EQ(queue.flushListSnapshot(), (std::vector<int>{40}));
}

TEST_F(QueueRendezvousTest, ClearWithoutCallbackStillReleasesTheWaiters) {
    callback.reset();
    Arrival& a = arrive(0, 7, {0, 2});
    awaitWaiting(0, 7);
    auto const e = element(7);
    {
        MutexLock lock(queue.mQueueLock);
        EXPECT_TRUE(queue.clear());
    }
    joinAll();
    EXPECT_TRUE(a.verdict);
    EXPECT_FALSE(valid(*e));
    EXPECT_FALSE(cap.androidHas("notify"));
    EXPECT_EQ(queue.liveFrameCount(), 0u);
}

}  // namespace
}  // namespace queuetest
