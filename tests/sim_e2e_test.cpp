// synchelper-sim against the real library: the built-in session's figures against what the
// library wrote, record then replay, and the command line (bad input, blocked threads, properties).

#include "GeneratedTrace.h"
#include "SimCommandLine.h"
#include "Watchdog.h"
#include "sinks/JsonSink.h"
#include "sinks/TextSink.h"
#include "sources/run/LogSetup.h"
#include "sources/run/RunSource.h"
#include "sources/run/Runner.h"
#include "sources/scenario/Scenario.h"
#include "sources/trace/TraceIo.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

using namespace ryxsim;
using ryxtest::generateTrace;
using namespace std::chrono_literals;
using ryxtest::CommandLine;

namespace {

std::string const kScenarios = RYX_SIM_SCENARIOS;

RunResult runWithDeadline(Trace const& t, char const* what) {
    ryxtest::Watchdog dog(what, 60s);
    RunResult r = runTrace(t);
    dog.disarm();
    return r;
}

}  // namespace

class DefaultSession : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        configureLogging(LogLevel::Quiet);
        sTrace = generateTrace(parseScenario(defaultScenarioText(), "built-in"), 1, &sPlan);
        sRun = runWithDeadline(sTrace, "default session");
        sReport = timelineFromRun(sTrace, sRun);
        for (auto const& r : sTrace.rows) {
            if (r.kind == CallKind::Flush || (r.kind == CallKind::Drop && r.master == r.sensor)) {
                sDropped.insert(r.frame);
            }
            if (r.kind == CallKind::Crop) {
                sCropSets[r.frame] = r.crops;
            }
        }
    }
    // Whether `frame` is one of the two before a new crop set, which may get either set
    // depending on which thread comes first.
    static bool cropRace(int frame) {
        auto next = sCropSets.upper_bound(frame);
        return next != sCropSets.end() && frame >= next->first - 2;
    }

    inline static Trace sTrace;
    inline static GenerationPlan sPlan;
    inline static RunResult sRun;
    inline static Timeline sReport;
    inline static std::set<int> sDropped;                                // flushed or dropped
    inline static std::map<int, std::map<int, NSCam::MRect>> sCropSets;  // by first frame served
};

TEST_F(DefaultSession, FiguresAddUpAndAreWhatTheLibraryWrote) {
    ASSERT_TRUE(sRun.blocked.empty());
    EXPECT_EQ(sReport.exitStatus, 0);
    EXPECT_TRUE(sReport.timeInversions.empty() && sReport.frameInversions.empty());
    std::set<int> planned;  // frames pushed out of tolerance: exactly the failed ones
    for (auto const& [frame, sensor] : sPlan.outOfTolerance) {
        planned.insert(frame);
    }
    ASSERT_EQ(planned.size(), 5u);
    std::map<int, int> ownDrops{{2, 1}};  // tele's master drop of f450
    for (auto const& [frame, sensor] : sPlan.slaveDrops) {
        ownDrops[sensor]++;
    }
    ASSERT_EQ(sReport.sensors.size(), 3u);
    for (auto const& f : sReport.sensors) {
        SCOPED_TRACE(f.label);
        EXPECT_EQ(f.offered, 600);
        EXPECT_EQ(f.inSync + f.unchecked + f.outOfSync1 + f.outOfSync2 + f.dropped, f.offered);
        EXPECT_EQ(f.dropOwn + f.dropMaster + f.dropFlush + f.dropRefused, f.dropped);
        EXPECT_EQ(f.blocked + f.notRun + f.dropRefused, 0);
        EXPECT_EQ(f.dropOwn, ownDrops[f.sensor]);
        EXPECT_EQ(f.dropFlush, 1);
        EXPECT_EQ(f.dropMaster, f.sensor == 2 ? 0 : 1);
        // Wide is master up to f299 and tele from f300, less the flushed and dropped frames.
        EXPECT_EQ(f.masterFrames, f.sensor == 1 ? 0 : 299);
        std::set<int> failedCells;
        for (auto const& [frame, c] : sReport.cellsOf(f.sensor)) {
            if (c->verdict == Verdict::OutOfSync2) {
                failedCells.insert(frame);
            }
        }
        EXPECT_EQ(failedCells, planned);
    }

    // Counted again from what the library wrote, row by row.
    std::map<int, int> inSync, failed, master;
    int racy = 0;
    for (size_t i = 0; i < sTrace.rows.size(); ++i) {
        CallRow const& row = sTrace.rows[i];
        CallOutcome const& out = sRun.outcomes[i];
        if (row.kind != CallKind::Result) {
            continue;
        }
        SCOPED_TRACE("sensor " + std::to_string(row.sensor) + " f" + std::to_string(row.frame));
        ASSERT_TRUE(out.returned);
        inSync[row.sensor] += out.verdict && out.syncResult == 0;
        failed[row.sensor] += !out.verdict && out.syncResult == 2 && !sDropped.count(row.frame);
        if (out.masterCam) {
            ++master[row.sensor];
            EXPECT_EQ(out.appMaster, row.sensor);
        }
        if (out.verdict) {
            // A delivered frame carries the requested master and the sensor's own optics.
            EXPECT_EQ(out.halMaster, row.master);
            EXPECT_EQ(out.activeArray, sTrace.session.camera(row.sensor)->activeArray);
        }
        // The crop set serving frame F is issued by wide's thread just before its frame F - 2.
        ASSERT_TRUE(out.cropOverride.has_value());
        auto next = sCropSets.upper_bound(row.frame);
        NSCam::MRect inForce = std::prev(next)->second.at(row.sensor);
        if (cropRace(row.frame)) {
            ++racy;
            EXPECT_TRUE(*out.cropOverride == inForce ||
                        *out.cropOverride == next->second.at(row.sensor));
        } else {
            EXPECT_EQ(*out.cropOverride, inForce);
        }
    }
    EXPECT_GT(racy, 0);
    for (auto const& f : sReport.sensors) {
        EXPECT_EQ(f.inSync, inSync[f.sensor]) << f.label;
        EXPECT_EQ(f.outOfSync2, failed[f.sensor]) << f.label;
        EXPECT_EQ(f.masterFrames, master[f.sensor]) << f.label;
    }
}

// Keeping the records of only the latest passed frame changes nothing the report says: the
// figures, the percentiles and every frame that did not pass are the same; only the per-frame
// lists shrink to the unpassed frames and the latest one.
TEST_F(DefaultSession, ATinyDetailWindowReportsWhatTheFullOneDoes) {
    Timeline tiny = timelineFromRun(sTrace, sRun, 1);
    std::ostringstream full, small;
    writeText(full, sReport);
    writeText(small, tiny);
    EXPECT_EQ(small.str(), full.str());
    ASSERT_EQ(sReport.frames.size(), 600u);

    auto withoutLists = [](nlohmann::json j) {
        for (auto& s : j["sensors"]) {
            s.erase("frames");
        }
        return j;
    };
    nlohmann::json jf = timelineJson(sReport), jt = timelineJson(tiny);
    EXPECT_EQ(withoutLists(jt), withoutLists(jf));
    EXPECT_EQ(jt["unpassed"].size(), 10u);
    std::set<int> kept{599};
    for (auto const& u : jf["unpassed"]) {
        kept.insert(u["frame"].get<int>());
    }
    for (auto const& sensor : jt["sensors"]) {
        std::set<int> listed;
        for (auto const& cell : sensor["frames"]) {
            listed.insert(cell["frame"].get<int>());
        }
        EXPECT_EQ(listed, kept) << sensor["label"];
    }
}

TEST_F(DefaultSession, RecordedTraceReplaysToTheSameVerdictsAndMetadata) {
    Trace replay = parseTrace(traceToString(sTrace), "recorded.csv");
    RunResult again = runWithDeadline(replay, "replay");
    ASSERT_TRUE(again.blocked.empty());
    ASSERT_EQ(again.outcomes.size(), sRun.outcomes.size());
    // Frames dropped under waiting threads get the writers' partial output, which depends on
    // who was waiting; only their verdicts are compared.
    for (size_t i = 0; i < sTrace.rows.size(); ++i) {
        CallRow const& row = sTrace.rows[i];
        SCOPED_TRACE("row " + std::to_string(i) + " f" + std::to_string(row.frame));
        ASSERT_EQ(again.outcomes[i].verdict, sRun.outcomes[i].verdict);
        if (!sDropped.count(row.frame)) {
            ASSERT_TRUE(again.outcomes[i].sameResultAs(sRun.outcomes[i]));
        }
        if (!cropRace(row.frame)) {
            ASSERT_EQ(again.outcomes[i].cropOverride, sRun.outcomes[i].cropOverride);
        }
    }
}

TEST(TwoSensorSession, MasterSwitchWithLaggingExposureIsATimeInversion) {
    configureLogging(LogLevel::Quiet);
    Scenario s = readScenarioFile(kScenarios + "/two_sensor.json");
    Trace t = generateTrace(s, s.seed);
    Timeline r = timelineFromRun(t, runWithDeadline(t, "two-sensor session"));
    ASSERT_EQ(r.timeInversions.size(), 1u);
    EXPECT_EQ(r.timeInversions[0].frame, 150);
    EXPECT_EQ(r.timeInversions[0].master, 1);
    EXPECT_EQ(r.sensors[1].offered, 280);  // tele leaves at f280
    for (auto const& f : r.sensors) {
        EXPECT_EQ(f.dropRefused, 1) << f.label;
        // Frames 200-209 skip the check; wide alone after f280 has no timestamp verdict.
        int expectUnchecked = f.sensor == 0 ? 30 : 10;
        for (auto const& [frame, c] : r.cellsOf(f.sensor)) {
            if (c->verdict == Verdict::Dropped && c->cause == DropCause::Own &&
                ((frame >= 200 && frame <= 209) || (f.sensor == 0 && frame >= 280))) {
                --expectUnchecked;
            }
        }
        EXPECT_EQ(f.unchecked, expectUnchecked) << f.label;
    }
}

// --- the command line --------------------------------------------------------------------------

TEST_F(CommandLine, BadInputIsOneErrorWithStatus2AndNothingRuns) {
    std::ofstream(path("bad.json")) << "{\n  \"sensors\": [\n    {\"id\": 0, \"jitter_us\": "
                                       "\"lots\"}\n  ]\n}\n";
    std::ofstream(path("bad.csv")) << "sensor,kind,frame,sof_ns\n0,result,1,100\n1,result,1,12x\n";
    std::string const files = " --record " + path("rec.csv") + " --json " + path("r.json");
    struct Case {
        std::string args, err;  // err: the whole of stderr after the prefix, or a part of it
        bool exact;
    };
    for (Case const& c : std::vector<Case>{
             {"run " + path("bad.json"),
              path("bad.json") +
                  ":3: field 'sensors[0].jitter_us': expected an integer, got a string\n",
              true},
             {"replay " + path("bad.csv"),
              path("bad.csv") + ":3: field 'sof_ns': expected an integer, got '12x'\n", true},
             {"run --prop nonsense", "--prop 'nonsense': expected NAME=VALUE\n", true},
             {"run --frobnicate", "--frobnicate", false},

         }) {
        SCOPED_TRACE(c.args);
        Result r = sim(c.args + files);
        EXPECT_EQ(r.status, 2);
        if (c.exact) {
            EXPECT_EQ(r.err, "synchelper-sim: error: " + c.err);
            EXPECT_EQ(r.out, "");
        } else {
            EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
        }
        EXPECT_FALSE(std::ifstream(path("rec.csv")).good());
        EXPECT_FALSE(std::ifstream(path("r.json")).good());
    }
}

TEST_F(CommandLine, BlockedThreadsAreReportedAndTheRunEnds) {
    Result r = sim("run " + kScenarios + "/blocked_duplicate_id.json --deadline 0.3 --json " +
                   path("r.json"));
    EXPECT_EQ(r.status, 3);
    for (char const* line :
         {"sensor 0 wide in syncResultCheck for f0 (r0)",
          "sensor 1 tele in syncResultCheck for f0 (r0)", "frames never completed:  f0\n"}) {
        EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;
    }
    EXPECT_NE(r.err.find("2 sensor threads still blocked"), std::string::npos);
    auto j = json("r.json");
    EXPECT_EQ(j["anomalies"]["blocked_threads"].size(), 2u);
    EXPECT_EQ(j["sensors"][0]["not_run"], 9);
    EXPECT_EQ(j["exit_status"], 3);

    // Longer than the runner's window of calls: the calls never made are still read, counted
    // and listed (every frame is an unpassed one), and the report is written in good time.
    r = sim("run " + kScenarios + "/blocked_duplicate_id.json --frames 40000 --deadline " +
            "0.3 --json " + path("long.json"));
    EXPECT_EQ(r.status, 3);
    j = json("long.json");
    for (auto const& s : j["sensors"]) {
        EXPECT_EQ(std::make_tuple(s["offered"], s["blocked"], s["not_run"]),
                  std::make_tuple(40000, 1, 39999));
    }
    EXPECT_EQ(j["unpassed"].size(), 40000u);
    EXPECT_EQ(j["unpassed"][39999]["why"], "never called on wide and tele");
}

// Recorded, then replayed with crop replacement turned off by a property: the same frames, the
// same trace, and no crop override.
TEST_F(CommandLine, RecordedRunReplaysFrameForFrame) {
    Result a =
        sim("run --frames 90 --seed 3 --record " + path("run.csv") + " --json " + path("a.json"));
    ASSERT_EQ(a.status, 0) << a.err;
    Result b = sim("replay " + path("run.csv") + " --record " + path("again.csv") +
                   " --prop vendor.debug.camera.crop_replace=0 --json " + path("b.json"));
    ASSERT_EQ(b.status, 0) << b.err;
    EXPECT_EQ(slurp("run.csv"), slurp("again.csv"));
    auto ja = json("a.json"), jb = json("b.json");
    ASSERT_EQ(ja["sensors"].size(), 3u);
    for (size_t s = 0; s < 3; ++s) {
        EXPECT_EQ(ja["sensors"][s]["frames"], jb["sensors"][s]["frames"]) << "sensor " << s;
        EXPECT_GT(ja["sensors"][s]["crop_overrides"].get<int>(), 80);
        EXPECT_EQ(jb["sensors"][s]["crop_overrides"], 0);
    }
    EXPECT_EQ(ja["seed"], 3);
    EXPECT_EQ(jb["source"], "trace " + path("run.csv"));
}

// A run's own log, as a device would print it, read back through the command line: at the
// default level the out-of-sync frames come back with their causes, in every output.
TEST_F(CommandLine, ALogCaptureIsExplainedAndANonLogIsRefused) {
    ASSERT_EQ(sim("run --write-logcat '" + path("run.log") + "'").status, 0);
    Result r = sim("explain '" + path("run.log") + "' --json '" + path("r.json") +
                   "' --perfetto '" + path("r.trace") + "'");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("frames that did not pass or passed flagged: 5\n"), std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("note: only warnings and errors in this capture"), std::string::npos);
    nlohmann::json j = json("r.json");
    ASSERT_EQ(j["unpassed"].size(), 5u);
    for (auto const& f : j["unpassed"]) {
        EXPECT_EQ(f["cameras"].size(), 3u);
        EXPECT_EQ(f["cameras"][0]["verdict"], "out of sync");
    }
    EXPECT_GT(json("r.trace")["traceEvents"].size(), 5u);

    std::string notALog = kScenarios + "/default.json";
    r = sim("explain '" + notALog + "'");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err,
              "synchelper-sim: error: " + notALog +
                  ":1: not an Android log line (expected a logcat capture in any of its formats, "
                  "or the host liblog format)\n");
    r = sim("explain '" + path("run.log") + "' --seed 3");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err,
              "synchelper-sim: error: synchelper-sim explain has no option --seed (see "
              "'synchelper-sim explain --help')\n");
}

// The run's system trace, read back by explain, whole and packed, gives every frame's verdicts as
// the run decided them; with debug logging off, so the trace alone tells them.
TEST_F(CommandLine, ASystemTraceGivesEveryFrameAsTheRunDecidedIt) {
    Result run = sim("run --frames 300 --system-trace '" + path("run.trace") + "' --json '" +
                     path("run.json") + "'");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(slurp("run.trace").rfind("# tracer: nop\n", 0), 0u);
    ASSERT_EQ(std::system(("gzip -k '" + path("run.trace") + "'").c_str()), 0);
    for (std::string const input : {"run.trace", "run.trace.gz"}) {
        SCOPED_TRACE(input);
        Result r = sim("explain '" + path(input) + "' --camera-names 0=wide,1=ultrawide,2=tele " +
                       "--json '" + path("ex.json") + "'");
        ASSERT_EQ(r.status, 0) << r.err;
        auto a = json("run.json"), b = json("ex.json");
        ASSERT_EQ(b["sensors"].size(), 3u);
        for (size_t s = 0; s < 3; ++s) {
            EXPECT_EQ(a["sensors"][s]["frames"], b["sensors"][s]["frames"]) << "sensor " << s;
        }
        ASSERT_EQ(a["unpassed"].size(), b["unpassed"].size());
        for (size_t i = 0; i < a["unpassed"].size(); ++i) {
            EXPECT_EQ(a["unpassed"][i]["frame"], b["unpassed"][i]["frame"]);
            EXPECT_EQ(a["unpassed"][i]["why"], b["unpassed"][i]["why"]);
            auto verdicts = [](nlohmann::json const& cameras) {  // in any arrival order
                std::map<int, std::string> v;
                for (auto const& c : cameras) {
                    v[c["sensor"].get<int>()] = c["verdict"].dump() + " " + c["cause"].dump();
                }
                return v;
            };
            EXPECT_EQ(verdicts(a["unpassed"][i]["cameras"]), verdicts(b["unpassed"][i]["cameras"]));
        }
        EXPECT_EQ(b["source"], "system trace " + path(input));
        EXPECT_TRUE(b["gaps"].empty());
    }
}

// A log and a system trace of one run, read together: each frame shows its log lines and its
// trace lines, the verdicts the trace's, the completing camera the log's.
TEST_F(CommandLine, ALogAndATraceOfOneSessionAreOneSession) {
    ASSERT_EQ(sim("run --frames 120 --log debug --write-logcat '" + path("run.log") +
                  "' --system-trace '" + path("run.trace") + "' --json '" + path("run.json") + "'")
                  .status,
              0);
    Result r = sim("explain '" + path("run.log") + "' --system-trace '" + path("run.trace") +
                   "' --camera-names 0=wide,1=ultrawide,2=tele --json '" + path("ex.json") + "'");
    ASSERT_EQ(r.status, 0) << r.err;
    auto a = json("run.json"), b = json("ex.json");
    EXPECT_EQ(b["source"], "system trace " + path("run.trace") + " with logcat " + path("run.log"));
    for (size_t s = 0; s < 3; ++s) {
        EXPECT_EQ(a["sensors"][s]["frames"], b["sensors"][s]["frames"]) << "sensor " << s;
    }
    ASSERT_FALSE(b["unpassed"].empty());
    for (auto const& f : b["unpassed"]) {
        EXPECT_TRUE(f["lines"].is_array()) << f.dump();
        EXPECT_TRUE(f["trace_lines"].is_array()) << f.dump();
        int completed = 0;
        for (auto const& c : f["cameras"]) {
            completed += c["completed"] == true ? 1 : 0;
        }
        EXPECT_LE(completed, 1) << f.dump();
    }
    EXPECT_NE(r.out.find("] [trace lines "), std::string::npos) << r.out;
    r = sim("explain '" + path("run.log") + "' --system-trace '" + path("none.trace") + "'");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find(path("none.trace")), std::string::npos) << r.err;
}

// Numbers in any notation, values the library takes but that decide every frame, properties it
// never reads, reports on standard output, and an empty trace.
TEST_F(CommandLine, InputGapsAreNamedWithTheirRangeOrConsequence) {
    std::string const kSeeRun = " (see 'synchelper-sim run --help')";
    std::ofstream(path("huge.json")) << "{\n  \"frames\": 1e30,\n  \"sensors\": [{\"id\": 0}]\n}\n";
    std::ofstream(path("huge.csv")) << "sensor,kind,frame\n0,result,99999999999999999999999\n";
    std::ofstream(path("empty.csv"));
    struct Case {
        std::string args, err;
    };
    for (Case const& c : std::vector<Case>{
             {"run --frames 1e30", "--frames: value 1e30 is out of range [1, 100000000]" + kSeeRun},
             {"run --frames 99999999999999999999999",
              "--frames: value 99999999999999999999999 is out of range [1, 100000000]" + kSeeRun},
             {"run --frames 100000001",
              "--frames: value 100000001 is out of range [1, 100000000]" + kSeeRun},
             {"run --frames 2.5",
              "--frames: expected an integer, got the fractional number 2.5" + kSeeRun},
             {"run --seed -1",
              "--seed: value -1 is out of range [0, 9223372036854775807]" + kSeeRun},
             {"replay x.csv --deadline 0",
              "--deadline: value 0 is out of range [0.05, 3600] (see "
              "'synchelper-sim replay --help')"},
             {"run " + path("huge.json"),
              path("huge.json") + ":2: field 'frames': value 1e+30 is out of range [1, 100000000]"},
             {"replay " + path("huge.csv"),
              path("huge.csv") + ":2: field 'frame': value 99999999999999999999999 is out of range "
                                 "[-2147483648, 2147483647]"},
             {"replay " + path("empty.csv"), path("empty.csv") +
                                                 ":1: the file is empty (expected a header row "
                                                 "sensor,kind,frame,... and one row per call)"},
             {"run --json - --perfetto -",
              "--json and --perfetto both write to standard output (-): at most one output can"},
         }) {
        SCOPED_TRACE(c.args);
        Result r = sim(c.args);
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(r.err, "synchelper-sim: error: " + c.err + "\n");
        EXPECT_EQ(r.out, "");
    }

    // Taken, with a warning naming what it does to the run.
    std::ofstream(path("neg.json"))
        << "{\"frames\": 6, \"sensors\": [{\"id\": 0}, {\"id\": 1, \"sof_offset_us\": 300}],\n"
           " \"control\": {\"tolerance_us\": -1000, \"mode\": 1},\n"
           " \"ranges\": [{\"frames\": [3, 5], \"mode\": 7}]}\n";
    Result r = sim("run " + path("neg.json") +
                   " --prop vendor.debug.camera.crop_replce=0"
                   " --prop vendor.debug.camera.SyncDataUpdater.log=two --json -");
    ASSERT_EQ(r.status, 0) << r.err;
    for (char const* line :
         {"synchelper-sim: warning: --prop vendor.debug.camera.crop_replce: the library never "
          "reads this property (it reads vendor.debug.camera.crop_replace and "
          "vendor.debug.camera.SyncDataUpdater.log)\n",
          "synchelper-sim: warning: --prop vendor.debug.camera.SyncDataUpdater.log=two: not a "
          "whole number, so the library ignores it and uses its default (0)\n",
          "synchelper-sim: warning: tolerance_us -1000 is negative on 12 calls, the first "
          "sensor 0 f0; no difference is within it: every frame it judges is out of sync\n",
          "synchelper-sim: warning: mode 7 is neither 0 nor 1 on 6 calls, the first sensor 0 "
          "f3; it acts as 0: a frame out of tolerance gets RESULT 1 and still passes\n"}) {
        EXPECT_NE(r.err.find(line), std::string::npos) << line << "\n" << r.err;
    }
    // The JSON report is standard output; the text report moved to stderr; no file named "-".
    auto j = nlohmann::json::parse(r.out);
    EXPECT_FALSE(std::ifstream("-").good());
    EXPECT_NE(r.err.find("sensor 0"), std::string::npos);
    EXPECT_EQ(j["sensors"][0]["out_of_sync_2"], 3);
    EXPECT_EQ(j["sensors"][0]["out_of_sync_1"], 3);
}

// With stderr a file, the run says how far it got in whole lines, ending at 100 %; --quiet
// silences them.
// A run longer than the runner's window of calls, folded as it goes: with the detail window
// forced to nothing, the same verdicts (calls in trace order), the same unpassed frames with the
// same explanations, and the same counts as with every record kept. The SVG of the same run
// draws columns of several frames and still marks every camera of every unpassed frame, the
// flush and every master switch.
TEST_F(CommandLine, ALongRunFoldedAsItGoesSaysWhatAFullDetailRunSays) {
    std::string const run = "run --frames 12000 --ordered --json ";
    ASSERT_EQ(sim(run + path("full.json")).status, 0);
    Result tiny = sim(run + path("tiny.json") + " --detail-frames 0 --svg " + path("t.svg"));
    ASSERT_EQ(tiny.status, 0) << tiny.err;
    nlohmann::json full = json("full.json"), small = json("tiny.json");
    auto strip = [](nlohmann::json u) {
        for (auto& f : u) {
            for (auto& c : f["cameras"]) {
                c.erase("arrive_us");
                c.erase("release_us");
            }
        }
        return u;
    };
    EXPECT_EQ(strip(small["unpassed"]), strip(full["unpassed"]));
    EXPECT_EQ(small["unpassed"].size(), 10u);
    EXPECT_EQ(small["events"], full["events"]);
    EXPECT_EQ(small["frames"], 12000);
    for (size_t s = 0; s < 3; ++s) {
        for (char const* key : {"offered", "in_sync", "out_of_sync_2", "dropped",
                                "dropped_by_cause", "master_frames", "crop_overrides"}) {
            EXPECT_EQ(small["sensors"][s][key], full["sensors"][s][key]) << key;
        }
        EXPECT_EQ(full["sensors"][s]["frames"].size(), 12000u);
        EXPECT_EQ(small["sensors"][s]["frames"].size(), small["unpassed"].size());
        EXPECT_EQ(small["sensors"][s]["wait"]["calls"], full["sensors"][s]["wait"]["calls"]);
    }

    std::string svg = slurp("t.svg");
    EXPECT_NE(svg.find(" frames per column (every frame that did not pass is marked)"),
              std::string::npos);
    EXPECT_LT(svg.size(), 200000u);
    std::map<int, std::string> label;
    for (auto const& s : small["sensors"]) {
        label[s["id"].get<int>()] = s["label"];
    }
    for (auto const& f : small["unpassed"]) {
        for (auto const& c : f["cameras"]) {
            if (c["verdict"] == "in sync" || c["verdict"] == "unchecked") {
                continue;
            }
            std::string mark = "<title>sensor " + label[c["sensor"].get<int>()] + " f" +
                               std::to_string(f["frame"].get<int>()) + ": ";
            EXPECT_NE(svg.find(mark), std::string::npos) << mark;
        }
    }
    EXPECT_NE(svg.find(">flush f240</text>"), std::string::npos);
    EXPECT_NE(svg.find(">master drop f450</text>"), std::string::npos);
    for (auto const& m : small["events"]["requested_master"]) {
        std::string text = ">master " + label[m["sensor"].get<int>()] + "</text>";
        EXPECT_NE(svg.find(text), std::string::npos) << text;
    }
}

TEST_F(CommandLine, ProgressLinesWhenStderrIsNotATerminal) {
    Result r = sim("run --frames 300", " ");
    ASSERT_EQ(r.status, 0) << r.err;
    std::istringstream in(r.err);
    std::string line, last;
    size_t lines = 0;
    while (std::getline(in, line)) {
        EXPECT_EQ(line.rfind("synchelper-sim: ", 0), 0u) << line;
        EXPECT_NE(line.find("% ("), std::string::npos) << line;
        last = line;
        ++lines;
    }
    EXPECT_GE(lines, 1u);
    EXPECT_LE(lines, 11u);
    size_t done = 0, total = 0;
    EXPECT_EQ(std::sscanf(last.c_str(), "synchelper-sim: 100%% (%zu/%zu calls", &done, &total), 2)
        << last;
    EXPECT_EQ(done, total);
    EXPECT_GT(total, 900u);  // 300 frames of 3 sensors
    EXPECT_EQ(sim("run --frames 300 --quiet", " ").err, "");
}

// Eleven sensors each open a frame that waits for sensor 11, which then sends those frames in
// turn. In trace order the eleventh frame opens while ten are still waiting, and the library
// aborts; free-running, sensor 11 may complete early frames first. --ordered replays the trace
// order every time.
TEST_F(CommandLine, OrderedReplayOfAnAbortingTraceGivesTheSameAbortEveryTime) {
    {
        std::ofstream t(path("inflight.csv"));
        t << "sensor,kind,frame,sof_ns,sync_ids,required\n";
        for (int k = 0; k < 11; ++k) {
            t << k << ",result," << k << "," << 1000000000 + k << ",11,1\n";
        }
        for (int k = 0; k < 11; ++k) {
            t << "11,result," << k << "," << 1000000000 + k << "," << k << ",1\n";
        }
    }
    Result refused = sim("replay " + path("inflight.csv"));
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.err,
              "synchelper-sim: error: call flow: f10: an 11th frame in flight (camera 10) while "
              "f0-f9 still wait for camera 11\n"
              "synchelper-sim: the library's contract is broken by this call flow; nothing was run "
              "(--allow-fatal runs it anyway)\n");
    EXPECT_EQ(refused.out, "");

    Result first = sim("replay " + path("inflight.csv") + " --ordered --allow-fatal");
    EXPECT_EQ(first.status, 128 + SIGABRT);
    EXPECT_NE(first.err.find("synchelper-sim: warning: call flow: f10: an 11th frame in flight"),
              std::string::npos);
    EXPECT_NE(first.err.find("synchelper-sim: the library ended the process (fatal 1): please "
                             "check flow\n"),
              std::string::npos)
        << first.err;
    for (int i = 1; i < 20; ++i) {
        Result again = sim("replay " + path("inflight.csv") + " --ordered --allow-fatal");
        EXPECT_EQ(again.status, first.status) << "replay " << i;
        EXPECT_EQ(again.err, first.err) << "replay " << i;
    }
}
