// The end of a capture: every frame resolved from what its lines said, the gaps marked.
#include "model/Words.h"
#include "sources/logcat/SessionBuilder.h"

#include <algorithm>

namespace ryxsim {

namespace {

constexpr char kNoThreadsWhy[] =
    "a camera of this frame was dropped, and the capture (no thread ids) does not show which";

}  // namespace

// A call still open at the end of the capture is in progress, not dropped.
void SessionBuilder::closeOpenCalls() {
    for (auto const& [tid, call] : mCalls) {
        if (auto cam = camOf(tid)) {
            CameraCell& c = cell(call.frame, *cam);
            mCells[{call.frame, *cam}].entered = true;
            if (!c.arriveNs) {
                c.arriveNs = call.at;
            }
        }
    }
}

// A call that reached no rendezvous was dropped on arrival (a flushed frame) or skipped the
// check (RYX_FRAMESYNC_ENABLE off); the log cannot tell them apart. Flushes come one frame at a
// time, switching sync off lasts: frames in a run are taken as sync off.
std::set<int> SessionBuilder::takeSyncOff() {
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
    return syncOff;
}

void SessionBuilder::attributeDeferred(std::set<int> const& syncOff) {
    std::set<int> flushed;
    for (auto const& d : mDeferred) {
        auto cam = camOf(d.tid);
        if (!cam && d.kind != Deferred::Crop) {
            mUnattributed.insert(d.frame);
        }
        if (d.kind == Deferred::FlushedArrival) {
            if (cam) {
                CameraCell& c = cell(d.frame, *cam);
                c.arriveNs = c.releaseNs = d.at;
                CellFlags& cf = mCells[{d.frame, *cam}];
                cf.entered = cf.flushedOnArrival = true;
                cf.syncOff = syncOff.count(d.frame) != 0;
            }
            if (syncOff.count(d.frame) == 0) {
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
}

void SessionBuilder::resolveFrames() {
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
            f.undeterminedWhy = kNoThreadsWhy;
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
            "only warnings and errors in this capture (the default log level): out-of-sync "
            "frames, inversions and errors are shown; frames in sync, drops, flushes, sensor "
            "leaves, masters, crop overrides and arrival times are not logged at this level");
    }
    if (mNoThreads) {
        t.notes.push_back(
            "this capture has no thread ids (logcat's time, brief, process, tag or raw format): "
            "the lines of one camera's call cannot be told from another's, so a frame whose "
            "drop the lines do not give a camera is undetermined on its other cameras (" +
            plural(static_cast<long long>(mUnattributed.size()), "frame", "frames") +
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
}

Timeline SessionBuilder::finish(int lastLine, LogClock clock) {
    mFinishing = true;
    closeOpenCalls();
    attributeDeferred(takeSyncOff());
    resolveFrames();
    placeFrames();
    markGaps();
    markEnd(lastLine);
    for (int cam : mCams) {
        t.labels[cam] = std::to_string(cam);
    }
    for (auto const& [tid, cam] : mCamOfTid) {
        t.threadOf[cam] = "tid " + std::to_string(tid);
        t.tidOf[cam] = tid;
    }

    t.logClock = clock;
    t.description = "Android log capture, lines " + std::to_string(mFirstLine) + "-" +
                    std::to_string(lastLine) + ", process " + std::to_string(t.pid) +
                    (mCreated ? "" : " (the session started before the capture)");
    t.completionKnown = mSawDebug && !mNoThreads;
    addNotes(clock);
    finishTimeline(t);
    t.calls = 0;
    t.exitStatus = 0;
    return std::move(t);
}

}  // namespace ryxsim
