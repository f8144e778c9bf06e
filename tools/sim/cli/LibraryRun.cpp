#include "cli/LibraryRun.h"

#include "cli/Cli.h"
#include "cli/ProgressLines.h"
#include "sources/InputChecks.h"
#include "sources/run/FlowCheck.h"
#include "sources/run/LogSetup.h"
#include "sources/run/RunSource.h"
#include "sources/run/Runner.h"
#include "sources/trace/TraceIo.h"

#include <NSCam/Properties.h>

#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>

namespace ryxsim::cli {

void LibraryRunOptions::addTo(CLI::App& command, SharedOutputs& outputs) {
    command.add_flag("--ordered", ordered,
                     "Let the calls into the library one at a time in trace order across the "
                     "sensor threads, so every replay gives the same verdicts and the same abort "
                     "(default: free-running, as real pipelines)");
    command.add_flag("--allow-fatal", allowFatal,
                     "Run a call flow that breaks the library's contract anyway, to reproduce "
                     "what it does (default: name the broken flows and exit 2)");
    command.add_flag("--realtime", realtime,
                     "Pace the frames at their start-of-frame times (default: as fast as "
                     "possible)");
    command.add_option("--record", record.path, "Write the calls of this run as a trace (CSV)")
        ->type_name("FILE");
    command
        .add_option("--write-logcat", writeLogcat.path,
                    "Write the library's log lines as 'logcat -v threadtime' shows them, at the "
                    "--log level (warnings and errors when quiet); nothing goes to stderr then")
        ->type_name("FILE");
    command
        .add_option("--system-trace", systemTrace.path,
                    "Turn the library's system-trace points on (camera tag) and write them as "
                    "'atrace' prints a trace; ui.perfetto.dev and 'explain' read it")
        ->type_name("FILE");
    command.add_option("--log", log, "Library log level: quiet, error, warn, info, debug")
        ->check(CLI::IsMember({"quiet", "error", "warn", "info", "debug"}))
        ->type_name("LEVEL");
    command.add_option("--prop", props, "Set a system property NAME=VALUE (repeatable)")
        ->type_name("NAME=VALUE");
    command
        .add_option("--deadline", deadline,
                    "Seconds without progress, every sensor thread inside the library, after "
                    "which they count as blocked (default 2)")
        ->check(numberIn(0.05, 3600.0))
        ->type_name("SECONDS");
    command.add_flag("--quiet,--no-progress", noProgress, "Print no progress");
    names.addTo(command);
    // Hidden: how many of the latest passed frames keep their whole record (tests force it small).
    command.add_option("--detail-frames", detailFrames)->group("");
    outputs.alsoWrites(&record);
    outputs.alsoWrites(&writeLogcat);
    outputs.alsoWrites(&systemTrace);
}

namespace {

// False, with the error printed, when a property is not NAME=VALUE.
bool applyProperties(std::vector<std::string> const& props) {
    for (auto const& p : props) {
        size_t eq = p.find('=');
        if (eq == std::string::npos || eq == 0) {
            printError("--prop '" + p + "': expected NAME=VALUE");
            return false;
        }
        std::string warning = propertyWarning(p.substr(0, eq), p.substr(eq + 1));
        if (!warning.empty()) {
            printWarning(warning);
        }
        NSCam::Utils::Properties::setHostProperty(p.substr(0, eq), p.substr(eq + 1));
    }
    return true;
}

struct CheckedCalls {
    size_t calls = 0;
    FlowReport flow;
};

// Reads the calls once before they run: their number (for progress), the control values the
// library takes but that fail every frame, and the call flows that break its contract.
CheckedCalls checkCalls(RowSource& rows) {
    CheckedCalls checked;
    ControlChecker controls;
    CallFlowChecker flow;
    CallRow row;
    while (rows.next(row)) {
        controls.add(row);
        flow.add(row);
        ++checked.calls;
    }
    for (auto const& w : controls.warnings()) {
        printWarning(w);
    }
    checked.flow = flow.finish();
    return checked;
}

// The check's findings, printed; false when the run must not go on.
bool reportFlow(FlowReport const& flow, bool allowFatal) {
    for (auto const& w : flow.warnings) {
        printWarning("call flow: " + w);
    }
    for (auto const& v : flow.violations) {
        (allowFatal ? printWarning : printError)("call flow: " + v);
    }
    if (flow.violations.empty() || allowFatal) {
        return true;
    }
    std::fprintf(stderr,
                 "synchelper-sim: the library's contract is broken by %s; nothing was run "
                 "(--allow-fatal runs it anyway)\n",
                 flow.violations.size() == 1 ? "this call flow" : "these call flows");
    return false;
}

// Progress on stderr: a line redrawn in place on a terminal, whole lines otherwise.
class Progress {
  public:
    explicit Progress(bool on) : mOn(on), mTty(isatty(STDERR_FILENO) != 0) {}

    std::function<void(RunProgress const&)> callback() {
        if (!mOn) {
            return {};
        }
        return [this](RunProgress const& p) {
            if (!mTty) {
                std::fputs(mLines.update(p).c_str(), stderr);
                return;
            }
            if (p.elapsedSeconds < 1.0) {
                return;
            }
            mShown = true;
            std::fprintf(stderr, "\r[%3d%%] %zu/%zu calls  %.1f s ",
                         static_cast<int>(100.0 * p.callsDone / std::max<size_t>(1, p.callsTotal)),
                         p.callsDone, p.callsTotal, p.elapsedSeconds);
            std::fflush(stderr);
        };
    }

    void finish(RunProgress const& last) {
        if (mShown) {
            std::fprintf(stderr, "\r\033[K");
            std::fflush(stderr);
        }
        if (mOn && !mTty) {
            std::fputs(mLines.finish(last).c_str(), stderr);
        }
    }

  private:
    bool mOn, mTty, mShown = false;
    ProgressLines mLines;
};

}  // namespace

int runLibrary(RunInput const& input, LibraryRunOptions const& options,
               SharedOutputs const& outputs) {
    if (!applyProperties(options.props)) {
        return kExitBadInput;
    }
    configureLogging(*logLevelFromName(options.log), options.writeLogcat.path.empty());
    CheckedCalls checked = checkCalls(*input.makeRows());
    if (!reportFlow(checked.flow, options.allowFatal)) {
        return kExitBadInput;
    }
    OutputStream record, logcat, systemTrace;
    if ((!options.record.path.empty() && !record.open(options.record)) ||
        (!options.writeLogcat.path.empty() && !logcat.open(options.writeLogcat)) ||
        (!options.systemTrace.path.empty() && !systemTrace.open(options.systemTrace))) {
        return kExitWriteFailed;
    }
    auto runRows = input.makeRows();
    std::unique_ptr<RecordedRows> recorded;
    if (!options.record.path.empty()) {
        recorded = std::make_unique<RecordedRows>(*runRows, record.stream());
    }
    RowSource& rows = recorded ? *recorded : *runRows;

    RunOptions run;
    run.realtime = options.realtime;
    run.ordered = options.ordered;
    run.deadlineSeconds = std::strtod(options.deadline.c_str(), nullptr);
    run.expectedCalls = checked.calls;
    run.logcat = options.writeLogcat.path.empty() ? nullptr : &logcat.stream();
    run.systemTrace = options.systemTrace.path.empty() ? nullptr : &systemTrace.stream();
    Progress progress(!options.noProgress);
    run.progress = progress.callback();
    RunTimeline timeline(rows.session(), rows.sensors(), options.detailFrames);
    RunResult result = runCalls(rows, timeline, run);
    progress.finish({result.returned, checked.calls, result.wallSeconds});
    bool written = (options.record.path.empty() || record.finish()) &&
                   (options.writeLogcat.path.empty() || logcat.finish()) &&
                   (options.systemTrace.path.empty() || systemTrace.finish());

    std::vector<Timeline> sessions{timeline.finish(result)};
    Timeline& report = sessions.back();
    std::set<int> blocked;
    for (auto const& b : report.blocked) {
        blocked.insert(b.sensor);
    }
    std::string differs = flowDifference(checked.flow, runOutcome(blocked), options.ordered);
    if (!differs.empty()) {
        report.notes.push_back(differs);
    }
    report.source = input.source;
    report.description = input.description;
    report.run.seed = input.seed;
    report.run.realtime = options.realtime;
    bool amendBlocked = false;
    if (input.amend) {
        input.amend(report, amendBlocked);
    }
    options.names.apply(sessions);
    int status = outputs.write(sessions);
    status = status == kExitOk && !written ? kExitWriteFailed : status;
    if (!report.blocked.empty() || amendBlocked) {
        std::fprintf(
            stderr,
            "synchelper-sim: %s still blocked in the library; exiting without waiting "
            "for them\n",
            plural(static_cast<long long>(report.blocked.size()), "sensor thread", "sensor threads")
                .c_str());
        std::fflush(stdout);
        std::fflush(stderr);
        _exit(status);
    }
    return status;
}

}  // namespace ryxsim::cli
