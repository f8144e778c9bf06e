#pragma once
// Sink: the sessions as a trace in the Chrome JSON trace event format, which ui.perfetto.dev and
// chrome://tracing open. Per session a process; per camera a thread track with one complete
// slice per call's time inside syncResultCheck, named by frame, and a counter track of its
// start-of-frame offset against the frame's first target; instants for frames that did not
// pass, drops, flushes, sensor leaves and master switches, their cause in args. Timestamps are
// microseconds from the start of the run or of the capture's session.

#include "model/Timeline.h"

#include <iosfwd>
#include <vector>

namespace ryxsim {

void writePerfetto(std::ostream& out, std::vector<Timeline> const& sessions);

}  // namespace ryxsim
