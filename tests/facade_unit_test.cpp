// SyncHelper reached directly: construction, the updater chain, the queue callback, drop
// notifications, the sync-switch flag, face-detection control and sensor crops.

#include <NSCam/Properties.h>
#include <android/log.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "SyncHelper.h"
#include "SyncQueue.h"
#include "SyncQueue_ResultCheck_Cb.h"
#include "facade_session.h"

namespace facadetest {
namespace {

using NSCam::Utils::Properties::clearHostProperty;
using NSCam::Utils::Properties::setHostProperty;
using ryxtest::LogCapture;

constexpr char kCropProperty[] = "vendor.debug.camera.crop_replace";

// "(%4d) [func] message", the message matched exactly.
bool isFramed(std::string const& text, std::string const& func, std::string const& message) {
    int line = 0;
    std::string rest;
    return unframe(text, line, rest) && rest == "[" + func + "] " + message;
}

class HelperTest : public ::testing::Test {
  protected:
    void SetUp() override {
        clearHostProperty(kCropProperty);
        mLog = std::make_unique<LogCapture>(0x1, 5);
    }
    void TearDown() override {
        mHelper.reset();
        mLog.reset();
        clearHostProperty(kCropProperty);
    }

    void make(bool allowCropReplace = true, std::vector<int> sensors = {0, 2}) {
        mHelper = std::make_shared<SyncHelper>(0x77, allowCropReplace, infoFor(sensors));
    }

    CamFrame& frame(int sensor, int frameNo, int64_t sof, Request const& req) {
        mFrames.push_back(std::make_unique<CamFrame>(sensor, frameNo, sof, sof + kMs, req));
        return *mFrames.back();
    }

    // A completed frame of the given cameras, as the queue would hand it over.
    SyncData dataOf(std::vector<CamFrame*> const& cams) {
        SyncData data;
        data.frameNo = cams.front()->in.frameNo;
        data.requestNo = cams.front()->in.requestNo;
        for (CamFrame* c : cams) {
            data.syncTargetList.push_back(c->in.m_id);
            data.inputParams[c->in.m_id] = &c->in;
            data.outputParams[c->in.m_id] = &c->out;
        }
        return data;
    }

    std::unique_ptr<LogCapture> mLog;
    std::shared_ptr<SyncHelper> mHelper;
    std::vector<std::unique_ptr<CamFrame>> mFrames;
};

// --- construction and destruction --------------------------------------------------------------

TEST_F(HelperTest, CropReplaceNeedsThePropertyAndThePermission) {
    struct Case {
        char const* property;  // nullptr: unset
        bool allow;
        bool expected;
    };
    for (Case c : {Case{nullptr, true, true}, Case{nullptr, false, false}, Case{"1", true, true},
                   Case{"1", false, false}, Case{"0", true, false}, Case{"0", false, false},
                   Case{"7", true, true}, Case{"-1", true, false}}) {
        if (c.property != nullptr) {
            setHostProperty(kCropProperty, c.property);
        } else {
            clearHostProperty(kCropProperty);
        }
        mLog->clear();
        make(c.allow);
        std::string what =
            std::string(c.property ? c.property : "unset") + "/" + (c.allow ? "allow" : "deny");
        EXPECT_EQ(mHelper->needCropReplace(), c.expected) << what;
        auto lines = mLog->androidMatching("needCropReplace(");
        ASSERT_EQ(lines.size(), 1u) << what;
        EXPECT_EQ(lines[0].priority, ANDROID_LOG_INFO);
        EXPECT_EQ(lines[0].tag, "RyxCam/SyncHelper");
        EXPECT_TRUE(isFramed(lines[0].text, "SyncHelper",
                             std::string("needCropReplace(") + (c.expected ? "1" : "0") + ")"))
            << lines[0].text;
    }
}

TEST_F(HelperTest, EmptyCameraInfoStillBuildsTheQueueAndAllFourWriters) {
    make(true, {});
    ASSERT_NE(mHelper->queue(), nullptr);
    EXPECT_EQ(mHelper->queue()->getSyncDataUpdateType(), 15u);
    Request req{{0, 2}, 2, 1000, 1};
    CamFrame& a = frame(0, 5, 5 * kFrameNs, req);
    CamFrame& b = frame(2, 5, 5 * kFrameNs, req);
    SyncData data = dataOf({&a, &b});
    EXPECT_TRUE(mHelper->updateData(mask(15), &data));
    EXPECT_EQ(a.syncResult(), 0);  // timestamp writer
    EXPECT_EQ(b.halMaster(), 2);   // master writer
    EXPECT_TRUE(b.out.bMasterCam);
    EXPECT_EQ(a.boost(), 100);  // physical writer, defaults only
    EXPECT_FALSE(a.activeArray().has_value());
}

TEST_F(HelperTest, DestructionFreesQueuedFramesWithoutReportingThem) {
    make();
    Request req{{0, 2}, 0, 1000, 1};
    CamFrame& a = frame(0, 9, 9 * kFrameNs, req);
    {
        MutexLock lock(mHelper->queue()->mQueueLock);
        mHelper->queue()->createSyncElement(a.in.frameNo, a.in, &a.out);
    }
    ASSERT_EQ(mHelper->queue()->liveFrameCount(), 1u);
    mLog->clear();
    mHelper.reset();
    auto release = mLog->androidMatching("release", "RyxCam/SyncHelper");
    ASSERT_EQ(release.size(), 1u);
    EXPECT_EQ(release[0].priority, ANDROID_LOG_DEBUG);
    EXPECT_TRUE(isFramed(release[0].text, "~SyncHelper", "release"));
    EXPECT_FALSE(mLog->androidHas("type("));  // no report of frame 9
    EXPECT_EQ(a.halDynamic.count(), 0u);
    EXPECT_EQ(a.appDynamic.count(), 0u);
}

// --- the updater chain and the queue callback --------------------------------------------------

TEST_F(HelperTest, MasksWithoutKnownBitsRunNothing) {
    make();
    Request req{{0, 2}, 0, 1000, 1};
    CamFrame& a = frame(0, 5, 5 * kFrameNs, req);
    CamFrame& b = frame(2, 5, 0, req);  // would fail the timestamp writer if it ran
    SyncData data = dataOf({&a, &b});
    for (uint32_t bits : {0u, 16u, 0x30u}) {
        EXPECT_TRUE(mHelper->updateData(mask(bits), &data)) << bits;
        EXPECT_EQ(a.halDynamic.count() + a.appDynamic.count() + b.halDynamic.count() +
                      b.appDynamic.count(),
                  0u)
            << bits;
    }
}

TEST_F(HelperTest, AFailingWriterDoesNotStopTheOnesAfterIt) {
    make();
    Request req{{0, 2}, 0, 1000, 1};
    CamFrame& a = frame(0, 5, 5 * kFrameNs, req);
    CamFrame& b = frame(2, 5, 0, req);  // no start of frame: the timestamp writer fails
    SyncData data = dataOf({&a, &b});
    EXPECT_FALSE(mHelper->updateData(mask(3), &data));
    EXPECT_FALSE(a.syncResult().has_value());
    EXPECT_EQ(a.halMaster(), 0);  // the master writer ran all the same
    EXPECT_EQ(b.appMaster(), 0);
    EXPECT_FALSE(a.boost().has_value());  // bit 8 not selected

    EXPECT_TRUE(mHelper->updateData(PHYSICAL_META, &data));
    EXPECT_EQ(b.activeArray(), infoOf(2).activeArrayRegion);
}

TEST_F(HelperTest, CallbackPrintsTheEventAndReturnsTheWritersVerdict) {
    make();
    SyncQueue_ResultCheck_Cb cb(mHelper.get());
    Request req{{0, 2}, 0, 1000, 1};
    CamFrame& a = frame(0, 6, 6 * kFrameNs, req);
    CamFrame& b = frame(2, 6, 6 * kFrameNs, req);
    SyncData good = dataOf({&a, &b});
    EXPECT_TRUE(cb.onEvent(ISyncQueueCB::SYNC_DATA_READY, mask(15), &good));
    EXPECT_EQ(a.syncResult(), 0);

    CamFrame& c = frame(0, 7, 7 * kFrameNs, req);
    CamFrame& d = frame(2, 7, 0, req);
    SyncData bad = dataOf({&c, &d});
    EXPECT_FALSE(cb.onEvent(ISyncQueueCB::SYNC_DATA_DROP, mask(15), &bad));
    EXPECT_EQ(c.halMaster(), 0);  // dropped frames run the same writers

    auto lines = mLog->androidMatching("process type(", "RyxCam/SyncHelper");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(isFramed(lines[0].text, "onEvent", "[r1006:f6] type(0) process type(15)"))
        << lines[0].text;
    EXPECT_TRUE(isFramed(lines[1].text, "onEvent", "[r1007:f7] type(1) process type(15)"))
        << lines[1].text;
}

// --- drop notifications -----------------------------------------------------------------------

TEST_F(HelperTest, MasterDropRecordsTheOtherSensorsOfItsGroup) {
    make();
    Request req{{0, 2}, 0, 1000, 1};
    CamFrame& master = frame(0, 7, 7 * kFrameNs, req);
    ryxtest::setInts(master.halControl, RYX_FRAMESYNC_ID, {0, 2});  // the group, caller included
    EXPECT_FALSE(mHelper->notifyDrop(master.in));
    auto drops = mHelper->queue()->dropQueueSnapshot();
    ASSERT_EQ(drops.size(), 1u);
    EXPECT_EQ(drops[7], std::vector<int>({2}));
    auto lines = mLog->androidMatching("cameraDropList", "RyxCam/SyncHelper");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(
        isFramed(lines[0].text, "notifyDrop", "Frame:7 Update cameraDropList[2,] to DropQueue "))
        << lines[0].text;

    // A second drop of the same frame is not recorded again, and says nothing here.
    mLog->clear();
    EXPECT_FALSE(mHelper->notifyDrop(master.in));
    EXPECT_TRUE(mLog->androidMatching("cameraDropList", "RyxCam/SyncHelper").empty());
}

TEST_F(HelperTest, DropWithoutAKnownMasterCountsAsASlavesArrival) {
    make();
    Request req{{0, 2}, std::nullopt, 1000, 1};
    CamFrame& f = frame(0, 8, 8 * kFrameNs, req);
    EXPECT_FALSE(mHelper->notifyDrop(f.in));
    auto warn = mLog->androidMatching("RYX_DUALZOOM_REAL_MASTER not found", "RyxCam/SyncHelper");
    ASSERT_EQ(warn.size(), 1u);
    EXPECT_EQ(warn[0].priority, ANDROID_LOG_WARN);
    EXPECT_TRUE(mLog->androidHas("[notifyDrop] Frame:8 Drop slave cam(0), isLastItem(0)!"));
    EXPECT_TRUE(mHelper->queue()->dropQueueSnapshot().empty());
    auto arrived = mHelper->queue()->arrivedSnapshot();
    ASSERT_EQ(arrived.size(), 1u);
    EXPECT_EQ(arrived[0].first, 8);
    EXPECT_EQ(arrived[0].second, std::set<int>({0}));
}

TEST_F(HelperTest, DropOfAFrameWithoutSyncIdsChangesNothing) {
    make();
    Request req{{0}, 0, 1000, 1};  // no other sensor: no RYX_FRAMESYNC_ID
    CamFrame& f = frame(0, 8, 8 * kFrameNs, req);
    EXPECT_FALSE(mHelper->notifyDrop(f.in));
    EXPECT_TRUE(
        mLog->androidHas("[notifyDrop] There is no RYX_FRAMESYNC_ID when P1 call dropframe"));
    EXPECT_TRUE(mHelper->queue()->dropQueueSnapshot().empty());
    EXPECT_TRUE(mHelper->queue()->arrivedSnapshot().empty());
}

TEST_F(HelperTest, FlushAndSensorDropPassTheQueuesAnswerOn) {
    make();
    EXPECT_TRUE(mHelper->notifyDrop(12, 99));
    EXPECT_TRUE(mHelper->notifyDrop(12, 0));
    EXPECT_EQ(mHelper->queue()->flushListSnapshot(), std::vector<int>({12}));
    EXPECT_FALSE(mHelper->notifyDropBySensor(2));
}

// --- sync switch flag -----------------------------------------------------------------------

class SwitchFlagTest : public HelperTest {
  protected:
    void SetUp() override {
        HelperTest::SetUp();
        make();
    }
    int32_t flag(int sensor, int frameNo, bool syncIds = true, std::optional<int32_t> need = 1) {
        Request req{syncIds ? std::vector<int>{0, 1, 2} : std::vector<int>{sensor}};
        CamFrame& f = frame(sensor, frameNo, 0, req);
        if (need) {
            ryxtest::setInts(f.halControl, RYX_NEED_SYNC, {*need});
        }
        return mHelper->getSyncSwitchFlag(f.in);
    }
};

TEST_F(SwitchFlagTest, ControlledFramesNeverReachTheTable) {
    EXPECT_EQ(flag(0, 0), 2048);
    EXPECT_EQ(flag(0, 5), 2048);
    EXPECT_EQ(mHelper->syncFlagCount(), 0u);
    EXPECT_FALSE(mLog->androidHas("NO_CTRL"));
}

TEST_F(SwitchFlagTest, ARunStartsWithOneAndContinuesWith2048) {
    EXPECT_EQ(flag(0, -3), 1);
    EXPECT_EQ(flag(0, -2), 2048);
    EXPECT_EQ(flag(0, -1), 2048);
    EXPECT_TRUE(mLog->androidHas("[getSyncSwitchFlag] sensorId(0) frameNo(-3) NO_CTRL"));
    EXPECT_TRUE(
        mLog->androidHas("[getSyncSwitchFlag] sensorId(0) frameNo(-3) bNeedSync(1) res(1)"));
    EXPECT_TRUE(
        mLog->androidHas("[getSyncSwitchFlag] sensorId(0) frameNo(-2) bNeedSync(1) res(2048)"));
}

TEST_F(SwitchFlagTest, AGapStartsANewRunAndSensorsKeepTheirOwnRuns) {
    EXPECT_EQ(flag(1, -5), 1);
    EXPECT_EQ(flag(1, -3), 1);
    EXPECT_EQ(flag(2, -2), 1);  // sensor 2 has no run yet
    EXPECT_EQ(flag(1, -2), 2048);
    EXPECT_EQ(mHelper->syncFlagCount(), 2u);
}

TEST_F(SwitchFlagTest, NoNeedSyncOrNoSyncIdsLeaveTheTableAlone) {
    EXPECT_EQ(flag(0, -6), 1);
    EXPECT_EQ(flag(0, -5, true, 0), 2048);
    EXPECT_EQ(flag(0, -4, true, std::nullopt), 2048);
    EXPECT_EQ(flag(0, -3, false), 2048);
    EXPECT_TRUE(mLog->androidHas("sensorId(0) frameNo(-3) NO_CTRL"));
    EXPECT_EQ(flag(0, -2), 1);  // -2 does not follow the stored -6
    EXPECT_EQ(flag(0, -1), 2048);
    EXPECT_EQ(mHelper->syncFlagCount(), 1u);
}

// --- face-detection control ---------------------------------------------------------------------

TEST_F(HelperTest, FaceDetectionControlIsWantedUnlessTheTagSaysNo) {
    make();
    EXPECT_TRUE(mHelper->isNeedFdControl(nullptr));
    NSCam::IMetadata meta;
    EXPECT_TRUE(mHelper->isNeedFdControl(&meta));
    ryxtest::setInts(meta, RYX_FRAMESYNC_FD_CONTROL, {});
    EXPECT_TRUE(mHelper->isNeedFdControl(&meta));
    for (int32_t v : {0, -1}) {
        ryxtest::setInts(meta, RYX_FRAMESYNC_FD_CONTROL, {v});
        EXPECT_FALSE(mHelper->isNeedFdControl(&meta)) << v;
    }
    for (int32_t v : {1, 5}) {
        ryxtest::setInts(meta, RYX_FRAMESYNC_FD_CONTROL, {v, 0});
        EXPECT_TRUE(mHelper->isNeedFdControl(&meta)) << v;
    }
}

// --- sensor crops -------------------------------------------------------------------------------

class CropTest : public HelperTest, public ::testing::WithParamInterface<bool> {
  protected:
    void SetUp() override {
        HelperTest::SetUp();
        make(GetParam());
        ASSERT_EQ(mHelper->needCropReplace(), GetParam());
    }
    // Sensor `sensor` of frame `frameNo` asks for its crop; returns the override written.
    std::optional<MRect> ask(int sensor, int frameNo, std::vector<int> group) {
        Request req;
        CamFrame& f = frame(sensor, frameNo, 0, req);
        if (!group.empty()) {
            IMetadata::IEntry ids(RYX_FRAMESYNC_ID);
            for (int id : group) {
                ids.push_back(static_cast<int32_t>(id));
            }
            f.halControl.update(RYX_FRAMESYNC_ID, ids);
        }
        EXPECT_TRUE(mHelper->getSensorCropRegion(f.in));
        return f.cropOverride();
    }
    // What the pipeline sees: the rectangle when replacement is on, nothing otherwise.
    std::optional<MRect> seen(MRect r) const {
        return GetParam() ? std::optional<MRect>(r) : std::nullopt;
    }

    MRect const a0{0, 0, 100, 75}, a1{1, 1, 200, 150}, a2{2, 2, 300, 225};
    MRect const b0{10, 10, 50, 37}, b1{11, 11, 60, 45}, b2{12, 12, 70, 52};
};

TEST_P(CropTest, NewSetBetweenTwoSensorsOfAFrameKeepsTheOldSet) {
    mHelper->setSensorCropRegion(1, {{0, a0}, {1, a1}});
    EXPECT_EQ(ask(0, 7, {0, 1}), seen(a0));
    EXPECT_TRUE(mHelper->hasCropSnapshot(7));
    EXPECT_EQ(mHelper->cropUsersLeft(7), 2);
    mHelper->setSensorCropRegion(2, {{0, b0}, {1, b1}});
    EXPECT_EQ(ask(1, 7, {0, 1}), seen(a1));
    EXPECT_FALSE(mHelper->hasCropSnapshot(7));
    EXPECT_EQ(mHelper->cropUsersLeft(7), 1);  // kept: only snapshot consumers count down
    EXPECT_EQ(ask(0, 8, {0, 1}), seen(b0));
    EXPECT_EQ(mLog->androidHas("[7] souReq: 2, crop override: (1, 1, 200x150)"), GetParam());
    EXPECT_EQ(mLog->androidMatching("crop override").size(), GetParam() ? 3u : 0u);
}

TEST_P(CropTest, AThirdSensorOfAFrameStartsOverFromTheLatestSet) {
    mHelper->setSensorCropRegion(1, {{0, a0}, {1, a1}, {2, a2}});
    EXPECT_EQ(ask(0, 9, {1, 2}), seen(a0));
    EXPECT_EQ(ask(1, 9, {0, 2}), seen(a1));
    mHelper->setSensorCropRegion(2, {{0, b0}, {1, b1}, {2, b2}});
    EXPECT_EQ(ask(2, 9, {0, 1}), seen(b2));
    EXPECT_TRUE(mHelper->hasCropSnapshot(9));  // a fresh snapshot of the newer set
    EXPECT_EQ(mHelper->cropUsersLeft(9), 2);
}

TEST_P(CropTest, SensorMissingFromTheSetsGetsNothingAndLeavesTheSnapshot) {
    mHelper->setSensorCropRegion(1, {{0, a0}});
    EXPECT_EQ(ask(2, 10, {0, 2}), std::nullopt);
    EXPECT_TRUE(mHelper->hasCropSnapshot(10));
    EXPECT_EQ(mHelper->cropUsersLeft(10), 2);
    EXPECT_EQ(ask(2, 10, {0, 2}), std::nullopt);  // absent from the snapshot as well
    EXPECT_TRUE(mHelper->hasCropSnapshot(10));
    EXPECT_EQ(mHelper->cropUsersLeft(10), 2);
    EXPECT_EQ(ask(0, 10, {0, 2}), seen(a0));
    EXPECT_FALSE(mHelper->hasCropSnapshot(10));
    EXPECT_EQ(mHelper->cropUsersLeft(10), 1);
}

TEST_P(CropTest, BeforeAnySetFramesRecordEmptySnapshotsThatStay) {
    EXPECT_EQ(ask(0, 11, {0, 1}), std::nullopt);
    EXPECT_TRUE(mHelper->hasCropSnapshot(11));
    EXPECT_EQ(mHelper->cropUsersLeft(11), 2);
    mHelper->setSensorCropRegion(1, {{1, a1}});
    EXPECT_EQ(ask(1, 11, {0, 1}), std::nullopt);  // the frame's empty snapshot rules
    EXPECT_TRUE(mHelper->hasCropSnapshot(11));
    EXPECT_EQ(mHelper->cropUsersLeft(11), 2);
}

TEST_P(CropTest, FramesOutsideASyncGroupGetTheLatestSetWithoutSnapshot) {
    mHelper->setSensorCropRegion(4, {{0, a0}});
    EXPECT_EQ(ask(0, 12, {}), seen(a0));
    EXPECT_EQ(ask(0, 12, {}), seen(a0));
    EXPECT_EQ(mHelper->cropSnapshotCount(), 0u);
    EXPECT_EQ(mHelper->cropUsersLeftCount(), 0u);
}

TEST_P(CropTest, PairsListingEachOtherLeaveNoTablesButALoneCallerLeavesItsSnapshot) {
    mHelper->setSensorCropRegion(4, {{0, a0}, {2, a2}});
    EXPECT_EQ(ask(0, 13, {2}), seen(a0));
    EXPECT_TRUE(mHelper->hasCropSnapshot(13));
    EXPECT_EQ(ask(2, 13, {0}), seen(a2));  // consumes the snapshot: count 1 -> 0, erased
    EXPECT_FALSE(mHelper->hasCropSnapshot(13));
    EXPECT_EQ(mHelper->cropUsersLeft(13), -1);

    EXPECT_EQ(ask(0, 15, {2}), seen(a0));  // nobody else asks for frame 15
    EXPECT_EQ(mHelper->cropSnapshotCount(), 1u);
    EXPECT_EQ(mHelper->cropUsersLeft(15), 1);
}

TEST_P(CropTest, OverrideReplacesAnEarlierOne) {
    mHelper->setSensorCropRegion(4, {{0, a0}});
    Request req;
    CamFrame& f = frame(0, 14, 0, req);
    ryxtest::setOne<MRect>(f.halControl, RYX_SENSOR_CROP_OVERRIDE, MRect(9, 9, 9, 9));
    mHelper->getSensorCropRegion(f.in);
    EXPECT_EQ(f.cropOverride(), GetParam() ? a0 : MRect(9, 9, 9, 9));
}

INSTANTIATE_TEST_SUITE_P(Replace, CropTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "On" : "Off"; });

}  // namespace
}  // namespace facadetest
