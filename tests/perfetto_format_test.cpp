// The Perfetto trace (Chrome JSON trace event format) of a simulated run and of imported
// captures keeps the format's rules: required fields per phase (tools/trace-event.schema.json),
// slices on one thread properly nested, names for every process and thread used.

#include "LogcatFormats.h"
#include "SchemaValidation.h"
#include "sim_run_support.h"
#include "sinks/PerfettoSink.h"
#include "sources/logcat/LogcatSource.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

using namespace ryxsim;
using nlohmann::json;

namespace {

// The rules a schema cannot state, one line each: every process and thread used is named, and
// the slices of one thread nest.
std::string crossEventErrors(json const& doc) {
    std::ostringstream err;
    std::set<int> namedProcesses;
    std::set<std::pair<int, int>> namedThreads, usedThreads;
    std::map<std::pair<int, int>, std::vector<std::pair<double, double>>> slices;
    for (auto const& e : doc["traceEvents"]) {
        std::pair<int, int> thread{e["pid"], e["tid"]};
        if (e["ph"] == "M") {
            if (e["name"] == "process_name") {
                namedProcesses.insert(thread.first);
            } else if (e["name"] == "thread_name") {
                namedThreads.insert(thread);
            }
            continue;
        }
        usedThreads.insert(thread);
        if (e["ph"] == "X") {
            slices[thread].push_back({e["ts"], e["ts"].get<double>() + e["dur"].get<double>()});
        }
    }
    for (auto const& [pid, tid] : usedThreads) {
        if (!namedProcesses.count(pid)) {
            err << "process " << pid << " has no process_name\n";
        }
        if (!namedThreads.count({pid, tid})) {
            err << "thread " << pid << "/" << tid << " has no thread_name\n";
        }
    }
    // On one thread, a slice starts after the previous one ends or lies inside it.
    for (auto& [thread, list] : slices) {
        std::sort(list.begin(), list.end());
        std::vector<double> open;
        for (auto const& [b, e] : list) {
            while (!open.empty() && open.back() <= b) {
                open.pop_back();
            }
            if (!open.empty() && e > open.back()) {
                err << "thread " << thread.first << "/" << thread.second << ": slice at " << b
                    << " overlaps its parent\n";
            }
            open.push_back(e);
        }
    }
    return err.str();
}

// Every rule broken: the trace event format's per-event rules (tools/trace-event.schema.json,
// checked by python3-jsonschema), then the rules across events.
std::string formatErrors(json const& doc) {
    std::string schema = ryxtest::schemaErrorsOf(RYX_TRACE_SCHEMA, doc);
    return !schema.empty() ? schema : crossEventErrors(doc);
}

json traceOf(std::vector<Timeline> const& sessions) {
    std::ostringstream out;
    writePerfetto(out, sessions);
    return json::parse(out.str());
}

size_t count(json const& doc, char const* ph, std::string const& inName = "") {
    return std::count_if(doc["traceEvents"].begin(), doc["traceEvents"].end(), [&](json const& e) {
        return e["ph"] == ph && e["name"].get<std::string>().find(inName) != std::string::npos;
    });
}

}  // namespace

TEST(PerfettoFormat, SimulatedAndImportedTracesKeepTheRules) {
    Timeline sim = ryxtest::defaultScenarioTimeline();
    json simulated = traceOf({sim});
    EXPECT_EQ(formatErrors(simulated), "");
    // One slice per syncResultCheck call, one instant per frame that did not pass.
    EXPECT_EQ(count(simulated, "X"), sim.wait.count);
    EXPECT_EQ(count(simulated, "i", " did not pass"), unpassedFrames(sim).size());
    EXPECT_EQ(count(simulated, "i", "master drop f450"), 1u);
    EXPECT_EQ(count(simulated, "i", "flush f240"), 1u);
    EXPECT_EQ(count(simulated, "i", "master 0 wide"), 1u);  // wide, then tele from f300
    EXPECT_EQ(count(simulated, "i", "master 2 tele"), 1u);
    EXPECT_EQ(count(simulated, "M", "thread_name"), 4u);

    std::string const data = RYX_LOGCAT_DATA;
    for (char const* capture : {"threadtime_debug_noisy.txt", "time_default_two_processes.txt"}) {
        SCOPED_TRACE(capture);
        auto sessions = readLogcatFile(data + "/" + capture);
        json imported = traceOf(sessions);
        EXPECT_EQ(formatErrors(imported), "");
        EXPECT_EQ(count(imported, "M", "process_name"), sessions.size());
        EXPECT_GT(count(imported, "C"), 0u);
    }

    // The checks themselves: a slice without a duration, an overlapping slice and an unnamed
    // thread are caught.
    json noDuration = simulated;
    noDuration["traceEvents"].push_back(
        {{"ph", "X"}, {"pid", 1}, {"tid", 1}, {"ts", 1}, {"name", "x"}});
    EXPECT_NE(formatErrors(noDuration).find("'dur' is a required property"), std::string::npos)
        << formatErrors(noDuration);
    json broken = simulated;
    for (double ts : {1e8, 1e8 + 5}) {
        broken["traceEvents"].push_back(
            {{"ph", "X"}, {"pid", 1}, {"tid", 1}, {"ts", ts}, {"dur", 10}, {"name", "x"}});
    }
    broken["traceEvents"].push_back(
        {{"ph", "i"}, {"s", "t"}, {"pid", 1}, {"tid", 77}, {"ts", 1}, {"name", "y"}});
    std::string e = formatErrors(broken);
    EXPECT_NE(e.find("overlaps its parent"), std::string::npos) << e;
    EXPECT_NE(e.find("thread 1/77 has no thread_name"), std::string::npos) << e;
}

// A capture keeps the log's own process, threads and clock, so that it lies beside a trace taken
// on the phone; a call still waiting is a slice open to the capture's end, named with its verdict.
TEST(PerfettoFormat, ACaptureKeepsTheLogsProcessThreadsAndClock) {
    std::ifstream in(std::string(RYX_LOGCAT_DATA) + "/threadtime_first_frame_waits.txt");
    std::stringstream file;
    file << in.rdbuf();
    std::vector<ryxtest::LogEntry> entries = ryxtest::entriesOfThreadtime(file.str());
    ASSERT_EQ(entries.size(), 12u);
    ryxtest::LogEntry later = entries.back();  // another process, 2.5 s on: the capture's end
    later.pid = later.tid = 1000;
    later.tag = "ActivityManager";
    later.message = "Displayed";
    later.sec += 2;
    later.nsec += 500000000;
    entries.push_back(later);
    auto sessions = readLogcat(ryxtest::formatCapture(entries, {"threadtime", "epoch"}), "c");
    json doc = traceOf(sessions);
    EXPECT_EQ(formatErrors(doc), "");

    ryxtest::LogEntry const& entered = entries[8];  // camera 0's "[f0] +", thread 845
    ASSERT_EQ(entered.tid, 845);
    double enteredUs = entered.sec * 1e6 + entered.nsec / 1e3;
    size_t found = 0;
    for (auto const& e : doc["traceEvents"]) {
        EXPECT_EQ(e["pid"], 812) << e.dump();
        if (e["ph"] == "X" && e["tid"] == 845) {
            ++found;
            EXPECT_EQ(e["name"], "f0 blocked");
            EXPECT_DOUBLE_EQ(e["ts"].get<double>(), enteredUs);
            EXPECT_DOUBLE_EQ(e["dur"].get<double>(), 2.5e6);
        }
    }
    EXPECT_EQ(found, 1u);
}
