// Broken call flows end the process with the queue's fatal texts.

#include <gtest/gtest.h>

#include <string>

#include "queue_support.h"

namespace queuetest {
namespace {

using NSCam::camsys::camcoordinator::MutexLock;

// "<message> (<function>){#<line>:<source>}" as a death-test pattern.
std::string fatal(std::string const& escapedMessage, std::string const& function) {
    return escapedMessage + " \\(" + function +
           "\\)\\{#[0-9]+:hw/camsys/cam_coordinator/SyncHelper/SyncQueue\\}";
}

class QueueDeathTest : public ::testing::Test {
  protected:
    QueueDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    bool enque(Camera& c) {
        std::vector<int> dropList;
        return queue.enque("syncResultCheck", c.input.frameNo, c.input, &c.output, &dropList);
    }
    void create(Camera& c) {
        MutexLock lock(queue.mQueueLock);
        queue.createSyncElement(c.input.frameNo, c.input, &c.output);
    }

    SyncQueue queue{15};
};

TEST_F(QueueDeathTest, EleventhLiveFrame) {
    std::vector<std::unique_ptr<Camera>> cams;
    for (int frame = 1; frame <= 11; ++frame) {
        cams.push_back(std::make_unique<Camera>(0, frame, std::initializer_list<int>{1}));
    }
    for (int i = 0; i < 10; ++i) {
        create(*cams[i]);
    }
    EXPECT_EQ(queue.liveFrameCount(), 10u);
    EXPECT_DEATH(create(*cams[10]), fatal("please check flow", "createSyncElement"));
}

TEST_F(QueueDeathTest, CameraEnteringItsFrameTwice) {
    Camera a(0, 7, {2});
    create(a);
    EXPECT_DEATH(enque(a), fatal("\\(input\\) Duplicate insert! frameno\\(7\\) input cam\\(0\\)",
                                 "updateSyncElement"));
}

TEST_F(QueueDeathTest, OutputRecordedWithoutItsInput) {
    Camera a(0, 7, {2});
    MutexLock lock(queue.mQueueLock);
    auto const element = queue.createSyncElement(7, a.input, &a.output);
    element->mSyncData.inputParams.clear();
    EXPECT_DEATH(queue.updateSyncElement(element, a.input, &a.output),
                 fatal("\\(output\\) Duplicate insert! frameno\\(7\\) input cam\\(0\\)",
                       "updateSyncElement"));
}

TEST_F(QueueDeathTest, CameraOutsideTheFramesTargets) {
    Camera a(0, 7, {1}), stranger(2, 7, {0});
    create(a);
    EXPECT_DEATH(enque(stranger), fatal("camid is NOT exist in sync target", "enque"));
}

TEST_F(QueueDeathTest, ArrivalRecordFullWhileItsOldestFrameIsLive) {
    Camera a(0, 1, {1});
    create(a);
    MutexLock lock(queue.mQueueLock);
    for (int frame = 1; frame <= 20; ++frame) {
        queue.updateArrivedSyncMap(frame, 0);
    }
    EXPECT_DEATH(queue.updateArrivedSyncMap(21, 0),
                 fatal("SyncElement should be NULL", "operator\\(\\)"));
}

}  // namespace
}  // namespace queuetest
