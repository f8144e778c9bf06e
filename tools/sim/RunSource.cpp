#include "RunSource.h"

#include <algorithm>
#include <set>

namespace ryxsim {

namespace {

char const* callName(CallKind kind) {
    switch (kind) {
        case CallKind::Drop:
            return "notifyDrop(input)";
        case CallKind::Flush:
            return "notifyDrop(frame, 0)";
        case CallKind::Leave:
            return "notifyDropBySensor";
        case CallKind::Crop:
            return "setSensorCropRegion";
        case CallKind::Result:
            break;
    }
    return "syncResultCheck";
}

// Events of the trace itself: flushes, master drops, leaves, crop sets, requested masters.
void addEvents(Timeline& t, Trace const& trace, RunResult const& run) {
    int lastMaster = INT32_MIN;
    std::set<int> masterSeen;
    for (size_t i = 0; i < trace.rows.size(); ++i) {
        CallRow const& row = trace.rows[i];
        std::optional<int64_t> at;
        if (run.outcomes.at(i).started) {
            at = run.outcomes[i].startNs;
        }
        t.callsByKind[kindName(row.kind)]++;
        switch (row.kind) {
            case CallKind::Flush:
                t.flushes.push_back({row.frame, row.sensor, at});
                break;
            case CallKind::Drop:
                if (row.master && *row.master == row.sensor && row.syncIds &&
                    !row.syncIds->empty()) {
                    t.masterDrops.push_back({row.frame, row.sensor, at});
                }
                break;
            case CallKind::Leave:
                t.leaves.push_back({row.frame, row.sensor, at});
                break;
            case CallKind::Crop:
                t.cropSets.push_back({row.frame, row.request});
                break;
            case CallKind::Result:
                if (row.master && masterSeen.insert(row.frame).second &&
                    *row.master != lastMaster) {
                    lastMaster = *row.master;
                    t.masterChanges.push_back({row.frame, *row.master});
                }
                break;
        }
    }
}

Refusal refusalOf(Timeline const& t, int frame) {
    auto has = [frame](std::vector<LoggedAnomaly> const& v) {
        return std::any_of(v.begin(), v.end(),
                           [frame](LoggedAnomaly const& a) { return a.frame == frame; });
    };
    if (has(t.frameInversions)) {
        return Refusal::FrameInversion;
    }
    if (has(t.timeInversions)) {
        return Refusal::TimeInversion;
    }
    if (has(t.missingTimestamps)) {
        return Refusal::MissingTimestamp;
    }
    return Refusal::Unknown;
}

void addAnomalies(Timeline& t, RunResult const& run) {
    for (auto const& a : run.logged) {
        switch (a.kind) {
            case LoggedAnomaly::Kind::FrameInversion:
                t.frameInversions.push_back(a);
                break;
            case LoggedAnomaly::Kind::TimeInversion:
                t.timeInversions.push_back(a);
                break;
            case LoggedAnomaly::Kind::MissingTimestamp:
                t.missingTimestamps.push_back(a);
                break;
        }
    }
    auto byFrame = [](LoggedAnomaly const& a, LoggedAnomaly const& b) { return a.frame < b.frame; };
    std::stable_sort(t.frameInversions.begin(), t.frameInversions.end(), byFrame);
    std::stable_sort(t.timeInversions.begin(), t.timeInversions.end(), byFrame);
    std::stable_sort(t.missingTimestamps.begin(), t.missingTimestamps.end(), byFrame);
}

}  // namespace

Timeline timelineFromRun(Trace const& trace, RunResult const& run) {
    Timeline t;
    t.name = trace.session.name;
    t.fps = trace.session.fps;
    t.calls = trace.rows.size();
    t.wallSeconds = run.wallSeconds;
    t.cpuSeconds = run.cpuSeconds;
    for (int id : trace.sensors()) {
        t.labels[id] = trace.session.sensorLabel(id);
        t.threadOf[id] = "sensor " + t.labels[id];
    }
    addEvents(t, trace, run);
    addAnomalies(t, run);
    std::set<int> flushed, masterDropped;
    for (auto const& e : t.flushes) {
        flushed.insert(e.frame);
    }
    for (auto const& e : t.masterDrops) {
        masterDropped.insert(e.frame);
    }

    std::map<int, std::pair<int64_t, int>> cpu;  // sensor -> (ns, calls)
    int64_t cpuAll = 0;
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
        FrameRecord& f = t.frame(row.frame);
        f.request = row.request;
        CameraCell cell;
        cell.sensor = row.sensor;
        cell.row = i;
        if (row.sofNs != 0) {
            cell.sofNs = row.sofNs;
        }
        if (out.started) {
            cell.arriveNs = out.startNs;
        }
        if (!out.started) {
            cell.verdict = Verdict::NotRun;
        } else if (!out.returned) {
            cell.verdict = Verdict::Blocked;
        } else if (row.kind == CallKind::Drop) {
            cell.releaseNs = out.startNs + out.wallNs;
            cell.verdict = Verdict::Dropped;
            cell.cause = DropCause::Own;
        } else {
            cell.releaseNs = out.startNs + out.wallNs;
            cell.master = out.masterCam;
            cell.cropOverride = out.cropOverride;
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
                f.refusal = refusalOf(t, row.frame);
            }
            // The first camera to arrive creates the frame and heads its sync-target list; its
            // control metadata carries the tolerance and the mode.
            CameraCell const* first = f.firstTarget ? f.cell(*f.firstTarget) : nullptr;
            if (first == nullptr || *first->arriveNs > out.startNs) {
                f.firstTarget = row.sensor;
                f.toleranceUs = row.toleranceUs;
                f.mode = row.mode;
            }
        }
        f.cells.push_back(cell);
    }
    for (auto const& [id, c] : cpu) {
        SensorFigures s;
        s.sensor = id;
        s.cpuUsPerCall = c.second ? c.first / 1000.0 / c.second : 0;
        t.sensors.push_back(s);
    }
    size_t returned = 0;
    for (auto const& [id, c] : cpu) {
        returned += static_cast<size_t>(c.second);
    }
    for (auto const& b : run.blocked) {
        CallRow const& row = trace.rows.at(b.row);
        t.blocked.push_back({b.sensor, trace.session.sensorLabel(b.sensor), callName(row.kind),
                             row.frame, row.request, b.seconds});
    }
    finishTimeline(t);
    t.libCpuUsPerFrame = t.frameCount ? cpuAll / 1000.0 / t.frameCount : 0;
    t.libCpuUsPerCall = returned ? cpuAll / 1000.0 / static_cast<double>(returned) : 0;
    t.exitStatus = t.blocked.empty() ? 0 : 3;
    return t;
}

}  // namespace ryxsim
