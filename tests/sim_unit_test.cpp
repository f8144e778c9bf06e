// synchelper-sim without the library: scenario and trace files (good and bad), the expansion of
// a scenario into calls, the report's classification, and the timeline.

#include "Report.h"
#include "Scenario.h"
#include "Svg.h"
#include "TraceIo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

using namespace ryxsim;

namespace {

// Runs `fn`, expecting a ParseError; returns it.
template <typename F>
ParseError parseFailure(F fn) {
    try {
        fn();
    } catch (ParseError const& e) {
        return e;
    }
    ADD_FAILURE() << "no ParseError";
    return ParseError("", 0, "", "");
}

std::vector<CallRow> rowsOf(Trace const& t, int sensor) {
    std::vector<CallRow> out;
    for (auto const& r : t.rows) {
        if (r.sensor == sensor) {
            out.push_back(r);
        }
    }
    return out;
}

}  // namespace

// --- scenario files ---------------------------------------------------------------------------

class ScenarioFile : public ::testing::Test {};

TEST_F(ScenarioFile, BuiltInScenarioIsTheDocumentedSession) {
    Scenario s = parseScenario(defaultScenarioText(), "built-in");
    EXPECT_EQ(s.name, "default");
    ASSERT_EQ(s.sensors.size(), 3u);
    EXPECT_EQ(s.sensors[0].camera.name, "wide");
    EXPECT_EQ(s.sensors[2].camera.name, "tele");
    EXPECT_EQ(s.frames, 600);
    EXPECT_DOUBLE_EQ(s.fps, 30);
    EXPECT_EQ(s.control.toleranceUs.value, 1000);
    EXPECT_EQ(s.control.mode.value, 1);
    EXPECT_EQ(s.cropEvery, 30);
}

TEST_F(ScenarioFile, ExamplesInTheRepositoryParse) {
    for (char const* name : {"default.json", "two_sensor.json", "blocked_duplicate_id.json"}) {
        SCOPED_TRACE(name);
        Scenario s = readScenarioFile(std::string(RYX_SIM_SCENARIOS) + "/" + name);
        EXPECT_FALSE(s.sensors.empty());
    }
}

TEST_F(ScenarioFile, NullMeansTagAbsentAndMissingMeansInherit) {
    Scenario s = parseScenario(R"({"sensors": [{"id": 0}, {"id": 1}],
        "control": {"tolerance_us": null},
        "ranges": [{"frames": [3, 4], "sensors": [1], "enable": 0}]})",
                               "s.json");
    EXPECT_TRUE(s.control.toleranceUs.given);
    EXPECT_FALSE(s.control.toleranceUs.value.has_value());
    EXPECT_FALSE(s.control.mode.given);
    ASSERT_EQ(s.ranges.size(), 1u);
    EXPECT_EQ(s.ranges[0].first, 3);
    EXPECT_EQ(s.ranges[0].control.enable.value, 0);
}

TEST_F(ScenarioFile, WrongTypeNamesLineAndField) {
    auto e = parseFailure([] {
        parseScenario(
            "{\n  \"sensors\": [\n    {\"id\": 0},\n    {\"id\": 1, \"jitter_us\": "
            "\"lots\"}\n  ]\n}\n",
            "bad.json");
    });
    EXPECT_EQ(e.file(), "bad.json");
    EXPECT_EQ(e.line(), 4);
    EXPECT_EQ(e.field(), "sensors[1].jitter_us");
    EXPECT_STREQ(e.what(),
                 "bad.json:4: field 'sensors[1].jitter_us': expected an integer, got a string");
}

TEST_F(ScenarioFile, UnknownFieldIsRejectedAtItsLine) {
    auto e = parseFailure([] {
        parseScenario(
            "{\n  \"sensors\": [{\"id\": 0}],\n  \"control\": {\n    \"tolerence_us\": "
            "1000\n  }\n}",
            "typo.json");
    });
    EXPECT_EQ(e.line(), 4);
    EXPECT_EQ(e.field(), "control.tolerence_us");
    EXPECT_NE(e.problem().find("unknown field"), std::string::npos);
}

TEST_F(ScenarioFile, ReferencesToUndeclaredSensorsAndFramesAreRejected) {
    auto e = parseFailure([] {
        parseScenario(
            "{\"sensors\": [{\"id\": 0}, {\"id\": 1}],\n \"control\": {\"group\": [0, "
            "1,\n 5]}}",
            "g.json");
    });
    EXPECT_EQ(e.field(), "control.group[2]");
    EXPECT_EQ(e.line(), 3);
    EXPECT_EQ(e.problem(), "sensor 5 is not declared in 'sensors'");

    e = parseFailure([] {
        parseScenario(
            "{\"frames\": 10, \"sensors\": [{\"id\": 0}],\n\"events\": [\n {\"kind\": "
            "\"flush\", \"frame\": 10, \"sensor\": 0}]}",
            "f.json");
    });
    EXPECT_EQ(e.field(), "events[0].frame");
    EXPECT_EQ(e.line(), 3);
    EXPECT_EQ(e.problem(), "frame 10 is outside the session's frames 0..9");
}

TEST_F(ScenarioFile, MalformedJsonNamesTheLineOfTheFault) {
    auto e = parseFailure(
        [] { parseScenario("{\n  \"sensors\": [\n    {\"id\": 0},\n  ]\n}\n", "comma.json"); });
    EXPECT_EQ(e.line(), 4);
    EXPECT_EQ(e.field(), "sensors[0].id");
    EXPECT_NE(e.problem().find("malformed JSON"), std::string::npos);
}

TEST_F(ScenarioFile, DuplicateSensorAndMissingSensorsAreRejected) {
    auto e = parseFailure(
        [] { parseScenario("{\"sensors\": [{\"id\": 2},\n {\"id\": 2}]}", "dup.json"); });
    EXPECT_EQ(e.field(), "sensors[1].id");
    EXPECT_EQ(e.line(), 2);
    e = parseFailure([] { parseScenario("{\"frames\": 5}", "none.json"); });
    EXPECT_EQ(e.field(), "sensors");
}

// --- trace files ------------------------------------------------------------------------------

class TraceFile : public ::testing::Test {
  protected:
    static std::string const kHeader;
};
std::string const TraceFile::kHeader =
    "sensor,kind,frame,request,sof_ns,exp_ns,master,sync_ids,required,enable,tolerance_us,mode,"
    "ms_list,intent,get_crop,crops\n";

TEST_F(TraceFile, RowsBecomeCallsWithTheirTags) {
    Trace t = parseTrace(
        "# a comment\n#@ session name=field key=9 crop_replace=0 fps=24\n"
        "#@ camera id=2 name=tele active=10:20:300:400 focal=8.5\n" +
            kHeader +
            "2,result,7,,1000,900,2,0,1,,1500,1,2 0,2,1,\n"
            "0,drop,7,17,,,2,2,1,,,,,,,\n"
            "0,flush,8,,,,,,,,,,,,,\n"
            "2,crop,9,9,,,,,,,,,,,,0=1:2:3:4;2=5:6:7:8\n"
            "2,leave,,,,,,,,,,,,,,\n",
        "t.csv");
    EXPECT_EQ(t.session.name, "field");
    EXPECT_EQ(t.session.sessionKey, 9u);
    EXPECT_FALSE(t.session.allowCropReplace);
    EXPECT_DOUBLE_EQ(t.session.fps, 24);
    ASSERT_NE(t.session.camera(2), nullptr);
    EXPECT_EQ(t.session.camera(2)->activeArray, NSCam::MRect(10, 20, 300, 400));
    ASSERT_EQ(t.rows.size(), 5u);
    CallRow const& r = t.rows[0];
    EXPECT_EQ(r.kind, CallKind::Result);
    EXPECT_EQ(r.request, 7);  // defaults to the frame
    EXPECT_EQ(r.sofNs, 1000);
    EXPECT_EQ(r.master, 2);
    EXPECT_EQ(r.syncIds, std::vector<int32_t>{0});
    EXPECT_TRUE(r.required);
    EXPECT_FALSE(r.enable.has_value());
    EXPECT_EQ(r.toleranceUs, 1500);
    EXPECT_EQ(r.msList, (std::vector<int32_t>{2, 0}));
    EXPECT_EQ(r.intent, 2);
    EXPECT_TRUE(r.getCrop);
    EXPECT_EQ(r.sourceLine, 5);
    EXPECT_EQ(t.rows[1].kind, CallKind::Drop);
    EXPECT_EQ(t.rows[1].request, 17);
    EXPECT_FALSE(t.rows[1].toleranceUs.has_value());
    EXPECT_EQ(t.rows[2].kind, CallKind::Flush);
    EXPECT_EQ(t.rows[3].crops.at(2), NSCam::MRect(5, 6, 7, 8));
    EXPECT_EQ(t.rows[4].kind, CallKind::Leave);
}

TEST_F(TraceFile, ErrorsNameLineAndField) {
    struct Case {
        std::string body;
        int line;
        std::string field;
        std::string problem;
    };
    std::vector<Case> cases = {
        {"0,resutl,1,,,,,,,,,,,,,\n", 2, "kind",
         "expected result, drop, flush, leave or crop, got 'resutl'"},
        {"0,result,,,,,,,,,,,,,,\n", 2, "frame", "missing (a result row needs a frame number)"},
        {"0,result,1,,,,,,,,1e3,,,,,\n", 2, "tolerance_us", "expected an integer, got '1e3'"},
        {"0,result,1,,,,,,,,,,,,\n", 2, "", "expected 16 fields, found 15"},
        {"0,result,1,,,,,,,,,,,,,\n0,crop,2,2,,,,,,,,,,,,0=1:2:3\n", 3, "crops",
         "expected LEFT:TOP:WIDTH:HEIGHT, got '1:2:3'"},
        {"0,result,1,,,,,,,,,,,,,0=1:2:3:4\n", 2, "crops",
         "only crop rows carry a crop set, this is a result row"},
        {"0,result,1,,,,,0 x,,,,,,,,\n", 2, "sync_ids", "expected an integer, got 'x'"},
        {"0,result,1,,,,,,,,,,,300,,\n", 2, "intent", "value 300 is out of range [0, 255]"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.body);
        auto e = parseFailure([&] { parseTrace(kHeader + c.body, "x.csv"); });
        EXPECT_EQ(e.line(), c.line);
        EXPECT_EQ(e.field(), c.field);
        EXPECT_EQ(e.problem(), c.problem);
    }
}

TEST_F(TraceFile, HeaderAndDirectiveErrors) {
    auto e =
        parseFailure([] { parseTrace("sensor,kind,frame,colour\n0,result,1,red\n", "h.csv"); });
    EXPECT_EQ(e.line(), 1);
    EXPECT_EQ(e.field(), "colour");
    e = parseFailure([] { parseTrace("sensor,frame\n", "h.csv"); });
    EXPECT_EQ(e.field(), "kind");
    e = parseFailure([&] { parseTrace("#@ camera id=1 focal=wide\n" + kHeader, "d.csv"); });
    EXPECT_EQ(e.line(), 1);
    EXPECT_EQ(e.field(), "camera.focal");
    e = parseFailure([&] { parseTrace(kHeader, "empty.csv"); });
    EXPECT_EQ(e.problem(), "no calls after the header row");
}

TEST_F(TraceFile, ColumnsMayComeInAnyOrderAndBeLeftOut) {
    Trace t = parseTrace("frame,kind,sensor,sof_ns\n5,result,1,42\n", "min.csv");
    ASSERT_EQ(t.rows.size(), 1u);
    EXPECT_EQ(t.rows[0].sensor, 1);
    EXPECT_EQ(t.rows[0].frame, 5);
    EXPECT_EQ(t.rows[0].sofNs, 42);
    EXPECT_FALSE(t.rows[0].syncIds.has_value());
}

TEST_F(TraceFile, WrittenTraceReadsBackIdentical) {
    Scenario s = parseScenario(defaultScenarioText(), "built-in");
    Trace t = generateTrace(s, 5);
    Trace back = parseTrace(traceToString(t), "rt.csv");
    ASSERT_EQ(back.rows.size(), t.rows.size());
    for (size_t i = 0; i < t.rows.size(); ++i) {
        ASSERT_EQ(back.rows[i], t.rows[i]) << "row " << i;
    }
    EXPECT_EQ(back.session.name, "default");
    ASSERT_EQ(back.session.cameras.size(), 3u);
    EXPECT_EQ(back.session.cameras[1].name, "ultrawide");
    EXPECT_EQ(back.session.cameras[1].activeArray, t.session.cameras[1].activeArray);
    EXPECT_FLOAT_EQ(back.session.cameras[1].focalLength, 2.2f);
    EXPECT_EQ(traceToString(back), traceToString(t));
}

// --- expansion of a scenario into calls --------------------------------------------------------

class Expansion : public ::testing::Test {
  protected:
    Scenario mDefault = parseScenario(defaultScenarioText(), "built-in");
};

TEST_F(Expansion, SameSeedSameCallsOtherSeedOtherJitter) {
    EXPECT_EQ(traceToString(generateTrace(mDefault, 3)), traceToString(generateTrace(mDefault, 3)));
    EXPECT_NE(traceToString(generateTrace(mDefault, 3)), traceToString(generateTrace(mDefault, 4)));
}

TEST_F(Expansion, DefaultSessionHasTheEventsItPromises) {
    GenerationPlan plan;
    Trace t = generateTrace(mDefault, 1, &plan);
    std::map<CallKind, int> kinds;
    int masterDrops = 0;
    std::set<std::pair<int, int>> slaveDrops;
    for (auto const& r : t.rows) {
        kinds[r.kind]++;
        if (r.kind == CallKind::Drop) {
            if (r.master == r.sensor) {
                masterDrops++;
                EXPECT_EQ(r.frame, 450);
            } else {
                slaveDrops.insert({r.frame, r.sensor});
            }
        }
        if (r.kind == CallKind::Flush) {
            EXPECT_EQ(r.frame, 240);
        }
        if (r.kind == CallKind::Result) {
            EXPECT_EQ(r.master, r.frame < 300 ? 0 : 2) << "f" << r.frame;
            EXPECT_EQ(r.toleranceUs, 1000);
            EXPECT_EQ(r.mode, 1);
            EXPECT_TRUE(r.required);
            EXPECT_TRUE(r.getCrop);
        }
    }
    EXPECT_EQ(kinds[CallKind::Result] + kinds[CallKind::Drop], 1800);
    EXPECT_EQ(kinds[CallKind::Flush], 1);
    EXPECT_EQ(kinds[CallKind::Crop], 20);
    EXPECT_EQ(masterDrops, 1);
    EXPECT_EQ(slaveDrops.size(), 3u);
    std::set<std::pair<int, int>> planned(plan.slaveDrops.begin(), plan.slaveDrops.end());
    EXPECT_EQ(planned, slaveDrops);
    EXPECT_EQ(plan.outOfTolerance.size(), 5u);
}

TEST_F(Expansion, OnlyThePlannedFramesSpreadBeyondTheTolerance) {
    GenerationPlan plan;
    Trace t = generateTrace(mDefault, 1, &plan);
    std::map<int, std::pair<int64_t, int64_t>> spread;  // frame -> (min, max) start of frame
    for (auto const& r : t.rows) {
        if (r.kind != CallKind::Result && r.kind != CallKind::Drop) {
            continue;
        }
        auto it = spread.find(r.frame);
        if (it == spread.end()) {
            spread[r.frame] = {r.sofNs, r.sofNs};
        } else {
            it->second.first = std::min(it->second.first, r.sofNs);
            it->second.second = std::max(it->second.second, r.sofNs);
        }
    }
    std::set<int> planned;
    for (auto const& [f, s] : plan.outOfTolerance) {
        planned.insert(f);
    }
    for (auto const& [f, mm] : spread) {
        int64_t d = mm.second - mm.first;
        if (planned.count(f)) {
            EXPECT_GE(d, 2000000) << "f" << f;  // 2 ms or more: out at any reference sensor
        } else {
            EXPECT_LT(d, 1000000) << "f" << f;
        }
    }
}

TEST_F(Expansion, EachSensorNamesTheOthersOfItsGroup) {
    Trace t = generateTrace(mDefault, 1);
    for (auto const& r : t.rows) {
        if (r.kind != CallKind::Result) {
            continue;
        }
        std::vector<int32_t> expect;
        for (int id : {0, 1, 2}) {
            if (id != r.sensor) {
                expect.push_back(id);
            }
        }
        ASSERT_EQ(r.syncIds, expect) << "sensor " << r.sensor << " f" << r.frame;
    }
    EXPECT_EQ(rowsOf(t, 1).front().msList, (std::vector<int32_t>{0, 1, 2}));
}

TEST_F(Expansion, CropSetsAreIssuedAheadOfTheirFrames) {
    Trace t = generateTrace(mDefault, 1);
    auto wide = rowsOf(t, 0);
    std::vector<NSCam::MRect> wideCrops;
    for (size_t i = 0; i < wide.size(); ++i) {
        if (wide[i].kind != CallKind::Crop) {
            continue;
        }
        int f = wide[i].frame;
        // Issued before the wide sensor's frame f - 2 (or its first frame).
        ASSERT_LT(i + 1, wide.size());
        EXPECT_EQ(wide[i + 1].frame, std::max(0, f - 2));
        EXPECT_EQ(wide[i].request, f);
        EXPECT_EQ(wide[i].crops.size(), 3u);
        wideCrops.push_back(wide[i].crops.at(0));
    }
    ASSERT_EQ(wideCrops.size(), 20u);
    // Zoom 1, 1.25, 1.5, 1.75, 2, then back down: centred, even sizes.
    EXPECT_EQ(wideCrops[0], NSCam::MRect(0, 0, 4000, 3000));
    EXPECT_EQ(wideCrops[1], NSCam::MRect(400, 300, 3200, 2400));
    EXPECT_EQ(wideCrops[4], NSCam::MRect(1000, 750, 2000, 1500));
    EXPECT_EQ(wideCrops[5], NSCam::MRect(857, 643, 2286, 1714));
    EXPECT_EQ(wideCrops[8], wideCrops[0]);
}

TEST_F(Expansion, LeavingSensorStopsAndTheOthersGoSingleCamera) {
    Scenario s = readScenarioFile(std::string(RYX_SIM_SCENARIOS) + "/two_sensor.json");
    Trace t = generateTrace(s, 7);
    auto tele = rowsOf(t, 1);
    EXPECT_EQ(tele.back().kind, CallKind::Leave);
    EXPECT_EQ(tele.back().frame, 280);
    for (auto const& r : rowsOf(t, 0)) {
        if (r.frame >= 280) {
            EXPECT_FALSE(r.syncIds.has_value()) << "f" << r.frame;
            EXPECT_FALSE(r.required);
        } else if (r.frame >= 200 && r.frame <= 209) {
            EXPECT_EQ(r.enable, 0);
        }
    }
}

TEST_F(Expansion, RawSyncIdsArePassedUnchanged) {
    Scenario s = readScenarioFile(std::string(RYX_SIM_SCENARIOS) + "/blocked_duplicate_id.json");
    Trace t = generateTrace(s, 1);
    for (auto const& r : t.rows) {
        EXPECT_EQ(r.syncIds, (std::vector<int32_t>{0, 1}));
    }
}

// --- report ------------------------------------------------------------------------------------

class ReportFigures : public ::testing::Test {
  protected:
    // Sensor 0: results f1..f8 and a drop of f9; sensor 1 calls flush on f5 first.
    void SetUp() override {
        trace.session.name = "synthetic";
        trace.session.cameras = {{0, "a", {}, 0}, {1, "b", {}, 0}};
        CallRow flush;
        flush.sensor = 1;
        flush.kind = CallKind::Flush;
        flush.frame = 5;
        trace.rows.push_back(flush);
        for (int f = 1; f <= 8; ++f) {
            CallRow r;
            r.sensor = 0;
            r.frame = f;
            r.master = f == 6 ? 1 : 0;
            r.syncIds = std::vector<int32_t>{1};
            trace.rows.push_back(r);
        }
        CallRow md;  // master drop by sensor 1 of f6
        md.sensor = 1;
        md.kind = CallKind::Drop;
        md.frame = 6;
        md.master = 1;
        md.syncIds = std::vector<int32_t>{0};
        trace.rows.push_back(md);
        run.outcomes.resize(trace.rows.size());
        auto set = [&](int frame, bool verdict, std::optional<int64_t> res, bool master = false) {
            CallOutcome& o = run.outcomes[static_cast<size_t>(frame)];
            o.started = o.returned = true;
            o.verdict = verdict;
            o.syncResult = res;
            o.masterCam = master;
            o.wallNs = frame * 1000;
        };
        set(1, true, 0, true);           // in sync
        set(2, true, 1, true);           // out of sync, delivered
        set(3, false, 2);                // out of sync, failed
        set(4, true, std::nullopt);      // unchecked
        set(5, false, 0);                // flushed
        set(6, false, 0);                // master drop
        set(7, false, std::nullopt);     // refused
        run.outcomes[8].started = true;  // f8 blocked
        run.outcomes[9].started = run.outcomes[9].returned = true;
        run.outcomes[0].started = run.outcomes[0].returned = true;
        run.blocked.push_back({0, 8, 2.5});
    }
    Trace trace;
    RunResult run;
};

TEST_F(ReportFigures, EveryCallLandsInOneColumn) {
    Report r = buildReport(trace, run);
    ASSERT_EQ(r.sensors.size(), 2u);
    SensorFigures const& a = r.sensors[0];
    EXPECT_EQ(a.offered, 8);
    EXPECT_EQ(a.inSync, 1);
    EXPECT_EQ(a.outOfSync1, 1);
    EXPECT_EQ(a.outOfSync2, 1);
    EXPECT_EQ(a.unchecked, 1);
    EXPECT_EQ(a.dropped, 3);
    EXPECT_EQ(a.dropFlush, 1);
    EXPECT_EQ(a.dropMaster, 1);
    EXPECT_EQ(a.dropRefused, 1);
    EXPECT_EQ(a.blocked, 1);
    EXPECT_EQ(a.masterFrames, 2);
    EXPECT_EQ(r.sensors[1].offered, 1);
    EXPECT_EQ(r.sensors[1].dropOwn, 1);
    EXPECT_EQ(r.neverCompleted, std::vector<int>{8});
    ASSERT_EQ(r.blocked.size(), 1u);
    EXPECT_EQ(r.blocked[0].call, "syncResultCheck");
    EXPECT_EQ(r.blocked[0].frame, 8);
    EXPECT_EQ(r.exitStatus, 3);
    EXPECT_EQ(r.masterDrops, (std::vector<std::pair<int, int>>{{6, 1}}));
}

TEST_F(ReportFigures, TextAndJsonNameTheBlockedThread) {
    Report r = buildReport(trace, run);
    std::ostringstream text;
    printReport(text, r);
    EXPECT_NE(text.str().find("sensor 0 a in syncResultCheck for f8 (r-1), for 2.5 s"),
              std::string::npos)
        << text.str();
    EXPECT_NE(text.str().find("frames never completed:  f8"), std::string::npos);
    auto j = reportJson(r);
    EXPECT_EQ(j["anomalies"]["blocked_threads"][0]["frame"], 8);
    EXPECT_EQ(j["sensors"][0]["out_of_sync_2"], 1);
    EXPECT_EQ(j["sensors"][0]["frames"][2]["verdict"], "out of sync (2)");
    EXPECT_EQ(j["exit_status"], 3);
}

TEST_F(ReportFigures, WaitPercentilesAreNearestRank) {
    std::vector<int64_t> ns;
    for (int i = 1; i <= 200; ++i) {
        ns.push_back(i * 1000);
    }
    WaitStats w = waitStats(ns);
    EXPECT_EQ(w.count, 200u);
    EXPECT_DOUBLE_EQ(w.p50Us, 100);
    EXPECT_DOUBLE_EQ(w.p99Us, 198);
    EXPECT_DOUBLE_EQ(w.maxUs, 200);
}

TEST_F(ReportFigures, TimelineHasALaneAndRunsPerSensor) {
    Report r = buildReport(trace, run);
    std::ostringstream svg;
    writeSvg(svg, r);
    std::string s = svg.str();
    EXPECT_EQ(s.rfind("<?xml", 0), 0u);
    EXPECT_NE(s.find(">sensor 0 a</text>"), std::string::npos);
    EXPECT_NE(s.find(">sensor 1 b</text>"), std::string::npos);
    EXPECT_NE(s.find("<title>sensor 0 a f3: out of sync, failed (RESULT 2)</title>"),
              std::string::npos);
    EXPECT_NE(s.find("<title>sensor 0 a f8: blocked, never returned</title>"), std::string::npos);
    EXPECT_NE(s.find("<title>sensor 0 a master f1..f2</title>"), std::string::npos);
    EXPECT_NE(s.find(">flush f5</text>"), std::string::npos);
    EXPECT_NE(s.find(">master drop f6</text>"), std::string::npos);
    EXPECT_NE(s.find(">never completed f8</text>"), std::string::npos);
    EXPECT_EQ(std::count(s.begin(), s.end(), '<') - std::count(s.begin(), s.end(), '>'), 0);
    EXPECT_NE(s.find("</svg>"), std::string::npos);
}
