#pragma once
// The lines of a capture as the events the session state machine (CaptureReader) acts on: a line
// of the library's, a gap (logd's chatty line, a line of ours cut short) and logcat starting
// again on a buffer it already printed (adb reconnected). It parses each line in whichever format
// logcat wrote it, joins a 'long' record's header to its message, places yearless dates in their
// year and learns how the capture prints its times. It knows nothing of sessions.

#include "model/Timeline.h"
#include "sources/logcat/LogCalendar.h"
#include "sources/logcat/LogLine.h"

#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace ryxsim {

// Where the capture may not show a line of ours. The session state machine puts it in the
// session of `pid` (-1: the latest session).
struct LogGap {
    int line = 0;
    int pid = -1;
    int tid = -1;  // the thread of the line cut, where the capture shows it
    std::string what;
    std::optional<int> frame;  // the frame the text that shows names
    bool framesCall = true;    // the cut text may be a frame's call (not the destructor's line)
    // What shows may be the start of the helper's creation line, at info level its only line.
    bool mayHideCreation = false;
};

// What the decoder hands on, in capture order. The views of a library line live until the call
// returns.
class LogEventSink {
  public:
    virtual ~LogEventSink() = default;
    virtual void libraryLine(LogLine const& l, int lineNo, std::string_view func,
                             std::string_view rest) = 0;
    virtual void gap(LogGap const& g) = 0;
    virtual void reconnected() = 0;
};

class LogEventDecoder {
  public:
    // `linesBefore`: the file's lines before the first one fed.
    LogEventDecoder(LogEventSink& sink, int linesBefore) : mSink(sink), mLineNo(linesBefore) {}

    void line(std::string_view line);
    // The last line fed had no line end: the capture was cut in it.
    void lastLineCut();

    int lines() const { return mLineNo; }
    int logLines() const { return mParsed; }
    int firstNoiseLine() const { return mFirstNoise; }  // 0: none
    // How the lines so far print their times.
    LogClock clock() const;
    std::optional<int64_t> lastTimeNs() const { return mLastTimeNs; }

  private:
    void parsed(LogLine const& l);
    void chatty(LogLine const& l);
    void reconnect(std::string_view separator);
    void cut(int pid, std::string what, std::string_view text, int tid = -1,
             bool mayHideCreation = false);

    LogEventSink& mSink;
    int mLineNo = 0, mParsed = 0, mFirstNoise = 0, mDigits = -1;
    LogLine::TimeForm mTimeForm = LogLine::TimeForm::None;
    std::optional<int64_t> mLastTimeNs;  // of any line: where the capture ends
    int mCutLine = 0;                    // the latest line named as a gap
    std::string mLastText;               // the text of the latest line, when it was parsed
    bool mLastHeldOurs = false;          // the latest line was, or held a piece of, one of ours
    bool mOursWithoutTid = false;        // the latest line of ours had no thread id
    std::string mLongHeader;             // a 'long' header whose message line comes next
    std::set<std::string> mBuffers;      // the buffers logcat named since it (re)started
    LogCalendar mCalendar;               // the years of the dates printed without one
};

}  // namespace ryxsim
