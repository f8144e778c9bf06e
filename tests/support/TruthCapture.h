#pragma once
// The library's log of true sessions (TruthSessions.h) printed as a phone gives it, through
// liblog's own formatter in any logcat format and modifiers, at debug, info or warning level,
// then changed as real captures are: other processes' and threads' lines, another buffer's lines
// stepping back in time, separators, logd's chatty lines, a cut line, a capture that starts or
// ends mid-session, a reconnect that prints part of the buffer again, a bugreport around it, a
// year end without the year, a summer-time change with the zone, CRLF, UTF-16.
//
// Every capture line keeps where it came from, and every library line the capture lost is
// known: what the judge (TruthJudge.h) needs to tell a true statement from a false one.

#include "TruthSessions.h"

#include <random>
#include <set>
#include <string>
#include <vector>

namespace ryxtest {

struct CaptureForm {
    std::vector<std::string> formats;  // logcat -v words: "threadtime", "usec", ...
    int level = 5;                     // 5 debug, 4 info (the platform's default), 2 warnings
    bool otherLines = false, stepBack = false, chatty = false, cutLine = false, cutLast = false;
    bool startMid = false, endMid = false, reconnect = false, bugreport = false;
    bool yearEnd = false, zoneChange = false, crlf = false, utf16 = false;

    bool hasThreadIds() const;
    bool hasPids() const;
    std::string name() const;      // "threadtime,usec" (the format words)
    std::string describe() const;  // the format, the level and every change made
};

CaptureForm randomForm(std::mt19937_64& rng);

// Where a capture line came from: a library line of a session (its index in the session's log),
// or anything else (session -1). Piece: the capture's part before (0) or after (1) a reconnect.
struct LineOrigin {
    int session = -1;
    int entry = -1;
    int piece = 0;
};

// What one piece of the capture holds of one session.
struct Shown {
    size_t from = 0, to = 0;  // the session's log entries in the piece's window
    std::set<size_t> lost;    // entries in the window the capture lost (chatty, a cut line)
    bool any() const { return to > from; }
};

struct Capture {
    CaptureForm form;
    std::string text;
    std::vector<LineOrigin> origin;         // by capture line, 1-based (origin[0] unused)
    std::vector<std::vector<Shown>> shown;  // [piece][session]
    int pieces = 1;
};

// Prints the sessions' logs in `form`; `rng` decides where the changes fall.
Capture makeCapture(TrueProcessLog const& log, CaptureForm const& form, std::mt19937_64& rng);

// The lowest priority a capture at `level` (2 warnings, 4 info, 5 debug) shows.
int minimumPriority(int level);

// The time the sessions' log starts at for a form (a year end and a summer-time change need
// their dates).
int64_t captureStartSec(CaptureForm const& form, std::mt19937_64& rng);

// For a form across the year's end or the end of summer time: the sessions' lines moved so that
// the crossing falls between two library lines of a session, a `seed`'s own line. Other forms
// are left as they are.
void crossMidSession(TrueProcessLog& log, CaptureForm const& form, uint64_t seed);

}  // namespace ryxtest
