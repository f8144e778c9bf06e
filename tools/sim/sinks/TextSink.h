#pragma once
// Sink: the text report. The description first, then per camera how its frames came out, every
// frame that did not pass with the reason, who made the others wait, timing and anomalies.

#include "model/Timeline.h"

#include <iosfwd>
#include <string>

namespace ryxsim {

void writeText(std::ostream& out, Timeline const& t);

// The report's line for a frame that did not pass: "  f12    dropped ... [lines 80-95, 11-22 ...]".
std::string unpassedLine(Timeline const& t, FrameRecord const& f);

}  // namespace ryxsim
