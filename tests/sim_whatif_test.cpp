// A phone's session replayed with other settings, through the command line: a wider tolerance
// passes the frames the tolerance table says it would; a log that lacks values makes a trace that
// says so, and its replay refuses naming them. (That a system trace made into a trace of calls
// replays to the run's own verdicts is the replay truth test's, over random sessions.)

#include "SimCommandLine.h"

#include <map>
#include <set>
#include <string>

using namespace ryxtest;

namespace {

// Per camera and frame, the verdict and cause a report gives.
std::map<std::pair<int, int>, std::string> verdicts(nlohmann::json const& report) {
    std::map<std::pair<int, int>, std::string> v;
    for (auto const& s : report["sensors"]) {
        for (auto const& f : s["frames"]) {
            v[{s["id"].get<int>(), f["frame"].get<int>()}] =
                f["verdict"].dump() + " " + f.value("cause", nlohmann::json()).dump();
        }
    }
    return v;
}

}  // namespace

TEST_F(CommandLine, AWiderToleranceTurnsTheFramesTheTableNamesIntoPassed) {
    ASSERT_EQ(sim("run --frames 300 --system-trace '" + path("run.trace") + "'").status, 0);
    Result ex = sim("explain '" + path("run.trace") + "' --json '" + path("ex.json") + "'");
    ASSERT_EQ(ex.status, 0) << ex.err;
    auto before = json("ex.json");
    double widest = 0;  // the table's tolerance for 99.9 %: of 300 frames, every one
    for (auto const& p : before["timing"]["sof_skew"]) {
        widest = std::max(widest, p["tolerance_99_9_us"].get<double>());
    }
    std::set<std::pair<int, int>> outOfSync;
    for (auto const& [cell, verdict] : verdicts(before)) {
        if (verdict.rfind("\"out of sync", 0) == 0) {
            outOfSync.insert(cell);
        }
    }
    ASSERT_FALSE(outOfSync.empty());
    std::string tolerance = std::to_string(static_cast<long>(widest));
    Result r = sim("explain '" + path("run.trace") + "' --what-if tolerance_us=" + tolerance +
                   " --json '" + path("wi.json") + "'");
    ASSERT_EQ(r.status, 0) << r.err;
    auto whatIf = json("wi.json")["what_if"];
    EXPECT_EQ(whatIf["settings"], nlohmann::json({"tolerance_us=" + tolerance}));
    std::set<std::pair<int, int>> passed;
    for (auto const& c : whatIf["changes"]) {
        EXPECT_EQ(c["after"], "in sync") << c.dump();
        EXPECT_NE(c["why"].get<std::string>().find(" within the tolerance of " + tolerance + " us"),
                  std::string::npos)
            << c.dump();
        passed.insert({c["sensor"].get<int>(), c["frame"].get<int>()});
    }
    EXPECT_EQ(passed, outOfSync);
    EXPECT_TRUE(whatIf["timing"].empty()) << whatIf["timing"].dump();
    EXPECT_NE(r.out.find("what if tolerance_us=" + tolerance + " (against the capture)"),
              std::string::npos)
        << r.out;
    // Narrower than every spread: nothing that passed may fail for it, the same frames stay out.
    r = sim("explain '" + path("run.trace") +
            "' --what-if tolerance_us=1 --what-if mode=0 --json '" + path("narrow.json") + "'");
    ASSERT_EQ(r.status, 0) << r.err;
    auto narrow = json("narrow.json");  // kept: a range over a temporary's member dangles
    for (auto const& c : narrow["what_if"]["changes"]) {
        EXPECT_TRUE(c["after"] == "out of sync (1)") << c.dump();
    }
}

TEST_F(CommandLine, ATraceMadeFromALogMarksWhatTheLogLacksAndItsReplayNamesIt) {
    ASSERT_EQ(sim("run --frames 60 --log debug --write-logcat '" + path("run.log") + "'").status,
              0);
    Result made = sim("explain '" + path("run.log") + "' --to-trace '" + path("log.csv") + "'");
    ASSERT_EQ(made.status, 0) << made.err;
    EXPECT_NE(slurp("log.csv").find(",?,"), std::string::npos);
    Result replay = sim("replay '" + path("log.csv") + "' --set mode=1");
    EXPECT_EQ(replay.status, 2);
    EXPECT_NE(replay.err.find(path("log.csv") + ":7: cam"), std::string::npos) << replay.err;
    EXPECT_NE(replay.err.find("values the capture did not hold ('?'): "), std::string::npos)
        << replay.err;
    EXPECT_NE(replay.err.find(" exp_ns ("), std::string::npos) << replay.err;
    EXPECT_EQ(replay.err.find(" mode ("), std::string::npos) << "--set gave the mode";
    Result whatIf = sim("explain '" + path("run.log") + "' --what-if tolerance_us=2000");
    EXPECT_EQ(whatIf.status, 2);
    EXPECT_NE(whatIf.err.find("exp_ns"), std::string::npos) << whatIf.err;
    // A log at the default level does not show the calls: no trace is made of it.
    ASSERT_EQ(sim("run --frames 60 --log warn --write-logcat '" + path("warn.log") + "'").status,
              0);
    Result warn = sim("explain '" + path("warn.log") + "' --to-trace '" + path("warn.csv") + "'");
    EXPECT_EQ(warn.status, 2);
    EXPECT_NE(warn.err.find("does not show every call"), std::string::npos) << warn.err;
}

TEST_F(CommandLine, SettingsAreCheckedBeforeAnythingRuns) {
    ASSERT_EQ(sim("run --frames 30 --record '" + path("t.csv") + "'").status, 0);
    struct Case {
        char const* args;
        char const* error;
    } const cases[] = {
        {"--set speed=3", "--set speed=3: unknown setting 'speed'"},
        {"--set mode", "--set mode: expected NAME=VALUE"},
        {"--set tolerance_us=1.5", "--set tolerance_us=1.5: the tolerance is a whole number"},
        {"--set sync=maybe", "--set sync=maybe: sync is on or off"},
        {"--set timeout=0", "--set timeout=0: the timeout is seconds"},
    };
    for (auto const& c : cases) {
        Result r = sim("replay '" + path("t.csv") + "' " + c.args);
        EXPECT_EQ(r.status, 2) << c.args;
        EXPECT_NE(r.err.find(c.error), std::string::npos) << c.args << ": " << r.err;
    }
    Result r = sim("explain '" + path("t.csv") + "' --what-if intent=300");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("--what-if intent=300: the capture intent is 0 to 255"), std::string::npos)
        << r.err;
    r = sim("replay '" + path("t.csv") + "' --ordered --set sync=off --json '" + path("off.json") +
            "'");
    ASSERT_EQ(r.status, 0) << r.err;
    auto off = json("off.json");
    ASSERT_FALSE(off["what_if"]["verdicts_after"].empty());
    for (auto const& [sensor, counts] : off["what_if"]["verdicts_after"].items()) {
        // Nothing checked with sync off: only unchecked frames and the drops the pipeline made.
        EXPECT_TRUE(counts.contains("unchecked")) << counts.dump();
        for (char const* checked : {"in sync", "out of sync (1)", "out of sync (2)"}) {
            EXPECT_FALSE(counts.contains(checked)) << counts.dump();
        }
    }
}

// A capture whose frame came out otherwise than its calls replay to (as when a drop raced a
// wait on the phone): the what-if lists that frame apart, not as the setting's doing.
TEST_F(CommandLine, AFrameTheUnchangedReplayGivesOtherwiseIsListedApart) {
    ASSERT_EQ(sim("run --frames 200 --system-trace '" + path("run.trace") + "'").status, 0);
    std::string text = slurp("run.trace");
    std::string const mark = "|RyxSync f100 cam0 passed; ";
    size_t at = text.find(mark);
    ASSERT_NE(at, std::string::npos);
    text.replace(at, mark.size(), "|RyxSync f100 cam0 out of sync, RESULT 1; ");
    std::ofstream(path("changed.trace")) << text;
    Result r = sim("explain '" + path("changed.trace") + "' --what-if mode=0 --json '" +
                   path("wi.json") + "'");
    ASSERT_EQ(r.status, 0) << r.err;
    auto timing = json("wi.json")["what_if"]["timing"];
    ASSERT_EQ(timing.size(), 1u) << timing.dump();
    EXPECT_EQ(timing[0]["frame"], 100);
    EXPECT_EQ(timing[0]["sensor"], 0);
    EXPECT_EQ(timing[0]["before"], "out of sync (1)");
    EXPECT_EQ(timing[0]["after"], "in sync");
    EXPECT_NE(r.out.find("replayed without changes, these already come out otherwise"),
              std::string::npos)
        << r.out;
}
