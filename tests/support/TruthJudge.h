#pragma once
// Judges what `explain` says of a capture against what really happened (TruthSessions.h,
// TruthCapture.h). Every statement of the report is checked:
//   - each frame's sessions: its lines come from one session of the truth, and a report session
//     holds one true session (at the warning level, where no line marks a new session, it may
//     hold more only when it says so), a reconnect's re-printed part a session of its own;
//   - each camera's verdict, cause, refusal, master and start of frame against the run's;
//   - each "undetermined" against what the capture lacks: lines it lost near the frame, the
//     frame cut by the capture's start or end, or no thread ids where a camera of the frame was
//     really dropped; any other is false;
//   - each gap against the capture's real losses, and "frames X-Y have no line" against the
//     capture's lines; a session "started before the capture" only where it did.
// It also counts the cameras' frames the capture could decide and how many the report decided.

#include "TruthCapture.h"
#include "model/Timeline.h"

#include <map>
#include <string>
#include <vector>

namespace ryxtest {

struct Judgement {
    size_t statements = 0;                   // cells, gaps and sessions judged
    std::vector<std::string> falseOnes;      // each false statement, in words
    std::map<std::string, size_t> unknowns;  // undetermined cells, by what the capture lacks
    size_t decidable = 0, decided = 0;       // cells the capture could decide, and did
};

Judgement judge(TrueProcessLog const& truth, Capture const& capture,
                std::vector<ryxsim::Timeline> const& report);

}  // namespace ryxtest
