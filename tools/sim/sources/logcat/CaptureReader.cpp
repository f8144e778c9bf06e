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
    : mFile(std::move(fileName)), mSection(std::move(section)), mDecoder(*this, linesBefore) {}

void CaptureReader::follow(SessionBuilder::FrameSink folded, std::map<int, std::string> names) {
    mFollow = std::move(folded);
    mNames = std::move(names);
}

// logcat printed its buffers again from their start: the sessions so far end there, and what
// follows, re-printed lines included, belongs to sessions of their own.
void CaptureReader::reconnected() {
    for (auto const& [pid, index] : mCurrent) {
        if (mSessions[index]) {
            mSessions[index]->reconnected();
        }
    }
    mCurrent.clear();
}

SessionBuilder* CaptureReader::sessionOf(int pid) {
    if (pid < 0) {
        return mSessions.empty() ? nullptr : mSessions.back().get();
    }
    auto it = mCurrent.find(pid);
    return it == mCurrent.end() ? nullptr : mSessions[it->second].get();
}

void CaptureReader::gap(LogGap const& g) {
    if (SessionBuilder* s = sessionOf(g.pid)) {
        s->gap(g.line, g.what, g.frame, g.tid, g.framesCall);
        if (g.mayHideCreation) {
            s->mayHideCreation(g.line);
        }
    }
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

// A line of ours: to its process's session, or to a new one it begins.
void CaptureReader::libraryLine(LogLine const& l, int lineNo, std::string_view func,
                                std::string_view rest) {
    auto it = mCurrent.find(l.pid);
    SessionBuilder* current = it == mCurrent.end() ? nullptr : mSessions[it->second].get();
    bool create = createsSession(func, rest, current);
    if (create || current == nullptr || restarts(l, func, *current)) {
        if (it != mCurrent.end()) {  // the process's session before this one is over
            mFinished.resize(mSessions.size());
            mSessions[it->second]->endShown();
            mFinished[it->second] =
                mSessions[it->second]->finish(mLastLineOf[it->second], mDecoder.clock(), mFollow);
            mSessions[it->second].reset();
        }
        mSessions.push_back(std::make_unique<SessionBuilder>(mFile, l.pid, lineNo, create));
        mSessions.back()->nameCameras(mNames);
        mLastLineOf.push_back(lineNo);
        it = mCurrent.insert_or_assign(l.pid, mSessions.size() - 1).first;
    }
    mLastLineOf[it->second] = lineNo;
    mSessions[it->second]->onLine(l, lineNo, func, rest);
    // Read whole or followed, frames are settled as they are decided: memory stays bounded.
    mSessions[it->second]->settle(mFollow, mDecoder.clock());
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
    if (mDecoder.logLines() == 0) {
        throw ParseError(mFile, std::max(mDecoder.firstNoiseLine(), 1), "",
                         mDecoder.lines() == 0
                             ? "empty file, not a log capture"
                             : "not an Android log line (expected a logcat capture in "
                               "any of its formats, or the host liblog format)");
    }
    LogClock clock = mDecoder.clock();
    std::optional<int64_t> lastTimeNs = mDecoder.lastTimeNs();
    markSessionsThatWentOn();
    std::vector<Timeline> out;
    mFinished.resize(mSessions.size());
    for (size_t i = 0; i < mSessions.size(); ++i) {
        out.push_back(mSessions[i] ? mSessions[i]->finish(mLastLineOf[i], clock, mFollow)
                                   : std::move(mFinished[i]));
        mSessions[i].reset();
        out.back().capture.section = mSection;
        Timeline& t = out.back();
        if (lastTimeNs && t.capture.logOriginNs) {
            t.capture.endNs =
                *lastTimeNs - *t.capture.logOriginNs;  // calls still waiting wait until here
        }
        if (mSessions.size() > 1) {
            out.back().name +=
                " (" + std::to_string(i + 1) + " of " + std::to_string(mSessions.size()) + ")";
        }
    }
    if (out.empty()) {
        out.push_back(sessionlessTimeline(
            mFile, "no session",
            "Android log capture of " + std::to_string(mDecoder.lines()) + " lines",
            "no line of the library's tags (RyxCam/...) in this capture"));
        out.back().capture.section = mSection;
    }
    return out;
}

}  // namespace ryxsim
