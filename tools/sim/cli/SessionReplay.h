#pragma once
// A session's calls made again against the library with other settings: for `explain --to-trace`
// and `--what-if` a capture's session made into a trace, for `replay --set` a trace file. The
// replays are ordered (the calls enter the library in trace order), so that the comparison shows
// what the settings change and not how the threads happened to meet.

#include "cli/Outputs.h"
#include "model/Calls.h"
#include "model/Settings.h"
#include "model/Timeline.h"

#include <optional>
#include <string>
#include <vector>

namespace ryxsim::cli {

// The session `--to-trace` and `--what-if` take: the one numbered `number` (1-based, as the
// report lists them), else the session with the most frames; nullptr, with the error printed,
// when there is none such.
Timeline const* chooseSession(std::vector<Timeline> const& sessions, int number);

// Writes the session's calls as a trace to `out`; the exit status.
int writeSessionTrace(Timeline const& session, OutputPath const& out);

// The trace replayed ordered, every frame kept. `blocked` is set when threads were left inside
// the library (the process must then end with _exit).
Timeline replayOrdered(Trace const& trace, double deadlineS, bool& blocked);

// Runs the session's calls again with `settings` and the calls unchanged, and attaches the
// comparison to `session` (its whatIf). Returns the exit status: 2, with the error printed, when
// the calls lack values or break the library's contract.
int whatIfSession(Timeline& session, Settings const& settings, std::string const& name,
                  bool& blocked);

// `replay --set`: the unchanged trace replayed ordered, set against the run `after` of the
// trace with the settings.
void compareWithUnchanged(Timeline& after, Trace const& unchanged, Settings const& settings,
                          double deadlineS, bool& blocked);

}  // namespace ryxsim::cli
