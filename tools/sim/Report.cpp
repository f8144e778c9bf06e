#include "Report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>
#include <set>

namespace ryxsim {

char const* verdictName(Verdict v) {
    switch (v) {
        case Verdict::InSync:
            return "in sync";
        case Verdict::Unchecked:
            return "unchecked";
        case Verdict::OutOfSync1:
            return "out of sync (1)";
        case Verdict::OutOfSync2:
            return "out of sync (2)";
        case Verdict::Dropped:
            return "dropped";
        case Verdict::Blocked:
            return "blocked";
        case Verdict::NotRun:
            return "not run";
    }
    return "?";
}

char const* dropCauseName(DropCause c) {
    switch (c) {
        case DropCause::None:
            return "";
        case DropCause::Own:
            return "own drop";
        case DropCause::MasterDrop:
            return "master drop";
        case DropCause::Flush:
            return "flush";
        case DropCause::Refused:
            return "refused";
    }
    return "?";
}

WaitStats waitStats(std::vector<int64_t> ns) {
    WaitStats w;
    w.count = ns.size();
    if (ns.empty()) {
        return w;
    }
    std::sort(ns.begin(), ns.end());
    auto rank = [&](double q) {
        size_t k = static_cast<size_t>(std::ceil(q * static_cast<double>(ns.size())));
        return ns[std::min(ns.size() - 1, k == 0 ? 0 : k - 1)] / 1000.0;
    };
    w.p50Us = rank(0.50);
    w.p99Us = rank(0.99);
    w.maxUs = ns.back() / 1000.0;
    return w;
}

Report buildReport(Trace const& trace, RunResult const& run) {
    Report rep;
    rep.name = trace.session.name;
    rep.fps = trace.session.fps;
    rep.calls = trace.rows.size();
    rep.wallSeconds = run.wallSeconds;
    rep.cpuSeconds = run.cpuSeconds;

    std::set<int> flushed;
    std::set<int> masterDropped;
    std::set<int> frames;
    int lastMaster = INT32_MIN;
    std::set<int> masterSeen;
    for (auto const& row : trace.rows) {
        rep.callsByKind[kindName(row.kind)]++;
        switch (row.kind) {
            case CallKind::Flush:
                flushed.insert(row.frame);
                rep.flushes.push_back(row.frame);
                break;
            case CallKind::Drop:
                frames.insert(row.frame);
                if (row.master && *row.master == row.sensor && row.syncIds &&
                    !row.syncIds->empty()) {
                    masterDropped.insert(row.frame);
                    rep.masterDrops.push_back({row.frame, row.sensor});
                }
                break;
            case CallKind::Leave:
                rep.leaves.push_back({row.frame, row.sensor});
                break;
            case CallKind::Crop:
                rep.cropSets.push_back({row.frame, row.request});
                break;
            case CallKind::Result:
                frames.insert(row.frame);
                if (row.master && masterSeen.insert(row.frame).second &&
                    *row.master != lastMaster) {
                    lastMaster = *row.master;
                    rep.masterChanges.push_back({row.frame, *row.master});
                }
                break;
        }
    }
    rep.frames = static_cast<int>(frames.size());
    rep.firstFrame = frames.empty() ? 0 : *frames.begin();
    rep.lastFrame = frames.empty() ? 0 : *frames.rbegin();
    rep.streamSeconds = rep.fps > 0 ? rep.frames / rep.fps : 0;

    std::map<int, SensorFigures> bySensor;
    for (int id : trace.sensors()) {
        bySensor[id].sensor = id;
        bySensor[id].label = trace.session.sensorLabel(id);
    }
    std::vector<int64_t> allWaits;
    std::map<int, std::vector<int64_t>> waits;
    std::map<int, std::pair<int64_t, int>> cpu;  // sensor -> (ns, calls)
    int64_t cpuAll = 0;
    std::set<int> never;
    for (size_t i = 0; i < trace.rows.size(); ++i) {
        CallRow const& row = trace.rows[i];
        CallOutcome const& out = run.outcomes.at(i);
        if (out.returned) {
            cpu[row.sensor].first += out.cpuNs;
            cpu[row.sensor].second += 1;
            cpuAll += out.cpuNs;
        }
        if (row.kind != CallKind::Result && row.kind != CallKind::Drop) {
            continue;
        }
        SensorFigures& f = bySensor[row.sensor];
        FrameCell cell;
        cell.frame = row.frame;
        cell.row = i;
        if (!out.started) {
            cell.verdict = Verdict::NotRun;
        } else if (!out.returned) {
            cell.verdict = Verdict::Blocked;
            never.insert(row.frame);
        } else if (row.kind == CallKind::Drop) {
            cell.verdict = Verdict::Dropped;
            cell.cause = DropCause::Own;
        } else {
            waits[row.sensor].push_back(out.wallNs);
            allWaits.push_back(out.wallNs);
            cell.master = out.masterCam;
            if (out.cropOverride) {
                f.cropOverrides++;
            }
            int64_t res = out.syncResult.value_or(-1);
            if (out.verdict) {
                cell.verdict = res == 1  ? Verdict::OutOfSync1
                               : res < 0 ? Verdict::Unchecked
                                         : Verdict::InSync;
            } else if (flushed.count(row.frame) != 0) {
                cell.verdict = Verdict::Dropped;
                cell.cause = DropCause::Flush;
            } else if (masterDropped.count(row.frame) != 0) {
                cell.verdict = Verdict::Dropped;
                cell.cause = DropCause::MasterDrop;
            } else if (res == 2) {
                cell.verdict = Verdict::OutOfSync2;
            } else {
                cell.verdict = Verdict::Dropped;
                cell.cause = DropCause::Refused;
            }
        }
        f.offered++;
        switch (cell.verdict) {
            case Verdict::InSync:
                f.inSync++;
                break;
            case Verdict::Unchecked:
                f.unchecked++;
                break;
            case Verdict::OutOfSync1:
                f.outOfSync1++;
                break;
            case Verdict::OutOfSync2:
                f.outOfSync2++;
                break;
            case Verdict::Dropped:
                f.dropped++;
                break;
            case Verdict::Blocked:
                f.blocked++;
                break;
            case Verdict::NotRun:
                f.notRun++;
                break;
        }
        switch (cell.cause) {
            case DropCause::Own:
                f.dropOwn++;
                break;
            case DropCause::MasterDrop:
                f.dropMaster++;
                break;
            case DropCause::Flush:
                f.dropFlush++;
                break;
            case DropCause::Refused:
                f.dropRefused++;
                break;
            case DropCause::None:
                break;
        }
        if (cell.master) {
            f.masterFrames++;
        }
        f.cells.push_back(cell);
    }
    for (auto& [id, f] : bySensor) {
        f.wait = waitStats(waits[id]);
        f.cpuUsPerCall = cpu[id].second ? cpu[id].first / 1000.0 / cpu[id].second : 0;
        rep.sensors.push_back(f);
    }
    rep.wait = waitStats(allWaits);
    size_t returned = 0;
    for (auto const& [id, c] : cpu) {
        returned += static_cast<size_t>(c.second);
    }
    rep.libCpuUsPerFrame = rep.frames ? cpuAll / 1000.0 / rep.frames : 0;
    rep.libCpuUsPerCall = returned ? cpuAll / 1000.0 / static_cast<double>(returned) : 0;

    for (auto const& a : run.logged) {
        switch (a.kind) {
            case LoggedAnomaly::Kind::FrameInversion:
                rep.frameInversions.push_back(a);
                break;
            case LoggedAnomaly::Kind::TimeInversion:
                rep.timeInversions.push_back(a);
                break;
            case LoggedAnomaly::Kind::MissingTimestamp:
                rep.missingTimestamps.push_back(a);
                break;
        }
    }
    auto byFrame = [](LoggedAnomaly const& a, LoggedAnomaly const& b) { return a.frame < b.frame; };
    std::stable_sort(rep.frameInversions.begin(), rep.frameInversions.end(), byFrame);
    std::stable_sort(rep.timeInversions.begin(), rep.timeInversions.end(), byFrame);
    std::stable_sort(rep.missingTimestamps.begin(), rep.missingTimestamps.end(), byFrame);
    rep.neverCompleted.assign(never.begin(), never.end());
    for (auto const& b : run.blocked) {
        CallRow const& row = trace.rows.at(b.row);
        char const* call = "syncResultCheck";
        switch (row.kind) {
            case CallKind::Drop:
                call = "notifyDrop(input)";
                break;
            case CallKind::Flush:
                call = "notifyDrop(frame, 0)";
                break;
            case CallKind::Leave:
                call = "notifyDropBySensor";
                break;
            case CallKind::Crop:
                call = "setSensorCropRegion";
                break;
            case CallKind::Result:
                break;
        }
        rep.blocked.push_back({b.sensor, trace.session.sensorLabel(b.sensor), call, row.frame,
                               row.request, b.seconds});
    }
    rep.exitStatus = rep.blocked.empty() ? 0 : 3;
    return rep;
}

namespace {

std::string fmtUs(double us) {
    char buf[32];
    if (us >= 1000.0) {
        std::snprintf(buf, sizeof buf, "%.2f ms", us / 1000.0);
    } else {
        std::snprintf(buf, sizeof buf, "%.0f us", us);
    }
    return buf;
}

std::string frameList(std::vector<LoggedAnomaly> const& v) {
    if (v.empty()) {
        return "none";
    }
    std::string s;
    for (auto const& a : v) {
        s += (s.empty() ? "" : ", ") + ("f" + std::to_string(a.frame)) + " (master " +
             std::to_string(a.master) + ")";
    }
    return s;
}

}  // namespace

void printReport(std::ostream& out, Report const& r) {
    char line[512];
    std::snprintf(line, sizeof line, "synchelper-sim: %s", r.name.c_str());
    out << line;
    if (r.seed) {
        out << " (seed " << *r.seed << ")";
    }
    if (!r.source.empty()) {
        out << ", " << r.source;
    }
    out << "\n";
    std::string pace = "paced at the frame rate";
    if (!r.blocked.empty()) {
        pace = "stopped: threads blocked";
    } else if (!r.realtime) {
        double speed = r.wallSeconds > 0 ? r.streamSeconds / r.wallSeconds : 0;
        pace = speed >= 1.5 ? std::to_string(static_cast<long>(std::lround(speed))) +
                                  "x faster than real time"
                            : "about real time or slower";
    }
    std::snprintf(line, sizeof line,
                  "%zu sensors, %d frames (f%d..f%d) at %g fps = %.1f s of stream, run in %.2f s "
                  "(%s)\n",
                  r.sensors.size(), r.frames, r.firstFrame, r.lastFrame, r.fps, r.streamSeconds,
                  r.wallSeconds, pace.c_str());
    out << line;
    out << r.calls << " calls:";
    bool first = true;
    for (auto const& [kind, n] : r.callsByKind) {
        out << (first ? " " : ", ") << n << " " << kind;
        first = false;
    }
    out << "\n\n";

    bool stuck = std::any_of(r.sensors.begin(), r.sensors.end(),
                             [](SensorFigures const& f) { return f.blocked > 0 || f.notRun > 0; });
    size_t w = 6;
    for (auto const& f : r.sensors) {
        w = std::max(w, f.label.size());
    }
    std::snprintf(line, sizeof line, "%-*s %8s %8s %10s %8s %8s %8s %7s", static_cast<int>(w),
                  "sensor", "offered", "in sync", "unchecked", "out (1)", "out (2)", "dropped",
                  "master");
    out << line << (stuck ? "  blocked  not run" : "") << "\n";
    for (auto const& f : r.sensors) {
        std::snprintf(line, sizeof line, "%-*s %8d %8d %10d %8d %8d %8d %7d", static_cast<int>(w),
                      f.label.c_str(), f.offered, f.inSync, f.unchecked, f.outOfSync1, f.outOfSync2,
                      f.dropped, f.masterFrames);
        out << line;
        if (stuck) {
            std::snprintf(line, sizeof line, " %8d %8d", f.blocked, f.notRun);
            out << line;
        }
        out << "\n";
    }
    out << "  out (1): out of sync, RYX_FRAMESYNC_RESULT 1 (delivered); out (2): "
           "RYX_FRAMESYNC_RESULT 2 (failed);\n  unchecked: delivered without a timestamp verdict; "
           "master: frames with bMasterCam set\n";
    out << "dropped by cause, and crop overrides written:\n";
    for (auto const& f : r.sensors) {
        std::snprintf(line, sizeof line,
                      "  %-*s own drop %d, master drop %d, flush %d, refused %d; crop overrides "
                      "%d\n",
                      static_cast<int>(w), f.label.c_str(), f.dropOwn, f.dropMaster, f.dropFlush,
                      f.dropRefused, f.cropOverrides);
        out << line;
    }

    out << "\ntiming\n";
    if (r.wait.count == 0) {
        out << "  no syncResultCheck call returned\n";
    } else {
        out << "  rendezvous wait (time in syncResultCheck): p50 " << fmtUs(r.wait.p50Us)
            << ", p99 " << fmtUs(r.wait.p99Us) << ", max " << fmtUs(r.wait.maxUs) << " over "
            << r.wait.count << " calls\n";
        for (auto const& f : r.sensors) {
            std::snprintf(line, sizeof line, "    %-*s p50 %s, p99 %s, max %s\n",
                          static_cast<int>(w), f.label.c_str(), fmtUs(f.wait.p50Us).c_str(),
                          fmtUs(f.wait.p99Us).c_str(), fmtUs(f.wait.maxUs).c_str());
            out << line;
        }
    }
    std::snprintf(line, sizeof line,
                  "  library CPU: %.1f us per frame (all sensors), %.1f us per call; process CPU "
                  "%.2f s\n",
                  r.libCpuUsPerFrame, r.libCpuUsPerCall, r.cpuSeconds);
    out << line;

    out << "\nanomalies\n";
    out << "  frame inversions:        " << frameList(r.frameInversions) << "\n";
    out << "  time inversions:         " << frameList(r.timeInversions) << "\n";
    out << "  missing timestamps:      " << frameList(r.missingTimestamps) << "\n";
    out << "  frames never completed:  ";
    if (r.neverCompleted.empty()) {
        out << "none";
    }
    for (size_t i = 0; i < r.neverCompleted.size(); ++i) {
        out << (i ? ", " : "") << "f" << r.neverCompleted[i];
    }
    out << "\n  threads still blocked:   " << (r.blocked.empty() ? "none" : "") << "\n";
    for (auto const& b : r.blocked) {
        std::snprintf(line, sizeof line, "    sensor %s in %s for f%d (r%d), for %.1f s\n",
                      b.label.c_str(), b.call.c_str(), b.frame, b.request, b.seconds);
        out << line;
    }
}

nlohmann::json reportJson(Report const& r) {
    using nlohmann::json;
    auto wait = [](WaitStats const& w) {
        return json{
            {"calls", w.count}, {"p50_us", w.p50Us}, {"p99_us", w.p99Us}, {"max_us", w.maxUs}};
    };
    auto anomalies = [](std::vector<LoggedAnomaly> const& v) {
        json a = json::array();
        for (auto const& x : v) {
            a.push_back({{"frame", x.frame}, {"master", x.master}, {"log", x.text}});
        }
        return a;
    };
    json j;
    j["tool"] = "synchelper-sim";
    j["name"] = r.name;
    j["source"] = r.source;
    j["seed"] = r.seed ? json(*r.seed) : json(nullptr);
    j["fps"] = r.fps;
    j["frames"] = r.frames;
    j["first_frame"] = r.firstFrame;
    j["last_frame"] = r.lastFrame;
    j["calls"] = r.calls;
    j["calls_by_kind"] = r.callsByKind;
    j["realtime"] = r.realtime;
    j["wall_s"] = r.wallSeconds;
    j["stream_s"] = r.streamSeconds;
    j["process_cpu_s"] = r.cpuSeconds;
    json sensors = json::array();
    for (auto const& f : r.sensors) {
        json frames = json::array();
        for (auto const& c : f.cells) {
            json cell{{"frame", c.frame}, {"verdict", verdictName(c.verdict)}};
            if (c.cause != DropCause::None) {
                cell["cause"] = dropCauseName(c.cause);
            }
            if (c.master) {
                cell["master"] = true;
            }
            frames.push_back(cell);
        }
        sensors.push_back({{"id", f.sensor},
                           {"label", f.label},
                           {"offered", f.offered},
                           {"in_sync", f.inSync},
                           {"unchecked", f.unchecked},
                           {"out_of_sync_1", f.outOfSync1},
                           {"out_of_sync_2", f.outOfSync2},
                           {"dropped", f.dropped},
                           {"blocked", f.blocked},
                           {"not_run", f.notRun},
                           {"master_frames", f.masterFrames},
                           {"crop_overrides", f.cropOverrides},
                           {"dropped_by_cause",
                            {{"own_drop", f.dropOwn},
                             {"master_drop", f.dropMaster},
                             {"flush", f.dropFlush},
                             {"refused", f.dropRefused}}},
                           {"wait", wait(f.wait)},
                           {"cpu_us_per_call", f.cpuUsPerCall},
                           {"frames", frames}});
    }
    j["sensors"] = sensors;
    j["timing"] = {{"wait", wait(r.wait)},
                   {"library_cpu_us_per_frame", r.libCpuUsPerFrame},
                   {"library_cpu_us_per_call", r.libCpuUsPerCall}};
    json blocked = json::array();
    for (auto const& b : r.blocked) {
        blocked.push_back({{"sensor", b.sensor},
                           {"call", b.call},
                           {"frame", b.frame},
                           {"request", b.request},
                           {"seconds", b.seconds}});
    }
    j["anomalies"] = {{"frame_inversions", anomalies(r.frameInversions)},
                      {"time_inversions", anomalies(r.timeInversions)},
                      {"missing_timestamps", anomalies(r.missingTimestamps)},
                      {"never_completed", r.neverCompleted},
                      {"blocked_threads", blocked}};
    json events;
    events["flushes"] = r.flushes;
    events["master_drops"] = json::array();
    for (auto const& [f, s] : r.masterDrops) {
        events["master_drops"].push_back({{"frame", f}, {"sensor", s}});
    }
    events["leaves"] = json::array();
    for (auto const& [f, s] : r.leaves) {
        events["leaves"].push_back({{"frame", f}, {"sensor", s}});
    }
    events["crop_sets"] = json::array();
    for (auto const& [f, q] : r.cropSets) {
        events["crop_sets"].push_back({{"frame", f}, {"request", q}});
    }
    events["requested_master"] = json::array();
    for (auto const& [f, m] : r.masterChanges) {
        events["requested_master"].push_back({{"from_frame", f}, {"sensor", m}});
    }
    j["events"] = events;
    j["exit_status"] = r.exitStatus;
    return j;
}

}  // namespace ryxsim
