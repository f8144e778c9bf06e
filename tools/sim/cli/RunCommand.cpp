#include "cli/RunCommand.h"

#include "cli/Cli.h"
#include "model/ParseError.h"
#include "sources/InputChecks.h"
#include "sources/scenario/ScenarioRows.h"

#include <iostream>

namespace ryxsim::cli {

namespace {

std::string footer() {
    return R"(
Without SCENARIO the built-in scenario runs (--print-scenario shows it): 3 sensors (wide,
ultrawide, tele), 30 fps, 600 frames, one sync group, tolerance 1000 us in mode 1, start-of-frame
jitter with five frames out of tolerance, master switch wide -> tele at frame 300, three slave
drops, a master drop at frame 450, a flush of frame 240, a crop set every second.

One thread per sensor calls the library as that sensor's pipeline would: getSensorCropRegion
(when the scenario asks for crops) and syncResultCheck, or notifyDrop when the sensor drops the
frame; notifyDrop(frame, 0) for a flush, notifyDropBySensor when a sensor leaves,
setSensorCropRegion for each new crop set. Scenario files are JSON; their format and examples:
  )" + docPath("README.md") +
           R"(
  )" + docPath("scenarios") +
           R"(

Examples:
  synchelper-sim run
  synchelper-sim run my_session.json --seed 7 --svg timeline.svg
  synchelper-sim run --frames 1e6 --quiet --json - | jq .sensors
)";
}

int64_t readWhole(std::string const& text, int64_t lo, int64_t hi) {
    int64_t v = 0;
    readInteger(text, lo, hi, v);  // checked by the option's validator
    return v;
}

// What this run no longer does of what the scenario's description says.
std::string descriptionNote(Scenario const& sc, int frames, uint64_t seed) {
    std::string note;
    if (frames < sc.frames) {
        note += "this run has " + plural(frames, "frame", "frames") + " of the scenario's " +
                std::to_string(sc.frames) + ": its random events (out-of-tolerance frames, " +
                "drops) are spread over these " + plural(frames, "frame", "frames") +
                ", and what the description places at f" + std::to_string(frames) +
                " or later does not happen";
    } else if (frames > sc.frames) {
        note += "this run has " + std::to_string(frames) + " frames where the description's " +
                "scenario has " + std::to_string(sc.frames);
    }
    if (seed != sc.seed) {
        note += std::string(note.empty() ? "" : "; ") + "drawn with seed " + std::to_string(seed) +
                " instead of the scenario's " + std::to_string(sc.seed) +
                ": its random parts (jitter, out-of-tolerance frames, drops) differ";
    }
    return note;
}

}  // namespace

CLI::App* RunCommand::addTo(CLI::App& app) {
    CLI::App* cmd = app.add_subcommand("run", "Run a scenario against the library");
    cmd->footer(footer());
    cmd->add_option("SCENARIO", mScenario, "Scenario file (JSON), - for standard input")
        ->type_name("FILE");
    cmd->add_option("--seed", mSeed,
                    "Seed of the scenario's random parts (default: the scenario's own)")
        ->check(integerIn(0, INT64_MAX))
        ->type_name("N");
    cmd->add_option("--frames", mFrames,
                    "Run this many frames instead of the scenario's, 1 to 100000000 (1e6 is "
                    "read as 1000000)")
        ->check(integerIn(1, kMaxFrames))
        ->type_name("N");
    cmd->add_flag("--print-scenario", mPrintScenario,
                  "Print the scenario (the built-in one without SCENARIO) and exit");
    mRun.addTo(*cmd, mOutputs);
    mOutputs.addTo(*cmd);
    return cmd;
}

int RunCommand::execute() {
    std::string text = defaultScenarioText();
    if (!mScenario.empty() && !readInput(mScenario, "scenario", text)) {
        return kExitBadInput;
    }
    if (mPrintScenario) {
        std::cout << text;
        return kExitOk;
    }
    if (std::string e = mOutputs.check({mScenario}); !e.empty()) {
        return badInput(e);
    }
    if (std::string e = mRun.names.parse(); !e.empty()) {
        return badInput(e);
    }
    std::string name = mScenario.empty() ? "built-in scenario" : inputName(mScenario);
    Scenario sc;
    try {
        sc = parseScenario(text, name);
    } catch (ParseError const& e) {
        return badInput(e.what());
    }
    int frames = mFrames.empty() ? sc.frames : static_cast<int>(readWhole(mFrames, 1, kMaxFrames));
    uint64_t seed = mSeed.empty() ? sc.seed : static_cast<uint64_t>(readWhole(mSeed, 0, INT64_MAX));
    RunInput input;
    input.source = mScenario.empty() ? name : "scenario " + name;
    input.description = sc.description;
    if (std::string note = descriptionNote(sc, frames, seed); !note.empty()) {
        input.description += (input.description.empty() ? "" : "\n") + ("(" + note + ")");
    }
    input.seed = seed;
    sc.frames = frames;
    input.makeRows = [sc, seed] { return std::make_unique<ScenarioRows>(sc, seed); };
    return runLibrary(input, mRun, mOutputs);
}

}  // namespace ryxsim::cli
