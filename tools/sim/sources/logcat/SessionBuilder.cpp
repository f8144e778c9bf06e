#include "sources/logcat/SessionBuilder.h"

#include "sources/logcat/LibraryLine.h"

#include <sstream>

namespace ryxsim {

namespace {
constexpr int64_t kTimeBackGap = 1000000000;
}  // namespace

SessionBuilder::SessionBuilder(std::string const& file, int pid, int line, bool created) {
    t.imported = true;
    t.capture.pid = pid;
    t.name = "session of process " + std::to_string(pid);
    t.source = "logcat " + file;
    mFirstLine = line;
    mCreated = created;
    if (!created) {
        gap(line, kStartedBefore);
    }
}

void SessionBuilder::gap(int line, std::string what, std::optional<int> frame, int tid,
                         bool touchesCalls) {
    std::set<int> inFlight;
    if (!touchesCalls) {  // a line no call writes: the session's end
        mGaps.push_back({line, std::move(what), mHighestFrame, {}, tid >= 0, true});
        return;
    }
    if (tid < 0) {
        inFlight.insert(mLive.begin(), mLive.end());
    }
    // A call is under way until its thread's next one starts: the drop checks on its way out
    // come after its release line. A line whose thread is known was one of that thread's.
    for (auto const& [callTid, call] : mCalls) {
        // A thread that called no more (a sensor that left) is long out of its last call.
        if (call.frame >= mHighestFrame - kStaleCall && (tid < 0 || callTid == tid)) {
            inFlight.insert(call.frame);
        }
    }
    auto updating = mUpdating.find(tid);
    if (updating != mUpdating.end() && updating->second >= mHighestFrame - kStaleCall) {
        inFlight.insert(updating->second);
    }
    mGaps.push_back({line, std::move(what), mHighestFrame, std::move(inFlight), tid >= 0});
    // The lost line may have been another frame's updaters starting: a line without a frame
    // number that follows on the thread is no longer known to be of the frame named before.
    if (tid < 0) {
        mUpdating.clear();
    } else {
        mUpdating.erase(tid);
    }
    if (frame) {
        mLine = line;  // the cut line is the frame's too
        seen(*frame);
    }
}

void SessionBuilder::seen(int frame) {
    mHighestFrame = std::max(mHighestFrame, frame);
    mLowestFrame = mLowestFrame < 0 ? frame : std::min(mLowestFrame, frame);
    if (mFirstFrames.size() < 2 * kSettleLag) {
        mFirstFrames.insert(frame);
    }
    auto [it, added] = mSpans.try_emplace(frame, Span{mLine, mLine, mLineTimeNs, mLineZoneS});
    if (!added) {
        it->second.last = std::max(it->second.last, mLine);
    }
}

FrameRecord& SessionBuilder::frameAt(int frame) {
    if (!mFinishing) {
        seen(frame);
    }
    return work(frame);
}

FrameRecord& SessionBuilder::work(int frame) {
    auto [it, added] = mWork.try_emplace(frame);
    if (added) {
        it->second.frame = frame;
    }
    return it->second;
}

FrameRecord* SessionBuilder::findWork(int frame) {
    auto it = mWork.find(frame);
    return it == mWork.end() ? nullptr : &it->second;
}

CameraCell& SessionBuilder::cell(int frame, int cam) {
    mCams.insert(cam);
    FrameRecord& f = frameAt(frame);
    if (CameraCell* c = f.cell(cam)) {
        return *c;
    }
    f.cells.push_back({});
    f.cells.back().sensor = cam;
    return f.cells.back();
}

std::optional<int> SessionBuilder::camOf(int tid) const {
    auto it = mCamOfTid.find(tid);
    return it == mCamOfTid.end() ? std::nullopt : std::optional<int>(it->second);
}

void SessionBuilder::learn(int tid, int cam) {
    if (tid >= 0) {
        mCamOfTid[tid] = cam;
    }
}

void SessionBuilder::arrive(LogLine const& l, int frame, int cam) {
    learn(l.tid, cam);
    CameraCell& c = cell(frame, cam);
    auto it = mCalls.find(l.tid);
    if (it != mCalls.end() && it->second.frame == frame) {
        it->second.enqueued = true;
        c.arriveNs = it->second.at;
        mCells[{frame, cam}].entered = true;
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

// A call that has not reached the rendezvous is over once its thread logs a line of another
// call: a crop read, a sensor leaving, a drop, or updaters that no rendezvous of its started
// (the single-camera path).
void SessionBuilder::closeIfOver(LogLine const& l, std::string_view func) {
    auto it = l.tid < 0 ? mCalls.end() : mCalls.find(l.tid);
    if (it == mCalls.end() || it->second.enqueued) {
        return;
    }
    bool updater = endsWith(l.tag, "SyncDataUpdater");
    if (updater || func == "getSensorCropRegion" || func == "dropItemsBySensor" ||
        func == "notifyDrop" || func == "notifyDropBySensor") {
        closeCall(l.tid);
    }
}

void SessionBuilder::onLine(LogLine const& l, int line, std::string_view func,
                            std::string_view rest) {
    mLine = line;
    mLineTimeNs = l.timeNs;
    mLineZoneS = l.zoneS;
    if (l.timeNs) {
        if (!mOriginSet) {
            mOrigin = *l.timeNs;
            mOriginSet = true;
            t.capture.logOriginNs = mOrigin;
        }
        // Threads stamp their lines before logd orders them, so lines a few milliseconds out of
        // order are normal; a step back of a second or more is another capture or a clock set.
        if (mLastTimeNs && *l.timeNs <= *mLastTimeNs - kTimeBackGap) {
            char back[96];
            std::snprintf(back, sizeof back, "the log's time goes back by %.3f s",
                          static_cast<double>(*mLastTimeNs - *l.timeNs) / 1e9);
            gap(line, back);
        }
        mLastTimeNs = std::max(mLastTimeNs.value_or(*l.timeNs), *l.timeNs);
    }
    mSawDebug = mSawDebug || l.level == 'D' || l.level == 'V';
    mEndShown = mEndShown || startsWith(func, "~");
    mSawInfo = mSawInfo || l.level == 'I';
    mNoThreads = mNoThreads || l.tid < 0;
    static thread_local std::string s;
    s.assign(rest.data(), rest.size());
    if (l.level == 'F') {
        fatal(l, rest);
        return;
    }
    // A line of a frame already explained changes nothing: it is counted and left out.
    if (auto f = inFlightFrame(l, func); f && *f < mResolvedBelow && l.level != 'F') {
        ++mLateLines;
        return;
    }
    closeIfOver(l, func);
    noteDropperMovedOn(l, s);
    int c = 0;
    if (func == "PhysicalMetaSyncDataUpdater" &&
        readPrefix(s, RYX_MSG_SENSOR_FOCAL_LENGTHS, &c, kSkip)) {
        mSessionCams.push_back(c);
        mCams.insert(c);
        return;
    }
    if (onCheckLine(l, func, s) || onEnqueLine(l, func, s, rest) || onUpdaterLine(l, func, s) ||
        onRefusalLine(l, s, rest) || onDropLine(l, func, s)) {
        return;
    }
    if (fatalMessage(s)) {
        fatal(l, rest);
        return;
    }
    if (l.level == 'E') {
        mErrors.push_back(std::string(l.tag) + ": " + s);
    }
}

bool SessionBuilder::onCheckLine(LogLine const& l, std::string_view func, std::string const& s) {
    if (func != "syncResultCheck") {
        return false;
    }
    int f = 0, c = 0;
    if (readMessage(s, RYX_MSG_CHECK_ENTERED, &f) && l.tid < 0) {
        ++mEntries[f];  // whose call it is, the capture does not say
        mLastEntry = f;
        seen(f);
    } else if (readMessage(s, RYX_MSG_CHECK_ENTERED, &f)) {
        closeCall(l.tid);
        mCalls[l.tid] = {f, at(l), false};
        seen(f);
    } else if (readMessage(s, RYX_MSG_CHECK_DONE, &c, &f, kSkip)) {
        learn(l.tid, c);
        cell(f, c).master = true;
    } else if (startsWithMessage(s, RYX_MSG_DYNAMIC_NULL)) {
        mErrors.push_back(s);
    }
    return true;
}

bool SessionBuilder::onEnqueLine(LogLine const& l, std::string_view func, std::string const& s,
                                 std::string_view rest) {
    if (func != "enque") {
        return false;
    }
    int f = 0, c = 0;
    if (readMessage(s, RYX_MSG_QUEUE_WAIT, kSkip, &f, &c, kSkip)) {
        arrive(l, f, c);
    } else if (readMessage(s, RYX_MSG_QUEUE_NOTIFY, kSkip, &f, &c)) {
        arrive(l, f, c);
        cell(f, c).completed = true;
    } else if (readMessage(s, RYX_MSG_QUEUE_UNLOCK, kSkip, &f, &c) ||
               readMessage(s, RYX_MSG_QUEUE_WAITED, kSkip, &f, &c)) {
        cell(f, c).releaseNs = at(l);
        mCells[{f, c}].released = true;
        mLive.erase(f);
    } else if (readMessage(s, RYX_MSG_QUEUE_NO_WAIT, kSkip, &f, &c)) {
        arrive(l, f, c);
        cell(f, c).releaseNs = at(l);
        mCells[{f, c}].released = true;
    } else if (fatalMessage(s)) {
        fatal(l, rest);
    }
    return true;
}

}  // namespace ryxsim
