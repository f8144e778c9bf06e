#include "model/FrameOutcomes.h"

#include "model/Timeline.h"

#include <algorithm>

namespace ryxsim {

namespace {

Outcome outcomeOfVerdict(Verdict v) {
    switch (v) {
        case Verdict::InSync:
        case Verdict::Unchecked:
            return Outcome::Passed;
        case Verdict::OutOfSync1:
        case Verdict::OutOfSync:
            return Outcome::Flagged;
        case Verdict::OutOfSync2:
            return Outcome::Failed;
        case Verdict::Dropped:
            return Outcome::Dropped;
        case Verdict::Blocked:
        case Verdict::NotRun:
        case Verdict::Undetermined:
            return Outcome::Stuck;
    }
    return Outcome::Stuck;
}

}  // namespace

void FrameOutcomes::add(FrameRecord const& f) {
    if (!any) {
        firstFrame = lastFrame = f.frame;
        any = true;
    }
    lastFrame = std::max(lastFrame, f.frame);
    for (auto const& c : f.cells) {
        Outcome outcome = outcomeOfVerdict(c.verdict);
        bool master = c.master;
        std::vector<OutcomeRun>& runs = bySensor[c.sensor];
        OutcomeRun* last = runs.empty() ? nullptr : &runs.back();
        if (last != nullptr && last->outcome == outcome && last->master == master &&
            static_cast<int64_t>(last->first) + last->count == f.frame) {
            ++last->count;
        } else {
            runs.push_back({f.frame, 1, outcome, master});
        }
    }
}

}  // namespace ryxsim
