#pragma once
// A session set beside itself run again: which camera's frames came out otherwise, before →
// after, and each verdict's count before and after. `before` is the capture (or the trace
// replayed as it is), `after` the replay with other settings.

#include "model/Timeline.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ryxsim {

// One camera's frame that came out otherwise.
struct VerdictChange {
    int frame = 0;
    int sensor = 0;
    Verdict before = Verdict::NotRun, after = Verdict::NotRun;
    DropCause causeBefore = DropCause::None, causeAfter = DropCause::None;
    Refusal refusalAfter = Refusal::None;
    // After: the farthest start of frame of the frame's cameras from the first target's (the
    // frame's verdict is every camera's), exactly and as the library compares, whole ms.
    std::optional<int64_t> spreadUs;
    std::optional<int64_t> comparedMs;
    std::optional<int64_t> toleranceUs;  // the frame's tolerance, after
    std::optional<int> firstTarget;      // after
};

using VerdictCounts = std::map<int, std::map<Verdict, int>>;  // sensor -> verdict -> frames

struct WhatIfFacts {
    std::vector<std::string> settings;  // as given ("tolerance_us=2000")
    std::string before;                 // what is compared against: "the capture", ...
    std::vector<VerdictChange> changes;
    VerdictCounts countsBefore, countsAfter;
    // Frames the replay without changes already gives otherwise than the capture: where thread
    // timing decides (a drop that raced a wait), a replay can differ. Their changes under the
    // settings are not the settings' doing alone.
    std::vector<VerdictChange> timing;
    int undeterminedBefore = 0;  // cells the capture cannot tell, left out of the comparison
};

// The cells of `after` whose verdict or cause differs from `before`'s, by frame and camera. An
// out-of-sync cell whose result (1 or 2) the capture does not show matches either; a cell the
// capture cannot tell is no change.
std::vector<VerdictChange> verdictChanges(Timeline const& before, Timeline const& after);

// Every cell's verdict, counted per camera (cells not run left out).
VerdictCounts verdictCounts(Timeline const& t);

// `before` -> `after` compared, with the frames `unchanged` (the replay without settings)
// already gives otherwise.
WhatIfFacts compareSessions(Timeline const& before, Timeline const& after,
                            Timeline const* unchanged);

}  // namespace ryxsim
