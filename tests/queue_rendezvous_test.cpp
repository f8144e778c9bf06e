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

struct Arrival : Camera {
    using Camera::Camera;
    bool verdict = false;
    size_t thread = 0;
};

class QueueRendezvousTest : public QueueTest {
  protected:
    void TearDown() override { dog.join(threads); }

    // Camera `id` delivers frame `frame` on a thread of its own; with `waits` the call returns
    // once the camera is seen waiting.
    Arrival& arrive(int id, int frame, std::initializer_list<int> syncIds, bool waits = false,
                    std::initializer_list<int> masterSlave = {}) {
        arrivals.push_back(std::make_unique<Arrival>(id, frame, syncIds, masterSlave));
        Arrival& a = *arrivals.back();
        a.thread = threads.size();
        threads.emplace_back([this, &a] { a.verdict = enque(a); });
        if (waits) {
            EXPECT_TRUE(cap.waitForAndroid("[syncResultCheck][f" + std::to_string(frame) +
                                           "] CamId = " + std::to_string(id) + " wait(1)+"));
        }
        return a;
    }
    void finish(Arrival& a) { threads[a.thread].join(); }

    std::shared_ptr<SyncElement> element(int frame) {
        MutexLock lock(SyncHelperInspector::queueLock(queue));
        return queue.getSyncElement(frame);
    }
    static bool valid(SyncElement& e) {
        MutexLock lock(e.mLock);
        return e.mValid;
    }
    std::set<int> arrivedAt(int frame) {
        auto const all = queue.arrivedSnapshot();
        auto const it = std::find_if(all.begin(), all.end(),
                                     [frame](auto const& entry) { return entry.first == frame; });
        return it != all.end() ? it->second : std::set<int>{};
    }
    void clear() {
        // The owner keeps the camera threads off the containers while it clears.
        MutexLock lock(SyncHelperInspector::queueLock(queue));
        EXPECT_TRUE(queue.clear());
    }

    std::deque<std::unique_ptr<Arrival>> arrivals;
    std::vector<std::thread> threads;
    ryxtest::Watchdog dog{::testing::UnitTest::GetInstance()->current_test_info()->name(),
                          std::chrono::seconds(30)};
};

TEST_F(QueueRendezvousTest, LastArrivalCompletesAFreshElementWithTheFirstCamerasLists) {
    // A frame dropped while camera 0 waits starts afresh, with camera 0 still counted.
    Arrival& x = arrive(0, 7, {1, 2}, true);
    std::vector<int> const nobody;
    EXPECT_TRUE(queue.addDropFrameInfo(7, 0, &nobody));
    finish(x);
    EXPECT_FALSE(x.verdict);
    Arrival& a = arrive(1, 7, {0, 2}, true, {1, 0, 2});
    Arrival& b = arrive(2, 7, {0, 1}, false, {9});
    dog.join(threads);

    EXPECT_TRUE(a.verdict && b.verdict);
    auto const events = callback->events();
    ASSERT_EQ(events.size(), 2u);
    expectEvent(events[0], kDrop, 7, {&x});
    expectEvent(events[1], kReady, 7, {&a, &b});
    EXPECT_EQ(events[1].processType, 15u);
    EXPECT_EQ(events[1].data.requestNo, 1007);
    EXPECT_EQ(events[1].data.syncTargetList, (std::vector<int>{1, 0, 2}));
    EXPECT_EQ(events[1].data.masterSlaveList, (std::vector<int>{1, 0, 2}));
    EXPECT_TRUE(hasLine("enque", "[syncResultCheck][f7] CamId = 2 notify"));
    EXPECT_TRUE(hasLine("enque", "[syncResultCheck][f7] CamId = 2 unlock"));
    EXPECT_TRUE(hasLine("enque", "[syncResultCheck][f7] CamId = 1 wait-"));
    EXPECT_EQ(arrivedAt(7), (std::set<int>{0, 1, 2}));
    EXPECT_EQ(queue.liveFrameCount(), 0u);
}

TEST_F(QueueRendezvousTest, FailedUpdateFailsEveryCameraAndTheWaitersClearTheirDrop) {
    useCallback(false);
    Arrival& a = arrive(0, 7, {1, 2}, true);
    Arrival& b = arrive(1, 7, {0, 2}, true);
    Arrival& c = arrive(2, 7, {0, 1});
    dog.join(threads);

    EXPECT_FALSE(a.verdict || b.verdict || c.verdict);
    EXPECT_EQ(callback->events().size(), 1u);
    EXPECT_TRUE(hasLine("operator()", "Frame:7 Update cameraDropList[0,1,] to DropQueue."));
    EXPECT_TRUE(hasLine("clearDropQueue", "All cam's frameno: 7 has delete from DropQueue"));
    EXPECT_TRUE(queue.dropQueueSnapshot().empty());
}

TEST_F(QueueRendezvousTest, WithoutCallbackFramesCompleteAndClearStillReleases) {
    callback.reset();
    Arrival& a = arrive(0, 7, {2}, true);
    Arrival& b = arrive(2, 7, {0});
    finish(b);
    Arrival& c = arrive(0, 8, {0, 2}, true);
    auto const e = element(8);
    clear();
    dog.join(threads);
    EXPECT_TRUE(a.verdict && b.verdict && c.verdict);
    EXPECT_FALSE(valid(*e));
    EXPECT_FALSE(cap.androidHas("notify"));
    EXPECT_EQ(queue.liveFrameCount(), 0u);
}

TEST_F(QueueRendezvousTest, CallerListedTwiceIsReleasedByAFlushWhichDropsLaterArrivals) {
    Arrival& a = arrive(0, 7, {0, 2}, true);
    Arrival& b = arrive(2, 7, {0}, true);
    EXPECT_TRUE(callback->events().empty());
    auto const e = element(7);
    ASSERT_NE(e, nullptr);

    EXPECT_TRUE(queue.dropItemsForFlush(7, 0));
    dog.join(threads);
    EXPECT_FALSE(a.verdict || b.verdict);
    EXPECT_FALSE(valid(*e));
    // A third camera that would complete the frame is turned away uncounted.
    Camera late(5, 7, {0, 2});
    EXPECT_FALSE(enque(late));
    EXPECT_EQ(arrivedAt(7), (std::set<int>{0, 2}));
    auto const events = callback->events();
    ASSERT_EQ(events.size(), 1u);
    expectEvent(events[0], kDrop, 7, {&a, &b});
    EXPECT_EQ(events[0].data.syncTargetList, (std::vector<int>{0, 0, 2}));
    EXPECT_EQ(queue.liveFrameCount(), 0u);
}

TEST_F(QueueRendezvousTest, FailedUpdateLeavesTheCompletingCameraOffItsOwnDropList) {
    useCallback(false);
    // Two drops count as arrivals before the frame exists; camera 0, which lists itself again,
    // then completes the frame without waiting.
    EXPECT_FALSE(queue.dropLastItemLocked(5, 9));
    EXPECT_FALSE(queue.dropLastItemLocked(5, 4));
    Arrival& a = arrive(0, 5, {0, 4});
    // A frame already in the drop queue keeps its entry.
    std::vector<int> const others{9};
    EXPECT_TRUE(queue.addDropFrameInfo(7, 5, &others));
    Arrival& single = arrive(0, 7, {});
    dog.join(threads);
    EXPECT_FALSE(a.verdict || single.verdict);
    EXPECT_FALSE(cap.androidHas("wait("));
    EXPECT_TRUE(hasLine("operator()", "Frame:5 Update cameraDropList[4,] to DropQueue."));
    EXPECT_TRUE(hasLine("operator()", "Frame:7 already in DropQueue. Skip Add."));
    EXPECT_EQ(queue.dropQueueSnapshot(), (DropMap{{5, {4}}, {7, {9}}}));
}

// The last missing camera's drop completes the frame as ready; a failed update fails the waiter.
class QueueLastDropTest : public QueueRendezvousTest, public ::testing::WithParamInterface<bool> {};

TEST_P(QueueLastDropTest, CompletesTheFrameAndLeavesItValid) {
    bool const updated = GetParam();
    useCallback(updated);
    Arrival& a = arrive(0, 10, {1}, true);
    auto const e = element(10);
    ASSERT_NE(e, nullptr);

    EXPECT_TRUE(queue.dropLastItemLocked(10, 1));
    dog.join(threads);
    EXPECT_EQ(a.verdict, updated);
    EXPECT_TRUE(valid(*e));
    auto const events = callback->events();
    ASSERT_EQ(events.size(), 1u);
    expectEvent(events[0], kReady, 10, {&a});
    EXPECT_TRUE(hasLine("dropLastItem", "mSyncTarget.size(2), mArrivedSyncMap.size(2)"));
    EXPECT_EQ(hasLine("operator()", "Frame:10 Update cameraDropList[0,] to DropQueue."), !updated);
    EXPECT_TRUE(queue.dropQueueSnapshot().empty());
    EXPECT_EQ(queue.liveFrameCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Update, QueueLastDropTest, ::testing::Bool());

TEST_F(QueueRendezvousTest, DropItemsBySensorCountsTheSensorInEveryFrameListingIt) {
    Arrival& f3 = arrive(0, 3, {1}, true);
    Arrival& f4 = arrive(0, 4, {1, 2}, true);
    Arrival& f5 = arrive(0, 5, {2}, true);

    EXPECT_FALSE(queue.dropItemsBySensor(1));
    finish(f3);
    EXPECT_TRUE(f3.verdict);
    EXPECT_TRUE(hasLine("dropItemsBySensor", "[S:1] list : 3 4 ") ||
                hasLine("dropItemsBySensor", "[S:1] list : 4 3 "));
    EXPECT_EQ(arrivedAt(4), (std::set<int>{0, 1}));
    EXPECT_EQ(arrivedAt(5), (std::set<int>{0}));
    ASSERT_EQ(callback->events().size(), 1u);
    expectEvent(callback->events()[0], kReady, 3, {&f3});

    // Frame 4 still waits for camera 2, whose arrival completes it.
    Arrival& late = arrive(2, 4, {0, 1});
    finish(late);
    finish(f4);
    EXPECT_TRUE(f4.verdict && late.verdict);
    ASSERT_EQ(callback->events().size(), 2u);
    expectEvent(callback->events()[1], kReady, 4, {&f4, &late});
    EXPECT_TRUE(queue.dropItemsForFlush(5, 0));
    dog.join(threads);
    EXPECT_FALSE(f5.verdict);
}

TEST_F(QueueRendezvousTest, ClearReportsPendingFramesAsReadyAndKeepsTheDropRecords) {
    std::vector<int> const later{1};
    EXPECT_TRUE(queue.addDropFrameInfo(30, 0, &later));
    EXPECT_TRUE(queue.dropItemsForFlush(40, 0));
    Arrival& a = arrive(0, 7, {2}, true);
    Arrival& b = arrive(0, 8, {2}, true);
    auto const e = element(7);
    clear();
    dog.join(threads);

    EXPECT_TRUE(a.verdict && b.verdict);
    EXPECT_FALSE(valid(*e));
    auto events = callback->events();
    ASSERT_EQ(events.size(), 2u);
    std::sort(events.begin(), events.end(),
              [](Event const& l, Event const& r) { return l.data.frameNo < r.data.frameNo; });
    expectEvent(events[0], kReady, 7, {&a});
    expectEvent(events[1], kReady, 8, {&b});
    EXPECT_TRUE(hasLine("clear", "[f7] notify", ANDROID_LOG_INFO));
    EXPECT_TRUE(hasLine("clear", "[r1008:f8] unlock"));
    EXPECT_EQ(queue.liveFrameCount(), 0u);
    EXPECT_EQ(queue.dropQueueSnapshot(), (DropMap{{30, {1}}}));
    EXPECT_EQ(queue.flushListSnapshot(), (std::vector<int>{40}));
}

}  // namespace
}  // namespace queuetest
