// The timestamp verdict: millisecond truncation and the inclusive tolerance, the two failure
// modes, the paths that write nothing, and the exact log lines.

#include "TimestampSyncDataUpdater.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "updaters_frame.h"

namespace {

using namespace updtest;

constexpr const char* kMissing = "W [update] Timestamp not exist! Check flow!";

class TimestampUpdaterTest : public ::testing::Test {
  protected:
    static void request(Camera& c, int64_t toleranceUs, int32_t mode) {
        IMetadata::setEntry<long>(&c.halControl, RYX_FRAMESYNC_TOLERANCE, toleranceUs);
        IMetadata::setEntry<int>(&c.halControl, RYX_FRAMESYNC_MODE, mode);
    }
    static std::optional<long> result(Frame& f, int32_t id) {
        return read<long>(f.cam(id).halDynamic, RYX_FRAMESYNC_RESULT);
    }
    // One comparison of camera 0 with camera `id`, as the updater words it.
    static std::string piece(Frame const& f, int64_t time1, int id, int64_t time2, int64_t tol,
                             bool ok) {
        return "[r" + std::to_string(f.data.requestNo) + ":f" + std::to_string(f.data.frameNo) +
               "], CamId=0, time1=" + std::to_string(time1) + "ns, SyncId=" + std::to_string(id) +
               ", time2=" + std::to_string(time2) + "ns, tolerance=" + std::to_string(tol) +
               "us, syncOK=" + (ok ? "1" : "0");
    }
    // Runs a fresh updater (made at the default verbosity) on the frame.
    bool run(Frame& f) {
        TimestampSyncDataUpdater updater(1, CameraInfos{});
        mCap.clear();
        return updater.update(f.get());
    }
    Lines logged() const { return updtest::logged(mCap, "RyxCam/TimestampSyncDataUpdater"); }

    ryxtest::LogCapture mCap;
};

struct BoundaryCase {
    const char* name;
    int64_t sof0, sof1, toleranceUs;
    int32_t mode;
    long expected;
};

// Shown by gtest beside the test name: the case's figures rather than its bytes.
void PrintTo(BoundaryCase const& c, std::ostream* os) {
    *os << c.sof0 << "/" << c.sof1 << " ns " << c.toleranceUs << " us mode " << c.mode << " -> "
        << c.expected;
}

class TimestampBoundaryTest : public TimestampUpdaterTest,
                              public ::testing::WithParamInterface<BoundaryCase> {};

TEST_P(TimestampBoundaryTest, WritesOneVerdictIntoEveryCameraAndLogsTheComparison) {
    BoundaryCase const& c = GetParam();
    Frame f(37, 12);
    request(f.add(0, c.sof0), c.toleranceUs, c.mode);
    f.add(1, c.sof1);

    EXPECT_TRUE(run(f));
    EXPECT_EQ(result(f, 0), c.expected);
    EXPECT_EQ(result(f, 1), c.expected);
    EXPECT_EQ(logged(), Lines{std::string(c.expected == 0 ? "D" : "W") + " [update] " +
                              piece(f, c.sof0, 1, c.sof1, c.toleranceUs, c.expected == 0)});
}

INSTANTIATE_TEST_SUITE_P(
    Milliseconds, TimestampBoundaryTest,
    ::testing::Values(
        // 0.9 ms apart inside one millisecond: 0 ms apart; across a boundary: 1 ms apart.
        BoundaryCase{"NearlyOneMsWithinAMs", 1000000000, 1000999999, 0, 0, 0},
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
        BoundaryCase{"OtherCameraEarlierInclusive", 1002000000, 1000000000, 2000, 1, 0}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(TimestampUpdaterTest, ThreeCamerasGrowOneMessageWithoutSeparator) {
    Frame f(37, 12);
    request(f.add(0, 1000000000), 1000, 0);
    f.add(1, 1005000000);  // 5 ms late: out of sync
    f.add(2, 1000000000);  // in step with camera 0
    ASSERT_TRUE(run(f));

    // The pieces follow the input map's own order; syncOK is the running value.
    std::string expected = "W [update] ";
    bool ok = true;
    for (auto const& [id, input] : f.data.inputParams) {
        if (id != 0) {
            ok = ok && id != 1;
            expected += piece(f, 1000000000, id, input->sofTimeStamp, 1000, ok);
        }
    }
    EXPECT_EQ(logged(), Lines{expected});
    for (int id : {0, 1, 2}) {
        EXPECT_EQ(result(f, id), 1) << id;
    }
}

// Frames that are not judged, or judged from incomplete records. The tolerance (1,000 us) and
// the mode (1) go where the case says.
constexpr int64_t kNoInput = -1;  // a sync target whose result never reached the frame

struct IrregularCase {
    const char* name;
    std::vector<int64_t> sofs;  // by camera id
    int toleranceOn, modeOn;    // -1: absent
    bool returns;
    std::optional<long> result;  // in every camera that arrived
    Lines log;
};

void PrintTo(IrregularCase const& c, std::ostream* os) {
    char const* sep = "";
    for (int64_t sof : c.sofs) {
        *os << sep << (sof == kNoInput ? std::string("none") : std::to_string(sof));
        sep = "/";
    }
    *os << " ns, tolerance@" << c.toleranceOn << " mode@" << c.modeOn << " -> "
        << (c.returns ? "true" : "false") << ", "
        << (c.result ? std::to_string(*c.result) : std::string("none"));
}

class TimestampIrregularTest : public TimestampUpdaterTest,
                               public ::testing::WithParamInterface<IrregularCase> {};

TEST_P(TimestampIrregularTest, ReturnsWritesAndLogsAsExpected) {
    IrregularCase const& c = GetParam();
    Frame f;
    for (int32_t id = 0; id < static_cast<int32_t>(c.sofs.size()); ++id) {
        if (c.sofs[id] == kNoInput) {
            f.data.syncTargetList.push_back(id);
        } else {
            f.add(id, c.sofs[id]);
        }
    }
    if (c.toleranceOn >= 0) {
        IMetadata::setEntry<long>(&f.cam(c.toleranceOn).halControl, RYX_FRAMESYNC_TOLERANCE, 1000);
    }
    if (c.modeOn >= 0) {
        IMetadata::setEntry<int>(&f.cam(c.modeOn).halControl, RYX_FRAMESYNC_MODE, 1);
    }
    EXPECT_EQ(run(f), c.returns);
    for (auto const& [id, input] : f.data.inputParams) {
        EXPECT_EQ(result(f, id), c.result) << id;
    }
    EXPECT_EQ(logged(), c.log);
}

// With the first target missing, its time, tolerance and mode count as 0: only a camera below
// 1 ms stays in sync, and a failure is always 1.
constexpr const char* kNullInput = "E [update] SyncResultInputParams is null";
constexpr const char* kZeroOk =
    "D [update] [r7:f10], CamId=0, time1=0ns, SyncId=1, time2=999999ns, tolerance=0us, syncOK=1";
constexpr const char* kZeroLate =
    "W [update] [r7:f10], CamId=0, time1=0ns, SyncId=1, time2=1000000ns, tolerance=0us, syncOK=0";

INSTANTIATE_TEST_SUITE_P(
    Frames, TimestampIrregularTest,
    ::testing::Values(
        IrregularCase{"ToleranceOnly", {1000000000, 2000000000}, 0, -1, true, {}, {}},
        IrregularCase{"ModeOnly", {1000000000, 2000000000}, -1, 0, true, {}, {}},
        IrregularCase{"ControlsOnALaterCamera", {1000000000, 2000000000}, 1, 1, true, {}, {}},
        IrregularCase{"SingleTarget", {1000000000}, 0, 0, true, {}, {}},
        IrregularCase{"FirstTimeMissing", {0, 1000000000, 1000000000}, 0, 0, false, {}, {kMissing}},
        // A later time missing cancels the whole check, whatever was compared before it.
        IrregularCase{"LaterTimeMissing", {1000000000, 1009000000, 0}, 0, 0, false, {}, {kMissing}},
        IrregularCase{"OtherTimeMissing", {1000000000, 0, 1009000000}, 0, 0, false, {}, {kMissing}},
        IrregularCase{"TwoTimesMissing", {1000000000, 0, 0}, 0, 0, false, {}, {kMissing}},
        IrregularCase{"NoFirstOnTime", {kNoInput, 999999}, 1, 1, true, 0, {kNullInput, kZeroOk}},
        IrregularCase{"NoFirstLate", {kNoInput, 1000000}, 1, 1, true, 1, {kNullInput, kZeroLate}}),
    [](auto const& info) { return std::string(info.param.name); });

// mLogLevel is read once at construction; only "+", "-" and the single-camera line need it.
class TimestampLogLevelTest : public TimestampUpdaterTest,
                              public ::testing::WithParamInterface<const char*> {};

TEST_P(TimestampLogLevelTest, GatesOnlyTheTraceLines) {
    const char* const level = GetParam();
    bool const traced = level != nullptr && std::stoi(level) >= 2;
    mCap.clear();
    auto const updater = withLogLevel<TimestampSyncDataUpdater>(level);
    EXPECT_EQ(logged(),
              Lines{std::string("D [TimestampSyncDataUpdater] SyncDataUpdater mLogLevel(") +
                    (level != nullptr ? level : "0") + ")"});

    Frame single;
    single.add(0, 1000000000);
    mCap.clear();
    EXPECT_TRUE(updater->update(single.get()));
    EXPECT_EQ(logged(),
              (traced ? Lines{"D [update] +", "D [update] single cam frame, ignore"} : Lines{}));

    Frame f;
    request(f.add(0, 1000000000), 0, 1);
    f.add(1, 0);  // a warning, which never depends on the level
    mCap.clear();
    EXPECT_FALSE(updater->update(f.get()));
    EXPECT_EQ(logged(),
              (traced ? Lines{"D [update] +", kMissing, "D [update] -"} : Lines{kMissing}));
}

INSTANTIATE_TEST_SUITE_P(Property, TimestampLogLevelTest,
                         ::testing::Values(nullptr, "1", "2", "3"));

}  // namespace
