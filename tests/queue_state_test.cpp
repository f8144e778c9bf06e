// The queue's containers on one thread: elements, the arrival record, the drop queue, the flush
// list, and the enque paths that never wait.

#include <gtest/gtest.h>

#include <string>

#include "queue_support.h"

namespace queuetest {
namespace {

using NSCam::camsys::camcoordinator::MutexLock;

class QueueStateTest : public ::testing::Test {
  protected:
    QueueStateTest() { queue.setCallback(callback); }

    bool enque(Camera& c, std::vector<int> dropList = {}) {
        return queue.enque("syncResultCheck", c.input.frameNo, c.input, &c.output, &dropList);
    }
    // An error line "(%4d) [func] msg (func){#line:source}".
    bool hasError(std::string const& func, std::string const& msg) {
        for (auto const& line : cap.androidMatching(msg, "RyxCam/SyncQueue")) {
            int lineNo = 0;
            std::string const body = unframed(line.text, &lineNo);
            if (line.priority == ANDROID_LOG_ERROR &&
                body == "[" + func + "] " + msg + " (" + func + "){#" + std::to_string(lineNo) +
                            ":hw/camsys/cam_coordinator/SyncHelper/SyncQueue}") {
                return true;
            }
        }
        return false;
    }

    ryxtest::LogCapture cap;
    std::shared_ptr<RecordingCallback> callback = std::make_shared<RecordingCallback>(true);
    SyncQueue queue{15};
};

TEST_F(QueueStateTest, CreateSyncElementKeysByTheInputFrameAndKeepsALiveOne) {
    Camera a(0, 7, {0, 2}), b(2, 7, {0});
    MutexLock lock(queue.mQueueLock);
    auto const first = queue.createSyncElement(99, a.input, &a.output);
    EXPECT_EQ(queue.getSyncElement(7), first);
    EXPECT_EQ(queue.getSyncElement(99), nullptr);
    SyncData const& data = first->mSyncData;
    EXPECT_EQ(data.frameNo, 7);
    EXPECT_EQ(data.requestNo, 1007);
    EXPECT_EQ(data.syncTargetList, (std::vector<int>{0, 0, 2}));
    EXPECT_TRUE(data.masterSlaveList.empty());

    auto const second = queue.createSyncElement(7, b.input, &b.output);
    EXPECT_NE(second, first);
    EXPECT_EQ(queue.getSyncElement(7), first);
    EXPECT_EQ(first->mSyncData.inputParams.size(), 1u);

    EXPECT_TRUE(queue.updateSyncElement(first, b.input, &b.output));
    EXPECT_EQ(first->mSyncData.inputParams.at(2), &b.input);
    EXPECT_EQ(first->mSyncData.outputParams.at(2), &b.output);
    EXPECT_EQ(first->mSyncData.syncTargetList, (std::vector<int>{0, 0, 2}));
    EXPECT_FALSE(queue.updateSyncElement(nullptr, b.input, &b.output));
    EXPECT_TRUE(hasError("updateSyncElement", "[7] syncElement is nullptr"));
}

TEST_F(QueueStateTest, FrameListAppendsAndRemoveItemReportsWhetherItRemoved) {
    Camera a(0, 3, {1}), b(0, 4, {1});
    {
        MutexLock lock(queue.mQueueLock);
        queue.createSyncElement(3, a.input, &a.output);
        queue.createSyncElement(4, b.input, &b.output);
    }
    std::vector<int> list{-5};
    EXPECT_TRUE(queue.getFrameNoList(&list));
    std::sort(list.begin() + 1, list.end());
    EXPECT_EQ(list, (std::vector<int>{-5, 3, 4}));
    EXPECT_TRUE(queue.removeItem(3));
    EXPECT_FALSE(queue.removeItem(3));
    EXPECT_EQ(queue.liveFrameCount(), 1u);
}

TEST_F(QueueStateTest, ExpiredCallbackIsRefusedAndThePreviousOneKept) {
    std::weak_ptr<ISyncQueueCB> expired = std::make_shared<RecordingCallback>();
    EXPECT_TRUE(queue.setCallback(expired));
    EXPECT_TRUE(hasError("setCallback", "set callback fail"));
    Camera a(3, 5, {});
    EXPECT_TRUE(enque(a));
    EXPECT_EQ(callback->events().size(), 1u);
}

TEST_F(QueueStateTest, ArrivalRecordCountsDistinctCamerasAndKeeps20Frames) {
    {
        MutexLock lock(queue.mQueueLock);
        EXPECT_EQ(queue.updateArrivedSyncMap(1, 0), 1);
        EXPECT_EQ(queue.updateArrivedSyncMap(1, 0), 1);
        EXPECT_EQ(queue.updateArrivedSyncMap(1, 2), 2);
        for (int frame = 2; frame <= 20; ++frame) {
            EXPECT_EQ(queue.updateArrivedSyncMap(frame, 0), 1);
        }
        EXPECT_FALSE(cap.androidHas("Remove frame"));
        EXPECT_EQ(queue.updateArrivedSyncMap(21, 0), 1);
    }
    EXPECT_TRUE(hasLine(cap, "[operator()] Remove frame: 1 in mArrivedSyncMap"));
    auto const arrived = queue.arrivedSnapshot();
    ASSERT_EQ(arrived.size(), 20u);
    EXPECT_EQ(arrived.front().first, 2);
    EXPECT_EQ(arrived.back().first, 21);
    MutexLock lock(queue.mQueueLock);
    EXPECT_EQ(queue.updateArrivedSyncMap(1, 5), 1);  // frame 1 starts afresh at the back
    EXPECT_TRUE(hasLine(cap, "[operator()] Remove frame: 2 in mArrivedSyncMap"));
}

TEST_F(QueueStateTest, DropQueueRejectsNegativeArguments) {
    std::vector<int> const cams{1};
    EXPECT_FALSE(queue.addDropFrameInfo(-1, 0, &cams));
    EXPECT_FALSE(queue.addDropFrameInfo(5, -2, &cams));
    EXPECT_TRUE(hasError("addDropFrameInfo", "Invalid frame (-1) or CamId[0]"));
    EXPECT_TRUE(hasError("addDropFrameInfo", "Invalid frame (5) or CamId[-2]"));
    EXPECT_TRUE(queue.dropQueueSnapshot().empty());
}

TEST_F(QueueStateTest, DropQueuePrunesTheLowestFrameBeyond21) {
    std::vector<int> const cams{1};
    for (int frame = 1; frame <= 22; ++frame) {
        EXPECT_TRUE(queue.addDropFrameInfo(frame, 0, &cams));
    }
    auto const dq = queue.dropQueueSnapshot();
    ASSERT_EQ(dq.size(), 21u);
    EXPECT_EQ(dq.begin()->first, 2);
    EXPECT_TRUE(hasLine(cap, "[removeItemFromDropQueue] target Prune frame: 1 in DropQueue"));
    EXPECT_TRUE(
        hasLine(cap, "[addDropFrameInfo] Remove frame(22) from Queue because it should be drop"));

    // A duplicate still prunes first.
    EXPECT_FALSE(queue.addDropFrameInfo(22, 1, &cams));
    auto const after = queue.dropQueueSnapshot();
    EXPECT_EQ(after.size(), 19u);
    EXPECT_EQ(after.begin()->first, 3);
    EXPECT_EQ(after.count(22), 0u);
}

TEST_F(QueueStateTest, DuplicateDropTakesTheCallerOffTheEntry) {
    std::vector<int> const two{2};
    std::vector<int> const other{4, 5};
    EXPECT_TRUE(queue.addDropFrameInfo(7, 0, &two));
    EXPECT_FALSE(queue.addDropFrameInfo(7, 3, &other));
    EXPECT_EQ(queue.dropQueueSnapshot(), (DropMap{{7, {2}}}));
    EXPECT_TRUE(hasLine(
        cap, "[addDropFrameInfo] already has same frame 7 Cam[3] in DropQueue, pass append"));
    EXPECT_FALSE(queue.addDropFrameInfo(7, 2, &other));
    EXPECT_TRUE(queue.dropQueueSnapshot().empty());
    EXPECT_FALSE(queue.isNeedDropFrame(7));
}

TEST_F(QueueStateTest, EmptyDropEntryDropsForEveryoneUntilAnyCameraClearsIt) {
    std::vector<int> const nobody;
    std::vector<int> const twice{4, 4, 6};
    EXPECT_TRUE(queue.addDropFrameInfo(7, 0, &nobody));
    EXPECT_TRUE(queue.addDropFrameInfo(8, 0, &twice));
    EXPECT_TRUE(queue.isNeedDropFrame(7));
    EXPECT_TRUE(hasLine(cap, "[isNeedDropFrame] need drop frame(7)"));
    MutexLock lock(queue.mQueueLock);
    EXPECT_FALSE(queue.clearDropQueue(9, 1));
    EXPECT_TRUE(queue.clearDropQueue(7, 42));
    EXPECT_FALSE(queue.clearDropQueue(8, 4));
    EXPECT_FALSE(queue.clearDropQueue(8, 6));
    EXPECT_TRUE(queue.clearDropQueue(8, 4));
    EXPECT_TRUE(hasLine(cap, "[clearDropQueue] All cam's frameno: 8 has delete from DropQueue"));
    EXPECT_FALSE(queue.removeItemFromDropQueue());
}

TEST_F(QueueStateTest, SequenceCheckReportsTheFrameOncePerListing) {
    std::vector<int> const cams{2, 3, 2};
    EXPECT_TRUE(queue.addDropFrameInfo(9, 0, &cams));
    Camera c(2, 9, {0});
    std::vector<int> dropList;
    EXPECT_FALSE(queue.checkSyncQueue(c.input, &dropList));
    EXPECT_EQ(dropList, (std::vector<int>{9, 9}));
    EXPECT_EQ(queue.dropQueueSnapshot(), (DropMap{{9, {3, 2}}}));
    EXPECT_TRUE(
        hasLine(cap, "[sequenceCheck] cam[2] frame(9) is equal to DROP cam[2] target(9), remove"));
    Camera other(5, 9, {0});
    std::vector<int> none;
    EXPECT_TRUE(queue.checkSyncQueue(other.input, &none));
    EXPECT_TRUE(none.empty());
}

TEST_F(QueueStateTest, CameraListedInTheDropQueueDropsItsOwnResult) {
    std::vector<int> const slave{2};
    EXPECT_TRUE(queue.addDropFrameInfo(9, 0, &slave));
    Camera c(2, 9, {0});
    EXPECT_FALSE(enque(c));
    auto const events = callback->events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].type, ISyncQueueCB::SYNC_DATA_DROP);
    EXPECT_EQ(events[0].inputs, (std::map<int, SyncResultInputParams const*>{{2, &c.input}}));
    EXPECT_TRUE(queue.dropQueueSnapshot().empty());
    EXPECT_EQ(queue.liveFrameCount(), 0u);
}

TEST_F(QueueStateTest, FailedUpdateOfAFrameAlreadyInTheDropQueueKeepsItsEntry) {
    auto failing = std::make_shared<RecordingCallback>(false);
    queue.setCallback(failing);
    std::vector<int> const others{9};
    EXPECT_TRUE(queue.addDropFrameInfo(7, 5, &others));
    Camera single(0, 7, {});
    EXPECT_FALSE(enque(single));
    EXPECT_TRUE(hasLine(cap, "[operator()] Frame:7 already in DropQueue. Skip Add."));
    EXPECT_EQ(queue.dropQueueSnapshot(), (DropMap{{7, {9}}}));
}

TEST_F(QueueStateTest, DropListFromTheCallerDropsOtherFramesFirst) {
    Camera waiting(0, 3, {1}), single(4, 5, {});
    {
        MutexLock lock(queue.mQueueLock);
        queue.createSyncElement(3, waiting.input, &waiting.output);
    }
    EXPECT_TRUE(enque(single, {3}));
    auto const events = callback->events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].type, ISyncQueueCB::SYNC_DATA_DROP);
    EXPECT_EQ(events[0].frameNo, 3);
    EXPECT_EQ(events[1].type, ISyncQueueCB::SYNC_DATA_READY);
    EXPECT_EQ(events[1].frameNo, 5);
    EXPECT_EQ(queue.liveFrameCount(), 0u);
}

TEST_F(QueueStateTest, FlushListIgnoresRepeatsAndKeeps21Frames) {
    EXPECT_TRUE(queue.dropItemsForFlush(5, 0));
    EXPECT_TRUE(queue.dropItemsForFlush(5, 0));
    EXPECT_EQ(queue.flushListSnapshot(), (std::vector<int>{5}));
    for (int frame = 6; frame <= 26; ++frame) {
        EXPECT_TRUE(queue.dropItemsForFlush(frame, 0));
    }
    auto const flushed = queue.flushListSnapshot();
    ASSERT_EQ(flushed.size(), 21u);
    EXPECT_EQ(flushed.front(), 6);
    EXPECT_EQ(flushed.back(), 26);
    EXPECT_FALSE(queue.isNeedDropFrame(5));
    EXPECT_TRUE(queue.isNeedDropFrame(6));
    {
        MutexLock lock(queue.mQueueLock);
        EXPECT_FALSE(queue.clearDropQueue(6, 0));
        EXPECT_TRUE(queue.dropItem(6));
    }
    EXPECT_TRUE(queue.isNeedDropFrame(6));
    EXPECT_TRUE(callback->events().empty());
}

}  // namespace
}  // namespace queuetest
