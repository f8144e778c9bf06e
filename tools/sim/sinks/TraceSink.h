#pragma once
// Sink: a session's calls as a replayable trace (tools/TRACE_FORMAT.md), in the order they
// entered the library. A system trace of the library shows every control of every call; a log
// shows less, and each value it does not hold is written "?" (CallRow::unknown), so that a
// replay names what is missing instead of guessing it.

#include "model/Calls.h"
#include "model/Timeline.h"

#include <string>

namespace ryxsim {

// The calls of `t`, or an empty optional with `why` set when the session does not show every
// call (a log without debug lines or thread ids) or did not keep every frame's record.
std::optional<Trace> traceOfSession(Timeline const& t, std::string& why);

}  // namespace ryxsim
