#include "sources/logcat/CaptureReader.h"

#include "sources/logcat/LibraryLine.h"

#include <algorithm>

namespace ryxsim {

Timeline sessionlessTimeline(std::string const& file, std::string name, std::string description,
                             std::string note) {
    Timeline t;
    t.imported = true;
    t.name = std::move(name);
    t.source = "logcat " + file;
    t.description = std::move(description);
    t.notes.push_back(std::move(note));
    finishTimeline(t);
    return t;
}

CaptureReader::CaptureReader(std::string fileName, std::string section, int linesBefore)
    : mFile(std::move(fileName)), mSection(std::move(section)), mLineNo(linesBefore) {}

void CaptureReader::follow(SessionBuilder::FrameSink folded, std::map<int, std::string> names) {
    mFollow = std::move(folded);
    mNames = std::move(names);
}

LogClock CaptureReader::clockSoFar() const {
    LogClock clock;
    clock.form = static_cast<LogClock::Form>(mTimeForm);
    clock.digits = std::max(mDigits, 0);
    return clock;
}

void CaptureReader::line(std::string_view line) {
    ++mLineNo;
    mLastHeldOurs = holdsLibraryText(line);
    mLastOursText.clear();
    LogLine l;
    if (!mLongHeader.empty()) {
        // The message of a 'long' record: its header's fields, this line's text.
        std::string header = std::move(mLongHeader);
        mLongHeader.clear();
        parseLogLine(header, l);
        mCalendar.place(l);
        l.message = line;
        l.longHeader = false;
        ours(l);
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
    ours(l);
}

// logcat names each buffer once when it starts; the same buffer named again is a new logcat
// printing the buffer from its start (adb reconnected): the sessions so far end there, and what
// follows, re-printed lines included, belongs to sessions of their own.
void CaptureReader::reconnect(std::string_view separator) {
    std::string buffer(separator.substr(23));
    while (!buffer.empty() && (buffer.back() == '\r' || buffer.back() == ' ')) {
        buffer.pop_back();
    }
    if (!mBuffers.insert(buffer).second) {
        mBuffers = {buffer};
        for (auto const& [pid, index] : mCurrent) {
            if (mSessions[index]) {
                mSessions[index]->reconnected();
            }
        }
        mCurrent.clear();
    }
}

void CaptureReader::lastLineCut() {
    if (mLastHeldOurs) {
        cut(-1, "the capture's last line is cut short", mLastOursText);
    }
}

SessionBuilder* CaptureReader::sessionOf(int pid) {
    if (pid < 0) {
        return mSessions.empty() ? nullptr : mSessions.back().get();
    }
    auto it = mCurrent.find(pid);
    return it == mCurrent.end() ? nullptr : mSessions[it->second].get();
}

void CaptureReader::cut(int pid, std::string what, std::string_view text, int tid) {
    if (mCutLine == mLineNo) {
        return;  // one gap a line
    }
    mCutLine = mLineNo;
    if (SessionBuilder* s = sessionOf(pid)) {
        s->gap(mLineNo, std::move(what), frameIn(text), tid, !destructorLine(text));
    }
}

// What shows of a cut line could be the start of the helper's creation line
// ("(  78) [SyncHelper] needCropReplace(1)"), the one line of a creation at info level.
bool CaptureReader::mayBeCreation(std::string_view text) {
    size_t open = text.find('[');
    if (!startsWith(text, "(") || open == std::string_view::npos) {
        return startsWith(text, "(");
    }
    std::string_view func = text.substr(open + 1);
    std::string_view creator = "SyncHelper] ";
    return startsWith(creator, func) || startsWith(func, creator);
}

bool CaptureReader::destructorLine(std::string_view text) {
    size_t open = text.find(") [~");
    return startsWith(text, "(") && open != std::string_view::npos && text.find('[') == open + 2;
}

// logd's own lines where it left lines of a process out: "... expire N lines" (the buffer was
// full) and "... identical N lines" (repeats folded).
void CaptureReader::chatty(LogLine const& l) {
    std::string_view m = l.message;
    size_t at = m.find(" expire ");
    if (at == std::string_view::npos) {
        at = m.find(" identical ");
    }
    if (at == std::string_view::npos || m.find(" line", at) == std::string_view::npos) {
        return;
    }
    cut(l.pid, "logd left lines out (\"chatty: " + std::string(m.substr(at + 1)) + "\")");
}

// The helper's creation: the queue's line (debug), else the helper's own (info), which follows
// the queue's in the same creation.
bool CaptureReader::createsSession(std::string_view func, std::string_view rest,
                                   SessionBuilder const* current) {
    if (func == "SyncQueue" && startsWithMessage(rest, RYX_MSG_QUEUE_CREATED)) {
        return true;
    }
    return func == "SyncHelper" && startsWithMessage(rest, RYX_MSG_NEED_CROP_REPLACE) &&
           (current == nullptr || !current->fresh());
}

// Frame numbers that start again below the session's: a new session whose creation the capture
// does not show. Only the lines of a frame's own calls and updaters count (the queue's
// housekeeping names frames long gone): their frame is in flight, and at most ten are, so none
// is more than a few frames below the highest named so far.
bool CaptureReader::restarts(LogLine const& l, std::string_view func,
                             SessionBuilder const& current) {
    std::optional<int> frame = inFlightFrame(l, func);
    // A frame's updaters run once in a session, in a fixed order.
    bool again = frame && current.contradicts(func, l.message, *frame);
    // A number below the highest after the session was silent for seconds: frames in flight
    // complete within a few frame times.
    constexpr int64_t kSilenceNs = 2000000000;
    bool afterSilence = frame && *frame < current.highestFrame() && l.timeNs &&
                        current.lastTimeNs() && *l.timeNs - *current.lastTimeNs() > kSilenceNs;
    return frame && (*frame < current.highestFrame() - kInFlight || again || afterSilence);
}

// A parsed line: handed to its session when it is one of the library's.
void CaptureReader::ours(LogLine const& l) {
    // logd's line; without a tag (raw), known by its "uid=1047(cameraserver) ..." text.
    if (l.tag == "chatty" || (l.tag.empty() && startsWith(l.message, "uid="))) {
        chatty(l);
        return;
    }
    std::string_view func, rest;
    LineKind kind = classify(l, func, rest);
    mLastOursText.assign(l.message);
    if (kind == LineKind::Cut) {
        mLastHeldOurs = true;
        // A 'process' line ("L( UID: PID) message  (TAG)") cut before its tag reads as a
        // 'thread' line ("L( PID: TID) message"): its process is the second number.
        bool processShape = mOursWithoutTid && l.tid >= 0;
        int pid = processShape ? l.tid : l.pid;
        cut(pid, "a library line cut short", l.message, processShape ? -1 : l.tid);
        if (SessionBuilder* s = sessionOf(pid); s != nullptr && mayBeCreation(l.message)) {
            s->mayHideCreation(mLineNo);
        }
    }
    if (kind != LineKind::Ours) {
        return;
    }
    mLastHeldOurs = true;
    mOursWithoutTid = l.tid < 0;
    auto it = mCurrent.find(l.pid);
    SessionBuilder* current = it == mCurrent.end() ? nullptr : mSessions[it->second].get();
    bool create = createsSession(func, rest, current);
    if (create || current == nullptr || restarts(l, func, *current)) {
        if (it != mCurrent.end()) {  // the process's session before this one is over
            mFinished.resize(mSessions.size());
            mSessions[it->second]->endShown();
            mFinished[it->second] =
                mSessions[it->second]->finish(mLastLineOf[it->second], clockSoFar(), mFollow);
            mSessions[it->second].reset();
        }
        mSessions.push_back(std::make_unique<SessionBuilder>(mFile, l.pid, mLineNo, create));
        mSessions.back()->nameCameras(mNames);
        mLastLineOf.push_back(mLineNo);
        it = mCurrent.insert_or_assign(l.pid, mSessions.size() - 1).first;
    }
    mLastLineOf[it->second] = mLineNo;
    mSessions[it->second]->onLine(l, mLineNo, func, rest);
    // Read whole or followed, frames are settled as they are decided: memory stays bounded.
    mSessions[it->second]->settle(mFollow, clockSoFar());
}

// A session the capture stopped showing at a reconnect went on where a later session of its
// process, printed again from the buffer, holds its last frame and the frames in flight after
// it (a later frame far above is another session's).
void CaptureReader::markSessionsThatWentOn() {
    for (size_t i = 0; i < mSessions.size(); ++i) {
        SessionBuilder* s = mSessions[i].get();
        for (size_t j = i + 1; s != nullptr && s->wasReconnected() && j < mSessions.size(); ++j) {
            SessionBuilder const* later = mSessions[j].get();
            if (later != nullptr && later->pid() == s->pid() && later->lowestFrame() >= 0 &&
                later->lowestFrame() <= s->highestFrame() &&
                later->startsWithFrameIn(s->highestFrame() + 1, s->highestFrame() + kInFlight)) {
                s->wentOn();
            }
        }
    }
}

std::vector<Timeline> CaptureReader::finish() {
    if (mParsed == 0) {
        throw ParseError(mFile, mFirstNoise > 0 ? mFirstNoise : 1, "",
                         mLineNo == 0 ? "empty file, not a log capture"
                                      : "not an Android log line (expected a logcat capture in "
                                        "any of its formats, or the host liblog format)");
    }
    LogClock clock = clockSoFar();
    markSessionsThatWentOn();
    std::vector<Timeline> out;
    mFinished.resize(mSessions.size());
    for (size_t i = 0; i < mSessions.size(); ++i) {
        out.push_back(mSessions[i] ? mSessions[i]->finish(mLastLineOf[i], clock, mFollow)
                                   : std::move(mFinished[i]));
        mSessions[i].reset();
        out.back().capture.section = mSection;
        Timeline& t = out.back();
        if (mLastTimeNs && t.capture.logOriginNs) {
            t.capture.endNs =
                *mLastTimeNs - *t.capture.logOriginNs;  // calls still waiting wait until here
        }
        if (mSessions.size() > 1) {
            out.back().name +=
                " (" + std::to_string(i + 1) + " of " + std::to_string(mSessions.size()) + ")";
        }
    }
    if (out.empty()) {
        out.push_back(sessionlessTimeline(
            mFile, "no session", "Android log capture of " + std::to_string(mLineNo) + " lines",
            "no line of the library's tags (RyxCam/...) in this capture"));
        out.back().capture.section = mSection;
    }
    return out;
}

}  // namespace ryxsim
