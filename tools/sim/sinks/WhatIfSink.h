#pragma once
// Sink: a what-if's comparison (WhatIf.h) in words, for the text report and the JSON report:
// per camera each frame whose verdict changed, before → after and why, and each verdict's count
// before and after.

#include "model/Timeline.h"
#include "model/WhatIf.h"

#include <nlohmann/json.hpp>

#include <iosfwd>
#include <string>

namespace ryxsim {

// "out of sync (2) → in sync: its start of frame is 1450 us from 0 wide's, within the tolerance
// of 2000 us"
std::string changeLine(Timeline const& t, VerdictChange const& c);

// The what-if section of the text report; nothing when the session was not run again.
void writeWhatIfText(std::ostream& out, Timeline const& t);

// The "what_if" object of the JSON report (null when the session was not run again).
nlohmann::json whatIfJson(Timeline const& t);

}  // namespace ryxsim
