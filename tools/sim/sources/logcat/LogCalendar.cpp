#include "sources/logcat/LogCalendar.h"

#include <algorithm>

namespace ryxsim {

namespace {

constexpr int64_t kDayNs = int64_t{86400} * 1000000000;
constexpr int64_t kHalfYearNs = 183 * kDayNs;

bool leap(int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// The time of `l`, read in kYearlessYear, on the same month, day and time of `year`. The day is
// the one the line shows (its zone's), so that the year starts at the zone's midnight.
int64_t inYear(LogLine const& l, int64_t year) {
    int64_t zoneNs = l.zoneS.value_or(0) * int64_t{1000000000};
    int64_t shown = *l.timeNs + zoneNs;
    int64_t day = shown / kDayNs - daysFromCivil(kYearlessYear, 1, 1);  // 0 is 1 January
    int64_t shift = daysFromCivil(year, 1, 1) - daysFromCivil(kYearlessYear, 1, 1);
    if (day >= 31 + 29 && !leap(year)) {
        --shift;  // from 1 March on, a year without 29 February is a day shorter before it
    }
    return *l.timeNs + shift * kDayNs;
}

}  // namespace

void LogCalendar::place(LogLine& l) {
    if (l.timeForm != LogLine::TimeForm::Date || !l.timeNs) {
        return;
    }
    int64_t ns = inYear(l, mYear);
    if (mLatestNs && ns < *mLatestNs - kHalfYearNs) {
        ns = inYear(l, ++mYear);
    } else if (mLatestNs && ns > *mLatestNs + kHalfYearNs && mYear > kYearlessYear) {
        ns = inYear(l, mYear - 1);
    }
    mLatestNs = std::max(mLatestNs.value_or(ns), ns);
    l.timeNs = ns;
}

}  // namespace ryxsim
