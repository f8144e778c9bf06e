#include "model/WhatIf.h"

#include <set>

namespace ryxsim {

namespace {

bool sameOutcome(CameraCell const& before, CameraCell const& after) {
    if (before.verdict == Verdict::OutOfSync) {
        return after.verdict == Verdict::OutOfSync1 || after.verdict == Verdict::OutOfSync2 ||
               after.verdict == Verdict::OutOfSync;
    }
    if (before.verdict != after.verdict) {
        return false;
    }
    return before.verdict != Verdict::Dropped || before.cause == after.cause;
}

VerdictChange changeOf(FrameRecord const& f, CameraCell const& before, CameraCell const* after) {
    VerdictChange c;
    c.frame = f.frame;
    c.sensor = before.sensor;
    c.before = before.verdict;
    c.causeBefore = before.cause;
    if (after != nullptr) {
        c.after = after->verdict;
        c.causeAfter = after->cause;
        c.refusalAfter = after->cause == DropCause::Refused ? f.refusal : Refusal::None;
        if (auto ns = f.sofOffsetNs(after->sensor)) {
            c.offsetUs = *ns / 1000;
            CameraCell const* first = f.cell(*f.firstTarget);
            int64_t ms = *after->sofNs / 1000000 - *first->sofNs / 1000000;
            c.comparedMs = ms < 0 ? -ms : ms;
        }
        c.toleranceUs = f.toleranceUs;
        c.firstTarget = f.firstTarget;
    }
    return c;
}

}  // namespace

std::vector<VerdictChange> verdictChanges(Timeline const& before, Timeline const& after) {
    std::map<int, FrameRecord const*> afterFrames;
    for (auto const& f : after.frames) {
        afterFrames[f.frame] = &f;
    }
    std::vector<VerdictChange> changes;
    for (auto const& f : before.frames) {
        auto it = afterFrames.find(f.frame);
        for (auto const& cell : f.cells) {
            if (cell.verdict == Verdict::Undetermined || cell.verdict == Verdict::NotRun) {
                continue;
            }
            CameraCell const* now =
                it == afterFrames.end() ? nullptr : it->second->cell(cell.sensor);
            if (now == nullptr || !sameOutcome(cell, *now)) {
                changes.push_back(changeOf(it == afterFrames.end() ? f : *it->second, cell, now));
            }
        }
    }
    return changes;
}

VerdictCounts verdictCounts(Timeline const& t) {
    VerdictCounts counts;
    for (auto const& f : t.frames) {
        for (auto const& c : f.cells) {
            if (c.verdict != Verdict::NotRun) {
                counts[c.sensor][c.verdict]++;
            }
        }
    }
    return counts;
}

WhatIfFacts compareSessions(Timeline const& before, Timeline const& after,
                            Timeline const* unchanged) {
    WhatIfFacts w;
    w.changes = verdictChanges(before, after);
    w.countsBefore = verdictCounts(before);
    w.countsAfter = verdictCounts(after);
    for (auto const& [sensor, counts] : w.countsBefore) {
        auto it = counts.find(Verdict::Undetermined);
        w.undeterminedBefore += it == counts.end() ? 0 : it->second;
    }
    if (unchanged != nullptr) {
        w.timing = verdictChanges(before, *unchanged);
    }
    return w;
}

}  // namespace ryxsim
