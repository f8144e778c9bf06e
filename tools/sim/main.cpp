// synchelper-sim: the multi-camera session simulator and trace replay of libryxcam_synchelper.

#include "cli/InputChecks.h"
#include "cli/LogSetup.h"
#include "cli/ProgressLines.h"
#include "sinks/JsonSink.h"
#include "sinks/PerfettoSink.h"
#include "sinks/SvgSink.h"
#include "sinks/TextSink.h"
#include "sources/logcat/LogcatSource.h"
#include "sources/run/FlowCheck.h"
#include "sources/run/RunSource.h"
#include "sources/run/Runner.h"
#include "sources/scenario/Scenario.h"
#include "sources/trace/TraceIo.h"

#include <NSCam/Properties.h>
#include <CLI/CLI.hpp>

#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <tuple>

namespace {

char const* const kFooter = R"(
What a run does
  One thread per sensor calls the library as that sensor's pipeline would: for every frame
  getSensorCropRegion (when the scenario asks for crops) and syncResultCheck, or notifyDrop when
  the sensor drops the frame; notifyDrop(frame, 0) for a flush, notifyDropBySensor when a sensor
  leaves, setSensorCropRegion for each new crop set. Control metadata (RYX_FRAMESYNC_ID,
  RYX_FRAMESYNC_REQUIRED, RYX_FRAMESYNC_ENABLE, RYX_FRAMESYNC_TOLERANCE, RYX_FRAMESYNC_MODE,
  RYX_DUALZOOM_REAL_MASTER, RYX_MW_MASTER_SLAVE_LIST, CAPTURE_INTENT) comes from the scenario or
  the trace; the verdicts and the metadata the library writes are read back and reported.

  Without --scenario or --trace the built-in scenario runs: 3 sensors (wide, ultrawide, tele),
  30 fps, 600 frames, one sync group, tolerance 1000 us in mode 1, start-of-frame jitter with five
  frames out of tolerance, master switch wide -> tele at frame 300, three slave drops, a master
  drop at frame 450, a flush of frame 240, a crop set every second. --print-scenario shows it.

Scenario files (JSON; examples in tools/scenarios, format in tools/README.md)
  sensors[]   id, name, active_array [l,t,w,h], focal_length, sof_offset_us, jitter_us,
              exposure_us
  control     group, sync_ids, required, enable, tolerance_us, mode, master,
              master_slave_list, intent, get_crop, sof_offset_us, exp_offset_us, drop
              (null: the tag is absent)
  ranges[]    frames [first, last], sensors [...], and any field of control
  events[]    {kind: drop|flush|leave|crop, frame, sensor, crops {"id": [l,t,w,h]}}
  random      out_of_tolerance N, shift_us [min, max], slave_drops N (drawn from the seed)
  crop_sets   every_frames, sensor, lead, zoom_from, zoom_step, zoom_max

Trace files (CSV, one row per call; format in tools/TRACE_FORMAT.md)
  sensor,kind,frame,request,sof_ns,exp_ns,master,sync_ids,required,enable,tolerance_us,mode,
  ms_list,intent,get_crop,crops
  --record writes this format from any run; --trace replays it, each sensor's rows in order.

Log captures (--logcat FILE)
  An Android log capture (logcat threadtime, time or brief, with the year, epoch and uid
  modifiers, or the host liblog format) is read back into its sessions instead of running one:
  per frame and camera the verdict and its cause, arrival and release on the log's clock, the
  camera that completed the frame, masters and crop overrides, frames still waiting at the end,
  and a fatal abort as the rule it broke. Debug lines give every frame; the default level
  (warnings and errors) gives out-of-sync frames, inversions and errors, and the report says so.
  --write-logcat FILE writes a run's library lines as a device's 'logcat -v threadtime' shows
  them, at the level --log sets (warnings and errors with quiet).

Report
  Per sensor: frames offered, in sync (RESULT 0), unchecked (delivered without a timestamp
  verdict), out of sync with RESULT 1 (delivered) and 2 (failed), dropped (own drop, master
  drop, flush, refused), master frames (bMasterCam). Timing: time spent in syncResultCheck
  (the rendezvous wait) p50/p99/max, library CPU per frame. Anomalies: frame and time
  inversions and missing timestamps the library logged, frames that never completed, threads
  still blocked at the end. Every frame that did not pass or passed flagged, with its cause;
  per sensor how often it arrived last and how late. --json: layout in
  tools/report.schema.json. --perfetto: the Chrome JSON trace format, for ui.perfetto.dev.

Logging (--log)
  quiet  (default) nothing printed; warnings are collected for the report (ULogger::sMode 0x8,
         sDetailsLevel 2)
  error, warn, info, debug   also print the library's Android log lines from that severity up
         to stderr (sMode 0x9; sDetailsLevel 2, 2, 3, 5)

Properties (--prop NAME=VALUE, repeatable), read when the helper is created
  vendor.debug.camera.crop_replace          0 turns crop overrides off (default 1)
  vendor.debug.camera.SyncDataUpdater.log   updater verbosity, 1 or 2 (default 0; needs
                                            --log debug to be seen)

Exit status
  0  the run completed
  1  an output file could not be written
  2  bad arguments, a malformed scenario or trace, a call flow the library aborts on (each
     broken flow is listed; nothing was run; --allow-fatal runs it anyway), or a --logcat file
     that is not a log capture
  3  threads were still blocked in the library at the end (reported, then the process exits)
  134 (SIGABRT) the library aborted on a broken call flow (a sensor outside the frame's sync
     group, a sensor entering a frame twice, more than 10 frames in flight); the library's fatal
     message is printed first
)";

// "-" is standard output.
bool writeFile(std::string const& path, std::string const& what,
               std::function<void(std::ostream&)> const& body) {
    if (path == "-") {
        body(std::cout);
        std::cout.flush();
        return static_cast<bool>(std::cout);
    }
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (out) {
        body(out);
        out.flush();
    }
    if (!out) {
        std::fprintf(stderr, "synchelper-sim: error: cannot write the %s to '%s'\n", what.c_str(),
                     path.c_str());
        return false;
    }
    return true;
}

struct SinkFiles {
    std::string json, svg, perfetto;
};

// Draws the sessions: the text report on stdout (on stderr when a file goes to stdout), the
// files asked for. The exit status of the first session, or 1 when a file could not be written.
int writeSinks(std::vector<ryxsim::Timeline> const& sessions, SinkFiles const& files) {
    bool stdoutTaken = files.json == "-" || files.svg == "-" || files.perfetto == "-";
    std::ostream& text = stdoutTaken ? std::cerr : std::cout;
    for (size_t i = 0; i < sessions.size(); ++i) {
        text << (i ? "\n" : "");
        ryxsim::writeText(text, sessions[i]);
    }
    text.flush();
    int status = sessions.front().exitStatus;
    if (!files.json.empty() && !writeFile(files.json, "JSON report", [&](std::ostream& o) {
            ryxsim::writeReportJson(o, sessions);
        })) {
        status = status ? status : 1;
    }
    if (!files.svg.empty() && !writeFile(files.svg, "SVG timeline", [&](std::ostream& o) {
            ryxsim::writeSvg(o, sessions.front());
        })) {
        status = status ? status : 1;
    }
    if (!files.perfetto.empty() &&
        !writeFile(files.perfetto, "Perfetto trace",
                   [&](std::ostream& o) { ryxsim::writePerfetto(o, sessions); })) {
        status = status ? status : 1;
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "synchelper-sim: runs a multi-camera session against libryxcam_synchelper, one thread "
        "per sensor, and shows what the library decided for every frame."};
    app.footer(kFooter);
    app.get_formatter()->column_width(34);

    std::string scenarioFile, traceFile, logcatFile, recordFile, writeLogcatFile, logName = "quiet";
    SinkFiles sinks;
    std::vector<std::string> props;
    std::string seedText, framesText;
    bool realtime = false, ordered = false, allowFatal = false, noProgress = false,
         printScenario = false;
    double deadline = 2.0;
    size_t detailFrames = ryxsim::kDefaultDetailFrames;

    auto* scenarioOpt = app.add_option("--scenario", scenarioFile, "Run this scenario file (JSON)")
                            ->check(CLI::ExistingFile.description(""))
                            ->type_name("FILE");
    auto* traceOpt = app.add_option("--trace", traceFile, "Replay this trace file (CSV)")
                         ->check(CLI::ExistingFile.description(""))
                         ->type_name("FILE");
    scenarioOpt->excludes(traceOpt);
    auto* logcatOpt =
        app.add_option("--logcat", logcatFile,
                       "Explain the sessions of this Android log capture instead of running one")
            ->check(CLI::ExistingFile.description(""))
            ->type_name("FILE");
    logcatOpt->excludes(scenarioOpt)->excludes(traceOpt);
    app.add_option("--record", recordFile, "Write the calls of this run as a trace (CSV)")
        ->type_name("FILE")
        ->excludes(logcatOpt);
    auto* seedOpt = app.add_option("--seed", seedText,
                                   "Seed of the scenario's random parts (default: the "
                                   "scenario's own, 1 for the built-in one)")
                        ->type_name("N");
    auto* framesOpt =
        app.add_option("--frames", framesText,
                       "Run this many frames instead of the scenario's, up to 100000000 (1e6 is "
                       "read as 1000000)")
            ->type_name("N");
    seedOpt->excludes(traceOpt);
    framesOpt->excludes(traceOpt);
    seedOpt->excludes(logcatOpt);
    framesOpt->excludes(logcatOpt);
    app.add_flag("--realtime", realtime,
                 "Pace the frames at their start-of-frame times (default: as fast as possible)");
    app.add_flag("--ordered", ordered,
                 "Let the calls into the library in trace order across the sensor threads (each "
                 "waits until the one before it returned or waits in the rendezvous), so that "
                 "every replay gives the same verdicts and the same abort (default: free-running, "
                 "as real pipelines)");
    app.add_flag("--allow-fatal", allowFatal,
                 "Run a call flow that the library aborts on anyway, to reproduce the abort "
                 "(default: list the broken flows and exit 2 without running)");
    app.add_option("--write-logcat", writeLogcatFile,
                   "Write the library's log lines of this run as a device's 'logcat -v "
                   "threadtime' shows them (warnings and errors, plus what --log raises)")
        ->type_name("FILE")
        ->excludes(logcatOpt);
    app.add_option("--json", sinks.json, "Write the report as JSON (- for standard output)")
        ->type_name("FILE");
    app.add_option("--svg", sinks.svg, "Draw the timeline as SVG (the first session of a capture)")
        ->type_name("FILE");
    app.add_option("--perfetto", sinks.perfetto,
                   "Write the timeline as a trace (Chrome JSON trace format) for "
                   "ui.perfetto.dev (- for standard output)")
        ->type_name("FILE");
    app.add_option("--prop", props, "Set a system property NAME=VALUE (repeatable)")
        ->type_name("NAME=VALUE");
    app.add_option("--log", logName, "Library log level: quiet, error, warn, info, debug")
        ->check(CLI::IsMember({"quiet", "error", "warn", "info", "debug"}))
        ->type_name("LEVEL");
    app.add_option("--deadline", deadline,
                   "Seconds without progress, all sensor threads inside the library, after "
                   "which they count as blocked (default 2)")
        ->check(CLI::Range(0.05, 3600.0))
        ->type_name("SECONDS");
    app.add_flag("--quiet,--no-progress", noProgress,
                 "No progress (on a terminal a line redrawn in place, otherwise a line on stderr "
                 "at every tenth of the calls or every 10 s)");
    app.add_flag("--print-scenario", printScenario, "Print the built-in scenario (JSON) and exit");
    // Hidden: how many of the latest passed frames keep their whole record (tests force it small).
    app.add_option("--detail-frames", detailFrames)->group("");

    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& e) {
        int rc = app.exit(e);
        return rc == 0 ? 0 : 2;
    }
    if (printScenario) {
        std::cout << ryxsim::defaultScenarioText();
        return 0;
    }
    int takers = (sinks.json == "-") + (sinks.svg == "-") + (sinks.perfetto == "-");
    if (takers > 1) {
        std::fprintf(stderr,
                     "synchelper-sim: error: only one of --json, --svg and --perfetto can "
                     "write to standard output (-)\n");
        return 2;
    }
    std::optional<int64_t> seed, frames;
    for (auto [name, text, lo, hi, out] :
         {std::tuple{"--seed", &seedText, int64_t{0}, int64_t{INT64_MAX}, &seed},
          std::tuple{"--frames", &framesText, int64_t{1}, int64_t{ryxsim::kMaxFrames}, &frames}}) {
        if (text->empty()) {
            continue;
        }
        int64_t v = 0;
        auto verdict = ryxsim::readInteger(*text, lo, hi, v);
        if (verdict != ryxsim::IntegerVerdict::Ok) {
            std::fprintf(stderr, "synchelper-sim: error: %s: %s\n", name,
                         ryxsim::integerProblem(verdict, *text, lo, hi).c_str());
            return 2;
        }
        *out = v;
    }

    for (auto const& p : props) {
        size_t eq = p.find('=');
        if (eq == std::string::npos || eq == 0) {
            std::fprintf(stderr, "synchelper-sim: error: --prop '%s': expected NAME=VALUE\n",
                         p.c_str());
            return 2;
        }
        std::string warning = ryxsim::propertyWarning(p.substr(0, eq), p.substr(eq + 1));
        if (!warning.empty()) {
            std::fprintf(stderr, "synchelper-sim: warning: %s\n", warning.c_str());
        }
        NSCam::Utils::Properties::setHostProperty(p.substr(0, eq), p.substr(eq + 1));
    }
    ryxsim::configureLogging(*ryxsim::logLevelFromName(logName));

    std::vector<ryxsim::Timeline> sessions;
    if (!logcatFile.empty()) {
        try {
            sessions = ryxsim::readLogcatFile(logcatFile);
        } catch (ryxsim::ParseError const& e) {
            std::fprintf(stderr, "synchelper-sim: error: %s\n", e.what());
            return 2;
        }
        return writeSinks(sessions, sinks);
    }

    ryxsim::Trace trace;  // a replayed trace, read whole
    std::optional<ryxsim::Scenario> scenario;
    std::string source;
    std::optional<uint64_t> usedSeed;
    std::string description;
    try {
        if (!traceFile.empty()) {
            trace = ryxsim::readTraceFile(traceFile);
            source = "trace " + traceFile;
        } else {
            ryxsim::Scenario sc =
                scenarioFile.empty()
                    ? ryxsim::parseScenario(ryxsim::defaultScenarioText(), "built-in scenario")
                    : ryxsim::readScenarioFile(scenarioFile);
            source = scenarioFile.empty() ? "built-in scenario" : "scenario " + scenarioFile;
            description = sc.description;
            if (frames) {
                sc.frames = static_cast<int>(*frames);
            }
            usedSeed = seed ? static_cast<uint64_t>(*seed) : sc.seed;
            scenario = sc;
        }
    } catch (ryxsim::ParseError const& e) {
        std::fprintf(stderr, "synchelper-sim: error: %s\n", e.what());
        return 2;
    }
    // The calls are read as they are needed, twice: once to check them, once to run them.
    auto makeRows = [&]() -> std::unique_ptr<ryxsim::RowSource> {
        if (scenario) {
            return std::make_unique<ryxsim::ScenarioRows>(*scenario, *usedSeed);
        }
        return std::make_unique<ryxsim::TraceRows>(trace);
    };

    size_t calls = 0;
    ryxsim::ControlChecker controls;
    ryxsim::CallFlowChecker flowCheck;
    {
        auto rows = makeRows();
        ryxsim::CallRow row;
        while (rows->next(row)) {
            controls.add(row);
            flowCheck.add(row);
            ++calls;
        }
    }
    for (auto const& w : controls.warnings()) {
        std::fprintf(stderr, "synchelper-sim: warning: %s\n", w.c_str());
    }
    ryxsim::FlowReport flow = flowCheck.finish();
    for (auto const& w : flow.warnings) {
        std::fprintf(stderr, "synchelper-sim: warning: call flow: %s\n", w.c_str());
    }
    for (auto const& v : flow.violations) {
        std::fprintf(stderr, "synchelper-sim: %s: call flow: %s\n",
                     allowFatal ? "warning" : "error", v.c_str());
    }
    if (!flow.violations.empty() && !allowFatal) {
        std::fprintf(stderr,
                     "synchelper-sim: the library aborts the process on %s; nothing was run "
                     "(--allow-fatal runs it anyway)\n",
                     flow.violations.size() == 1 ? "this call flow" : "these call flows");
        return 2;
    }

    // --record: the trace is written as the calls are made.
    auto runRows = makeRows();
    std::ofstream recordFileOut;
    std::unique_ptr<ryxsim::RecordedRows> recorded;
    std::ostream* recordOut = nullptr;
    if (!recordFile.empty()) {
        if (recordFile == "-") {
            recordOut = &std::cout;
        } else {
            recordFileOut.open(recordFile, std::ios::binary | std::ios::trunc);
            recordOut = &recordFileOut;
        }
        if (!*recordOut) {
            std::fprintf(stderr, "synchelper-sim: error: cannot write the trace to '%s'\n",
                         recordFile.c_str());
            return 1;
        }
        recorded = std::make_unique<ryxsim::RecordedRows>(*runRows, *recordOut);
    }
    ryxsim::RowSource& rows = recorded ? *recorded : *runRows;

    ryxsim::RunOptions options;
    options.realtime = realtime;
    options.ordered = ordered;
    options.deadlineSeconds = deadline;
    options.expectedCalls = calls;
    bool tty = isatty(STDERR_FILENO) != 0;
    bool progressShown = false;
    ryxsim::ProgressLines progressLines;
    if (!noProgress) {
        options.progress = [&](ryxsim::RunProgress const& p) {
            if (!tty) {
                std::fputs(progressLines.update(p).c_str(), stderr);
                return;
            }
            if (p.elapsedSeconds < 1.0) {
                return;
            }
            progressShown = true;
            std::fprintf(stderr, "\r[%3d%%] %zu/%zu calls  %.1f s ",
                         static_cast<int>(100.0 * p.callsDone / std::max<size_t>(1, p.callsTotal)),
                         p.callsDone, p.callsTotal, p.elapsedSeconds);
            std::fflush(stderr);
        };
    }
    std::ofstream logcatOut;
    if (!writeLogcatFile.empty()) {
        logcatOut.open(writeLogcatFile, std::ios::binary | std::ios::trunc);
        if (!logcatOut) {
            std::fprintf(stderr, "synchelper-sim: error: cannot write the log to '%s'\n",
                         writeLogcatFile.c_str());
            return 1;
        }
        options.logcat = &logcatOut;
    }
    ryxsim::RunTimeline timeline(rows.session(), rows.sensors(), detailFrames);
    ryxsim::RunResult run = ryxsim::runCalls(rows, timeline, options);
    logcatOut.flush();
    if (progressShown) {
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
    }
    if (!noProgress && !tty) {
        std::fputs(progressLines.finish({run.returned, calls, run.wallSeconds}).c_str(), stderr);
    }
    bool recordFailed = false;
    if (recordOut != nullptr) {
        recordOut->flush();
        if (!*recordOut) {
            std::fprintf(stderr, "synchelper-sim: error: cannot write the trace to '%s'\n",
                         recordFile.c_str());
            recordFailed = true;
        }
    }

    sessions.push_back(timeline.finish(run));
    ryxsim::Timeline& report = sessions.back();
    report.source = source;
    report.description = description;
    report.seed = usedSeed;
    report.realtime = realtime;
    int status = writeSinks(sessions, sinks);
    status = status == 0 && recordFailed ? 1 : status;
    if (!report.blocked.empty()) {
        std::fprintf(stderr,
                     "synchelper-sim: %zu sensor thread(s) still blocked in the library; "
                     "exiting without waiting for them\n",
                     report.blocked.size());
        std::fflush(stdout);
        std::fflush(stderr);
        _exit(status);
    }
    return status;
}
