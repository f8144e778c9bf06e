#pragma once
// What a run shows: per-sensor figures, timing, anomalies; as text, as JSON.

#include "Model.h"

#include <nlohmann/json.hpp>

#include <iosfwd>
#include <string>
#include <vector>

namespace ryxsim {

// How one sensor's frame came out.
enum class Verdict {
    InSync,      // verdict true, RYX_FRAMESYNC_RESULT 0
    Unchecked,   // verdict true, no RYX_FRAMESYNC_RESULT written (sync off, single camera, ...)
    OutOfSync1,  // verdict true, RYX_FRAMESYNC_RESULT 1: delivered, flagged
    OutOfSync2,  // verdict false, RYX_FRAMESYNC_RESULT 2: failed by the tolerance check
    Dropped,     // verdict false for another reason, or the sensor dropped the frame itself
    Blocked,     // the call never returned
    NotRun,      // the call was never made (its thread was blocked before)
};
char const* verdictName(Verdict v);

enum class DropCause { None, Own, MasterDrop, Flush, Refused };
char const* dropCauseName(DropCause c);

struct FrameCell {
    int frame = 0;
    size_t row = 0;
    Verdict verdict = Verdict::NotRun;
    DropCause cause = DropCause::None;
    bool master = false;  // bMasterCam was set
};

struct WaitStats {
    size_t count = 0;
    double p50Us = 0, p99Us = 0, maxUs = 0;
};
WaitStats waitStats(std::vector<int64_t> ns);

struct SensorFigures {
    int sensor = 0;
    std::string label;
    int offered = 0, inSync = 0, unchecked = 0, outOfSync1 = 0, outOfSync2 = 0, dropped = 0,
        blocked = 0, notRun = 0, masterFrames = 0;
    int cropOverrides = 0;  // result calls whose HalControl got RYX_SENSOR_CROP_OVERRIDE
    int dropOwn = 0, dropMaster = 0, dropFlush = 0, dropRefused = 0;
    WaitStats wait;
    double cpuUsPerCall = 0;
    std::vector<FrameCell> cells;  // one per result or drop row, in call order
};

struct Report {
    std::string name;
    std::string source;  // "scenario FILE", "built-in scenario", "trace FILE"
    std::optional<uint64_t> seed;
    double fps = 30;
    int frames = 0;  // distinct frame numbers with a result or drop
    int firstFrame = 0, lastFrame = 0;
    size_t calls = 0;
    std::map<std::string, int> callsByKind;
    bool realtime = false;
    double wallSeconds = 0;
    double streamSeconds = 0;
    double cpuSeconds = 0;
    std::vector<SensorFigures> sensors;
    WaitStats wait;               // all syncResultCheck calls
    double libCpuUsPerFrame = 0;  // library CPU of all sensors' calls, per frame
    double libCpuUsPerCall = 0;
    // Events, for the timeline.
    std::vector<int> flushes;                        // frames
    std::vector<std::pair<int, int>> masterDrops;    // (frame, sensor)
    std::vector<std::pair<int, int>> leaves;         // (frame or -1, sensor)
    std::vector<std::pair<int, int>> cropSets;       // (frame, request)
    std::vector<std::pair<int, int>> masterChanges;  // (first frame, requested master)
    // Anomalies.
    std::vector<LoggedAnomaly> frameInversions, timeInversions, missingTimestamps;
    std::vector<int> neverCompleted;  // frames with a call that never returned
    struct Blocked {
        int sensor;
        std::string label, call;
        int frame, request;
        double seconds;
    };
    std::vector<Blocked> blocked;
    int exitStatus = 0;
};

// Classifies every call and adds up the figures.
Report buildReport(Trace const& trace, RunResult const& run);

void printReport(std::ostream& out, Report const& report);
nlohmann::json reportJson(Report const& report);

}  // namespace ryxsim
