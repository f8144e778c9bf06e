#include "sources/systrace/TraceSession.h"

#include "sources/LibraryMessages.h"
#include "sources/logcat/LibraryLine.h"

#include <algorithm>
#include <map>

namespace ryxsim {

TraceSession::TraceSession(std::string file, int pid, int firstLine)
    : mFile(std::move(file)), mPid(pid), mFirstLine(firstLine), mLastLine(firstLine) {}

void TraceSession::created(unsigned long key, std::vector<int> cameras) {
    mCreated = true;
    mKey = key;
    mCameras = std::move(cameras);
}

void TraceSession::ended(int line) {
    mEnded = true;
    mLastLine = std::max(mLastLine, line);
}

int TraceSession::addCall(TraceCall call) {
    mFirstFrame = std::min(mFirstFrame, call.frame);
    mLastFrame = std::max(mLastFrame, call.frame);
    mLastLine = std::max(mLastLine, call.line);
    mCalls.push_back(std::move(call));
    return static_cast<int>(mCalls.size()) - 1;
}

bool TraceSession::readVerdict(std::string_view name, TraceCall& call) {
    long sof = 0;
    std::string words, extra;
    if (!readMessage(name, RYX_TRACE_VERDICT, &call.frame, &call.cam, &words, &sof, &extra)) {
        return false;
    }
    static char const* const kWords[] = {RYX_TRACE_PASSED,   RYX_TRACE_UNCHECKED,
                                         RYX_TRACE_RESULT_1, RYX_TRACE_RESULT_2,
                                         RYX_TRACE_DROPPED,  RYX_TRACE_OWN_DROP};
    if (std::none_of(std::begin(kWords), std::end(kWords),
                     [&](char const* w) { return words == w; })) {
        return false;
    }
    call.words = words;
    call.sofNs = sof;
    std::string_view rest = extra;
    while (!rest.empty()) {
        long tolerance = 0;
        int mode = 0;
        Field const toleranceField[] = {&tolerance};
        Field const modeField[] = {&mode};
        long n = 0;
        if ((n = matchFormat(rest, RYX_TRACE_TOLERANCE_PIECE, toleranceField, 1)) > 0) {
            call.toleranceUs = tolerance;
        } else if ((n = matchFormat(rest, RYX_TRACE_MODE_PIECE, modeField, 1)) > 0) {
            call.mode = mode;
        } else if ((n = matchFormat(rest, RYX_TRACE_MASTER_PIECE, nullptr, 0)) > 0) {
            call.master = true;
        } else {
            return false;
        }
        rest.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

void TraceSession::flush(int frame, int64_t ns) {
    mFlushed.insert(frame);
    mFlushes.push_back({frame, -1, ns});
}

void TraceSession::masterDrop(int frame, int cam, int64_t ns) {
    mMasterDropped.insert(frame);
    mMasterDrops.push_back({frame, cam, ns});
}

void TraceSession::leave(int cam, int64_t ns) {
    mLeaves.push_back({-1, cam, ns});
}

void TraceSession::message(char severity, std::string_view text, std::optional<int> callFrame) {
    LoggedAnomaly a{};
    if (anomalyOf(text, a)) {
        a.text = text;
        mAnomalies.push_back(a);
        using Kind = LoggedAnomaly::Kind;
        mRefusals[a.frame].insert(a.kind == Kind::FrameInversion  ? Refusal::FrameInversion
                                  : a.kind == Kind::TimeInversion ? Refusal::TimeInversion
                                                                  : Refusal::MissingTimestamp);
    } else if (readMessage(text, RYX_MSG_TIMESTAMP_MISSING) && callFrame) {
        mRefusals[*callFrame].insert(Refusal::MissingTimestamp);
        mAnomalies.push_back(
            {LoggedAnomaly::Kind::MissingTimestamp, *callFrame, -1, std::string(text)});
    } else if (severity == 'F' && mFatal.empty()) {
        mFatal = text;
    } else if (severity == 'E') {
        mErrors.emplace_back(text);
    }
}

void TraceSession::lost(int line, std::string what) {
    mLoss = Loss{line, std::move(what)};
}

}  // namespace ryxsim
