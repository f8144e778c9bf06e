#include "sinks/FrameStrip.h"

#include <algorithm>

namespace ryxsim {

FrameColumn::Counts FrameColumn::of(int sensor) const {
    auto it = bySensor.find(sensor);
    return it == bySensor.end() ? Counts{} : it->second;
}

namespace {

void count(FrameColumn::Counts& n, uint8_t cell) {
    switch (FrameOutcomes::outcomeOf(cell)) {
        case Outcome::None:
            return;
        case Outcome::Passed:
            ++n.passed;
            break;
        case Outcome::Flagged:
            ++n.flagged;
            break;
        case Outcome::Failed:
            ++n.failed;
            break;
        case Outcome::Dropped:
            ++n.dropped;
            break;
        case Outcome::Stuck:
            ++n.stuck;
            break;
    }
    n.master += FrameOutcomes::masterOf(cell) ? 1 : 0;
}

}  // namespace

FrameStrip FrameStrip::of(FrameOutcomes const& outcomes) {
    FrameStrip strip;
    strip.firstFrame = outcomes.firstFrame;
    size_t frames = 0;
    for (auto const& [sensor, cells] : outcomes.bySensor) {
        frames = std::max(frames, cells.size());
    }
    if (frames == 0) {
        return strip;
    }
    // The fewest frames a column, a power of two, that fit the session in kMaxColumns.
    while ((frames - 1) / static_cast<size_t>(strip.columnFrames) >= kMaxColumns) {
        strip.columnFrames *= 2;
    }
    strip.columns.resize((frames - 1) / static_cast<size_t>(strip.columnFrames) + 1);
    for (auto const& [sensor, cells] : outcomes.bySensor) {
        for (size_t i = 0; i < cells.size(); ++i) {
            if (FrameOutcomes::outcomeOf(cells[i]) != Outcome::None) {
                count(strip.columns[i / static_cast<size_t>(strip.columnFrames)].bySensor[sensor],
                      cells[i]);
            }
        }
    }
    return strip;
}

}  // namespace ryxsim
