#include "sinks/JsonSink.h"

#include "sinks/Explanation.h"
#include "sinks/WhatIfSink.h"

#include <ostream>

namespace ryxsim {

namespace {

nlohmann::json optionalJson(std::optional<int64_t> v, double scale = 1) {
    if (!v) {
        return nlohmann::json(nullptr);
    }
    return scale == 1 ? nlohmann::json(*v) : nlohmann::json(*v / scale);
}

// Every frame that did not pass or passed flagged: its cause and each camera's part in it.
// The cause of a verdict, null when the call was not dropped.
nlohmann::json causeJson(DropCause c) {
    return c == DropCause::None ? nlohmann::json(nullptr) : nlohmann::json(dropCauseName(c));
}

nlohmann::json unpassedJson(Timeline const& r) {
    using nlohmann::json;
    json a = json::array();
    for (FrameRecord const* f : unpassedFrames(r)) {
        json cams = json::array();
        for (auto const& c : f->cells) {
            json cam{{"sensor", c.sensor},
                     {"verdict", verdictName(c.verdict)},
                     {"cause", causeJson(c.cause)},
                     {"master", c.master},
                     {"completed", r.capture.completionKnown ? json(c.completed) : json(nullptr)},
                     {"arrive_us", optionalJson(c.arriveNs, 1000.0)},
                     {"release_us", optionalJson(c.releaseNs, 1000.0)},
                     {"sof_offset_us", optionalJson(f->sofOffsetNs(c.sensor), 1000.0)}};
            cams.push_back(cam);
        }
        a.push_back({{"frame", f->frame},
                     {"request", f->request},
                     {"why", explainFrame(r, *f)},
                     {"refusal", refusalName(f->refusal)},
                     {"first_target", f->firstTarget ? json(*f->firstTarget) : json(nullptr)},
                     {"tolerance_us", optionalJson(f->toleranceUs)},
                     {"mode", f->mode ? json(*f->mode) : json(nullptr)},
                     {"never_came", f->neverCame},
                     {"lines", f->firstLine ? json{*f->firstLine, *f->lastLine} : json(nullptr)},
                     {"trace_lines", f->traceFirstLine ? json{*f->traceFirstLine, *f->traceLastLine}
                                                       : json(nullptr)},
                     {"log_time", r.logTime(*f).empty() ? json(nullptr) : json(r.logTime(*f))},
                     {"cameras", cams}});
    }
    return a;
}

// Where writeReportJson streams a camera's frame list into the dumped report.
std::string const kFramesMark = "@frames of sensor ";

nlohmann::json cellJson(int frame, CameraCell const& c) {
    nlohmann::json cell{{"frame", frame}, {"verdict", verdictName(c.verdict)}};
    if (c.cause != DropCause::None) {
        cell["cause"] = dropCauseName(c.cause);
    }
    if (c.master) {
        cell["master"] = true;
    }
    return cell;
}

void writeSession(std::ostream& out, Timeline const& t, int indent) {
    // Log text is not always UTF-8: bad bytes become U+FFFD.
    std::string text =
        timelineJson(t, false).dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
    std::string const mark = "\"" + kFramesMark;
    std::string const pad(static_cast<size_t>(indent), ' ');
    size_t pos = 0;
    size_t at = text.find(mark);  // the next mark: searched again only once passed
    while (true) {
        if (at != std::string::npos && at < pos) {
            at = text.find(mark, pos);
        }
        size_t nl = text.find('\n', pos);
        size_t stop = std::min(at, nl == std::string::npos ? text.size() : nl + 1);
        out.write(text.data() + pos, static_cast<std::streamsize>(stop - pos));
        if (stop == text.size()) {
            break;
        }
        if (stop == at) {
            size_t end = text.find('"', at + 1);
            int sensor = std::stoi(text.substr(at + mark.size(), end - at - mark.size()));
            out << '[';
            bool first = true;
            for (auto const& [frame, c] : t.cellsOf(sensor)) {
                out << (first ? "" : ", ") << cellJson(frame, *c).dump();
                first = false;
            }
            out << ']';
            pos = end + 1;
        } else {
            out << pad;
            pos = stop;
        }
    }
}

}  // namespace

void writeReportJson(std::ostream& out, std::vector<Timeline> const& sessions) {
    if (sessions.size() == 1) {
        writeSession(out, sessions.front(), 0);
    } else {
        out << "[\n  ";
        for (size_t i = 0; i < sessions.size(); ++i) {
            out << (i ? ",\n  " : "");
            writeSession(out, sessions[i], 2);
        }
        out << "\n]";
    }
    out << "\n";
}

namespace {

using nlohmann::json;

json waitJson(WaitStats const& w) {
    return json{{"calls", w.count}, {"p50_us", w.p50Us}, {"p99_us", w.p99Us}, {"max_us", w.maxUs}};
}

json anomaliesJson(std::vector<LoggedAnomaly> const& v) {
    json a = json::array();
    for (auto const& x : v) {
        a.push_back({{"frame", x.frame}, {"master", x.master}, {"log", x.text}});
    }
    return a;
}

json sensorJson(Timeline const& r, SensorFigures const& f, bool frameLists) {
    json frames = json::array();
    if (!frameLists) {
        frames = kFramesMark + std::to_string(f.sensor);
    } else {
        for (auto const& [frame, c] : r.cellsOf(f.sensor)) {
            frames.push_back(cellJson(frame, *c));
        }
    }
    return {{"id", f.sensor},
            {"label", f.label},
            {"offered", f.offered},
            {"in_sync", f.inSync},
            {"unchecked", f.unchecked},
            {"out_of_sync_1", f.outOfSync1},
            {"out_of_sync_2", f.outOfSync2},
            {"out_of_sync_unknown_mode", f.outOfSync},
            {"dropped", f.dropped},
            {"blocked", f.blocked},
            {"not_run", f.notRun},
            {"undetermined", f.undetermined},
            {"master_frames", f.masterFrames},
            {"crop_overrides", f.cropOverrides},
            {"dropped_by_cause",
             {{"own_drop", f.dropOwn},
              {"master_drop", f.dropMaster},
              {"flush", f.dropFlush},
              {"refused", f.dropRefused},
              {"sensor_left", f.dropLeave}}},
            {"wait", waitJson(f.wait)},
            {"cpu_us_per_call", f.cpuUsPerCall},
            {"last_to_arrive", f.lastToArrive},
            {"lateness", waitJson(f.lateness)},
            {"frames", frames}};
}

json anomalySectionJson(Timeline const& r) {
    json blocked = json::array();
    for (auto const& b : r.blocked) {
        blocked.push_back({{"sensor", b.sensor},
                           {"call", b.call},
                           {"frame", b.frame},
                           {"request", b.request},
                           {"seconds", b.seconds}});
    }
    return {{"frame_inversions", anomaliesJson(r.frameInversions)},
            {"time_inversions", anomaliesJson(r.timeInversions)},
            {"missing_timestamps", anomaliesJson(r.missingTimestamps)},
            {"never_completed", r.neverCompleted},
            {"blocked_threads", blocked}};
}

json eventsJson(Timeline const& r) {
    json events;
    events["flushes"] = json::array();
    for (auto const& e : r.flushes) {
        events["flushes"].push_back(e.frame);
    }
    auto bySensor = [](std::vector<Timeline::Event> const& list) {
        json a = json::array();
        for (auto const& e : list) {
            a.push_back({{"frame", e.frame}, {"sensor", e.sensor}});
        }
        return a;
    };
    events["master_drops"] = bySensor(r.masterDrops);
    events["leaves"] = bySensor(r.leaves);
    events["crop_sets"] = json::array();
    for (auto const& [f, q] : r.cropSets) {
        events["crop_sets"].push_back({{"frame", f}, {"request", q}});
    }
    events["requested_master"] = json::array();
    for (auto const& [f, m] : r.masterChanges) {
        events["requested_master"].push_back({{"from_frame", f}, {"sensor", m}});
    }
    return events;
}

nlohmann::json gapsJson(Timeline const& r) {
    json a = json::array();
    for (auto const& g : r.capture.gaps) {
        a.push_back({{"line", g.line}, {"what", g.what}, {"frames", g.frames}});
    }
    return a;
}

nlohmann::json skewsJson(Timeline const& r) {
    json a = json::array();
    for (auto const& p : r.skews) {
        a.push_back({{"cameras", {p.a, p.b}},
                     {"frames", p.skew.count},
                     {"p50_us", p.skew.p50Us},
                     {"p99_us", p.skew.p99Us},
                     {"max_us", p.skew.maxUs},
                     {"tolerance_99_us", p.tolerance99Us},
                     {"tolerance_99_9_us", p.tolerance999Us}});
    }
    return a;
}

}  // namespace

nlohmann::json timelineJson(Timeline const& r, bool frameLists) {
    json j;
    j["tool"] = "synchelper-sim";
    j["name"] = r.name;
    j["source"] = r.source;
    j["seed"] = r.run.seed ? json(*r.run.seed) : json(nullptr);
    j["fps"] = r.fps;
    j["description"] = r.description;
    j["imported"] = r.imported;
    j["clock"] = r.clock;
    j["notes"] = r.notes;
    if (r.whatIf) {
        j["what_if"] = whatIfJson(r);
    }
    j["section"] = r.capture.section.empty() ? json(nullptr) : json(r.capture.section);
    j["gaps"] = r.imported ? gapsJson(r) : json(nullptr);
    j["fatal"] = r.fatal.empty() ? json(nullptr) : json{{"rule", r.fatal}, {"log", r.fatalText}};
    j["frames"] = r.frameCount;
    j["first_frame"] = r.firstFrame;
    j["last_frame"] = r.lastFrame;
    j["calls"] = r.run.calls;
    j["calls_by_kind"] = r.run.callsByKind;
    j["realtime"] = r.run.realtime;
    j["wall_s"] = r.run.wallSeconds;
    j["stream_s"] = r.streamSeconds;
    j["process_cpu_s"] = r.run.cpuSeconds;
    j["sensors"] = json::array();
    for (auto const& f : r.sensors) {
        j["sensors"].push_back(sensorJson(r, f, frameLists));
    }
    j["timing"] = {{"wait", waitJson(r.wait)},
                   {"library_cpu_us_per_frame", r.run.libCpuUsPerFrame},
                   {"library_cpu_us_per_call", r.run.libCpuUsPerCall},
                   {"sof_skew", skewsJson(r)}};
    j["anomalies"] = anomalySectionJson(r);
    j["events"] = eventsJson(r);
    j["unpassed"] = unpassedJson(r);
    j["exit_status"] = r.exitStatus;
    return j;
}

nlohmann::json reportJson(std::vector<Timeline> const& sessions) {
    if (sessions.size() == 1) {
        return timelineJson(sessions.front());
    }
    nlohmann::json j = nlohmann::json::array();
    for (auto const& t : sessions) {
        j.push_back(timelineJson(t));
    }
    return j;
}

}  // namespace ryxsim
