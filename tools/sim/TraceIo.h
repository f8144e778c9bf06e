#pragma once
// The trace file: one CSV row per pipeline call (format in tools/TRACE_FORMAT.md).

#include "Model.h"
#include "ParseError.h"

#include <iosfwd>
#include <string>

namespace ryxsim {

// Parses trace text; `fileName` is used in error messages only. Throws ParseError.
Trace parseTrace(std::string const& text, std::string const& fileName);

// Reads and parses a trace file. Throws ParseError (also when the file cannot be read).
Trace readTraceFile(std::string const& path);

// Writes `trace` in the format parseTrace reads; parseTrace(writeTrace(t)) gives t back.
void writeTrace(std::ostream& out, Trace const& trace);
std::string traceToString(Trace const& trace);

}  // namespace ryxsim
