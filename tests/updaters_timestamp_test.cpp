// The timestamp verdict: millisecond truncation and the inclusive tolerance, the two failure
// modes, the paths that write nothing, and the exact log lines.

#include "TimestampSyncDataUpdater.h"

#include <gtest/gtest.h>

#include <string>

#include "LogCapture.h"
#include "SyncMetaTags.h"
#include "updaters_frame.h"

namespace {

using namespace NSCam::camsys::camcoordinator;
using NSCam::IMetadata;
using updtest::Frame;
using updtest::lines;
using updtest::read;
using updtest::withMsg;

constexpr const char* kTag = "RyxCam/TimestampSyncDataUpdater";

class TimestampUpdaterTest : public ::testing::Test {
  protected:
    // Two cameras, 0 first; the tolerance and mode go into camera 0's HalControl.
    void twoCameras(Frame& f, int64_t sof0, int64_t sof1, int64_t toleranceUs, int32_t mode) {
        f.add(0, sof0);
        f.add(1, sof1);
        IMetadata::setEntry<long>(&f.cam(0).halControl, RYX_FRAMESYNC_TOLERANCE, toleranceUs);
        IMetadata::setEntry<int>(&f.cam(0).halControl, RYX_FRAMESYNC_MODE, mode);
    }
    static std::optional<long> result(Frame& f, int32_t id) {
        return read<long>(f.cam(id).halDynamic, RYX_FRAMESYNC_RESULT);
    }

    ryxtest::LogCapture mCap;
    std::unordered_map<unsigned int, NSCam::CameraInfo> mInfo;
};

struct BoundaryCase {
    const char* name;
    int64_t sof0;
    int64_t sof1;
    int64_t toleranceUs;
    int32_t mode;
    long expected;
};

class TimestampBoundaryTest : public TimestampUpdaterTest,
                              public ::testing::WithParamInterface<BoundaryCase> {};

TEST_P(TimestampBoundaryTest, WritesTheSameVerdictIntoEveryCamera) {
    BoundaryCase const& c = GetParam();
    Frame f;
    twoCameras(f, c.sof0, c.sof1, c.toleranceUs, c.mode);
    TimestampSyncDataUpdater updater(1, mInfo);

    EXPECT_TRUE(updater.update(f.get()));
    EXPECT_EQ(result(f, 0), c.expected);
    EXPECT_EQ(result(f, 1), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Milliseconds, TimestampBoundaryTest,
    ::testing::Values(
        // 0.9 ms apart inside one millisecond: 0 ms apart.
        BoundaryCase{"NearlyOneMsWithinAMs", 1000000000, 1000999999, 0, 0, 0},
        // 0.9 ms apart across a millisecond boundary: 1 ms apart.
        BoundaryCase{"NineTenthsAcrossAMs", 1000500000, 1001400000, 0, 0, 1},
        BoundaryCase{"NineTenthsAcrossAMsTolerance999us", 1000500000, 1001400000, 999, 0, 1},
        BoundaryCase{"NineTenthsAcrossAMsTolerance1000us", 1000500000, 1001400000, 1000, 0, 0},
        // 1,999 us allows one whole millisecond only; 2,000 us allows two (inclusive).
        BoundaryCase{"TwoMsTolerance1999usMode1", 1000000000, 1002000000, 1999, 1, 2},
        BoundaryCase{"TwoMsTolerance1999usMode0", 1000000000, 1002000000, 1999, 0, 1},
        BoundaryCase{"TwoMsTolerance1999usMode7", 1000000000, 1002000000, 1999, 7, 1},
        BoundaryCase{"TwoMsTolerance1999usModeMinus1", 1000000000, 1002000000, 1999, -1, 1},
        BoundaryCase{"TwoMsTolerance2000us", 1000000000, 1002000000, 2000, 1, 0},
        BoundaryCase{"OtherCameraEarlier", 1002000000, 1000000000, 1999, 1, 2},
        BoundaryCase{"OtherCameraEarlierInclusive", 1002000000, 1000000000, 2000, 1, 0},
        BoundaryCase{"SameTime", 5000000, 5000000, 0, 1, 0}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(TimestampUpdaterTest, OutOfSyncLogsTheComparisonAsWarning) {
    Frame f(37, 12);
    twoCameras(f, 1000000000, 1002000000, 1999, 1);
    TimestampSyncDataUpdater updater(1, mInfo);
    mCap.clear();

    ASSERT_TRUE(updater.update(f.get()));

    auto const all = lines(mCap, kTag);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].priority, ANDROID_LOG_WARN);
    EXPECT_EQ(all[0].func, "update");
    EXPECT_EQ(all[0].msg,
              "[r12:f37], CamId=0, time1=1000000000ns, SyncId=1, time2=1002000000ns, "
              "tolerance=1999us, syncOK=0");
}

TEST_F(TimestampUpdaterTest, InSyncLogsTheComparisonAsDebug) {
    Frame f(3, 4);
    twoCameras(f, 1000000000, 1000999999, 0, 1);
    TimestampSyncDataUpdater updater(1, mInfo);
    mCap.clear();

    ASSERT_TRUE(updater.update(f.get()));

    auto const all = lines(mCap, kTag);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].priority, ANDROID_LOG_DEBUG);
    EXPECT_EQ(all[0].msg,
              "[r4:f3], CamId=0, time1=1000000000ns, SyncId=1, time2=1000999999ns, "
              "tolerance=0us, syncOK=1");
}

TEST_F(TimestampUpdaterTest, ThreeCamerasGrowOneMessageWithoutSeparator) {
    Frame f(37, 12);
    f.add(0, 1000000000);
    f.add(1, 1005000000);  // 5 ms late: out of sync
    f.add(2, 1000000000);  // in step with camera 0
    IMetadata::setEntry<long>(&f.cam(0).halControl, RYX_FRAMESYNC_TOLERANCE, 1000);
    IMetadata::setEntry<int>(&f.cam(0).halControl, RYX_FRAMESYNC_MODE, 0);
    TimestampSyncDataUpdater updater(1, mInfo);
    mCap.clear();

    ASSERT_TRUE(updater.update(f.get()));

    // The pieces follow the input map's own order; syncOK is the running value.
    auto piece = [](int id, const char* time2, int ok) {
        return std::string("[r12:f37], CamId=0, time1=1000000000ns, SyncId=") + std::to_string(id) +
               ", time2=" + time2 + "ns, tolerance=1000us, syncOK=" + std::to_string(ok);
    };
    std::string expected;
    bool ok = true;
    for (int32_t id : f.inputOrder()) {
        if (id == 1) {
            ok = false;
            expected += piece(1, "1005000000", 0);
        } else if (id == 2) {
            expected += piece(2, "1000000000", ok ? 1 : 0);
        }
    }
    auto const warnings = lines(mCap, kTag);
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0].priority, ANDROID_LOG_WARN);
    EXPECT_EQ(warnings[0].msg, expected);
    EXPECT_EQ(result(f, 0), 1);
    EXPECT_EQ(result(f, 1), 1);
    EXPECT_EQ(result(f, 2), 1);
}

TEST_F(TimestampUpdaterTest, AbsentToleranceOrModeWritesNothing) {
    for (int absent : {0, 1}) {
        Frame f;
        f.add(0, 1000000000);
        f.add(1, 2000000000);  // a second apart
        if (absent != 0) {
            IMetadata::setEntry<long>(&f.cam(0).halControl, RYX_FRAMESYNC_TOLERANCE, 0);
        } else {
            IMetadata::setEntry<int>(&f.cam(0).halControl, RYX_FRAMESYNC_MODE, 1);
        }
        TimestampSyncDataUpdater updater(1, mInfo);
        mCap.clear();

        EXPECT_TRUE(updater.update(f.get())) << absent;
        EXPECT_FALSE(result(f, 0).has_value()) << absent;
        EXPECT_FALSE(result(f, 1).has_value()) << absent;
        EXPECT_TRUE(lines(mCap, kTag).empty()) << absent;
    }
}

TEST_F(TimestampUpdaterTest, ToleranceOnAnotherCameraIsNotConsulted) {
    Frame f;
    f.add(0, 1000000000);
    f.add(1, 1000000000);
    IMetadata::setEntry<long>(&f.cam(1).halControl, RYX_FRAMESYNC_TOLERANCE, 0);
    IMetadata::setEntry<int>(&f.cam(1).halControl, RYX_FRAMESYNC_MODE, 1);
    TimestampSyncDataUpdater updater(1, mInfo);

    EXPECT_TRUE(updater.update(f.get()));
    EXPECT_FALSE(result(f, 0).has_value());
    EXPECT_FALSE(result(f, 1).has_value());
}

TEST_F(TimestampUpdaterTest, MissingTimestampOnFirstOrLaterCameraFailsAndWritesNothing) {
    struct Case {
        int64_t sof0, sof1, sof2;
    } const cases[] = {
        {0, 1000000000, 1000000000},  // first camera
        {1000000000, 1000000000, 0},  // a later one
        {1000000000, 1009000000, 0},  // a later one, next to an out-of-sync one
        {1000000000, 0, 1009000000},  // likewise, other order
        {1000000000, 0, 0},           // two missing: the first one found ends the check
    };
    for (auto const& c : cases) {
        Frame f;
        f.add(0, c.sof0);
        f.add(1, c.sof1);
        f.add(2, c.sof2);
        IMetadata::setEntry<long>(&f.cam(0).halControl, RYX_FRAMESYNC_TOLERANCE, 1000);
        IMetadata::setEntry<int>(&f.cam(0).halControl, RYX_FRAMESYNC_MODE, 1);
        TimestampSyncDataUpdater updater(1, mInfo);
        mCap.clear();

        EXPECT_FALSE(updater.update(f.get()));
        for (int id : {0, 1, 2}) {
            EXPECT_FALSE(result(f, id).has_value()) << id;
        }
        auto const all = lines(mCap, kTag);
        ASSERT_EQ(all.size(), 1u);
        EXPECT_EQ(all[0].priority, ANDROID_LOG_WARN);
        EXPECT_EQ(all[0].func, "update");
        EXPECT_EQ(all[0].msg, "Timestamp not exist! Check flow!");
    }
}

TEST_F(TimestampUpdaterTest, FirstTargetWithoutInputIsJudgedFromTimeZero) {
    // Camera 0 is the first target but never arrived: its time counts as 0, the tolerance and
    // the mode as 0, so only a camera below 1 ms stays in sync and a failure is always 1.
    struct Case {
        int64_t sof;
        long expected;
    } const cases[] = {{999999, 0}, {1000000, 1}, {1000000000, 1}};
    for (auto const& c : cases) {
        Frame f;
        f.addMissingTarget(0);
        f.add(1, c.sof);
        IMetadata::setEntry<long>(&f.cam(1).halControl, RYX_FRAMESYNC_TOLERANCE, 1000000);
        IMetadata::setEntry<int>(&f.cam(1).halControl, RYX_FRAMESYNC_MODE, 1);
        TimestampSyncDataUpdater updater(1, mInfo);
        mCap.clear();

        EXPECT_TRUE(updater.update(f.get())) << c.sof;
        EXPECT_EQ(result(f, 1), c.expected) << c.sof;
        auto const errors = withMsg(lines(mCap, kTag), "SyncResultInputParams is null");
        ASSERT_EQ(errors.size(), 1u);
        EXPECT_EQ(errors[0].priority, ANDROID_LOG_ERROR);
        EXPECT_EQ(errors[0].suffixFunc, "update");
        EXPECT_EQ(errors[0].suffixSource,
                  "hw/camsys/cam_coordinator/SyncHelper/TimestampSyncDataUpdater");
    }
}

TEST_F(TimestampUpdaterTest, SingleTargetIsLeftAlone) {
    Frame f;
    f.add(0, 1000000000);
    IMetadata::setEntry<long>(&f.cam(0).halControl, RYX_FRAMESYNC_TOLERANCE, 0);
    IMetadata::setEntry<int>(&f.cam(0).halControl, RYX_FRAMESYNC_MODE, 1);
    TimestampSyncDataUpdater updater(1, mInfo);

    EXPECT_TRUE(updater.update(f.get()));
    EXPECT_FALSE(result(f, 0).has_value());
}

// mLogLevel is read once at construction; only "+", "-" and the single-camera line need it.
struct LevelCase {
    const char* property;  // nullptr: unset
    bool traced;
};

class TimestampLogLevelTest : public TimestampUpdaterTest,
                              public ::testing::WithParamInterface<LevelCase> {};

TEST_P(TimestampLogLevelTest, GatesOnlyTheTraceLines) {
    LevelCase const& c = GetParam();
    std::unique_ptr<TimestampSyncDataUpdater> updater;
    {
        updtest::ScopedLogLevel level(c.property);
        mCap.clear();
        updater = std::make_unique<TimestampSyncDataUpdater>(1, mInfo);
    }
    auto ctor = lines(mCap, kTag);
    ASSERT_EQ(ctor.size(), 1u);
    EXPECT_EQ(ctor[0].func, "TimestampSyncDataUpdater");
    EXPECT_EQ(ctor[0].msg, std::string("SyncDataUpdater mLogLevel(") +
                               (c.property != nullptr ? c.property : "0") + ")");

    Frame single;
    single.add(0, 1000000000);
    mCap.clear();
    updater->update(single.get());
    auto const s = lines(mCap, kTag);
    if (c.traced) {
        ASSERT_EQ(s.size(), 2u);
        EXPECT_EQ(s[0].msg, "+");
        EXPECT_EQ(s[1].msg, "single cam frame, ignore");
        EXPECT_EQ(s[1].func, "update");
    } else {
        EXPECT_TRUE(s.empty());
    }

    Frame f;
    twoCameras(f, 1000000000, 1000000000, 0, 1);
    f.cam(1).input.sofTimeStamp = 0;  // a warning, which never depends on the level
    mCap.clear();
    updater->update(f.get());
    auto const all = lines(mCap, kTag);
    ASSERT_EQ(all.size(), c.traced ? 3u : 1u);
    EXPECT_EQ(withMsg(all, "Timestamp not exist! Check flow!").size(), 1u);
    if (c.traced) {
        EXPECT_EQ(all.front().msg, "+");
        EXPECT_EQ(all.back().msg, "-");
        EXPECT_EQ(all.front().priority, ANDROID_LOG_DEBUG);
        EXPECT_EQ(all.back().func, "update");
    }
}

INSTANTIATE_TEST_SUITE_P(Property, TimestampLogLevelTest,
                         ::testing::Values(LevelCase{nullptr, false}, LevelCase{"0", false},
                                           LevelCase{"1", false}, LevelCase{"2", true},
                                           LevelCase{"3", true}));

}  // namespace
