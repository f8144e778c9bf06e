#include "cli/SessionReplay.h"

#include "cli/Cli.h"
#include "model/WhatIf.h"
#include "sinks/TraceSink.h"
#include "sources/run/FlowCheck.h"
#include "sources/run/LogSetup.h"
#include "sources/run/RunSource.h"
#include "sources/run/Runner.h"
#include "sources/trace/TraceIo.h"

#include <climits>
#include <memory>

namespace ryxsim::cli {

Timeline const* chooseSession(std::vector<Timeline> const& sessions, int number) {
    if (number > 0) {
        if (number > static_cast<int>(sessions.size())) {
            printError("--session " + std::to_string(number) + ": the capture holds " +
                       std::to_string(sessions.size()) + " sessions");
            return nullptr;
        }
        return &sessions[static_cast<size_t>(number - 1)];
    }
    Timeline const* most = nullptr;
    for (auto const& t : sessions) {
        most = most == nullptr || t.frameCount > most->frameCount ? &t : most;
    }
    if (most == nullptr || most->frameCount == 0) {
        printError("the capture holds no session with frames");
        return nullptr;
    }
    if (sessions.size() > 1) {
        printWarning("the capture holds " + std::to_string(sessions.size()) + " sessions; taking " +
                     most->name + " (the most frames; --session N takes the Nth)");
    }
    return most;
}

int writeSessionTrace(Timeline const& session, OutputPath const& out) {
    std::string why;
    std::optional<Trace> trace = traceOfSession(session, why);
    if (!trace) {
        return badInput("--to-trace: " + session.name + ": " + why);
    }
    OutputStream stream;
    if (!stream.open(out)) {
        return kExitWriteFailed;
    }
    writeTrace(stream.stream(), *trace);
    return stream.finish() ? kExitOk : kExitWriteFailed;
}

Timeline replayOrdered(Trace const& trace, double deadlineS, bool& blocked) {
    configureLogging(LogLevel::Quiet);  // the collector sees the waits an ordered replay follows
    RunOptions options;
    options.ordered = true;
    options.deadlineSeconds = deadlineS;
    RunResult result = runTrace(trace, options);
    blocked = blocked || !result.blocked.empty();
    return timelineFromRun(trace, result, SIZE_MAX);
}

namespace {

// False, with the error printed, when the trace cannot be replayed as it is.
bool replayable(Trace const& trace, std::string const& name) {
    if (std::string e = unknownValues(trace, name); !e.empty()) {
        printError(e);
        return false;
    }
    FlowReport flow = checkCallFlow(trace);
    for (auto const& v : flow.violations) {
        printError(name + ": call flow: " + v);
    }
    return flow.violations.empty();
}

}  // namespace

int whatIfSession(Timeline& session, Settings const& settings, std::string const& name,
                  bool& blocked) {
    std::string why;
    std::optional<Trace> unchanged = traceOfSession(session, why);
    if (!unchanged) {
        return badInput("--what-if: " + session.name + ": " + why);
    }
    Trace changed = *unchanged;
    applySettings(settings, changed);
    if (!replayable(changed, name)) {
        return kExitBadInput;
    }
    double deadline = settings.timeoutS.value_or(2.0);
    Timeline after = replayOrdered(changed, deadline, blocked);
    auto facts = std::make_shared<WhatIfFacts>();
    if (unknownValues(*unchanged, name).empty()) {
        Timeline again = replayOrdered(*unchanged, deadline, blocked);
        *facts = compareSessions(session, after, &again);
    } else {
        *facts = compareSessions(session, after, nullptr);
        session.notes.push_back(
            "the capture's calls lack values the settings gave, so they "
            "were not replayed unchanged: thread timing is not told apart");
    }
    facts->settings = settings.given;
    facts->before = "the capture";
    session.whatIf = facts;
    return kExitOk;
}

void compareWithUnchanged(Timeline& after, Trace const& unchanged, Settings const& settings,
                          double deadlineS, bool& blocked) {
    if (!unknownValues(unchanged, "").empty()) {
        after.notes.push_back(
            "the trace lacks values the settings gave ('?'), so it was not "
            "replayed unchanged and nothing is compared");
        return;
    }
    Timeline before = replayOrdered(unchanged, deadlineS, blocked);
    auto facts = std::make_shared<WhatIfFacts>(compareSessions(before, after, nullptr));
    facts->settings = settings.given;
    facts->before = "the trace replayed unchanged, in trace order";
    after.whatIf = facts;
}

}  // namespace ryxsim::cli
