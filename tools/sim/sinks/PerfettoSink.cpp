#include "sinks/PerfettoSink.h"
#include "sinks/Explanation.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <ostream>

namespace ryxsim {

namespace {

using nlohmann::json;

constexpr int kSessionTrack = 0;  // thread of the session-wide instants

// Where a session goes in the trace. A capture keeps the log's own process, threads and clock,
// so that its tracks line up with a trace taken on the phone (a 'monotonic' capture shares the
// device trace's clock); a run gets a process of its own and times from its start.
struct Placement {
    int pid = 1;
    int64_t originNs = 0;  // added to every time of the session
    double originUs = 0;
    std::map<int, int> tids;
    int unknownTid = 1;  // a camera whose thread the source does not know: past any real tid

    int trackOf(int sensor) const {
        auto it = tids.find(sensor);
        return it != tids.end() ? it->second : unknownTid + sensor;
    }
    double us(int64_t ns) const { return static_cast<double>(originNs + ns) / 1000.0; }
};

Placement placementOf(Timeline const& t, int index) {
    Placement p;
    p.pid = t.imported && t.capture.pid >= 0 ? t.capture.pid : index;
    if (t.imported) {
        p.originNs = t.capture.logOriginNs.value_or(0);
        p.originUs = static_cast<double>(p.originNs) / 1000.0;
        p.tids = t.capture.tidOf;
        p.unknownTid = 1 << 22;  // above Linux's largest pid
    }
    return p;
}

// When a frame happened: its first arrival, else its place in the stream at the frame rate.
double frameUs(Timeline const& t, Placement const& p, FrameRecord const& f) {
    std::optional<int64_t> first;
    for (auto const& c : f.cells) {
        if (c.arriveNs && (!first || *c.arriveNs < *first)) {
            first = c.arriveNs;
        }
    }
    if (first) {
        return p.us(*first);
    }
    return p.originUs + (f.frame - t.firstFrame) * 1e6 / (t.fps > 0 ? t.fps : 30.0);
}

// "f12 in sync", "f240 dropped (flush)": the verdict on the slice itself.
std::string sliceName(FrameRecord const& f, CameraCell const& c) {
    std::string name = "f" + std::to_string(f.frame) + " " + verdictName(c.verdict);
    return c.cause == DropCause::None ? name : name + " (" + dropCauseName(c.cause) + ")";
}

json instant(int pid, int tid, double ts, std::string name, json args) {
    return {{"ph", "i"},
            {"s", "t"},
            {"pid", pid},
            {"tid", tid},
            {"ts", ts},
            {"name", std::move(name)},
            {"args", std::move(args)}};
}

// The process and thread names of a session's tracks.
void addNames(json& events, Timeline const& t, Placement const& p) {
    int pid = p.pid;
    auto meta = [&](int tid, char const* what, std::string const& name) {
        events.push_back(
            {{"ph", "M"}, {"pid", pid}, {"tid", tid}, {"name", what}, {"args", {{"name", name}}}});
    };
    meta(0, "process_name", t.name + (t.source.empty() ? "" : " (" + t.source + ")"));
    meta(kSessionTrack, "thread_name", "session events");
    for (auto const& s : t.sensors) {
        auto th = t.threadOf.find(s.sensor);
        meta(p.trackOf(s.sensor), "thread_name",
             "camera " + s.label + (th != t.threadOf.end() ? " (" + th->second + ")" : ""));
    }
}

// One camera's part in a frame: its call as a slice (open to the end of a capture while it still
// waited), its own drop as an instant, its start of frame offset as a counter.
void addCell(json& events, Timeline const& t, Placement const& p, FrameRecord const& f,
             CameraCell const& c) {
    double at = frameUs(t, p, f);
    int tid = p.trackOf(c.sensor);
    json args{{"verdict", verdictName(c.verdict)}, {"request", f.request}};
    if (c.cause != DropCause::None) {
        args["cause"] = dropCauseName(c.cause);
    }
    if (c.master) {
        args["master"] = true;
    }
    if (c.completed) {
        args["completed the frame"] = true;
    }
    std::optional<int64_t> end = c.releaseNs;
    if (!end && c.arriveNs && t.capture.endNs && c.verdict == Verdict::Blocked) {
        end = std::max(*t.capture.endNs, *c.arriveNs);
        args["still waiting"] = "when the capture ended";
    }
    if (c.arriveNs && end && c.cause != DropCause::Own && c.cause != DropCause::Leave) {
        events.push_back({{"ph", "X"},
                          {"pid", p.pid},
                          {"tid", tid},
                          {"ts", p.us(*c.arriveNs)},
                          {"dur", (*end - *c.arriveNs) / 1000.0},
                          {"name", sliceName(f, c)},
                          {"args", args}});
    }
    if (c.cause == DropCause::Own) {
        events.push_back(instant(p.pid, tid, c.arriveNs ? p.us(*c.arriveNs) : at,
                                 "drop f" + std::to_string(f.frame), args));
    }
    if (auto off = f.sofOffsetNs(c.sensor)) {
        events.push_back({{"ph", "C"},
                          {"pid", p.pid},
                          {"tid", tid},
                          {"ts", at},
                          {"name", "sof offset camera " + std::to_string(c.sensor)},
                          {"args", {{"us", *off / 1000.0}}}});
    }
}

void addEvents(json& events, Timeline const& t, Placement const& p,
               std::vector<Timeline::Event> const& list, char const* what, char const* cause) {
    for (auto const& e : list) {
        double at = e.atNs ? p.us(*e.atNs) : p.originUs;
        if (!e.atNs) {
            if (FrameRecord* f = const_cast<Timeline&>(t).findFrame(e.frame)) {
                at = frameUs(t, p, *f);
            }
        }
        events.push_back(instant(p.pid, e.sensor >= 0 ? p.trackOf(e.sensor) : kSessionTrack, at,
                                 std::string(what) + " f" + std::to_string(e.frame),
                                 {{"cause", cause}, {"frame", e.frame}, {"sensor", e.sensor}}));
    }
}

void addSession(json& events, Timeline const& t, Placement const& p) {
    int pid = p.pid;
    addNames(events, t, p);
    std::optional<int> lastMaster;
    for (auto const& f : t.frames) {
        double at = frameUs(t, p, f);
        for (auto const& c : f.cells) {
            addCell(events, t, p, f, c);
            if (c.master && lastMaster != c.sensor) {
                events.push_back(
                    instant(pid, kSessionTrack, at, "master " + t.label(c.sensor),
                            {{"frame", f.frame},
                             {"previous", lastMaster ? json(*lastMaster) : json(nullptr)}}));
                lastMaster = c.sensor;
            }
        }
        if (unpassed(f)) {
            events.push_back(instant(pid, kSessionTrack, at,
                                     "f" + std::to_string(f.frame) + " did not pass",
                                     {{"why", explainFrame(t, f)}, {"frame", f.frame}}));
        }
    }
    addEvents(events, t, p, t.flushes, "flush",
              "notifyDrop(frame, 0): the frame is dropped for every camera");
    addEvents(events, t, p, t.masterDrops, "master drop",
              "the master dropped the frame: its other cameras fail it");
    addEvents(events, t, p, t.leaves, "sensor leaves",
              "notifyDropBySensor: the sensor counts as arrived in every live frame");
}

}  // namespace

void writePerfetto(std::ostream& out, std::vector<Timeline> const& sessions) {
    json events = json::array();
    for (size_t i = 0; i < sessions.size(); ++i) {
        addSession(events, sessions[i], placementOf(sessions[i], static_cast<int>(i) + 1));
    }
    // Log text is not always UTF-8: bad bytes become U+FFFD.
    out << json{{"traceEvents", events}, {"displayTimeUnit", "ms"}}.dump(
               -1, ' ', false, json::error_handler_t::replace)
        << "\n";
}

}  // namespace ryxsim
