#include "cli/ReplayCommand.h"

#include "cli/Cli.h"
#include "model/ParseError.h"
#include "sources/trace/TraceIo.h"

#include <memory>

namespace ryxsim::cli {

namespace {

std::string footer() {
    return R"(
A trace is CSV, one row per call, each sensor's calls made in row order by that sensor's thread;
its format: )" +
           docPath("TRACE_FORMAT.md") +
           R"(
Before anything runs the calls are checked against the library's contract; a flow that breaks it
is named and not run unless --allow-fatal is given. --ordered replays the calls in row order
across the threads, so that a replay gives the same verdicts (and the same abort) every time.

Examples:
  synchelper-sim run --record session.csv && synchelper-sim replay session.csv --ordered
  synchelper-sim replay bug.csv --allow-fatal --ordered --write-logcat bug.log
  synchelper-sim replay - --camera-names 0=wide,1=tele < trace.csv
)";
}

}  // namespace

CLI::App* ReplayCommand::addTo(CLI::App& app) {
    CLI::App* cmd = app.add_subcommand("replay", "Replay a trace of calls against the library");
    cmd->footer(footer());
    cmd->add_option("TRACE", mTrace, "Trace file (CSV), - for standard input")
        ->type_name("FILE")
        ->required();
    mRun.addTo(*cmd, mOutputs);
    mOutputs.addTo(*cmd);
    return cmd;
}

int ReplayCommand::execute() {
    if (std::string e = mOutputs.check({mTrace}); !e.empty()) {
        return badInput(e);
    }
    if (std::string e = mRun.names.parse(); !e.empty()) {
        return badInput(e);
    }
    std::string text;
    if (!readInput(mTrace, "trace", text)) {
        return kExitBadInput;
    }
    auto trace = std::make_shared<Trace>();
    try {
        *trace = parseTrace(text, inputName(mTrace));
    } catch (ParseError const& e) {
        return badInput(e.what());
    }
    RunInput input;
    input.source = "trace " + inputName(mTrace);
    input.makeRows = [trace] { return std::make_unique<TraceRows>(*trace); };
    return runLibrary(input, mRun, mOutputs);
}

}  // namespace ryxsim::cli
