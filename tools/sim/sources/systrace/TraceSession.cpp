#include "sources/systrace/TraceSession.h"

#include "sources/LibraryMessages.h"
#include "sources/logcat/LibraryLine.h"

#include <algorithm>
#include <cstdlib>
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
    call.row.sofNs = sof;
    std::string_view rest = extra;
    while (!rest.empty()) {
        long n = readControlPiece(rest, call);
        if (n <= 0) {
            return false;
        }
        rest.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

namespace {

std::vector<int32_t> itemsOf(std::string const& list) {
    std::vector<int32_t> items;
    for (std::string_view rest = list; !rest.empty();) {
        size_t blank = rest.find(' ');
        items.push_back(
            static_cast<int32_t>(std::atol(std::string(rest.substr(0, blank)).c_str())));
        rest.remove_prefix(blank == std::string_view::npos ? rest.size() : blank + 1);
    }
    return items;
}

}  // namespace

long TraceSession::readControlPiece(std::string_view rest, TraceCall& call) {
    long number = 0;
    int value = 0;
    std::string list;
    Field const numberField[] = {&number}, valueField[] = {&value}, listField[] = {&list};
    CallRow& row = call.row;
    std::string_view piece = rest.substr(0, rest.find(';', 1));  // a list reads to its piece's end
    long n = 0;
    if ((n = matchFormat(rest, RYX_TRACE_TOLERANCE_PIECE, numberField, 1)) > 0) {
        call.toleranceUs = row.toleranceUs = number;
    } else if ((n = matchFormat(rest, RYX_TRACE_MODE_PIECE, valueField, 1)) > 0) {
        call.mode = row.mode = value;
    } else if ((n = matchFormat(rest, RYX_TRACE_MASTER_PIECE, nullptr, 0)) > 0) {
        call.master = true;
    } else if ((n = matchFormat(rest, RYX_TRACE_EXPOSURE_PIECE, numberField, 1)) > 0) {
        row.expNs = number;
        call.controlsShown = true;  // a library that writes the controls always writes this one
    } else if ((n = matchFormat(rest, RYX_TRACE_ASKED_MASTER_PIECE, valueField, 1)) > 0) {
        row.master = value;
    } else if ((n = matchFormat(piece, RYX_TRACE_SYNC_IDS_PIECE, listField, 1)) > 0) {
        row.syncIds = itemsOf(list);
    } else if ((n = matchFormat(rest, RYX_TRACE_REQUIRED_PIECE, nullptr, 0)) > 0) {
        row.required = true;
    } else if ((n = matchFormat(rest, RYX_TRACE_ENABLE_PIECE, valueField, 1)) > 0) {
        row.enable = value;
    } else if ((n = matchFormat(rest, RYX_TRACE_INTENT_PIECE, valueField, 1)) > 0) {
        row.intent = value;
    } else if ((n = matchFormat(piece, RYX_TRACE_MS_LIST_PIECE, listField, 1)) > 0) {
        row.msList = itemsOf(list);
    } else if ((n = matchFormat(rest, RYX_TRACE_REQUEST_PIECE, valueField, 1)) > 0) {
        row.request = value;
    }
    return n;
}

void TraceSession::flush(int frame, int64_t ns, int tid) {
    mFlushed.insert(frame);
    mFlushes.push_back({frame, -1, ns});
    mFlushTids.push_back(tid);
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
