#pragma once
// Sink: the session as a picture: one lane per sensor, frames coloured by verdict, master frames,
// drops, flushes, crop sets, inversions and blocked calls, with a legend.

#include "model/Timeline.h"

#include <iosfwd>

namespace ryxsim {

void writeSvg(std::ostream& out, Timeline const& t);

}  // namespace ryxsim
