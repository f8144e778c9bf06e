#include "sources/logcat/CaptureSections.h"

#include "sources/logcat/LibraryLine.h"
#include "sources/systrace/TraceAndLog.h"

#include <algorithm>
#include <cstdio>

namespace ryxsim {

namespace {

constexpr size_t kBannerLines = 3;  // dumpstate's banner is on its second line

// "------ SYSTEM LOG (logcat -v threadtime -d *:v) ------": name and command; false for a line
// that is no section header.
bool sectionHeader(std::string_view line, std::string_view& name, std::string_view& command) {
    if (!startsWith(line, "------ ") || !endsWith(line, " ------") || line.size() < 14) {
        return false;
    }
    std::string_view inner = line.substr(7, line.size() - 14);
    size_t open = inner.find(" (");
    name = inner.substr(0, open);
    command = open == std::string_view::npos ? std::string_view()
                                             : inner.substr(open + 2, inner.size() - open - 3);
    return true;
}

}  // namespace

CaptureSections::CaptureSections(std::string fileName)
    : mFile(std::move(fileName)), mTrace(mFile) {}

void CaptureSections::follow(SessionBuilder::FrameSink folded, std::map<int, std::string> names) {
    mFollow = std::move(folded);
    mNames = std::move(names);
}

std::unique_ptr<CaptureReader> CaptureSections::reader(std::string section, int linesBefore) const {
    auto r = std::make_unique<CaptureReader>(mFile, std::move(section), linesBefore);
    if (mFollow) {
        r->follow(mFollow, mNames);
    }
    return r;
}

void CaptureSections::line(std::string_view line) {
    if (mKind == Kind::Unknown) {
        decide(line);
        return;
    }
    ++mLineNo;
    if (mTrace.line(line, mLineNo)) {
        return;
    }
    if (mKind == Kind::Plain) {
        mReader->line(line);
    } else {
        bugreportLine(line);
    }
}

// A bugreport starts with dumpstate's banner; anything else is a plain capture.
void CaptureSections::decide(std::string_view line) {
    mHead.emplace_back(line);
    bool banner = startsWith(line, "== dumpstate:");
    if (!banner && mHead.size() < kBannerLines) {
        return;
    }
    mKind = banner ? Kind::Bugreport : Kind::Plain;
    if (mKind == Kind::Plain) {
        mReader = reader();
    }
    std::vector<std::string> head = std::move(mHead);
    mHead.clear();
    for (auto const& l : head) {
        this->line(l);
    }
}

void CaptureSections::bugreportLine(std::string_view line) {
    std::string_view name, command;
    if (sectionHeader(line, name, command)) {
        closeSection();
        if (startsWith(command, "logcat")) {
            mReader = reader(std::string(name), mLineNo);
            mSectionsRead.emplace_back(name);
        }
        return;
    }
    if (mReader) {
        mReader->line(line);
        return;
    }
    // dumpstate's header names the build: its fingerprint, else its id.
    if (startsWith(line, "Build fingerprint: ")) {
        mBuild = trim(line.substr(19));
        if (mBuild.size() >= 2 && mBuild.front() == '\'' && mBuild.back() == '\'') {
            mBuild = mBuild.substr(1, mBuild.size() - 2);
        }
    } else if (startsWith(line, "Build: ") && mBuild.empty()) {
        mBuild = trim(line.substr(7));
    }
    scanTombstone(line, mTextScan, "line " + std::to_string(mLineNo));
}

void CaptureSections::closeSection() {
    if (!mReader) {
        return;
    }
    if (mReader->hasSessions()) {
        for (auto& t : mReader->finish()) {
            mSessions.push_back(std::move(t));
        }
    }
    mReader.reset();
}

void CaptureSections::lastLineCut() {
    if (mReader) {
        mReader->lastLineCut();
    }
}

// "pid: 812, tid: 845, name: camera_0  >>> /vendor/bin/hw/... <<<" names the thread that died;
// "Abort message: '...'" is what it died with.
void CaptureSections::scanTombstone(std::string_view line, TombstoneScan& scan,
                                    std::string const& where) {
    int pid = 0, tid = 0;
    char name[64] = {};
    if (startsWith(line, "pid: ") &&
        std::sscanf(std::string(line).c_str(), "pid: %d, tid: %d, name: %63s", &pid, &tid, name) >=
            2) {
        scan = {pid, tid, name};
        return;
    }
    constexpr std::string_view kAbort = "Abort message: '";
    if (!startsWith(line, kAbort) || !endsWith(line, "'")) {
        return;
    }
    std::string_view message = line.substr(kAbort.size(), line.size() - kAbort.size() - 1);
    if (isLibraryAbort(message)) {
        mAborts.push_back({where, scan.pid, scan.tid, scan.process, std::string(message)});
    }
}

void CaptureSections::tombstoneLine(std::string_view line, std::string const& where) {
    int n = ++mEntryLines[where];
    scanTombstone(line, mEntryScans[where], where + ", line " + std::to_string(n));
}

// The rule a tombstone's abort broke goes to the latest session of its process; the capture may
// have lost the fatal line itself (logd drops, a crash buffer read apart).
void CaptureSections::attach(std::vector<Timeline>& sessions, Abort const& a) const {
    std::string said = "tombstone at " + a.where + " (process " + std::to_string(a.pid) +
                       ", thread " + std::to_string(a.tid) +
                       (a.process.empty() ? "" : " " + a.process) + ")";
    for (auto it = sessions.rbegin(); it != sessions.rend(); ++it) {
        if (it->capture.pid != a.pid || a.pid < 0) {
            continue;
        }
        if (it->fatal.empty()) {
            it->fatal = fatalRule(a.message);
            it->fatalText = a.message;
            it->notes.push_back("the abort is the " + said + "; the log does not hold its line");
        } else {
            it->notes.push_back("the " + said + " holds the same abort");
        }
        return;
    }
    Timeline t = sessionlessTimeline(
        mFile, "tombstone of process " + std::to_string(a.pid),
        "the " + said + ", a process no log of this file shows",
        "only the abort is known: no line of the library's tags for this process");
    t.capture.pid = a.pid;
    t.capture.section = "TOMBSTONE";
    t.fatal = fatalRule(a.message);
    t.fatalText = a.message;
    sessions.push_back(std::move(t));
}

// A system trace's sessions come first; a capture that is only a trace needs no log line.
std::vector<Timeline> CaptureSections::finish() {
    std::vector<Timeline> sessions = finishAll();
    for (auto& t : sessions) {
        t.capture.build = mBuild;
    }
    return sessions;
}

std::vector<Timeline> CaptureSections::finishAll() {
    if (mKind == Kind::Unknown) {
        mKind = Kind::Plain;
        mReader = reader();
        std::vector<std::string> head = std::move(mHead);
        mHead.clear();
        for (auto const& l : head) {
            line(l);
        }
    }
    if (!mTrace.any()) {
        return finishLogs();
    }
    std::vector<Timeline> sessions;
    try {
        sessions = finishLogs();
    } catch (ParseError const&) {
    }
    std::vector<Timeline> traced = mTrace.finish();
    if (traced.empty() && sessions.empty()) {
        return {mTrace.noSession()};
    }
    return joinTraceAndLog(std::move(traced), std::move(sessions));
}

void CaptureSections::traceLine(std::string_view line, std::string const& name) {
    if (mTraceLineNo++ == 0) {
        mTrace.setFile(name);
    }
    mTrace.line(line, mTraceLineNo);
}

std::vector<Timeline> CaptureSections::finishLogs() {
    if (mKind == Kind::Plain && mAborts.empty()) {
        return mReader->finish();
    }
    if (mKind == Kind::Plain) {
        mSessions = mReader->finish();
        mReader.reset();
    }
    closeSection();
    for (auto const& a : mAborts) {
        attach(mSessions, a);
    }
    if (mSessions.empty()) {
        std::string read;
        for (auto const& s : mSectionsRead) {
            read += (read.empty() ? "" : ", ") + s;
        }
        mSessions.push_back(sessionlessTimeline(
            mFile, "no session", "bugreport of " + std::to_string(mLineNo) + " lines",
            read.empty() ? "the bugreport holds no logcat section"
                         : "no line of the library's tags (RyxCam/...) in the bugreport's logs (" +
                               read + ")"));
    }
    return std::move(mSessions);
}

}  // namespace ryxsim
