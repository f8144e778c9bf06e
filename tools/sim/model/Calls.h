#pragma once
// The simulator's model of a session: the pipeline calls to make (a trace), and what each call
// got back from the library (its outcome).
//
// A scenario is expanded into a trace (Scenario.h); a trace file is parsed into one (TraceIo.h);
// the runner (Runner.h) makes the calls, one thread per sensor, each sensor's calls in trace order.

#include <NSCam/MRect.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ryxsim {

// What a pipeline thread calls.
enum class CallKind {
    Result,  // [getSensorCropRegion(input)] then syncResultCheck(input, output)
    Drop,    // notifyDrop(input): this sensor drops the frame
    Flush,   // notifyDrop(frame, 0): the frame is dropped for everybody
    Leave,   // notifyDropBySensor(sensor): the sensor leaves the session
    Crop,    // setSensorCropRegion(request, crops)
};

char const* kindName(CallKind kind);
std::optional<CallKind> kindFromName(std::string const& name);

// One pipeline call. For Result and Drop rows the control fields become the call's metadata:
// an unset optional means the tag is absent.
struct CallRow {
    int sensor = 0;
    CallKind kind = CallKind::Result;
    int frame = -1;
    int request = -1;
    int64_t sofNs = 0;
    int64_t expNs = 0;
    std::optional<int32_t> master;                // RYX_DUALZOOM_REAL_MASTER (requested)
    std::optional<std::vector<int32_t>> syncIds;  // RYX_FRAMESYNC_ID
    bool required = false;                        // RYX_FRAMESYNC_REQUIRED present
    std::optional<int32_t> enable;                // RYX_FRAMESYNC_ENABLE
    std::optional<int64_t> toleranceUs;           // RYX_FRAMESYNC_TOLERANCE
    std::optional<int32_t> mode;                  // RYX_FRAMESYNC_MODE
    std::optional<std::vector<int32_t>> msList;   // RYX_MW_MASTER_SLAVE_LIST
    std::optional<int32_t> intent;                // CAPTURE_INTENT (AppControl)
    bool getCrop = false;                         // Result: call getSensorCropRegion first
    std::map<int, NSCam::MRect> crops;            // Crop: the set, by sensor id
    int sourceLine = 0;                           // line in the trace file (0 when generated)
    // Columns whose value the trace's source did not hold ("?" in a trace made from a capture):
    // the call cannot be made until they are given.
    std::set<std::string> unknown;

    bool operator==(CallRow const& o) const;
    bool operator!=(CallRow const& o) const { return !(*this == o); }
};

struct CameraSpec {
    int id = 0;
    std::string name;
    NSCam::MRect activeArray{0, 0, 4000, 3000};
    float focalLength = 0.0f;
};

struct SessionInfo {
    std::string name = "trace";
    uint64_t sessionKey = 1;
    bool allowCropReplace = true;
    double fps = 30.0;
    std::vector<CameraSpec> cameras;  // by ascending id

    CameraSpec const* camera(int id) const;
    std::string sensorLabel(int id) const;  // "0 wide", or "3" when the camera has no name
};

struct Trace {
    SessionInfo session;
    std::vector<CallRow> rows;  // global order; each sensor's calls are made in this order

    // Ids of every sensor that makes a call, ascending, plus cameras without calls.
    std::vector<int> sensors() const;
};

// The calls of a session one at a time, in trace order: a scenario expanded as it goes
// (ScenarioRows in Scenario.h) or a trace held in memory (TraceRows). A long session is never
// held whole.
class RowSource {
  public:
    virtual ~RowSource() = default;
    virtual SessionInfo const& session() const = 0;
    // Ids of every sensor that makes a call, ascending, plus cameras without calls.
    virtual std::vector<int> sensors() const = 0;
    // The next call; false once the calls are over.
    virtual bool next(CallRow& row) = 0;
};

// The rows of a trace; the trace must outlive the source.
class TraceRows : public RowSource {
  public:
    explicit TraceRows(Trace const& trace) : mTrace(trace) {}
    SessionInfo const& session() const override { return mTrace.session; }
    std::vector<int> sensors() const override { return mTrace.sensors(); }
    bool next(CallRow& row) override;

  private:
    Trace const& mTrace;
    size_t mNext = 0;
};

// What one call got back. Metadata is read after the call's thread has finished.
struct CallOutcome {
    bool started = false;
    bool returned = false;
    bool verdict = false;  // the call's bool result
    int64_t startNs = 0;   // when the call was made, from the start of the run
    int64_t wallNs = 0;    // time inside the library (mostly waiting in the rendezvous)
    int64_t cpuNs = 0;     // thread CPU time inside the library
    // Result rows, as written by the library:
    std::optional<int64_t> syncResult;         // RYX_FRAMESYNC_RESULT in HalDynamic
    std::optional<int32_t> halMaster;          // RYX_DUALZOOM_REAL_MASTER in HalDynamic
    std::optional<int32_t> appMaster;          // RYX_APP_REAL_MASTER in AppDynamic
    bool masterCam = false;                    // bMasterCam
    std::optional<NSCam::MRect> cropOverride;  // RYX_SENSOR_CROP_OVERRIDE in HalControl
    std::optional<NSCam::MRect> activeArray;   // PHYSICAL_ACTIVE_ARRAY_REGION in AppDynamic
    std::optional<float> focalLength;          // LENS_FOCAL_LENGTH in AppDynamic

    // Same verdict and same frame metadata written (the master, the timestamp verdict and the
    // physical metadata). The crop override is left out: a frame served while a new crop set
    // arrives may get either set, as in a pipeline.
    bool sameResultAs(CallOutcome const& o) const;
};

// One warning or error the library logged that the report lists.
struct LoggedAnomaly {
    enum class Kind { FrameInversion, TimeInversion, MissingTimestamp } kind;
    int frame = -1;
    int master = -1;
    std::string text;
};

// A thread that was still inside the library when the run gave up waiting.
struct BlockedThread {
    int sensor = 0;
    size_t row = 0;  // index into Trace::rows
    double seconds = 0;
    CallKind kind = CallKind::Result;  // the call it is blocked in
    int frame = -1, request = -1;
};

struct RunResult {
    std::vector<CallOutcome> outcomes;  // one per trace row
    std::vector<BlockedThread> blocked;
    std::vector<LoggedAnomaly> logged;
    size_t returned = 0;  // calls that returned
    double wallSeconds = 0;
    double cpuSeconds = 0;  // process CPU time of the run
    std::string fatal;      // set when the library aborted (only seen by the abort hook)
};

}  // namespace ryxsim
