#include "TruthSessions.h"
#include "GeneratedTrace.h"

#include "Watchdog.h"
#include "sources/run/FlowCheck.h"
#include "sources/run/LogSetup.h"
#include "sources/run/RunSource.h"
#include "sources/run/Runner.h"
#include "sources/scenario/Scenario.h"

#include <NSCam/ULogger.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>

namespace ryxtest {

namespace {

using nlohmann::json;
using Rng = std::mt19937_64;

int pick(Rng& rng, int lo, int hi) {  // inclusive
    return std::uniform_int_distribution<int>(lo, hi)(rng);
}

bool chance(Rng& rng, double p) {
    return std::bernoulli_distribution(p)(rng);
}

json sensorsOf(Rng& rng, std::vector<int>& ids) {
    std::vector<int> pool = {0, 1, 2, 3, 4, 5};
    std::shuffle(pool.begin(), pool.end(), rng);
    ids.assign(pool.begin(), pool.begin() + pick(rng, 2, 4));
    std::sort(ids.begin(), ids.end());
    json sensors = json::array();
    for (int id : ids) {
        sensors.push_back({{"id", id},
                           {"sof_offset_us", pick(rng, -300, 300)},
                           {"jitter_us", pick(rng, 0, 300)},
                           {"exposure_us", pick(rng, 5000, 20000)}});
    }
    return sensors;
}

// Master switches (one with a time inversion), sync switched off for a while, mode changes.
json rangesOf(Rng& rng, std::vector<int> const& ids, int frames) {
    json ranges = json::array();
    if (chance(rng, 0.5)) {
        int at = pick(rng, frames / 4, frames / 2);
        int master = ids[pick(rng, 1, static_cast<int>(ids.size()) - 1)];
        ranges.push_back({{"frames", {at, frames - 1}}, {"master", master}});
        if (chance(rng, 0.5)) {  // its exposure lags behind: a time inversion
            ranges.push_back(
                {{"frames", {at, at}}, {"sensors", {master}}, {"exp_offset_us", -60000}});
        }
    }
    if (chance(rng, 0.4)) {
        int at = pick(rng, 5, frames - 15);
        ranges.push_back({{"frames", {at, at + pick(rng, 1, 10)}}, {"enable", 0}});
    }
    if (chance(rng, 0.3)) {
        int at = pick(rng, 0, frames - 20);
        ranges.push_back({{"frames", {at, at + pick(rng, 5, 30)}}, {"mode", 1 - pick(rng, 0, 1)}});
    }
    return ranges;
}

json eventsOf(Rng& rng, std::vector<int> const& ids, int frames) {
    json events = json::array();
    for (int n = pick(rng, 0, 2); n > 0; --n) {
        events.push_back({{"kind", "flush"},
                          {"frame", pick(rng, 3, frames - 3)},
                          {"sensor", ids[pick(rng, 0, static_cast<int>(ids.size()) - 1)]}});
    }
    if (chance(rng, 0.4)) {  // the master's own drop (the first sensor is master before a switch)
        events.push_back(
            {{"kind", "drop"}, {"frame", pick(rng, 3, frames / 4)}, {"sensor", ids[0]}});
    }
    if (chance(rng, 0.3)) {
        events.push_back({{"kind", "leave"},
                          {"frame", pick(rng, frames / 2, frames - 2)},
                          {"sensor", ids.back()}});
    }
    return events;
}

std::string scenarioText(Rng& rng, int index) {
    std::vector<int> ids;
    int frames = pick(rng, 40, 160);
    int first = chance(rng, 0.8) ? 0 : pick(rng, 1, 5000);
    json s = {{"name", "truth" + std::to_string(index)},
              {"seed", pick(rng, 1, 1 << 30)},
              {"frames", frames},
              {"first_frame", first},
              {"session_key", index + 1},
              {"sensors", sensorsOf(rng, ids)}};
    s["control"] = {
        {"tolerance_us", pick(rng, 400, 2000)}, {"mode", pick(rng, 0, 1)}, {"master", ids[0]}};
    s["ranges"] = rangesOf(rng, ids, frames);
    s["events"] = eventsOf(rng, ids, frames);
    for (auto& r : s["ranges"]) {  // numbers of the session's frames
        r["frames"] = {r["frames"][0].get<int>() + first,
                       std::min(r["frames"][1].get<int>(), frames - 1) + first};
    }
    for (auto& e : s["events"]) {
        e["frame"] = e["frame"].get<int>() + first;
    }
    s["random"] = {{"out_of_tolerance", pick(rng, 0, 6)}, {"slave_drops", pick(rng, 0, 4)}};
    if (chance(rng, 0.4)) {
        s["crop_sets"] = {{"every_frames", pick(rng, 10, 40)}, {"sensor", ids[0]}};
    }
    return s.dump();
}

// A start of frame of 0: the updaters find no timestamp.
void dropTimestamps(Rng& rng, ryxsim::Trace& trace) {
    for (int n = chance(rng, 0.3) ? pick(rng, 1, 2) : 0; n > 0 && !trace.rows.empty(); --n) {
        auto& row = trace.rows[pick(rng, 0, static_cast<int>(trace.rows.size()) - 1)];
        if (row.kind == ryxsim::CallKind::Result) {
            row.sofNs = 0;
        }
    }
}

bool runsCleanly(ryxsim::Trace const& trace) {
    ryxsim::FlowReport check = ryxsim::checkCallFlow(trace);
    return check.violations.empty() && check.warnings.empty() &&
           check.traceOrder.kind == ryxsim::FlowOutcome::Kind::Completes;
}

// One session through the library, its log at debug level; false when it did not complete.
bool runSession(std::string const& text, uint64_t seed, TrueSession& out) {
    Rng rng(seed);
    ryxsim::Scenario s;
    try {
        s = ryxsim::parseScenario(text, "truth.json");
    } catch (ryxsim::ParseError const& e) {
        ADD_FAILURE() << "a generated scenario is refused: " << e.what() << "\n" << text;
        return false;
    }
    ryxsim::Trace trace = ryxtest::generateTrace(s, s.seed);
    dropTimestamps(rng, trace);
    if (!runsCleanly(trace)) {
        return false;
    }
    ryxsim::configureLogging(ryxsim::LogLevel::Quiet);
    NSCam::Utils::ULog::ULogger::sDetailsLevel = 5;
    std::ostringstream log, systemTrace;
    ryxsim::RunOptions options;
    options.logcat = &log;
    options.systemTrace = &systemTrace;
    // In trace order a seed gives the same session every time; RYX_TRUTH_FREE lets the sensor
    // threads race as pipelines do, for a campaign that looks for what only a race shows.
    options.ordered = std::getenv("RYX_TRUTH_FREE") == nullptr;
    Watchdog dog("truth session " + s.name, std::chrono::seconds(60));
    ryxsim::RunResult result = ryxsim::runTrace(trace, options);
    dog.disarm();
    ryxsim::configureLogging(ryxsim::LogLevel::Quiet);
    if (!result.blocked.empty()) {
        return false;
    }
    out.scenario = text;
    for (auto const& row : trace.rows) {
        if (row.kind == ryxsim::CallKind::Result && row.sofNs == 0) {
            out.noTimestamp.insert(row.frame);
        }
    }
    out.truth = ryxsim::timelineFromRun(trace, result);
    out.log = entriesOfThreadtime(log.str());
    out.systemTrace = systemTrace.str();
    for (auto& f : out.truth.frames) {  // the run knows a refusal, the calls say why
        if (f.refusal == ryxsim::Refusal::Unknown && out.noTimestamp.count(f.frame) != 0) {
            f.refusal = ryxsim::Refusal::MissingTimestamp;
        }
    }
    return true;
}

// The session's lines moved to start at `startNs`, its threads given ids of their own.
int64_t place(TrueSession& s, int64_t startNs, int& nextTid) {
    if (s.log.empty()) {
        return startNs;
    }
    int64_t first = s.log.front().sec * 1000000000 + s.log.front().nsec;
    std::map<int, int> tids;
    int64_t last = startNs;
    for (auto& e : s.log) {
        int64_t ns = e.sec * 1000000000 + e.nsec - first + startNs;
        e.sec = ns / 1000000000;
        e.nsec = ns % 1000000000;
        auto [it, added] = tids.try_emplace(e.tid, nextTid);
        nextTid += added ? 1 : 0;
        e.tid = it->second;
        last = std::max(last, ns);
    }
    return last;
}

}  // namespace

TrueProcessLog runTrueSessions(uint64_t seed, int64_t startSec) {
    Rng rng(seed);
    TrueProcessLog out;
    out.seed = seed;
    int count = pick(rng, 1, 3);
    int process = 0, nextTid = 3000 + pick(rng, 0, 500);
    int64_t at = startSec * 1000000000;
    for (int i = 0; i < count; ++i) {
        TrueSession s;
        for (int tries = 0; tries < 20 && s.log.empty(); ++tries) {
            std::string text = scenarioText(rng, i);
            if (!runSession(text, rng(), s)) {
                s.log.clear();
            }
        }
        if (s.log.empty()) {
            continue;
        }
        size_t kept = s.log.size();
        if (i + 1 < count && chance(rng, 0.25)) {  // the process dies; a new one takes over
            kept = static_cast<size_t>(pick(rng, 1, static_cast<int>(s.log.size()) - 1));
        }
        s.process = process;
        process += kept < s.log.size() || chance(rng, 0.2) ? 1 : 0;
        at = place(s, at, nextTid) + int64_t{1000000000} * pick(rng, 2, 60);
        out.keptEntries.push_back(kept);
        out.sessions.push_back(std::move(s));
    }
    return out;
}

SeedRange seedsFrom(char const* name, uint64_t count) {
    SeedRange r{1, count};
    if (char const* v = std::getenv(name)) {
        unsigned long long first = 0, n = 0;
        if (std::sscanf(v, "%llu:%llu", &first, &n) == 2) {
            r = {first, n};
        }
    }
    return r;
}

}  // namespace ryxtest
