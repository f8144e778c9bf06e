#include "sources/systrace/TraceAndLog.h"

#include <algorithm>
#include <map>

namespace ryxsim {

namespace {

bool sameSession(Timeline const& traced, Timeline const& logged) {
    if (traced.capture.pid != logged.capture.pid || traced.frames.empty() ||
        logged.frameCount == 0) {
        return false;
    }
    return traced.frames.front().frame <= logged.lastFrame &&
           logged.firstFrame <= traced.frames.back().frame;
}

// The log's part of one camera's cell: what only it shows, and its verdict where the trace has
// none.
void joinCell(CameraCell& cell, CameraCell const& logCell, FrameRecord& f,
              FrameRecord const& logFrame) {
    cell.completed = logCell.completed;
    cell.cropOverride = logCell.cropOverride;
    if (cell.verdict == Verdict::Undetermined && logCell.verdict != Verdict::Undetermined) {
        cell.verdict = logCell.verdict;
        cell.cause = logCell.cause;
        if (logCell.cause == DropCause::Refused) {
            f.refusal = logFrame.refusal;
        }
    }
}

void joinFrame(FrameRecord& f, FrameRecord const& logFrame) {
    f.firstLine = logFrame.firstLine;
    f.lastLine = logFrame.lastLine;
    f.logTimeNs = logFrame.logTimeNs;
    f.logZoneS = logFrame.logZoneS;
    std::map<int, int> seen;  // a camera's drop and check of one frame, in order
    for (auto const& logCell : logFrame.cells) {
        int nth = seen[logCell.sensor]++;
        auto it = std::find_if(f.cells.begin(), f.cells.end(), [&](CameraCell const& c) {
            return c.sensor == logCell.sensor && nth-- == 0;
        });
        if (it == f.cells.end()) {
            f.cells.push_back(logCell);  // the trace lost this call
        } else {
            joinCell(*it, logCell, f, logFrame);
        }
    }
    bool open = std::any_of(f.cells.begin(), f.cells.end(),
                            [](CameraCell const& c) { return c.verdict == Verdict::Undetermined; });
    f.undeterminedWhy =
        open ? (f.undeterminedWhy.empty() ? logFrame.undeterminedWhy : f.undeterminedWhy) : "";
}

void join(Timeline& t, Timeline const& log) {
    std::map<int, FrameRecord const*> logFrames;
    for (auto const& f : log.frames) {
        logFrames[f.frame] = &f;
    }
    for (auto& f : t.frames) {
        auto it = logFrames.find(f.frame);
        if (it != logFrames.end()) {
            joinFrame(f, *it->second);
            logFrames.erase(it);
        }
    }
    for (auto const& [number, f] : logFrames) {
        t.frames.push_back(*f);  // before or after what the trace holds
    }
    std::sort(t.frames.begin(), t.frames.end(),
              [](FrameRecord const& a, FrameRecord const& b) { return a.frame < b.frame; });
    t.source += " with " + log.source;
    t.capture.completionKnown = log.capture.completionKnown;
    t.capture.logClock = log.capture.logClock;
    t.capture.logOriginNs = log.capture.logOriginNs;
    for (auto& g : t.capture.gaps) {
        g.what = "in the system trace: " + g.what;
    }
    for (auto g : log.capture.gaps) {
        g.what = "in the log: " + g.what;
        t.capture.gaps.push_back(g);
    }
    for (auto const& n : log.notes) {
        t.notes.push_back("log: " + n);
    }
}

}  // namespace

std::vector<Timeline> joinTraceAndLog(std::vector<Timeline> traced, std::vector<Timeline> logged) {
    std::vector<Timeline> out;
    for (auto& t : traced) {
        auto log = std::find_if(logged.begin(), logged.end(),
                                [&](Timeline const& l) { return sameSession(t, l); });
        if (log != logged.end()) {
            t.notes.push_back(
                "verdicts from the library's system-trace points, with the log's "
                "lines, completing cameras and crop overrides");
            join(t, *log);
            logged.erase(log);
        } else {
            t.notes.push_back(
                "read from the library's system-trace points: verdicts, causes, "
                "masters and starts of frame are shown; which camera completed a "
                "frame, crop overrides and the library's debug lines are not");
        }
        finishTimeline(t);
        out.push_back(std::move(t));
    }
    for (auto& l : logged) {
        out.push_back(std::move(l));
    }
    return out;
}

}  // namespace ryxsim
