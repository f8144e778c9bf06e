#pragma once
// A system trace and a log of the same sessions, read together: a trace session and a log session
// of one process whose frames overlap are one session. Each frame shows its log lines and its
// trace lines; a camera the trace leaves undetermined takes the log's verdict where the log
// decides it; which camera completed a frame and the crop overrides come from the log, which alone
// shows them; frames only one of them shows are kept. Each gap and note says which it is from.

#include "model/Timeline.h"

#include <vector>

namespace ryxsim {

// `traced`: the trace's sessions, not yet finished (their frames in Timeline::frames);
// `logged`: the log's, finished. Returns the trace's sessions, finished, then the log sessions no
// trace session shows.
std::vector<Timeline> joinTraceAndLog(std::vector<Timeline> traced, std::vector<Timeline> logged);

}  // namespace ryxsim
