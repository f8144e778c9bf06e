#pragma once
// Settings a session is replayed with in place of its own (`replay --set`, `explain --what-if`):
// the tolerance, the sync mode, the master asked for, sync on or off, the capture intent, and
// how long threads blocked in the library are waited for. Each changes every result and drop
// call of the trace, and also gives a value to the calls whose capture did not hold it.

#include "model/Calls.h"

#include <optional>
#include <string>
#include <vector>

namespace ryxsim {

struct Settings {
    std::optional<int64_t> toleranceUs;  // tolerance_us=N
    std::optional<int32_t> mode;         // mode=0|1
    std::optional<int32_t> master;       // master=ID: every call asks for camera ID
    std::optional<int32_t> enable;       // sync=on|off, or enable=N
    std::optional<int32_t> intent;       // intent=N (2: still capture)
    std::optional<double> timeoutS;      // timeout=S: the replay's deadline for blocked threads
    std::vector<std::string> given;      // "tolerance_us=2000", as the user wrote them

    bool empty() const { return given.empty(); }
};

// Reads "NAME=VALUE" into `settings`; the error ("--set mode=3: ...") or "".
std::string parseSetting(std::string const& text, Settings& settings);

// The names parseSetting takes, with what each does, for help texts.
std::string settingsHelp();

// `trace` with the settings in every result and drop call (the values it did not know filled).
void applySettings(Settings const& settings, Trace& trace);

// The first call of `trace` with a value not known ("?"), as one error naming the file, the
// line (or row), the call and the columns, and how many calls lack values; "" when none does.
std::string unknownValues(Trace const& trace, std::string const& file);

}  // namespace ryxsim
