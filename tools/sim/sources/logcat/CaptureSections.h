#pragma once
// The lines of a capture handed to the log readers. A plain capture is one log. A bugreport
// (dumpstate's text, known by its "== dumpstate:" banner) holds its logs in sections
// ("------ SYSTEM LOG (logcat -v threadtime ...) ------", "------ LAST LOGCAT (...) ------" of the
// previous boot), each read as a log of its own whose sessions carry the section's name, with
// line numbers of the whole file. Tombstones, in the text or as entries of a bugreport zip, are
// scanned for the library's "Abort message": the rule it broke goes to the session of that
// process, or to a session of its own when no log shows the process.

#include "model/Timeline.h"
#include "sources/logcat/CaptureReader.h"
#include "sources/systrace/SystemTraceReader.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace ryxsim {

class CaptureSections {
  public:
    // `fileName` names the capture in the report and in errors.
    explicit CaptureSections(std::string fileName);

    // Following a stream (CaptureReader::follow), in every log read. Call before the first line.
    void follow(SessionBuilder::FrameSink folded, std::map<int, std::string> names);

    void line(std::string_view line);
    // A line of a system trace kept apart from the capture (its file `name`, given to the first).
    void traceLine(std::string_view line, std::string const& name);
    // The last line fed had no line end.
    void lastLineCut();
    // A line of a tombstone kept apart from the capture (`where`: its entry in the archive).
    void tombstoneLine(std::string_view line, std::string const& where);
    // The sessions of every log read. Throws ParseError when a plain capture holds no log line.
    std::vector<Timeline> finish();

  private:
    enum class Kind { Unknown, Plain, Bugreport };
    struct Abort {
        std::string where;  // "line 812" or "FS/data/tombstones/tombstone_00, line 9"
        int pid = -1, tid = -1;
        std::string process, message;
    };
    struct TombstoneScan {
        int pid = -1, tid = -1;
        std::string process;
    };

    void decide(std::string_view line);
    std::unique_ptr<CaptureReader> reader(std::string section = "", int linesBefore = 0) const;
    void bugreportLine(std::string_view line);
    void closeSection();
    void scanTombstone(std::string_view line, TombstoneScan& scan, std::string const& where);
    void attach(std::vector<Timeline>& sessions, Abort const& a) const;
    std::vector<Timeline> finishLogs();
    std::vector<Timeline> finishAll();

    std::string mFile;
    Kind mKind = Kind::Unknown;
    std::vector<std::string> mHead;  // the first lines, until the kind is known
    int mLineNo = 0;
    std::unique_ptr<CaptureReader> mReader;
    SystemTraceReader mTrace;  // a system trace's lines, in the capture or as the capture
    int mTraceLineNo = 0;      // of a trace apart from the capture
    std::vector<std::string> mSectionsRead;
    std::vector<Timeline> mSessions;
    TombstoneScan mTextScan;                           // tombstones in the bugreport's text
    std::map<std::string, TombstoneScan> mEntryScans;  // tombstone entries of a zip
    std::map<std::string, int> mEntryLines;
    std::vector<Abort> mAborts;
    SessionBuilder::FrameSink mFollow;
    std::map<int, std::string> mNames;
    std::string mBuild;  // a bugreport's build fingerprint
};

}  // namespace ryxsim
