#pragma once
// Source: a run of the library (a scenario or a replayed trace, see Runner.h) as a timeline.

#include "model/Calls.h"
#include "model/Timeline.h"
#include "sources/run/Runner.h"

#include <map>
#include <set>

namespace ryxsim {

// Builds the timeline of a run from its calls as they come back (a CallSink for runCalls): one
// camera cell per result or drop row, arrival and release from the call's start and duration,
// events from the rows, anomalies from what the library logged. A frame is folded into the
// timeline (foldFrame) once the rows have moved kOpenFrames frame numbers past it, or at the
// end: a row that comes later than that for its frame is counted as a frame of its own.
class RunTimeline : public CallSink {
  public:
    static constexpr int kOpenFrames = 256;

    RunTimeline(SessionInfo const& session, std::vector<int> const& sensors,
                size_t detailFrames = kDefaultDetailFrames);
    void logged(LoggedAnomaly const& a) override;
    void call(size_t index, CallRow const& row, CallOutcome const& out) override;
    // The run is over: the frames still open are folded and the timeline comes back finished.
    Timeline finish(RunResult const& run);

  private:
    // A frame whose cameras may still come. The verdicts of calls that returned false wait for
    // the frame to close: a flush or the master's drop of the frame can come after them.
    struct OpenFrame {
        FrameRecord record;
        std::vector<std::pair<size_t, bool>> refused;  // (cell, RESULT 2 written)
    };

    void addEvent(CallRow const& row, CallOutcome const& out);
    void addCell(size_t index, CallRow const& row, CallOutcome const& out);
    void closeBefore(int64_t frame);
    void close(OpenFrame& open);

    Timeline mT;
    std::map<int, OpenFrame> mOpen;
    std::set<int> mFlushed, mMasterDropped;
    std::set<int> mMasterSeen;  // recent frames whose requested master is known
    int mLastMaster = INT32_MIN;
    std::map<int, std::pair<int64_t, int>> mCpu;  // sensor -> (ns, calls)
    int64_t mCpuAll = 0;
    size_t mReturned = 0;
};

// The timeline of a run whose outcomes were all kept (runTrace).
Timeline timelineFromRun(Trace const& trace, RunResult const& run,
                         size_t detailFrames = kDefaultDetailFrames);

}  // namespace ryxsim
