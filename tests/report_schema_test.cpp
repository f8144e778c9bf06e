// The JSON report's layout, tools/report.schema.json, checked by python3-jsonschema against real
// reports (a simulated run, imported captures of one session and several) and broken ones.

#include "SchemaValidation.h"
#include "sim_run_support.h"
#include "sinks/JsonSink.h"
#include "sources/logcat/LogcatSource.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

using namespace ryxsim;

namespace {

std::string errors(nlohmann::json const& doc, std::string const& def = "") {
    return ryxtest::schemaErrorsOf(std::string(RYX_REPORT_SCHEMA) + def, doc);
}

}  // namespace

TEST(ReportSchema, RealReportsConformAndBrokenOnesDoNot) {
    nlohmann::json simulated = reportJson({ryxtest::defaultScenarioTimeline()});
    ASSERT_FALSE(simulated["unpassed"].empty());
    EXPECT_EQ(errors(simulated), "");

    std::string const data = RYX_LOGCAT_DATA;
    for (char const* capture : {"threadtime_debug_noisy.txt", "time_default_two_processes.txt",
                                "host_fatal_duplicate.txt", "brief_fatal_in_flight.txt"}) {
        SCOPED_TRACE(capture);
        auto sessions = readLogcatFile(data + "/" + capture);
        nlohmann::json imported = reportJson(sessions);
        EXPECT_EQ(errors(imported), "");
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
    EXPECT_NE(errors(broken), "");
    EXPECT_EQ(errors(broken, "#/$defs/session"),
              "$: Additional properties are not allowed ('extra' was unexpected)\n"
              "$.events.flushes[1]: 'f3' is not of type 'integer'\n"
              "$.sensors[1].frames[0].verdict: 'fine' is not one of ['in sync', 'unchecked', "
              "'out of sync (1)', 'out of sync (2)', 'out of sync', 'dropped', 'blocked', "
              "'not run', 'undetermined']\n"
              "$.unpassed[0]: 'why' is a required property\n");
    // A single session is not wrapped in an array; an array holds two or more.
    EXPECT_NE(errors(nlohmann::json::array({simulated})), "");
}
