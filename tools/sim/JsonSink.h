#pragma once
// Sink: the report as JSON; its layout is tools/report.schema.json.

#include "Timeline.h"

#include <nlohmann/json.hpp>

namespace ryxsim {

nlohmann::json timelineJson(Timeline const& t);

// The report of a run or a capture: one session's object, or an array when there are several.
nlohmann::json reportJson(std::vector<Timeline> const& sessions);

}  // namespace ryxsim
