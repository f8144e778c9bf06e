// Sessions of two and three sensors driven through the exported interface, each sensor on its
// own thread, as a pipeline drives them. Threads are ordered by what the library logs: a camera
// counts as waiting once the queue has printed its "wait(1)+" line.

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <NSCam/SystemTrace.h>
#include <unistd.h>
#include <algorithm>
#include <map>
#include "Watchdog.h"
#include "facade_session.h"

namespace facadetest {
namespace {

class SessionTest : public FacadeFixture {
  protected:
    void open(std::vector<int> sensors) {
        mSensors = sensors;
        mHelper = ISyncHelper::createInstance(0x5e55, true, infoFor(sensors));
        ASSERT_NE(mHelper, nullptr);
    }

    // Every sensor of the session delivers frame `frameNo` in tolerance, master `master`.
    std::vector<CamFrame*> frameSet(int frameNo, int master) {
        std::vector<CamFrame*> set;
        int64_t sof = frameNo * kFrameNs;
        for (int id : mSensors) {
            set.push_back(&frame(id, frameNo, sof, Request{mSensors, master, 1000, 1}));
            sof += 100000;
        }
        return set;
    }

    // Starts `f`'s check on a thread of its own and returns once the call waits in the queue.
    void waitIn(CamFrame& f, bool& verdict) {
        mThreads.emplace_back(
            [this, &f, &verdict] { verdict = mHelper->syncResultCheck(f.in, &f.out); });
        std::string line = "[syncResultCheck][f" + std::to_string(f.in.frameNo) +
                           "] CamId = " + std::to_string(f.in.m_id) + " wait(1)+";
        if (!mLog->waitForAndroid(line)) {
            ADD_FAILURE() << "camera " << f.in.m_id << " never waited in frame " << f.in.frameNo;
            mHelper->notifyDrop(f.in.frameNo, 0);  // release it so the test can end
        }
    }

    // Runs `f`'s check on a thread of its own to its end (a hang trips the watchdog).
    bool check(CamFrame& f) {
        bool verdict = false;
        mThreads.emplace_back([&] { verdict = mHelper->syncResultCheck(f.in, &f.out); });
        joinAll();
        return verdict;
    }

    // Every camera but the last waits in turn; the last completes the frame on this thread.
    std::vector<bool> runFrame(std::vector<CamFrame*> const& cams) {
        bool verdicts[3] = {};
        for (size_t i = 0; i + 1 < cams.size(); ++i) {
            waitIn(*cams[i], verdicts[i]);
        }
        verdicts[cams.size() - 1] = mHelper->syncResultCheck(cams.back()->in, &cams.back()->out);
        joinAll();
        return std::vector<bool>(verdicts, verdicts + cams.size());
    }

    // A frame every camera passes with every value written.
    void expectPasses(std::vector<CamFrame*> const& cams, int master) {
        EXPECT_EQ(runFrame(cams), std::vector<bool>(cams.size(), true));
        for (CamFrame* f : cams) {
            EXPECT_EQ(f->syncResult(), 0);
            expectWritten(*f, master);
        }
    }

    void joinAll() {
        ryxtest::Watchdog dog("sensor threads", std::chrono::seconds(30));
        dog.join(mThreads);
        mThreads.clear();
    }

    std::vector<int> mSensors;
    std::shared_ptr<ISyncHelper> mHelper;
    std::vector<std::thread> mThreads;
};

// --- drops ------------------------------------------------------------------------------------

TEST_F(SessionTest, DropsByMasterAndSlaveDecideTheOthersVerdicts) {
    open({0, 1, 2});
    // The master drops before the others arrive: they fail without waiting.
    Request trio{{0, 1, 2}, 1, 1000, 1};
    EXPECT_FALSE(mHelper->notifyDrop(frame(1, 20, 20 * kFrameNs, trio).in));
    EXPECT_FALSE(check(frame(0, 20, 20 * kFrameNs, trio)));
    EXPECT_FALSE(check(frame(2, 20, 20 * kFrameNs, trio)));

    // The master drops while the slave waits: the slave is released with a false verdict.
    Request duo{{0, 2}, 0, 1000, 1};
    CamFrame& waiting = frame(2, 21, 21 * kFrameNs, duo);
    bool verdict = true;
    waitIn(waiting, verdict);
    EXPECT_FALSE(mHelper->notifyDrop(frame(0, 21, 21 * kFrameNs, duo).in));
    joinAll();
    EXPECT_FALSE(verdict);
    EXPECT_FALSE(waiting.halMaster().has_value());  // its master never arrived
    EXPECT_FALSE(waiting.out.bMasterCam);

    // A slave's drop counts as its arrival, whether the master waits or comes later.
    CamFrame& master = frame(0, 22, 22 * kFrameNs, duo);
    CamFrame& slave = frame(2, 22, 22 * kFrameNs, duo);
    verdict = false;
    waitIn(master, verdict);
    EXPECT_FALSE(mHelper->notifyDrop(slave.in));
    joinAll();
    EXPECT_TRUE(verdict);
    EXPECT_EQ(master.syncResult(), 0);
    expectWritten(master, 0);
    EXPECT_EQ(slave.written(), 0u);  // the dropped result is not written
    EXPECT_TRUE(mLog->androidHas("Frame:22 Drop slave cam(2), isLastItem(1)!"));

    EXPECT_FALSE(mHelper->notifyDrop(frame(2, 23, 23 * kFrameNs, duo).in));
    EXPECT_TRUE(mLog->androidHas("Frame:23 Drop slave cam(2), isLastItem(0)!"));
    CamFrame& alone = frame(0, 23, 23 * kFrameNs, duo);
    EXPECT_TRUE(check(alone));
    expectWritten(alone, 0);

    expectPasses(frameSet(24, 1), 1);
}

// --- the short-cut, the single-camera path and the verdict read back -------------------------

// Neither an enable without bit 0 nor a frame without RYX_FRAMESYNC_REQUIRED reaches the queue:
// were either queued, its partner would never come and the watchdog would end the test.
TEST_F(SessionTest, ShortCutsPassWithoutTheRendezvous) {
    open({0, 2});
    mLog->clear();
    for (int32_t enable : {0, 2}) {
        CamFrame& f = frame(0, 60 + enable, 60 * kFrameNs, Request{{0, 2}, 0, 1000, 1, enable});
        EXPECT_TRUE(check(f)) << "enable " << enable;
        EXPECT_EQ(f.written(), 0u);
        EXPECT_FALSE(f.out.bMasterCam);
    }
    EXPECT_TRUE(mLog->androidMatching("", "RyxCam/SyncQueue").empty());
    Request on{{0, 2}, 0, 1000, 1, 3};  // bit 0 set: synchronised
    expectPasses({&frame(0, 64, 64 * kFrameNs, on), &frame(2, 64, 64 * kFrameNs, on)}, 0);
    mLog->clear();
    // Without RYX_FRAMESYNC_REQUIRED the writers run at once for the camera alone: its targets
    // are {2, 0}, of which only 2 is here; without sync ids it has no timestamp verdict at all;
    // without a start-of-frame time it cannot be master.
    Request req{{0, 2}, std::nullopt, 1000, 1};
    req.required = false;
    CamFrame &f = frame(2, 70, 70 * kFrameNs, req), &g = frame(2, 72, 0, req);
    CamFrame& h = frame(2, 71, 71 * kFrameNs, Request{{2}, std::nullopt, 1000, 1});
    EXPECT_TRUE(check(f));
    EXPECT_EQ(f.syncResult(), 0);
    expectWritten(f, 2);
    EXPECT_TRUE(check(h));
    EXPECT_FALSE(h.syncResult().has_value());
    expectWritten(h, 2);
    EXPECT_FALSE(check(g));
    EXPECT_FALSE(g.halMaster().has_value());
    EXPECT_TRUE(mLog->androidMatching("", "RyxCam/SyncQueue").empty());
}

// Without a tolerance nothing is judged, so the verdict follows the result tag as the caller's
// own result already holds it. The slave's drop comes first: the master completes alone.
TEST_F(SessionTest, VerdictFollowsTheResultTagInTheCallersOwnResult) {
    open({0, 2});
    int frameNo = 80;
    for (auto [preset, verdict] : std::vector<std::pair<std::optional<int64_t>, bool>>{
             {std::nullopt, true}, {0, true}, {1, true}, {3, true}, {2, false}}) {
        Request req{{0, 2}, 0, std::nullopt, 1};
        CamFrame& master = frame(0, frameNo, frameNo * kFrameNs, req);
        if (preset) {
            ryxtest::setOne<int64_t>(master.halDynamic, RYX_FRAMESYNC_RESULT, *preset);
        }
        mHelper->notifyDrop(frame(2, frameNo, frameNo * kFrameNs, req).in);
        EXPECT_EQ(check(master), verdict) << "preset " << preset.value_or(-1);
        EXPECT_EQ(master.syncResult(), preset);
        expectWritten(master, 0);
        ++frameNo;
    }
}

TEST_F(SessionTest, BadInputIsRefusedWithItsErrorLineAndWritesNothing) {
    open({0, 2});
    Request req{{0, 2}, 0, 1000, 1};
    CamFrame& f = frame(0, 90, 90 * kFrameNs, req);
    auto refused = [&](SyncResultInputParams const& in, SyncResultOutputParams* out,
                       std::string const& message) {
        mLog->clear();
        EXPECT_FALSE(mHelper->syncResultCheck(in, out));
        expectLine(*mLog, ANDROID_LOG_ERROR, "syncResultCheck", message,
                   " (syncResultCheck){#:hw/camsys/cam_coordinator/SyncHelper/SyncHelper}");
    };
    SyncResultInputParams noControl = f.in;
    noControl.HalControl = nullptr;
    refused(noControl, &f.out, "input.HalControl is nullptr");
    refused(f.in, nullptr, "output is nullptr");
    char expected[128];
    for (bool hal : {true, false}) {
        SyncResultOutputParams out = f.out;
        (hal ? out.HalDynamic : out.AppDynamic) = nullptr;
        std::snprintf(expected, sizeof(expected),
                      "output->HalDynamic(%p) or output->AppDynamic(%p) is nullptr",
                      static_cast<void*>(out.HalDynamic), static_cast<void*>(out.AppDynamic));
        refused(f.in, &out, expected);
    }
    EXPECT_EQ(f.written(), 0u);
    EXPECT_TRUE(mLog->androidMatching("", "RyxCam/SyncQueue").empty());
    // None of it left a trace: the frame still meets its partner.
    expectPasses({&f, &frame(2, 90, 90 * kFrameNs, req)}, 0);
}

// --- system trace -------------------------------------------------------------------------------

namespace trace = NSCam::Utils::SystemTrace;

// Records the trace points while it lives, with the camera tag on.
struct TraceRecording {
    TraceRecording() {
        previous = trace::install(&recorder);
        trace::setEnabledTags(trace::kTagCamera);
    }
    ~TraceRecording() {
        trace::setEnabledTags(0);
        trace::install(previous);
    }
    // The markers of each thread, in order, without their "B|pid|" and with "E|pid" as "E".
    std::map<int, std::vector<std::string>> byThread() const {
        std::string const pid = std::to_string(getpid());
        std::map<int, std::vector<std::string>> out;
        for (auto const& l : recorder.lines()) {
            std::string text = l.text;
            if (text.rfind("B|" + pid + "|", 0) == 0) {
                text = text.substr(3 + pid.size());
            } else if (text == "E|" + pid) {
                text = "E";
            }
            out[l.tid].push_back(text);
        }
        return out;
    }
    bool has(std::string const& text) const {
        auto lines = recorder.lines();
        return std::any_of(lines.begin(), lines.end(),
                           [&](auto const& l) { return l.text.find(text) != std::string::npos; });
    }
    trace::RecordingWriter recorder;
    trace::Writer* previous = nullptr;
};

TEST_F(SessionTest, TracePointsGiveEachCallsVerdictOnItsOwnThread) {
    TraceRecording rec;
    open({0, 2});
    std::vector<CamFrame*> in = frameSet(12, 2), out = frameSet(13, 2);
    out[1]->in.sofTimeStamp += 5 * kMs;  // camera 2 starts 5.1 ms after camera 0: RESULT 2
    expectPasses(in, 2);
    EXPECT_EQ(runFrame(out), std::vector<bool>({false, false}));
    mHelper->notifyDrop(14, 0);
    mHelper->notifyDropBySensor(2);
    mHelper.reset();

    std::vector<std::vector<std::string>> calls;
    for (auto const& [tid, markers] : rec.byThread()) {
        calls.push_back(markers);
    }
    // This thread: the session, camera 2's completing calls, the flush, the leave, the end.
    std::vector<std::string> const self = {
        "RyxSync session 24149 cameras 0,2", "E", "RyxSync f12 cam2",
        "C|" + std::to_string(getpid()) + "|RyxSync sof cam0-cam2 us|100",
        "RyxSync f12 cam2 passed; sof 396100000; tolerance 1000 us; mode 1; exp 397100000; asks "
        "master 2; ids 0; required; request 1012; master",
        "E", "C|" + std::to_string(getpid()) + "|RyxSync master|2", "E", "RyxSync f13 cam2",
        "C|" + std::to_string(getpid()) + "|RyxSync sof cam0-cam2 us|5100",
        // The timestamp check's own warning, inside the call that ran it.
        "RyxSync W [r1013:f13], CamId=0, time1=429000000ns, SyncId=2, time2=434100000ns, "
        "tolerance=1000us, syncOK=0",
        "E",
        "RyxSync f13 cam2 out of sync, RESULT 2; sof 434100000; tolerance 1000 us; mode 1; exp "
        "430100000; asks master 2; ids 0; required; request 1013; master",
        "E", "C|" + std::to_string(getpid()) + "|RyxSync master|2", "E", "RyxSync flush f14", "E",
        "RyxSync leave cam2", "E", "RyxSync session 24149 end", "E"};
    std::vector<std::string> const waiter12 = {
        "RyxSync f12 cam0",
        "RyxSync f12 cam0 passed; sof 396000000; tolerance 1000 us; mode 1; exp 397000000; asks "
        "master 2; ids 2; required; request 1012",
        "E", "E"};
    std::vector<std::string> const waiter13 = {
        "RyxSync f13 cam0",
        "RyxSync f13 cam0 out of sync, RESULT 2; sof 429000000; tolerance 1000 us; mode 1; exp "
        "430000000; asks master 2; ids 2; required; request 1013",
        "E", "E"};
    EXPECT_NE(std::find(calls.begin(), calls.end(), self), calls.end());
    EXPECT_NE(std::find(calls.begin(), calls.end(), waiter12), calls.end());
    EXPECT_NE(std::find(calls.begin(), calls.end(), waiter13), calls.end());
    EXPECT_EQ(calls.size(), 3u);
}

TEST_F(SessionTest, WarningsReachTheTraceWithTheLogGatedOffAndNothingWhenTracingIsOff) {
    open({0, 2});
    std::vector<CamFrame*> cams = frameSet(20, 2);
    cams[1]->in.sofTimeStamp = 0;  // no start of frame: the timestamp check warns
    {
        TraceRecording rec;
        NSCam::Utils::ULog::ULogger::sDetailsLevel = 1;  // the log shows errors only
        // The two calls meet in whichever order they come: no debug line to order them by.
        mThreads.emplace_back([&] { mHelper->syncResultCheck(cams[0]->in, &cams[0]->out); });
        mHelper->syncResultCheck(cams[1]->in, &cams[1]->out);
        joinAll();
        NSCam::Utils::ULog::ULogger::sDetailsLevel = 5;
        EXPECT_TRUE(rec.has("|RyxSync W Timestamp not exist! Check flow!"));
        EXPECT_FALSE(mLog->androidHas("Timestamp not exist"));
    }
    TraceRecording silent;
    trace::setEnabledTags(0);
    runFrame(frameSet(21, 2));
    mHelper.reset();
    EXPECT_TRUE(silent.recorder.lines().empty());
}

}  // namespace
}  // namespace facadetest
