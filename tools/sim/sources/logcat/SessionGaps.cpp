// What the capture may have lost: each gap marks the frames whose lines it may have taken.
#include "sources/logcat/SessionBuilder.h"

#include <algorithm>

namespace ryxsim {

namespace {

// A camera whose part in a frame is only "in sync" or "waiting" for want of a drop line cannot
// be told once lines are missing; a drop, a leave or an out-of-sync line is still what it says.
bool restsOnMissingLines(CameraCell const& c) {
    return c.cause == DropCause::None && c.verdict != Verdict::OutOfSync &&
           c.verdict != Verdict::OutOfSync1 && c.verdict != Verdict::OutOfSync2;
}

bool openAtEnd(FrameRecord const& f) {
    return !f.neverCame.empty() ||
           std::any_of(f.cells.begin(), f.cells.end(),
                       [](CameraCell const& c) { return c.verdict == Verdict::Blocked; });
}

}  // namespace

void SessionBuilder::placeFrames() {
    for (auto& f : t.frames) {
        auto it = mSpans.find(f.frame);
        if (it != mSpans.end()) {
            f.firstLine = it->second.first;
            f.lastLine = it->second.last;
            f.logTimeNs = it->second.firstTimeNs;
        }
    }
}

// Every call of the frame shows where it started (its entry line), or needs none (a sensor's own
// drop, a leave).
bool SessionBuilder::shownWhole(int frame, CameraCell const& c) {
    CellFlags const& cf = mCells[{frame, c.sensor}];
    return cf.entered || cf.ownDrop || cf.left;
}

// A gap touches the frames in flight at it (queued, or a call under way), those with lines on
// both sides of it, those of the line before it, those still open at the end, and, with debug
// lines, the frames seen only after it up to the first one whose every call is shown from its entry
// on.
void SessionBuilder::markGaps() {
    for (auto const& g : mGaps) {
        CaptureGap gap{g.line, g.what, {}};
        std::vector<FrameRecord*> after;
        int latestBefore = 0;  // the last line before the gap: its frames were in flight
        for (auto const& f : t.frames) {
            if (f.lastLine && *f.lastLine < g.line) {
                latestBefore = std::max(latestBefore, *f.lastLine);
            }
        }
        for (auto& f : t.frames) {
            if (!f.firstLine) {
                continue;
            }
            if (g.inFlight.count(f.frame) != 0 ||
                (*f.firstLine <= g.line &&
                 (g.line <= *f.lastLine || *f.lastLine == latestBefore || openAtEnd(f)))) {
                gap.frames.push_back(f.frame);
            } else if (*f.firstLine > g.line && mSawDebug) {
                after.push_back(&f);
            }
        }
        if (g.highestBefore >= 0 && !after.empty() && after.front()->frame > g.highestBefore + 1) {
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
            FrameRecord& f = t.frame(number);
            f.neverCame.clear();  // the lost lines may be the ones of the camera not seen
            for (auto& c : f.cells) {
                if (restsOnMissingLines(c)) {
                    c.verdict = Verdict::Undetermined;
                    f.undeterminedWhy = "the capture may not hold all its lines (line " +
                                        std::to_string(g.line) + ": " + gap.what + ")";
                }
            }
        }
        t.gaps.push_back(std::move(gap));
    }
}

// Frames still open when the capture ends: named, with the line the capture ends at.
void SessionBuilder::markEnd(int lastLine) {
    if (!t.fatal.empty()) {
        return;  // the abort ended them
    }
    CaptureGap end{lastLine, "", {}};
    for (auto const& f : t.frames) {
        if (openAtEnd(f)) {
            end.frames.push_back(f.frame);
        }
    }
    if (!end.frames.empty()) {
        end.what = "the capture ends with " + std::to_string(end.frames.size()) +
                   (end.frames.size() == 1 ? " frame" : " frames") + " still open";
        t.gaps.push_back(std::move(end));
    }
}

}  // namespace ryxsim
