#pragma once
// One line of an Android log capture, in every format logcat writes:
//   threadtime  "MM-DD HH:MM:SS.mmm  PID  TID L TAG: message" (logcat's default)
//   time        "MM-DD HH:MM:SS.mmm L/TAG(  PID): message"
//   brief       "L/TAG(  PID): message"
//   process     "L(  PID) message  (TAG)"
//   tag         "L/TAG: message"
//   thread      "L(  PID:  TID) message"
//   raw         "message"
//   long        "[ MM-DD HH:MM:SS.mmm  PID:  TID L/TAG ]", the message on the next line
//   host        "TAG L MM-DD HH:MM:SS  PID  TID message" (liblog on a host, 1 s resolution)
// with the year ("YYYY-MM-DD ..."), epoch and monotonic (seconds, right-aligned:
// "  1732483200.123 ...") and uid (a UID or user name before the PID) modifiers, fractions of 3,
// 6 or 9 digits (usec, nsec) and an optional zone ("+0000"). Colour escapes are taken out before
// (CaptureDecoder). What a format leaves out stays unknown: no time, no PID or TID (-1), no tag
// (empty), no level ('?'). A date without its year is read in kYearlessYear (LogCalendar.h
// finds its year); a time with a zone is read in UTC.

#include <cstdint>
#include <optional>
#include <string_view>

namespace ryxsim {

struct LogLine {
    std::optional<int64_t> timeNs;  // on the capture's clock (nanoseconds since 1970 or so)
    int fractionDigits = 0;         // resolution of the time: 0 (1 s), 3, 6 or 9
    // How the time was written: a date, a date with its year, or seconds (epoch, monotonic).
    enum class TimeForm { None, Date, DateWithYear, Seconds } timeForm = TimeForm::None;
    // The zone the date was printed in (seconds east of UTC): timeNs is in UTC, and adding this
    // gives the time back as the line shows it.
    std::optional<int> zoneS;
    int pid = -1;
    int tid = -1;          // -1 when the format has none (time, brief)
    char level = '?';      // V D I W E F
    std::string_view tag;  // empty when the format has none (thread, raw)
    std::string_view message;
    bool longHeader = false;  // a 'long' header: the message is on the lines after it
};

// The year a date printed without one is read in: a leap year, so that 02-29 is a date.
constexpr int64_t kYearlessYear = 2000;

// Days since 1970-01-01 of a date of the Gregorian calendar.
int64_t daysFromCivil(int64_t year, int64_t month, int64_t day);

// Parses `line` (without its line end; a trailing CR is ignored). False when it is no log line in
// any of the formats: a separator, a blank line, noise. The views point into `line`.
bool parseLogLine(std::string_view line, LogLine& out);

}  // namespace ryxsim
