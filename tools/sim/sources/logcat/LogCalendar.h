#pragma once
// The years of a capture's dates. logcat's default formats print "MM-DD" without the year, and
// LogLine reads such a date in kYearlessYear: a capture that runs past 31 December would then
// step back a year at its next line. A yearless date that steps back by more than half a year
// against the latest one of the capture is in the next year; once the capture has crossed into
// a year, one that steps forward by as much was stamped before the crossing and logged after it.
// Times keep their zone: the date is the one the line shows.

#include "sources/logcat/LogLine.h"

#include <cstdint>
#include <optional>

namespace ryxsim {

class LogCalendar {
  public:
    // Moves the time of a line that printed a date without its year (TimeForm::Date) into the
    // year it belongs to; other lines are left as they are. Lines are placed in capture order.
    void place(LogLine& l);

  private:
    int64_t mYear = kYearlessYear;
    std::optional<int64_t> mLatestNs;  // of the yearless lines placed so far
};

}  // namespace ryxsim
