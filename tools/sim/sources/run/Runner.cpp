// The run's driver: one thread per sensor making its rows' calls into the library, paced or in
// trace order, a window of rows between the source and the sink, and the watch for threads
// blocked in the library. The log collector (RunLogCollector.h) and the calls' records
// (CallRecord.h) are units of their own.
#include "sources/run/Runner.h"

#include "sources/run/CallRecord.h"
#include "sources/run/RunLogCollector.h"

#include <ISyncHelper.h>
#include <NSCam/SystemTrace.h>
#include <NSCam/ULogger.h>
#include <SyncHelper.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <thread>
#include <utility>

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ryxsim {

using namespace NSCam::camsys::camcoordinator;
using NSCam::IMetadata;
using NSCam::MRect;
using NSCam::Utils::ULog::ULogger;
namespace SystemTrace = NSCam::Utils::SystemTrace;
using Clock = std::chrono::steady_clock;

namespace {

int64_t threadCpuNs() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

double processCpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + ts.tv_nsec / 1e9;
}

// A stall in which the process used at least this share of one core is still work going on.
constexpr double kBusyShareOfStall = 0.25;

struct SensorState {
    bool finished = false;
    bool inLibrary = false;
    bool awaitingTurn = false;  // ordered runs: waiting for the calls before it in the trace
    bool starving = false;      // waiting for the runner to read more rows
    size_t cursor = 0;          // the first row this thread has not finished with
    size_t row = 0;
    Clock::time_point since;
};

// A row in the runner's window and what its call got back.
struct Slot {
    CallRow row;
    CallOutcome out;
};

// Everything the sensor threads touch. Leaked on purpose when threads stay blocked.
struct Session {
    std::shared_ptr<ISyncHelper> helper;
    std::shared_ptr<SyncHelper> concrete;  // for getSensorCropRegion
    std::mutex mutex;
    std::condition_variable changed;  // rows added, or (ordered runs) a turn passed
    std::condition_variable wake;     // for the runner: rows can be retired or added
    std::map<int, SensorState> sensors;
    // Rows base .. base + window.size() - 1. A slot stays put (a deque keeps its elements in
    // place) until every sensor thread is past it.
    std::deque<Slot> window;
    size_t base = 0;
    bool sourceDone = false;
    size_t callsDone = 0;
    size_t nextTurn = 0;  // ordered runs: the row allowed into the library next
};

size_t const kNoTurn = SIZE_MAX;
// Records of its latest calls a sensor thread keeps alive.
size_t const kKeptRecords = 64;
// Calls between two wake-ups of the runner.
size_t const kWakeEvery = 1024;
// Ordered runs: the row whose call this thread is making.
thread_local size_t tTurn = kNoTurn;

// Ordered runs: the call of row `idx` has returned or is waiting in the rendezvous; the next
// row may enter. Caller holds s.mutex.
void passTurn(Session& s, size_t idx) {
    if (s.nextTurn == idx) {
        ++s.nextTurn;
    }
}

// The next slot of `sensor`, or nullptr once the rows are over. Caller holds s.mutex.
Slot* nextSlot(Session& s, std::unique_lock<std::mutex>& lock, int sensor) {
    SensorState& st = s.sensors[sensor];
    while (true) {
        size_t end = s.base + s.window.size();
        while (st.cursor < end && s.window[st.cursor - s.base].row.sensor != sensor) {
            ++st.cursor;
        }
        if (st.cursor < end) {
            return &s.window[st.cursor - s.base];
        }
        if (s.sourceDone) {
            return nullptr;
        }
        st.starving = true;
        s.wake.notify_one();
        s.changed.wait(lock);
        st.starving = false;
    }
}

// Makes the call of `row` into the library with the metadata of `rec`; returns its verdict.
bool makeCall(Session& s, CallRow const& row, CallRecord& rec) {
    switch (row.kind) {
        case CallKind::Result:
            if (row.getCrop && s.concrete != nullptr) {
                s.concrete->getSensorCropRegion(rec.input);
            }
            return s.helper->syncResultCheck(rec.input, &rec.output);
        case CallKind::Drop:
            return s.helper->notifyDrop(rec.input);
        case CallKind::Flush: {
            int const frame = row.frame;
            int const unused = 0;
            return s.helper->notifyDrop(frame, unused);
        }
        case CallKind::Leave:
            return s.helper->notifyDropBySensor(row.sensor);
        case CallKind::Crop: {
            std::unordered_map<int, MRect> crops(row.crops.begin(), row.crops.end());
            return s.helper->setSensorCropRegion(row.request, crops);
        }
    }
    return false;
}

// The thread's call of row `idx` is about to enter the library (in an ordered run, once it is
// that row's turn).
void enterLibrary(Session& s, int sensor, size_t idx, Slot& slot, bool ordered) {
    std::unique_lock<std::mutex> lock(s.mutex);
    SensorState& st = s.sensors[sensor];
    if (ordered) {
        st.awaitingTurn = true;
        s.changed.wait(lock, [&] { return s.nextTurn == idx; });
        st.awaitingTurn = false;
        tTurn = idx;
    }
    st.inLibrary = true;
    st.row = idx;
    st.since = Clock::now();
    slot.out.started = true;
}

struct CallTimes {
    Clock::time_point start, end;
    int64_t cpuNs;
};

// The call of row `idx` returned: its outcome is stored and the next row may go.
void leaveLibrary(Session& s, int sensor, size_t idx, Slot& slot, CallRecord const& rec,
                  bool verdict, CallTimes const& t, Clock::time_point runStart, bool ordered) {
    bool wakeRunner = false;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        CallOutcome& out = slot.out;
        if (slot.row.kind == CallKind::Result) {
            readBack(rec, out);
        }
        out.returned = true;
        out.verdict = verdict;
        out.startNs =
            std::chrono::duration_cast<std::chrono::nanoseconds>(t.start - runStart).count();
        out.wallNs = std::chrono::duration_cast<std::chrono::nanoseconds>(t.end - t.start).count();
        out.cpuNs = t.cpuNs;
        SensorState& st = s.sensors[sensor];
        st.inLibrary = false;
        st.cursor = idx + 1;
        ++s.callsDone;
        wakeRunner = s.callsDone % kWakeEvery == 0;
        passTurn(s, idx);
        tTurn = kNoTurn;
    }
    if (ordered) {
        s.changed.notify_all();
    }
    if (wakeRunner) {
        s.wake.notify_one();
    }
}

// One sensor's pipeline: its rows' calls in trace order, each paced at its start of frame in a
// realtime run.
void sensorThread(Session& s, int sensor, bool realtime, bool ordered, Clock::time_point start,
                  int64_t firstSofNs) {
    // Named as a pipeline's thread is, for the system trace's task column.
    pthread_setname_np(pthread_self(), ("sensor" + std::to_string(sensor)).substr(0, 15).c_str());
    // A returned call's frame has left the library (the last of its cameras removes it); the
    // records of the latest calls are kept all the same, for a waiter woken spuriously that
    // returns while its frame is still completing.
    std::deque<std::unique_ptr<CallRecord>> recent;
    while (true) {
        Slot* slot = nullptr;
        size_t idx = 0;
        {
            std::unique_lock<std::mutex> lock(s.mutex);
            slot = nextSlot(s, lock, sensor);
            if (slot == nullptr) {
                s.sensors[sensor].finished = true;
                break;
            }
            idx = s.sensors[sensor].cursor;
        }
        CallRow const& row = slot->row;
        recent.push_back(std::make_unique<CallRecord>());
        if (recent.size() > kKeptRecords) {
            recent.pop_front();
        }
        CallRecord& rec = *recent.back();
        build(row, rec);
        bool perFrame = row.kind == CallKind::Result || row.kind == CallKind::Drop;
        if (realtime && perFrame && row.sofNs > 0 && row.sofNs >= firstSofNs) {
            std::this_thread::sleep_until(start + std::chrono::nanoseconds(row.sofNs - firstSofNs));
        }
        enterLibrary(s, sensor, idx, *slot, ordered);
        CallTimes t{Clock::now(), {}, threadCpuNs()};
        bool verdict = makeCall(s, row, rec);
        t.cpuNs = threadCpuNs() - t.cpuNs;
        t.end = Clock::now();
        leaveLibrary(s, sensor, idx, *slot, rec, verdict, t, start, ordered);
    }
    s.wake.notify_one();
}

// Reads up to `count` rows of the source.
std::vector<Slot> readRows(RowSource& rows, size_t count, bool& ended) {
    std::vector<Slot> out;
    Slot slot;
    while (out.size() < count && !(ended = !rows.next(slot.row))) {
        out.push_back(slot);
    }
    return out;
}

}  // namespace

namespace {

// One run: the helper and the sensor threads, the window of rows between the source and the
// sink, and the watch for threads blocked in the library.
class RunDriver {
  public:
    RunDriver(RowSource& rows, CallSink& sink, RunOptions const& options)
        : mRows(rows),
          mSink(sink),
          mOptions(options),
          mSession(std::make_unique<Session>()),
          mS(*mSession) {}

    RunResult run() {
        setUp();
        size_t head = runHeadCrops();
        fillWindow(head);
        startThreads();
        supervise();
        mResult.wallSeconds = std::chrono::duration<double>(Clock::now() - mStart).count();
        mResult.cpuSeconds = processCpuSeconds() - mCpu0;
        return mResult.blocked.empty() ? finishClean() : finishBlocked();
    }

  private:
    // The logger that hears the library (and, in an ordered run, passes the turn when a call
    // starts to wait), and a fresh helper for the session.
    void setUp() {
        std::unordered_map<unsigned int, NSCam::CameraInfo> info;
        for (auto const& c : mRows.session().cameras) {
            NSCam::CameraInfo ci;
            ci.activeArrayRegion = c.activeArray;
            ci.focalLength = c.focalLength;
            info[static_cast<unsigned int>(c.id)] = ci;
        }
        mDetailsLevel = ULogger::sDetailsLevel;
        std::function<void()> onWait;
        if (mOptions.ordered) {
            ULogger::sDetailsLevel = std::max<uint32_t>(mDetailsLevel, 5);
            onWait = [&s = mS] {
                {
                    std::lock_guard<std::mutex> lock(s.mutex);
                    if (tTurn != kNoTurn) {
                        passTurn(s, tTurn);
                    }
                }
                s.changed.notify_all();
            };
        }
        mCollector = std::make_unique<RunLogCollector>(mOptions.logcat, mDetailsLevel, onWait);
        mPreviousLogger = ULogger::install(mCollector.get());
        if (mOptions.systemTrace != nullptr) {
            mTraceWriter = std::make_unique<SystemTrace::AtraceTextWriter>(*mOptions.systemTrace);
            mPreviousTraceWriter = SystemTrace::install(mTraceWriter.get());
            SystemTrace::setEnabledTags(SystemTrace::kTagCamera);
        }
        mS.helper = ISyncHelper::createInstance(mRows.session().sessionKey,
                                                mRows.session().allowCropReplace, info);
        mS.concrete = std::dynamic_pointer_cast<SyncHelper>(mS.helper);
    }

    // Hands the calls of `slots` (rows first .. first + size - 1) to the sink, after what the
    // library logged so far.
    void deliver(size_t first, std::vector<Slot> const& slots) {
        for (auto const& a : mCollector->take()) {
            mSink.logged(a);
        }
        for (size_t i = 0; i < slots.size(); ++i) {
            mSink.call(first + i, slots[i].row, slots[i].out);
        }
    }

    // Crop sets at the head of the trace, before any frame call, are the session's initial
    // crops: made here, before the sensor threads start, so that every sensor's first frames
    // see them. Returns how many rows they took.
    size_t runHeadCrops() {
        size_t head = 0;
        mEnded = !mRows.next(mFirst.row);
        while (!mEnded && mFirst.row.kind == CallKind::Crop) {
            std::unordered_map<int, MRect> crops(mFirst.row.crops.begin(), mFirst.row.crops.end());
            mFirst.out.started = mFirst.out.returned = true;
            mFirst.out.verdict = mS.helper->setSensorCropRegion(mFirst.row.request, crops);
            deliver(head++, {mFirst});
            mFirst = Slot{};
            mEnded = !mRows.next(mFirst.row);
        }
        return head;
    }

    void fillWindow(size_t head) {
        if (!mEnded) {
            mS.window.push_back(mFirst);
            for (auto& more : readRows(mRows, kRunWindowCalls - 1, mEnded)) {
                mS.window.push_back(std::move(more));
            }
        }
        mS.sourceDone = mEnded;
        mS.base = head;
        for (auto const& w : mS.window) {
            if (w.row.sofNs > 0) {
                mFirstSof = std::min(mFirstSof, w.row.sofNs);
            }
        }
        for (int id : mRows.sensors()) {
            mS.sensors[id].cursor = head;
        }
        mS.callsDone = head;
        mS.nextTurn = head;
    }

    void startThreads() {
        mCpu0 = processCpuSeconds();
        mStart = Clock::now();
        for (auto const& [id, st] : mS.sensors) {
            mThreads.emplace_back(sensorThread, std::ref(mS), id, mOptions.realtime,
                                  mOptions.ordered, mStart, mFirstSof);
        }
    }

    // Rows every thread is past go to the sink; the window is topped up from the source.
    void retireAndRefill(std::unique_lock<std::mutex>& lock) {
        size_t low = mS.base + mS.window.size();
        for (auto const& [id, st] : mS.sensors) {
            low = st.finished ? low : std::min(low, st.cursor);
        }
        std::vector<Slot> done;
        size_t first = mS.base;
        while (mS.base < low) {
            done.push_back(std::move(mS.window.front()));
            mS.window.pop_front();
            ++mS.base;
        }
        size_t room = kRunWindowCalls - mS.window.size();
        bool readMore = !mS.sourceDone && room >= kRunWindowCalls / 4;
        if (done.empty() && !readMore) {
            return;
        }
        lock.unlock();
        deliver(first, done);
        bool sourceEnded = false;
        std::vector<Slot> more;
        if (readMore) {
            more = readRows(mRows, room, sourceEnded);
        }
        lock.lock();
        for (auto& m : more) {
            mS.window.push_back(std::move(m));
        }
        mS.sourceDone = mS.sourceDone || sourceEnded;
        if (readMore) {
            mS.changed.notify_all();
        }
    }

    // Every unfinished thread inside the library (or waiting for a turn or for rows that a full
    // window cannot give) since `mLastChange` for the deadline, with the process idle: blocked.
    bool blocked(bool allStuck, bool allFinished) {
        auto now = Clock::now();
        if (mS.callsDone != mLastDone) {
            mLastDone = mS.callsDone;
            mLastChange = now;
            mCpuAtChange = processCpuSeconds();
        }
        auto const deadline = std::chrono::duration<double>(mOptions.deadlineSeconds);
        if (!allStuck || allFinished || now - mLastChange < deadline) {
            return false;
        }
        // Threads parked in the library's waits use no CPU. A stall during which the process
        // still worked (a long rehash of the library's crop tables under its lock, say) is slow
        // progress, not a block: the deadline starts again.
        if (processCpuSeconds() - mCpuAtChange >=
            kBusyShareOfStall * std::chrono::duration<double>(now - mLastChange).count()) {
            mLastChange = now;
            mCpuAtChange = processCpuSeconds();
            return false;
        }
        for (auto const& [id, st] : mS.sensors) {
            if (st.inLibrary) {
                Slot const& w = mS.window[st.row - mS.base];
                mResult.blocked.push_back({id, st.row,
                                           std::chrono::duration<double>(now - st.since).count(),
                                           w.row.kind, w.row.frame, w.row.request});
            }
        }
        return true;
    }

    void reportProgress(std::unique_lock<std::mutex>& lock) {
        auto now = Clock::now();
        if (!mOptions.progress || now - mLastProgress < kProgressEvery) {
            return;
        }
        mLastProgress = now;
        RunProgress p{mS.callsDone, std::max(mOptions.expectedCalls, mS.callsDone),
                      std::chrono::duration<double>(now - mStart).count()};
        lock.unlock();
        mOptions.progress(p);
        lock.lock();
    }

    void supervise() {
        std::unique_lock<std::mutex> lock(mS.mutex);
        mLastDone = mS.callsDone;
        mLastChange = Clock::now();
        mCpuAtChange = processCpuSeconds();
        mLastProgress = mLastChange - kProgressEvery;
        while (true) {
            retireAndRefill(lock);
            bool allFinished = true;
            bool allStuck = true;
            bool full = mS.window.size() >= kRunWindowCalls;
            for (auto const& [id, st] : mS.sensors) {
                allFinished = allFinished && st.finished;
                allStuck = allStuck && (st.finished || st.inLibrary || st.awaitingTurn ||
                                        (st.starving && full));
            }
            if ((allFinished && mS.window.empty()) || blocked(allStuck, allFinished)) {
                break;
            }
            reportProgress(lock);
            if (allFinished || (!mS.sourceDone && mS.window.size() < kRunWindowCalls / 2)) {
                continue;  // rows to retire or to read right away
            }
            mS.wake.wait_for(lock, kProgressEvery);
        }
    }

    // The blocked threads still use the helper, the window, the records and the collector:
    // leave them. The calls after them were never made.
    RunResult finishBlocked() {
        std::vector<Slot> rest;
        size_t first = 0;
        {
            std::lock_guard<std::mutex> lock(mS.mutex);
            rest.assign(mS.window.begin(), mS.window.end());
            first = mS.base;
            mResult.returned = mS.callsDone;
        }
        for (auto& t : mThreads) {
            t.detach();
        }
        deliver(first, rest);
        first += rest.size();
        bool sourceEnded = mS.sourceDone;
        while (!sourceEnded) {
            rest = readRows(mRows, kRunWindowCalls, sourceEnded);
            deliver(first, rest);
            first += rest.size();
        }
        mCollector.release();
        mSession.release();
        stopTracing();
        mTraceWriter.release();  // a blocked thread may still be about to write
        return mResult;
    }

    RunResult finishClean() {
        for (auto& t : mThreads) {
            t.join();
        }
        mResult.returned = mS.callsDone;
        mS.concrete.reset();
        mS.helper.reset();
        stopTracing();
        ULogger::install(mPreviousLogger);
        ULogger::sDetailsLevel = mDetailsLevel;
        deliver(mS.base, {});
        return mResult;
    }

    void stopTracing() {
        if (mTraceWriter) {
            SystemTrace::setEnabledTags(0);
            SystemTrace::install(mPreviousTraceWriter);
        }
    }

    static constexpr std::chrono::milliseconds kProgressEvery{100};

    RowSource& mRows;
    CallSink& mSink;
    RunOptions const& mOptions;
    std::unique_ptr<Session> mSession;
    Session& mS;
    std::unique_ptr<RunLogCollector> mCollector;
    ULogger* mPreviousLogger = nullptr;
    std::unique_ptr<SystemTrace::AtraceTextWriter> mTraceWriter;
    SystemTrace::Writer* mPreviousTraceWriter = nullptr;
    uint32_t mDetailsLevel = 0;
    RunResult mResult;
    Slot mFirst;
    bool mEnded = false;
    int64_t mFirstSof = INT64_MAX;
    std::vector<std::thread> mThreads;
    Clock::time_point mStart, mLastChange, mLastProgress;
    double mCpu0 = 0, mCpuAtChange = 0;
    size_t mLastDone = 0;
};

}  // namespace

RunResult runCalls(RowSource& rows, CallSink& sink, RunOptions const& options) {
    return RunDriver(rows, sink, options).run();
}

RunResult runTrace(Trace const& trace, RunOptions const& options) {
    // Keeps every outcome and anomaly.
    struct Keep : CallSink {
        explicit Keep(size_t rows) { outcomes.resize(rows); }
        void logged(LoggedAnomaly const& a) override { anomalies.push_back(a); }
        void call(size_t index, CallRow const&, CallOutcome const& out) override {
            outcomes.at(index) = out;
        }
        std::vector<CallOutcome> outcomes;
        std::vector<LoggedAnomaly> anomalies;
    } keep(trace.rows.size());
    TraceRows rows(trace);
    RunOptions o = options;
    o.expectedCalls = o.expectedCalls ? o.expectedCalls : trace.rows.size();
    RunResult run = runCalls(rows, keep, o);
    run.outcomes = std::move(keep.outcomes);
    run.logged = std::move(keep.anomalies);
    return run;
}

}  // namespace ryxsim
