// Broken call flows end the process with the queue's fatal texts.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "queue_support.h"

namespace queuetest {
namespace {

// "<message> (<function>){#<line>:<source>}" as a death-test pattern.
std::string fatal(std::string const& escapedMessage, std::string const& function) {
    return escapedMessage + " \\(" + function +
           "\\)\\{#[0-9]+:hw/camsys/cam_coordinator/SyncHelper/SyncQueue\\}";
}

class QueueDeathTest : public ::testing::Test {
  protected:
    QueueDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    std::shared_ptr<SyncElement> create(Camera& c) {
        MutexLock lock(SyncHelperInspector::queueLock(queue));
        return queue.createSyncElement(c.input.frameNo, c.input, &c.output);
    }
    void enque(Camera& c) { queue.enque("syncResultCheck", 7, c.input, &c.output, nullptr); }

    SyncQueue queue{15};
    Camera a{0, 7, {2}};
};

TEST_F(QueueDeathTest, EleventhLiveFrame) {
    for (a.input.frameNo = 1; a.input.frameNo <= 10; ++a.input.frameNo) {
        create(a);
    }
    EXPECT_EQ(queue.liveFrameCount(), 10u);
    EXPECT_DEATH(create(a), fatal("please check flow", "createSyncElement"));
}

TEST_F(QueueDeathTest, CameraEnteringItsFrameTwice) {
    create(a);
    EXPECT_DEATH(enque(a), fatal("\\(input\\) Duplicate insert! frameno\\(7\\) input cam\\(0\\)",
                                 "updateSyncElement"));
}

TEST_F(QueueDeathTest, OutputRecordedWithoutItsInput) {
    auto const element = create(a);
    element->mSyncData.inputParams.clear();
    MutexLock lock(SyncHelperInspector::queueLock(queue));
    EXPECT_DEATH(queue.updateSyncElement(element, a.input, &a.output),
                 fatal("\\(output\\) Duplicate insert! frameno\\(7\\) input cam\\(0\\)",
                       "updateSyncElement"));
}

TEST_F(QueueDeathTest, CameraOutsideTheFramesTargets) {
    Camera stranger(1, 7, {0});
    create(a);
    EXPECT_DEATH(enque(stranger), fatal("camid is NOT exist in sync target", "enque"));
}

TEST_F(QueueDeathTest, ArrivalRecordFullWhileItsOldestFrameIsLive) {
    a.input.frameNo = 1;
    create(a);
    MutexLock lock(SyncHelperInspector::queueLock(queue));
    for (int frame = 1; frame <= 20; ++frame) {
        queue.updateArrivedSyncMap(frame, 0);
    }
    EXPECT_DEATH(queue.updateArrivedSyncMap(21, 0),
                 fatal("SyncElement should be NULL", "operator\\(\\)"));
}

}  // namespace
}  // namespace queuetest
