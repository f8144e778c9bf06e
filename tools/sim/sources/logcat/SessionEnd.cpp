// The end of a capture: every frame resolved from what its lines said, the gaps marked.
#include "model/Words.h"
#include "sources/logcat/SessionBuilder.h"

#include <algorithm>

namespace ryxsim {

namespace {

constexpr char kNoThreadsWhy[] =
    "a call of this frame reached no rendezvous (a flushed arrival, or sync switched off), and "
    "the capture (no thread ids) does not show whose";

constexpr char kDropHiddenWhy[] =
    "out of sync among the cameras its check compared, without a camera the frames around it "
    "had: the frame may have been dropped (a master drop, a flush, a camera's own drop), which "
    "only debug lines show";

constexpr char kDropQueueWhy[] =
    "dropped on arrival from the drop queue, which a master drop or a refusal fills; the "
    "capture holds neither for this frame";

constexpr char kDropListWhy[] =
    "named in the frame's drop-queue entry, its call reached no rendezvous and logged no drop on "
    "arrival: a flush came first, or the capture lacks the line";

constexpr char kLiveDropWhy[] =
    "dropped while its cameras waited, by a flush or the master's drop: the dropping thread's "
    "next line, which tells them apart, is not in the capture";

constexpr char kCutInCallWhy[] =
    "the capture ends while this camera's call is on its way to the rendezvous, where it may yet "
    "be dropped";

constexpr char kRunEdgeWhy[] =
    "its calls reached no rendezvous: sync switched off (RYX_FRAMESYNC_ENABLE) or a flush, which "
    "the log does not tell apart at the edge of a run of such frames or at the session's end";

}  // namespace

// A call still open at the end of the capture is in progress, not dropped. One that had not
// reached its rendezvous returned without one when the session's end is shown; where the
// capture stops before the session does, it may yet have been dropped there, or not. Without
// thread ids its camera is not known, and it is taken as the other calls that reached none.
void SessionBuilder::closeOpenCalls() {
    std::vector<int> beforeRendezvous;
    for (auto const& [tid, call] : mCalls) {
        auto cam = camOf(tid);
        if (!call.enqueued && (!cam || mEndShown)) {
            beforeRendezvous.push_back(tid);
            continue;
        }
        if (cam) {
            CameraCell& c = cell(call.frame, *cam);
            CellFlags& cf = mCells[{call.frame, *cam}];
            cf.entered = true;
            cf.cutInCall = !call.enqueued;
            if (cf.cutInCall) {
                mCutInCall.insert(call.frame);
            }
            if (!c.arriveNs) {
                c.arriveNs = call.at;
            }
        }
    }
    for (int tid : beforeRendezvous) {
        closeCall(tid);
    }
}

// A call that reached no rendezvous was dropped on arrival (a flushed frame) or skipped the
// check (RYX_FRAMESYNC_ENABLE off); the log cannot tell them apart. Flushes come one frame at a
// time, switching sync off lasts: frames in a run are taken as sync off. Decides the frames below
// `bound`, whose next frame's lines are all in.
std::set<int> SessionBuilder::takeSyncOff(int bound) {
    std::set<int> noRendezvous, syncOff;
    for (auto const& d : mDeferred) {
        if (d.kind == Deferred::FlushedArrival && d.frame <= bound && !mFrames[d.frame].dropEvent) {
            noRendezvous.insert(d.frame);
        }
    }
    if (mLastNoRendezvous != INT_MIN) {
        noRendezvous.insert(mLastNoRendezvous);  // the last of the frames decided before
    }
    for (int f : noRendezvous) {
        bool before = noRendezvous.count(f - 1) != 0, after = noRendezvous.count(f + 1) != 0;
        if (f < bound && f >= mResolvedBelow && (before || after)) {
            syncOff.insert(f);
            if (!before || !after) {  // a flush next to the run would look the same
                mRunEdges.insert(f);
            }
        }
        if (f < bound && f >= mResolvedBelow && mAtEnd && !after && f >= mHighestFrame) {
            mRunEdges.insert(f);  // the session's last frame: a flush, or a run cut by its end
        }
        // Next to a frame whose call the end cut, which may or may not have met a rendezvous.
        if (f < bound && f >= mResolvedBelow &&
            (mCutInCall.count(f - 1) + mCutInCall.count(f + 1))) {
            mRunEdges.insert(f);
        }
    }
    for (int f : noRendezvous) {
        if (f < bound && f >= mResolvedBelow) {
            ++mNoRendezvousCount;
            mLastNoRendezvous = f;
        }
    }
    mSyncOffCount += syncOff.size();
    return syncOff;
}

void SessionBuilder::attributeDeferred(std::set<int> const& syncOff, int bound) {
    std::set<int> flushed;
    auto below = std::stable_partition(mDeferred.begin(), mDeferred.end(),
                                       [&](Deferred const& d) { return d.frame < bound; });
    std::vector<Deferred> now(std::make_move_iterator(mDeferred.begin()),
                              std::make_move_iterator(below));
    mDeferred.erase(mDeferred.begin(), below);
    for (auto const& d : now) {
        auto cam = camOf(d.tid);
        if (!cam && d.kind != Deferred::Crop && !mNoThreads &&
            mUnattributed.insert(d.frame).second) {
            ++mUnattributedCount;
        }
        if (d.kind == Deferred::FlushedArrival) {
            if (cam) {
                CameraCell& c = cell(d.frame, *cam);
                c.arriveNs = c.releaseNs = d.at;
                CellFlags& cf = mCells[{d.frame, *cam}];
                cf.entered = cf.flushedOnArrival = true;
                cf.syncOff = syncOff.count(d.frame) != 0;
            }
            if (syncOff.count(d.frame) == 0 && mRunEdges.count(d.frame) == 0) {
                flushed.insert(d.frame);
            }
        } else if (d.kind == Deferred::NeedDrop && cam) {
            mCells[{d.frame, *cam}].needDrop = true;
        } else if (d.kind == Deferred::MasterDrop) {
            t.masterDrops.push_back({d.frame, cam.value_or(-1), d.at});
            if (cam) {
                CameraCell& c = cell(d.frame, *cam);
                c.arriveNs = c.releaseNs = d.at;
                mCells[{d.frame, *cam}].ownDrop = true;
            }
        }
    }
    for (auto const& d : now) {
        auto cam = camOf(d.tid);
        FrameRecord* f = findWork(d.frame);
        // Read before the frame's check: kept only for a camera whose call came.
        if (d.kind == Deferred::Crop && f != nullptr && cam && f->cell(*cam) != nullptr) {
            f->cell(*cam)->cropOverride = d.rect;
        }
    }
    for (auto it = mFrames.lower_bound(mResolvedBelow); it != mFrames.end() && it->first < bound;
         ++it) {
        auto const& [frame, ff] = *it;
        if (ff.dropEvent && !ff.masterDrop && !ff.refused) {
            flushed.insert(frame);
        }
    }
    for (int frame : flushed) {
        t.flushes.push_back({frame, -1, std::nullopt});
    }
}

void SessionBuilder::resolveFrames(int bound) {
    int& lastMaster = mLastMaster;
    for (auto it = mWork.lower_bound(mResolvedBelow); it != mWork.end() && it->first < bound;
         ++it) {
        FrameRecord& f = it->second;
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
}

// Without thread ids the drop lines of a frame name no camera; they need not: the master's drop
// and a flush of the live frame drop every camera of it that came, as a refusal does.
// Without debug lines, a check that left out a camera the checks before and after it compared
// may be the updaters run for a drop of the frame (a master drop, a flush), which only debug
// lines show. (A camera that left is missing from the later checks too; where sessions of one
// process run together, the earlier one's cameras are what the checks before compared.)
bool SessionBuilder::dropHidden(int frame) {
    std::set<int> const& checked = mFrames[frame].checked;
    std::set<int> const* next = nullptr;
    for (auto it = mFrames.upper_bound(frame); it != mFrames.end() && !next; ++it) {
        next = it->second.checked.empty() ? nullptr : &it->second.checked;
    }
    std::set<int> const* prev = mLastChecked.empty() ? next : &mLastChecked;
    // The last check before a reconnect: the session goes on, and its next check (in lines
    // printed again) would have the cameras of the one before. (At the session's own end a
    // camera that left looks the same, and is not said.)
    if (next == nullptr && mWentOn && !mLastChecked.empty()) {
        next = prev;
    }
    bool hidden = false;
    for (int cam : next ? *prev : std::set<int>{}) {
        hidden = hidden || (next->count(cam) != 0 && checked.count(cam) == 0);
    }
    if (!checked.empty()) {
        mLastChecked = checked;
    }
    return hidden;
}

// The thread that dropped the frame while live went on past the master drop's next line: its
// own next line, or, without thread ids, frames enough later that every call of then is over.
bool SessionBuilder::dropperMovedOn(int frame, FrameFlags const& ff) const {
    return mNoThreads ? mHighestFrame >= frame + kStaleCall : ff.flushShown;
}

bool SessionBuilder::dropWhileLive(FrameFlags const& ff) {
    return ff.dropEvent && !ff.ready;
}

bool SessionBuilder::droppedWhole(FrameFlags const& ff) const {
    return mNoThreads && (ff.masterDrop || ff.dropEvent);
}

// Without thread ids, the calls of a frame that showed no camera (a flushed arrival, sync
// switched off): counted, and the frame's other cameras are what their lines say.
// (A frame dropped while live drops every call of it: no doubt there.) Frames below `bound`.
void SessionBuilder::countCallsWithoutCamera(int bound) {
    for (auto it = mEntries.lower_bound(mResolvedBelow); it != mEntries.end() && it->first < bound;
         ++it) {
        auto [frame, entries] = *it;
        FrameRecord const* f = findWork(frame);
        int shown = 0;
        for (size_t i = 0; f != nullptr && i < f->cells.size(); ++i) {
            CellFlags const& cf = mCells[{frame, f->cells[i].sensor}];
            shown += cf.enqueued || cf.dropOnArrival ? 1 : 0;
        }
        if (entries > shown && !mFrames[frame].dropEvent && mUnattributed.insert(frame).second) {
            ++mUnattributedCount;
        }
    }
}

// What the capture cannot decide for the camera: its verdict becomes undetermined, and why.
void SessionBuilder::markUndecidable(FrameRecord& f, CameraCell& c, CellFlags const& cf,
                                     bool hidden) {
    // Some camera of the frame was dropped, and the lines do not say which: every camera
    // not known to be dropped is undetermined, never in sync.
    bool known = c.cause != DropCause::None || c.verdict == Verdict::Blocked;
    if (mUnattributed.count(f.frame) != 0 && !known) {
        c.verdict = Verdict::Undetermined;
        f.undeterminedWhy = kNoThreadsWhy;
    }
    if (c.verdict == Verdict::OutOfSync && hidden) {
        c.verdict = Verdict::Undetermined;
        f.undeterminedWhy = kDropHiddenWhy;
    }
    if ((cf.syncOff || cf.flushedOnArrival) && mRunEdges.count(f.frame) != 0) {
        c.verdict = Verdict::Undetermined;
        c.cause = DropCause::None;
        f.undeterminedWhy = kRunEdgeWhy;
    }
}

void SessionBuilder::resolve(FrameRecord& f) {
    FrameFlags const& ff = mFrames[f.frame];
    bool hidden = !mSawDebug && dropHidden(f.frame);
    bool waiting = false;
    for (auto& c : f.cells) {
        CellFlags const& cf = mCells[{f.frame, c.sensor}];
        c.verdict = Verdict::Dropped;
        if (cf.ownDrop) {
            c.cause = DropCause::Own;
        } else if (cf.left) {
            c.cause = DropCause::Leave;
        } else if (cf.cutInCall) {
            c.verdict = Verdict::Undetermined;
            f.undeterminedWhy = kCutInCallWhy;
        } else if (cf.syncOff) {
            c.verdict = Verdict::Unchecked;
        } else if (cf.flushedOnArrival && cf.inDropList) {
            // Named in the frame's drop-queue entry, it would have logged its drop on arrival
            // unless the frame was flushed first: a line is missing, and it decides the cause.
            c.verdict = Verdict::Undetermined;
            f.undeterminedWhy = kDropListWhy;
        } else if (cf.flushedOnArrival) {
            c.cause = DropCause::Flush;
        } else if (cf.needDrop || cf.dropOnArrival ||
                   (ff.refused && (c.completed || cf.inDropList || !mSawDebug || mNoThreads)) ||
                   droppedWhole(ff) || (dropWhileLive(ff) && cf.enqueued)) {
            // (A camera waiting in a frame dropped while live is dropped with it, whether or
            // not its way out is in the capture.)
            // Out of the drop queue (a master drop, or the updaters' refusal) or the flush list.
            // A drop of the live frame runs the updaters too: an inversion they log then is
            // no refusal of theirs.
            c.cause = ff.masterDrop                      ? DropCause::MasterDrop
                      : ff.refused && !dropWhileLive(ff) ? DropCause::Refused
                                                         : DropCause::Flush;
            // The drop queue holds master drops and refusals only: found there with neither in
            // the capture, the frame's cause is in lines the capture does not hold.
            if (cf.dropOnArrival && !ff.masterDrop && !ff.refused) {
                c.verdict = Verdict::Undetermined;
                c.cause = DropCause::None;
                f.undeterminedWhy = kDropQueueWhy;
            } else if (c.cause == DropCause::Flush && dropWhileLive(ff) &&
                       !dropperMovedOn(f.frame, ff)) {
                c.verdict = Verdict::Undetermined;
                c.cause = DropCause::None;
                f.undeterminedWhy = kLiveDropWhy;
            }
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
        markUndecidable(f, c, cf, hidden);
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

void SessionBuilder::addNotes(LogClock clock) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "log clock, resolution %s",
                  clock.form == LogClock::Form::None ? "none (no times in this format)"
                  : clock.digits == 0                ? "1 s"
                  : clock.digits == 3                ? "1 ms"
                  : clock.digits == 6                ? "1 us"
                                                     : "1 ns");
    t.clock = buf;
    if (clock.form == LogClock::Form::None) {
        t.notes.push_back("the capture carries no times: no arrival, release or lateness");
    }
    if (!mSawDebug) {
        t.notes.push_back(
            std::string(mSawInfo ? "no debug lines in this capture (info, warnings and errors: "
                                   "the platform's default log level)"
                                 : "only warnings and errors in this capture (the default log "
                                   "level)") +
            ": out-of-sync frames, inversions and errors are shown; frames in sync, drops, "
            "flushes, sensor leaves, masters, crop overrides and arrival times are not logged at "
            "this level");
    }
    if (!mSawDebug && !mSawInfo) {
        t.notes.push_back(
            "the library logs a session's creation at info and debug level only, so whether "
            "this session started before the capture is unknown, and a later session of "
            "process " +
            std::to_string(t.capture.pid) +
            " is told apart only where its frame numbers start again lower: these lines may "
            "hold more than one session");
    }
    if (mCutCreationLine && !mSawDebug && mSawInfo) {
        t.notes.push_back("line " + std::to_string(*mCutCreationLine) +
                          ", a library line cut short, may have been a new session's creation "
                          "(one line at this level): these lines may hold more than one session");
    }
    if (mNoRendezvousCount > 0 && !mNoThreads) {
        t.notes.insert(
            t.notes.begin(),
            plural(static_cast<long long>(mNoRendezvousCount - mSyncOffCount), "frame", "frames") +
                " taken as flushed on arrival and " + std::to_string(mSyncOffCount) +
                " as sync switched off (RYX_FRAMESYNC_ENABLE): their calls reached no "
                "rendezvous, which is all the log shows of either");
    }
    if (mNoThreads) {
        t.notes.push_back(
            "this capture has no thread ids (logcat's time, brief, process, tag or raw format): "
            "the lines of one camera's call cannot be told from another's, so a call that "
            "reached no rendezvous (a flushed arrival, or sync switched off) is not shown "
            "against its camera (" +
            plural(static_cast<long long>(mUnattributedCount), "frame", "frames") +
            " with such calls), nor is the camera whose drop as master dropped a frame; "
            "capture with 'adb logcat -v threadtime' to see every call");
    }
    if (mAnyOutOfSync) {
        t.notes.push_back(
            "the log does not carry RYX_FRAMESYNC_MODE: an out-of-sync frame is RESULT 1 "
            "(delivered, flagged) or 2 (failed), which the log cannot tell");
    }
    if (mLateLines > 0) {
        t.notes.push_back(plural(mLateLines, "line", "lines") + " of frames " +
                          std::to_string(kSettleLag) +
                          " or more behind the stream came after those frames were explained, "
                          "and were left out");
    }
    if (!mMissingWithoutFrame.empty()) {
        t.notes.push_back(mMissingWithoutFrame);
    }
    for (auto const& e : mErrors) {
        t.notes.push_back("library error: " + e);
    }
}

Timeline SessionBuilder::finish(int lastLine, LogClock clock, FrameSink const& folded) {
    mFinishing = true;
    mAtEnd = true;
    closeOpenCalls();
    resolveBelow(INT_MAX);
    markGaps(INT_MAX, true);
    markEnd(lastLine);
    labelCameras();
    for (auto const& [tid, cam] : mCamOfTid) {
        t.threadOf[cam] = "tid " + std::to_string(tid);
        t.capture.tidOf[cam] = tid;
    }
    t.capture.logClock = clock;
    t.description = "Android log capture, lines " + std::to_string(mFirstLine) + "-" +
                    std::to_string(lastLine) + ", process " + std::to_string(t.capture.pid) +
                    (mCreated                ? ""
                     : mSawDebug || mSawInfo ? " (the session started before the capture)"
                                             : " (its start is not shown at this log level)");
    t.capture.completionKnown = mSawDebug && !mNoThreads;
    t.capture.callsSeen = t.capture.completionKnown;
    addNotes(clock);
    foldBelow(INT_MAX, folded);
    finishTimeline(t);
    t.run.calls = 0;
    t.exitStatus = 0;
    return std::move(t);
}

}  // namespace ryxsim
