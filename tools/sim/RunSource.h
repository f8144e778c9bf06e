#pragma once
// Source: a run of the library (a scenario or a replayed trace, see Runner.h) as a timeline.

#include "Model.h"
#include "Timeline.h"

namespace ryxsim {

// Classifies every call of the run: one camera cell per result or drop row, arrival and release
// from the call's start and duration, events from the trace, anomalies from what the library
// logged. The timeline comes back finished (finishTimeline).
Timeline timelineFromRun(Trace const& trace, RunResult const& run);

}  // namespace ryxsim
