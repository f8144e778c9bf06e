#pragma once
// What `run` and `replay` share: the options of a run of the library (pacing, ordering, the
// call-flow check, properties, log level, progress, the trace and log written on the way) and
// the run itself, from the calls' check to the reports.

#include "cli/CameraNames.h"
#include "cli/Outputs.h"
#include "model/Calls.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ryxsim::cli {

struct LibraryRunOptions {
    bool realtime = false;
    bool ordered = false;
    bool allowFatal = false;
    bool noProgress = false;
    std::string deadline = "2";
    std::string log = "quiet";
    std::vector<std::string> props;
    CameraNames names;
    OutputPath record{"--record", "trace", ""};
    OutputPath writeLogcat{"--write-logcat", "log", ""};
    OutputPath systemTrace{"--system-trace", "system trace", ""};
    size_t detailFrames = kDefaultDetailFrames;

    // Adds the options to `command` and registers --record and --write-logcat with `outputs`.
    void addTo(CLI::App& command, SharedOutputs& outputs);
};

// What is run: its calls (made twice, once for the check and once for the run, so that a long
// session is never held whole) and the session's words for the report.
struct RunInput {
    std::function<std::unique_ptr<RowSource>()> makeRows;
    std::string source;       // "built-in scenario", "scenario FILE", "trace FILE"
    std::string description;  // the scenario's own words, with what this run changed
    std::optional<uint64_t> seed;
    // Called with the run's report before it is written (replay --set adds its comparison);
    // sets `blocked` when it left threads inside the library.
    std::function<void(Timeline&, bool& blocked)> amend;
};

// Checks the call flow, runs the calls, writes the reports. Returns the exit status; a run that
// left threads blocked in the library ends the process itself (they cannot be joined).
int runLibrary(RunInput const& input, LibraryRunOptions const& options,
               SharedOutputs const& outputs);

}  // namespace ryxsim::cli
