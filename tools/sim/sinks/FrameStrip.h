#pragma once
// A long session drawn in columns: at most kMaxColumns, each holding the same power of two of
// consecutive frame numbers, and per camera how many of its frames in the column came out which
// way. Made from the timeline's outcomes when the picture is drawn.

#include "model/FrameOutcomes.h"

#include <cstddef>
#include <map>
#include <vector>

namespace ryxsim {

struct FrameColumn {
    struct Counts {
        int passed = 0, flagged = 0, failed = 0, dropped = 0, stuck = 0, master = 0;
    };
    std::map<int, Counts> bySensor;

    Counts of(int sensor) const;
};

struct FrameStrip {
    static constexpr size_t kMaxColumns = 2048;
    int firstFrame = 0;    // of column 0
    int columnFrames = 1;  // column i holds firstFrame + i * columnFrames onwards
    std::vector<FrameColumn> columns;

    static FrameStrip of(FrameOutcomes const& outcomes);
};

}  // namespace ryxsim
