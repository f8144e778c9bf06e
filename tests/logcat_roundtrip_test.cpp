// A simulated run's own debug log, its threads racing as a pipeline's do, read back: every frame's
// verdicts and causes, and each camera's figures (master frames, crop overrides, waits). (Random
// sessions at every level and in every format are the ground-truth judge's.)

#include "GeneratedTrace.h"
#include "SeenCell.h"
#include "Watchdog.h"
#include "sources/logcat/LogcatSource.h"
#include "sources/run/LogSetup.h"
#include "sources/run/RunSource.h"
#include "sources/run/Runner.h"
#include "sources/scenario/Scenario.h"

#include <NSCam/ULogger.h>
#include <gtest/gtest.h>

#include <map>
#include <sstream>

using namespace ryxsim;
using ryxtest::generateTrace;
using namespace std::chrono_literals;

namespace {

using ryxtest::Seen;

using Cells = std::map<std::pair<int, int>, Seen>;  // (frame, camera)

Cells seen(Timeline const& t, bool unpassedOnly) {
    Cells cells;
    for (auto const& f : t.frames) {
        if (unpassedOnly && !unpassed(f)) {
            continue;
        }
        for (auto const& c : f.cells) {
            cells[{f.frame, c.sensor}] = ryxtest::seenOf(f, c);
        }
    }
    return cells;
}

struct RoundTrip {
    Timeline run;
    Timeline imported;
};

// Runs the scenario with the library's lines at `detailsLevel` written as threadtime, reads
// them back.
RoundTrip roundTrip(Scenario const& s, uint32_t detailsLevel) {
    configureLogging(LogLevel::Quiet);  // unified logger only: nothing on stderr
    NSCam::Utils::ULog::ULogger::sDetailsLevel = detailsLevel;
    Trace trace = generateTrace(s, s.seed);
    std::ostringstream log;
    RunOptions options;
    options.logcat = &log;
    ryxtest::Watchdog dog("round trip of " + s.name, 60s);
    RunResult result = runTrace(trace, options);
    dog.disarm();
    configureLogging(LogLevel::Quiet);
    auto sessions = readLogcat(log.str(), "run.log");
    EXPECT_EQ(sessions.size(), 1u);
    return {timelineFromRun(trace, result), sessions.at(0)};
}

}  // namespace

TEST(LogcatRoundTrip, DebugLogGivesBackEveryFrame) {
    RoundTrip d = roundTrip(parseScenario(defaultScenarioText(), "built-in"), 5);
    Cells run = seen(d.run, false);
    EXPECT_EQ(run.size(), 1800u);
    EXPECT_EQ(seen(d.imported, false), run);
    EXPECT_TRUE(d.imported.notes.empty() ||
                d.imported.notes[0].rfind("only warnings", 0) == std::string::npos);
    // Who dropped, who was master, and that the times are there.
    ASSERT_EQ(d.imported.masterDrops.size(), 1u);
    EXPECT_EQ(d.imported.masterDrops[0].sensor, d.run.masterDrops[0].sensor);
    EXPECT_EQ(d.imported.masterChanges, d.run.masterChanges);
    for (size_t i = 0; i < d.run.sensors.size(); ++i) {
        EXPECT_EQ(d.imported.sensors[i].masterFrames, d.run.sensors[i].masterFrames);
        EXPECT_EQ(d.imported.sensors[i].cropOverrides, d.run.sensors[i].cropOverrides);
        EXPECT_EQ(d.imported.sensors[i].wait.count, d.run.sensors[i].wait.count);
    }
}
