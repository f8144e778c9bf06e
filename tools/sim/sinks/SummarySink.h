#pragma once
// Sink: a pile of captures as one table, a row per session (SessionSummary.h): aligned text for
// the terminal, CSV for a spreadsheet, JSON lines for a query.

#include "model/SessionSummary.h"

#include <iosfwd>
#include <vector>

namespace ryxsim {

void writeSummaryText(std::ostream& out, std::vector<SessionSummary> const& rows);
void writeSummaryCsv(std::ostream& out, std::vector<SessionSummary> const& rows);
void writeSummaryJsonLines(std::ostream& out, std::vector<SessionSummary> const& rows);

}  // namespace ryxsim
