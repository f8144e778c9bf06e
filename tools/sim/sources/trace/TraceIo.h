#pragma once
// The trace file: one CSV row per pipeline call (format in tools/TRACE_FORMAT.md).

#include "model/Calls.h"
#include "model/ParseError.h"

#include <iosfwd>
#include <string>

namespace ryxsim {

// A field whose value the trace's source did not know (CallRow::unknown).
constexpr char kUnknownField[] = "?";

// Parses trace text; `fileName` is used in error messages only. Throws ParseError.
Trace parseTrace(std::string const& text, std::string const& fileName);

// Reads and parses a trace file. Throws ParseError (also when the file cannot be read).
Trace readTraceFile(std::string const& path);

// Writes `trace` in the format parseTrace reads; parseTrace(writeTrace(t)) gives t back.
void writeTrace(std::ostream& out, Trace const& trace);
std::string traceToString(Trace const& trace);

// The same, a piece at a time: the header (session and cameras), then each row.
void writeTraceHeader(std::ostream& out, SessionInfo const& session);
void writeTraceRow(std::ostream& out, CallRow const& row);

// Passes the rows of `source` on and writes them to `out` as a trace as they go (the header
// before the first row is asked for). Both must outlive it.
class RecordedRows : public RowSource {
  public:
    RecordedRows(RowSource& source, std::ostream& out) : mSource(source), mOut(out) {}
    SessionInfo const& session() const override { return mSource.session(); }
    std::vector<int> sensors() const override { return mSource.sensors(); }
    bool next(CallRow& row) override;

  private:
    RowSource& mSource;
    std::ostream& mOut;
    bool mHeaderWritten = false;
};

}  // namespace ryxsim
