#include "cli/ExplainCommand.h"

#include "cli/Cli.h"
#include "model/ParseError.h"
#include "sources/logcat/LogcatSource.h"

namespace ryxsim::cli {

namespace {

char const* const kFooter = R"(
The capture is what 'adb logcat' saved (threadtime, time or brief, with the year, epoch and uid
modifiers) or the host liblog format. Per frame and camera it gives the verdict and its cause,
arrival and release on the log's clock, the camera that completed the frame, masters and crop
overrides, frames still waiting at the end, and a fatal abort as the rule it broke. Debug lines
give every frame; the default level (warnings and errors) gives out-of-sync frames, inversions
and errors, and the report says what it cannot see.

Examples:
  adb logcat -d -v threadtime > cam.txt && synchelper-sim explain cam.txt
  synchelper-sim explain cam.txt --camera-names 0=wide,1=tele --perfetto cam.json
  adb logcat -d | synchelper-sim explain -
)";

}  // namespace

CLI::App* ExplainCommand::addTo(CLI::App& app) {
    CLI::App* cmd = app.add_subcommand("explain", "Explain the sessions of an Android log capture");
    cmd->footer(kFooter);
    cmd->add_option("CAPTURE", mCapture, "Log capture, - for standard input")
        ->type_name("FILE")
        ->required();
    mNames.addTo(*cmd);
    mOutputs.addTo(*cmd);
    return cmd;
}

int ExplainCommand::execute() {
    if (std::string e = mOutputs.check({mCapture}); !e.empty()) {
        return badInput(e);
    }
    if (std::string e = mNames.parse(); !e.empty()) {
        return badInput(e);
    }
    std::vector<Timeline> sessions;
    try {
        sessions = readLogcatFile(mCapture, inputName(mCapture));
    } catch (ParseError const& e) {
        return badInput(e.what());
    }
    mNames.apply(sessions);
    return mOutputs.write(sessions);
}

}  // namespace ryxsim::cli
