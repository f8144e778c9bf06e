#include "sources/logcat/LogcatSource.h"

#include "model/Words.h"
#include "sources/logcat/CaptureDecoder.h"
#include "sources/logcat/LogLine.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <unordered_map>

namespace ryxsim {

namespace {

constexpr std::string_view kTagPrefix = "RyxCam/";

bool startsWith(std::string_view s, std::string_view p) {
    return s.substr(0, p.size()) == p;
}

// What the lines said about one camera's part in a frame, beyond its cell.
struct CellFlags {
    bool enqueued = false;  // reached the rendezvous
    bool released = false;  // and came out of it
    bool needDrop = false;  // found its frame in the drop queue or the flush list on the way out
    bool dropOnArrival = false;
    bool flushedOnArrival = false;  // entered syncResultCheck and never reached the rendezvous
    bool ownDrop = false;
    bool left = false;
    bool syncOff = false;  // no rendezvous in a run of such frames: RYX_FRAMESYNC_ENABLE off
};

struct FrameFlags {
    bool ready = false;       // the updaters ran (onEvent type 0)
    bool dropEvent = false;   // dropped while live (onEvent type 1)
    bool masterDrop = false;  // the master's notifyDrop put it into the drop queue
    bool refused = false;     // the updaters said no
    std::optional<bool> syncOK;
};

// Rebuilds one session (one queue of one process) from its lines.
class SessionBuilder {
  public:
    SessionBuilder(std::string const& file, int pid, int line, bool created) {
        t.imported = true;
        t.pid = pid;
        t.name = "session of process " + std::to_string(pid);
        t.source = "logcat " + file;
        mFirstLine = line;
        mCreated = created;
    }

    void onLine(LogLine const& l, std::string_view func, std::string_view rest);
    Timeline finish(int lastLine, bool anyTime, int digits);

    Timeline t;

  private:
    std::optional<int64_t> at(LogLine const& l) const {
        return l.timeNs ? std::optional<int64_t>(*l.timeNs - mOrigin) : std::nullopt;
    }
    CameraCell& cell(int frame, int cam) {
        mCams.insert(cam);
        FrameRecord& f = t.frame(frame);
        if (CameraCell* c = f.cell(cam)) {
            return *c;
        }
        f.cells.push_back({});
        f.cells.back().sensor = cam;
        return f.cells.back();
    }
    std::optional<int> camOf(int tid) const {
        auto it = mCamOfTid.find(tid);
        return it == mCamOfTid.end() ? std::nullopt : std::optional<int>(it->second);
    }
    void learn(int tid, int cam) {
        if (tid >= 0) {
            mCamOfTid[tid] = cam;
        }
    }
    void arrive(LogLine const& l, int frame, int cam);
    void closeCall(int tid);
    void fatal(LogLine const& l, std::string_view text);
    void resolve(FrameRecord& f);

    struct Call {
        int frame;
        std::optional<int64_t> at;
        bool enqueued;
    };
    // A line whose camera is known only by its thread, kept until the thread's camera is known.
    struct Deferred {
        enum { Crop, FlushedArrival, NeedDrop, MasterDrop } kind;
        int tid, frame;
        std::optional<int64_t> at;
        NSCam::MRect rect;
    };

    int64_t mOrigin = 0;
    bool mOriginSet = false;
    int mFirstLine = 0;
    bool mCreated = false;
    bool mSawDebug = false;
    std::unordered_map<int, int> mCamOfTid;
    std::unordered_map<int, Call> mCalls;    // tid -> syncResultCheck in progress
    std::unordered_map<int, int> mUpdating;  // tid -> frame whose updaters run on it
    std::unordered_map<int, int> mPruned;    // tid -> frame last pushed out of the record
    std::map<int, FrameFlags> mFrames;
    std::map<std::pair<int, int>, CellFlags> mCells;  // (frame, camera)
    std::set<int> mLive;                              // frames in the queue, by what the lines say
    std::set<int> mCams;
    std::vector<int> mSessionCams;  // the cameras the session was created with
    std::vector<int> mLastTargets;
    std::vector<Deferred> mDeferred;
    bool mNoThreads = false;      // a line without a thread id: calls cannot be told apart
    std::set<int> mUnattributed;  // frames with a drop line no camera can be given
    std::vector<std::string> mErrors;
    std::string mMissingWithoutFrame;
};

// sscanf that also needs every literal of `fmt` matched (a pattern may still be a prefix).
template <typename... A>
bool scan(std::string const& s, char const* fmt, A*... args) {
    char withEnd[160];
    size_t n = std::strlen(fmt);
    if (n + 3 > sizeof withEnd) {
        return false;
    }
    std::memcpy(withEnd, fmt, n);
    std::memcpy(withEnd + n, "%n", 3);
    int end = -1;
    return std::sscanf(s.c_str(), withEnd, args..., &end) == static_cast<int>(sizeof...(A)) &&
           end >= 0;
}

void SessionBuilder::arrive(LogLine const& l, int frame, int cam) {
    learn(l.tid, cam);
    CameraCell& c = cell(frame, cam);
    auto it = mCalls.find(l.tid);
    if (it != mCalls.end() && it->second.frame == frame) {
        it->second.enqueued = true;
        c.arriveNs = it->second.at;
    } else if (!c.arriveNs) {
        c.arriveNs = at(l);
    }
    mCells[{frame, cam}].enqueued = true;
    mLive.insert(frame);
}

// The thread's previous syncResultCheck ended; without a rendezvous line it was dropped on
// arrival (a flushed frame; a frame with RYX_FRAMESYNC_ENABLE off looks the same).
void SessionBuilder::closeCall(int tid) {
    auto it = mCalls.find(tid);
    if (it == mCalls.end()) {
        return;
    }
    Call call = it->second;
    mCalls.erase(it);
    if (!call.enqueued) {
        mDeferred.push_back({Deferred::FlushedArrival, tid, call.frame, call.at, {}});
    }
}

void SessionBuilder::fatal(LogLine const& l, std::string_view text) {
    if (!t.fatal.empty()) {
        return;
    }
    std::string msg(text);
    size_t suffix = msg.find(" (");
    t.fatalText = msg;
    std::string cam = camOf(l.tid) ? "camera " + std::to_string(*camOf(l.tid)) : "a camera";
    int frame = mCalls.count(l.tid) ? mCalls[l.tid].frame : -1;
    int f = 0, c = 0;
    if (scan(msg, "(input) Duplicate insert! frameno(%d) input cam(%d)", &f, &c) ||
        scan(msg, "(output) Duplicate insert! frameno(%d) input cam(%d)", &f, &c)) {
        t.fatal = "camera " + std::to_string(c) + " entered frame " + std::to_string(f) + " twice";
    } else if (startsWith(msg, "please check flow")) {
        std::vector<int> waiting(mLive.begin(), mLive.end());
        waiting.erase(std::remove(waiting.begin(), waiting.end(), frame), waiting.end());
        std::string held;
        if (!waiting.empty()) {
            FrameRecord const& oldest = t.frame(waiting.front());
            std::vector<int> missing;
            for (int id : mLastTargets.empty() ? std::vector<int>(mCams.begin(), mCams.end())
                                               : mLastTargets) {
                if (oldest.cell(id) == nullptr) {
                    missing.push_back(id);
                }
            }
            held = " while frames " + std::to_string(waiting.front()) + "-" +
                   std::to_string(waiting.back()) + " waited";
            for (size_t i = 0; i < missing.size(); ++i) {
                held += (i ? ", " : " for camera ") + std::to_string(missing[i]);
            }
        }
        t.fatal = "an 11th frame" + (frame >= 0 ? " (f" + std::to_string(frame) + ")" : "") +
                  " was put in flight" + held;
    } else if (startsWith(msg, "camid is NOT exist in sync target")) {
        t.fatal = cam + " called for frame " + std::to_string(frame) +
                  ", whose sync targets do not include it";
    } else if (startsWith(msg, "SyncElement should be NULL")) {
        int pruned = mPruned.count(l.tid) ? mPruned[l.tid] : -1;
        t.fatal = "frame " + std::to_string(pruned) +
                  " fell out of the 20-frame arrival record while it still waited";
    } else if (startsWith(msg, "Invalid operation.")) {
        t.fatal = "an updater was given a frame with no sync targets";
    } else {
        t.fatal = "the library stopped the process: " +
                  (suffix == std::string::npos ? msg : msg.substr(0, suffix));
    }
}

void SessionBuilder::onLine(LogLine const& l, std::string_view func, std::string_view rest) {
    if (!mOriginSet && l.timeNs) {
        mOrigin = *l.timeNs;
        mOriginSet = true;
    }
    if (l.level == 'D' || l.level == 'V' || l.level == 'I') {
        mSawDebug = true;
    }
    mNoThreads = mNoThreads || l.tid < 0;
    static thread_local std::string s;
    s.assign(rest.data(), rest.size());
    int f = 0, r = 0, c = 0, v = 0, a = 0, b = 0;
    int tid = l.tid;
    if (l.level == 'F') {
        fatal(l, rest);
        return;
    }
    if (func == "PhysicalMetaSyncDataUpdater" && scan(s, "Sensor %d LENS_INFO", &c)) {
        mSessionCams.push_back(c);
        mCams.insert(c);
        return;
    }
    if (func == "syncResultCheck") {
        if (scan(s, "[f%d] +", &f)) {
            closeCall(tid);
            mCalls[tid] = {f, at(l), false};
        } else if (scan(s, "m_id(%d) [f%d] sync check diff", &c, &f)) {
            learn(tid, c);
            cell(f, c).master = true;
        } else if (startsWith(s, "output->HalDynamic")) {
            mErrors.push_back(s);
        }
        return;
    }
    if (func == "enque") {
        char what[16] = {};
        if (scan(s, "[syncResultCheck][f%d] CamId = %d %15s", &f, &c, what)) {
            if (startsWith(what, "wait(")) {
                arrive(l, f, c);
            } else if (std::strcmp(what, "notify") == 0) {
                arrive(l, f, c);
                cell(f, c).completed = true;
            } else if (std::strcmp(what, "unlock") == 0 || std::strcmp(what, "wait-") == 0) {
                cell(f, c).releaseNs = at(l);
                mCells[{f, c}].released = true;
                mLive.erase(f);
            }
        } else if (scan(s, "[syncResultCheck][f%d] no need wait CamId = %d", &f, &c)) {
            arrive(l, f, c);
            cell(f, c).releaseNs = at(l);
            mCells[{f, c}].released = true;
        } else if (startsWith(s, "(input) Duplicate") || startsWith(s, "camid is NOT") ||
                   startsWith(s, "please check flow")) {
            fatal(l, rest);
        }
        return;
    }
    if (func == "onEvent" && scan(s, "[r%d:f%d] type(%d) process type(%d)", &r, &f, &v, &a)) {
        t.frame(f).request = r;
        mUpdating[tid] = f;
        mLive.erase(f);
        if (v == 0) {
            mFrames[f].ready = true;
        } else {
            mFrames[f].dropEvent = true;
        }
        return;
    }
    if (func == "update" && s.empty() && l.tag == "RyxCam/TimestampSyncDataUpdater") {
        // In sync with nobody else to compare: the frame's other cameras dropped it.
        auto it = mUpdating.find(tid);
        if (it != mUpdating.end()) {
            mFrames[it->second].syncOK = true;
        }
        return;
    }
    if (func == "update" && startsWith(s, "[r")) {
        // "[rR:fF], CamId=F, time1=Tns, SyncId=S, time2=Tns, tolerance=Tus, syncOK=K" repeated.
        char const* p = s.c_str();
        long long t1 = 0, t2 = 0, tol = 0;
        int first = 0, id = 0, ok = 1, n = 0;
        while (std::sscanf(p,
                           "[r%d:f%d], CamId=%d, time1=%lldns, SyncId=%d, time2=%lldns, "
                           "tolerance=%lldus, syncOK=%d%n",
                           &r, &f, &first, &t1, &id, &t2, &tol, &ok, &n) == 8) {
            FrameRecord& fr = t.frame(f);
            fr.request = r;
            fr.firstTarget = first;
            fr.toleranceUs = tol;
            cell(f, first).sofNs = t1;
            cell(f, id).sofNs = t2;
            mFrames[f].syncOK = ok != 0;
            p += n;
        }
        return;
    }
    if (startsWith(s, "Timestamp not exist")) {
        // No frame number in it: the frame whose updaters run on this thread.
        auto it = mUpdating.find(tid);
        if (it != mUpdating.end() && mFrames[it->second].ready) {
            t.frame(it->second).refusal = Refusal::MissingTimestamp;
            mFrames[it->second].refused = true;
            t.missingTimestamps.push_back(
                {LoggedAnomaly::Kind::MissingTimestamp, it->second, -1, std::string(l.message)});
        } else {
            mMissingWithoutFrame = "a start-of-frame timestamp was missing (\"" +
                                   std::string(rest) + "\"), the frame is not in the log";
        }
        return;
    }
    if (scan(s, "masterId(%d), f(%d) frame inversion:previous master(%d), f(%d)", &c, &f, &a, &b)) {
        t.frameInversions.push_back({LoggedAnomaly::Kind::FrameInversion, f, c, s});
        t.frame(f).refusal = Refusal::FrameInversion;
        mFrames[f].refused = true;
        cell(f, c);
        return;
    }
    if (scan(s, "time inversion, drop directly, change masterId(%d), f(%d)", &c, &f)) {
        t.timeInversions.push_back({LoggedAnomaly::Kind::TimeInversion, f, c, s});
        t.frame(f).refusal = Refusal::TimeInversion;
        mFrames[f].refused = true;
        cell(f, c);
        return;
    }
    if (scan(s, "[cam%d::f%d] Fail to get", &c, &f)) {
        t.missingTimestamps.push_back({LoggedAnomaly::Kind::MissingTimestamp, f, c, s});
        t.frame(f).refusal = Refusal::MissingTimestamp;
        mFrames[f].refused = true;
        return;
    }
    if (scan(s, "master id(%d) f(%d)", &c, &f)) {
        cell(f, c).master = true;
        return;
    }
    if (scan(s, "Frame:%d Drop slave cam(%d), isLastItem(%d)", &f, &c, &v)) {
        learn(tid, c);
        CameraCell& x = cell(f, c);
        x.arriveNs = x.releaseNs = at(l);
        x.completed = v != 0;
        mCells[{f, c}].ownDrop = true;
        return;
    }
    if (scan(s, "Frame:%d Update cameraDropList[", &f)) {
        if (func == "notifyDrop") {  // the master's own drop
            mFrames[f].masterDrop = true;
            mDeferred.push_back({Deferred::MasterDrop, tid, f, at(l), {}});
        } else {  // the updaters refused the frame: its other cameras give up theirs too
            mFrames[f].refused = true;
        }
        return;
    }
    if (scan(s, "need drop frame(%d)", &f)) {
        mDeferred.push_back({Deferred::NeedDrop, tid, f, at(l), {}});
        return;
    }
    if (scan(s, "cam[%d] frame(%d) is equal to DROP", &c, &f)) {
        arrive(l, f, c);
        cell(f, c).releaseNs = at(l);
        mCells[{f, c}].dropOnArrival = true;
        return;
    }
    if (scan(s, "Remove frame: %d in mArrivedSyncMap", &f)) {
        mPruned[tid] = f;
        return;
    }
    if (func == "dropItemsBySensor" || startsWith(s, "[S:")) {
        if (scan(s, "[S:%d] list :", &c)) {
            std::istringstream frames(s.substr(s.find(':', 3) + 1));
            int first = -1;
            while (frames >> f) {
                first = first < 0 ? f : first;
                cell(f, c);
                mCells[{f, c}].left = true;
            }
            t.leaves.push_back({first, c, at(l)});
        }
        return;
    }
    if (func == "getSensorCropRegion") {
        int left = 0, top = 0, w = 0, h = 0;
        if (scan(s, "[%d] souReq: %d, crop override: (%d, %d, %dx%d)", &f, &r, &left, &top, &w,
                 &h)) {
            mDeferred.push_back({Deferred::Crop, tid, f, at(l), NSCam::MRect{left, top, w, h}});
        }
        return;
    }
    if (startsWith(s, "please check flow") || startsWith(s, "SyncElement should be NULL") ||
        startsWith(s, "Invalid operation.") || startsWith(s, "(input) Duplicate") ||
        startsWith(s, "(output) Duplicate") || startsWith(s, "camid is NOT")) {
        fatal(l, rest);
        return;
    }
    if (l.level == 'E') {
        mErrors.push_back(std::string(l.tag) + ": " + s);
    }
}

void SessionBuilder::resolve(FrameRecord& f) {
    FrameFlags const& ff = mFrames[f.frame];
    bool waiting = false;
    for (auto& c : f.cells) {
        CellFlags const& cf = mCells[{f.frame, c.sensor}];
        c.verdict = Verdict::Dropped;
        if (cf.ownDrop) {
            c.cause = DropCause::Own;
        } else if (cf.left) {
            c.cause = DropCause::Leave;
        } else if (cf.syncOff) {
            c.verdict = Verdict::Unchecked;
        } else if (cf.flushedOnArrival) {
            c.cause = DropCause::Flush;
        } else if (cf.needDrop || cf.dropOnArrival || (ff.refused && (c.completed || !mSawDebug))) {
            // Out of the drop queue (a master drop, or the updaters' refusal) or the flush list.
            c.cause = ff.masterDrop ? DropCause::MasterDrop
                      : ff.refused  ? DropCause::Refused
                                    : DropCause::Flush;
        } else if (ff.syncOK) {
            c.verdict = *ff.syncOK ? Verdict::InSync : Verdict::OutOfSync;
        } else if (ff.ready) {
            c.verdict = Verdict::Unchecked;
        } else if (cf.enqueued && !cf.released) {
            c.verdict = Verdict::Blocked;
            waiting = true;
        } else {
            c.verdict = Verdict::NotRun;
        }
        if (c.cause == DropCause::Refused && f.refusal == Refusal::None) {
            f.refusal = Refusal::Unknown;
        }
        // Some camera of the frame was dropped, and the lines do not say which: every camera
        // not known to be dropped is undetermined, never in sync.
        bool known = c.cause != DropCause::None || c.verdict == Verdict::Blocked;
        if (mUnattributed.count(f.frame) != 0 && !known) {
            c.verdict = Verdict::Undetermined;
        }
    }
    if (waiting) {
        for (int id : mLastTargets.empty() ? mSessionCams : mLastTargets) {
            if (f.cell(id) == nullptr) {
                f.neverCame.push_back(id);
            }
        }
    }
    if (ff.ready && !ff.refused) {
        mLastTargets.clear();
        for (auto const& c : f.cells) {
            if (c.cause != DropCause::Leave) {
                mLastTargets.push_back(c.sensor);
            }
        }
    }
}

Timeline SessionBuilder::finish(int lastLine, bool anyTime, int digits) {
    std::vector<int> tids;
    for (auto const& [tid, call] : mCalls) {
        tids.push_back(tid);
    }
    for (int tid : tids) {
        // A call still open at the end of the capture is in progress, not dropped.
        if (auto cam = camOf(tid)) {
            CameraCell& c = cell(mCalls[tid].frame, *cam);
            if (!c.arriveNs) {
                c.arriveNs = mCalls[tid].at;
            }
        }
    }
    // A call that reached no rendezvous was dropped on arrival (a flushed frame) or skipped the
    // check (RYX_FRAMESYNC_ENABLE off); the log cannot tell them apart. Flushes come one frame
    // at a time, switching sync off lasts: frames in a run are taken as sync off.
    std::set<int> noRendezvous, syncOff;
    for (auto const& d : mDeferred) {
        if (d.kind == Deferred::FlushedArrival && !mFrames[d.frame].dropEvent) {
            noRendezvous.insert(d.frame);
        }
    }
    for (int f : noRendezvous) {
        if (noRendezvous.count(f - 1) || noRendezvous.count(f + 1)) {
            syncOff.insert(f);
        }
    }
    if (!noRendezvous.empty() && !mNoThreads) {
        t.notes.push_back(plural(static_cast<long long>(noRendezvous.size() - syncOff.size()),
                                 "frame", "frames") +
                          " taken as flushed on arrival and " + std::to_string(syncOff.size()) +
                          " as sync switched off (RYX_FRAMESYNC_ENABLE): their calls reached no "
                          "rendezvous, which is all the log shows of either");
    }
    std::set<int> flushed;
    for (auto const& d : mDeferred) {
        auto cam = camOf(d.tid);
        if (!cam && d.kind != Deferred::Crop) {
            mUnattributed.insert(d.frame);
        }
        switch (d.kind) {
            case Deferred::Crop:
                break;  // below, once every call has its cell
            case Deferred::FlushedArrival:
                if (cam) {
                    CameraCell& c = cell(d.frame, *cam);
                    c.arriveNs = c.releaseNs = d.at;
                    mCells[{d.frame, *cam}].flushedOnArrival = true;
                    mCells[{d.frame, *cam}].syncOff = syncOff.count(d.frame) != 0;
                }
                if (syncOff.count(d.frame) == 0) {
                    flushed.insert(d.frame);
                }
                break;
            case Deferred::NeedDrop:
                if (cam) {
                    mCells[{d.frame, *cam}].needDrop = true;
                }
                break;
            case Deferred::MasterDrop:
                t.masterDrops.push_back({d.frame, cam.value_or(-1), d.at});
                if (cam) {
                    CameraCell& c = cell(d.frame, *cam);
                    c.arriveNs = c.releaseNs = d.at;
                    mCells[{d.frame, *cam}].ownDrop = true;
                }
                break;
        }
    }
    for (auto const& d : mDeferred) {
        auto cam = camOf(d.tid);
        FrameRecord* f = t.findFrame(d.frame);
        // Read before the frame's check: kept only for a camera whose call came.
        if (d.kind == Deferred::Crop && f != nullptr && cam && f->cell(*cam) != nullptr) {
            f->cell(*cam)->cropOverride = d.rect;
        }
    }
    for (auto const& [frame, ff] : mFrames) {
        if (ff.dropEvent && !ff.masterDrop && !ff.refused) {
            flushed.insert(frame);
        }
    }
    for (int frame : flushed) {
        t.flushes.push_back({frame, -1, std::nullopt});
    }
    int lastMaster = -1;
    for (auto& f : t.frames) {
        std::sort(f.cells.begin(), f.cells.end(), [](CameraCell const& a, CameraCell const& b) {
            return a.arriveNs.value_or(INT64_MAX) < b.arriveNs.value_or(INT64_MAX);
        });
        resolve(f);
        for (auto const& c : f.cells) {
            if (c.master && c.sensor != lastMaster) {
                lastMaster = c.sensor;
                t.masterChanges.push_back({f.frame, c.sensor});
            }
        }
    }
    for (int cam : mCams) {
        t.labels[cam] = std::to_string(cam);
    }
    for (auto const& [tid, cam] : mCamOfTid) {
        t.threadOf[cam] = "tid " + std::to_string(tid);
    }
    char buf[64];
    std::snprintf(buf, sizeof buf, "log clock, resolution %s",
                  !anyTime      ? "none (no times in this format)"
                  : digits == 0 ? "1 s"
                  : digits == 3 ? "1 ms"
                  : digits == 6 ? "1 us"
                                : "1 ns");
    t.clock = buf;
    if (!anyTime) {
        t.notes.push_back("the capture carries no times: no arrival, release or lateness");
    }
    t.description = "Android log capture, lines " + std::to_string(mFirstLine) + "-" +
                    std::to_string(lastLine) + ", process " + std::to_string(t.pid) +
                    (mCreated ? "" : " (the session started before the capture)");
    t.completionKnown = mSawDebug && !mNoThreads;
    if (!mSawDebug) {
        t.notes.push_back(
            "only warnings and errors in this capture (the default log level): out-of-sync "
            "frames, inversions and errors are shown; frames in sync, drops, flushes, sensor "
            "leaves, masters, crop overrides and arrival times are not logged at this level");
    }
    if (mNoThreads) {
        t.notes.push_back(
            "this capture has no thread ids (logcat's time, brief, process, tag or raw format): "
            "the lines of one camera's call cannot be told from another's, so a frame whose "
            "drop the lines do not give a camera is undetermined on its other cameras (" +
            std::to_string(mUnattributed.size()) +
            (mUnattributed.size() == 1 ? " frame" : " frames") +
            "); capture with 'adb logcat -v threadtime' to see every frame");
    }
    bool anyOut = std::any_of(mFrames.begin(), mFrames.end(),
                              [](auto const& e) { return e.second.syncOK == false; });
    if (anyOut) {
        t.notes.push_back(
            "the log does not carry RYX_FRAMESYNC_MODE: an out-of-sync frame is RESULT 1 "
            "(delivered, flagged) or 2 (failed), which the log cannot tell");
    }
    if (!mMissingWithoutFrame.empty()) {
        t.notes.push_back(mMissingWithoutFrame);
    }
    for (auto const& e : mErrors) {
        t.notes.push_back("library error: " + e);
    }
    finishTimeline(t);
    t.calls = 0;
    t.exitStatus = 0;
    return t;
}

// "(%4d) [func] rest": the library's message frame.
bool splitFrame(std::string_view m, std::string_view& func, std::string_view& rest) {
    if (m.empty() || m[0] != '(') {
        return false;
    }
    size_t close = m.find(") [");
    if (close == std::string_view::npos || close > 8) {
        return false;
    }
    size_t end = m.find("] ", close + 3);
    if (end == std::string_view::npos) {
        if (m.back() != ']') {
            return false;
        }
        end = m.size() - 1;
    }
    func = m.substr(close + 3, end - close - 3);
    rest = end + 2 <= m.size() ? m.substr(end + 2) : std::string_view();
    return true;
}

// The functions whose lines the library writes, for the formats that drop the tag (thread,
// raw): a framed line naming one of them is the library's.
bool isLibraryFunction(std::string_view func) {
    static constexpr std::string_view kFunctions[] = {"SyncHelper",
                                                      "~SyncHelper",
                                                      "syncResultCheck",
                                                      "notifyDrop",
                                                      "notifyDropBySensor",
                                                      "getSensorCropRegion",
                                                      "setSensorCropRegion",
                                                      "getSyncSwitchFlag",
                                                      "onEvent",
                                                      "updateData",
                                                      "SyncQueue",
                                                      "~SyncQueue",
                                                      "enque",
                                                      "addDropFrameInfo",
                                                      "clearDropQueue",
                                                      "dropItem",
                                                      "dropItemsBySensor",
                                                      "dropItemsForFlush",
                                                      "dropLastItem",
                                                      "isNeedDropFrame",
                                                      "sequenceCheck",
                                                      "updateArrivedSyncMap",
                                                      "createSyncElement",
                                                      "updateSyncElement",
                                                      "removeItem",
                                                      "operator()",
                                                      "update",
                                                      "TimestampSyncDataUpdater",
                                                      "MasterCamSyncDataUpdater",
                                                      "ActiveSyncDataUpdater",
                                                      "PhysicalMetaSyncDataUpdater"};
    for (auto f : kFunctions) {
        if (f == func) {
            return true;
        }
    }
    return false;
}

// Feeds the capture line by line, so that a long capture is never held whole.
class CaptureReader {
  public:
    explicit CaptureReader(std::string fileName) : mFile(std::move(fileName)) {}

    void line(std::string_view line) {
        ++mLineNo;
        LogLine l;
        if (!mLongHeader.empty()) {
            // The message of a 'long' record: its header's fields, this line's text.
            std::string header = std::move(mLongHeader);
            mLongHeader.clear();
            parseLogLine(header, l);
            l.message = line;
            l.longHeader = false;
            ours(l);
            return;
        }
        if (!parseLogLine(line, l)) {
            bool blank = line.find_first_not_of(" \t\r") == std::string_view::npos;
            if (!blank && !startsWith(line, "--------- ") && mFirstNoise == 0) {
                mFirstNoise = mLineNo;
            }
            return;
        }
        ++mParsed;
        if (l.timeNs) {
            mAnyTime = true;
            mDigits = mDigits < 0 ? l.fractionDigits : std::min(mDigits, l.fractionDigits);
        }
        if (l.longHeader) {
            mLongHeader.assign(line);
            return;
        }
        ours(l);
    }

    // A parsed line: handed to its session when it is one of the library's.
    void ours(LogLine const& l) {
        std::string_view func, rest;
        bool framed = splitFrame(l.message, func, rest);
        bool tagless = l.tag.empty();
        if (!(tagless ? framed && isLibraryFunction(func) : startsWith(l.tag, kTagPrefix))) {
            return;
        }
        if (!framed) {
            if (l.level != 'F') {
                return;  // a line of our tags with unexpected text
            }
            rest = l.message;
        }
        bool create = func == "SyncQueue" && startsWith(rest, "2020/01/14 - create type");
        auto it = mCurrent.find(l.pid);
        if (create || it == mCurrent.end()) {
            mSessions.push_back(std::make_unique<SessionBuilder>(mFile, l.pid, mLineNo, create));
            mLastLineOf.push_back(mLineNo);
            it = mCurrent.insert_or_assign(l.pid, mSessions.size() - 1).first;
        }
        mLastLineOf[it->second] = mLineNo;
        mSessions[it->second]->onLine(l, func, rest);
    }

    std::vector<Timeline> finish() {
        if (mParsed == 0) {
            throw ParseError(mFile, mFirstNoise > 0 ? mFirstNoise : 1, "",
                             mLineNo == 0 ? "empty file, not a log capture"
                                          : "not an Android log line (expected a logcat "
                                            "capture in any of its formats, or the host liblog "
                                            "format)");
        }
        std::vector<Timeline> out;
        for (size_t i = 0; i < mSessions.size(); ++i) {
            out.push_back(mSessions[i]->finish(mLastLineOf[i], mAnyTime, std::max(mDigits, 0)));
            mSessions[i].reset();
            if (mSessions.size() > 1) {
                out.back().name +=
                    " (" + std::to_string(i + 1) + " of " + std::to_string(mSessions.size()) + ")";
            }
        }
        if (out.empty()) {
            Timeline t;
            t.imported = true;
            t.name = "no session";
            t.source = "logcat " + mFile;
            t.description = "Android log capture of " + std::to_string(mLineNo) + " lines";
            t.notes.push_back("no line of the library's tags (RyxCam/...) in this capture");
            finishTimeline(t);
            out.push_back(t);
        }
        return out;
    }

  private:
    std::string mFile;
    std::vector<std::unique_ptr<SessionBuilder>> mSessions;
    std::vector<int> mLastLineOf;
    std::unordered_map<int, size_t> mCurrent;  // pid -> session
    int mLineNo = 0, mParsed = 0, mFirstNoise = 0, mDigits = -1;
    bool mAnyTime = false;
    std::string mLongHeader;  // a 'long' header whose message line comes next
};

}  // namespace

std::vector<Timeline> readLogcat(std::string_view text, std::string const& fileName) {
    CaptureReader reader(fileName);
    CaptureDecoder decoder([&](std::string_view line) { reader.line(line); });
    decoder.feed(text);
    decoder.finish();
    return reader.finish();
}

std::vector<Timeline> readLogcatFile(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw ParseError(path, 0, "", "cannot read the file");
    }
    CaptureReader reader(path);
    CaptureDecoder decoder([&](std::string_view line) { reader.line(line); });
    std::string chunk(1 << 16, '\0');
    while (in.read(chunk.data(), static_cast<std::streamsize>(chunk.size())) || in.gcount() > 0) {
        decoder.feed(std::string_view(chunk.data(), static_cast<size_t>(in.gcount())));
    }
    decoder.finish();
    return reader.finish();
}

}  // namespace ryxsim
