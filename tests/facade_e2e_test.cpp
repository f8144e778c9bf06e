// Sessions of two and three sensors driven through the exported interface, each sensor on its
// own thread, as a pipeline drives them. Threads are ordered by what the library logs: a camera
// counts as waiting once the queue has printed its "wait(1)+" line.

#include <NSCam/Properties.h>
#include <android/log.h>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ISyncHelper.h"
#include "LogCapture.h"
#include "SyncHelper.h"
#include "Watchdog.h"
#include "facade_session.h"

namespace facadetest {
namespace {

using ryxtest::LogCapture;
using ryxtest::Watchdog;

std::string waitLine(CamFrame const& f) {
    return "[syncResultCheck][f" + std::to_string(f.in.frameNo) +
           "] CamId = " + std::to_string(f.in.m_id) + " wait(1)+";
}

class SessionTest : public ::testing::Test {
  protected:
    void SetUp() override {
        NSCam::Utils::Properties::clearHostProperty("vendor.debug.camera.crop_replace");
        mLog = std::make_unique<LogCapture>(0x1, 5);  // Android log only, every severity
    }
    void TearDown() override { mLog.reset(); }

    void open(std::vector<int> sensors, bool allowCropReplace = true) {
        mSensors = sensors;
        mHelper = ISyncHelper::createInstance(0x5e55, allowCropReplace, infoFor(sensors));
        ASSERT_NE(mHelper, nullptr);
    }

    // The frame of `sensor`, with start of frame at `sof` and exposure 1 ms later.
    CamFrame& frame(int sensor, int frameNo, int64_t sof, Request const& req) {
        mFrames.push_back(std::make_unique<CamFrame>(sensor, frameNo, sof, sof + kMs, req));
        return *mFrames.back();
    }

    // Every sensor of the session delivers frame `frameNo` in tolerance, master `master`.
    std::vector<CamFrame*> frameSet(int frameNo, int master, int64_t jitterNs = 100000) {
        Request req{mSensors, master, 1000, 1};
        std::vector<CamFrame*> set;
        int64_t sof = frameNo * kFrameNs;
        for (int id : mSensors) {
            set.push_back(&frame(id, frameNo, sof, req));
            sof += jitterNs;
        }
        return set;
    }

    // Starts `f`'s check on a thread of its own and returns once the call waits in the queue.
    void waitIn(CamFrame& f, bool& verdict) {
        mThreads.emplace_back(
            [this, &f, &verdict] { verdict = mHelper->syncResultCheck(f.in, &f.out); });
        if (!mLog->waitForAndroid(waitLine(f))) {
            ADD_FAILURE() << "camera " << f.in.m_id << " never waited in frame " << f.in.frameNo;
            mHelper->notifyDrop(f.in.frameNo, 0);  // release it so the test can end
        }
    }

    // Every camera but the last waits in turn; the last completes the frame on this thread.
    std::vector<bool> runFrame(std::vector<CamFrame*> const& cams) {
        std::unique_ptr<bool[]> verdicts(new bool[cams.size()]());
        Watchdog dog("frame rendezvous", std::chrono::seconds(30));
        for (size_t i = 0; i + 1 < cams.size(); ++i) {
            waitIn(*cams[i], verdicts[i]);
        }
        verdicts[cams.size() - 1] = mHelper->syncResultCheck(cams.back()->in, &cams.back()->out);
        dog.join(mThreads);
        mThreads.clear();
        return std::vector<bool>(verdicts.get(), verdicts.get() + cams.size());
    }

    void joinAll() {
        Watchdog dog("joining sensor threads", std::chrono::seconds(30));
        dog.join(mThreads);
        mThreads.clear();
    }

    // Master and physical metadata of a camera whose frame was written in full.
    static void expectWritten(CamFrame const& f, int master) {
        int id = f.in.m_id;
        EXPECT_EQ(f.halMaster(), master) << "cam " << id;
        EXPECT_EQ(f.appMaster(), master) << "cam " << id;
        EXPECT_EQ(f.out.bMasterCam, id == master) << "cam " << id;
        EXPECT_EQ(f.activeArray(), infoOf(id).activeArrayRegion) << "cam " << id;
        EXPECT_EQ(f.focalLength(), infoOf(id).focalLength) << "cam " << id;
        EXPECT_EQ(f.boost(), 100) << "cam " << id;
        EXPECT_EQ(f.stabilization(), 0) << "cam " << id;
    }

    std::unique_ptr<LogCapture> mLog;
    std::vector<int> mSensors;
    std::shared_ptr<ISyncHelper> mHelper;
    std::vector<std::unique_ptr<CamFrame>> mFrames;
    std::vector<std::thread> mThreads;
};

// --- timestamps in and out of tolerance, per mode, for two and three sensors ----------------

struct ModeCase {
    std::vector<int> sensors;
    bool inTolerance;
    int32_t mode;
};

class ToleranceModeTest : public SessionTest, public ::testing::WithParamInterface<ModeCase> {};

TEST_P(ToleranceModeTest, VerdictAndEveryValueWritten) {
    ModeCase const& c = GetParam();
    open(c.sensors);
    int const master = c.sensors.back();
    Request req{c.sensors, master, 1000 /* us: 1 ms */, c.mode};
    int64_t const base = 12 * kFrameNs;  // 396 ms: a millisecond boundary
    std::vector<CamFrame*> cams;
    for (size_t i = 0; i < c.sensors.size(); ++i) {
        // 0, 0.4 and 0.8 ms later stay within the same millisecond; 5 ms does not.
        int64_t sof = base + static_cast<int64_t>(i) * 400000;
        if (!c.inTolerance && i + 1 == c.sensors.size()) {
            sof = base + 5 * kMs;
        }
        cams.push_back(&frame(c.sensors[i], 12, sof, req));
    }

    std::vector<bool> verdicts = runFrame(cams);

    bool const expectVerdict = c.inTolerance || c.mode != 1;
    int64_t const expectResult = c.inTolerance ? 0 : (c.mode == 1 ? 2 : 1);
    for (size_t i = 0; i < cams.size(); ++i) {
        EXPECT_EQ(verdicts[i], expectVerdict) << "cam " << cams[i]->in.m_id;
        EXPECT_EQ(cams[i]->syncResult(), expectResult) << "cam " << cams[i]->in.m_id;
        expectWritten(*cams[i], master);
    }
}

INSTANTIATE_TEST_SUITE_P(Sessions, ToleranceModeTest,
                         ::testing::Values(ModeCase{{0, 2}, true, 1}, ModeCase{{0, 2}, false, 1},
                                           ModeCase{{0, 2}, true, 0}, ModeCase{{0, 2}, false, 0},
                                           ModeCase{{0, 1, 2}, true, 1},
                                           ModeCase{{0, 1, 2}, false, 1},
                                           ModeCase{{0, 1, 2}, true, 0},
                                           ModeCase{{0, 1, 2}, false, 0}),
                         [](auto const& info) {
                             ModeCase const& c = info.param;
                             return std::to_string(c.sensors.size()) + "Sensors" +
                                    (c.inTolerance ? "InTolerance" : "OutOfTolerance") + "Mode" +
                                    std::to_string(c.mode);
                         });

// --- master camera ------------------------------------------------------------------------------

TEST_F(SessionTest, MasterSwitchMovesTheFlagAndALaggingMasterFailsTheFrameForAll) {
    open({0, 2});
    auto f10 = frameSet(10, 0);
    for (bool v : runFrame(f10)) {
        EXPECT_TRUE(v);
    }
    expectWritten(*f10[0], 0);
    expectWritten(*f10[1], 0);

    auto f11 = frameSet(11, 2);
    for (bool v : runFrame(f11)) {
        EXPECT_TRUE(v);
    }
    expectWritten(*f11[0], 2);
    expectWritten(*f11[1], 2);

    // Back to sensor 0, whose exposure of frame 12 lies before sensor 2's exposure of frame 11.
    Request req{{0, 2}, 0, 1000, 1};
    int64_t const lagging = f11[1]->in.expTimeStamp - 2 * kMs;
    CamFrame& a = frame(0, 12, lagging - kMs, req);
    CamFrame& b = frame(2, 12, lagging - kMs, req);
    std::vector<bool> v12 = runFrame({&a, &b});
    EXPECT_FALSE(v12[0]);
    EXPECT_FALSE(v12[1]);
    for (CamFrame* f : {&a, &b}) {
        EXPECT_FALSE(f->halMaster().has_value());  // the master was refused
        EXPECT_FALSE(f->out.bMasterCam);
        EXPECT_EQ(f->syncResult(), 0);  // the other writers still ran
        EXPECT_EQ(f->activeArray(), infoOf(f->in.m_id).activeArrayRegion);
    }

    // The failed frame does not hold back the next one.
    auto f13 = frameSet(13, 0);
    for (bool v : runFrame(f13)) {
        EXPECT_TRUE(v);
    }
    expectWritten(*f13[0], 0);
}

TEST_F(SessionTest, TimingLineIsPrintedForTheMasterOnEveryChannel) {
    mLog.reset();
    mLog = std::make_unique<LogCapture>(0x9, 5);  // Android log and unified logger
    open({0, 2});
    auto f = frameSet(14, 2);
    for (bool v : runFrame(f)) {
        EXPECT_TRUE(v);
    }
    EXPECT_EQ(mLog->androidMatching("sync check diff").size(), 1u);
    EXPECT_TRUE(mLog->androidHas("[syncResultCheck] m_id(2) [f14] sync check diff = "));
    EXPECT_TRUE(mLog->ulogHas("[syncResultCheck] m_id(2) [f14] sync check diff = "));
    EXPECT_FALSE(mLog->ulogHas("m_id(0) [f14] sync check diff"));
}

// --- drops --------------------------------------------------------------------------------------

TEST_F(SessionTest, MasterDropReleasesTheWaitingSlaveWithAFalseVerdict) {
    open({0, 2});
    Request req{{0, 2}, 0, 1000, 1};
    CamFrame& slave = frame(2, 20, 20 * kFrameNs, req);
    CamFrame& master = frame(0, 20, 20 * kFrameNs, req);
    bool slaveVerdict = true;
    waitIn(slave, slaveVerdict);
    EXPECT_FALSE(mHelper->notifyDrop(master.in));
    joinAll();
    EXPECT_FALSE(slaveVerdict);
    EXPECT_FALSE(slave.halMaster().has_value());  // its master never arrived
    EXPECT_FALSE(slave.out.bMasterCam);

    auto next = frameSet(21, 0);
    for (bool v : runFrame(next)) {
        EXPECT_TRUE(v);
    }
}

TEST_F(SessionTest, MasterDropBeforeTheSlaveArrivesFailsTheSlaveWithoutWaiting) {
    open({0, 1, 2});
    Request req{{0, 1, 2}, 1, 1000, 1};
    CamFrame& master = frame(1, 20, 20 * kFrameNs, req);
    CamFrame& a = frame(0, 20, 20 * kFrameNs, req);
    CamFrame& b = frame(2, 20, 20 * kFrameNs, req);
    EXPECT_FALSE(mHelper->notifyDrop(master.in));
    bool va = true;
    bool vb = true;
    mThreads.emplace_back([&] { va = mHelper->syncResultCheck(a.in, &a.out); });
    mThreads.emplace_back([&] { vb = mHelper->syncResultCheck(b.in, &b.out); });
    joinAll();
    EXPECT_FALSE(va);
    EXPECT_FALSE(vb);

    auto next = frameSet(21, 1);
    for (bool v : runFrame(next)) {
        EXPECT_TRUE(v);
    }
}

TEST_F(SessionTest, SlaveDropCountsAsItsArrivalSoTheWaitingMasterPasses) {
    open({0, 2});
    Request req{{0, 2}, 0, 1000, 1};
    CamFrame& master = frame(0, 30, 30 * kFrameNs, req);
    CamFrame& slave = frame(2, 30, 30 * kFrameNs, req);
    bool masterVerdict = false;
    waitIn(master, masterVerdict);
    EXPECT_FALSE(mHelper->notifyDrop(slave.in));
    joinAll();
    EXPECT_TRUE(masterVerdict);
    EXPECT_EQ(master.syncResult(), 0);
    expectWritten(master, 0);
    EXPECT_EQ(slave.halDynamic.count(), 0u);  // the dropped result is not written
    EXPECT_TRUE(mLog->androidHas("Frame:30 Drop slave cam(2), isLastItem(1)!"));
}

TEST_F(SessionTest, SlaveDropFirstLetsTheMasterCompleteAlone) {
    open({0, 2});
    Request req{{0, 2}, 0, 1000, 1};
    CamFrame& master = frame(0, 30, 30 * kFrameNs, req);
    CamFrame& slave = frame(2, 30, 30 * kFrameNs, req);
    EXPECT_FALSE(mHelper->notifyDrop(slave.in));
    EXPECT_TRUE(mLog->androidHas("Frame:30 Drop slave cam(2), isLastItem(0)!"));
    bool masterVerdict = false;
    mThreads.emplace_back(
        [&] { masterVerdict = mHelper->syncResultCheck(master.in, &master.out); });
    joinAll();
    EXPECT_TRUE(masterVerdict);
    expectWritten(master, 0);
}

// --- flush and a sensor leaving ---------------------------------------------------------------

TEST_F(SessionTest, FlushReleasesTheWaiterAndDropsLaterArrivals) {
    open({0, 2});
    Request req{{0, 2}, 0, 1000, 1};
    CamFrame& early = frame(0, 40, 40 * kFrameNs, req);
    CamFrame& late = frame(2, 40, 40 * kFrameNs, req);
    bool earlyVerdict = true;
    waitIn(early, earlyVerdict);
    EXPECT_TRUE(mHelper->notifyDrop(40, 0));
    joinAll();
    EXPECT_FALSE(earlyVerdict);

    bool lateVerdict = true;
    mThreads.emplace_back([&] { lateVerdict = mHelper->syncResultCheck(late.in, &late.out); });
    joinAll();
    EXPECT_FALSE(lateVerdict);
    EXPECT_EQ(late.halDynamic.count(), 0u);
    EXPECT_EQ(late.appDynamic.count(), 0u);

    auto next = frameSet(41, 0);
    for (bool v : runFrame(next)) {
        EXPECT_TRUE(v);
    }
}

TEST_F(SessionTest, SensorLeavingCompletesTheFramesWaitingForIt) {
    open({0, 1, 2});
    auto set = frameSet(50, 0);
    bool v0 = false;
    bool v1 = false;
    waitIn(*set[0], v0);
    waitIn(*set[1], v1);
    EXPECT_FALSE(mHelper->notifyDropBySensor(2));
    joinAll();
    EXPECT_TRUE(v0);
    EXPECT_TRUE(v1);
    EXPECT_EQ(set[0]->syncResult(), 0);
    EXPECT_EQ(set[1]->syncResult(), 0);
    expectWritten(*set[0], 0);
    expectWritten(*set[1], 0);
}

// --- the short-cut and the single-camera path -------------------------------------------------

TEST_F(SessionTest, EnableWithBitZeroClearPassesWithoutQueueOrWrites) {
    open({0, 2});
    for (int32_t enable : {0, 2}) {
        Request req{{0, 2}, 0, 1000, 1, enable};
        CamFrame& f = frame(0, 60 + enable, (60 + enable) * kFrameNs, req);
        mLog->clear();
        bool verdict = false;
        // Were the frame queued, its partner would never come: the watchdog ends the test.
        mThreads.emplace_back([&] { verdict = mHelper->syncResultCheck(f.in, &f.out); });
        joinAll();
        EXPECT_TRUE(verdict) << "enable " << enable;
        EXPECT_EQ(f.halDynamic.count(), 0u);
        EXPECT_EQ(f.appDynamic.count(), 0u);
        EXPECT_FALSE(f.out.bMasterCam);
        EXPECT_TRUE(mLog->androidMatching("", "RyxCam/SyncQueue").empty()) << "enable " << enable;
    }
}

TEST_F(SessionTest, EnableOneStillSynchronises) {
    open({0, 2});
    Request req{{0, 2}, 0, 1000, 1, 1};
    CamFrame& a = frame(0, 64, 64 * kFrameNs, req);
    CamFrame& b = frame(2, 64, 64 * kFrameNs + 200000, req);
    std::vector<bool> v = runFrame({&a, &b});
    EXPECT_TRUE(v[0]);
    EXPECT_TRUE(v[1]);
    EXPECT_EQ(a.syncResult(), 0);
    expectWritten(a, 0);
    expectWritten(b, 0);
}

TEST_F(SessionTest, WithoutRequiredTheFrameIsWrittenAtOnceForItsCameraAlone) {
    open({0, 2});
    Request req{{0, 2}, std::nullopt, 1000, 1};
    req.required = false;
    CamFrame& f = frame(2, 70, 70 * kFrameNs, req);
    mLog->clear();
    EXPECT_TRUE(mHelper->syncResultCheck(f.in, &f.out));
    EXPECT_EQ(f.syncResult(), 0);  // its sync targets are {2, 0}, of which only 2 is here
    expectWritten(f, 2);           // its own master

    // Without sync ids the camera is its frame's only target: no timestamp verdict at all.
    CamFrame& h = frame(2, 71, 71 * kFrameNs, Request({2}, std::nullopt, 1000, 1));
    EXPECT_TRUE(mHelper->syncResultCheck(h.in, &h.out));
    EXPECT_FALSE(h.syncResult().has_value());
    expectWritten(h, 2);
    EXPECT_TRUE(mLog->androidMatching("", "RyxCam/SyncQueue").empty());  // no rendezvous

    // The same camera without a start-of-frame time cannot be master.
    CamFrame& g = frame(2, 72, 0, req);
    EXPECT_FALSE(mHelper->syncResultCheck(g.in, &g.out));
    EXPECT_FALSE(g.halMaster().has_value());
}

// --- the verdict read back from the result ---------------------------------------------------

// The slave's drop comes first, so the master completes its frame without waiting.
TEST_F(SessionTest, VerdictFollowsTheResultTagInTheCallersOwnResult) {
    open({0, 2});
    struct Case {
        std::optional<int64_t> preset;
        bool verdict;
    };
    int frameNo = 80;
    for (Case c :
         {Case{std::nullopt, true}, Case{0, true}, Case{1, true}, Case{3, true}, Case{2, false}}) {
        Request req{{0, 2}, 0, std::nullopt /* no tolerance: nothing is judged */, 1};
        CamFrame& master = frame(0, frameNo, frameNo * kFrameNs, req);
        CamFrame& slave = frame(2, frameNo, frameNo * kFrameNs, req);
        if (c.preset) {
            ryxtest::setOne<int64_t>(master.halDynamic, RYX_FRAMESYNC_RESULT, *c.preset);
        }
        mHelper->notifyDrop(slave.in);
        bool verdict = !c.verdict;
        mThreads.emplace_back([&] { verdict = mHelper->syncResultCheck(master.in, &master.out); });
        joinAll();
        EXPECT_EQ(verdict, c.verdict) << "preset " << c.preset.value_or(-1);
        EXPECT_EQ(master.syncResult(), c.preset);  // untouched without a tolerance
        expectWritten(master, 0);
        ++frameNo;
    }
}

// --- bad input ----------------------------------------------------------------------------------

void expectErrorLine(LogCapture const& log, std::string const& message) {
    auto lines = log.androidMatching(message);
    ASSERT_EQ(lines.size(), 1u) << message;
    EXPECT_EQ(lines[0].priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(lines[0].tag, "RyxCam/SyncHelper");
    int line = 0;
    std::string rest;
    ASSERT_TRUE(unframe(lines[0].text, line, rest)) << lines[0].text;
    std::string const n = std::to_string(line);
    EXPECT_EQ(rest, "[syncResultCheck] " + message + " (syncResultCheck){#" + n +
                        ":hw/camsys/cam_coordinator/SyncHelper/SyncHelper}");
}

TEST_F(SessionTest, BadInputIsRefusedWithItsErrorLineAndWritesNothing) {
    open({0, 2});
    mLog->clear();
    Request req{{0, 2}, 0, 1000, 1};
    CamFrame& f = frame(0, 90, 90 * kFrameNs, req);

    SyncResultInputParams noControl = f.in;
    noControl.HalControl = nullptr;
    EXPECT_FALSE(mHelper->syncResultCheck(noControl, &f.out));
    expectErrorLine(*mLog, "input.HalControl is nullptr");

    EXPECT_FALSE(mHelper->syncResultCheck(f.in, nullptr));
    expectErrorLine(*mLog, "output is nullptr");

    NSCam::IMetadata* hal = f.out.HalDynamic;
    f.out.HalDynamic = nullptr;
    EXPECT_FALSE(mHelper->syncResultCheck(f.in, &f.out));
    char expected[128];
    std::snprintf(expected, sizeof(expected),
                  "output->HalDynamic(%p) or output->AppDynamic(%p) is nullptr",
                  static_cast<void*>(nullptr), static_cast<void*>(f.out.AppDynamic));
    expectErrorLine(*mLog, expected);
    f.out.HalDynamic = hal;

    f.out.AppDynamic = nullptr;
    EXPECT_FALSE(mHelper->syncResultCheck(f.in, &f.out));
    f.out.AppDynamic = &f.appDynamic;

    EXPECT_EQ(f.halDynamic.count(), 0u);
    EXPECT_EQ(f.appDynamic.count(), 0u);
    EXPECT_TRUE(mLog->androidMatching("", "RyxCam/SyncQueue").empty());

    // None of it left a trace: the frame still meets its partner.
    CamFrame& partner = frame(2, 90, 90 * kFrameNs, req);
    std::vector<bool> v = runFrame({&f, &partner});
    EXPECT_TRUE(v[0]);
    EXPECT_TRUE(v[1]);
}

// --- crops of a frame in flight ---------------------------------------------------------------

TEST_F(SessionTest, CropSetChangingInFlightKeepsTheFrameOnItsFirstSet) {
    open({0, 2});
    auto helper = std::dynamic_pointer_cast<SyncHelper>(mHelper);
    ASSERT_NE(helper, nullptr);
    MRect const a0(0, 0, 1000, 750), a2(20, 20, 800, 600);
    MRect const b0(10, 10, 500, 375), b2(30, 30, 400, 300);
    EXPECT_TRUE(mHelper->setSensorCropRegion(100, {{0, a0}, {2, a2}}));

    auto f = frameSet(110, 0);
    EXPECT_TRUE(helper->getSensorCropRegion(f[0]->in));
    bool v0 = false;
    waitIn(*f[0], v0);
    EXPECT_TRUE(mHelper->setSensorCropRegion(101, {{0, b0}, {2, b2}}));  // while 110 is in flight
    EXPECT_TRUE(helper->getSensorCropRegion(f[1]->in));
    bool v1 = mHelper->syncResultCheck(f[1]->in, &f[1]->out);
    joinAll();
    EXPECT_TRUE(v0);
    EXPECT_TRUE(v1);
    EXPECT_EQ(f[0]->cropOverride(), a0);
    EXPECT_EQ(f[1]->cropOverride(), a2);
    EXPECT_TRUE(mLog->androidHas("[110] souReq: 101, crop override: (20, 20, 800x600)"));

    auto g = frameSet(111, 0);
    EXPECT_TRUE(helper->getSensorCropRegion(g[0]->in));
    EXPECT_TRUE(helper->getSensorCropRegion(g[1]->in));
    EXPECT_EQ(g[0]->cropOverride(), b0);
    EXPECT_EQ(g[1]->cropOverride(), b2);
    for (bool v : runFrame(g)) {
        EXPECT_TRUE(v);
    }
}

// --- lifecycle ----------------------------------------------------------------------------------

TEST_F(SessionTest, FactoryLogsTheCropDecisionAndReleaseOnLastReference) {
    open({0, 2});
    EXPECT_TRUE(mLog->androidHas("[SyncHelper] needCropReplace(1)"));
    EXPECT_TRUE(mHelper->reassignLicense(0));
    EXPECT_TRUE(mHelper->hasOtherUser(-1));
    std::shared_ptr<ISyncHelper> second = mHelper;
    mHelper.reset();
    EXPECT_FALSE(mLog->androidHas("[~SyncHelper] release"));
    second.reset();
    EXPECT_TRUE(mLog->androidHas("[~SyncHelper] release"));
}

}  // namespace
}  // namespace facadetest
