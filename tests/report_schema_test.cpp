// The JSON report's layout, tools/report.schema.json, checked against real reports: a simulated
// run and imported captures (one session and several).

#include "JsonSchemaCheck.h"
#include "sim_run_support.h"
#include "sinks/JsonSink.h"
#include "sources/logcat/LogcatSource.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

using namespace ryxsim;

namespace {

ryxtest::JsonSchemaCheck const& schema() {
    static ryxtest::JsonSchemaCheck const check(
        nlohmann::json::parse(std::ifstream(RYX_REPORT_SCHEMA)));
    return check;
}

std::string joined(std::vector<std::string> const& v) {
    std::string s;
    for (auto const& e : v) {
        s += e + "\n";
    }
    return s;
}

}  // namespace

TEST(ReportSchema, RealReportsConformAndBrokenOnesDoNot) {
    nlohmann::json simulated = reportJson({ryxtest::defaultScenarioTimeline()});
    ASSERT_FALSE(simulated["unpassed"].empty());
    EXPECT_EQ(joined(schema().errors(simulated)), "");

    std::string const data = RYX_LOGCAT_DATA;
    for (char const* capture : {"threadtime_debug_noisy.txt", "time_default_two_processes.txt",
                                "host_fatal_duplicate.txt", "brief_fatal_in_flight.txt"}) {
        SCOPED_TRACE(capture);
        auto sessions = readLogcatFile(data + "/" + capture);
        nlohmann::json imported = reportJson(sessions);
        EXPECT_EQ(joined(schema().errors(imported)), "");
        // What the tool writes, streamed, is the same JSON.
        std::ostringstream streamed;
        writeReportJson(streamed, sessions);
        EXPECT_EQ(nlohmann::json::parse(streamed.str()), imported);
    }

    nlohmann::json broken = simulated;
    broken["unpassed"][0].erase("why");
    broken["sensors"][1]["frames"][0]["verdict"] = "fine";
    broken["events"]["flushes"].push_back("f3");
    broken["extra"] = 1;
    EXPECT_EQ(joined(schema().errors(broken)), "$: matches 0 of the oneOf alternatives\n");
    EXPECT_EQ(joined(schema().errors(broken, "#/$defs/session")),
              "$: unexpected member extra\n"
              "$.events.flushes[1]: not of type \"integer\"\n"
              "$.sensors[1].frames[0].verdict: \"fine\" not one of [\"in sync\",\"unchecked\","
              "\"out of sync (1)\",\"out of sync (2)\",\"out of sync\",\"dropped\",\"blocked\","
              "\"not run\"]\n"
              "$.unpassed[0]: lacks \"why\"\n");
    // A single session is not wrapped in an array; an array holds two or more.
    EXPECT_NE(joined(schema().errors(nlohmann::json::array({simulated}))), "");
}
