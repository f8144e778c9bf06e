#pragma once
// One session (one queue of one process) rebuilt from its lines of a capture. The reader hands
// it the library's lines of its process in capture order, and the gaps it finds between them;
// finish() resolves every frame and returns the timeline. Calls are told apart by thread id; a
// line whose camera is known only by its thread waits until the thread's camera is known.
// Following a stream, settle() resolves and folds frames as soon as no line can change them, so
// that memory stays bounded over hours; a capture read whole gives the same timeline either way.

#include "model/Timeline.h"
#include "sources/LibraryMessages.h"
#include "sources/logcat/LogLine.h"

#include <climits>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ryxsim {

class SessionBuilder {
  public:
    // `line`: the capture line of the session's first line; `created`: that line created it.
    SessionBuilder(std::string const& file, int pid, int line, bool created);

    void onLine(LogLine const& l, int line, std::string_view func, std::string_view rest);
    // Something the capture lost at `line` (logd's chatty lines, a cut line naming `frame`).
    // `tid`: the thread whose line it was, when the capture shows it (-1: any thread's).
    void gap(int line, std::string what, std::optional<int> frame = std::nullopt, int tid = -1,
             bool touchesCalls = true);
    // Sees each frame as it is folded into the timeline, with its verdicts and explanation.
    using FrameSink = std::function<void(Timeline const&, FrameRecord const&)>;

    // `clock`: how the capture prints times (Form::None when it has none); `folded` sees the
    // frames not folded before.
    Timeline finish(int lastLine, LogClock clock, FrameSink const& folded = nullptr);
    // The session's end is in the capture: the next session of its process started. (Its
    // destructor line says so too.) Calls still open then returned without a line.
    void endShown() { mEndShown = true; }
    // Resolves and folds the frames so far behind the latest (kSettleLag frames) that no line of
    // theirs is still to come: no call or update of theirs under way, no gap that may still touch
    // them. Cheap when there is nothing to settle; call it after every line. `clock`: how the
    // capture prints times so far.
    void settle(FrameSink const& folded, LogClock clock);
    // Labels for the cameras in explanations written while following ("1 tele").
    void nameCameras(std::map<int, std::string> const& names) { mNames = names; }
    // The capture stops showing the session here: a new logcat prints the buffer again.
    void reconnected() { mReconnected = true; }
    bool wasReconnected() const { return mReconnected; }
    // A cut line at `line` may have been the helper's creation line.
    void mayHideCreation(int line) { mCutCreationLine = mCutCreationLine.value_or(line); }
    int pid() const { return t.capture.pid; }
    // The lines printed again after the reconnect go on past this session's last frame: the
    // session went on while the capture did not show it.
    void wentOn() { mWentOn = true; }
    // The lowest frame number a line named (-1 before any).
    int lowestFrame() const { return mLowestFrame; }
    // One of the session's first frames is in [lo, hi].
    bool startsWithFrameIn(int lo, int hi) const {
        auto it = mFirstFrames.lower_bound(lo);
        return it != mFirstFrames.end() && *it <= hi;
    }
    // The latest log time of the session's lines, if they carry times.
    std::optional<int64_t> lastTimeNs() const { return mLastTimeNs; }
    // The highest frame number a line named so far (-1 before any).
    int highestFrame() const { return mHighestFrame; }
    // Made by the queue's creation line and no frame's line since: the creation's other lines
    // (the helper's, at info level) are still this session's.
    bool fresh() const { return mCreated && mHighestFrame < 0; }
    // The line cannot be of this session's frame `frame`: a second timestamp check, a check
    // after the master's refusal (the check runs first), a missing start of frame after a
    // check, or a refusal naming a camera the check did not compare. Another session's frame.
    bool contradicts(std::string_view func, std::string_view message, int frame) const;

    // A frame is settled once the stream is this many frames past it: more than the library's
    // ten frames in flight and its 20-frame arrival record.
    static constexpr int kSettleLag = 2 * kArrivalRecord;
    // A call this many frames behind the highest is over: at most ten frames are in flight.
    static constexpr int kStaleCall = kFramesInFlight + 2;
    static constexpr char kStartedBefore[] = "the capture starts after the session did";

  private:
    // What the lines said about one camera's part in a frame, beyond its cell.
    struct CellFlags {
        bool entered = false;     // its syncResultCheck entry line is in the capture
        bool enqueued = false;    // reached the rendezvous
        bool released = false;    // and came out of it
        bool needDrop = false;    // found its frame in the drop queue or flush list on the way out
        bool inDropList = false;  // named by the frame's drop-queue entry: dropped on its way out
        bool dropOnArrival = false;
        bool flushedOnArrival = false;  // entered syncResultCheck and never reached the rendezvous
        bool ownDrop = false;
        bool left = false;
        bool syncOff = false;    // no rendezvous in a run of such frames: RYX_FRAMESYNC_ENABLE off
        bool cutInCall = false;  // the capture ends while its call is on its way to the rendezvous
    };
    struct FrameFlags {
        bool ready = false;          // the updaters ran (onEvent type 0)
        bool dropEvent = false;      // dropped while live (onEvent type 1)
        bool masterDrop = false;     // the master's notifyDrop put it into the drop queue
        bool refused = false;        // the updaters said no
        bool masterRefused = false;  // the master's updater did: an inversion or a missing time
        // Dropped while live, and the dropping thread's next line is not the master's drop:
        // a flush dropped it.
        bool flushShown = false;
        std::optional<bool> syncOK;
        std::set<int> checked;  // the cameras its timestamp check compared
    };
    struct Call {
        int frame;
        std::optional<int64_t> at;
        bool enqueued;
    };
    // A line whose camera is known only by its thread, kept until the thread's camera is known.
    struct Deferred {
        enum { Crop, FlushedArrival, NeedDrop, MasterDrop } kind;
        int tid, frame;
        std::optional<int64_t> at;
        NSCam::MRect rect;
    };
    struct Span {
        int first = 0, last = 0;
        std::optional<int64_t> firstTimeNs;
        std::optional<int> firstZoneS;
    };
    struct PendingGap {
        int line;
        std::string what;
        int highestBefore;       // the highest frame number seen before it
        std::set<int> inFlight;  // frames with a call or an update under way at it
        bool oneThread = false;  // a line of one known thread: only its calls are touched
        bool noCall = false;     // a line no frame's call writes: no frame is touched
    };

    // Line handlers, by the function that wrote the line; true when the line was theirs.
    bool onCheckLine(LogLine const& l, std::string_view func, std::string const& s);
    bool onEnqueLine(LogLine const& l, std::string_view func, std::string const& s,
                     std::string_view rest);
    bool onUpdaterLine(LogLine const& l, std::string_view func, std::string const& s);
    bool onRefusalLine(LogLine const& l, std::string const& s, std::string_view rest);
    bool onDropLine(LogLine const& l, std::string_view func, std::string const& s);
    void fatal(LogLine const& l, std::string_view text);
    std::string fatalInFlight(int frame);

    // Finishing steps.
    // Each step works on the frames below `bound` not yet resolved, folded or marked.
    void closeOpenCalls();
    std::set<int> takeSyncOff(int bound);
    void attributeDeferred(std::set<int> const& syncOff, int bound);
    void resolveFrames(int bound);
    void resolve(FrameRecord& f);
    void markUndecidable(FrameRecord& f, CameraCell& c, CellFlags const& cf, bool hidden);
    bool droppedWhole(FrameFlags const& ff) const;
    static bool dropWhileLive(FrameFlags const& ff);
    bool dropHidden(int frame);
    void countCallsWithoutCamera(int bound);
    void placeFrames(int bound);
    void resolveBelow(int bound);
    int settleBound() const;
    std::pair<int, int> framesUpTo(PendingGap const& g) const;
    bool gapReady(PendingGap const& g, int bound);
    int lowestTouched(PendingGap const& g) const;
    void markGaps(int bound, bool all);
    void markGap(PendingGap const& g);
    void markEnd(int lastLine);
    bool touchedByGap(int frame) const;
    void noteDropperMovedOn(LogLine const& l, std::string const& s);
    bool dropperMovedOn(int frame, FrameFlags const& ff) const;
    bool cutWhileChecked(FrameRecord const& f);
    void foldBelow(int bound, FrameSink const& folded);
    void labelCameras();
    void addNotes(LogClock clock);
    bool shownWhole(int frame, CameraCell const& c);

    std::optional<int64_t> at(LogLine const& l) const {
        return l.timeNs ? std::optional<int64_t>(*l.timeNs - mOrigin) : std::nullopt;
    }
    void seen(int frame);
    FrameRecord& frameAt(int frame);
    FrameRecord& work(int frame);
    FrameRecord* findWork(int frame);
    CameraCell& cell(int frame, int cam);
    std::optional<int> camOf(int tid) const;
    void learn(int tid, int cam);
    void arrive(LogLine const& l, int frame, int cam);
    void closeCall(int tid);
    void closeIfOver(LogLine const& l, std::string_view func);

    Timeline t;                        // figures, events and the frames folded so far
    std::map<int, FrameRecord> mWork;  // frames not folded yet
    int mResolvedBelow = INT_MIN;      // frames below are resolved
    int mFoldedBelow = INT_MIN;        // and below this, folded
    size_t mGapsMarked = 0;            // mGaps before this are marked
    int mLastMaster = -1;
    int mLastNoRendezvous = INT_MIN;  // the latest resolved frame whose calls met no rendezvous
    size_t mNoRendezvousCount = 0, mSyncOffCount = 0, mUnattributedCount = 0;
    bool mAnyOutOfSync = false;
    int mLateLines = 0;  // lines of frames already folded
    std::map<int, std::string> mNames;
    int64_t mOrigin = 0;
    bool mOriginSet = false;
    std::optional<int64_t> mLastTimeNs;
    std::optional<int64_t> mLineTimeNs;  // of the line being read, on the log's clock
    std::optional<int> mLineZoneS;       // the zone it was printed in
    int mLine = 0;
    int mFirstLine = 0;
    int mHighestFrame = -1;
    bool mCreated = false;
    bool mSawDebug = false;  // debug or verbose lines: every call is shown
    bool mSawInfo = false;   // info lines: the helper's creation is shown
    bool mFinishing = false;
    bool mEndShown = false;
    bool mReconnected = false;  // the capture stopped showing it at a reconnect
    bool mWentOn = false;       // and the session went on after it
    std::optional<int> mCutCreationLine;
    int mLowestFrame = -1;
    std::set<int> mFirstFrames;  // the first frame numbers named, kept past settling
    bool mAtEnd = false;  // finishing: no line of the session is to come  // cells made while
                          // resolving are not lines of the capture
    std::unordered_map<int, int> mCamOfTid;
    std::unordered_map<int, Call> mCalls;    // tid -> syncResultCheck in progress
    std::unordered_map<int, int> mUpdating;  // tid -> frame whose updaters run on it
    std::unordered_map<int, int> mDropping;  // tid -> frame it just dropped while live
    std::unordered_map<int, int> mPruned;    // tid -> frame last pushed out of the record
    std::map<int, FrameFlags> mFrames;
    std::map<std::pair<int, int>, CellFlags> mCells;  // (frame, camera)
    std::map<int, Span> mSpans;                       // frame -> its lines in the capture
    std::set<int> mLive;                              // frames in the queue, by what the lines say
    std::set<int> mCams;
    std::vector<int> mSessionCams;  // the cameras the session was created with
    std::vector<int> mLastTargets;
    std::vector<Deferred> mDeferred;
    std::vector<PendingGap> mGaps;
    bool mNoThreads = false;      // a line without a thread id: calls cannot be told apart
    std::set<int> mUnattributed;  // frames with a drop line no camera can be given
    std::set<int> mLastChecked;   // the cameras of the latest timestamp check resolved
    std::set<int> mRunEdges;      // first and last frames of runs without a rendezvous
    std::set<int> mCutInCall;     // frames with a call the capture's end cut before its rendezvous
    std::map<int, int> mEntries;  // without thread ids: frame -> syncResultCheck calls entered
    int mLastEntry = -1;          // and the frame of the latest call entered
    std::vector<std::string> mErrors;
    std::string mMissingWithoutFrame;
};

}  // namespace ryxsim
