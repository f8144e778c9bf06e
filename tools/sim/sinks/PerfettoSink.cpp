#include "sinks/PerfettoSink.h"

#include <nlohmann/json.hpp>

#include <ostream>

namespace ryxsim {

namespace {

using nlohmann::json;

constexpr int kSessionTrack = 0;  // thread of the session-wide instants

int trackOf(int sensor) {
    return sensor + 1;
}

// When a frame happened: its first arrival, else its place in the stream at the frame rate.
double frameUs(Timeline const& t, FrameRecord const& f) {
    std::optional<int64_t> first;
    for (auto const& c : f.cells) {
        if (c.arriveNs && (!first || *c.arriveNs < *first)) {
            first = c.arriveNs;
        }
    }
    if (first) {
        return *first / 1000.0;
    }
    return (f.frame - t.firstFrame) * 1e6 / (t.fps > 0 ? t.fps : 30.0);
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
void addNames(json& events, Timeline const& t, int pid) {
    auto meta = [&](int tid, char const* what, std::string const& name) {
        events.push_back(
            {{"ph", "M"}, {"pid", pid}, {"tid", tid}, {"name", what}, {"args", {{"name", name}}}});
    };
    meta(0, "process_name", t.name + (t.source.empty() ? "" : " (" + t.source + ")"));
    meta(kSessionTrack, "thread_name", "session events");
    for (auto const& s : t.sensors) {
        auto th = t.threadOf.find(s.sensor);
        meta(trackOf(s.sensor), "thread_name",
             "camera " + s.label + (th != t.threadOf.end() ? " (" + th->second + ")" : ""));
    }
}

// One camera's part in a frame: its call as a slice, its own drop as an instant, its start of
// frame offset as a counter.
void addCell(json& events, Timeline const& t, FrameRecord const& f, CameraCell const& c, int pid) {
    double at = frameUs(t, f);
    std::string name = "f" + std::to_string(f.frame);
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
    if (c.arriveNs && c.releaseNs && c.cause != DropCause::Own && c.cause != DropCause::Leave) {
        events.push_back({{"ph", "X"},
                          {"pid", pid},
                          {"tid", trackOf(c.sensor)},
                          {"ts", *c.arriveNs / 1000.0},
                          {"dur", (*c.releaseNs - *c.arriveNs) / 1000.0},
                          {"name", name},
                          {"args", args}});
    }
    if (c.cause == DropCause::Own) {
        events.push_back(instant(pid, trackOf(c.sensor), c.arriveNs ? *c.arriveNs / 1000.0 : at,
                                 "drop " + name, args));
    }
    if (auto off = f.sofOffsetNs(c.sensor)) {
        events.push_back({{"ph", "C"},
                          {"pid", pid},
                          {"tid", trackOf(c.sensor)},
                          {"ts", at},
                          {"name", "sof offset camera " + std::to_string(c.sensor)},
                          {"args", {{"us", *off / 1000.0}}}});
    }
}

void addEvents(json& events, Timeline const& t, int pid, std::vector<Timeline::Event> const& list,
               char const* what, char const* cause) {
    for (auto const& e : list) {
        double at = e.atNs ? *e.atNs / 1000.0 : 0.0;
        if (!e.atNs) {
            if (FrameRecord* f = const_cast<Timeline&>(t).findFrame(e.frame)) {
                at = frameUs(t, *f);
            }
        }
        events.push_back(instant(pid, e.sensor >= 0 ? trackOf(e.sensor) : kSessionTrack, at,
                                 std::string(what) + " f" + std::to_string(e.frame),
                                 {{"cause", cause}, {"frame", e.frame}, {"sensor", e.sensor}}));
    }
}

void addSession(json& events, Timeline const& t, int pid) {
    addNames(events, t, pid);
    std::optional<int> lastMaster;
    for (auto const& f : t.frames) {
        double at = frameUs(t, f);
        for (auto const& c : f.cells) {
            addCell(events, t, f, c, pid);
            if (c.master && lastMaster != c.sensor) {
                events.push_back(
                    instant(pid, kSessionTrack, at, "master " + t.label(c.sensor),
                            {{"frame", f.frame},
                             {"previous", lastMaster ? json(*lastMaster) : json(nullptr)}}));
                lastMaster = c.sensor;
            }
        }
        if (!f.why.empty()) {
            events.push_back(instant(pid, kSessionTrack, at,
                                     "f" + std::to_string(f.frame) + " did not pass",
                                     {{"why", f.why}, {"frame", f.frame}}));
        }
    }
    addEvents(events, t, pid, t.flushes, "flush",
              "notifyDrop(frame, 0): the frame is dropped for every camera");
    addEvents(events, t, pid, t.masterDrops, "master drop",
              "the master dropped the frame: its other cameras fail it");
    addEvents(events, t, pid, t.leaves, "sensor leaves",
              "notifyDropBySensor: the sensor counts as arrived in every live frame");
}

}  // namespace

void writePerfetto(std::ostream& out, std::vector<Timeline> const& sessions) {
    json events = json::array();
    for (size_t i = 0; i < sessions.size(); ++i) {
        addSession(events, sessions[i], static_cast<int>(i) + 1);
    }
    // Log text is not always UTF-8: bad bytes become U+FFFD.
    out << json{{"traceEvents", events}, {"displayTimeUnit", "ms"}}.dump(
               -1, ' ', false, json::error_handler_t::replace)
        << "\n";
}

}  // namespace ryxsim
