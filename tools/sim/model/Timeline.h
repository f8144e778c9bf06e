#pragma once
// The session timeline: what happened to every frame of one session, camera by camera, with the
// session's events, anomalies and figures. Sources fill it (RunSource.h: a scenario run or a
// trace replay; LogcatSource.h: a device log); sinks draw it (TextSink.h, JsonSink.h, SvgSink.h,
// PerfettoSink.h). Frames are folded in as they complete (foldFrame): their figures go into
// running statistics, and their records are kept in Timeline::frames only when they did not pass
// (or passed flagged) or are among the latest `detailFrames` frames. Memory grows with what is
// worth keeping, not with the length of the session.

#include "model/Calls.h"
#include "model/FrameOutcomes.h"
#include "model/Percentiles.h"

#include <NSCam/MRect.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
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
    // The source cannot tell: a capture without thread ids shows that some camera of the frame
    // was dropped, not which one. Never counted as passed.
    Undetermined,
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
    // The call as the capture shows it, every control it held (a system trace's verdict mark):
    // what a replay of the capture makes again. Absent when the capture does not hold them all.
    std::optional<CallRow> call;
};

struct FrameRecord {
    int frame = 0;
    int request = -1;
    std::vector<CameraCell> cells;   // in arrival order
    std::optional<int> firstTarget;  // the camera the others' start of frame is compared with
    std::optional<int64_t> toleranceUs;
    std::optional<int> mode;
    Refusal refusal = Refusal::None;
    std::vector<int> neverCame;  // cameras still awaited when the run or capture ended
    // Imported sessions: where the frame is in the capture (its first and last line) and the
    // log's own time of its first line (LogClock).
    std::optional<int> firstLine, lastLine;
    // Where the frame's trace points are in a system trace (its first and last line).
    std::optional<int> traceFirstLine, traceLastLine;
    std::optional<int64_t> logTimeNs;
    std::optional<int> logZoneS;  // the zone the capture printed that time in, when it shows one
    // Why an undetermined camera's verdict cannot be told (the capture's words).
    std::string undeterminedWhy;

    CameraCell* cell(int sensor);
    CameraCell const* cell(int sensor) const;
    // Start of frame of `sensor` minus that of the first target, when both are known.
    std::optional<int64_t> sofOffsetNs(int sensor) const;
};

// Some camera of the frame did not pass (or passed flagged), or never came: a frame the sinks
// explain.
bool unpassed(FrameRecord const& f);

// One camera's cell with its frame number, for walking one camera's lane.
struct SensorCell {
    int frame;
    CameraCell const* c;
};

WaitStats waitStats(std::vector<int64_t> ns);

struct SensorFigures {
    int sensor = 0;
    std::string label;
    int offered = 0, inSync = 0, unchecked = 0, outOfSync1 = 0, outOfSync2 = 0, outOfSync = 0,
        dropped = 0, blocked = 0, notRun = 0, undetermined = 0, masterFrames = 0;
    int cropOverrides = 0;
    int dropOwn = 0, dropMaster = 0, dropFlush = 0, dropRefused = 0, dropLeave = 0;
    WaitStats wait;  // time inside syncResultCheck
    double cpuUsPerCall = 0;
    int lastToArrive = 0;  // frames this camera made the others wait for
    WaitStats lateness;  // how long after the frame's first arrival this camera arrived, when last
};

// Folding state of a timeline (see foldFrame); sinks read the figures, not this.
struct TimelineTally {
    struct Sensor {
        SensorFigures figures;  // counts only
        Percentiles wait, lateness;
    };
    std::map<int, Sensor> sensors;
    Percentiles wait;
    std::map<std::pair<int, int>, Percentiles> skews;  // camera pair -> |sof difference|
    // camera pair -> the difference the library's check sees: whole milliseconds of each start
    std::map<std::pair<int, int>, Percentiles> comparedGaps;
    std::deque<FrameRecord> recent;  // the latest folded frames, passed or not
    std::vector<int> neverCompleted;
    bool any = false;
    int frames = 0, firstFrame = 0, lastFrame = 0;
};

// How a capture prints its times, so that a frame's time is given back as the log shows it.
struct LogClock {
    enum class Form { None, Date, DateWithYear, Seconds } form = Form::None;
    int digits = 3;  // of the fraction
};
// `ns` in UTC; with `zoneS` (seconds east of UTC) a date is printed in that zone, with its offset
// ("10-27 02:59:59.900 +0200"), as the line showed it.
std::string formatLogTime(LogClock const& clock, int64_t ns,
                          std::optional<int> zoneS = std::nullopt);

// Where a capture may not show everything: lines logd took out (chatty), a cut line, a capture
// that starts after its session did, time going back. The frames it touches are marked.
struct CaptureGap {
    int line = 0;
    std::string what;
    std::vector<int> frames;  // frames marked undetermined where they would have passed
};

// The start-of-frame differences of one pair of cameras over the frames that show both, and the
// tolerance that would have passed 99 % and 99.9 % of them. The library compares the whole
// milliseconds of each start, so that tolerance is in whole milliseconds and may exceed the
// difference itself by up to one (two starts 0.2 ms apart across a millisecond boundary need
// a tolerance of 1 ms).
struct PairSkew {
    int a = 0, b = 0;
    WaitStats skew;  // |sof(a) - sof(b)|
    double tolerance99Us = 0, tolerance999Us = 0;
};

// Passed frames kept with their whole record by default: the latest this many.
constexpr size_t kDefaultDetailFrames = 20000;
// What a timeline made without saying keeps (kDefaultDetailFrames). A process that needs every
// frame's record of what it reads (a capture made into a trace, replayed, compared frame by
// frame) raises it before reading.
size_t defaultDetailFrames();
void setDefaultDetailFrames(size_t frames);

// What only a run knows: its seed, the calls it made and what they cost.
struct RunFacts {
    std::optional<uint64_t> seed;
    size_t calls = 0;
    std::map<std::string, int> callsByKind;
    bool realtime = false;
    double wallSeconds = 0;
    double cpuSeconds = 0;
    double libCpuUsPerFrame = 0;
    double libCpuUsPerCall = 0;
};

// What only a capture knows: where the session is in the log and what the log may not show.
struct CaptureFacts {
    bool completionKnown = false;  // CameraCell::completed is known (a log with debug lines)
    // Every call, its arrival and the session's events are shown (a log with debug lines and
    // thread ids, or the library's system-trace points): what is not listed did not happen.
    bool callsSeen = false;
    int pid = -1;                        // the session's process
    std::string section;                 // the bugreport section it was read from, if any
    std::string build;                   // the bugreport's build fingerprint, if it gives one
    LogClock logClock;                   // how the capture prints times
    std::optional<int64_t> logOriginNs;  // the log time of time 0
    std::map<int, int> tidOf;            // sensor -> the log's thread id of its calls
    std::optional<int64_t> endNs;        // the capture's last time, on the session's clock
    std::vector<CaptureGap> gaps;
};

struct WhatIfFacts;  // WhatIf.h

struct Timeline {
    std::string name;
    std::string description;  // the scenario's or the capture's own words
    std::string source;       // "scenario FILE", "built-in scenario", "trace FILE", "logcat FILE"
    std::string clock = "steady clock, 1 ns";  // what the times are measured with
    bool imported = false;                     // read from a log: `capture` holds, `run` does not
    RunFacts run;
    CaptureFacts capture;
    std::map<int, std::string> threadOf;  // sensor -> thread name or id
    std::map<int, std::string> labels;    // sensor -> "0 wide"
    double fps = 30;
    int frameCount = 0;  // distinct frame numbers with a result or drop
    int firstFrame = 0, lastFrame = 0;
    double streamSeconds = 0;

    // Ascending frame number: every frame that did not pass or passed flagged, and the latest
    // `detailFrames` frames. A source either fills it and calls finishTimeline, or folds frames
    // in with foldFrame.
    std::vector<FrameRecord> frames;
    size_t detailFrames = defaultDetailFrames();
    FrameOutcomes outcomes;  // every frame, one byte a camera
    TimelineTally tally;     // running figures while frames are folded in

    std::vector<SensorFigures> sensors;  // derived by finishTimeline
    std::vector<PairSkew> skews;         // derived by finishTimeline
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
    // The session run again with other settings (explain --what-if, replay --set), when it was.
    std::shared_ptr<WhatIfFacts const> whatIf;

    std::string label(int sensor) const;
    // A frame's log time as the capture prints it; empty for runs and captures without times.
    std::string logTime(FrameRecord const& f) const;
    FrameRecord& frame(int number);  // found or inserted in order
    FrameRecord* findFrame(int number);
    std::vector<SensorCell> cellsOf(int sensor) const;
};

// Folds one complete frame (every camera that will call has its cell) into the figures and the
// outcomes, and keeps its record while it is worth keeping.
// Frames are folded in ascending frame number, each number once.
void foldFrame(Timeline& t, FrameRecord f);

// Derives the figures from the folded frames (first folding the records a source put in
// Timeline::frames itself, when it folded none). Sources call it once they are done.
void finishTimeline(Timeline& t);

// Gives the cameras of a finished timeline new labels ("1 tele"), in its figures, its blocked
// threads; the sinks' explanations use them.
void renameCameras(Timeline& t, std::map<int, std::string> const& labels);

// Every frame record that did not pass, or passed flagged.
std::vector<FrameRecord const*> unpassedFrames(Timeline const& t);

}  // namespace ryxsim
