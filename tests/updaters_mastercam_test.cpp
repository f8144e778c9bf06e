// The master camera: publishing the requested master, the frame-order and exposure-order
// history with its exceptions, the master-absent paths, the verbosity gates and the container
// attachment.

#include "MasterCamSyncDataUpdater.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "updaters_frame.h"

namespace {

using namespace updtest;

constexpr int kNoIntent = -1;

// One frame of cameras 0 (first target) and 1, and what the updater must make of it.
struct Step {
    int32_t frame;
    int32_t master;  // requested in camera 0's HalControl; -1: none (camera 0 is master)
    int64_t exp;     // the master's exposure time
    int intent;      // the master's capture intent (2: still capture)
    bool accepted;
    Lines log;                 // in any order
    int64_t sof = 1000000000;  // the master's start of frame; every other time is valid
};

std::string const kDecision = "[operator()] ";

Lines late(int master, int frame, int prevMaster, int prevFrame, bool noIntent = false) {
    Lines out{"D " + kDecision + "Get master(" + std::to_string(master) + ") isCapture(0)",
              "W " + kDecision + "masterId(" + std::to_string(master) + "), f(" +
                  std::to_string(frame) + ") frame inversion:previous master(" +
                  std::to_string(prevMaster) + "), f(" + std::to_string(prevFrame) + ")"};
    if (noIntent) {
        out.push_back("E " + kDecision + "Fail to get sensor(" + std::to_string(master) + ") f(" +
                      std::to_string(frame) + ") CAPTURE_INTENT from app meta.");
    }
    return out;
}

Lines backwards(int master, int frame, int shutter, int prevShutter) {
    return {"W " + kDecision + "time inversion, drop directly, change masterId(" +
            std::to_string(master) + "), f(" + std::to_string(frame) + "), shutterTs(" +
            std::to_string(shutter) + "), previous shutterTs(" + std::to_string(prevShutter) + ")"};
}

Lines noTime(int frame, const char* which) {
    return {"E " + kDecision + "[cam1::f" + std::to_string(frame) + "] Fail to get " + which,
            "D " + kDecision + "cant get TS, drop this frame(" + std::to_string(frame) + ")"};
}

class MasterCamUpdaterTest : public ::testing::Test {
  protected:
    // Both bMasterCam flags start true, so that "left alone" is observable.
    std::unique_ptr<Frame> frame(Step const& s) {
        auto f = std::make_unique<Frame>(s.frame);
        for (int32_t id : {0, 1}) {
            f->add(id, 1000000000, 900000000).output.bMasterCam = true;
        }
        if (s.master >= 0) {
            IMetadata::setEntry<int>(&f->cam(0).halControl, RYX_DUALZOOM_REAL_MASTER, s.master);
        }
        int32_t const m = s.master >= 0 ? s.master : 0;
        if (m <= 1) {
            f->cam(m).input.sofTimeStamp = s.sof;
            f->cam(m).input.expTimeStamp = s.exp;
            if (s.intent != kNoIntent) {
                IMetadata::setEntry<unsigned char>(&f->cam(m).appControl, CAPTURE_INTENT,
                                                   static_cast<unsigned char>(s.intent));
            }
        }
        return f;
    }
    bool run(Frame& f) {
        mCap.clear();
        return mUpdater->update(f.get());
    }
    Lines logged() const { return updtest::logged(mCap, "RyxCam/MasterCamSyncDataUpdater"); }

    // With a published master every camera carries it and only the master is flagged; without
    // one nothing is written and every flag is `flag`.
    static void expectOutputs(Frame& f, std::optional<int> master, bool flag = true) {
        for (int32_t id : {0, 1}) {
            EXPECT_EQ(read<int>(f.cam(id).halDynamic, RYX_DUALZOOM_REAL_MASTER), master) << id;
            EXPECT_EQ(read<int>(f.cam(id).appDynamic, RYX_APP_REAL_MASTER), master) << id;
            EXPECT_EQ(f.cam(id).output.bMasterCam, master ? id == *master : flag) << id;
        }
    }
    // Runs the frames in order against one history: accepted ones publish their master (none
    // when it is outside the frame), refused ones are left alone.
    void play(std::initializer_list<Step> steps) {
        for (Step const& s : steps) {
            SCOPED_TRACE("frame " + std::to_string(s.frame));
            auto const f = frame(s);
            EXPECT_EQ(run(*f), s.accepted);
            Lines got = logged(), want = s.log;
            std::sort(got.begin(), got.end());
            std::sort(want.begin(), want.end());
            EXPECT_EQ(got, want);
            int32_t const m = s.master >= 0 ? s.master : 0;
            expectOutputs(*f, s.accepted && m <= 1 ? std::optional<int>(m) : std::nullopt,
                          !s.accepted);
        }
    }

    ryxtest::LogCapture mCap;
    std::unique_ptr<MasterCamSyncDataUpdater> mUpdater =
        withLogLevel<MasterCamSyncDataUpdater>("0", 0x5eed0001);
};

TEST_F(MasterCamUpdaterTest, HistoryRefusesFramesAndExposuresThatGoBack) {
    play({
        {10, 1, 5000, 1, true, {}},
        {9, 1, 6000, 1, false, late(1, 9, 1, 10)},
        // A still capture may come late, and sets the frame back.
        {9, 1, 6000, 2, true, {"D " + kDecision + "Get master(1) isCapture(1)"}},
        {9, 1, 6000, 1, true, {}},
        // A frame refused for its exposure counts as seen; its exposure does not.
        {11, 1, 4000, 1, false, backwards(1, 11, 4000, 6000)},
        {10, 1, 7000, 1, false, late(1, 10, 1, 11)},
        {12, 1, 6000, 1, true, {}},
        // Without a start of frame or an exposure time nothing is recorded.
        {20, 1, 5000, 1, false, noTime(20, "sofTimeStamp"), 0},
        {20, 1, 0, 1, false, noTime(20, "expTimeStamp")},
        {20, 1, 0, 1, false, noTime(20, "sofTimeStamp"), 0},
        // One history across master switches.
        {13, 0, 5999, 1, false, backwards(0, 13, 5999, 6000)},
        {14, 0, 6001, 1, true, {}},
        {13, 1, 9000, kNoIntent, false, late(1, 13, 0, 14, true)},
        // A master outside the frame: nobody is master, the frame passes and is not recorded.
        {100,
         3,
         0,
         1,
         true,
         {"D " + kDecision + "slave meta doesnt hav master TS, TS will update by master",
          "D " + kDecision + "slave sensor(0), set bMasterCam false",
          "D " + kDecision + "slave sensor(1), set bMasterCam false"}},
        {15, 1, 6001, 1, true, {}},
    });
}

TEST_F(MasterCamUpdaterTest, FirstTargetWithoutInputPassesUntouched) {
    auto f = frame({10, -1, 5000, 1, true, {}});
    f->data.syncTargetList.insert(f->data.syncTargetList.begin(), 5);
    EXPECT_TRUE(run(*f));
    expectOutputs(*f, std::nullopt);
}

// mLogLevel: "+"/"-" need 2, the decision lines need anything but 0.
class MasterCamLogLevelTest : public MasterCamUpdaterTest,
                              public ::testing::WithParamInterface<const char*> {};

TEST_P(MasterCamLogLevelTest, GatesTraceAndDecisionLines) {
    int const level = GetParam() != nullptr ? std::stoi(GetParam()) : 0;
    mCap.clear();
    mUpdater = withLogLevel<MasterCamSyncDataUpdater>(GetParam());
    EXPECT_EQ(logged(), Lines{});  // no construction line
    Lines expected;
    if (level != 0) {
        expected = {"D [update] RYX_DUALZOOM_REAL_MASTER not found, use cam0",
                    "D [update] masterId(0)",
                    "D " + kDecision + "master(0): sofTime(1000000000), shutterTs(5000)",
                    "D " + kDecision + "master id(0) f(10)"};
    }
    if (level >= 2) {
        expected.insert(expected.begin(), "D [update] +");
        expected.push_back("D [update] -");
    }
    auto f = frame({10, -1, 5000, 1, true, {}});
    EXPECT_TRUE(run(*f));
    EXPECT_EQ(logged(), expected);
    expectOutputs(*f, 0);
}

INSTANTIATE_TEST_SUITE_P(Property, MasterCamLogLevelTest, ::testing::Values(nullptr, "1", "2"));

TEST(MasterCamContainerTest, ReaderIsAttachedToTheSessionContainerWhileTheUpdaterLives) {
    using Fova = MasterCamSyncDataUpdater::FovaContainer;
    uint64_t const session = 0xfeed0042;
    auto updater = std::make_unique<MasterCamSyncDataUpdater>(session, CameraInfos{});
    auto probe = Fova::makeUser<Fova::Reader>("probe", session, 5);
    ASSERT_NE(probe, nullptr);
    EXPECT_EQ(probe->container().key(), session);
    EXPECT_EQ(probe->container().type(), 1);  // made by the updater, with its type
    EXPECT_EQ(probe->container().readers(), 2);
    auto other = Fova::makeUser<Fova::Reader>("probe", session + 1, 5);
    EXPECT_EQ(other->container().readers(), 1);  // another session's container is separate
    updater.reset();
    EXPECT_EQ(probe->container().readers(), 1);

    // Without the registry the updater still works.
    NSCam::IGenericContainerManager::setAvailable(false);
    updater = std::make_unique<MasterCamSyncDataUpdater>(0x77, CameraInfos{});
    NSCam::IGenericContainerManager::setAvailable(true);
    Frame f(1);
    f.add(0, 1000, 2000);
    f.add(1, 1000, 2000);
    EXPECT_TRUE(updater->update(f.get()));
    EXPECT_TRUE(f.cam(0).output.bMasterCam);
}

}  // namespace
