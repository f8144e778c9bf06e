#include "sources/systrace/SystemTraceReader.h"

#include "sources/LibraryMessages.h"
#include "sources/logcat/CaptureReader.h"

#include <algorithm>

namespace ryxsim {

namespace {

constexpr std::string_view kLibraryPrefix = RYX_TRACE_PREFIX;

}  // namespace

SystemTraceReader::SystemTraceReader(std::string fileName) : mFile(std::move(fileName)) {}
SystemTraceReader::~SystemTraceReader() = default;

bool SystemTraceReader::header(std::string_view line) {
    if (line.rfind("# tracer:", 0) == 0) {
        mTracer = mAny = true;
        return true;
    }
    long long held = 0, written = 0;
    if (mTracer && readEntriesHeader(line, held, written)) {
        mOverwritten = std::max(0LL, written - held);
        return true;
    }
    return mTracer && !line.empty() && line[0] == '#';
}

bool SystemTraceReader::line(std::string_view line, int lineNo) {
    if (header(line)) {
        return true;
    }
    TraceLine t = readTraceLine(line);
    if (t.kind == TraceLine::Kind::Other) {
        return false;
    }
    mAny = true;
    mLastLine = lineNo;
    switch (t.kind) {
        case TraceLine::Kind::Begin:
            begin(t, lineNo);
            break;
        case TraceLine::Kind::End:
            end(t);
            break;
        case TraceLine::Kind::Lost:
            lost("the kernel lost " + std::to_string(t.lost) +
                     " events here (its trace buffer was full)",
                 lineNo);
            break;
        default:
            break;  // counters: the verdict marks carry what they show
    }
    return true;
}

TraceSession& SystemTraceReader::sessionOf(int pid, int lineNo) {
    auto it = mCurrent.find(pid);
    if (it != mCurrent.end() && !it->second->closed()) {
        return *it->second;
    }
    mSessions.push_back(std::make_unique<TraceSession>(mFile, pid, lineNo));
    if (mLostAt) {
        mSessions.back()->afterLoss(*mLostAt);
    }
    mCurrent[pid] = mSessions.back().get();
    return *mSessions.back();
}

TraceCall* SystemTraceReader::openCall(int tid) {
    auto it = mSections.find(tid);
    if (it == mSections.end()) {
        return nullptr;
    }
    for (auto o = it->second.rbegin(); o != it->second.rend(); ++o) {
        if (o->call >= 0) {
            return &o->session->call(o->call);
        }
    }
    return nullptr;
}

void SystemTraceReader::begin(TraceLine const& t, int lineNo) {
    Open open;
    if (t.name.substr(0, kLibraryPrefix.size()) == kLibraryPrefix) {
        libraryPoint(t, lineNo, open);
    }
    mSections[t.tid].push_back(open);
}

void SystemTraceReader::end(TraceLine const& t) {
    auto it = mSections.find(t.tid);
    if (it == mSections.end() || it->second.empty()) {
        return;  // its begin is before the trace
    }
    Open open = it->second.back();
    it->second.pop_back();
    if (open.call >= 0) {
        open.session->call(open.call).endNs = t.ns;
    }
}

// Every open session ends there for the reader: what follows may be the same session or another.
void SystemTraceReader::lost(std::string what, int lineNo) {
    mLostAt = lineNo;
    for (auto const& [pid, session] : mCurrent) {
        if (!session->closed()) {
            session->lost(lineNo, what);
        }
    }
}

std::vector<Timeline> SystemTraceReader::finish() {
    std::vector<Timeline> out;
    for (auto& s : mSessions) {
        out.push_back(s->build());
    }
    if (mOverwritten > 0 && !out.empty()) {
        out.front().notes.push_back("the trace buffer overwrote its oldest " +
                                    std::to_string(mOverwritten) +
                                    " events: the trace starts later than its recording did");
    }
    return out;
}

Timeline SystemTraceReader::noSession() const {
    return sessionlessTimeline(
        mFile, "no session", "system trace of " + std::to_string(mLastLine) + " lines",
        "no trace point of the library (\"RyxSync ...\", camera tag) in the trace: record "
        "with the camera category ('atrace camera')");
}

}  // namespace ryxsim
