#pragma once
// One session of the library as a system trace shows it: its calls with their verdict marks,
// its flushes, master drops and sensor leaves, the warnings inside its calls, and where the
// trace may not show everything. finish() turns it into a timeline (SystemTraceReader.h says
// how a verdict and a cause are told, and when they cannot be).

#include "model/Timeline.h"

#include <climits>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ryxsim {

struct TraceCall {
    int frame = 0, cam = 0;
    bool drop = false;  // the sensor's own drop, not a check
    int line = 0, tid = 0;
    std::optional<int64_t> beginNs, endNs;
    std::string words;  // the verdict mark's words; empty when the trace holds none
    std::optional<int64_t> sofNs, toleranceUs;
    std::optional<int> mode;
    bool master = false;
    // The call's controls as its verdict mark gives them (sof, exposure, tolerance, mode, asked
    // master, sync ids, ...), when the mark holds them all (controlsShown).
    CallRow row;
    bool controlsShown = false;
};

class TraceSession {
  public:
    TraceSession(std::string file, int pid, int firstLine);

    int pid() const { return mPid; }
    void created(unsigned long key, std::vector<int> cameras);
    void ended(int line);
    // No later point belongs to it: its end was shown, or the trace lost events after it.
    bool closed() const { return mEnded || mLoss; }
    // Its first points come after events the trace lost (line `line`): they may continue the
    // session before them or start a new one, which the trace cannot tell.
    void afterLoss(int line) { mAfterLoss = line; }

    // A call begun (its section) or first seen (its verdict mark): its index.
    int addCall(TraceCall call);
    TraceCall& call(int index) { return mCalls[static_cast<size_t>(index)]; }
    // Reads a verdict mark's name into `call`; false when it is none.
    static bool readVerdict(std::string_view name, TraceCall& call);
    // Reads one "; piece" of a verdict mark at the start of `rest`: its length, or -1.
    static long readControlPiece(std::string_view rest, TraceCall& call);

    void flush(int frame, int64_t ns, int tid);
    void masterDrop(int frame, int cam, int64_t ns);
    void leave(int cam, int64_t ns);
    // A warning, error or fatal mark; `callFrame` is the frame of the call it was made in.
    void message(char severity, std::string_view text, std::optional<int> callFrame);
    // The trace lost events at `line` (`what` says how), while this session was open.
    void lost(int line, std::string what);

    // The session's timeline, its frames in Timeline::frames, not yet finished (finishTimeline).
    Timeline build();

  private:
    struct Loss {
        int line;
        std::string what;
    };
    void fillFrames(Timeline& t) const;
    void resolve(FrameRecord& f, std::vector<TraceCall const*> const& calls) const;
    CameraCell cellOf(TraceCall const& c) const;
    // Why frame `frame`'s drops cannot be told from what the trace holds; "" when they can.
    std::string unsure(int frame) const;
    void addGaps(Timeline& t) const;

    std::string mFile;
    int mPid;
    int mFirstLine, mLastLine = 0;
    bool mCreated = false, mEnded = false;
    unsigned long mKey = 0;
    std::vector<int> mCameras;
    std::vector<TraceCall> mCalls;
    std::set<int> mFlushed, mMasterDropped;
    std::vector<Timeline::Event> mFlushes, mMasterDrops, mLeaves;
    std::vector<int> mFlushTids;                 // the thread of each flush
    std::map<int, std::set<Refusal>> mRefusals;  // frame -> what the warnings inside it said
    std::vector<LoggedAnomaly> mAnomalies;
    std::string mFatal;
    std::vector<std::string> mErrors;
    std::optional<Loss> mLoss;      // the events lost after its last point
    std::optional<int> mAfterLoss;  // the line of the loss before its first point
    int mFirstFrame = INT32_MAX, mLastFrame = INT32_MIN;
};

}  // namespace ryxsim
