#pragma once
// The run as a picture: one lane per sensor, frames coloured by verdict, master frames, drops,
// flushes, crop sets, inversions and blocked calls, with a legend.

#include "Report.h"

#include <iosfwd>

namespace ryxsim {

void writeSvg(std::ostream& out, Report const& report);

}  // namespace ryxsim
