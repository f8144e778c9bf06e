// The library's trace points, by name, into the session they belong to.
#include "sources/systrace/SystemTraceReader.h"

#include "sources/LibraryMessages.h"

#include <sstream>

namespace ryxsim {

namespace {

std::vector<int> cameraList(std::string const& text) {
    std::vector<int> ids;
    std::istringstream in(text);
    for (std::string id; std::getline(in, id, ',');) {
        ids.push_back(std::atoi(id.c_str()));
    }
    return ids;
}

constexpr std::string_view kPrefix = RYX_TRACE_PREFIX;

// "RyxSync W <message>": its severity.
bool messageMark(std::string_view name, char& severity) {
    if (name.size() < kPrefix.size() + 2 || name.substr(0, kPrefix.size()) != kPrefix ||
        name[kPrefix.size() + 1] != ' ') {
        return false;
    }
    severity = name[kPrefix.size()];
    return severity == 'W' || severity == 'E' || severity == 'F';
}

}  // namespace

bool SystemTraceReader::libraryPoint(TraceLine const& t, int lineNo, Open& open) {
    unsigned long key = 0;
    std::string text;
    int frame = 0, cam = 0;
    char severity = 0;
    if (readMessage(t.name, RYX_TRACE_SESSION, &key, &text)) {
        mSessions.push_back(std::make_unique<TraceSession>(mFile, t.pid, lineNo));
        mCurrent[t.pid] = mSessions.back().get();
        mSessions.back()->created(key, cameraList(text));
        return true;
    }
    TraceSession& s = sessionOf(t.pid, lineNo);
    TraceCall call;
    call.line = lineNo;
    call.tid = t.tid;
    if (readMessage(t.name, RYX_TRACE_SESSION_END, &key)) {
        s.ended(lineNo);
    } else if (readMessage(t.name, RYX_TRACE_CALL, &call.frame, &call.cam) ||
               (call.drop = readMessage(t.name, RYX_TRACE_DROP_CALL, &call.frame, &call.cam))) {
        call.beginNs = t.ns;
        open = {&s, s.addCall(call)};
    } else if (TraceSession::readVerdict(t.name, call)) {
        TraceCall* inside = openCall(t.tid);
        if (inside != nullptr && inside->words.empty() && inside->frame == call.frame &&
            inside->cam == call.cam) {
            call.beginNs = inside->beginNs;
            call.drop = inside->drop;
            call.line = inside->line;
            *inside = call;
        } else {
            s.addCall(call);  // its section began before the trace
        }
    } else if (readMessage(t.name, RYX_TRACE_FLUSH, &frame)) {
        s.flush(frame, t.ns, t.tid);
    } else if (readMessage(t.name, RYX_TRACE_MASTER_DROP, &frame, &cam)) {
        s.masterDrop(frame, cam, t.ns);
    } else if (readMessage(t.name, RYX_TRACE_LEAVE, &cam)) {
        s.leave(cam, t.ns);
    } else if (messageMark(t.name, severity)) {
        TraceCall* inside = openCall(t.tid);
        s.message(severity, t.name.substr(kPrefix.size() + 2),
                  inside ? std::optional<int>(inside->frame) : std::nullopt);
    } else {
        return false;
    }
    return true;
}

}  // namespace ryxsim
