#pragma once
// The session timeline: what happened to every frame of one session, camera by camera, with the
// session's events, anomalies and figures. Sources fill it (RunSource.h: a scenario run or a
// trace replay; LogcatSource.h: a device log); sinks draw it (TextSink.h, JsonSink.h, SvgSink.h,
// PerfettoSink.h). The per-frame records live in one place, Timeline::frames; everything else is
// either an event list or figures derived from the frames by finishTimeline().

#include "Model.h"

#include <NSCam/MRect.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ryxsim {

// How one camera's frame came out.
enum class Verdict {
    InSync,      // verdict true, RYX_FRAMESYNC_RESULT 0
    Unchecked,   // verdict true, no RYX_FRAMESYNC_RESULT written (sync off, single camera, ...)
    OutOfSync1,  // verdict true, RYX_FRAMESYNC_RESULT 1: delivered, flagged
    OutOfSync2,  // verdict false, RYX_FRAMESYNC_RESULT 2: failed by the tolerance check
    OutOfSync,   // out of sync, but whether 1 or 2 is unknown (a log does not carry the mode)
    Dropped,     // verdict false for another reason, or the sensor dropped the frame itself
    Blocked,     // the call never returned
    NotRun,      // the call was never made (its thread was blocked before), or never came
};
char const* verdictName(Verdict v);
bool passed(Verdict v);  // delivered and not flagged

enum class DropCause { None, Own, MasterDrop, Flush, Refused, Leave };
char const* dropCauseName(DropCause c);

// Why a frame was refused by the updaters (DropCause::Refused).
enum class Refusal { None, FrameInversion, TimeInversion, MissingTimestamp, Unknown };
char const* refusalName(Refusal r);

// One camera's part in one frame. Times are on the session's clock (Timeline::clock).
struct CameraCell {
    int sensor = 0;
    Verdict verdict = Verdict::NotRun;
    DropCause cause = DropCause::None;
    bool master = false;                       // bMasterCam was set
    bool completed = false;                    // this camera's call completed the frame
    std::optional<int64_t> arriveNs;           // the call entered the library
    std::optional<int64_t> releaseNs;          // the call returned
    std::optional<int64_t> sofNs;              // the start of frame the pipeline gave
    std::optional<NSCam::MRect> cropOverride;  // RYX_SENSOR_CROP_OVERRIDE written
    size_t row = 0;                            // trace row, for runs
};

struct FrameRecord {
    int frame = 0;
    int request = -1;
    std::vector<CameraCell> cells;   // in arrival order
    std::optional<int> firstTarget;  // the camera the others' start of frame is compared with
    std::optional<int64_t> toleranceUs;
    std::optional<int> mode;
    Refusal refusal = Refusal::None;
    std::vector<int> neverCame;  // cameras still awaited when the session ended
    std::string why;             // one line, set by finishTimeline for frames that did not pass

    CameraCell* cell(int sensor);
    CameraCell const* cell(int sensor) const;
    // Start of frame of `sensor` minus that of the first target, when both are known.
    std::optional<int64_t> sofOffsetNs(int sensor) const;
};

// One camera's cell with its frame number, for walking one camera's lane.
struct SensorCell {
    int frame;
    CameraCell const* c;
};

struct WaitStats {
    size_t count = 0;
    double p50Us = 0, p99Us = 0, maxUs = 0;
};
WaitStats waitStats(std::vector<int64_t> ns);

struct SensorFigures {
    int sensor = 0;
    std::string label;
    int offered = 0, inSync = 0, unchecked = 0, outOfSync1 = 0, outOfSync2 = 0, outOfSync = 0,
        dropped = 0, blocked = 0, notRun = 0, masterFrames = 0;
    int cropOverrides = 0;
    int dropOwn = 0, dropMaster = 0, dropFlush = 0, dropRefused = 0, dropLeave = 0;
    WaitStats wait;  // time inside syncResultCheck
    double cpuUsPerCall = 0;
    int lastToArrive = 0;  // frames this camera made the others wait for
    WaitStats lateness;  // how long after the frame's first arrival this camera arrived, when last
};

struct Timeline {
    std::string name;
    std::string description;  // the scenario's or the capture's own words
    std::string source;       // "scenario FILE", "built-in scenario", "trace FILE", "logcat FILE"
    std::optional<uint64_t> seed;
    std::string clock = "steady clock, 1 ns";  // what the times are measured with
    bool imported = false;                     // read from a log: no call figures, no CPU
    int pid = -1;                              // process of an imported session
    std::map<int, std::string> threadOf;       // sensor -> thread name or id
    std::map<int, std::string> labels;         // sensor -> "0 wide"
    double fps = 30;
    int frameCount = 0;  // distinct frame numbers with a result or drop
    int firstFrame = 0, lastFrame = 0;
    size_t calls = 0;
    std::map<std::string, int> callsByKind;
    bool realtime = false;
    double wallSeconds = 0;
    double streamSeconds = 0;
    double cpuSeconds = 0;
    double libCpuUsPerFrame = 0;
    double libCpuUsPerCall = 0;

    std::vector<FrameRecord> frames;  // ascending frame number: the only per-frame store

    std::vector<SensorFigures> sensors;  // derived by finishTimeline
    WaitStats wait;                      // all syncResultCheck calls

    // Events.
    struct Event {
        int frame = -1;
        int sensor = -1;
        std::optional<int64_t> atNs;
    };
    std::vector<Event> flushes;                      // sensor -1 when not known
    std::vector<Event> masterDrops;                  // the dropping master
    std::vector<Event> leaves;                       // the leaving sensor
    std::vector<std::pair<int, int>> cropSets;       // (frame, request)
    std::vector<std::pair<int, int>> masterChanges;  // (first frame, master)
    // Anomalies.
    std::vector<LoggedAnomaly> frameInversions, timeInversions, missingTimestamps;
    std::vector<int> neverCompleted;  // frames with a call that never returned or never came
    struct Blocked {
        int sensor;
        std::string label, call;
        int frame, request;
        double seconds;
    };
    std::vector<Blocked> blocked;
    std::string fatal;               // the broken rule, in plain words
    std::string fatalText;           // the library's own fatal message
    std::vector<std::string> notes;  // what the source could not see
    int exitStatus = 0;

    std::string label(int sensor) const;
    FrameRecord& frame(int number);  // found or inserted in order
    FrameRecord* findFrame(int number);
    std::vector<SensorCell> cellsOf(int sensor) const;
};

// Derives the figures, the lateness and the per-frame explanations from the frames. Sources call
// it once they are done.
void finishTimeline(Timeline& t);

// Every frame record that did not pass, or passed flagged, with its explanation.
std::vector<FrameRecord const*> unpassedFrames(Timeline const& t);

}  // namespace ryxsim
