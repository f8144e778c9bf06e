#pragma once
// The logger words for a run, from a level name.

#include <optional>
#include <string>

namespace ryxsim {

enum class LogLevel { Quiet, Error, Warn, Info, Debug };

std::optional<LogLevel> logLevelFromName(std::string const& name);

// quiet: the library's warnings and errors go only to the simulator's own collector (unified
// logger, ULogger::sMode 0x8, sDetailsLevel 2); nothing is printed.
// error/warn/info/debug: the Android log is on as well (sMode 0x9) and prints to stderr from that
// severity up; sDetailsLevel is 2, 2, 3 or 5 (the collector needs warnings).
// With `toStderr` false (the lines go to a written log instead), the Android log stays off and
// only the level is set.
void configureLogging(LogLevel level, bool toStderr = true);

}  // namespace ryxsim
