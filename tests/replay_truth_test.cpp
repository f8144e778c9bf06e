// A capture made into a trace and replayed through the library gives back what the session
// really decided: random sessions are traced, their trace read back, made into a trace of calls
// and replayed in trace order, and every camera's verdict and cause is judged against the run's
// own. Then the same calls with another setting, judged by what that setting must change.
// RYX_REPLAY_TRUTH_SEEDS=FIRST:COUNT picks the seeds.

#include "TruthSessions.h"
#include "model/Settings.h"
#include "model/WhatIf.h"
#include "sinks/TraceSink.h"
#include "sources/logcat/LogcatSource.h"
#include "sources/run/LogSetup.h"
#include "sources/run/RunSource.h"
#include "sources/run/Runner.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using namespace ryxtest;
using ryxsim::Timeline;
using ryxsim::Verdict;

namespace {

Timeline replayed(ryxsim::Trace const& trace) {
    ryxsim::configureLogging(ryxsim::LogLevel::Quiet);
    ryxsim::RunOptions options;
    options.ordered = true;
    options.deadlineSeconds = 5;  // a blocked replay is a failure, and is seen as one
    ryxsim::RunResult result = ryxsim::runTrace(trace, options);
    EXPECT_TRUE(result.blocked.empty()) << "a replay left threads blocked";
    return ryxsim::timelineFromRun(trace, result, SIZE_MAX);
}

// The session's system trace read back and made into a trace of calls.
std::optional<ryxsim::Trace> callsOf(TrueSession const& s, std::string& why) {
    std::vector<Timeline> read = ryxsim::readLogcat(s.systemTrace, "trace.txt");
    if (read.size() != 1) {
        why = std::to_string(read.size()) + " sessions read from one session's trace";
        return std::nullopt;
    }
    return ryxsim::traceOfSession(read[0], why);
}

struct Tally {
    size_t sessions = 0, cells = 0;
    std::vector<std::string> falseOnes;
};

void judgeReplay(Timeline const& truth, Timeline const& replay, std::string const& at,
                 Tally& tally) {
    for (auto const& change : ryxsim::verdictChanges(truth, replay)) {
        tally.falseOnes.push_back(
            at + "f" + std::to_string(change.frame) + " camera " + std::to_string(change.sensor) +
            ": ran " + verdictName(change.before) + "/" + dropCauseName(change.causeBefore) +
            ", replayed " + verdictName(change.after) + "/" + dropCauseName(change.causeAfter));
    }
    for (auto const& f : truth.frames) {
        tally.cells += f.cells.size();
    }
}

// With the tolerance wider than any start-of-frame spread, every out-of-sync cell passes and
// nothing else changes.
void judgeWideTolerance(Timeline const& truth, ryxsim::Trace calls, std::string const& at,
                        Tally& tally) {
    ryxsim::Settings wide;
    ASSERT_EQ(ryxsim::parseSetting("tolerance_us=1e9", wide), "");
    ryxsim::applySettings(wide, calls);
    Timeline after = replayed(calls);
    for (auto const& change : ryxsim::verdictChanges(truth, after)) {
        bool wasOut = change.before == Verdict::OutOfSync1 || change.before == Verdict::OutOfSync2;
        // A frame in sync at last goes on to the master's updater, which may refuse it.
        bool refused =
            change.after == Verdict::Dropped && change.causeAfter == ryxsim::DropCause::Refused;
        if (!wasOut || (change.after != Verdict::InSync && !refused)) {
            tally.falseOnes.push_back(
                at + "wide tolerance: f" + std::to_string(change.frame) + " camera " +
                std::to_string(change.sensor) + " " + verdictName(change.before) + " -> " +
                verdictName(change.after) + "/" + dropCauseName(change.causeAfter) + " " +
                refusalName(change.refusalAfter));
        }
    }
    for (auto const& [sensor, counts] : ryxsim::verdictCounts(after)) {
        for (Verdict v : {Verdict::OutOfSync1, Verdict::OutOfSync2}) {
            if (counts.count(v) != 0) {
                tally.falseOnes.push_back(at + "wide tolerance left camera " +
                                          std::to_string(sensor) + " out of sync");
            }
        }
    }
}

}  // namespace

TEST(ReplayTruth, ATraceMadeFromTheSystemTraceReplaysToTheRunsOwnVerdicts) {
    SeedRange r = seedsFrom("RYX_REPLAY_TRUTH_SEEDS", 40);
    Tally tally;
    for (uint64_t seed = r.first; seed < r.first + r.count; ++seed) {
        TrueProcessLog truth = runTrueSessions(seed, 1000);
        for (size_t i = 0; i < truth.sessions.size(); ++i) {
            std::string at =
                "seed " + std::to_string(seed) + " session " + std::to_string(i) + ": ";
            std::string why;
            std::optional<ryxsim::Trace> calls = callsOf(truth.sessions[i], why);
            if (!calls) {
                tally.falseOnes.push_back(at + why);
                continue;
            }
            if (std::string e = ryxsim::unknownValues(*calls, "trace"); !e.empty()) {
                tally.falseOnes.push_back(at + e);
                continue;
            }
            ++tally.sessions;
            judgeReplay(truth.sessions[i].truth, replayed(*calls), at, tally);
            judgeWideTolerance(truth.sessions[i].truth, *calls, at, tally);
        }
    }
    std::printf("replays judged: %zu sessions, %zu cells, %zu false\n", tally.sessions, tally.cells,
                tally.falseOnes.size());
    for (size_t i = 0; i < tally.falseOnes.size() && i < 20; ++i) {
        ADD_FAILURE() << tally.falseOnes[i];
    }
    EXPECT_TRUE(tally.falseOnes.empty());
    EXPECT_GT(tally.cells, 0u);
}
