#include "sources/run/FlowCheck.h"

#include <algorithm>
#include <deque>
#include <map>
#include <set>

namespace ryxsim {

namespace {

// The library keeps the cameras arrived for its last 20 frames, and at most 10 frames in flight.
constexpr size_t kArrivalRecord = 20;
constexpr size_t kMaxInFlight = 10;

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

// Walks the calls in trace order through a model of the rendezvous.
class OrderedWalk {
  public:
    OrderedWalk(Grouped& violations) : mViolations(violations) {}

    void add(CallRow const& row) {
        if (mStopped || mWaitingOn.count(row.sensor) != 0) {
            mStopped = true;  // this camera still waits: in trace order nothing after it runs
            return;
        }
        switch (row.kind) {
            case CallKind::Flush:
            case CallKind::Drop:
                mEnded.insert(row.frame);
                endFrame(row.frame);
                break;
            case CallKind::Leave:
                for (auto it = mLive.begin(); it != mLive.end();) {
                    auto const& t = it->second.targets;
                    int frame = it->first;
                    ++it;
                    if (std::find(t.begin(), t.end(), row.sensor) != t.end()) {
                        endFrame(frame);
                    }
                }
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

  private:
    void arrive(CallRow const& row) {
        int const f = row.frame, cam = row.sensor;
        if (mArrived.size() >= kArrivalRecord) {
            int oldest = mArrived.front().first;
            if (mLive.count(oldest) != 0) {
                mViolations.add(
                    f, "the library's record of arrivals keeps " + std::to_string(kArrivalRecord) +
                           " frames and drops f" + std::to_string(oldest) +
                           " while it is still in flight, waiting for " + missing(oldest));
            }
            mArrived.pop_front();
        }
        auto rec = std::find_if(mArrived.rbegin(), mArrived.rend(),
                                [&](auto const& p) { return p.first == f; });
        if (rec == mArrived.rend()) {
            mArrived.push_back({f, {cam}});
            rec = mArrived.rbegin();
        } else {
            rec->second.insert(cam);
        }
        size_t arrivedCount = rec->second.size();

        auto it = mLive.find(f);
        if (it == mLive.end()) {
            if (mLive.size() >= kMaxInFlight) {
                std::map<std::string, std::vector<int>> byMissing;
                for (auto const& [frame, e] : mLive) {
                    byMissing[missing(frame)].push_back(frame);
                }
                std::string waits;
                for (auto const& [who, frames] : byMissing) {
                    waits +=
                        (waits.empty() ? "" : "; ") + frameList(frames) + " still wait for " + who;
                }
                mViolations.add(f, "an 11th frame in flight (camera " + std::to_string(cam) +
                                       ") while " + waits);
            }
            it = mLive.emplace(f, InFlight{targetsOf(row), {}}).first;
        }
        // No camera enters a frame twice here: a sensor's calls are made one after another, and a
        // call leaves only after its frame has left the library.
        InFlight& e = it->second;
        e.arrived.insert(cam);
        if (arrivedCount == e.targets.size()) {
            endFrame(f);
        } else {
            mWaitingOn[cam] = f;
        }
    }

    // "camera 2" or "cameras 1, 2"
    std::string missing(int frame) const {
        std::vector<int32_t> ids;
        InFlight const& e = mLive.at(frame);
        for (int32_t id : std::set<int32_t>(e.targets.begin(), e.targets.end())) {
            if (e.arrived.count(id) == 0) {
                ids.push_back(id);
            }
        }
        if (ids.empty()) {
            return "a camera named twice in its sync targets";
        }
        return (ids.size() == 1 ? "camera " : "cameras ") + idList(ids);
    }

    void endFrame(int frame) {
        mLive.erase(frame);
        for (auto it = mWaitingOn.begin(); it != mWaitingOn.end();) {
            it = it->second == frame ? mWaitingOn.erase(it) : std::next(it);
        }
    }

    Grouped& mViolations;
    std::map<int, InFlight> mLive;
    std::deque<std::pair<int, std::set<int>>> mArrived;
    std::map<int, int> mWaitingOn;  // camera -> frame it waits in
    std::set<int> mEnded;           // dropped or flushed: not followed further
    bool mStopped = false;
};

}  // namespace

struct CallFlowChecker::State {
    Grouped walkViolations, targetViolations, warnings;
    OrderedWalk walk{walkViolations};
    std::map<int, std::vector<CallRow>> byFrame;  // frames not checked yet

    // Per frame, whichever camera arrives first sets the sync targets; any other camera of the
    // frame outside them aborts when it arrives before the frame completes.
    void checkTargets(int frame, std::vector<CallRow> const& rows) {
        for (CallRow const& first : rows) {
            auto targets = targetsOf(first);
            if (std::count(targets.begin(), targets.end(), first.sensor) > 1) {
                warnings.add(frame, "camera " + std::to_string(first.sensor) +
                                        " names itself in its sync ids (" + idList(*first.syncIds) +
                                        "): when it arrives first the frame's sync targets (" +
                                        idList(targets) +
                                        ") count it twice, so the frame never completes by "
                                        "arrivals and its cameras block in syncResultCheck");
            }
            for (CallRow const& other : rows) {
                if (std::find(targets.begin(), targets.end(), other.sensor) != targets.end()) {
                    continue;
                }
                bool traceOrder = &first == &rows.front();
                targetViolations.add(
                    frame, "camera " + std::to_string(other.sensor) +
                               " is outside the sync targets camera " +
                               std::to_string(first.sensor) + " sets (" + idList(targets) +
                               "): the library aborts in the arrival orders where "
                               "camera " +
                               std::to_string(first.sensor) + " arrives first and camera " +
                               std::to_string(other.sensor) + " before the frame completes" +
                               (traceOrder ? " (the trace order is one)" : ""));
            }
        }
    }

    void checkBefore(int64_t frame) {
        while (!byFrame.empty() && byFrame.begin()->first < frame) {
            checkTargets(byFrame.begin()->first, byFrame.begin()->second);
            byFrame.erase(byFrame.begin());
        }
    }
};

CallFlowChecker::CallFlowChecker() : mState(std::make_unique<State>()) {}
CallFlowChecker::~CallFlowChecker() = default;

void CallFlowChecker::add(CallRow const& row) {
    mState->walk.add(row);
    if (entersRendezvous(row)) {
        mState->checkBefore(int64_t{row.frame} - kOpenFrames);
        mState->byFrame[row.frame].push_back(row);
    }
}

FlowReport CallFlowChecker::finish() {
    mState->checkBefore(INT64_MAX);
    FlowReport r{mState->walkViolations.lines(), mState->warnings.lines()};
    for (auto& line : mState->targetViolations.lines()) {
        r.violations.push_back(line);
    }
    return r;
}

FlowReport checkCallFlow(Trace const& trace) {
    CallFlowChecker check;
    for (CallRow const& row : trace.rows) {
        check.add(row);
    }
    return check.finish();
}

}  // namespace ryxsim
