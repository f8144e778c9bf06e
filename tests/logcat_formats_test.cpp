// A simulated run's own log, printed by Android's logcat formatter in every format and modifier a
// user saves, read back: every frame right where the format carries thread ids; where it does not,
// no frame is called in sync that the run did not pass in sync, and the report says why.

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
