// synchelper-sim without the library: scenario and trace files (good and bad), the expansion of
// a scenario into calls, the report's classification, and the timeline.

#include "GeneratedTrace.h"
#include "cli/ProgressLines.h"
#include "sinks/FrameStrip.h"
#include "sinks/JsonSink.h"
#include "sinks/SvgSink.h"
#include "sinks/TextSink.h"
#include "sources/run/FlowCheck.h"
#include "sources/run/RunSource.h"
#include "sources/scenario/Scenario.h"
#include "sources/trace/TraceIo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

using namespace ryxsim;
using ryxtest::generateTrace;

namespace {

struct BadFile {
    std::string text;
    int line;
    std::string field, problem;
};

// Parses each bad file with `parse`, expecting a ParseError that names file, line and field, and
// whose problem starts with the one given.
template <typename Parse>
void expectParseErrors(std::vector<BadFile> const& cases, Parse parse) {
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        try {
            parse(c.text, "bad.file");
            ADD_FAILURE() << "no ParseError";
        } catch (ParseError const& e) {
            EXPECT_EQ(e.file(), "bad.file");
            EXPECT_EQ(e.line(), c.line);
            EXPECT_EQ(e.field(), c.field);
            std::string where = "bad.file:" + std::to_string(c.line) + ": " +
                                (c.field.empty() ? "" : "field '" + c.field + "': ");
            EXPECT_EQ(e.problem().substr(0, c.problem.size()), c.problem) << e.problem();
            EXPECT_EQ(e.what(), where + e.problem());
        }
    }
}

std::string const kScenarios = RYX_SIM_SCENARIOS;
std::string const kHeader =
    "sensor,kind,frame,request,sof_ns,exp_ns,master,sync_ids,required,enable,tolerance_us,mode,"
    "ms_list,intent,get_crop,crops\n";

}  // namespace

// --- scenario files ---------------------------------------------------------------------------

TEST(ScenarioFile, GoodFilesParse) {
    Scenario s = parseScenario(defaultScenarioText(), "built-in");
    ASSERT_EQ(s.sensors.size(), 3u);
    EXPECT_EQ(
        std::make_tuple(s.name, s.sensors[0].camera.name, s.sensors[2].camera.name, s.frames, s.fps,
                        s.control.toleranceUs.value, s.control.mode.value, s.cropEvery),
        std::make_tuple("default", "wide", "tele", 600, 30.0, std::optional<int64_t>(1000),
                        std::optional<int32_t>(1), 30));
    for (char const* name : {"default.json", "two_sensor.json", "blocked_duplicate_id.json",
                             "default_no_crops.json"}) {
        EXPECT_FALSE(readScenarioFile(kScenarios + "/" + name).sensors.empty()) << name;
    }
    // null means "tag absent", a missing field means "inherit".
    s = parseScenario(R"({"sensors": [{"id": 0}, {"id": 1}], "control": {"tolerance_us": null},
        "ranges": [{"frames": [3, 4], "sensors": [1], "enable": 0}]})",
                      "s.json");
    EXPECT_TRUE(s.control.toleranceUs.given && !s.control.toleranceUs.value);
    EXPECT_FALSE(s.control.mode.given);
    ASSERT_EQ(s.ranges.size(), 1u);
    EXPECT_EQ(s.ranges[0].first, 3);
    EXPECT_EQ(s.ranges[0].control.enable.value, 0);
}

TEST(ScenarioFile, ErrorsNameFileLineAndField) {
    expectParseErrors(
        {
            {"{\n  \"sensors\": [\n    {\"id\": 0},\n    {\"id\": 1, \"jitter_us\": \"lots\"}\n"
             "  ]\n}\n",
             4, "sensors[1].jitter_us", "expected an integer, got a string"},
            {"{\n  \"sensors\": [{\"id\": 0}],\n  \"control\": {\n    \"tolerence_us\": 1000\n"
             "  }\n}",
             4, "control.tolerence_us",
             "unknown field (known here: group, sync_ids, required, enable, tolerance_us, "},
            {"{\"sensors\": [{\"id\": 0}, {\"id\": 1}],\n \"control\": {\"group\": [0, 1,\n 5]}}",
             3, "control.group[2]", "sensor 5 is not declared in 'sensors'"},
            {"{\"frames\": 10, \"sensors\": [{\"id\": 0}],\n\"events\": [\n {\"kind\": "
             "\"flush\", \"frame\": 10, \"sensor\": 0}]}",
             3, "events[0].frame", "frame 10 is outside the session's frames 0..9"},
            {"{\n  \"sensors\": [\n    {\"id\": 0},\n  ]\n}\n", 4, "sensors[0].id",
             "malformed JSON after this field: "},
            {"{\"sensors\": [{\"id\": 2},\n {\"id\": 2}]}", 2, "sensors[1].id",
             "sensor 2 is declared twice"},
            {"{\"frames\": 5}", 1, "sensors", "missing: a scenario needs at least one sensor"},
        },
        parseScenario);
}

// --- trace files ------------------------------------------------------------------------------

TEST(TraceFile, RowsBecomeCallsWithTheirTags) {
    std::string const text =
        "#@ session name=field key=9 crop_replace=0 fps=24\n"
        "#@ camera id=2 name=tele active=10:20:300:400 focal=8.5\n" +
        kHeader +
        "2,result,7,,1000,900,2,0,1,,1500,1,2 0,2,1,\n"
        "0,drop,7,17,,,2,2,1,,,,,,,\n"
        "0,flush,8,,,,,,,,,,,,,\n"
        "2,crop,9,9,,,,,,,,,,,,0=1:2:3:4;2=5:6:7:8\n"
        "2,leave,,,,,,,,,,,,,,\n";
    Trace t = parseTrace("# a comment\n" + text, "t.csv");
    // Written back, every value comes out as it was read.
    EXPECT_EQ(traceToString(t),
              "# synchelper-sim trace: one pipeline call per row, each "
              "sensor's calls in row order\n" +
                  text);
    ASSERT_EQ(t.rows.size(), 5u);
    CallRow const& r = t.rows[0];
    EXPECT_EQ(
        std::make_tuple(r.kind, r.request, r.sofNs, r.expNs, r.sourceLine),
        std::make_tuple(CallKind::Result, 7 /* the frame's */, int64_t(1000), int64_t(900), 5));
    EXPECT_EQ(r.msList, (std::vector<int32_t>{2, 0}));
    EXPECT_EQ(t.rows[3].crops.at(2), NSCam::MRect(5, 6, 7, 8));
    EXPECT_EQ(t.session.camera(2)->activeArray, NSCam::MRect(10, 20, 300, 400));

    // Columns may come in any order and be left out.
    t = parseTrace("frame,kind,sensor,sof_ns\n5,result,1,42\n", "min.csv");
    ASSERT_EQ(t.rows.size(), 1u);
    EXPECT_EQ(std::make_tuple(t.rows[0].sensor, t.rows[0].frame, t.rows[0].sofNs),
              std::make_tuple(1, 5, int64_t(42)));
    EXPECT_FALSE(t.rows[0].syncIds.has_value());
}

TEST(TraceFile, ErrorsNameFileLineAndField) {
    expectParseErrors(
        {
            {kHeader + "0,resutl,1,,,,,,,,,,,,,\n", 2, "kind",
             "expected result, drop, flush, leave or crop, got 'resutl'"},
            {kHeader + "0,result,,,,,,,,,,,,,,\n", 2, "frame",
             "missing (a result row needs a frame number)"},
            {kHeader + "0,result,1,,,,,,,,1e30,,,,,\n", 2, "tolerance_us",
             "value 1e30 is out of range [-9223372036854775808, 9223372036854775807]"},
            {kHeader + "0,result,1,,,,,,,,2.5,,,,,\n", 2, "tolerance_us",
             "expected an integer, got the fractional number 2.5"},
            {kHeader + "0,result,1,,,,,,,,,,,,\n", 2, "", "expected 16 fields, found 15"},
            {kHeader + "0,result,1,,,,,,,,,,,,,\n0,crop,2,2,,,,,,,,,,,,0=1:2:3\n", 3, "crops",
             "expected LEFT:TOP:WIDTH:HEIGHT, got '1:2:3'"},
            {kHeader + "0,result,1,,,,,,,,,,,,,0=1:2:3:4\n", 2, "crops",
             "only crop rows carry a crop set, this is a result row"},
            {kHeader + "0,result,1,,,,,0 x,,,,,,,,\n", 2, "sync_ids",
             "expected an integer, got 'x'"},
            {kHeader + "0,result,1,,,,,,,,,,,300,,\n", 2, "intent",
             "value 300 is out of range [0, 255]"},
            {"sensor,kind,frame,colour\n0,result,1,red\n", 1, "colour",
             "unknown column (the header row must name columns of the trace "
             "format, starting with sensor,kind,frame)"},
            {"sensor,frame\n", 1, "kind", "the header row lacks this column"},
            {"#@ camera id=1 focal=wide\n" + kHeader, 1, "camera.focal",
             "expected a number, got 'wide'"},
            {kHeader, 1, "", "no calls after the header row"},
        },
        parseTrace);
}

TEST(TraceFile, WrittenTraceReadsBackIdentical) {
    Trace t = generateTrace(parseScenario(defaultScenarioText(), "built-in"), 5);
    Trace back = parseTrace(traceToString(t), "rt.csv");
    ASSERT_EQ(back.rows.size(), t.rows.size());
    for (size_t i = 0; i < t.rows.size(); ++i) {
        ASSERT_EQ(back.rows[i], t.rows[i]) << "row " << i;
    }
    ASSERT_EQ(back.session.cameras.size(), 3u);
    EXPECT_EQ(back.session.cameras[1].name, "ultrawide");
    EXPECT_FLOAT_EQ(back.session.cameras[1].focalLength, 2.2f);
    EXPECT_EQ(traceToString(back), traceToString(t));
}

// --- expansion of a scenario into calls --------------------------------------------------------
// What the library makes of the default session's calls is checked end to end; here, what the
// run cannot tell: the same seed gives the same calls, and the crop sets are the planned zoom.

TEST(Expansion, DefaultSessionHasTheCallsItPromises) {
    Scenario s = parseScenario(defaultScenarioText(), "built-in");
    EXPECT_EQ(traceToString(generateTrace(s, 3)), traceToString(generateTrace(s, 3)));
    EXPECT_NE(traceToString(generateTrace(s, 3)), traceToString(generateTrace(s, 4)));
    GenerationPlan plan;
    Trace t = generateTrace(s, 1, &plan);
    EXPECT_EQ(plan.outOfTolerance.size(), 5u);
    EXPECT_EQ(plan.slaveDrops.size(), 3u);
    std::map<CallKind, int> kinds;
    std::vector<CallRow> wide;  // sensor 0's calls
    for (auto const& r : t.rows) {
        kinds[r.kind]++;
        if (r.sensor == 0) {
            wide.push_back(r);
        }
    }
    EXPECT_EQ(kinds[CallKind::Result] + kinds[CallKind::Drop], 1800);
    EXPECT_EQ(kinds[CallKind::Flush], 1);
    EXPECT_EQ(t.rows[1].msList, (std::vector<int32_t>{0, 1, 2}));  // the master first
    // Crop sets are issued by the wide sensor just before its frame F - 2 (or its first frame),
    // zooming 1, 1.25, 1.5, 1.75, 2, then back down: centred, even sizes.
    std::vector<NSCam::MRect> crops;
    for (size_t i = 0; i + 1 < wide.size(); ++i) {
        if (wide[i].kind == CallKind::Crop) {
            EXPECT_EQ(wide[i + 1].frame, std::max(0, wide[i].frame - 2));
            EXPECT_EQ(wide[i].request, wide[i].frame);
            EXPECT_EQ(wide[i].crops.size(), 3u);
            crops.push_back(wide[i].crops.at(0));
        }
    }
    ASSERT_EQ(crops.size(), 20u);
    EXPECT_EQ(crops[0], NSCam::MRect(0, 0, 4000, 3000));
    EXPECT_EQ(crops[1], NSCam::MRect(400, 300, 3200, 2400));
    EXPECT_EQ(crops[4], NSCam::MRect(1000, 750, 2000, 1500));
    EXPECT_EQ(crops[5], NSCam::MRect(857, 643, 2286, 1714));
    EXPECT_EQ(crops[8], crops[0]);
}

// --- report ------------------------------------------------------------------------------------

class ReportFigures : public ::testing::Test {
  protected:
    // Sensor 1 flushes f5; sensor 0 delivers f1..f8 (master 0, but 1 for f6); sensor 1 drops f6.
    void SetUp() override {
        std::string rows = "1,flush,5,,\n";
        for (int f = 1; f <= 8; ++f) {
            rows += "0,result," + std::to_string(f) + (f == 6 ? ",1,1\n" : ",0,1\n");
        }
        trace = parseTrace(
            "#@ session name=synthetic\n#@ camera id=0 name=a\n"
            "#@ camera id=1 name=b\nsensor,kind,frame,master,sync_ids\n" +
                rows + "1,drop,6,1,0\n",
            "r.csv");
        run.outcomes.resize(trace.rows.size());
        for (size_t row : {0, 9}) {
            run.outcomes[row].started = run.outcomes[row].returned = true;
        }
        std::tuple<bool, std::optional<int64_t>, bool> const outcomes[] = {
            {true, 0, true},      // f1 in sync
            {true, 1, true},      // f2 out of sync, delivered
            {false, 2, false},    // f3 out of sync, failed
            {true, {}, false},    // f4 unchecked
            {false, 0, false},    // f5 flushed
            {false, 0, false},    // f6 dropped by the master
            {false, {}, false}};  // f7 refused
        for (int f = 1; f <= 7; ++f) {
            CallOutcome& o = run.outcomes[f];
            o.started = o.returned = true;
            std::tie(o.verdict, o.syncResult, o.masterCam) = outcomes[f - 1];
            o.wallNs = f * 1000;
        }
        run.outcomes[8].started = true;  // f8 blocked
        run.blocked.push_back({0, 8, 2.5});
        report = timelineFromRun(trace, run);
    }
    Trace trace;
    RunResult run;
    Timeline report;
};

// Every call lands in one column; the JSON and the timeline show the same run. (Blocked threads
// in the text and the JSON are checked on the command line.)
TEST_F(ReportFigures, EveryCallLandsInOneColumnOfEveryView) {
    ASSERT_EQ(report.sensors.size(), 2u);
    SensorFigures const& a = report.sensors[0];
    EXPECT_EQ(
        std::vector<int>({a.offered, a.inSync, a.outOfSync1, a.outOfSync2, a.unchecked, a.dropped,
                          a.dropFlush, a.dropMaster, a.dropRefused, a.blocked, a.masterFrames}),
        std::vector<int>({8, 1, 1, 1, 1, 3, 1, 1, 1, 1, 2}));
    EXPECT_EQ(report.sensors[1].offered, 1);
    EXPECT_EQ(report.sensors[1].dropOwn, 1);
    EXPECT_EQ(report.neverCompleted, std::vector<int>{8});
    ASSERT_EQ(report.masterDrops.size(), 1u);
    EXPECT_EQ(std::make_pair(report.masterDrops[0].frame, report.masterDrops[0].sensor),
              std::make_pair(6, 1));
    EXPECT_EQ(report.exitStatus, 3);
    auto j = timelineJson(report);
    EXPECT_EQ(j["sensors"][0]["out_of_sync_2"], 1);
    EXPECT_EQ(j["sensors"][0]["frames"][2]["verdict"], "out of sync (2)");

    std::ostringstream svg;
    writeSvg(svg, report);
    std::string s = svg.str();
    EXPECT_EQ(s.rfind("<?xml", 0), 0u);
    for (char const* part : {">sensor 0 a</text>", ">sensor 1 b</text>",
                             "<title>sensor 0 a f3: out of sync, failed (RESULT 2)</title>",
                             "<title>sensor 0 a f8: blocked, never returned</title>",
                             "<title>sensor 0 a master f1..f2</title>", ">flush f5</text>",
                             ">master drop f6</text>", ">never completed f8</text>", "</svg>"}) {
        EXPECT_NE(s.find(part), std::string::npos) << part;
    }
    EXPECT_EQ(std::count(s.begin(), s.end(), '<'), std::count(s.begin(), s.end(), '>'));

    std::vector<int64_t> ns(200);
    for (size_t i = 0; i < ns.size(); ++i) {
        ns[i] = (i + 1) * 1000;
    }
    WaitStats w = waitStats(ns);  // nearest rank
    EXPECT_EQ(std::make_tuple(w.count, w.p50Us, w.p99Us, w.maxUs),
              std::make_tuple(size_t(200), 100.0, 198.0, 200.0));
}

// --- bounded figures ----------------------------------------------------------------------------

// Past the exact samples the percentiles come from the histogram, within 0.3 %; the count and the
// maximum stay exact. Every frame lands in one column of the strip, however long the session or
// far apart its frame numbers.
TEST(BoundedFigures, PercentilesStayCloseAndTheStripKeepsEveryFrame) {
    size_t const n = Percentiles::kExactSamples * 3;
    std::vector<int64_t> all;
    Percentiles p;
    uint64_t x = 12345;
    for (size_t i = 0; i < n; ++i) {
        x = x * 6364136223846793005ULL + 1442695040888963407ULL;
        // A long tail: 20 us .. about 20 ms.
        int64_t ns = 20000 + static_cast<int64_t>((x >> 33) % 1000) *
                                 static_cast<int64_t>((x >> 20) % 1000 + 1) * 20;
        all.push_back(ns);
        p.add(ns);
        if (i + 1 == Percentiles::kExactSamples) {
            EXPECT_TRUE(p.exact());
            WaitStats exact = p.stats();
            EXPECT_EQ(exact.p50Us, waitStats(all).p50Us);
        }
    }
    EXPECT_FALSE(p.exact());
    WaitStats est = p.stats(), exact = waitStats(all);
    EXPECT_EQ(est.count, n);
    EXPECT_EQ(est.maxUs, exact.maxUs);
    EXPECT_NEAR(est.p50Us, exact.p50Us, exact.p50Us * 0.003);
    EXPECT_NEAR(est.p99Us, exact.p99Us, exact.p99Us * 0.003);

    Timeline t;
    t.detailFrames = 0;
    int const frames = 100000;
    for (int f = 0; f < frames; ++f) {
        FrameRecord r;
        r.frame = f;
        r.cells.push_back({});
        r.cells.back().verdict = f == 77777 ? Verdict::OutOfSync2 : Verdict::InSync;
        foldFrame(t, r);
    }
    finishTimeline(t);
    FrameStrip strip = FrameStrip::of(t.outcomes);
    ASSERT_LE(strip.columns.size(), FrameStrip::kMaxColumns);
    int passedFrames = 0, failedColumn = -1;
    for (size_t i = 0; i < strip.columns.size(); ++i) {
        auto const& c = strip.columns[i].bySensor.at(0);
        passedFrames += c.passed;
        failedColumn = c.failed ? static_cast<int>(i) : failedColumn;
    }
    EXPECT_EQ(passedFrames, frames - 1);
    EXPECT_EQ(failedColumn, 77777 / strip.columnFrames);
    ASSERT_EQ(t.frames.size(), 1u);
    EXPECT_EQ(t.frames[0].frame, 77777);
    EXPECT_EQ(t.frameCount, frames);

    // Regression: frame numbers a billion apart (a capture's, or the input fuzzer's) took memory
    // by the span of the numbers. The outcomes grow with the frames only; every frame is drawn.
    Timeline sparse;
    for (int f : {7, 8, 1000000007, 2000000007}) {
        FrameRecord r;
        r.frame = f;
        r.cells.push_back({});
        r.cells.back().verdict = f == 8 ? Verdict::Dropped : Verdict::InSync;
        foldFrame(sparse, r);
    }
    EXPECT_EQ(sparse.outcomes.bySensor.at(0).size(), 4u);
    FrameStrip wide = FrameStrip::of(sparse.outcomes);
    ASSERT_LE(wide.columns.size(), FrameStrip::kMaxColumns);
    FrameColumn::Counts first = wide.columns.front().of(0), last = wide.columns.back().of(0);
    EXPECT_EQ(first.passed + first.dropped, 2);
    EXPECT_EQ(first.dropped, 1);
    EXPECT_EQ(last.passed, 1);
}

// --- progress for a log ------------------------------------------------------------------------

TEST(ProgressForALog, ALineAtEachFurtherTenthOrAfterTenSilentSecondsAndOneClosingLine) {
    ProgressLines lines;
    std::string out;
    for (auto [done, seconds] : std::vector<std::pair<size_t, double>>{{0, 0.0},
                                                                       {5, 0.1},
                                                                       {10, 0.2},
                                                                       {19, 0.3},
                                                                       {35, 0.4},
                                                                       {35, 10.3},
                                                                       {36, 10.5},
                                                                       {37, 14.0},
                                                                       {100, 14.5}}) {
        out += lines.update({done, 100, seconds});
    }
    out += lines.finish({100, 100, 14.6});
    EXPECT_EQ(out,
              "synchelper-sim:  10% (10/100 calls, 0.2 s)\n"
              "synchelper-sim:  35% (35/100 calls, 0.4 s)\n"
              "synchelper-sim:  36% (36/100 calls, 10.5 s)\n"
              "synchelper-sim: 100% (100/100 calls, 14.5 s)\n");
    // A run too short for any line, or one that stopped early, still ends with its figure.
    ProgressLines quick;
    EXPECT_EQ(quick.update({0, 3, 0.0}), "");
    EXPECT_EQ(quick.finish({2, 3, 0.01}), "synchelper-sim:  66% (2/3 calls, 0.0 s)\n");
}

// --- call flows checked before a run ----------------------------------------------------------

namespace {

FlowReport checkText(std::string const& text) {
    return checkCallFlow(parseTrace(text, "flow.csv"));
}

std::string const kFlowHeader = "sensor,kind,frame,sync_ids,required\n";

}  // namespace

TEST(CallFlowCheck, EachAbortingFlowIsNamedWithFrameCameraAndRule) {
    // Sensors 0-10 each open a frame that waits for sensor 11, which comes after them.
    std::string inflight = kFlowHeader;
    for (int k = 0; k < 11; ++k) {
        inflight += std::to_string(k) + ",result," + std::to_string(k) + ",11,1\n";
    }
    for (int k = 0; k < 11; ++k) {
        inflight += "11,result," + std::to_string(k) + "," + std::to_string(k) + ",1\n";
    }
    FlowReport r = checkText(inflight);
    EXPECT_EQ(r.violations, std::vector<std::string>{"f10: an 11th frame in flight (camera 10) "
                                                     "while f0-f9 still wait for camera 11"});

    // Whoever arrives first sets the targets: camera 2 is outside 0's and 1's, camera 1 outside
    // 2's.
    r = checkText(kFlowHeader + "0,result,1,1,1\n2,result,1,0,1\n1,result,1,0,1\n");
    EXPECT_EQ(r.violations,
              (std::vector<std::string>{
                  "f1: camera 2 is outside the sync targets of the frame (0, 1) and, in trace "
                  "order, arrives while it waits for camera 1: the library aborts",
                  "f1: camera 2 is outside the sync targets camera 0 sets (0, 1): the library "
                  "aborts in the arrival orders where camera 0 arrives first and camera 2 before "
                  "the frame completes",
                  "f1: camera 1 is outside the sync targets camera 2 sets (2, 0): the library "
                  "aborts in the arrival orders where camera 2 arrives first and camera 1 before "
                  "the frame completes",
                  "f1: camera 2 is outside the sync targets camera 1 sets (1, 0): the library "
                  "aborts in the arrival orders where camera 1 arrives first and camera 2 before "
                  "the frame completes"}));
    EXPECT_EQ(r.traceOrder.kind, FlowOutcome::Kind::Aborts);
    EXPECT_EQ(r.traceOrder.fatal, "camid is NOT exist in sync target");

    // Frame 0 waits for camera 2 while cameras 1 and 3 complete 19 frames: the arrival record
    // (20 frames) drops f0 at the second arrival of f19.
    std::string prune = kFlowHeader + "0,result,0,2,1\n";
    for (int f = 1; f < 22; ++f) {
        prune += "1,result," + std::to_string(f) + ",3,1\n3,result," + std::to_string(f) + ",1,1\n";
    }
    r = checkText(prune);
    EXPECT_EQ(r.violations, std::vector<std::string>{
                                "f19: the library's record of arrivals keeps 20 frames and "
                                "drops f0 while it is still in flight, waiting for camera 2"});
    EXPECT_TRUE(r.warnings.empty());
}

TEST(CallFlowCheck, BlockingGroupsAreWarningsAndSoundFlowsPass) {
    FlowReport r = checkText(kFlowHeader + "0,result,0,0 1,1\n1,result,0,0,1\n0,result,1,0 1,1\n");
    EXPECT_TRUE(r.violations.empty());
    EXPECT_EQ(r.warnings,
              (std::vector<std::string>{
                  "f0: in trace order camera 0's call for f1 (line 4) is due while its call for "
                  "f0 still waits for a completion that arrivals cannot give (its sync targets "
                  "name a camera twice): an ordered replay blocks there",
                  "f0-f1: camera 0 names itself in its sync ids (0, 1): when it arrives first the "
                  "frame's sync targets (0, 0, 1) count it twice, so the frame never completes by "
                  "arrivals and its cameras block in syncResultCheck"}));
    EXPECT_EQ(r.traceOrder.kind, FlowOutcome::Kind::Blocks);
    EXPECT_EQ(r.traceOrder.waiting, (std::set<int>{0, 1}));

    // A flush ends the frames in flight it names; the built-in session (drops, a flush, a
    // master switch, crop sets) is sound.
    std::string flushed = kFlowHeader;
    for (int k = 0; k < 11; ++k) {
        flushed += std::to_string(k) + ",result," + std::to_string(k) + ",11,1\n11,flush," +
                   std::to_string(k) + ",,\n";
    }
    EXPECT_TRUE(checkText(flushed).violations.empty());
    Scenario s = parseScenario(defaultScenarioText(), "built-in");
    r = checkCallFlow(generateTrace(s, s.seed));
    EXPECT_TRUE(r.violations.empty()) << r.violations.front();
    EXPECT_TRUE(r.warnings.empty());
}

// The tolerance a camera pair would need: from every frame that shows both starts of frame,
// whatever the frame's verdict, and from no frame that shows one of them only.
TEST(PairSkews, TheToleranceThatPassesEachShareOfFramesComesFromEveryFrameShowingBoth) {
    Timeline t;
    for (int i = 1; i <= 1000; ++i) {
        FrameRecord f;
        f.frame = i;
        for (int cam : {2, 0, 1}) {
            CameraCell c;
            c.sensor = cam;
            c.verdict = i % 10 == 0 ? Verdict::OutOfSync2 : Verdict::InSync;
            // Camera 2 runs 3i us behind camera 0; camera 1 starts 0.25 ms before camera 0, across
            // a millisecond boundary, and shows no start on odd frames.
            if (cam != 1 || i % 2 == 0) {
                c.sofNs = 1000000LL * i + (cam == 2 ? 3000LL * i : cam == 1 ? -250000 : 0);
            }
            f.cells.push_back(c);
        }
        t.frames.push_back(f);
    }
    finishTimeline(t);
    ASSERT_EQ(t.skews.size(), 3u);
    PairSkew const& p02 = t.skews[1];
    EXPECT_EQ(std::make_pair(p02.a, p02.b), std::make_pair(0, 2));
    EXPECT_EQ(p02.skew.count, 1000u);
    EXPECT_DOUBLE_EQ(p02.skew.p50Us, 1500);
    EXPECT_DOUBLE_EQ(p02.skew.maxUs, 3000);
    // The library's whole milliseconds: 2.97 ms apart (frame 990) is 2 ms, 3 ms only at 1000.
    EXPECT_DOUBLE_EQ(p02.tolerance99Us, 2000);
    EXPECT_DOUBLE_EQ(p02.tolerance999Us, 2000);
    PairSkew const& p01 = t.skews[0];
    EXPECT_EQ(p01.skew.count, 500u);
    EXPECT_DOUBLE_EQ(p01.skew.maxUs, 250);
    EXPECT_DOUBLE_EQ(p01.tolerance99Us, 1000);  // 0.25 ms across a boundary: 1 ms apart
    EXPECT_EQ(std::make_pair(t.skews[2].a, t.skews[2].b), std::make_pair(1, 2));

    std::ostringstream text;
    writeText(text, t);
    EXPECT_NE(text.str().find("    0 - 2: p50 1.50 ms, p99 2.97 ms, max 3.00 ms over 1000 frames; "
                              "2.00 ms / 2.00 ms\n"),
              std::string::npos)
        << text.str();
    nlohmann::json j = timelineJson(t);
    EXPECT_EQ(j["timing"]["sof_skew"][1]["tolerance_99_9_us"], 2000.0);
}
