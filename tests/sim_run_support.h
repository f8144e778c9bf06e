#pragma once
// The built-in scenario run through the library under a watchdog, as a timeline: the real
// output that the format checks of the simulator's sinks look at.

#include "GeneratedTrace.h"
#include "Watchdog.h"
#include "sources/run/LogSetup.h"
#include "sources/run/RunSource.h"
#include "sources/run/Runner.h"
#include "sources/scenario/Scenario.h"

namespace ryxtest {

inline ryxsim::Timeline defaultScenarioTimeline() {
    using namespace ryxsim;
    configureLogging(LogLevel::Quiet);
    Trace trace = generateTrace(parseScenario(defaultScenarioText(), "built-in"), 1);
    Watchdog dog("default scenario run", std::chrono::seconds(60));
    RunResult run = runTrace(trace);
    dog.disarm();
    return timelineFromRun(trace, run);
}

}  // namespace ryxtest
