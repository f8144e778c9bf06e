#include "sinks/FrameStrip.h"

#include <algorithm>

namespace ryxsim {

FrameColumn::Counts FrameColumn::of(int sensor) const {
    auto it = bySensor.find(sensor);
    return it == bySensor.end() ? Counts{} : it->second;
}

namespace {

void count(FrameColumn::Counts& n, OutcomeRun const& run, int frames) {
    switch (run.outcome) {
        case Outcome::Passed:
            n.passed += frames;
            break;
        case Outcome::Flagged:
            n.flagged += frames;
            break;
        case Outcome::Failed:
            n.failed += frames;
            break;
        case Outcome::Dropped:
            n.dropped += frames;
            break;
        case Outcome::Stuck:
            n.stuck += frames;
            break;
    }
    n.master += run.master ? frames : 0;
}

}  // namespace

FrameStrip FrameStrip::of(FrameOutcomes const& outcomes) {
    FrameStrip strip;
    if (!outcomes.any) {
        return strip;
    }
    strip.firstFrame = outcomes.firstFrame;
    // Frames numbered below the first one added are drawn in column 0.
    auto offset = [&](int frame) {
        return std::max<int64_t>(0, static_cast<int64_t>(frame) - outcomes.firstFrame);
    };
    int64_t const span = offset(outcomes.lastFrame);
    int64_t perColumn = 1;  // the fewest frames a column, a power of two, that fit kMaxColumns
    while (span / perColumn >= static_cast<int64_t>(kMaxColumns)) {
        perColumn *= 2;
    }
    strip.columnFrames = static_cast<int>(perColumn);
    strip.columns.resize(static_cast<size_t>(span / perColumn) + 1);
    for (auto const& [sensor, runs] : outcomes.bySensor) {
        for (OutcomeRun const& run : runs) {
            int64_t from = static_cast<int64_t>(run.first);
            int64_t const end = from + run.count;  // one past the run's last frame
            while (from < end) {
                // The run's frames in this column: up to the column's end or the run's.
                int64_t const column = offset(static_cast<int>(from)) / perColumn;
                int64_t const columnEnd = outcomes.firstFrame + (column + 1) * perColumn;
                int64_t const to = std::min(end, std::max(columnEnd, from + 1));
                count(strip.columns[static_cast<size_t>(column)].bySensor[sensor], run,
                      static_cast<int>(to - from));
                from = to;
            }
        }
    }
    return strip;
}

}  // namespace ryxsim
