// A traced session turned into its timeline: verdicts and causes told as the run tells them, and
// what the trace cannot tell left undetermined with why.
#include "sources/systrace/TraceSession.h"

#include "sources/LibraryMessages.h"
#include "sources/logcat/LibraryLine.h"

#include <algorithm>
#include <cstdlib>
#include <map>

namespace ryxsim {

namespace {

// A flush or a master drop of a frame is given while the frame is in flight: within the arrival
// record's reach of the frames around it. Frame numbers are any int a trace holds: the reach is
// added in 64 bits.
constexpr int64_t kCauseReach = kArrivalRecord + 1;

Refusal refusalFrom(std::set<Refusal> const& said) {
    for (Refusal r : {Refusal::FrameInversion, Refusal::TimeInversion, Refusal::MissingTimestamp}) {
        if (said.count(r) != 0) {
            return r;
        }
    }
    return Refusal::Unknown;
}

}  // namespace

CameraCell TraceSession::cellOf(TraceCall const& c) const {
    CameraCell cell;
    cell.sensor = c.cam;
    cell.arriveNs = c.beginNs;
    cell.releaseNs = c.endNs;
    if (c.sofNs && *c.sofNs != 0) {
        cell.sofNs = c.sofNs;
    }
    cell.master = c.master;
    std::string const& w = c.words;
    cell.verdict = w == RYX_TRACE_PASSED      ? Verdict::InSync
                   : w == RYX_TRACE_UNCHECKED ? Verdict::Unchecked
                   : w == RYX_TRACE_RESULT_1  ? Verdict::OutOfSync1
                   : w == RYX_TRACE_OWN_DROP  ? Verdict::Dropped
                                              : Verdict::Undetermined;
    cell.cause = w == RYX_TRACE_OWN_DROP ? DropCause::Own : DropCause::None;
    if (c.controlsShown) {
        cell.call = c.row;
        cell.call->sensor = c.cam;
        cell.call->frame = c.frame;
        cell.call->kind = c.drop ? CallKind::Drop : CallKind::Result;
        cell.call->request = c.row.request < 0 ? c.frame : c.row.request;
    }
    return cell;
}

std::string TraceSession::unsure(int frame) const {
    if (!mCreated && frame <= mFirstFrame + kCauseReach) {
        return mAfterLoss ? "the trace lost events before this frame (line " +
                                std::to_string(*mAfterLoss) +
                                "): a flush or the master's drop of it may be among them"
                          : "the trace starts after this session did: a flush or the master's "
                            "drop of this frame may be in what it does not hold";
    }
    if (!mEnded && frame >= mLastFrame - kCauseReach) {
        return mLoss
                   ? "the trace lost events after this frame (line " + std::to_string(mLoss->line) +
                         "): a flush or the master's drop of it may be among them"
                   : "the trace ends before this session does: a flush or the master's drop "
                     "of this frame may come after it";
    }
    return "";
}

void TraceSession::resolve(FrameRecord& f, std::vector<TraceCall const*> const& calls) const {
    for (size_t i = 0; i < calls.size(); ++i) {
        TraceCall const& c = *calls[i];
        CameraCell& cell = f.cells[i];
        if (c.words.empty()) {
            cell.verdict = Verdict::Undetermined;
            f.undeterminedWhy = !c.endNs ? (mEnded ? "the session ended while this camera's call "
                                                     "was still in the library"
                                                   : "the trace ends while this camera's call is "
                                                     "in the library")
                                         : "the trace lost this call's verdict mark";
            continue;
        }
        if (c.words != RYX_TRACE_RESULT_2 && c.words != RYX_TRACE_DROPPED) {
            continue;
        }
        std::string why = mFlushed.count(f.frame) != 0 ? "" : unsure(f.frame);
        if (mFlushed.count(f.frame) != 0) {
            cell.verdict = Verdict::Dropped;
            cell.cause = DropCause::Flush;
        } else if (!why.empty()) {
            cell.verdict = Verdict::Undetermined;
            f.undeterminedWhy = why;
        } else if (mMasterDropped.count(f.frame) != 0) {
            cell.verdict = Verdict::Dropped;
            cell.cause = DropCause::MasterDrop;
        } else if (c.words == RYX_TRACE_RESULT_2) {
            cell.verdict = Verdict::OutOfSync2;
        } else {
            cell.verdict = Verdict::Dropped;
            cell.cause = DropCause::Refused;
            auto said = mRefusals.find(f.frame);
            f.refusal = said == mRefusals.end() ? Refusal::Unknown : refusalFrom(said->second);
        }
    }
}

void TraceSession::fillFrames(Timeline& t) const {
    std::map<int, std::vector<TraceCall const*>> byFrame;
    for (auto const& c : mCalls) {
        byFrame[c.frame].push_back(&c);
    }
    for (auto const& [number, calls] : byFrame) {
        FrameRecord f;
        f.frame = number;
        TraceCall const* first = nullptr;
        bool arrivalsKnown = true;
        for (TraceCall const* c : calls) {
            f.cells.push_back(cellOf(*c));
            f.traceFirstLine = std::min(f.traceFirstLine.value_or(c->line), c->line);
            f.traceLastLine = std::max(f.traceLastLine.value_or(c->line), c->line);
            if (c->drop) {
                continue;
            }
            arrivalsKnown = arrivalsKnown && c->beginNs.has_value();
            if (c->beginNs && (first == nullptr || *c->beginNs < *first->beginNs)) {
                first = c;
            }
        }
        if (first != nullptr && arrivalsKnown) {  // the first to arrive heads the targets
            f.firstTarget = first->cam;
            f.toleranceUs = first->toleranceUs;
            f.mode = first->mode;
        }
        resolve(f, calls);
        t.frames.push_back(std::move(f));
    }
}

void TraceSession::addGaps(Timeline& t) const {
    auto undeterminedNear = [&t](int64_t from, int64_t to) {
        std::vector<int> frames;
        for (auto const& f : t.frames) {
            bool any = std::any_of(f.cells.begin(), f.cells.end(), [](CameraCell const& c) {
                return c.verdict == Verdict::Undetermined;
            });
            if (any && f.frame >= from && f.frame <= to) {
                frames.push_back(f.frame);
            }
        }
        return frames;
    };
    if (!mCreated && !mCalls.empty()) {
        t.capture.gaps.push_back(
            {mAfterLoss.value_or(mFirstLine),
             mAfterLoss ? "the trace lost events before these points: they may continue the "
                          "session before them or be a new one"
                        : "the trace starts after this session did",
             undeterminedNear(INT64_MIN, mFirstFrame + kCauseReach)});
    }
    if (!mEnded && !mCalls.empty()) {
        t.capture.gaps.push_back({mLoss ? mLoss->line : mLastLine,
                                  mLoss ? mLoss->what : "the trace ends before this session does",
                                  undeterminedNear(mLastFrame - kCauseReach, INT64_MAX)});
    }
}

Timeline TraceSession::build() {
    Timeline t;
    t.imported = true;
    t.capture.pid = mPid;
    t.capture.callsSeen = true;
    t.name = (mCreated ? "session " + std::to_string(mKey) : std::string("session")) +
             " of process " + std::to_string(mPid);
    t.source = "system trace " + mFile;
    t.clock = "trace clock (CLOCK_MONOTONIC), 1 us";
    t.description = "system trace, lines " + std::to_string(mFirstLine) + "-" +
                    std::to_string(std::max(mLastLine, mFirstLine)) + ", process " +
                    std::to_string(mPid) +
                    (mCreated     ? ""
                     : mAfterLoss ? " (after lost events: maybe the session before them)"
                                  : " (the session started before the trace)");
    for (int cam : mCameras) {
        t.labels[cam] = std::to_string(cam);
    }
    for (auto const& c : mCalls) {
        t.labels.emplace(c.cam, std::to_string(c.cam));
        t.threadOf.emplace(c.cam, "tid " + std::to_string(c.tid));
        t.capture.tidOf.emplace(c.cam, c.tid);
    }
    t.flushes = mFlushes;
    for (size_t i = 0; i < t.flushes.size(); ++i) {
        for (auto const& [cam, tid] : t.capture.tidOf) {
            t.flushes[i].sensor = tid == mFlushTids[i] ? cam : t.flushes[i].sensor;
        }
    }
    t.masterDrops = mMasterDrops;
    t.leaves = mLeaves;
    for (auto const& a : mAnomalies) {
        using Kind = LoggedAnomaly::Kind;
        (a.kind == Kind::FrameInversion  ? t.frameInversions
         : a.kind == Kind::TimeInversion ? t.timeInversions
                                         : t.missingTimestamps)
            .push_back(a);
    }
    if (!mFatal.empty()) {
        t.fatalText = mFatal;
        t.fatal = fatalRule(mFatal);
    }
    for (auto const& e : mErrors) {
        t.notes.push_back("library error: " + e);
    }
    fillFrames(t);
    addGaps(t);
    return t;
}

}  // namespace ryxsim
