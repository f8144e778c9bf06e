// SyncHelper reached directly: construction, the updater chain, the queue callback, drop
// notifications, the sync-switch flag, face-detection control and sensor crops.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "SyncHelper.h"
#include "SyncHelperInspector.h"
#include "SyncQueue.h"
#include "SyncQueue_ResultCheck_Cb.h"
#include "facade_session.h"

namespace facadetest {
namespace {

using NSCam::Utils::Properties::setHostProperty;

class HelperTest : public FacadeFixture {
  protected:
    void make(bool allowCropReplace = true, std::vector<int> sensors = {0, 2}) {
        mHelper = std::make_shared<SyncHelper>(0x77, allowCropReplace, infoFor(sensors));
    }

    // Frame `frameNo` of sensors 0 and 2, master 0, as the queue hands it over once complete.
    // Sensor 2 has no start of frame when `bad`, which fails the timestamp writer.
    SyncData pair(int frameNo, bool bad, CamFrame*& a, CamFrame*& b) {
        Request req{{0, 2}, 0, 1000, 1};
        a = &frame(0, frameNo, frameNo * kFrameNs, req);
        b = &frame(2, frameNo, bad ? 0 : frameNo * kFrameNs, req);
        SyncData data;
        data.frameNo = frameNo;
        data.requestNo = a->in.requestNo;
        for (CamFrame* c : {a, b}) {
            data.syncTargetList.push_back(c->in.m_id);
            data.inputParams[c->in.m_id] = &c->in;
            data.outputParams[c->in.m_id] = &c->out;
        }
        return data;
    }

    std::shared_ptr<SyncHelper> mHelper;
};

TEST_F(HelperTest, CropReplaceNeedsThePropertyAndThePermission) {
    struct Case {
        char const* property;  // nullptr: unset
        bool allow, expected;
    };
    for (Case c : {Case{nullptr, true, true}, Case{nullptr, false, false}, Case{"1", false, false},
                   Case{"0", true, false}, Case{"7", true, true}, Case{"-1", true, false}}) {
        SCOPED_TRACE(std::string(c.property ? c.property : "unset") + (c.allow ? "/on" : "/off"));
        if (c.property != nullptr) {
            setHostProperty(kCropProperty, c.property);
        }
        mLog->clear();
        make(c.allow);
        EXPECT_EQ(SyncHelperInspector::needCropReplace(*mHelper), c.expected);
        expectLine(*mLog, ANDROID_LOG_INFO, "SyncHelper",
                   std::string("needCropReplace(") + (c.expected ? "1" : "0") + ")");
    }
}

TEST_F(HelperTest, DestructionFreesQueuedFramesWithoutReportingThem) {
    make();
    CamFrame& a = frame(0, 9, 9 * kFrameNs, Request{{0, 2}, 0, 1000, 1});
    {
        MutexLock lock(SyncHelperInspector::queueLock(*SyncHelperInspector::queue(*mHelper)));
        SyncHelperInspector::queue(*mHelper)->createSyncElement(a.in.frameNo, a.in, &a.out);
    }
    mLog->clear();
    mHelper.reset();
    expectLine(*mLog, ANDROID_LOG_DEBUG, "~SyncHelper", "release");
    EXPECT_FALSE(mLog->androidHas("type("));  // no report of frame 9
    EXPECT_EQ(a.written(), 0u);
}

// Every selected writer runs, in order, whatever the earlier ones said; unknown bits select none.
TEST_F(HelperTest, UpdateDataRunsEverySelectedWriter) {
    struct Case {
        uint32_t mask;
        bool verdict, master, physical;
    };
    make();
    int frameNo = 1;
    for (Case c :
         {Case{0, true, false, false}, Case{0x30, true, false, false}, Case{3, false, true, false},
          Case{8, true, false, true}, Case{15, false, true, true}}) {
        SCOPED_TRACE(c.mask);
        CamFrame *a, *b;
        SyncData data = pair(frameNo++, true, a, b);
        EXPECT_EQ(mHelper->updateData(static_cast<SyncDataUpdaterType>(c.mask), &data), c.verdict);
        EXPECT_EQ(a->syncResult(), std::nullopt);  // the timestamp writer fails, writing nothing
        EXPECT_EQ(a->halMaster(), c.master ? std::optional<int32_t>(0) : std::nullopt);
        EXPECT_EQ(b->appMaster(), c.master ? std::optional<int32_t>(0) : std::nullopt);
        EXPECT_EQ(b->activeArray(),
                  c.physical ? std::optional<MRect>(infoOf(2).activeArrayRegion) : std::nullopt);
    }
}

TEST_F(HelperTest, CallbackPrintsTheEventAndRunsAllFourWritersEvenWithoutCameraInfo) {
    make(true, {});
    SyncQueue_ResultCheck_Cb cb(mHelper.get());
    CamFrame *a, *b, *c, *d;
    SyncData good = pair(6, false, a, b);
    EXPECT_TRUE(cb.onEvent(ISyncQueueCB::SYNC_DATA_READY,
                           SyncHelperInspector::queue(*mHelper)->getSyncDataUpdateType(), &good));
    EXPECT_EQ(a->syncResult(), 0);
    EXPECT_TRUE(a->out.bMasterCam);
    EXPECT_FALSE(b->out.bMasterCam);
    EXPECT_EQ(tagOf<int32_t>(b->appDynamic, CONTROL_POST_RAW_SENSITIVITY_BOOST), 100);
    EXPECT_EQ(b->activeArray(), std::nullopt);  // no description of sensor 2

    SyncData bad = pair(7, true, c, d);
    EXPECT_FALSE(
        cb.onEvent(ISyncQueueCB::SYNC_DATA_DROP, static_cast<SyncDataUpdaterType>(15), &bad));
    EXPECT_EQ(d->halMaster(), 0);  // dropped frames run the same writers
    expectLine(*mLog, ANDROID_LOG_DEBUG, "onEvent", "[r1006:f6] type(0) process type(15)");
    expectLine(*mLog, ANDROID_LOG_DEBUG, "onEvent", "[r1007:f7] type(1) process type(15)");
}

TEST_F(HelperTest, DropNotificationsReachTheQueue) {
    make();
    SyncQueue& queue = *SyncHelperInspector::queue(*mHelper);
    // The master drops: the other sensors of its group are recorded, once.
    CamFrame& master = frame(0, 7, 7 * kFrameNs, Request{{0, 2}, 0, 1000, 1});
    ryxtest::setInts(master.halControl, RYX_FRAMESYNC_ID, {0, 2});  // the group, caller included
    EXPECT_FALSE(mHelper->notifyDrop(master.in));
    EXPECT_FALSE(mHelper->notifyDrop(master.in));
    EXPECT_EQ(queue.dropQueueSnapshot(), (std::map<int, std::vector<int>>{{7, {2}}}));
    expectLine(*mLog, ANDROID_LOG_DEBUG, "notifyDrop",
               "Frame:7 Update cameraDropList[2,] to DropQueue ");

    // Without a known master the drop counts as a slave's arrival.
    CamFrame& slave = frame(0, 8, 8 * kFrameNs, Request{{0, 2}, std::nullopt, 1000, 1});
    EXPECT_FALSE(mHelper->notifyDrop(slave.in));
    expectLine(*mLog, ANDROID_LOG_WARN, "notifyDrop", "RYX_DUALZOOM_REAL_MASTER not found");
    expectLine(*mLog, ANDROID_LOG_DEBUG, "notifyDrop", "Frame:8 Drop slave cam(0), isLastItem(0)!");
    auto arrived = queue.arrivedSnapshot();
    ASSERT_EQ(arrived.size(), 1u);
    EXPECT_EQ(arrived[0], (std::pair<int, std::set<int>>{8, {0}}));

    // Without sync ids nothing changes.
    CamFrame& alone = frame(0, 9, 9 * kFrameNs, Request{{0}, 0, 1000, 1});
    EXPECT_FALSE(mHelper->notifyDrop(alone.in));
    expectLine(*mLog, ANDROID_LOG_DEBUG, "notifyDrop",
               "There is no RYX_FRAMESYNC_ID when P1 call dropframe");
    EXPECT_EQ(queue.dropQueueSnapshot().size(), 1u);
    EXPECT_EQ(queue.arrivedSnapshot().size(), 1u);

    EXPECT_TRUE(mHelper->notifyDrop(12, 99));
    EXPECT_TRUE(mHelper->notifyDrop(12, 0));
    EXPECT_EQ(queue.flushListSnapshot(), std::vector<int>({12}));
    EXPECT_FALSE(mHelper->notifyDropBySensor(2));
}

// Only no-control frames (negative numbers) with sync ids and RYX_NEED_SYNC = 1 are classified:
// 1 starts a run of consecutive frames per sensor, 2048 is everything else.
TEST_F(HelperTest, SyncSwitchFlagSequences) {
    struct Step {
        int sensor, frameNo;
        bool syncIds;
        std::optional<int32_t> needSync;
        int32_t flag;
    };
    make();
    for (Step s : {Step{0, 0, true, 1, 2048}, Step{0, 5, true, 1, 2048}, Step{0, -6, true, 1, 1},
                   Step{0, -5, true, 0, 2048}, Step{0, -4, true, std::nullopt, 2048},
                   Step{0, -3, false, 1, 2048}, Step{0, -2, true, 1, 1}, Step{0, -1, true, 1, 2048},
                   Step{1, -5, true, 1, 1}, Step{1, -3, true, 1, 1}, Step{2, -2, true, 1, 1},
                   Step{1, -2, true, 1, 2048}}) {
        CamFrame& f = frame(s.sensor, s.frameNo, 0,
                            Request{s.syncIds ? std::vector<int>{0, 1, 2} : std::vector<int>{}});
        if (s.needSync) {
            ryxtest::setInts(f.halControl, RYX_NEED_SYNC, {*s.needSync});
        }
        EXPECT_EQ(mHelper->getSyncSwitchFlag(f.in), s.flag)
            << "sensor " << s.sensor << " frame " << s.frameNo;
    }
    EXPECT_EQ(SyncHelperInspector::syncFlagCount(*mHelper), 3u);
    EXPECT_FALSE(mLog->androidHas("frameNo(0)"));
    expectLine(*mLog, ANDROID_LOG_DEBUG, "getSyncSwitchFlag", "sensorId(0) frameNo(-3) NO_CTRL");
    expectLine(*mLog, ANDROID_LOG_DEBUG, "getSyncSwitchFlag",
               "sensorId(0) frameNo(-2) bNeedSync(1) res(1)");
    expectLine(*mLog, ANDROID_LOG_DEBUG, "getSyncSwitchFlag",
               "sensorId(0) frameNo(-1) bNeedSync(1) res(2048)");
}

TEST_F(HelperTest, FaceDetectionControlIsWantedUnlessTheTagSaysNo) {
    make();
    EXPECT_TRUE(mHelper->isNeedFdControl(nullptr));
    IMetadata meta;
    EXPECT_TRUE(mHelper->isNeedFdControl(&meta));
    ryxtest::setInts(meta, RYX_FRAMESYNC_FD_CONTROL, {});
    EXPECT_TRUE(mHelper->isNeedFdControl(&meta));
    for (auto [item, wanted] : {std::pair(0, false), {-1, false}, {1, true}, {5, true}}) {
        ryxtest::setInts(meta, RYX_FRAMESYNC_FD_CONTROL, {item, 0});
        EXPECT_EQ(mHelper->isNeedFdControl(&meta), wanted) << item;
    }
}

// --- sensor crops, with crop replacement on and off ---------------------------------------------

class CropTest : public HelperTest, public ::testing::WithParamInterface<bool> {
  protected:
    void SetUp() override {
        HelperTest::SetUp();
        make(GetParam());
    }
    // Sensor `sensor` of frame `frameNo` (sync ids `ids`) asks for its crop; returns the
    // override written into its control metadata.
    std::optional<MRect> ask(int sensor, int frameNo, std::vector<int32_t> const& ids) {
        CamFrame& f = frame(sensor, frameNo, 0, Request{});
        f.setIds(ids);
        EXPECT_TRUE(mHelper->getSensorCropRegion(f.in));
        return f.cropOverride();
    }
    // What the pipeline sees: the rectangle when replacement is on, nothing otherwise.
    std::optional<MRect> seen(MRect r) const {
        return GetParam() ? std::optional<MRect>(r) : std::nullopt;
    }
    // The frame's snapshot and users-left count, -1 for none.
    std::pair<bool, int32_t> tables(int frameNo) {
        return {SyncHelperInspector::hasCropSnapshot(*mHelper, frameNo),
                SyncHelperInspector::cropUsersLeft(*mHelper, frameNo)};
    }

    MRect const a0{0, 0, 100, 75}, a1{1, 1, 200, 150}, a2{2, 2, 300, 225};
    MRect const b0{10, 10, 50, 37}, b1{11, 11, 60, 45}, b2{12, 12, 70, 52};
};

TEST_P(CropTest, FrameInFlightKeepsTheSetItsFirstSensorSaw) {
    mHelper->setSensorCropRegion(1, {{0, a0}, {1, a1}, {2, a2}});
    EXPECT_EQ(ask(0, 7, {0, 1}), seen(a0));
    EXPECT_EQ(tables(7), std::make_pair(true, 2));
    mHelper->setSensorCropRegion(2, {{0, b0}, {1, b1}, {2, b2}});
    EXPECT_EQ(ask(1, 7, {0, 1}), seen(a1));
    EXPECT_EQ(tables(7), std::make_pair(false, 1));  // only snapshot consumers count down
    EXPECT_EQ(ask(2, 7, {0, 1}), seen(b2));          // a third sensor starts over, afresh
    EXPECT_EQ(tables(7), std::make_pair(true, 2));
    EXPECT_EQ(ask(0, 8, {0, 1}), seen(b0));
    EXPECT_EQ(mLog->androidHas("[7] souReq: 2, crop override: (1, 1, 200x150)"), GetParam());
    EXPECT_EQ(mLog->androidMatching("crop override").size(), GetParam() ? 4u : 0u);
}

TEST_P(CropTest, PairsListingEachOtherLeaveNoTablesButALoneCallerLeavesItsSnapshot) {
    mHelper->setSensorCropRegion(4, {{0, a0}, {2, a2}});
    EXPECT_EQ(ask(0, 13, {2}), seen(a0));
    EXPECT_EQ(tables(13), std::make_pair(true, 1));
    EXPECT_EQ(ask(2, 13, {0}), seen(a2));  // count 1 -> 0: erased
    EXPECT_EQ(tables(13), std::make_pair(false, -1));
    EXPECT_EQ(ask(0, 15, {2}), seen(a0));  // nobody else asks for frame 15
    EXPECT_EQ(SyncHelperInspector::cropSnapshotCount(*mHelper), 1u);
    EXPECT_EQ(SyncHelperInspector::cropUsersLeftCount(*mHelper), 1u);
    // Outside a sync group: the latest set, no snapshot.
    EXPECT_EQ(ask(0, 16, {}), seen(a0));
    EXPECT_EQ(ask(0, 16, {}), seen(a0));
    EXPECT_EQ(SyncHelperInspector::cropSnapshotCount(*mHelper), 1u);
    // An override already present is replaced.
    CamFrame& f = frame(0, 17, 0, Request{});
    ryxtest::setOne<MRect>(f.halControl, RYX_SENSOR_CROP_OVERRIDE, MRect(9, 9, 9, 9));
    mHelper->getSensorCropRegion(f.in);
    EXPECT_EQ(f.cropOverride(), GetParam() ? a0 : MRect(9, 9, 9, 9));
}

TEST_P(CropTest, SensorMissingFromTheSetGetsNothingAndLeavesTheSnapshot) {
    EXPECT_EQ(ask(0, 11, {0, 1}), std::nullopt);  // before any set: an empty snapshot
    mHelper->setSensorCropRegion(1, {{1, a1}, {0, a0}});
    EXPECT_EQ(ask(1, 11, {0, 1}), std::nullopt);  // the frame's empty snapshot rules
    EXPECT_EQ(tables(11), std::make_pair(true, 2));

    EXPECT_EQ(ask(2, 10, {0, 2}), std::nullopt);
    EXPECT_EQ(ask(2, 10, {0, 2}), std::nullopt);  // absent from the snapshot as well
    EXPECT_EQ(tables(10), std::make_pair(true, 2));
    EXPECT_EQ(ask(0, 10, {0, 2}), seen(a0));
    EXPECT_EQ(tables(10), std::make_pair(false, 1));
}

INSTANTIATE_TEST_SUITE_P(Replace, CropTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "On" : "Off"; });

}  // namespace
}  // namespace facadetest
