#pragma once
// Random multi-camera sessions run through the real library, each with what really happened to
// every frame (the run's own timeline) and the library's own log lines at debug level. They are
// the truth a diagnosis of their capture is judged against (TruthJudge.h).
//
// A seed gives the same sessions every time: the scenario, its random events and the mutations
// of its calls come from it; only the log's times and thread ids come from the run.

#include "LogcatFormats.h"
#include "model/Timeline.h"

#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace ryxtest {

// One queue's life, from the helper's creation to its last call.
struct TrueSession {
    std::string scenario;       // the scenario text (JSON) it ran, for a failure's message
    ryxsim::Timeline truth;     // every frame and camera as the library decided it
    std::vector<LogEntry> log;  // the library's lines, at debug level, in the order written
    std::string systemTrace;    // the library's system-trace points, as atrace prints them
    int process = 0;            // sessions with the same process share a pid
    // Frames a camera sent without a start of frame: refused for a missing timestamp, which the
    // run's own record cannot tell from an unknown refusal.
    std::set<int> noTimestamp;
};

// A process's sessions one after the other; a process that dies gives way to a new one.
struct TrueProcessLog {
    uint64_t seed = 0;
    std::vector<TrueSession> sessions;  // in time order
    // Sessions cut short by their process's death: index -> entries of its log kept.
    std::vector<size_t> keptEntries;  // per session; log.size() when it was not cut
};

// Runs 1 to 3 random sessions (2 to 4 sensors; out-of-sync frames, slave and master drops,
// flushes, sensors leaving, inversions, missing timestamps, crop calls, sync switched off and
// on), in one or two processes. Sessions whose calls break the library's call contract or block
// are drawn again. Log times start at `startSec` (seconds since 1970), with a pause between
// sessions.
TrueProcessLog runTrueSessions(uint64_t seed, int64_t startSec);

// The seeds a truth test runs: FIRST:COUNT from the environment variable `name`, else
// 1:`count`.
struct SeedRange {
    uint64_t first = 1;
    uint64_t count = 0;
};
SeedRange seedsFrom(char const* name, uint64_t count);

}  // namespace ryxtest
