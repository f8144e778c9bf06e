#pragma once
// What came of every frame on each camera, for the whole session: the full records of passed
// frames are let go after the latest few thousand (Timeline::frames), and this is what still
// tells, however long the session ran, where its frames went wrong. It is kept as runs of
// consecutive frame numbers with the same outcome, so it grows with the changes of outcome and
// the gaps between frame numbers, never with how far apart the numbers lie.

#include <cstdint>
#include <map>
#include <vector>

namespace ryxsim {

struct FrameRecord;

enum class Outcome : uint8_t {
    Passed,   // in sync, or not checked
    Flagged,  // out of sync and delivered (RESULT 1, or the mode was not logged)
    Failed,   // out of sync and failed (RESULT 2)
    Dropped,
    Stuck,  // blocked, never called, or undetermined
};

// Frames first .. first + count - 1 of one camera, each with the same outcome and master role.
struct OutcomeRun {
    int first = 0;
    int count = 0;
    Outcome outcome = Outcome::Passed;
    bool master = false;
};

struct FrameOutcomes {
    bool any = false;
    int firstFrame = 0;  // of the first frame added
    int lastFrame = 0;   // the highest frame number added
    // sensor -> its runs, in the order the frames were added
    std::map<int, std::vector<OutcomeRun>> bySensor;

    // Frames are added in ascending frame number; one out of order starts a run of its own.
    void add(FrameRecord const& f);
};

}  // namespace ryxsim
