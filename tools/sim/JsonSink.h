#pragma once
// Sink: the report as JSON; its layout is tools/report.schema.json.

#include "Timeline.h"

#include <nlohmann/json.hpp>

namespace ryxsim {

nlohmann::json timelineJson(Timeline const& t);

}  // namespace ryxsim
