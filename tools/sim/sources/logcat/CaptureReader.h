#pragma once
// The session state machine of a capture: its lines, decoded into events (LogEventDecoder), go
// to their sessions. The library's lines of each process go to that process's current session;
// a queue's creation line, or frame numbers that start again, begin a new one; the gaps the
// capture shows (logd's chatty lines, cut lines) go to the session they fall in; a reconnect
// ends every session. The capture is fed line by line, so that it is never held whole.

#include "model/ParseError.h"
#include "model/Timeline.h"
#include "sources/LibraryMessages.h"
#include "sources/logcat/LogEventDecoder.h"
#include "sources/logcat/LogLine.h"
#include "sources/logcat/SessionBuilder.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ryxsim {

// A session entry for a capture, or a part of one, that shows no session of the library: its
// name, what it is and the note that says why, with the figures finished.
Timeline sessionlessTimeline(std::string const& file, std::string name, std::string description,
                             std::string note);

class CaptureReader : private LogEventSink {
  public:
    // `fileName` names the capture in the report and in errors; `section` labels its sessions
    // (a bugreport's "SYSTEM LOG"), empty for a plain capture; `linesBefore`: the file's lines
    // before the first one fed (the section's header and what came before it).
    explicit CaptureReader(std::string fileName, std::string section = "", int linesBefore = 0);

    // Following a stream: each frame is folded as soon as it is decided and handed to `folded`
    // (cameras labelled with `names`); a session a new one of its process replaces is finished
    // at once. Call before the first line.
    void follow(SessionBuilder::FrameSink folded, std::map<int, std::string> names);

    void line(std::string_view line) { mDecoder.line(line); }
    // The last line fed had no line end: the capture was cut in it.
    void lastLineCut() { mDecoder.lastLineCut(); }
    // Throws ParseError when nothing in the capture was a log line.
    std::vector<Timeline> finish();

    int lines() const { return mDecoder.lines(); }
    int logLines() const { return mDecoder.logLines(); }
    bool hasSessions() const { return !mSessions.empty(); }

  private:
    void libraryLine(LogLine const& l, int lineNo, std::string_view func,
                     std::string_view rest) override;
    void gap(LogGap const& g) override;
    void reconnected() override;

    void markSessionsThatWentOn();
    // Frames in flight at once, with a margin: a number further below the highest is another
    // session's.
    static constexpr int kInFlight = SessionBuilder::kStaleCall;
    SessionBuilder* sessionOf(int pid);
    static bool createsSession(std::string_view func, std::string_view rest,
                               SessionBuilder const* current);
    static bool restarts(LogLine const& l, std::string_view func, SessionBuilder const& current);

    std::string mFile, mSection;
    std::vector<std::unique_ptr<SessionBuilder>> mSessions;  // null once finished
    std::vector<Timeline> mFinished;                         // by session, while following
    SessionBuilder::FrameSink mFollow;
    std::map<int, std::string> mNames;
    std::vector<int> mLastLineOf;
    std::unordered_map<int, size_t> mCurrent;  // pid -> session
    LogEventDecoder mDecoder;
};

}  // namespace ryxsim
