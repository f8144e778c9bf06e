#pragma once
// Sink: the report as JSON; its layout is tools/report.schema.json.

#include "model/Timeline.h"

#include <nlohmann/json.hpp>

#include <iosfwd>
#include <vector>

namespace ryxsim {

// `frameLists` false leaves each sensor's "frames" list out (a marker string in its place).
nlohmann::json timelineJson(Timeline const& t, bool frameLists = true);

// The report of a run or a capture: one session's object, or an array when there are several.
nlohmann::json reportJson(std::vector<Timeline> const& sessions);

// The JSON of reportJson(sessions), indented, written without building the per-frame lists
// in memory (a long capture has hundreds of thousands of cells).
void writeReportJson(std::ostream& out, std::vector<Timeline> const& sessions);

}  // namespace ryxsim
