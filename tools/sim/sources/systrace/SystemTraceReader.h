#pragma once
// Source: a system trace (`atrace` text, TraceLine.h) read back into session timelines from the
// library's own trace points (TracedSyncHelper.h): every other process's and event's lines are
// skipped. The trace gives each call's verdict at its end, so every frame is rebuilt as a debug
// log rebuilds it, with debug logging off:
//   - a session starts at its creation mark; the library's points of a process seen before one
//     form a session that started before the trace;
//   - a call's verdict mark gives the camera's verdict, start of frame, controls and master;
//   - a frame that was not passed takes its cause as the run does: a flush of the frame, else
//     the master's drop of it, else RESULT 2, else a refusal, whose kind the warning or error
//     marks inside the frame's calls give.
// What a trace cannot show is "undetermined", never guessed: a call the trace ends in or whose
// verdict it lost, and a frame not passed near where the trace starts, ends or lost events
// (its flush or master drop may be in what is missing). Each of these is a gap of the timeline.

#include "model/Timeline.h"
#include "sources/systrace/TraceLine.h"
#include "sources/systrace/TraceSession.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ryxsim {

class SystemTraceReader {
  public:
    explicit SystemTraceReader(std::string fileName);
    ~SystemTraceReader();

    // Takes line `lineNo` of the capture; false when it is no trace line (the caller may read it
    // as something else).
    bool line(std::string_view line, int lineNo);
    // Some line was a trace line.
    bool any() const { return mAny; }
    // The sessions whose trace points the trace holds, in the order they started, not yet
    // finished (TraceAndLog.h joins them with a log's and finishes them).
    std::vector<Timeline> finish();
    // What to report for a trace without any of the library's points.
    Timeline noSession() const;
    // The trace is a file apart from the capture: its sessions name `name`.
    void setFile(std::string name) { mFile = std::move(name); }

  private:
    struct Open {  // a section open on a thread
        TraceSession* session = nullptr;
        int call = -1;  // index into the session's calls, -1: another section
    };

    bool header(std::string_view line);
    TraceSession& sessionOf(int pid, int lineNo);
    void begin(TraceLine const& t, int lineNo);
    // A trace point of the library: false when the name is none of its names.
    bool libraryPoint(TraceLine const& t, int lineNo, Open& open);
    void end(TraceLine const& t);
    void lost(std::string what, int lineNo);
    // The innermost call open on thread `tid`.
    TraceCall* openCall(int tid);

    std::string mFile;
    bool mAny = false;
    int mLastLine = 0;
    bool mTracer = false;  // the "# tracer:" header was read
    std::vector<std::unique_ptr<TraceSession>> mSessions;
    std::map<int, TraceSession*> mCurrent;       // pid -> its latest session
    std::map<int, std::vector<Open>> mSections;  // tid -> its open sections
    std::optional<int> mLostAt;                  // the line of the latest events lost
    long long mOverwritten = 0;                  // the buffer's oldest events, overwritten
};

}  // namespace ryxsim
