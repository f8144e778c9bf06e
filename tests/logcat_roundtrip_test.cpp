// A simulated run's own log, read back, gives the run's per-frame verdicts and causes: every
// frame at debug level, every frame that did not pass at the default level.

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

Scenario scenarioFile(char const* name) {
    return readScenarioFile(std::string(RYX_SIM_SCENARIOS) + "/" + name);
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

// The two-sensor scenario: a time inversion, sync switched off for ten frames, a sensor leaving.
// The frames the remaining sensor serves alone take the single-camera path, which logs nothing.
// The first and last frames with sync off (200, 209) are undetermined: a flush next to the run
// would log the same.
TEST(LogcatRoundTrip, DebugLogOfTwoSensorSession) {
    RoundTrip d = roundTrip(scenarioFile("two_sensor.json"), 5);
    Cells run = seen(d.run, false);
    Cells imported = seen(d.imported, false);
    for (auto const& [key, s] : run) {
        auto it = imported.find(key);
        if (it == imported.end()) {
            EXPECT_EQ(s.verdict, Verdict::Unchecked)
                << "f" << key.first << " camera " << key.second;
            continue;
        }
        bool runEdge = key.first == 200 || key.first == 209;
        Seen const undetermined{Verdict::Undetermined, DropCause::None, Refusal::None};
        EXPECT_EQ(it->second, runEdge ? undetermined : s)
            << "f" << key.first << " camera " << key.second;
    }
    Cells unpassed = seen(d.imported, true);
    unpassed.erase({200, 0}), unpassed.erase({200, 1}), unpassed.erase({209, 0});
    unpassed.erase({209, 1});
    EXPECT_EQ(unpassed, seen(d.run, true));
}

TEST(LogcatRoundTrip, DefaultLevelGivesBackTheFramesItLogs) {
    for (Scenario const& s :
         {parseScenario(defaultScenarioText(), "built-in"), scenarioFile("two_sensor.json")}) {
        SCOPED_TRACE(s.name);
        RoundTrip d = roundTrip(s, 2);
        // Out of sync and refused frames are logged as warnings; drops and flushes are not.
        Cells expected;
        for (auto const& [key, c] : seen(d.run, true)) {
            if (c.verdict == Verdict::OutOfSync) {
                expected[key] = c;
            }
        }
        Cells imported = seen(d.imported, true);
        ASSERT_FALSE(expected.empty());
        for (auto const& [key, c] : expected) {
            EXPECT_EQ(imported[key], c) << "f" << key.first << " camera " << key.second;
        }
        for (auto const& inv : d.run.timeInversions) {
            FrameRecord const* f = d.imported.findFrame(inv.frame);
            ASSERT_NE(f, nullptr);
            EXPECT_EQ(f->refusal, Refusal::TimeInversion);
        }
        for (auto const& [key, c] : imported) {
            EXPECT_TRUE(c.verdict == Verdict::OutOfSync || c.cause == DropCause::Refused)
                << "f" << key.first;
        }
    }
}
