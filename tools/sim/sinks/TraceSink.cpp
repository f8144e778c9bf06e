#include "sinks/TraceSink.h"

#include <algorithm>
#include <climits>

namespace ryxsim {

namespace {

// A log shows a call's camera, frame, arrival and start of frame (when it was compared), and
// the frame's tolerance when it was checked; everything else is marked not known.
CallRow rowFromLog(FrameRecord const& f, CameraCell const& c) {
    CallRow row;
    row.sensor = c.sensor;
    row.frame = f.frame;
    row.request = f.request >= 0 ? f.request : f.frame;
    row.kind = c.cause == DropCause::Own ? CallKind::Drop : CallKind::Result;
    row.unknown = {"exp_ns", "master", "enable", "intent", "ms_list"};
    if (c.sofNs) {
        row.sofNs = *c.sofNs;
    } else {
        row.unknown.insert("sof_ns");
    }
    std::vector<int32_t> others;
    for (auto const& other : f.cells) {
        if (other.sensor != c.sensor) {
            others.push_back(other.sensor);
        }
    }
    others.insert(others.end(), f.neverCame.begin(), f.neverCame.end());
    if (!others.empty()) {
        row.syncIds = others;
        row.required = true;
    }
    row.toleranceUs = f.toleranceUs;
    row.mode = f.mode;
    if (!f.toleranceUs) {
        row.unknown.insert("tolerance_us");
    }
    if (!f.mode) {
        row.unknown.insert("mode");
    }
    return row;
}

struct Placed {
    int64_t atNs;
    CallRow row;
};

void addEvents(Timeline const& t, std::vector<Placed>& calls) {
    int anyCamera = t.labels.empty() ? 0 : t.labels.begin()->first;
    for (auto const& e : t.flushes) {
        CallRow row;
        row.kind = CallKind::Flush;
        row.frame = row.request = e.frame;
        row.sensor = e.sensor >= 0 ? e.sensor : anyCamera;  // the thread matters for order only
        calls.push_back({e.atNs.value_or(INT64_MAX), row});
    }
    for (auto const& e : t.leaves) {
        CallRow row;
        row.kind = CallKind::Leave;
        row.sensor = e.sensor;
        calls.push_back({e.atNs.value_or(INT64_MAX), row});
    }
}

}  // namespace

std::optional<Trace> traceOfSession(Timeline const& t, std::string& why) {
    if (!t.capture.callsSeen) {
        why =
            "the capture does not show every call: a log at debug level with thread ids, or a "
            "system trace of the library ('atrace camera'), does";
        return std::nullopt;
    }
    if (static_cast<int>(t.frames.size()) < t.frameCount) {
        why = "only " + std::to_string(t.frames.size()) + " of the session's " +
              std::to_string(t.frameCount) + " frames were kept";
        return std::nullopt;
    }
    std::vector<Placed> calls;
    int64_t lastNs = INT64_MIN;  // a call whose arrival is not shown keeps its place by frame
    for (auto const& f : t.frames) {
        for (auto const& c : f.cells) {
            if (c.verdict == Verdict::NotRun) {
                continue;
            }
            lastNs = c.arriveNs.value_or(lastNs);
            calls.push_back({lastNs, c.call ? *c.call : rowFromLog(f, c)});
        }
    }
    addEvents(t, calls);
    std::stable_sort(calls.begin(), calls.end(),
                     [](Placed const& a, Placed const& b) { return a.atNs < b.atNs; });
    Trace trace;
    trace.session.name = "capture";
    trace.session.fps = t.fps;
    for (auto const& [id, label] : t.labels) {
        CameraSpec camera;
        camera.id = id;
        trace.session.cameras.push_back(camera);
    }
    for (auto& placed : calls) {
        trace.rows.push_back(std::move(placed.row));
    }
    return trace;
}

}  // namespace ryxsim
