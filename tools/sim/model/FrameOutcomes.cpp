#include "model/FrameOutcomes.h"

#include "model/Timeline.h"

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
    if (bySensor.empty()) {
        firstFrame = f.frame;
    }
    if (f.frame < firstFrame) {
        return;  // out of order: the frames are folded ascending
    }
    size_t at = static_cast<size_t>(f.frame - firstFrame);
    for (auto const& c : f.cells) {
        std::vector<uint8_t>& cells = bySensor[c.sensor];
        if (cells.size() <= at) {
            cells.resize(at + 1, static_cast<uint8_t>(Outcome::None));
        }
        cells[at] = static_cast<uint8_t>(outcomeOfVerdict(c.verdict)) | (c.master ? kMasterBit : 0);
    }
}

}  // namespace ryxsim
