#include "cli/ReplayCommand.h"

#include "cli/Cli.h"
#include "cli/SessionReplay.h"
#include "model/ParseError.h"
#include "model/Strings.h"
#include "sources/trace/TraceIo.h"

#include <cstdlib>
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
  synchelper-sim replay cam.csv --ordered --set tolerance_us=2000 --json what-if.json

--set NAME=VALUE changes every result and drop call (and gives a value to those that lack one,
'?' in a trace made from a capture); the report then lists each frame whose verdict changes
against the trace replayed unchanged in trace order. Settings:
  )" + settingsHelp() +
           R"(
)";
}

}  // namespace

CLI::App* ReplayCommand::addTo(CLI::App& app) {
    CLI::App* cmd = app.add_subcommand("replay", "Replay a trace of calls against the library");
    cmd->footer(footer());
    cmd->add_option("TRACE", mTrace, "Trace file (CSV), - for standard input")
        ->type_name("FILE")
        ->required();
    cmd->add_option("--set", mSet,
                    "Replay with NAME=VALUE in every call (repeatable); the report lists the "
                    "frames that change")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
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
    for (auto const& setting : mSet) {
        if (std::string e = parseSetting(setting, mSettings); !e.empty()) {
            return badInput(e);
        }
    }
    auto unchanged = std::make_shared<Trace>(*trace);
    applySettings(mSettings, *trace);
    if (std::string e = unknownValues(*trace, inputName(mTrace)); !e.empty()) {
        return badInput(e);
    }
    RunInput input;
    input.source = "trace " + inputName(mTrace);
    input.makeRows = [trace] { return std::make_unique<TraceRows>(*trace); };
    if (mSettings.timeoutS) {
        mRun.deadline = std::to_string(*mSettings.timeoutS);
    }
    if (!mSettings.empty()) {
        input.description = "replayed with " + join(mSettings.given, ", ");
        input.amend = [this, unchanged](Timeline& after, bool& blocked) {
            double deadline = std::strtod(mRun.deadline.c_str(), nullptr);
            compareWithUnchanged(after, *unchanged, mSettings, deadline, blocked);
        };
    }
    return runLibrary(input, mRun, mOutputs);
}

}  // namespace ryxsim::cli
