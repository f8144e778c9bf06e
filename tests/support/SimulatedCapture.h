#pragma once
// A simulated run of the built-in scenario (drops, a flush, a master drop, out-of-sync frames)
// with its own debug log as logcat entries: the run's verdicts are what a capture of it must give
// back.

#include "GeneratedTrace.h"
#include "LogcatFormats.h"
#include "Watchdog.h"
#include "sources/run/LogSetup.h"
#include "sources/run/RunSource.h"
#include "sources/run/Runner.h"
#include "sources/scenario/Scenario.h"

#include <NSCam/ULogger.h>
#include <gtest/gtest.h>

#include <map>

namespace ryxtest {

using namespace std::chrono_literals;
using ryxsim::Timeline;
using ryxsim::Verdict;

using Verdicts = std::map<std::pair<int, int>, Verdict>;  // (frame, camera)

inline Verdict logged(Verdict v) {  // a log does not carry the mode: RESULT 1 and 2 read alike
    return v == Verdict::OutOfSync1 || v == Verdict::OutOfSync2 ? Verdict::OutOfSync : v;
}

inline Verdicts verdictsOf(Timeline const& t) {
    Verdicts v;
    for (auto const& f : t.frames) {
        for (auto const& c : f.cells) {
            v[{f.frame, c.sensor}] = logged(c.verdict);
        }
    }
    return v;
}

struct Run {
    Timeline timeline;
    std::vector<LogEntry> entries;
};

// The built-in scenario (drops, a flush, a master drop, out-of-sync frames) with its debug log.
inline Run const& debugRun() {
    static Run const run = [] {
        ryxsim::configureLogging(ryxsim::LogLevel::Quiet);
        NSCam::Utils::ULog::ULogger::sDetailsLevel = 5;
        ryxsim::Scenario s = ryxsim::parseScenario(ryxsim::defaultScenarioText(), "built-in");
        s.frames = 300;
        ryxsim::Trace trace = ryxtest::generateTrace(s, s.seed);
        std::ostringstream log;
        ryxsim::RunOptions options;
        options.logcat = &log;
        Watchdog dog("debug run", 60s);
        ryxsim::RunResult result = ryxsim::runTrace(trace, options);
        dog.disarm();
        ryxsim::configureLogging(ryxsim::LogLevel::Quiet);
        return Run{ryxsim::timelineFromRun(trace, result), entriesOfThreadtime(log.str())};
    }();
    return run;
}

}  // namespace ryxtest
