// libFuzzer target: real camera threads whose calls enter one helper in an order the input picks.
//
// Input layout (front to back; an exhausted input reads as zeros):
//   header  camera count (2-4), then per frame 0..7 its sync group (camera bit mask), master,
//           timestamp mode and tolerance
//   steps   two bytes each: the camera that makes the next call and the call, then its arguments
//
// One thread per camera (sensor ids 0..N-1). A small scheduler hands one call at a time to a
// camera thread and waits until that call returns or is parked in the queue's rendezvous. Parking
// is observed, not guessed: the queue logs "wait(" while it still holds the element's lock, just
// before its condition wait, and the logger installed here runs on the calling thread and marks
// that camera as waiting. A camera that is waiting skips the steps given to it. A woken camera
// finishes its call on its own; the order of its tail against the next call is the OS's.
//
// The calls keep to the call contract: a camera only enters frames whose group holds it, every
// camera of a frame names the same group, and a camera gives one result per frame (a check or a
// drop), so the fatal flows cannot arise.
//
// Checked per schedule (a failure prints the calls in order and aborts):
//   - a call on a frame of two or more cameras that starts after a flush of that frame returned is
//   not passed;
//   - a slave's first call on a frame that starts after the frame's master dropped it is not
//     passed;
//   - a frame no drop, flush or sensor leave touched, entered once by each camera of its group,
//     gets one verdict and, when passed, one master;
//   - no pass carries RYX_FRAMESYNC_RESULT 2;
//   - cameras still parked at the end (the schedule left a camera out; traced, not a failure)
//     are all released by flushing their frames.
// SYNCHELPER_FUZZ_TRACE=1 prints the calls of every input.

#include "ISyncHelper.h"
#include "SyncHelper.h"
#include "SyncHelperInspector.h"
#include "SyncMetaTags.h"
#include "SyncQueue.h"

#include <NSCam/IMetadata.h>
#include <NSCam/ULogger.h>

#include <algorithm>
#include <condition_variable>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace {

using NSCam::IMetadata;
using NSCam::MRect;
using NSCam::camsys::camcoordinator::ISyncHelper;
using NSCam::camsys::camcoordinator::MutexLock;
using NSCam::camsys::camcoordinator::SyncElement;
using NSCam::camsys::camcoordinator::SyncHelper;
using NSCam::camsys::camcoordinator::SyncHelperInspector;
using NSCam::camsys::camcoordinator::SyncQueue;
using NSCam::camsys::camcoordinator::SyncResultInputParams;
using NSCam::camsys::camcoordinator::SyncResultOutputParams;
namespace tags = NSCam::camsys::camcoordinator;

constexpr int kPlans = 8;       // frame f follows plan f mod 8
constexpr int kFrameSpan = 41;  // frames -1..39: enough distinct frames to fill every record
constexpr int kBurst = 22;      // one more than the drop queue and the flush list hold
constexpr int kMaxSteps = 64;
bool const gTrace = std::getenv("SYNCHELPER_FUZZ_TRACE") != nullptr;

class Reader {
  public:
    Reader(uint8_t const* data, size_t size) : mData(data), mSize(size) {}
    bool empty() const { return mPos >= mSize; }
    uint8_t u8() { return mPos < mSize ? mData[mPos++] : 0; }

  private:
    uint8_t const* mData;
    size_t mSize;
    size_t mPos = 0;
};

struct FramePlan {
    unsigned group = 0;  // bit i: camera i is a sync target
    int master = 0;
    int mode = 0;
    long tolerance = 0;
};

enum class State { Idle, Running, Waiting };

struct Camera {
    int id = 0;
    State state = State::Idle;  // guarded by Scheduler::mMutex
    int frame = -1;             // frame of the call in flight
    std::function<void()> call;
    std::thread thread;
};

// Ordered log of the schedule, printed on failure.
std::vector<std::string> gTraceLines;
std::mutex gTraceMutex;

void trace(char const* fmt, ...) __attribute__((format(printf, 1, 2)));
void trace(char const* fmt, ...) {
    char buf[256];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(buf, sizeof(buf), fmt, args);
    va_end(args);
    std::lock_guard<std::mutex> lock(gTraceMutex);
    gTraceLines.emplace_back(buf);
    if (gTrace)
        std::fprintf(stderr, "%s\n", buf);
}

[[noreturn]] void fail(char const* what) {
    std::lock_guard<std::mutex> lock(gTraceMutex);
    std::fprintf(stderr, "schedule check failed: %s\ncalls in order:\n", what);
    for (auto const& line : gTraceLines)
        std::fprintf(stderr, "  %s\n", line.c_str());
    std::abort();
}

// A plain loop, not strstr: libFuzzer hooks strstr and records its arguments in a table shared
// by all threads without synchronisation, which ThreadSanitizer rightly reports.
bool has(char const* text, char const* word) {
    for (; *text != '\0'; ++text) {
        size_t i = 0;
        while (word[i] != '\0' && text[i] == word[i])
            ++i;
        if (word[i] == '\0')
            return true;
    }
    return false;
}

class Scheduler;
thread_local Camera* tCamera = nullptr;
Scheduler* gScheduler = nullptr;

class Scheduler {
  public:
    explicit Scheduler(int cameras) : mCameras(cameras) {
        for (int i = 0; i < cameras; ++i) {
            mCameras[i].id = i;
            mCameras[i].thread = std::thread([this, i] { loop(mCameras[i]); });
        }
    }
    ~Scheduler() {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mQuit = true;
        }
        mCv.notify_all();
        for (auto& c : mCameras)
            c.thread.join();
    }

    // Runs `call` on camera `cam` unless it is parked; returns once it returned or parked.
    bool run(int cam, int frame, std::function<void()> call) {
        std::unique_lock<std::mutex> lock(mMutex);
        Camera& c = mCameras[cam];
        if (c.state != State::Idle)
            return false;
        c.call = std::move(call);
        c.frame = frame;
        c.state = State::Running;
        mCv.notify_all();
        mCv.wait(lock, [this] { return settledLocked(); });
        return true;
    }

    // Frames on which a camera is parked.
    std::vector<std::pair<int, int>> parked() {
        std::lock_guard<std::mutex> lock(mMutex);
        std::vector<std::pair<int, int>> out;
        for (auto const& c : mCameras)
            if (c.state == State::Waiting)
                out.emplace_back(c.id, c.frame);
        return out;
    }

    void awaitAllIdle() {
        std::unique_lock<std::mutex> lock(mMutex);
        mCv.wait(lock, [this] {
            for (auto const& c : mCameras)
                if (c.state != State::Idle)
                    return false;
            return true;
        });
    }

    // From the logger, on the calling camera's thread.
    void onLogLine(char const* text) {
        Camera* c = tCamera;
        if (c == nullptr)
            return;
        bool parks = has(text, "wait(");
        bool wakes = has(text, "wait-");
        if (!parks && !wakes)
            return;
        std::lock_guard<std::mutex> lock(mMutex);
        c->state = parks ? State::Waiting : State::Running;
        mCv.notify_all();
    }

  private:
    bool settledLocked() const {
        for (auto const& c : mCameras)
            if (c.state == State::Running)
                return false;
        return true;
    }

    void loop(Camera& c) {
        tCamera = &c;
        std::unique_lock<std::mutex> lock(mMutex);
        for (;;) {
            mCv.wait(lock, [&] { return mQuit || c.state == State::Running; });
            if (c.state != State::Running)
                return;
            auto call = std::move(c.call);
            lock.unlock();
            call();
            lock.lock();
            c.state = State::Idle;
            mCv.notify_all();
        }
    }

    std::mutex mMutex;
    std::condition_variable mCv;
    bool mQuit = false;
    std::vector<Camera> mCameras;
};

// Logs the library's statements into nowhere, after letting the scheduler see parking lines.
class SchedulingULogger : public NSCam::Utils::ULog::ULogger {
  public:
    void output(uint32_t, const char*, uint32_t, const char* text, int) override {
        if (gScheduler != nullptr)
            gScheduler->onLogLine(text);
    }
    void flush(int) override {}
};

// One call's records and what it returned.
struct Call {
    IMetadata halControl, halDynamic, appDynamic;
    SyncResultInputParams in;
    SyncResultOutputParams out;
    int step = 0;
    bool verdict = false;
    bool done = false;
    bool flushed = false;  // the frame was in the flush list when the call started
};

struct Run {
    std::shared_ptr<ISyncHelper> helper;
    SyncHelper* impl = nullptr;
    std::vector<FramePlan> plan;
    int cameras = 0;
    std::vector<std::unique_ptr<Call>> checks;  // syncResultCheck calls
    std::vector<int> flushList;                 // the queue's flush list, 21 frames at most
    std::set<int> framesUsed;                   // every frame a step named
    std::set<std::pair<int, int>> entered;      // (camera, frame) results given, one each
    bool burst = false;                         // a burst spanned more frames than queues keep
    std::map<int, int> masterDropAt;            // frame -> step of its first master drop
    std::map<int, bool> touched;                // frame -> a drop, flush or leave reached it
};

FramePlan const& planOf(Run const& run, int frame) {
    return run.plan[static_cast<size_t>(((frame % kPlans) + kPlans) % kPlans)];
}

std::unique_ptr<Call> makeCall(Run const& run, int cam, int frame, int step, uint8_t ts) {
    auto c = std::make_unique<Call>();
    FramePlan const& p = planOf(run, frame);
    IMetadata::IEntry ids(tags::RYX_FRAMESYNC_ID);
    for (int i = 0; i < run.cameras; ++i)
        if ((p.group & (1u << i)) && i != cam)
            ids.push_back(i);
    c->halControl.update(tags::RYX_FRAMESYNC_ID, ids);
    IMetadata::setEntry<int>(&c->halControl, tags::RYX_FRAMESYNC_REQUIRED, 1);
    IMetadata::setEntry<int>(&c->halControl, tags::RYX_DUALZOOM_REAL_MASTER, p.master);
    IMetadata::setEntry<int>(&c->halControl, tags::RYX_FRAMESYNC_MODE, p.mode);
    IMetadata::setEntry<long>(&c->halControl, tags::RYX_FRAMESYNC_TOLERANCE, p.tolerance);
    // The middleware's master/slave order travels with the frame into its SyncData.
    if (ts & 0x80) {
        IMetadata::IEntry order(tags::RYX_MW_MASTER_SLAVE_LIST);
        order.push_back(p.master);
        c->halControl.update(tags::RYX_MW_MASTER_SLAVE_LIST, order);
    }
    c->in.m_id = cam;
    c->in.frameNo = frame;
    c->in.requestNo = static_cast<int16_t>(frame);
    // 0 is a missing timestamp: the master-camera updater refuses the frame.
    c->in.sofTimeStamp = ts == 0 ? 0 : 1000000000000 + int64_t{ts} * 1000000;
    c->in.expTimeStamp = c->in.sofTimeStamp;
    c->in.HalControl = &c->halControl;
    c->out.HalDynamic = &c->halDynamic;
    c->out.AppDynamic = &c->appDynamic;
    c->step = step;
    return c;
}

// The frame the camera asks for, or the next one whose group holds the camera; -1 if none.
int frameFor(Run const& run, int cam, int wanted) {
    for (int f = wanted; f < wanted + kPlans; ++f) {
        if (planOf(run, f).group & (1u << cam))
            return f;
    }
    return -99;
}

// The queue's arrival record keeps 20 frames: a full record drops its oldest before every arrival
// (even one of a frame it holds) and aborts when that frame is still live, which the call
// contract rules out. Between steps no thread changes the record (a woken camera's tail does not
// touch it), so the record read here is the one the next call meets; an arrival is held back
// while it would push out a frame a camera waits on.
bool mayRecord(Run& run, Scheduler& sched) {
    auto const record = SyncHelperInspector::queue(*run.impl)->arrivedSnapshot();
    if (record.size() < SyncQueue::kMaxArrivedFrames)
        return true;
    for (auto const& parked : sched.parked())
        if (parked.second == record.front().first)
            return false;
    return true;
}

// A drop by input: the master's drops the frame, a slave's counts as its arrival.
bool dropStep(Run& run, Scheduler& sched, int cam, int frame, int stepNo, uint8_t arg) {
    auto c = std::shared_ptr<Call>(makeCall(run, cam, frame, stepNo, arg));
    bool const master = planOf(run, frame).master == cam;
    trace("#%d cam%d %s drop f%d", stepNo, cam, master ? "master" : "slave", frame);
    ISyncHelper* h = run.helper.get();
    if (!sched.run(cam, frame, [c, h] { h->notifyDrop(c->in); }))
        return false;
    run.touched[frame] = true;
    if (master && frame >= 0)  // the drop queue refuses negative frames
        run.masterDropAt.emplace(frame, stepNo);
    return true;
}

bool flushStep(Run& run, Scheduler& sched, int cam, int frame, int stepNo) {
    trace("#%d cam%d flush f%d", stepNo, cam, frame);
    ISyncHelper* h = run.helper.get();
    if (!sched.run(cam, frame, [h, frame] {
            if (!h->notifyDrop(frame, 0))
                fail("flush returned false");
        }))
        return false;
    run.touched[frame] = true;
    auto& list = run.flushList;
    if (std::find(list.begin(), list.end(), frame) == list.end()) {
        if (list.size() >= 21)
            list.erase(list.begin());
        list.push_back(frame);
    }
    return true;
}

// One camera over kBurst successive frames of its groups: flushes, or its drops (master's or
// slave's as the frame's plan says), so that the queue's records reach their limits.
void burstStep(Run& run, Scheduler& sched, int cam, int frame, int stepNo, uint8_t arg) {
    bool const flushes = arg & 1;
    for (int f = frame, done = 0; done < kBurst; ++f) {
        if (!(planOf(run, f).group & (1u << cam)))
            continue;
        ++done;
        if (!flushes && !run.entered.insert({cam, f}).second)
            continue;
        bool const slave = planOf(run, f).master != cam;
        if (!flushes && slave && !mayRecord(run, sched))
            return;
        if (!(flushes ? flushStep(run, sched, cam, f, stepNo)
                      : dropStep(run, sched, cam, f, stepNo, arg)))
            return;
    }
}

void step(Run& run, Scheduler& sched, Reader& r, int stepNo) {
    int cam = r.u8() % run.cameras;
    uint8_t op = r.u8() % 8;
    int frame = frameFor(run, cam, r.u8() % kFrameSpan - 1);
    uint8_t arg = r.u8();
    run.framesUsed.insert(frame);
    run.burst = run.burst || op == 7;
    if (frame == -99)
        op = 8;
    bool const master = frame != -99 && planOf(run, frame).master == cam;
    // A leave counts as the sensor's arrival on each live frame that lists it.
    bool const records = op <= 1 || (op == 2 && !master) || op == 4;
    if ((op <= 2 || op == 7) && !run.entered.insert({cam, frame}).second) {
        trace("#%d cam%d f%d held back: the camera already gave its result for the frame", stepNo,
              cam, frame);
        return;
    }
    if (records && !mayRecord(run, sched)) {
        trace("#%d cam%d f%d held back: it could push a waited-on frame out of the record", stepNo,
              cam, frame);
        return;
    }
    switch (op) {
        case 0:
        case 1: {  // the per-frame check
            run.checks.push_back(makeCall(run, cam, frame, stepNo, arg));
            Call* c = run.checks.back().get();
            c->flushed =
                std::find(run.flushList.begin(), run.flushList.end(), frame) != run.flushList.end();
            ISyncHelper* h = run.helper.get();
            trace("#%d cam%d check f%d", stepNo, cam, frame);
            if (!sched.run(cam, frame, [c, h] {
                    c->verdict = h->syncResultCheck(c->in, &c->out);
                    c->done = true;
                    trace("   cam%d check f%d -> %d", c->in.m_id, c->in.frameNo, c->verdict);
                })) {
                run.checks.pop_back();
                trace("   cam%d parked, step skipped", cam);
            }
            break;
        }
        case 2:
            dropStep(run, sched, cam, frame, stepNo, arg);
            break;
        case 3:
            flushStep(run, sched, cam, frame, stepNo);
            break;
        case 4: {  // the sensor leaves; its next arrival rejoins
            trace("#%d cam%d leaves", stepNo, cam);
            ISyncHelper* h = run.helper.get();
            if (sched.run(cam, -1, [h, cam] { h->notifyDropBySensor(cam); })) {
                for (int f = -1; f < kFrameSpan + kPlans * kBurst; ++f)
                    if (planOf(run, f).group & (1u << cam))
                        run.touched[f] = true;
            }
            break;
        }
        case 5: {  // crops: set for the request, or read for the frame
            auto c = std::shared_ptr<Call>(makeCall(run, cam, frame, stepNo, arg));
            ISyncHelper* h = run.helper.get();
            SyncHelper* impl = run.impl;
            bool set = arg & 1;
            trace("#%d cam%d crop %s f%d", stepNo, cam, set ? "set" : "read", frame);
            sched.run(cam, frame, [c, h, impl, set, arg] {
                if (set) {
                    std::unordered_map<int, MRect> crops;
                    crops[c->in.m_id] = MRect{0, 0, 100 + arg, 100};
                    h->setSensorCropRegion(c->in.requestNo, crops);
                } else {
                    impl->getSensorCropRegion(c->in);
                }
            });
            break;
        }
        case 6: {  // switch flag and face-detection control
            auto c = std::shared_ptr<Call>(makeCall(run, cam, frame, stepNo, arg));
            ISyncHelper* h = run.helper.get();
            trace("#%d cam%d switch flag / fd f%d", stepNo, cam, frame);
            sched.run(cam, frame, [c, h] {
                int32_t flag = h->getSyncSwitchFlag(c->in);
                if (flag != 2048 && (c->in.frameNo >= 0 || flag != 1))
                    fail("switch flag neither 2048 nor, for a negative frame, 1");
                h->isNeedFdControl(&c->halControl);
            });
            break;
        }
        case 7:
            burstStep(run, sched, cam, frame, stepNo, arg);
            break;
        default:
            break;
    }
}

void checkVerdicts(Run const& run) {
    std::map<int, std::vector<Call const*>> byFrame;
    for (auto const& c : run.checks) {
        int f = c->in.frameNo;
        long result = 1;
        IMetadata::getEntry<long>(&c->halDynamic, tags::RYX_FRAMESYNC_RESULT, result);
        if (c->verdict && result == tags::FRAMESYNC_RESULT_FAIL_DROP)
            fail("a pass carries RYX_FRAMESYNC_RESULT 2");
        // A group of one takes the single-camera path, which never consults the queue.
        bool const queued = (planOf(run, f).group & (planOf(run, f).group - 1)) != 0;
        if (queued && c->verdict && c->flushed)
            fail("a call that started after its frame's flush passed");
        byFrame[f].push_back(c.get());
    }
    // With more than 20 frames in play the drop queue may have pruned a frame's entry before
    // every camera of the frame read it.
    bool const dropQueueKept = !run.burst && run.framesUsed.size() <= 20;
    for (auto const& [f, calls] : byFrame) {
        auto md = run.masterDropAt.find(f);
        if (md != run.masterDropAt.end() && dropQueueKept &&
            (planOf(run, f).group & (planOf(run, f).group - 1))) {
            std::map<int, bool> seen;
            for (Call const* c : calls) {
                int cam = c->in.m_id;
                if (cam == planOf(run, f).master || seen[cam])
                    continue;
                seen[cam] = true;
                if (c->step > md->second && c->verdict)
                    fail("a slave's first call after its master dropped the frame passed");
            }
        }
        auto t = run.touched.find(f);
        if (t != run.touched.end() && t->second)
            continue;
        unsigned entered = 0;
        bool once = true;
        for (Call const* c : calls) {
            unsigned bit = 1u << c->in.m_id;
            once = once && !(entered & bit);
            entered |= bit;
        }
        if (!once || entered != planOf(run, f).group || !dropQueueKept)
            continue;
        int master = -2;
        for (Call const* c : calls) {
            if (c->verdict != calls.front()->verdict)
                fail("the cameras of one frame got different verdicts");
            int m = -1;
            IMetadata::getEntry<int>(&c->halDynamic, tags::RYX_DUALZOOM_REAL_MASTER, m);
            if (c->verdict && master != -2 && m != master)
                fail("the cameras of one passed frame name different masters");
            master = m;
        }
    }
}

using Parked = std::vector<std::pair<int, int>>;

// The owner's teardown: with the queue held quiet (its lock taken, as an owner serialises
// clear() with enque()), every frame the queue holds must be valid; clear() then reports and
// releases them all. A camera the scheduler still sees parked may have been woken already and
// not yet run, so its frame need not be live any more.
void clearQueue(Run& run, Parked const& parked) {
    SyncQueue* queue = SyncHelperInspector::queue(*run.impl);
    SyncHelperInspector::queueLock(*queue).lock();
    std::vector<int> live;
    queue->getFrameNoList(&live);
    for (int frame : live) {
        std::shared_ptr<SyncElement> element = queue->getSyncElement(frame);
        if (element == nullptr)
            fail("the queue lists a frame it holds no element for");
        MutexLock lock(element->mLock);
        if (!element->mValid)
            fail("the queue holds an invalidated frame");
        run.touched[frame] = true;
    }
    for (auto const& [cam, frame] : parked)
        trace("end: cam%d left waiting on f%d; clearing the queue", cam, frame);
    queue->clear();
    SyncHelperInspector::queueLock(*queue).unlock();
}

// Once every camera has left: a camera listed for a dropped frame learns of it from its drop
// check.
void checkDropQueue(Run& run) {
    SyncQueue* queue = SyncHelperInspector::queue(*run.impl);
    // No bound on its size to check: frames failed at completion enter it without pruning.
    std::map<int, std::vector<int>> const drops = queue->dropQueueSnapshot();
    if (drops.empty() || drops.begin()->second.empty())
        return;
    SyncResultInputParams in;
    in.frameNo = drops.begin()->first;
    in.m_id = drops.begin()->second.front();
    std::vector<int> dropList;
    MutexLock lock(SyncHelperInspector::queueLock(*queue));
    if (queue->checkSyncQueue(in, &dropList) || dropList != std::vector<int>{in.frameNo})
        fail("a listed camera's drop check did not report its dropped frame");
}

SchedulingULogger gLogger;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    using NSCam::Utils::ULog::ULogger;
    Reader r(data, size);
    gTraceLines.clear();

    // Debug statements on, to the scheduling logger only: it sees the parking line.
    ULogger::install(&gLogger);
    ULogger::sMode = 2;
    ULogger::sDetailsLevel = 5;
    ULogger::sNormalDetailsMask = 0xFFFFFFFFu;

    Run run;
    run.cameras = 2 + r.u8() % 3;
    for (int f = 0; f < kPlans; ++f) {
        FramePlan p;
        p.group = r.u8() & ((1u << run.cameras) - 1);
        p.master = r.u8() % run.cameras;
        p.group |= 1u << p.master;
        uint8_t t = r.u8();
        p.mode = t & 1;
        p.tolerance = static_cast<long>(t >> 1) * 1000000;
        run.plan.push_back(p);
        trace("f%d group 0x%x master %d mode %d tolerance %ld", f, p.group, p.master, p.mode,
              p.tolerance);
    }
    std::unordered_map<unsigned int, NSCam::CameraInfo> info;
    for (int i = 0; i < run.cameras; ++i) {
        NSCam::CameraInfo ci;
        ci.activeArrayRegion = MRect{0, 0, 4000, 3000};
        ci.focalLength = 4.0f + static_cast<float>(i);
        info[static_cast<unsigned>(i)] = ci;
    }
    uint8_t const key = r.u8();
    // The high bit of the session key picks how the owner releases the cameras left waiting.
    bool const teardownByClear = (key & 0x80) != 0;
    run.helper = ISyncHelper::createInstance(key, true, info);
    run.impl = dynamic_cast<SyncHelper*>(run.helper.get());
    if (run.impl == nullptr)
        fail("factory result");

    {
        Scheduler sched(run.cameras);
        gScheduler = &sched;
        for (int s = 0; s < kMaxSteps && !r.empty(); ++s)
            step(run, sched, r, s);

        std::vector<int> flushed = SyncHelperInspector::queue(*run.impl)->flushListSnapshot();
        std::vector<int> expected = run.flushList;
        std::sort(flushed.begin(), flushed.end());
        std::sort(expected.begin(), expected.end());
        if (flushed != expected)
            fail("the queue's flush list is not the 21 frames flushed last");
        // Whoever the schedule left waiting is released by a flush of its frame, or all at once
        // by the owner's clear().
        if (teardownByClear)
            clearQueue(run, sched.parked());
        for (auto const& [cam, frame] : teardownByClear ? Parked{} : sched.parked()) {
            trace("end: cam%d left waiting on f%d; flushing it", cam, frame);
            run.helper->notifyDrop(frame, 0);
            run.touched[frame] = true;
        }
        sched.awaitAllIdle();
        gScheduler = nullptr;
    }
    // Every camera has left: no frame may stay behind in the queue.
    if (SyncHelperInspector::queue(*run.impl)->liveFrameCount() != 0)
        fail("a frame stayed in the queue after every camera left it");
    checkDropQueue(run);
    for (auto const& c : run.checks)
        if (!c->done)
            fail("a call never returned");
    checkVerdicts(run);
    return 0;
}
