// The master camera: publishing the requested master, the frame-order and exposure-order
// history with its exceptions, the master-absent path, the verbosity gates and the container
// attachment.

#include "MasterCamSyncDataUpdater.h"

#include <gtest/gtest.h>

#include <memory>
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

constexpr const char* kTag = "RyxCam/MasterCamSyncDataUpdater";
constexpr const char* kSource = "hw/camsys/cam_coordinator/SyncHelper/MasterCamSyncDataUpdater";
constexpr int kNoIntent = -1;

class MasterCamUpdaterTest : public ::testing::Test {
  protected:
    void SetUp() override { mUpdater = makeUpdater("0"); }

    std::unique_ptr<MasterCamSyncDataUpdater> makeUpdater(const char* level) {
        updtest::ScopedLogLevel guard(level);
        return std::make_unique<MasterCamSyncDataUpdater>(mSessionKey, mInfo);
    }

    // Cameras 0 (first target) and 1; `master` requested in camera 0's HalControl unless -1;
    // the master's exposure time and capture intent as given, every other time valid.
    std::unique_ptr<Frame> frame(int32_t frameNo, int32_t master, int64_t masterExp,
                                 int intent = 1) {
        auto f = std::make_unique<Frame>(frameNo);
        f->add(0, 1000000000, 900000000);
        f->add(1, 1000000000, 900000000);
        if (master >= 0) {
            IMetadata::setEntry<int>(&f->cam(0).halControl, RYX_DUALZOOM_REAL_MASTER, master);
        }
        int32_t const m = master >= 0 ? master : 0;
        if (m == 0 || m == 1) {
            f->cam(m).input.expTimeStamp = masterExp;
            if (intent != kNoIntent) {
                IMetadata::setEntry<unsigned char>(&f->cam(m).appControl, CAPTURE_INTENT,
                                                   static_cast<unsigned char>(intent));
            }
        }
        // Sentinels, so that "left alone" is observable.
        f->cam(0).output.bMasterCam = true;
        f->cam(1).output.bMasterCam = true;
        return f;
    }

    bool run(Frame& f) {
        mCap.clear();
        return mUpdater->update(f.get());
    }

    static void expectPublished(Frame& f, int32_t master) {
        for (int32_t id : {0, 1}) {
            EXPECT_EQ(read<int>(f.cam(id).halDynamic, RYX_DUALZOOM_REAL_MASTER), master) << id;
            EXPECT_EQ(read<int>(f.cam(id).appDynamic, RYX_APP_REAL_MASTER), master) << id;
            EXPECT_EQ(f.cam(id).output.bMasterCam, id == master) << id;
        }
    }
    static void expectUntouched(Frame& f) {
        for (int32_t id : {0, 1}) {
            EXPECT_TRUE(f.cam(id).halDynamic.isEmpty()) << id;
            EXPECT_TRUE(f.cam(id).appDynamic.isEmpty()) << id;
            EXPECT_TRUE(f.cam(id).output.bMasterCam) << id;
        }
    }
    std::vector<updtest::Line> warnings() const {
        std::vector<updtest::Line> out;
        for (auto const& l : lines(mCap, kTag)) {
            if (l.priority == ANDROID_LOG_WARN) {
                out.push_back(l);
            }
        }
        return out;
    }

    ryxtest::LogCapture mCap;
    uint64_t mSessionKey = 0x5eed0001;
    std::unordered_map<unsigned int, NSCam::CameraInfo> mInfo;
    std::unique_ptr<MasterCamSyncDataUpdater> mUpdater;
};

TEST_F(MasterCamUpdaterTest, FirstFramePublishesTheRequestedMaster) {
    auto f = frame(10, 1, 5000);
    EXPECT_TRUE(run(*f));
    expectPublished(*f, 1);
}

TEST_F(MasterCamUpdaterTest, HistoryRefusesFramesAndExposuresThatGoBack) {
    auto f10 = frame(10, 1, 5000);
    ASSERT_TRUE(run(*f10));

    // Older frame, preview: refused, nothing written, history kept.
    auto f9 = frame(9, 1, 6000, 1);
    EXPECT_FALSE(run(*f9));
    expectUntouched(*f9);
    auto w = warnings();
    ASSERT_EQ(w.size(), 1u);
    EXPECT_EQ(w[0].func, "operator()");
    EXPECT_EQ(w[0].msg, "masterId(1), f(9) frame inversion:previous master(1), f(10)");

    // Older frame, still capture: let through.
    auto f9still = frame(9, 1, 6000, 2);
    EXPECT_TRUE(run(*f9still));
    expectPublished(*f9still, 1);
    EXPECT_TRUE(warnings().empty());

    // The still capture moved the frame number back to 9: frame 9 again is not older.
    auto f9again = frame(9, 1, 6000, 1);
    EXPECT_TRUE(run(*f9again));

    // Exposure went back: refused, yet frame 11 now counts as seen.
    auto f11 = frame(11, 1, 4000);
    EXPECT_FALSE(run(*f11));
    expectUntouched(*f11);
    w = warnings();
    ASSERT_EQ(w.size(), 1u);
    EXPECT_EQ(w[0].func, "operator()");
    EXPECT_EQ(w[0].msg,
              "time inversion, drop directly, change masterId(1), f(11), shutterTs(4000), "
              "previous shutterTs(6000)");

    auto f10late = frame(10, 1, 7000);
    EXPECT_FALSE(run(*f10late));
    w = warnings();
    ASSERT_EQ(w.size(), 1u);
    EXPECT_EQ(w[0].msg, "masterId(1), f(10) frame inversion:previous master(1), f(11)");

    // The refused exposure did not become the reference: equal to the last accepted passes.
    auto f12 = frame(12, 1, 6000);
    EXPECT_TRUE(run(*f12));
    expectPublished(*f12, 1);
}

TEST_F(MasterCamUpdaterTest, HistoryIsOnePerUpdaterAcrossMasterSwitches) {
    auto f10 = frame(10, 1, 5000);
    ASSERT_TRUE(run(*f10));

    auto f11 = frame(11, 0, 4500);  // new master lags behind the old one's exposure
    EXPECT_FALSE(run(*f11));
    auto w = warnings();
    ASSERT_EQ(w.size(), 1u);
    EXPECT_EQ(w[0].msg,
              "time inversion, drop directly, change masterId(0), f(11), shutterTs(4500), "
              "previous shutterTs(5000)");

    auto f12 = frame(12, 0, 5001);
    EXPECT_TRUE(run(*f12));
    expectPublished(*f12, 0);

    auto f11late = frame(11, 1, 9000);
    EXPECT_FALSE(run(*f11late));
    w = warnings();
    ASSERT_EQ(w.size(), 1u);
    EXPECT_EQ(w[0].msg, "masterId(1), f(11) frame inversion:previous master(0), f(12)");
}

TEST_F(MasterCamUpdaterTest, LateFrameWithoutCaptureIntentIsTreatedAsPreview) {
    auto f10 = frame(10, 1, 5000);
    ASSERT_TRUE(run(*f10));

    auto f9 = frame(9, 1, 6000, kNoIntent);
    EXPECT_FALSE(run(*f9));
    auto const all = lines(mCap, kTag);
    auto const errors = withMsg(all, "Fail to get sensor(1) f(9) CAPTURE_INTENT from app meta.");
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(errors[0].func, "operator()");
    EXPECT_EQ(errors[0].suffixFunc, "operator()");
    EXPECT_EQ(errors[0].suffixSource, kSource);
    auto const intent = withMsg(all, "Get master(1) isCapture(0)");
    ASSERT_EQ(intent.size(), 1u);
    EXPECT_EQ(intent[0].func, "operator()");
    EXPECT_EQ(warnings().size(), 1u);
}

TEST_F(MasterCamUpdaterTest, AbsentRequestMakesTheFirstTargetMaster) {
    auto f = frame(10, -1, 5000);
    EXPECT_TRUE(run(*f));
    expectPublished(*f, 0);
}

TEST_F(MasterCamUpdaterTest, MasterOutsideTheFrameClearsEveryFlagAndKeepsHistory) {
    auto f = frame(100, 3, 0);
    EXPECT_TRUE(run(*f));
    for (int32_t id : {0, 1}) {
        EXPECT_FALSE(f->cam(id).output.bMasterCam) << id;
        EXPECT_TRUE(f->cam(id).halDynamic.isEmpty()) << id;
        EXPECT_TRUE(f->cam(id).appDynamic.isEmpty()) << id;
    }
    auto const all = lines(mCap, kTag);
    auto const slave = withMsg(all, "slave meta doesnt hav master TS, TS will update by master");
    ASSERT_EQ(slave.size(), 1u);
    EXPECT_EQ(slave[0].func, "operator()");
    EXPECT_EQ(withMsg(all, "slave sensor(0), set bMasterCam false").size(), 1u);
    EXPECT_EQ(withMsg(all, "slave sensor(1), set bMasterCam false").size(), 1u);

    // Frame 100 was not recorded: an earlier frame with a small exposure still passes.
    auto f50 = frame(50, 1, 1);
    EXPECT_TRUE(run(*f50));
    expectPublished(*f50, 1);
}

TEST_F(MasterCamUpdaterTest, FirstTargetWithoutInputPassesUntouched) {
    Frame f(10);
    f.addMissingTarget(5);
    f.add(1, 1000, 1000);
    f.cam(1).output.bMasterCam = true;
    EXPECT_TRUE(run(f));
    EXPECT_TRUE(f.cam(1).output.bMasterCam);
    EXPECT_TRUE(f.cam(1).halDynamic.isEmpty());
}

struct ZeroTsCase {
    const char* name;
    int64_t sof;
    int64_t exp;
    const char* error;
};

class MasterCamZeroTimestampTest : public MasterCamUpdaterTest,
                                   public ::testing::WithParamInterface<ZeroTsCase> {};

TEST_P(MasterCamZeroTimestampTest, RefusesWithoutTouchingHistory) {
    ZeroTsCase const& c = GetParam();
    auto f = frame(10, 1, c.exp);
    f->cam(1).input.sofTimeStamp = c.sof;
    EXPECT_FALSE(run(*f));
    expectUntouched(*f);

    auto const all = lines(mCap, kTag);
    auto const errors = withMsg(all, c.error);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(errors[0].suffixFunc, "operator()");
    EXPECT_EQ(errors[0].suffixSource, kSource);
    EXPECT_EQ(withMsg(all, "cant get TS, drop this frame(10)").size(), 1u);

    // Nothing was recorded: an older frame with a tiny exposure is accepted.
    auto f5 = frame(5, 1, 1);
    EXPECT_TRUE(run(*f5));
}

INSTANTIATE_TEST_SUITE_P(
    Master, MasterCamZeroTimestampTest,
    ::testing::Values(ZeroTsCase{"NoSof", 0, 5000, "[cam1::f10] Fail to get sofTimeStamp"},
                      ZeroTsCase{"NoExp", 1000, 0, "[cam1::f10] Fail to get expTimeStamp"},
                      ZeroTsCase{"Neither", 0, 0, "[cam1::f10] Fail to get sofTimeStamp"}),
    [](auto const& info) { return std::string(info.param.name); });

// mLogLevel: "+"/"-" need 2, the decision lines need anything but 0; warnings need nothing.
struct MasterLevelCase {
    const char* property;
    bool decisions;
    bool trace;
};

class MasterCamLogLevelTest : public MasterCamUpdaterTest,
                              public ::testing::WithParamInterface<MasterLevelCase> {};

TEST_P(MasterCamLogLevelTest, GatesTraceAndDecisionLines) {
    MasterLevelCase const& c = GetParam();
    mCap.clear();
    mUpdater = makeUpdater(c.property);
    EXPECT_TRUE(lines(mCap, kTag).empty());  // no construction line

    auto f = frame(10, -1, 5000);
    ASSERT_TRUE(run(*f));
    auto all = lines(mCap, kTag);
    auto count = [&](const char* msg, const char* func) {
        auto const found = withMsg(all, msg);
        for (auto const& l : found) {
            EXPECT_EQ(l.func, func) << msg;
            EXPECT_EQ(l.priority, ANDROID_LOG_DEBUG) << msg;
        }
        return found.size();
    };
    size_t const d = c.decisions ? 1u : 0u;
    size_t const t = c.trace ? 1u : 0u;
    EXPECT_EQ(count("+", "update"), t);
    EXPECT_EQ(count("RYX_DUALZOOM_REAL_MASTER not found, use cam0", "update"), d);
    EXPECT_EQ(count("masterId(0)", "update"), d);
    EXPECT_EQ(count("master(0): sofTime(1000000000), shutterTs(5000)", "operator()"), d);
    EXPECT_EQ(count("master id(0) f(10)", "operator()"), d);
    EXPECT_EQ(count("-", "update"), t);
    EXPECT_EQ(all.size(), 4 * d + 2 * t);

    auto late = frame(9, 0, 6000, 1);
    EXPECT_FALSE(run(*late));
    EXPECT_EQ(warnings().size(), 1u);
    // Ungated debug lines of the decision step appear at every level.
    EXPECT_EQ(withMsg(lines(mCap, kTag), "Get master(0) isCapture(0)").size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Property, MasterCamLogLevelTest,
                         ::testing::Values(MasterLevelCase{nullptr, false, false},
                                           MasterLevelCase{"0", false, false},
                                           MasterLevelCase{"1", true, false},
                                           MasterLevelCase{"2", true, true}));

TEST(MasterCamContainerTest, ReaderIsAttachedToTheSessionContainerWhileTheUpdaterLives) {
    using Fova = MasterCamSyncDataUpdater::FovaContainer;
    uint64_t const session = 0xfeed0042;
    std::unordered_map<unsigned int, NSCam::CameraInfo> info;
    auto updater = std::make_unique<MasterCamSyncDataUpdater>(session, info);

    auto probe = Fova::makeUser<Fova::Reader>("probe", session, 5);
    ASSERT_NE(probe, nullptr);
    EXPECT_EQ(probe->container().key(), session);
    EXPECT_EQ(probe->container().type(), 1);  // made by the updater, with its type
    EXPECT_EQ(probe->container().readers(), 2);

    auto other = Fova::makeUser<Fova::Reader>("probe", session + 1, 5);
    EXPECT_EQ(other->container().readers(), 1);  // another session's container is separate

    updater.reset();
    EXPECT_EQ(probe->container().readers(), 1);
}

TEST(MasterCamContainerTest, UnavailableRegistryLeavesTheUpdaterWorking) {
    NSCam::IGenericContainerManager::setAvailable(false);
    std::unordered_map<unsigned int, NSCam::CameraInfo> info;
    MasterCamSyncDataUpdater updater(0x77, info);
    NSCam::IGenericContainerManager::setAvailable(true);

    Frame f(1);
    f.add(0, 1000, 2000);
    f.add(1, 1000, 2000);
    EXPECT_TRUE(updater.update(f.get()));
    EXPECT_TRUE(f.cam(0).output.bMasterCam);
}

}  // namespace
