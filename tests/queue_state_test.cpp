// The queue's containers on one thread: elements, the arrival record, the drop queue, the flush
// list, and the enque paths that never wait.

#include <gtest/gtest.h>

#include <numeric>
#include <string>

#include "queue_support.h"

namespace queuetest {
namespace {

using QueueStateTest = QueueTest;

std::vector<int> const kOneCamera{1};

template <typename Container>
std::vector<int> keys(Container const& container) {
    std::vector<int> out;
    for (auto const& entry : container) {
        out.push_back(entry.first);
    }
    return out;
}

std::vector<int> range(int from, int to) {
    std::vector<int> out(to - from + 1);
    std::iota(out.begin(), out.end(), from);
    return out;
}

TEST_F(QueueStateTest, ElementsAreKeyedByTheInputFrameAndALiveOneIsKept) {
    Camera a(0, 7, {0, 2}), b(2, 7, {0});
    {
        MutexLock lock(SyncHelperInspector::queueLock(queue));
        auto const first = queue.createSyncElement(99, a.input, &a.output);
        EXPECT_EQ(queue.getSyncElement(99), nullptr);
        EXPECT_EQ(first->mSyncData.syncTargetList, (std::vector<int>{0, 0, 2}));
        EXPECT_NE(queue.createSyncElement(7, b.input, &b.output), first);
        EXPECT_EQ(queue.getSyncElement(7), first);
        EXPECT_EQ(first->mSyncData.inputParams.size(), 1u);
        EXPECT_FALSE(queue.updateSyncElement(nullptr, b.input, &b.output));
    }
    EXPECT_TRUE(hasLine("updateSyncElement", "[7] syncElement is nullptr", ANDROID_LOG_ERROR));
    std::vector<int> list{-5};
    EXPECT_TRUE(queue.getFrameNoList(&list));
    EXPECT_EQ(list, (std::vector<int>{-5, 7}));
}

TEST_F(QueueStateTest, BoundedContainersKeepTheNewestFrames) {
    {
        MutexLock lock(SyncHelperInspector::queueLock(queue));
        EXPECT_EQ(queue.updateArrivedSyncMap(1, 0), 1);
        EXPECT_EQ(queue.updateArrivedSyncMap(1, 0), 1);  // cameras count once
        EXPECT_EQ(queue.updateArrivedSyncMap(1, 2), 2);
    }
    for (int frame = 1; frame <= 21; ++frame) {
        EXPECT_TRUE(queue.addDropFrameInfo(frame, 0, &kOneCamera));
        EXPECT_TRUE(queue.dropItemsForFlush(frame, 0));
        MutexLock lock(SyncHelperInspector::queueLock(queue));
        queue.updateArrivedSyncMap(frame, 0);
    }
    EXPECT_EQ(keys(queue.arrivedSnapshot()), range(2, 21));
    EXPECT_TRUE(hasLine("operator()", "Remove frame: 1 in mArrivedSyncMap"));
    EXPECT_EQ(keys(queue.dropQueueSnapshot()), range(1, 21));
    EXPECT_TRUE(
        hasLine("addDropFrameInfo", "Remove frame(21) from Queue because it should be drop"));
    EXPECT_EQ(queue.flushListSnapshot(), range(1, 21));

    // The flush list forgets its oldest frame and ignores repeats.
    EXPECT_TRUE(queue.dropItemsForFlush(22, 0));
    EXPECT_TRUE(queue.dropItemsForFlush(22, 0));
    EXPECT_EQ(queue.flushListSnapshot(), range(2, 22));
    EXPECT_TRUE(queue.isNeedDropFrame(22));
    // The drop queue prunes its lowest frame first, even for a duplicate.
    EXPECT_FALSE(queue.addDropFrameInfo(21, 1, &kOneCamera));
    EXPECT_TRUE(hasLine("removeItemFromDropQueue", "target Prune frame: 1 in DropQueue"));
    EXPECT_EQ(keys(queue.dropQueueSnapshot()), range(2, 20));
    EXPECT_FALSE(queue.isNeedDropFrame(1));
    // A pruned arrival starts afresh at the back.
    MutexLock lock(SyncHelperInspector::queueLock(queue));
    EXPECT_EQ(queue.updateArrivedSyncMap(1, 5), 1);
    EXPECT_TRUE(hasLine("operator()", "Remove frame: 2 in mArrivedSyncMap"));
}

TEST_F(QueueStateTest, DuplicateOrInvalidDropTakesNoEntry) {
    std::vector<int> const two{2}, other{4, 5};
    EXPECT_FALSE(queue.addDropFrameInfo(-1, 0, &two));
    EXPECT_FALSE(queue.addDropFrameInfo(5, -2, &two));
    EXPECT_TRUE(hasLine("addDropFrameInfo", "Invalid frame (-1) or CamId[0]", ANDROID_LOG_ERROR));
    EXPECT_TRUE(hasLine("addDropFrameInfo", "Invalid frame (5) or CamId[-2]", ANDROID_LOG_ERROR));
    EXPECT_TRUE(queue.dropQueueSnapshot().empty());

    EXPECT_TRUE(queue.addDropFrameInfo(7, 0, &two));
    EXPECT_FALSE(queue.addDropFrameInfo(7, 3, &other));
    EXPECT_EQ(queue.dropQueueSnapshot(), (DropMap{{7, {2}}}));
    EXPECT_TRUE(
        hasLine("addDropFrameInfo", "already has same frame 7 Cam[3] in DropQueue, pass append"));
    EXPECT_FALSE(queue.addDropFrameInfo(7, 2, &other));  // takes the caller off the entry
    EXPECT_FALSE(queue.isNeedDropFrame(7));
}

TEST_F(QueueStateTest, EmptyDropEntryDropsForEveryoneUntilAnyCameraClearsIt) {
    std::vector<int> const nobody, twice{4, 4, 6};
    EXPECT_TRUE(queue.addDropFrameInfo(7, 0, &nobody));
    EXPECT_TRUE(queue.addDropFrameInfo(8, 0, &twice));
    EXPECT_TRUE(queue.isNeedDropFrame(7));
    EXPECT_TRUE(hasLine("isNeedDropFrame", "need drop frame(7)"));
    MutexLock lock(SyncHelperInspector::queueLock(queue));
    EXPECT_TRUE(queue.clearDropQueue(7, 42));
    EXPECT_FALSE(queue.clearDropQueue(8, 4));
    EXPECT_FALSE(queue.clearDropQueue(8, 6));
    EXPECT_TRUE(queue.clearDropQueue(8, 4));
}

TEST_F(QueueStateTest, SequenceCheckReportsTheFrameOncePerListing) {
    std::vector<int> const cams{2, 3, 2};
    EXPECT_TRUE(queue.addDropFrameInfo(9, 0, &cams));
    Camera c(2, 9, {0}), other(5, 9, {0});
    std::vector<int> dropList, none;
    EXPECT_FALSE(queue.checkSyncQueue(c.input, &dropList));
    EXPECT_EQ(dropList, (std::vector<int>{9, 9}));
    EXPECT_EQ(queue.dropQueueSnapshot(), (DropMap{{9, {3, 2}}}));
    EXPECT_TRUE(
        hasLine("sequenceCheck", "cam[2] frame(9) is equal to DROP cam[2] target(9), remove"));
    EXPECT_TRUE(queue.checkSyncQueue(other.input, &none));
    EXPECT_TRUE(none.empty());
}

TEST_F(QueueStateTest, EnqueDropsTheCallersListThenItsOwnResultWhenListedForDrop) {
    Camera waiting(0, 3, {1}), single(4, 5, {}), listed(2, 9, {0});
    {
        MutexLock lock(SyncHelperInspector::queueLock(queue));
        queue.createSyncElement(3, waiting.input, &waiting.output);
    }
    EXPECT_TRUE(enque(single, {3}));
    std::vector<int> const slave{2};
    EXPECT_TRUE(queue.addDropFrameInfo(9, 0, &slave));
    EXPECT_FALSE(enque(listed));
    auto const events = callback->events();
    ASSERT_EQ(events.size(), 3u);
    expectEvent(events[0], kDrop, 3, {&waiting});
    expectEvent(events[1], kReady, 5, {&single});
    expectEvent(events[2], kDrop, 9, {&listed});
    EXPECT_TRUE(queue.dropQueueSnapshot().empty());
    EXPECT_EQ(queue.liveFrameCount(), 0u);
}

TEST_F(QueueStateTest, SingleTargetCompletesAtOnceAndAFailedUpdateLeavesNoDropEntry) {
    // An expired callback is refused and the previous one kept.
    std::weak_ptr<ISyncQueueCB> expired = std::make_shared<RecordingCallback>();
    EXPECT_TRUE(queue.setCallback(expired));
    EXPECT_TRUE(hasLine("setCallback", "set callback fail", ANDROID_LOG_ERROR));
    Camera a(3, 5, {}), b(3, 6, {});
    EXPECT_TRUE(enque(a));
    ASSERT_EQ(callback->events().size(), 1u);
    expectEvent(callback->events()[0], kReady, 5, {&a});
    EXPECT_EQ(callback->events()[0].data.syncTargetList, (std::vector<int>{3}));
    EXPECT_FALSE(cap.androidHas("wait("));

    useCallback(false);
    EXPECT_FALSE(enque(b));
    EXPECT_TRUE(hasLine("operator()", "Frame:6 Update cameraDropList[] to DropQueue."));
    EXPECT_TRUE(queue.dropQueueSnapshot().empty());
}

}  // namespace
}  // namespace queuetest
