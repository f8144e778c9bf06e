#include "Runner.h"

#include <ISyncHelper.h>
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

#include <sys/syscall.h>
#include <unistd.h>

namespace ryxsim {

using namespace NSCam::camsys::camcoordinator;
using NSCam::IMetadata;
using NSCam::MRect;
using NSCam::Utils::ULog::ULogger;
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

// Receives the library's unified-logger lines during a run and keeps the ones the report lists.
// On a fatal statement (the flush before the abort) it says on stderr what stopped the process.
class Collector : public ULogger {
  public:
    // Lines above `maxLevel` (ULog levels: 1 error .. 5 debug) are only watched for the start of
    // a rendezvous wait, which `onWait` hears about on the waiting thread.
    Collector(std::ostream* logcat, uint32_t maxLevel, std::function<void()> onWait)
        : mLogcat(logcat), mMaxLevel(maxLevel), mOnWait(std::move(onWait)) {}

    void output(uint32_t, const char* tag, uint32_t level, const char* text, int) override {
        if (text == nullptr) {
            return;
        }
        // "[name][fN] CamId = C wait(V)+": the calling thread is about to wait.
        if (mOnWait && level == 5 && std::strstr(text, "CamId = ") != nullptr &&
            std::strstr(text, " wait(") != nullptr && std::strstr(text, ")+") != nullptr) {
            mOnWait();
        }
        if (level > mMaxLevel) {
            return;
        }
        if (mLogcat != nullptr) {
            static char const kLevels[] = "?EWIVD";
            writeLogcat(level < 6 ? kLevels[level] : 'V', tag, text);
        }
        LoggedAnomaly a{};
        bool keep = false;
        if (std::strstr(text, "frame inversion") != nullptr) {
            char const* m = std::strstr(text, "masterId(");
            keep = m != nullptr && std::sscanf(m, "masterId(%d), f(%d)", &a.master, &a.frame) == 2;
            a.kind = LoggedAnomaly::Kind::FrameInversion;
        } else if (char const* q = std::strstr(text, "time inversion")) {
            keep = std::sscanf(q, "time inversion, drop directly, change masterId(%d), f(%d)",
                               &a.master, &a.frame) == 2;
            a.kind = LoggedAnomaly::Kind::TimeInversion;
        } else if (std::strstr(text, "Fail to get") != nullptr &&
                   std::strstr(text, "TimeStamp") != nullptr) {
            char const* cam = std::strstr(text, "[cam");
            keep = cam != nullptr && std::sscanf(cam, "[cam%d::f%d]", &a.master, &a.frame) == 2;
            a.kind = LoggedAnomaly::Kind::MissingTimestamp;
        }
        std::lock_guard<std::mutex> lock(mMutex);
        if (level == 1) {
            mLastError = text;
            mLastTag = tag != nullptr ? tag : "";
        }
        if (keep) {
            a.text = text;
            mAnomalies.push_back(a);
        }
    }

    void flush(int reason) override {
        std::string last;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            last = mLastError;
        }
        if (mLogcat != nullptr) {
            // What the abort itself prints on a device.
            writeLogcat('F', mLastTag.c_str(), last.c_str());
            mLogcat->flush();
        }
        std::fprintf(stderr,
                     "synchelper-sim: the library ended the process (fatal %d): %s\n"
                     "synchelper-sim: the call flow of this trace is broken for the library; "
                     "no report was written\n",
                     reason, last.c_str());
        std::fflush(stderr);
    }

    std::vector<LoggedAnomaly> anomalies() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mAnomalies;
    }

  private:
    // One line as logcat -v threadtime prints it, on the wall clock.
    void writeLogcat(char level, const char* tag, const char* text) {
        std::lock_guard<std::mutex> lock(mLogcatMutex);  // lines in time order
        timespec ts{};
        clock_gettime(CLOCK_REALTIME, &ts);
        tm local{};
        localtime_r(&ts.tv_sec, &local);
        char head[64];
        std::snprintf(head, sizeof head, "%02d-%02d %02d:%02d:%02d.%03ld %5d %5d %c ",
                      local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                      ts.tv_nsec / 1000000, static_cast<int>(getpid()),
                      static_cast<int>(syscall(SYS_gettid)), level);
        *mLogcat << head << (tag != nullptr ? tag : "") << ": " << text << '\n';
    }

    std::mutex mMutex;
    std::vector<LoggedAnomaly> mAnomalies;
    std::string mLastError;
    std::string mLastTag;
    std::ostream* mLogcat;
    uint32_t mMaxLevel;
    std::function<void()> mOnWait;
    std::mutex mLogcatMutex;
};

// The records and metadata of one call. The library keeps pointers to them while the call's frame
// is in flight; the sensor thread that made the call owns them (see kKeptRecords).
struct CallRecord {
    IMetadata appControl, halControl, halDynamic, appDynamic;
    SyncResultInputParams input;
    SyncResultOutputParams output;
};

void setInts(IMetadata& meta, uint32_t tag, std::vector<int32_t> const& items) {
    IMetadata::IEntry entry(tag);
    for (int32_t v : items) {
        entry.push_back(v);
    }
    meta.update(tag, entry);
}

void build(CallRow const& row, CallRecord& rec) {
    if (row.syncIds) {
        setInts(rec.halControl, RYX_FRAMESYNC_ID, *row.syncIds);
    }
    if (row.required) {
        IMetadata::setEntry<int32_t>(&rec.halControl, RYX_FRAMESYNC_REQUIRED, 1);
    }
    if (row.enable) {
        IMetadata::setEntry<int32_t>(&rec.halControl, RYX_FRAMESYNC_ENABLE, *row.enable);
    }
    if (row.toleranceUs) {
        IMetadata::setEntry<int64_t>(&rec.halControl, RYX_FRAMESYNC_TOLERANCE, *row.toleranceUs);
    }
    if (row.mode) {
        IMetadata::setEntry<int32_t>(&rec.halControl, RYX_FRAMESYNC_MODE, *row.mode);
    }
    if (row.master) {
        IMetadata::setEntry<int32_t>(&rec.halControl, RYX_DUALZOOM_REAL_MASTER, *row.master);
    }
    if (row.msList) {
        setInts(rec.halControl, RYX_MW_MASTER_SLAVE_LIST, *row.msList);
    }
    if (row.intent) {
        IMetadata::setEntry<uint8_t>(&rec.appControl, CAPTURE_INTENT,
                                     static_cast<uint8_t>(*row.intent));
    }
    rec.input.m_id = row.sensor;
    rec.input.requestNo = row.request;
    rec.input.frameNo = row.frame;
    rec.input.AppControl = &rec.appControl;
    rec.input.HalControl = &rec.halControl;
    rec.input.sofTimeStamp = row.sofNs;
    rec.input.expTimeStamp = row.expNs;
    rec.output.HalDynamic = &rec.halDynamic;
    rec.output.AppDynamic = &rec.appDynamic;
    rec.output.bMasterCam = false;
}

template <typename T>
std::optional<T> read(IMetadata const& meta, uint32_t tag) {
    T v{};
    if (IMetadata::getEntry<T>(&meta, tag, v)) {
        return v;
    }
    return std::nullopt;
}

void readBack(CallRecord const& rec, CallOutcome& out) {
    out.syncResult = read<int64_t>(rec.halDynamic, RYX_FRAMESYNC_RESULT);
    out.halMaster = read<int32_t>(rec.halDynamic, RYX_DUALZOOM_REAL_MASTER);
    out.appMaster = read<int32_t>(rec.appDynamic, RYX_APP_REAL_MASTER);
    out.masterCam = rec.output.bMasterCam;
    out.cropOverride = read<MRect>(rec.halControl, RYX_SENSOR_CROP_OVERRIDE);
    out.activeArray = read<MRect>(rec.appDynamic, PHYSICAL_ACTIVE_ARRAY_REGION);
    out.focalLength = read<float>(rec.appDynamic, LENS_FOCAL_LENGTH);
}

struct SensorState {
    bool finished = false;
    bool inLibrary = false;
    bool awaitingTurn = false;  // ordered runs: waiting for the calls before it in the trace
    size_t row = 0;
    Clock::time_point since;
};

// Everything the sensor threads touch. Leaked on purpose when threads stay blocked.
struct Session {
    std::shared_ptr<ISyncHelper> helper;
    std::shared_ptr<SyncHelper> concrete;  // for getSensorCropRegion
    std::vector<CallOutcome> outcomes;
    std::mutex mutex;
    std::condition_variable changed;
    std::map<int, SensorState> sensors;
    size_t callsDone = 0;
    size_t nextTurn = 0;  // ordered runs: the row allowed into the library next
};

size_t const kNoTurn = SIZE_MAX;
// Records of its latest calls a sensor thread keeps alive.
size_t const kKeptRecords = 64;
// Ordered runs: the row whose call this thread is making.
thread_local size_t tTurn = kNoTurn;

// Ordered runs: the call of row `idx` has returned or is waiting in the rendezvous; the next
// row may enter. Caller holds s.mutex.
void passTurn(Session& s, size_t idx) {
    if (s.nextTurn == idx) {
        ++s.nextTurn;
    }
}

void sensorThread(Session& s, Trace const& trace, int sensor, std::vector<size_t> const& rows,
                  bool realtime, bool ordered, Clock::time_point start, int64_t firstSofNs) {
    // A returned call's frame has left the library (the last of its cameras removes it); the
    // records of the latest calls are kept all the same, for a waiter woken spuriously that
    // returns while its frame is still completing.
    std::deque<std::unique_ptr<CallRecord>> recent;
    for (size_t idx : rows) {
        CallRow const& row = trace.rows[idx];
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
        {
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
            s.outcomes[idx].started = true;
        }
        auto t0 = Clock::now();
        int64_t c0 = threadCpuNs();
        bool verdict = false;
        switch (row.kind) {
            case CallKind::Result:
                if (row.getCrop && s.concrete != nullptr) {
                    s.concrete->getSensorCropRegion(rec.input);
                }
                verdict = s.helper->syncResultCheck(rec.input, &rec.output);
                break;
            case CallKind::Drop:
                verdict = s.helper->notifyDrop(rec.input);
                break;
            case CallKind::Flush: {
                int const frame = row.frame;
                int const unused = 0;
                verdict = s.helper->notifyDrop(frame, unused);
                break;
            }
            case CallKind::Leave:
                verdict = s.helper->notifyDropBySensor(row.sensor);
                break;
            case CallKind::Crop: {
                std::unordered_map<int, MRect> crops(row.crops.begin(), row.crops.end());
                verdict = s.helper->setSensorCropRegion(row.request, crops);
                break;
            }
        }
        int64_t c1 = threadCpuNs();
        auto t1 = Clock::now();
        {
            std::lock_guard<std::mutex> lock(s.mutex);
            CallOutcome& out = s.outcomes[idx];
            if (row.kind == CallKind::Result) {
                readBack(rec, out);
            }
            out.returned = true;
            out.verdict = verdict;
            out.startNs = std::chrono::duration_cast<std::chrono::nanoseconds>(t0 - start).count();
            out.wallNs = std::chrono::duration_cast<std::chrono::nanoseconds>(t1 - t0).count();
            out.cpuNs = c1 - c0;
            s.sensors[sensor].inLibrary = false;
            ++s.callsDone;
            passTurn(s, idx);
            tTurn = kNoTurn;
        }
        s.changed.notify_all();
    }
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        s.sensors[sensor].finished = true;
    }
    s.changed.notify_all();
}

}  // namespace

RunResult runTrace(Trace const& trace, RunOptions const& options) {
    RunResult result;
    auto session = std::make_unique<Session>();
    Session& s = *session;

    std::unordered_map<unsigned int, NSCam::CameraInfo> info;
    for (auto const& c : trace.session.cameras) {
        NSCam::CameraInfo ci;
        ci.activeArrayRegion = c.activeArray;
        ci.focalLength = c.focalLength;
        info[static_cast<unsigned int>(c.id)] = ci;
    }
    s.outcomes.resize(trace.rows.size());
    std::map<int, std::vector<size_t>> perSensor;
    int64_t firstSof = INT64_MAX;
    for (size_t i = 0; i < trace.rows.size(); ++i) {
        perSensor[trace.rows[i].sensor].push_back(i);
        if (trace.rows[i].sofNs > 0) {
            firstSof = std::min(firstSof, trace.rows[i].sofNs);
        }
    }
    for (auto const& [id, rows] : perSensor) {
        s.sensors[id];
    }

    uint32_t const detailsLevel = ULogger::sDetailsLevel;
    std::function<void()> onWait;
    if (options.ordered) {
        ULogger::sDetailsLevel = std::max<uint32_t>(detailsLevel, 5);
        onWait = [&s] {
            {
                std::lock_guard<std::mutex> lock(s.mutex);
                if (tTurn != kNoTurn) {
                    passTurn(s, tTurn);
                }
            }
            s.changed.notify_all();
        };
    }
    auto collector = std::make_unique<Collector>(options.logcat, detailsLevel, onWait);
    ULogger* previousLogger = ULogger::install(collector.get());

    s.helper =
        ISyncHelper::createInstance(trace.session.sessionKey, trace.session.allowCropReplace, info);
    s.concrete = std::dynamic_pointer_cast<SyncHelper>(s.helper);

    // Crop sets at the head of the trace, before any frame call, are the session's initial
    // crops: made here, before the sensor threads start, so that every sensor's first frames
    // see them.
    size_t head = 0;
    while (head < trace.rows.size() && trace.rows[head].kind == CallKind::Crop) {
        CallRow const& row = trace.rows[head];
        std::unordered_map<int, MRect> crops(row.crops.begin(), row.crops.end());
        CallOutcome& out = s.outcomes[head];
        out.started = out.returned = true;
        out.verdict = s.helper->setSensorCropRegion(row.request, crops);
        ++head;
    }
    for (auto& [id, rows] : perSensor) {
        rows.erase(std::remove_if(rows.begin(), rows.end(), [&](size_t i) { return i < head; }),
                   rows.end());
    }

    s.callsDone = head;
    s.nextTurn = head;
    double cpu0 = processCpuSeconds();
    auto start = Clock::now();
    std::vector<std::thread> threads;
    for (auto const& [id, rows] : perSensor) {
        threads.emplace_back(sensorThread, std::ref(s), std::cref(trace), id, std::cref(rows),
                             options.realtime, options.ordered, start, firstSof);
    }

    auto const deadline = std::chrono::duration<double>(options.deadlineSeconds);
    {
        std::unique_lock<std::mutex> lock(s.mutex);
        size_t lastDone = s.callsDone;
        auto lastChange = Clock::now();
        while (true) {
            bool allFinished = true;
            bool allStuck = true;
            for (auto const& [id, st] : s.sensors) {
                allFinished = allFinished && st.finished;
                allStuck = allStuck && (st.finished || st.inLibrary || st.awaitingTurn);
            }
            if (allFinished) {
                break;
            }
            auto now = Clock::now();
            if (s.callsDone != lastDone) {
                lastDone = s.callsDone;
                lastChange = now;
            }
            if (allStuck && now - lastChange >= deadline) {
                for (auto const& [id, st] : s.sensors) {
                    if (st.inLibrary) {
                        result.blocked.push_back(
                            {id, st.row, std::chrono::duration<double>(now - st.since).count()});
                    }
                }
                break;
            }
            if (options.progress) {
                RunProgress p{s.callsDone, trace.rows.size(),
                              std::chrono::duration<double>(now - start).count()};
                lock.unlock();
                options.progress(p);
                lock.lock();
            }
            s.changed.wait_for(lock, std::chrono::milliseconds(100));
        }
    }
    result.wallSeconds = std::chrono::duration<double>(Clock::now() - start).count();
    result.cpuSeconds = processCpuSeconds() - cpu0;

    if (!result.blocked.empty()) {
        // The blocked threads still use the helper, the records and the collector: leave them.
        for (auto& t : threads) {
            t.detach();
        }
        std::lock_guard<std::mutex> lock(s.mutex);
        result.outcomes = s.outcomes;
        result.logged = collector->anomalies();
        collector.release();
        session.release();
        return result;
    }
    for (auto& t : threads) {
        t.join();
    }
    result.outcomes = std::move(s.outcomes);
    s.concrete.reset();
    s.helper.reset();
    ULogger::install(previousLogger);
    ULogger::sDetailsLevel = detailsLevel;
    result.logged = collector->anomalies();
    return result;
}

}  // namespace ryxsim
