#include "model/WhatIf.h"

#include <algorithm>
#include <cstdlib>
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

void spread(FrameRecord const& f, VerdictChange& c) {
    CameraCell const* first = f.firstTarget ? f.cell(*f.firstTarget) : nullptr;
    if (first == nullptr || !first->sofNs) {
        return;
    }
    for (auto const& cell : f.cells) {
        if (!cell.sofNs) {
            continue;
        }
        int64_t us = std::llabs(*cell.sofNs - *first->sofNs) / 1000;
        int64_t ms = std::llabs(*cell.sofNs / 1000000 - *first->sofNs / 1000000);
        c.spreadUs = std::max(c.spreadUs.value_or(0), us);
        c.comparedMs = std::max(c.comparedMs.value_or(0), ms);
    }
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
        spread(f, c);
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
