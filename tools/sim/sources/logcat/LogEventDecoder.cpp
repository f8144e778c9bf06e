#include "sources/logcat/LogEventDecoder.h"

#include "sources/logcat/LibraryLine.h"

#include <algorithm>

namespace ryxsim {

namespace {

// What shows of a cut line could be the start of the helper's creation line
// ("(  78) [SyncHelper] needCropReplace(1)"), the one line of a creation at info level.
bool mayBeCreation(std::string_view text) {
    size_t open = text.find('[');
    if (!startsWith(text, "(") || open == std::string_view::npos) {
        return startsWith(text, "(");
    }
    std::string_view func = text.substr(open + 1);
    std::string_view creator = "SyncHelper] ";
    return startsWith(creator, func) || startsWith(func, creator);
}

// The cut text is the start of the helper's destructor line, which no frame's call writes.
bool destructorLine(std::string_view text) {
    size_t open = text.find(") [~");
    return startsWith(text, "(") && open != std::string_view::npos && text.find('[') == open + 2;
}

}  // namespace

LogClock LogEventDecoder::clock() const {
    LogClock clock;
    clock.form = static_cast<LogClock::Form>(mTimeForm);
    clock.digits = std::max(mDigits, 0);
    return clock;
}

void LogEventDecoder::line(std::string_view line) {
    ++mLineNo;
    mLastHeldOurs = holdsLibraryText(line);
    mLastText.clear();
    LogLine l;
    if (!mLongHeader.empty()) {
        // The message of a 'long' record: its header's fields, this line's text.
        std::string header = std::move(mLongHeader);
        mLongHeader.clear();
        parseLogLine(header, l);
        mCalendar.place(l);
        l.message = line;
        l.longHeader = false;
        parsed(l);
        return;
    }
    if (!parseLogLine(line, l)) {
        if (startsWith(line, "--------- beginning of ")) {
            reconnect(line);
        }
        bool blank = line.find_first_not_of(" \t\r") == std::string_view::npos;
        if (!blank && !startsWith(line, "--------- ") && mFirstNoise == 0) {
            mFirstNoise = mLineNo;
        }
        if (holdsLibraryText(line)) {
            cut(-1, "a library line cut short", line);
        }
        return;
    }
    ++mParsed;
    mCalendar.place(l);
    if (l.timeNs) {
        mLastTimeNs = std::max(mLastTimeNs.value_or(*l.timeNs), *l.timeNs);
        mTimeForm = mTimeForm == LogLine::TimeForm::None ? l.timeForm : mTimeForm;
        mDigits = mDigits < 0 ? l.fractionDigits : std::min(mDigits, l.fractionDigits);
    }
    if (l.longHeader) {
        mLongHeader.assign(line);
        return;
    }
    parsed(l);
}

// logcat names each buffer once when it starts; the same buffer named again is a new logcat
// printing the buffer from its start (adb reconnected).
void LogEventDecoder::reconnect(std::string_view separator) {
    std::string buffer(separator.substr(23));
    while (!buffer.empty() && (buffer.back() == '\r' || buffer.back() == ' ')) {
        buffer.pop_back();
    }
    if (!mBuffers.insert(buffer).second) {
        mBuffers = {buffer};
        mSink.reconnected();
    }
}

void LogEventDecoder::lastLineCut() {
    if (mLastHeldOurs) {
        cut(-1, "the capture's last line is cut short", mLastText);
    }
}

void LogEventDecoder::cut(int pid, std::string what, std::string_view text, int tid,
                          bool mayHideCreation) {
    if (mCutLine == mLineNo) {
        return;  // one gap a line
    }
    mCutLine = mLineNo;
    mSink.gap(LogGap{mLineNo, pid, tid, std::move(what), frameIn(text), !destructorLine(text),
                     mayHideCreation});
}

// logd's own lines where it left lines of a process out: "... expire N lines" (the buffer was
// full) and "... identical N lines" (repeats folded).
void LogEventDecoder::chatty(LogLine const& l) {
    std::string_view m = l.message;
    size_t at = m.find(" expire ");
    if (at == std::string_view::npos) {
        at = m.find(" identical ");
    }
    if (at == std::string_view::npos || m.find(" line", at) == std::string_view::npos) {
        return;
    }
    cut(l.pid, "logd left lines out (\"chatty: " + std::string(m.substr(at + 1)) + "\")", {});
}

// A parsed line: logd's gap, one of ours cut short, or one of ours handed on.
void LogEventDecoder::parsed(LogLine const& l) {
    // logd's line; without a tag (raw), known by its "uid=1047(cameraserver) ..." text.
    if (l.tag == "chatty" || (l.tag.empty() && startsWith(l.message, "uid="))) {
        chatty(l);
        return;
    }
    std::string_view func, rest;
    LineKind kind = classify(l, func, rest);
    mLastText.assign(l.message);
    if (kind == LineKind::Cut) {
        mLastHeldOurs = true;
        // A 'process' line ("L( UID: PID) message  (TAG)") cut before its tag reads as a
        // 'thread' line ("L( PID: TID) message"): its process is the second number.
        bool processShape = mOursWithoutTid && l.tid >= 0;
        cut(processShape ? l.tid : l.pid, "a library line cut short", l.message,
            processShape ? -1 : l.tid, mayBeCreation(l.message));
    }
    if (kind != LineKind::Ours) {
        return;
    }
    mLastHeldOurs = true;
    mOursWithoutTid = l.tid < 0;
    mSink.libraryLine(l, mLineNo, func, rest);
}

}  // namespace ryxsim
