// synchelper-sim's command line as a user meets it: subcommands with only their own options,
// "-" for standard input and output, outputs checked before anything runs, write errors with
// their reason, one error style, help within 100 columns, and --version.

#include "SimCommandLine.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>

#include <regex>

using ryxtest::CommandLine;

namespace {

std::string const kScenarios = RYX_SIM_SCENARIOS;

size_t countLines(std::string const& text, std::string const& part) {
    size_t n = 0;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        n += line.find(part) != std::string::npos;
    }
    return n;
}

}  // namespace

// A run's trace on standard output replays from standard input; the text report moves to
// standard error whenever an output takes standard output; a scenario and a capture read from
// standard input too.
TEST_F(CommandLine, DashIsStandardInputAndOutputForEveryFileOption) {
    Result rec = sim("run --frames 30 --record -");
    ASSERT_EQ(rec.status, 0) << rec.err;
    EXPECT_EQ(rec.out.rfind("# synchelper-sim trace", 0), 0u) << rec.out.substr(0, 80);
    EXPECT_NE(rec.err.find("offered  in sync"), std::string::npos) << rec.err;
    std::ofstream(path("run.csv")) << rec.out;

    Result replay = sim("replay - --json -", " --no-progress ", path("run.csv"));
    ASSERT_EQ(replay.status, 0) << replay.err;
    auto j = nlohmann::json::parse(replay.out);
    EXPECT_EQ(j["source"], "trace standard input");
    EXPECT_EQ(j["sensors"][0]["offered"], 30);
    EXPECT_NE(replay.err.find("frames that did not pass"), std::string::npos);

    Result log = sim("run --frames 300 --write-logcat -");
    ASSERT_EQ(log.status, 0) << log.err;
    EXPECT_GT(countLines(log.out, " RyxCam/"), 0u);
    EXPECT_EQ(countLines(log.out, "offered  in sync"), 0u);
    std::ofstream(path("run.log")) << log.out;
    Result explained = sim("explain - --text " + path("report.txt"), "", path("run.log"));
    ASSERT_EQ(explained.status, 0) << explained.err;
    EXPECT_EQ(explained.out, "");
    EXPECT_NE(slurp("report.txt").find("logcat standard input"), std::string::npos);

    std::ofstream(path("s.json")) << R"({"frames": 4, "sensors": [{"id": 0}, {"id": 1}]})";
    Result scenario = sim("run - --json -", " --no-progress ", path("s.json"));
    ASSERT_EQ(scenario.status, 0) << scenario.err;
    EXPECT_EQ(nlohmann::json::parse(scenario.out)["source"], "scenario standard input");
}

// Two outputs on one file, however spelt, or an output over the input, are refused before the
// run: nothing is written and the input is left as it was.
TEST_F(CommandLine, OutputsNamingOneFileAreRefusedBeforeAnythingRuns) {
    std::ofstream(path("t.csv")) << "sensor,kind,frame\n0,result,0\n";
    struct Case {
        std::string args, err;
    };
    for (Case const& c : std::vector<Case>{
             {"run --json " + path("r.json") + " --svg " + path("r.json"),
              "--svg and --json both name '" + path("r.json") + "'"},
             {"run --json " + path("r.json") + " --perfetto " + mDir + "/./sub/../r.json",
              "--perfetto and --json both name"},
             {"replay " + path("t.csv") + " --record " + path("t.csv"),
              "--record and the input both name"},
             {"run --text - --record -", "--text and --record both write to standard output"},
         }) {
        SCOPED_TRACE(c.args);
        Result r = sim(c.args);
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(r.err.rfind("synchelper-sim: error: " + c.err, 0), 0u) << r.err;
        EXPECT_EQ(r.out, "");
        EXPECT_FALSE(std::ifstream(path("r.json")).good());
        EXPECT_EQ(slurp("t.csv"), "sensor,kind,frame\n0,result,0\n");
    }
}

// A file that cannot be written is named with the system's reason and exit status 1; the other
// outputs are still written.
TEST_F(CommandLine, AWriteErrorNamesThePathAndTheSystemsReason) {
    Result r = sim("run --frames 5 --json " + mDir + " --svg " + path("t.svg"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("synchelper-sim: error: cannot write the JSON report to '" + mDir +
                         "': Is a directory\n"),
              std::string::npos)
        << r.err;
    EXPECT_NE(slurp("t.svg").find("</svg>"), std::string::npos);

    r = sim("run --frames 5 --record " + path("no/such/dir/t.csv"));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "synchelper-sim: error: cannot write the trace to '" +
                         path("no/such/dir/t.csv") + "': No such file or directory\n");

    r = sim("run --frames 5 --perfetto /dev/full");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("cannot write the Perfetto trace to '/dev/full': No space left on "
                         "device\n"),
              std::string::npos)
        << r.err;

    r = sim("replay " + path("missing.csv"));
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "synchelper-sim: error: cannot read the trace '" + path("missing.csv") +
                         "': No such file or directory\n");
}

// Each subcommand has only its own options: one that does nothing in a mode is refused in the
// tool's one error style, naming the subcommand's help.
TEST_F(CommandLine, AnOptionOfAnotherModeIsRefused) {
    std::ofstream(path("c.txt")) << "";
    for (auto [command, option] :
         std::vector<std::pair<std::string, std::string>>{{"explain", "--realtime"},
                                                          {"explain", "--log"},
                                                          {"explain", "--prop"},
                                                          {"explain", "--ordered"},
                                                          {"replay", "--seed"},
                                                          {"replay", "--frames"},
                                                          {"run", "--adb-serial"}}) {
        SCOPED_TRACE(command + " " + option);
        Result r = sim(command + " " + path("c.txt") + " " + option + " 1");
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(r.err, "synchelper-sim: error: synchelper-sim " + command + " has no option " +
                             option + " (see 'synchelper-sim " + command + " --help')\n");
    }
    Result none = sim("");
    EXPECT_EQ(none.status, 2);
    EXPECT_EQ(none.err.rfind("synchelper-sim: error: A subcommand is required", 0), 0u);
}

// --version names the tool and the library file the loader actually mapped.
TEST_F(CommandLine, VersionNamesTheToolAndTheLibraryItLoaded) {
    Result r = sim("--version");
    EXPECT_EQ(r.status, 0);
    std::smatch m;
    ASSERT_TRUE(std::regex_match(r.out, m,
                                 std::regex("synchelper-sim [0-9]+\\.[0-9]+\\.[0-9]+\n"
                                            "libryxcam_synchelper ([0-9.]+) \\((/.*)\\)\n")))
        << r.out;
    struct stat st {};
    EXPECT_EQ(stat(m[2].str().c_str(), &st), 0) << m[2];
    EXPECT_NE(m[2].str().find("libryxcam_synchelper.so." + m[1].str()), std::string::npos);
}

// Every help page fits 100 columns and shows an example of its subcommand.
TEST_F(CommandLine, HelpFitsOneHundredColumnsWithExamples) {
    for (std::string command : {"", "run", "replay", "explain"}) {
        SCOPED_TRACE(command);
        Result r = sim(command + " --help");
        EXPECT_EQ(r.status, 0);
        std::istringstream in(r.out);
        for (std::string line; std::getline(in, line);) {
            EXPECT_LE(line.size(), 100u) << line;
        }
        size_t examples = r.out.find("\nExamples:\n");
        if (!command.empty()) {
            ASSERT_NE(examples, std::string::npos) << r.out;
            EXPECT_NE(r.out.find("synchelper-sim " + command + " ", examples), std::string::npos);
        }
    }
}

// --log debug with --write-logcat: the debug lines go to the file, none to standard error.
TEST_F(CommandLine, AWrittenLogTakesTheLibraryLinesOffStandardError) {
    Result r = sim("run --frames 20 --log debug --write-logcat " + path("run.log"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_GT(countLines(slurp("run.log"), " D RyxCam/SyncQueue:"), 20u);
}

// A shortened or reseeded run says what of the scenario's description no longer holds; a
// session of one frame is "1 frame".
TEST_F(CommandLine, ARunSaysWhatItChangedOfTheScenarioAndCountsInWords) {
    Result r = sim("run --frames 60 --seed 9");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("(this run has 60 frames of the scenario's 600: its random events "
                         "(out-of-tolerance frames, drops) are spread over these 60 frames, and "
                         "what the description places at f60 or later does not happen; drawn "
                         "with seed 9 instead of "
                         "the scenario's 1: its random parts (jitter, out-of-tolerance frames, "
                         "drops) differ)\n"),
              std::string::npos)
        << r.out;
    r = sim("run " + kScenarios + "/two_sensor.json --frames 1");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("2 sensors, 1 frame (f0..f0)"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find(" 1 frames"), std::string::npos) << r.out;
}

// Cameras of a trace without camera lines, named on the command line, in every report.
TEST_F(CommandLine, CamerasOfAnImportedSessionCanBeNamed) {
    std::ofstream(path("t.csv")) << "sensor,kind,frame,sof_ns,sync_ids,required,tolerance_us\n"
                                    "0,result,0,1000,1,1,100\n1,result,0,900000,0,1,100\n";
    Result r =
        sim("replay " + path("t.csv") + " --camera-names 0=wide,1=tele --json " + path("r.json"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("\n0 wide "), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("tele"), std::string::npos) << r.out;
    EXPECT_EQ(json("r.json")["sensors"][1]["label"], "1 tele");

    r = sim("replay " + path("t.csv") + " --camera-names 0wide");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err,
              "synchelper-sim: error: --camera-names: '0wide': expected ID=NAME, e.g. "
              "0=wide\n");
}

// A report says only what its source knows: a sensor leaving is in the text report; which call
// completed a frame is unknown (null) in a run; a verdict without a drop has no cause (null);
// a capture at the default level does not claim that no frame was left waiting.
TEST_F(CommandLine, ReportsSayWhatTheSourceKnowsAndNoMore) {
    std::ofstream(path("leave.json"))
        << R"({"frames": 10, "sensors": [{"id": 0, "name": "wide"}, {"id": 1, "name": "tele"}],
              "events": [{"kind": "leave", "frame": 5, "sensor": 1}]})";
    Result r = sim("run " + path("leave.json"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("\n  sensors that left:       f5 (1 tele)\n"), std::string::npos) << r.out;

    r = sim("run --json " + path("run.json"));
    ASSERT_EQ(r.status, 0) << r.err;
    size_t cells = 0;
    nlohmann::json const report = json("run.json");
    for (auto const& f : report["unpassed"]) {
        for (auto const& c : f["cameras"]) {
            EXPECT_TRUE(c["completed"].is_null()) << c;
            EXPECT_TRUE(c["cause"].is_null() || !c["cause"].get<std::string>().empty()) << c;
            cells += c["cause"].is_null();
        }
    }
    EXPECT_GT(cells, 0u);  // the out-of-sync frames: failed, not dropped

    ASSERT_EQ(sim("run --write-logcat " + path("warn.log")).status, 0);
    r = sim("explain " + path("warn.log"));
    ASSERT_EQ(r.status, 0) << r.err;
    for (char const* line : {"  frames never completed:  unknown (not logged at this level)\n",
                             "  calls waiting at the end: unknown (not logged at this level)\n",
                             "  sensors that left:       unknown (not logged at this level)\n"}) {
        EXPECT_NE(r.out.find(line), std::string::npos) << line << r.out;
    }
    EXPECT_EQ(r.out.find(": none\n  threads still blocked"), std::string::npos);
}

// The README's sample is what the built-in run prints, but for the figures a run measures (its
// speed and timings); its out-of-sync frames read the same every run.
TEST_F(CommandLine, TheReadmeSampleIsWhatTheBuiltInRunPrints) {
    std::ifstream readme(std::string(RYX_SOURCE_DIR) + "/README.md");
    std::string text((std::istreambuf_iterator<char>(readme)), std::istreambuf_iterator<char>());
    size_t intro = text.find("`bash scripts/demo.sh` prints on standard output");
    ASSERT_NE(intro, std::string::npos);
    size_t open = text.find("```\n", intro) + 4;
    std::string sample = text.substr(open, text.find("```\n", open) - open);
    // The timing section and the header's speed are measured, so they differ run to run.
    auto measuredOut = [](std::string s) {
        s = std::regex_replace(s, std::regex("run in [0-9.]+ s \\([^)]*\\)"), "run in # s");
        size_t timing = s.find("\ntiming\n"), anomalies = s.find("\nanomalies\n");
        return timing < anomalies ? s.erase(timing, anomalies - timing) : s;
    };
    for (int run = 0; run < 3; ++run) {
        Result r = sim("run");
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(measuredOut(r.out), measuredOut(sample)) << "run " << run;
    }
}
