#pragma once
// One line of an Android log capture, in the formats engineers save:
//   threadtime  "MM-DD HH:MM:SS.mmm  PID  TID L TAG: message" (logcat's default)
//   time        "MM-DD HH:MM:SS.mmm L/TAG(  PID): message"
//   brief       "L/TAG(  PID): message" (no time)
//   host        "TAG L MM-DD HH:MM:SS  PID  TID message" (liblog on a host, 1 s resolution)
// with the year ("YYYY-MM-DD ..."), epoch ("SSSSSSSSSS.mmm ...") and uid (a UID or user name
// before the PID) modifiers, fractions of 3, 6 or 9 digits, and an optional zone ("+0000").

#include <cstdint>
#include <optional>
#include <string_view>

namespace ryxsim {

struct LogLine {
    std::optional<int64_t> timeNs;  // on the capture's clock (nanoseconds since 1970 or so)
    int fractionDigits = 0;         // resolution of the time: 0 (1 s), 3, 6 or 9
    int pid = -1;
    int tid = -1;      // -1 when the format has none (time, brief)
    char level = '?';  // V D I W E F
    std::string_view tag;
    std::string_view message;
};

// Parses `line` (without its line end; a trailing CR is ignored). False when it is no log line in
// any of the formats: a separator, a blank line, noise. The views point into `line`.
bool parseLogLine(std::string_view line, LogLine& out);

}  // namespace ryxsim
