#include "cli/ExplainCommand.h"

#include "cli/AdbLogcat.h"
#include "cli/Cli.h"
#include "cli/SessionReplay.h"
#include "model/ParseError.h"
#include "sinks/TextSink.h"
#include "sources/logcat/LogcatSource.h"

#include <unistd.h>
#include <climits>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>

namespace ryxsim::cli {

namespace {

std::string const kFooter = R"(
The capture is what 'adb logcat' saved, in any of its formats and modifiers (threadtime is
best: the others lack thread ids or times, and the report says what that hides), UTF-8 or
UTF-16; a bugreport (.txt or .zip: its SYSTEM LOG and LAST LOGCAT sections, and the library's
aborts in its tombstones); a system trace as 'atrace camera' prints it, with debug logging off;
any of these compressed with gzip, xz, bzip2 or zstd. Per frame and camera it gives the verdict
and its cause, the capture lines and the log time, the camera that completed the frame, masters
and crop overrides, gaps in the capture and the frames they touch, and a fatal abort as the
rule it broke. Debug lines or a trace give every frame; the default level (warnings and errors)
gives out-of-sync frames, inversions and errors, and the report says what it cannot see.
--follow prints each frame that did not pass as soon as it is decided; the report follows at
the end of the input or on Ctrl-C.

Examples:
  adb logcat -d -v threadtime > cam.txt && synchelper-sim explain cam.txt
  synchelper-sim explain bugreport-2026-11-24.zip --perfetto cam.json
  adb shell atrace -t 10 camera > cam.trace && synchelper-sim explain cam.trace
  synchelper-sim explain cam.txt --system-trace cam.trace
  adb logcat -v threadtime | synchelper-sim explain --follow -
  synchelper-sim explain --adb 0123456789ABCDEF --camera-names 0=wide,1=tele
  synchelper-sim explain cam.trace --to-trace cam.csv && synchelper-sim replay cam.csv --ordered
  synchelper-sim explain cam.trace --what-if tolerance_us=2000 --what-if mode=0

--to-trace and --what-if need every call: a system trace of the library, or a log at debug level
with thread ids (a log lacks exposure times and the controls, so its trace marks them '?' and a
replay names them; --what-if NAME=VALUE gives tolerance_us, mode, master, enable or intent).
What-if settings:
  )" + settingsHelp() + R"(
)";

volatile std::sig_atomic_t gInterrupted = 0;

void onInterrupt(int) {
    gInterrupted = 1;
}

// Ctrl-C ends the input instead of the process: reads return EINTR, the report is written.
void catchInterrupt() {
    struct sigaction sa {};
    sa.sa_handler = onInterrupt;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = 0;  // no SA_RESTART
    sigaction(SIGINT, &sa, nullptr);
}

}  // namespace

CLI::App* ExplainCommand::addTo(CLI::App& app) {
    CLI::App* cmd = app.add_subcommand(
        "explain", "Explain the sessions of an Android log capture or system trace");
    cmd->footer(kFooter);
    cmd->add_option("CAPTURE", mCaptures,
                    "Log capture, bugreport or system trace, - for standard input; several, or "
                    "a folder: one table of their sessions")
        ->type_name("FILE|FOLDER");
    cmd->add_option("--summary", mPile.summary.path,
                    "Write the table of the captures' sessions, CSV (.csv) or JSON lines")
        ->type_name("FILE");
    cmd->add_option("--summary-format", mPile.format, "csv or jsonl (default: by the extension)")
        ->check(CLI::IsMember({"csv", "jsonl"}));
    cmd->add_option("--jobs", mPile.jobs, "Captures explained at once (default: one per core)")
        ->check(CLI::Range(1, 256));
    cmd->add_option("--system-trace", mSystemTrace,
                    "A system trace ('atrace camera') of the same sessions: each frame shows its "
                    "log lines and its trace points")
        ->type_name("FILE");
    cmd->add_flag("--follow", mFollow,
                  "Read the capture as it is written: each frame that did not pass is printed "
                  "once decided");
    cmd->add_option("--adb", mSerial,
                    "Follow a phone's log live: runs 'adb [-s SERIAL] logcat' (implies --follow)")
        ->expected(0, 1)
        ->type_name("[SERIAL]");
    cmd->add_option("--to-trace", mToTrace.path,
                    "Write the session's calls as a trace to replay (- for standard output)")
        ->type_name("FILE");
    cmd->add_option("--what-if", mWhatIf,
                    "Run the session again through the library with NAME=VALUE changed "
                    "(repeatable): which frames' verdicts change, and why")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    cmd->add_option("--session", mSession,
                    "The session --to-trace and --what-if take (1 the first listed; default: "
                    "the one with the most frames)")
        ->check(CLI::PositiveNumber);
    mOutputs.alsoWrites(&mToTrace);
    mNames.addTo(*cmd);
    mOutputs.addTo(*cmd);
    cmd->callback([this, cmd] {
        mAdb = cmd->count("--adb") > 0;
        mCapture = mCaptures.size() == 1 ? mCaptures.front() : "";
    });
    return cmd;
}

std::string ExplainCommand::checkArguments() {
    if (mAdb && !mCapture.empty()) {
        return "explain: give a CAPTURE or --adb, not both";
    }
    if (!mSystemTrace.empty() && (mFollow || mAdb)) {
        return "explain: --system-trace reads a recorded trace, not with --follow or --adb";
    }
    bool replays = !mToTrace.path.empty() || !mWhatIf.empty();
    if (replays && (mFollow || mAdb)) {
        return "explain: --to-trace and --what-if read a recorded capture, not with --follow "
               "or --adb";
    }
    for (auto const& setting : mWhatIf) {
        if (std::string e = parseSetting(setting, mSettings); !e.empty()) {
            return "explain: " + e.replace(0, 5, "--what-if");
        }
    }
    if (!mAdb && mCapture.empty()) {
        return "explain: a CAPTURE is required (a file, - for standard input, or --adb)";
    }
    std::vector<std::string> inputs;
    for (std::string const& in : {mCapture, mSystemTrace}) {
        if (!in.empty()) {
            inputs.push_back(in);
        }
    }
    if (std::string e = mOutputs.check(inputs); !e.empty()) {
        return e;
    }
    return mNames.parse();
}

// The capture read as it comes; each frame that did not pass printed where the text report goes.
std::vector<Timeline> ExplainCommand::follow() {
    std::ostream& out = mOutputs.standardOutputTaken() ? std::cerr : std::cout;
    FollowOptions options;
    options.cameraNames = mNames.labels();
    options.interrupted = [] { return gInterrupted != 0; };
    options.folded = [&out](Timeline const& t, FrameRecord const& f) {
        if (unpassed(f)) {
            out << "process " << t.capture.pid << unpassedLine(t, f).substr(1) << std::endl;
        }
    };
    catchInterrupt();
    if (!mAdb) {
        return readLogcatFile(mCapture, inputName(mCapture), &options);
    }
    AdbLogcat adb;
    if (std::string e = adb.start(mSerial); !e.empty()) {
        throw ParseError("adb", 0, "", e);
    }
    std::string name = "adb logcat" + (mSerial.empty() ? "" : " -s " + mSerial);
    std::vector<Timeline> sessions;
    try {
        sessions = followLogcat(adb.fd(), name, options);
    } catch (ParseError const&) {
        if (std::string e = adb.wait(); !e.empty()) {
            throw ParseError("adb", 0, "", e + ", before any log line");  // adb's own failure
        }
        throw;
    }
    if (std::string e = adb.wait(); !e.empty()) {
        printWarning(e);
    }
    return sessions;
}

bool ExplainCommand::pile() const {
    std::error_code ec;
    return mCaptures.size() > 1 || !mPile.summary.path.empty() ||
           (mCaptures.size() == 1 && std::filesystem::is_directory(mCaptures.front(), ec));
}

std::string ExplainCommand::checkPile() {
    if (mFollow || mAdb || !mSystemTrace.empty() || !mToTrace.path.empty() || !mWhatIf.empty() ||
        mSession != 0 || mOutputs.reportsAsked()) {
        return "explain: several captures give one table (and --summary); --follow, --adb, "
               "--system-trace, --to-trace, --what-if, --session, --json, --svg, --perfetto and "
               "--text take one capture";
    }
    if (mCaptures.empty()) {
        return "explain: a CAPTURE is required (files, folders, - for standard input)";
    }
    if (mPile.summary.path != "-" && !mPile.summary.path.empty()) {
        for (auto const& in : mCaptures) {
            std::error_code ec;  // a summary not yet written is no input
            if (std::filesystem::equivalent(in, mPile.summary.path, ec)) {
                return "explain: --summary names an input, " + in;
            }
        }
    }
    mPile.names = &mNames;
    mPile.inputs = mCaptures;
    return mNames.parse();
}

int ExplainCommand::execute() {
    if (pile()) {
        if (std::string e = checkPile(); !e.empty()) {
            return badInput(e);
        }
        return explainPile(mPile);
    }
    if (std::string e = checkArguments(); !e.empty()) {
        return badInput(e);
    }
    std::vector<Timeline> sessions;
    if (!mToTrace.path.empty() || !mWhatIf.empty()) {
        setDefaultDetailFrames(SIZE_MAX);  // every frame's record is compared or written
    }
    try {
        sessions = mFollow || mAdb
                       ? follow()
                       : readLogcatFile(mCapture, inputName(mCapture), nullptr, mSystemTrace);
    } catch (ParseError const& e) {
        return badInput(e.what());
    }
    mNames.apply(sessions);
    if (!mToTrace.path.empty() || !mWhatIf.empty()) {
        return replaySession(sessions);
    }
    return mOutputs.write(sessions);
}

int ExplainCommand::replaySession(std::vector<Timeline>& sessions) {
    Timeline const* chosen = chooseSession(sessions, mSession);
    if (chosen == nullptr) {
        return kExitBadInput;
    }
    if (!mToTrace.path.empty()) {
        if (int status = writeSessionTrace(*chosen, mToTrace); status != kExitOk) {
            return status;
        }
        if (mWhatIf.empty()) {
            return kExitOk;
        }
    }
    std::vector<Timeline> report{*chosen};
    bool blocked = false;
    int status = whatIfSession(report.back(), mSettings, inputName(mCapture), blocked);
    if (status != kExitOk) {
        return status;
    }
    status = mOutputs.write(report);
    if (blocked) {  // threads of a replay are still inside the library: they cannot be joined
        printWarning("a replay left threads blocked in the library; exiting without them");
        std::fflush(stdout);
        std::fflush(stderr);
        _exit(status);
    }
    return status;
}

}  // namespace ryxsim::cli
