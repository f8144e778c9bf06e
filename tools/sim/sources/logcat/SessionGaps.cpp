// What the capture may have lost: each gap marks the frames whose lines it may have taken.
#include "sources/logcat/SessionBuilder.h"

#include <algorithm>

namespace ryxsim {

namespace {

// A camera whose part in a frame is only "in sync" or "waiting" for want of a drop line cannot
// be told once lines are missing; a drop, a leave or an out-of-sync line is still what it says.
bool restsOnMissingLines(CameraCell const& c) {
    // A flush is what a drop is taken for when no line names another cause.
    return (c.cause == DropCause::None || c.cause == DropCause::Flush) &&
           c.verdict != Verdict::OutOfSync && c.verdict != Verdict::OutOfSync1 &&
           c.verdict != Verdict::OutOfSync2;
}

bool openAtEnd(FrameRecord const& f) {
    return !f.neverCame.empty() ||
           std::any_of(f.cells.begin(), f.cells.end(),
                       [](CameraCell const& c) { return c.verdict == Verdict::Blocked; });
}

}  // namespace

void SessionBuilder::placeFrames(int bound) {
    for (auto it = mWork.lower_bound(mResolvedBelow); it != mWork.end() && it->first < bound;
         ++it) {
        FrameRecord& f = it->second;
        auto span = mSpans.find(f.frame);
        if (span != mSpans.end()) {
            f.firstLine = span->second.first;
            f.lastLine = span->second.last;
            f.logTimeNs = span->second.firstTimeNs;
            f.logZoneS = span->second.firstZoneS;
        }
    }
}

// Every call of the frame shows where it started (its entry line), or needs none (a sensor's own
// drop, a leave). Without thread ids an entry line names no camera: its rendezvous line does.
bool SessionBuilder::shownWhole(int frame, CameraCell const& c) {
    CellFlags const& cf = mCells[{frame, c.sensor}];
    return cf.entered || cf.ownDrop || cf.left || (mNoThreads && (cf.enqueued || cf.dropOnArrival));
}

// The frames with a line at or before a gap, not folded yet: lowest and highest.
std::pair<int, int> SessionBuilder::framesUpTo(PendingGap const& g) const {
    int low = g.inFlight.empty() ? g.highestBefore : std::min(g.highestBefore, *g.inFlight.begin());
    int high =
        g.inFlight.empty() ? g.highestBefore : std::max(g.highestBefore, *g.inFlight.rbegin());
    for (auto const& [frame, span] : mSpans) {
        if (span.first <= g.line) {
            low = std::min(low, frame);
            high = std::max(high, frame);
        }
    }
    return {low, high};
}

// Following a stream, a gap is marked once every frame it can touch is resolved: those with a
// line up to it, and, with debug lines, those after it up to the first one shown whole.
bool SessionBuilder::gapReady(PendingGap const& g, int bound) {
    if (framesUpTo(g).second >= bound) {
        return false;
    }
    if (!mSawDebug) {
        return true;
    }
    for (auto it = mWork.upper_bound(g.highestBefore); it != mWork.end() && it->first < bound;
         ++it) {
        FrameRecord const& f = it->second;
        bool whole = f.firstLine && *f.firstLine > g.line &&
                     std::all_of(f.cells.begin(), f.cells.end(),
                                 [&](CameraCell const& c) { return shownWhole(f.frame, c); });
        if (whole) {
            return true;
        }
    }
    return false;
}

// The lowest frame a gap not marked yet may touch: frames folded below it are safe.
int SessionBuilder::lowestTouched(PendingGap const& g) const {
    return framesUpTo(g).first - kSettleLag / 2;  // and the frames with lines around it
}

// A gap touches the frames in flight at it (queued, or a call under way), those with lines on
// both sides of it, those of the line before it, those still open at the end, and, with debug
// lines, the frames seen only after it up to the first one whose every call is shown from its
// entry on. `all`: the end of the capture, every gap is marked.
void SessionBuilder::markGaps(int bound, bool all) {
    while (mGapsMarked < mGaps.size() && (all || gapReady(mGaps[mGapsMarked], bound))) {
        markGap(mGaps[mGapsMarked++]);
    }
}

void SessionBuilder::markGap(PendingGap const& g) {
    if (g.what == kStartedBefore && !mSawDebug && !mSawInfo) {
        return;  // the creation is not logged at this level: the notes say it is unknown
    }
    CaptureGap gap{g.line, g.what, {}};
    std::vector<FrameRecord*> after;
    int latestBefore = 0;  // the last line before the gap: its frames were in flight
    for (auto const& [n, f] : mWork) {
        if (f.lastLine && *f.lastLine < g.line) {
            latestBefore = std::max(latestBefore, *f.lastLine);
        }
    }
    for (auto& [n, f] : mWork) {
        if (!f.firstLine || g.noCall) {
            continue;
        }
        if (g.inFlight.count(f.frame) != 0 ||
            (!g.oneThread && *f.firstLine <= g.line &&
             (g.line <= *f.lastLine || *f.lastLine == latestBefore || openAtEnd(f)))) {
            gap.frames.push_back(f.frame);
        } else if (*f.firstLine > g.line && mSawDebug) {
            after.push_back(&f);
        }
    }
    // Of the frames between, none has a line (looked up, not walked: a capture's frame numbers
    // may be billions apart).
    auto between = mSpans.upper_bound(g.highestBefore);
    bool noneShown =
        after.empty() || between == mSpans.end() || between->first >= after.front()->frame;
    if (g.highestBefore >= 0 && !after.empty() && after.front()->frame > g.highestBefore + 1 &&
        noneShown) {
        gap.what += "; frames " + std::to_string(g.highestBefore + 1) + "-" +
                    std::to_string(after.front()->frame - 1) + " have no line in the capture";
    }
    for (FrameRecord* f : after) {
        bool whole = std::all_of(f->cells.begin(), f->cells.end(),
                                 [&](CameraCell const& c) { return shownWhole(f->frame, c); });
        if (whole && f->frame > g.highestBefore) {
            break;
        }
        gap.frames.push_back(f->frame);
    }
    std::sort(gap.frames.begin(), gap.frames.end());
    for (int number : gap.frames) {
        FrameRecord& f = work(number);
        f.neverCame.clear();  // the lost lines may be the ones of the camera not seen
        for (auto& c : f.cells) {
            // A flush on arrival is read from a rendezvous line that is not there.
            if (restsOnMissingLines(c) || mCells[{number, c.sensor}].flushedOnArrival) {
                c.verdict = Verdict::Undetermined;
                c.cause = DropCause::None;
                f.undeterminedWhy = "the capture may not hold all its lines (line " +
                                    std::to_string(g.line) + ": " + gap.what + ")";
            }
        }
    }
    t.capture.gaps.push_back(std::move(gap));
}

static bool alreadyUndetermined(FrameRecord const& f) {  // by a gap before the end
    return std::any_of(f.cells.begin(), f.cells.end(),
                       [](CameraCell const& c) { return c.verdict == Verdict::Undetermined; });
}

// The updaters of the frame ran, but a camera of it had not come out of the rendezvous when the
// capture (or the process) ended.
bool SessionBuilder::cutWhileChecked(FrameRecord const& f) {
    bool anyWaiting = false;
    for (auto const& c : f.cells) {
        CellFlags const& cf = mCells[{f.frame, c.sensor}];
        anyWaiting = anyWaiting || (cf.enqueued && !cf.released);
    }
    return mFrames[f.frame].ready && anyWaiting;
}

bool SessionBuilder::touchedByGap(int frame) const {
    return std::any_of(t.capture.gaps.begin(), t.capture.gaps.end(), [&](CaptureGap const& g) {
        return std::find(g.frames.begin(), g.frames.end(), frame) != g.frames.end();
    });
}

// Frames still open when the capture ends: named, with the line the capture ends at.
void SessionBuilder::markEnd(int lastLine) {
    if (!t.fatal.empty()) {
        return;  // the abort ended them
    }
    CaptureGap end{lastLine, "", {}};
    for (auto& [n, f] : mWork) {
        int const frame = f.frame;
        bool cutInCall = std::any_of(f.cells.begin(), f.cells.end(), [&](CameraCell const& c) {
            return mCells[{frame, c.sensor}].cutInCall;
        });
        if (openAtEnd(f) || (cutInCall && !touchedByGap(f.frame))) {
            end.frames.push_back(f.frame);
        } else if (cutWhileChecked(f) && !alreadyUndetermined(f) && !touchedByGap(f.frame)) {
            // (A gap the frame is in may hold the camera's way out: that gap is its cause.)
            end.frames.push_back(f.frame);
            for (auto& c : f.cells) {
                CellFlags const& cf = mCells[{f.frame, c.sensor}];
                if (restsOnMissingLines(c) && cf.enqueued && !cf.released) {
                    c.verdict = Verdict::Undetermined;
                    c.cause = DropCause::None;
                    f.undeterminedWhy = "the capture ends (line " + std::to_string(lastLine) +
                                        ") before this camera came out of the frame's check";
                }
            }
        }
    }
    if (!end.frames.empty()) {
        end.what = "the capture ends with " + std::to_string(end.frames.size()) +
                   (end.frames.size() == 1 ? " frame" : " frames") + " still open";
        t.capture.gaps.push_back(std::move(end));
    }
}

}  // namespace ryxsim
