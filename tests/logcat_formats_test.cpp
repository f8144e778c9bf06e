// A simulated run's own log, printed by Android's logcat formatter in every format and modifier a
// user saves, read back: every frame right where the format carries thread ids; where it does not,
// what the report counts of the calls it cannot place. (The formats and modifiers its capture
// forms print, and that nothing a format without thread ids shows is read wrongly, are the
// ground-truth judge's part, over random sessions.)

#include "GeneratedTrace.h"
#include "SimulatedCapture.h"
#include "sources/logcat/LogcatSource.h"

#include <gtest/gtest.h>

using namespace ryxsim;
using namespace ryxtest;

namespace {

Timeline readBack(std::vector<std::string> const& formats) {
    auto sessions = readLogcat(ryxtest::formatCapture(debugRun().entries, formats), "capture");
    EXPECT_EQ(sessions.size(), 1u);
    return sessions.at(0);
}

}  // namespace

TEST(LogcatFormats, WithThreadIdsEveryFrameComesBackInEveryModifier) {
    Verdicts const want = verdictsOf(debugRun().timeline);
    ASSERT_GT(want.size(), 800u);
    // The modifiers the judge's capture forms never print: the year, boot time, a zone away from
    // the end of summer time.
    for (std::vector<std::string> formats :
         std::vector<std::vector<std::string>>{{"threadtime", "nsec", "year", "zone"},
                                               {"threadtime", "monotonic"},
                                               {"long", "color", "year", "zone", "nsec"}}) {
        std::string name;
        for (auto const& f : formats) {
            name += f + " ";
        }
        SCOPED_TRACE(name);
        EXPECT_EQ(verdictsOf(readBack(formats)), want);
    }
}

namespace {

// The number just before `words` in a note of the report, -1 without such a note.
long noteCount(Timeline const& t, std::string const& words) {
    for (auto const& n : t.notes) {
        size_t at = n.find(words);
        if (at != std::string::npos) {
            size_t digit = n.find_last_of("0123456789", at);
            size_t start = n.find_last_not_of("0123456789", digit);
            return std::stol(n.substr(start + 1, digit - start));
        }
    }
    return -1;
}

std::vector<LogEntry> atLeast(android_LogPriority level) {
    std::vector<LogEntry> kept;
    for (auto const& e : debugRun().entries) {
        if (e.priority >= level) {
            kept.push_back(e);
        }
    }
    return kept;
}

}  // namespace

// The two-sensor scenario in trace order (sync switched off for frames 200-209) with its log.
std::vector<LogEntry> const& syncOffRun() {
    static std::vector<LogEntry> const entries = [] {
        ryxsim::configureLogging(ryxsim::LogLevel::Quiet);
        NSCam::Utils::ULog::ULogger::sDetailsLevel = 5;
        ryxsim::Scenario s =
            ryxsim::readScenarioFile(std::string(RYX_SIM_SCENARIOS) + "/two_sensor.json");
        ryxsim::Trace trace = ryxtest::generateTrace(s, s.seed);
        std::ostringstream log;
        ryxsim::RunOptions options;
        options.logcat = &log;
        options.ordered = true;
        Watchdog dog("two-sensor run", 60s);
        ryxsim::runTrace(trace, options);
        dog.disarm();
        ryxsim::configureLogging(ryxsim::LogLevel::Quiet);
        return entriesOfThreadtime(log.str());
    }();
    return entries;
}

// Without thread ids, the frames whose calls showed no camera are counted; they are the frames
// whose calls a capture with thread ids shows reaching no rendezvous (flushed or sync off).
TEST(LogcatFormats, WithoutThreadIdsTheCallsShowingNoCameraAreCounted) {
    auto read = [](std::vector<std::string> const& formats) {
        return readLogcat(formatCapture(syncOffRun(), formats), "capture").at(0);
    };
    Timeline const withIds = read({"threadtime"});
    long flushed = noteCount(withIds, " taken as flushed on arrival");
    long syncOff = noteCount(withIds, " as sync switched off");
    ASSERT_GE(flushed, 0);
    ASSERT_GE(syncOff, 0);
    ASSERT_GT(flushed + syncOff, 0) << "the run has no call without a rendezvous to count";
    for (char const* format : {"time", "brief", "process"}) {
        SCOPED_TRACE(format);
        EXPECT_EQ(noteCount(read({format}), " with such calls"), flushed + syncOff);
    }
}

// Which camera completed a frame is known from debug lines with thread ids only: at the info
// level (the platform's default) the report says it does not know.
TEST(LogcatFormats, CompletionIsKnownOnlyFromDebugLinesWithThreadIds) {
    struct Case {
        android_LogPriority level;
        std::vector<std::string> formats;
        bool known;
    } const cases[] = {{ANDROID_LOG_DEBUG, {"threadtime"}, true},
                       {ANDROID_LOG_DEBUG, {"time"}, false},
                       {ANDROID_LOG_INFO, {"threadtime"}, false},
                       {ANDROID_LOG_WARN, {"threadtime"}, false}};
    for (auto const& c : cases) {
        SCOPED_TRACE(std::to_string(c.level) + " " + c.formats[0]);
        auto sessions = readLogcat(formatCapture(atLeast(c.level), c.formats), "capture");
        ASSERT_EQ(sessions.size(), 1u);
        EXPECT_EQ(sessions[0].capture.completionKnown, c.known);
    }
}
