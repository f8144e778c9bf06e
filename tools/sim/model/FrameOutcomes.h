#pragma once
// What came of every frame on each camera, one byte a camera and frame, for the whole session:
// the full records of passed frames are let go after the latest few thousand (Timeline::frames),
// and this is what still tells, however long the session ran, where its frames went wrong.

#include <cstdint>
#include <map>
#include <vector>

namespace ryxsim {

struct FrameRecord;

enum class Outcome : uint8_t {
    None,     // no cell of this camera for the frame number
    Passed,   // in sync, or not checked
    Flagged,  // out of sync and delivered (RESULT 1, or the mode was not logged)
    Failed,   // out of sync and failed (RESULT 2)
    Dropped,
    Stuck,  // blocked, never called, or undetermined
};

struct FrameOutcomes {
    static constexpr uint8_t kMasterBit = 0x80;  // the camera was the frame's master

    int firstFrame = 0;
    // sensor -> per frame number from firstFrame: an Outcome, with kMasterBit.
    std::map<int, std::vector<uint8_t>> bySensor;

    // Frames are added in ascending frame number.
    void add(FrameRecord const& f);
    static Outcome outcomeOf(uint8_t cell) { return static_cast<Outcome>(cell & ~kMasterBit); }
    static bool masterOf(uint8_t cell) { return (cell & kMasterBit) != 0; }
};

}  // namespace ryxsim
