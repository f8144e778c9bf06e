// A simulated run's own log, printed by Android's logcat formatter in every format and modifier a
// user saves, read back: every frame right where the format carries thread ids; where it does not,
// no frame is called in sync that the run did not pass in sync, and the report says why.

#include "LogcatFormats.h"
#include "Watchdog.h"
#include "cli/LogSetup.h"
#include "sources/logcat/LogcatSource.h"
#include "sources/run/RunSource.h"
#include "sources/run/Runner.h"
#include "sources/scenario/Scenario.h"

#include <NSCam/ULogger.h>
#include <gtest/gtest.h>

#include <map>

using namespace ryxsim;
using namespace std::chrono_literals;

namespace {

using Verdicts = std::map<std::pair<int, int>, Verdict>;  // (frame, camera)

Verdict logged(Verdict v) {  // a log does not carry the mode: RESULT 1 and 2 read alike
    return v == Verdict::OutOfSync1 || v == Verdict::OutOfSync2 ? Verdict::OutOfSync : v;
}

Verdicts verdictsOf(Timeline const& t) {
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
    std::vector<ryxtest::LogEntry> entries;
};

// The built-in scenario (drops, a flush, a master drop, out-of-sync frames) with its debug log.
Run const& debugRun() {
    static Run const run = [] {
        configureLogging(LogLevel::Quiet);
        NSCam::Utils::ULog::ULogger::sDetailsLevel = 5;
        Scenario s = parseScenario(defaultScenarioText(), "built-in");
        s.frames = 300;
        Trace trace = generateTrace(s, s.seed);
        std::ostringstream log;
        RunOptions options;
        options.logcat = &log;
        ryxtest::Watchdog dog("debug run", 60s);
        RunResult result = runTrace(trace, options);
        dog.disarm();
        configureLogging(LogLevel::Quiet);
        return Run{timelineFromRun(trace, result), ryxtest::entriesOfThreadtime(log.str())};
    }();
    return run;
}

Timeline readBack(std::vector<std::string> const& formats) {
    auto sessions = readLogcat(ryxtest::formatCapture(debugRun().entries, formats), "capture");
    EXPECT_EQ(sessions.size(), 1u);
    return sessions.at(0);
}

}  // namespace

TEST(LogcatFormats, WithThreadIdsEveryFrameComesBackInEveryModifier) {
    Verdicts const want = verdictsOf(debugRun().timeline);
    ASSERT_GT(want.size(), 800u);
    for (std::vector<std::string> formats :
         std::vector<std::vector<std::string>>{{"threadtime"},
                                               {"thread"},
                                               {"long"},
                                               {"threadtime", "usec"},
                                               {"threadtime", "nsec", "year", "zone"},
                                               {"threadtime", "epoch"},
                                               {"threadtime", "monotonic"},
                                               {"threadtime", "uid"},
                                               {"threadtime", "color"},
                                               {"threadtime", "printable"},
                                               {"long", "epoch", "usec", "uid"},
                                               {"long", "color", "year", "zone", "nsec"},
                                               {"thread", "uid", "color"}}) {
        std::string name;
        for (auto const& f : formats) {
            name += f + " ";
        }
        SCOPED_TRACE(name);
        EXPECT_EQ(verdictsOf(readBack(formats)), want);
    }
}

// Without thread ids the lines of a camera's call cannot be told apart from another's: a frame
// is in sync only where the run passed it in sync, and the report says what it cannot know.
TEST(LogcatFormats, WithoutThreadIdsNoFrameIsWronglyInSync) {
    Verdicts const want = verdictsOf(debugRun().timeline);
    for (std::vector<std::string> formats :
         std::vector<std::vector<std::string>>{{"time"},
                                               {"brief"},
                                               {"process"},
                                               {"tag"},
                                               {"raw"},
                                               {"time", "epoch", "color"},
                                               {"brief", "uid"},
                                               {"process", "uid", "color"}}) {
        std::string name;
        for (auto const& f : formats) {
            name += f + " ";
        }
        SCOPED_TRACE(name);
        Timeline t = readBack(formats);
        size_t inSync = 0;
        for (auto const& [cell, v] : verdictsOf(t)) {
            if (v == Verdict::InSync) {
                ++inSync;
                auto it = want.find(cell);
                ASSERT_NE(it, want.end()) << "f" << cell.first << " camera " << cell.second;
                EXPECT_EQ(it->second, Verdict::InSync)
                    << "f" << cell.first << " camera " << cell.second;
            }
        }
        bool noted = false;
        for (auto const& n : t.notes) {
            noted = noted || n.find("no thread ids") != std::string::npos;
        }
        EXPECT_TRUE(noted) << "the report does not say what the format cannot show";
    }
}
