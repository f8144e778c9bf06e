#pragma once
// Sink: the text report. The description first, then per camera how its frames came out, every
// frame that did not pass with the reason, who made the others wait, timing and anomalies.

#include "model/Timeline.h"

#include <iosfwd>

namespace ryxsim {

void writeText(std::ostream& out, Timeline const& t);

}  // namespace ryxsim
