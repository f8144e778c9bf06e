#pragma once
// Routes the lines of a capture to its sessions: the library's lines (LibraryLine.h) of each
// process go to that process's current session, a queue's creation line starts a new one; the
// gaps the capture shows (logd's chatty lines, cut lines) go to the session they fall in. The
// capture is fed line by line, so that it is never held whole.

#include "model/ParseError.h"
#include "model/Timeline.h"
#include "sources/LibraryMessages.h"
#include "sources/logcat/LogCalendar.h"
#include "sources/logcat/LogLine.h"
#include "sources/logcat/SessionBuilder.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ryxsim {

// A session entry for a capture, or a part of one, that shows no session of the library: its
// name, what it is and the note that says why, with the figures finished.
Timeline sessionlessTimeline(std::string const& file, std::string name, std::string description,
                             std::string note);

class CaptureReader {
  public:
    // `fileName` names the capture in the report and in errors; `section` labels its sessions
    // (a bugreport's "SYSTEM LOG"), empty for a plain capture; `linesBefore`: the file's lines
    // before the first one fed (the section's header and what came before it).
    explicit CaptureReader(std::string fileName, std::string section = "", int linesBefore = 0);

    // Following a stream: each frame is folded as soon as it is decided and handed to `folded`
    // (cameras labelled with `names`); a session a new one of its process replaces is finished
    // at once. Call before the first line.
    void follow(SessionBuilder::FrameSink folded, std::map<int, std::string> names);

    void line(std::string_view line);
    // The last line fed had no line end: the capture was cut in it.
    void lastLineCut();
    // Throws ParseError when nothing in the capture was a log line.
    std::vector<Timeline> finish();

    int lines() const { return mLineNo; }
    int logLines() const { return mParsed; }
    bool hasSessions() const { return !mSessions.empty(); }

  private:
    void ours(LogLine const& l);
    void chatty(LogLine const& l);
    // `tid`: the thread of the line cut, where the capture shows it.
    void cut(int pid, std::string what, std::string_view text = {}, int tid = -1);
    // The cut text is the start of the helper's destructor line, which no frame's call writes.
    static bool destructorLine(std::string_view text);
    static bool mayBeCreation(std::string_view text);
    void markSessionsThatWentOn();
    // Frames in flight at once, with a margin: a number further below the highest is another
    // session's.
    static constexpr int kInFlight = SessionBuilder::kStaleCall;
    SessionBuilder* sessionOf(int pid);
    static bool createsSession(std::string_view func, std::string_view rest,
                               SessionBuilder const* current);
    static bool restarts(LogLine const& l, std::string_view func, SessionBuilder const& current);
    void reconnect(std::string_view separator);

    std::string mFile, mSection;
    std::vector<std::unique_ptr<SessionBuilder>> mSessions;  // null once finished
    std::vector<Timeline> mFinished;                         // by session, while following
    SessionBuilder::FrameSink mFollow;
    std::map<int, std::string> mNames;
    LogClock clockSoFar() const;
    std::vector<int> mLastLineOf;
    std::unordered_map<int, size_t> mCurrent;  // pid -> session
    int mLineNo = 0, mParsed = 0, mFirstNoise = 0, mDigits = -1;
    LogLine::TimeForm mTimeForm = LogLine::TimeForm::None;
    std::optional<int64_t> mLastTimeNs;  // of any line: where the capture ends
    int mCutLine = 0;                    // the latest line named as a gap
    std::string mLastOursText;           // the text of the last line that was the library's, or cut
    bool mLastHeldOurs = false;          // the latest line was, or held a piece of, one of ours
    bool mOursWithoutTid = false;        // the latest line of ours had no thread id
    std::string mLongHeader;             // a 'long' header whose message line comes next
    std::set<std::string> mBuffers;      // the buffers logcat named since it (re)started
    LogCalendar mCalendar;               // the years of the dates printed without one
};

}  // namespace ryxsim
