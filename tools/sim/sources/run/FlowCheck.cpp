#include "sources/run/FlowCheck.h"

#include "model/Strings.h"
#include "sources/LibraryMessages.h"

#include <algorithm>
#include <deque>
#include <map>
#include <set>

namespace ryxsim {

namespace {

// The library keeps the cameras arrived for its last frames, and a few frames in flight.
constexpr size_t kArrivalFrames = static_cast<size_t>(kArrivalRecord);
constexpr size_t kMaxInFlight = static_cast<size_t>(kFramesInFlight);

bool entersRendezvous(CallRow const& r) {
    return r.kind == CallKind::Result && r.required && r.syncIds && !r.syncIds->empty() &&
           (!r.enable || (*r.enable & 1) != 0);
}

// The frame's sync targets as the first camera to arrive sets them: itself, then its sync ids.
std::vector<int32_t> targetsOf(CallRow const& r) {
    std::vector<int32_t> t{r.sensor};
    t.insert(t.end(), r.syncIds->begin(), r.syncIds->end());
    return t;
}

std::string idList(std::vector<int32_t> const& ids) {
    std::string s;
    for (int32_t id : ids) {
        s += (s.empty() ? "" : ", ") + std::to_string(id);
    }
    return s;
}

// "f0-f9, f12"
std::string frameList(std::vector<int> frames) {
    std::sort(frames.begin(), frames.end());
    frames.erase(std::unique(frames.begin(), frames.end()), frames.end());
    std::string s;
    for (size_t i = 0; i < frames.size();) {
        size_t j = i;
        while (j + 1 < frames.size() && frames[j + 1] == frames[j] + 1) {
            ++j;
        }
        s += (s.empty() ? "f" : ", f") + std::to_string(frames[i]) +
             (j > i ? "-f" + std::to_string(frames[j]) : "");
        i = j + 1;
    }
    return s;
}

// Messages that differ only in their frames are given once, with every frame.
class Grouped {
  public:
    void add(int frame, std::string const& what) {
        auto [it, fresh] = mFrames.try_emplace(what);
        if (fresh) {
            mOrder.push_back(what);
        }
        it->second.push_back(frame);
    }
    std::vector<std::string> lines() const {
        std::vector<std::string> out;
        for (auto const& what : mOrder) {
            out.push_back(frameList(mFrames.at(what)) + ": " + what);
        }
        return out;
    }

  private:
    std::map<std::string, std::vector<int>> mFrames;
    std::vector<std::string> mOrder;
};

struct InFlight {
    std::vector<int32_t> targets;
    std::set<int> arrived;
};

// "line 12" of a trace file, or "call 12" of a generated run.
std::string where(CallRow const& row, size_t index) {
    return row.sourceLine > 0 ? "line " + std::to_string(row.sourceLine)
                              : "call " + std::to_string(index + 1);
}

// "camera 2" or "cameras 1, 2"
std::string cameras(std::set<int> const& ids) {
    return (ids.size() == 1 ? "camera " : "cameras ") +
           idList(std::vector<int32_t>(ids.begin(), ids.end()));
}

// Walks the calls in trace order through a model of the rendezvous, as --ordered makes them:
// a call enters once the one before it has returned or waits in the library.
class OrderedWalk {
  public:
    OrderedWalk(Grouped& violations, Grouped& warnings, FlowOutcome& outcome)
        : mViolations(violations), mWarnings(warnings), mOutcome(outcome) {}

    void add(CallRow const& row) {
        size_t index = mCalls++;
        if (mStopped || mAborted) {
            return;
        }
        if (mWaitingOn.count(row.sensor) != 0) {
            stall(row, index);
            return;
        }
        switch (row.kind) {
            case CallKind::Flush:
                mEnded.insert(row.frame);
                endFrame(row.frame);
                break;
            case CallKind::Drop:
                drop(row, index);
                break;
            case CallKind::Leave:
                leave(row.sensor);
                break;
            case CallKind::Result:
                if (entersRendezvous(row) && mEnded.count(row.frame) == 0) {
                    arrive(row);
                }
                break;
            case CallKind::Crop:
                break;
        }
    }

    // The trace is over: frames still waiting block their cameras.
    void finish() {
        if (mStopped || mAborted || mWaitingOn.empty()) {
            return;
        }
        for (auto const& [frame, e] : mLive) {
            std::string who = waitersOf(frame);
            std::string verb = startsWith(who, "cameras") ? " wait" : " waits";
            std::string what = startsWith(missing(frame), "camera")
                                   ? " for " + missing(frame) + ", which sends no more calls for it"
                                   : " for " + missing(frame);
            mWarnings.add(frame, who + verb + what + ": blocked at the end of the trace");
        }
        block(mLive.begin()->first);
    }

  private:
    // A sensor leaving counts as its arrival in every live frame that lists it.
    void leave(int sensor) {
        std::vector<int> listing;
        for (auto const& [frame, e] : mLive) {
            if (std::find(e.targets.begin(), e.targets.end(), sensor) != e.targets.end()) {
                listing.push_back(frame);
            }
        }
        for (int frame : listing) {
            dropArrival(frame, sensor);
        }
    }

    // The pipeline drops its frame: without sync ids the library ignores it; the frame's
    // master drops it for every camera (later results of it are dropped on arrival); any other
    // camera's drop counts as its arrival, completing the frame when it was the last.
    void drop(CallRow const& row, size_t index) {
        if (!row.syncIds || row.syncIds->empty()) {
            mWarnings.add(row.frame, "camera " + std::to_string(row.sensor) + " drops it (" +
                                         where(row, index) +
                                         ") without RYX_FRAMESYNC_ID: the library ignores such "
                                         "a drop, so the frame's other cameras wait for it");
            return;
        }
        if (row.master && *row.master == row.sensor) {
            mEnded.insert(row.frame);
            endFrame(row.frame);
            return;
        }
        dropArrival(row.frame, row.sensor);
    }

    void dropArrival(int frame, int camera) {
        pruneArrivals(frame);
        size_t arrivedCount = recordArrival(frame, camera);
        auto it = mLive.find(frame);
        if (it != mLive.end() && arrivedCount == it->second.targets.size()) {
            endFrame(frame);
        }
    }

    // A camera's next call is due while its last one still waits: in trace order nothing after
    // it runs, and every camera waiting now stays so.
    void stall(CallRow const& row, size_t index) {
        int waitsIn = mWaitingOn.at(row.sensor);
        mWarnings.add(waitsIn, "in trace order camera " + std::to_string(row.sensor) +
                                   "'s call for f" + std::to_string(row.frame) + " (" +
                                   where(row, index) + ") is due while its call for f" +
                                   std::to_string(waitsIn) + " still waits for " +
                                   missing(waitsIn) + ": an ordered replay blocks there");
        block(waitsIn);
        mStopped = true;
    }

    void block(int frame) {
        if (mOutcome.kind != FlowOutcome::Kind::Completes) {
            return;
        }
        mOutcome.kind = FlowOutcome::Kind::Blocks;
        mOutcome.frame = frame;
        for (auto const& [camera, waitsIn] : mWaitingOn) {
            mOutcome.waiting.insert(camera);
        }
        mOutcome.words = "block in f" + std::to_string(frame) + " with " +
                         cameras(mOutcome.waiting) + " waiting";
    }

    void abort(int frame, std::string const& fatal) {
        if (mOutcome.kind != FlowOutcome::Kind::Completes) {
            return;
        }
        mOutcome = {FlowOutcome::Kind::Aborts,
                    frame,
                    fatal,
                    {},
                    "abort at f" + std::to_string(frame) + " (\"" + fatal + "\")"};
        mAborted = true;
    }

    void pruneArrivals(int f) {
        if (mArrived.size() < kArrivalFrames) {
            return;
        }
        int oldest = mArrived.front().first;
        if (mLive.count(oldest) != 0) {
            mViolations.add(f, "the library's record of arrivals keeps " +
                                   std::to_string(kArrivalRecord) + " frames and drops f" +
                                   std::to_string(oldest) +
                                   " while it is still in flight, waiting for " + missing(oldest));
            abort(f, RYX_MSG_ELEMENT_NOT_NULL);
            return;
        }
        mArrived.pop_front();
    }

    size_t recordArrival(int f, int cam) {
        auto rec = std::find_if(mArrived.rbegin(), mArrived.rend(),
                                [&](auto const& p) { return p.first == f; });
        if (rec == mArrived.rend()) {
            mArrived.push_back({f, {cam}});
            return 1;
        }
        rec->second.insert(cam);
        return rec->second.size();
    }

    void openFrame(CallRow const& row) {
        if (mLive.size() >= kMaxInFlight) {
            std::map<std::string, std::vector<int>> byMissing;
            for (auto const& [frame, e] : mLive) {
                byMissing[missing(frame)].push_back(frame);
            }
            std::string waits;
            for (auto const& [who, frames] : byMissing) {
                waits += (waits.empty() ? "" : "; ") + frameList(frames) + " still wait for " + who;
            }
            mViolations.add(row.frame, "an 11th frame in flight (camera " +
                                           std::to_string(row.sensor) + ") while " + waits);
            abort(row.frame, RYX_MSG_CHECK_FLOW);
        }
        mLive.emplace(row.frame, InFlight{targetsOf(row), {}});
    }

    void arrive(CallRow const& row) {
        int const f = row.frame, cam = row.sensor;
        pruneArrivals(f);
        if (mAborted) {
            return;
        }
        size_t arrivedCount = recordArrival(f, cam);
        if (mLive.count(f) == 0) {
            openFrame(row);
        }
        InFlight& e = mLive.at(f);
        auto const& t = e.targets;
        if (std::find(t.begin(), t.end(), cam) == t.end()) {
            mViolations.add(f, "camera " + std::to_string(cam) +
                                   " is outside the sync targets of the frame (" + idList(t) +
                                   ") and, in trace order, arrives while it waits for " +
                                   missing(f) + ": the library aborts");
            abort(f, RYX_MSG_NOT_A_TARGET);
        }
        e.arrived.insert(cam);
        if (arrivedCount == e.targets.size()) {
            endFrame(f);
        } else {
            mWaitingOn[cam] = f;
        }
    }

    std::string waitersOf(int frame) const {
        std::set<int> ids;
        for (auto const& [camera, waitsIn] : mWaitingOn) {
            if (waitsIn == frame) {
                ids.insert(camera);
            }
        }
        return cameras(ids);
    }

    // "camera 2" or "cameras 1, 2"
    std::string missing(int frame) const {
        std::set<int> ids;
        InFlight const& e = mLive.at(frame);
        for (int32_t id : e.targets) {
            if (e.arrived.count(id) == 0) {
                ids.insert(id);
            }
        }
        return ids.empty() ? "a completion that arrivals cannot give (its sync targets name a "
                             "camera twice)"
                           : cameras(ids);
    }

    void endFrame(int frame) {
        mLive.erase(frame);
        for (auto it = mWaitingOn.begin(); it != mWaitingOn.end();) {
            it = it->second == frame ? mWaitingOn.erase(it) : std::next(it);
        }
    }

    Grouped& mViolations;
    Grouped& mWarnings;
    FlowOutcome& mOutcome;
    std::map<int, InFlight> mLive;
    std::deque<std::pair<int, std::set<int>>> mArrived;
    std::map<int, int> mWaitingOn;  // camera -> frame it waits in
    std::set<int> mEnded;           // dropped or flushed: not followed further
    size_t mCalls = 0;
    bool mStopped = false;
    bool mAborted = false;  // in trace order the process ended here: nothing after it runs
};

struct IndexedRow {
    size_t index;
    CallRow row;
};

}  // namespace

struct CallFlowChecker::State {
    Grouped walkViolations, targetViolations, warnings;
    FlowOutcome outcome;
    bool otherOrdersAbort = false;
    OrderedWalk walk{walkViolations, warnings, outcome};
    std::map<int, std::vector<IndexedRow>> byFrame;  // frames not checked yet
    size_t calls = 0;

    // A pipeline delivers each frame's result once.
    void checkRepeats(int frame, std::vector<IndexedRow> const& rows) {
        std::map<int, std::vector<std::string>> seen;
        for (IndexedRow const& r : rows) {
            seen[r.row.sensor].push_back(where(r.row, r.index));
        }
        for (auto const& [camera, places] : seen) {
            if (places.size() < 2) {
                continue;
            }
            std::string list;
            for (size_t i = 0; i < places.size(); ++i) {
                list += (i == 0 ? "" : (i + 1 == places.size() ? " and " : ", ")) + places[i];
            }
            std::string times =
                places.size() == 2 ? "twice" : std::to_string(places.size()) + " times";
            targetViolations.add(
                frame, "camera " + std::to_string(camera) + " sends its result " + times + " (" +
                           list +
                           "): a pipeline delivers each frame once; the library takes a repeat "
                           "as a new arrival, so its verdicts depend on the arrival order");
        }
    }

    // Per frame, whichever camera arrives first sets the sync targets; any other camera of the
    // frame outside them aborts when it arrives before the frame completes.
    void checkTargets(int frame, std::vector<IndexedRow> const& rows) {
        for (IndexedRow const& firstRow : rows) {
            CallRow const& first = firstRow.row;
            auto targets = targetsOf(first);
            if (std::count(targets.begin(), targets.end(), first.sensor) > 1) {
                warnings.add(frame, "camera " + std::to_string(first.sensor) +
                                        " names itself in its sync ids (" + idList(*first.syncIds) +
                                        "): when it arrives first the frame's sync targets (" +
                                        idList(targets) +
                                        ") count it twice, so the frame never completes by "
                                        "arrivals and its cameras block in syncResultCheck");
            }
            for (IndexedRow const& otherRow : rows) {
                CallRow const& other = otherRow.row;
                if (std::find(targets.begin(), targets.end(), other.sensor) != targets.end()) {
                    continue;
                }
                otherOrdersAbort = true;
                targetViolations.add(
                    frame, "camera " + std::to_string(other.sensor) +
                               " is outside the sync targets camera " +
                               std::to_string(first.sensor) + " sets (" + idList(targets) +
                               "): the library aborts in the arrival orders where camera " +
                               std::to_string(first.sensor) + " arrives first and camera " +
                               std::to_string(other.sensor) + " before the frame completes");
            }
        }
    }

    void checkBefore(int64_t frame) {
        while (!byFrame.empty() && byFrame.begin()->first < frame) {
            checkRepeats(byFrame.begin()->first, byFrame.begin()->second);
            checkTargets(byFrame.begin()->first, byFrame.begin()->second);
            byFrame.erase(byFrame.begin());
        }
    }
};

CallFlowChecker::CallFlowChecker() : mState(std::make_unique<State>()) {}
CallFlowChecker::~CallFlowChecker() = default;

void CallFlowChecker::add(CallRow const& row) {
    mState->walk.add(row);
    size_t index = mState->calls++;
    if (entersRendezvous(row)) {
        mState->checkBefore(int64_t{row.frame} - kOpenFrames);
        mState->byFrame[row.frame].push_back({index, row});
    }
}

FlowReport CallFlowChecker::finish() {
    mState->walk.finish();
    mState->checkBefore(INT64_MAX);
    FlowReport r{mState->walkViolations.lines(), mState->warnings.lines(), mState->outcome,
                 mState->otherOrdersAbort};
    for (auto& line : mState->targetViolations.lines()) {
        r.violations.push_back(line);
    }
    return r;
}

FlowOutcome runOutcome(std::set<int> const& blockedCameras) {
    FlowOutcome o;
    if (!blockedCameras.empty()) {
        o.kind = FlowOutcome::Kind::Blocks;
        o.waiting = blockedCameras;
        o.words = "blocked with " + cameras(blockedCameras) + " waiting";
    }
    return o;
}

std::string flowDifference(FlowReport const& check, FlowOutcome const& run, bool ordered) {
    FlowOutcome const& foreseen = check.traceOrder;
    if (foreseen.kind == run.kind && foreseen.waiting == run.waiting) {
        return "";
    }
    std::string did = run.kind == FlowOutcome::Kind::Completes ? "completed" : run.words;
    if (ordered) {
        return "the call-flow check foresaw that the calls in trace order " +
               (foreseen.kind == FlowOutcome::Kind::Completes ? "complete" : foreseen.words) +
               ", but this ordered run " + did + ": a fault of the tool, please report it";
    }
    return "in trace order the calls " +
           (foreseen.kind == FlowOutcome::Kind::Completes ? std::string("complete")
                                                          : foreseen.words) +
           " (the call-flow check's finding); this free-running run " + did +
           ", because its threads arrived in another order (--ordered replays the trace order)";
}

FlowReport checkCallFlow(Trace const& trace) {
    CallFlowChecker check;
    for (CallRow const& row : trace.rows) {
        check.add(row);
    }
    return check.finish();
}

}  // namespace ryxsim
