#include "sources/run/RunSource.h"

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

void sortAnomalies(Timeline& t) {
    auto byFrame = [](LoggedAnomaly const& a, LoggedAnomaly const& b) { return a.frame < b.frame; };
    std::stable_sort(t.frameInversions.begin(), t.frameInversions.end(), byFrame);
    std::stable_sort(t.timeInversions.begin(), t.timeInversions.end(), byFrame);
    std::stable_sort(t.missingTimestamps.begin(), t.missingTimestamps.end(), byFrame);
}

}  // namespace

RunTimeline::RunTimeline(SessionInfo const& session, std::vector<int> const& sensors,
                         size_t detailFrames) {
    mT.name = session.name;
    mT.fps = session.fps;
    mT.detailFrames = detailFrames;
    for (int id : sensors) {
        mT.labels[id] = session.sensorLabel(id);
        mT.threadOf[id] = "sensor " + mT.labels[id];
    }
}

void RunTimeline::logged(LoggedAnomaly const& a) {
    switch (a.kind) {
        case LoggedAnomaly::Kind::FrameInversion:
            mT.frameInversions.push_back(a);
            break;
        case LoggedAnomaly::Kind::TimeInversion:
            mT.timeInversions.push_back(a);
            break;
        case LoggedAnomaly::Kind::MissingTimestamp:
            mT.missingTimestamps.push_back(a);
            break;
    }
}

void RunTimeline::call(size_t index, CallRow const& row, CallOutcome const& out) {
    mT.run.calls++;
    if (out.returned) {
        mCpu[row.sensor].first += out.cpuNs;
        mCpu[row.sensor].second += 1;
        mCpuAll += out.cpuNs;
        ++mReturned;
    }
    addEvent(row, out);
    if (row.kind == CallKind::Result || row.kind == CallKind::Drop) {
        closeBefore(int64_t{row.frame} - kOpenFrames);
        addCell(index, row, out);
    }
}

// Events of the trace itself: flushes, master drops, leaves, crop sets, requested masters.
void RunTimeline::addEvent(CallRow const& row, CallOutcome const& out) {
    std::optional<int64_t> at;
    if (out.started) {
        at = out.startNs;
    }
    mT.run.callsByKind[kindName(row.kind)]++;
    switch (row.kind) {
        case CallKind::Flush:
            mT.flushes.push_back({row.frame, row.sensor, at});
            mFlushed.insert(row.frame);
            break;
        case CallKind::Drop:
            if (row.master && *row.master == row.sensor && row.syncIds && !row.syncIds->empty()) {
                mT.masterDrops.push_back({row.frame, row.sensor, at});
                mMasterDropped.insert(row.frame);
            }
            break;
        case CallKind::Leave:
            mT.leaves.push_back({row.frame, row.sensor, at});
            break;
        case CallKind::Crop:
            mT.cropSets.push_back({row.frame, row.request});
            break;
        case CallKind::Result:
            if (row.master && mMasterSeen.insert(row.frame).second && *row.master != mLastMaster) {
                mLastMaster = *row.master;
                mT.masterChanges.push_back({row.frame, *row.master});
            }
            while (mMasterSeen.size() > 4 * size_t{kOpenFrames}) {
                mMasterSeen.erase(mMasterSeen.begin());
            }
            break;
    }
}

void RunTimeline::addCell(size_t index, CallRow const& row, CallOutcome const& out) {
    OpenFrame& open = mOpen[row.frame];
    FrameRecord& f = open.record;
    f.frame = row.frame;
    f.request = row.request;
    CameraCell cell;
    cell.sensor = row.sensor;
    cell.row = index;
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
        } else {
            open.refused.push_back({f.cells.size(), res == 2});
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

void RunTimeline::closeBefore(int64_t frame) {
    while (!mOpen.empty() && mOpen.begin()->first < frame) {
        close(mOpen.begin()->second);
        mOpen.erase(mOpen.begin());
    }
}

void RunTimeline::close(OpenFrame& open) {
    FrameRecord& f = open.record;
    for (auto const& [i, result2] : open.refused) {
        CameraCell& cell = f.cells[i];
        if (mFlushed.count(f.frame) != 0) {
            cell.verdict = Verdict::Dropped;
            cell.cause = DropCause::Flush;
        } else if (mMasterDropped.count(f.frame) != 0) {
            cell.verdict = Verdict::Dropped;
            cell.cause = DropCause::MasterDrop;
        } else if (result2) {
            cell.verdict = Verdict::OutOfSync2;
        } else {
            cell.verdict = Verdict::Dropped;
            cell.cause = DropCause::Refused;
            f.refusal = refusalOf(mT, f.frame);
        }
    }
    foldFrame(mT, std::move(f));
}

Timeline RunTimeline::finish(RunResult const& run) {
    closeBefore(INT32_MAX);
    sortAnomalies(mT);
    mT.run.wallSeconds = run.wallSeconds;
    mT.run.cpuSeconds = run.cpuSeconds;
    for (auto const& [id, c] : mCpu) {
        SensorFigures s;
        s.sensor = id;
        s.cpuUsPerCall = c.second ? c.first / 1000.0 / c.second : 0;
        mT.sensors.push_back(s);
    }
    for (auto const& b : run.blocked) {
        mT.blocked.push_back(
            {b.sensor, mT.label(b.sensor), callName(b.kind), b.frame, b.request, b.seconds});
    }
    finishTimeline(mT);
    mT.run.libCpuUsPerFrame = mT.frameCount ? mCpuAll / 1000.0 / mT.frameCount : 0;
    mT.run.libCpuUsPerCall = mReturned ? mCpuAll / 1000.0 / static_cast<double>(mReturned) : 0;
    mT.exitStatus = mT.blocked.empty() ? 0 : 3;
    return std::move(mT);
}

Timeline timelineFromRun(Trace const& trace, RunResult const& run, size_t detailFrames) {
    RunTimeline b(trace.session, trace.sensors(), detailFrames);
    for (auto const& a : run.logged) {
        b.logged(a);
    }
    for (size_t i = 0; i < trace.rows.size(); ++i) {
        b.call(i, trace.rows[i], run.outcomes.at(i));
    }
    return b.finish(run);
}

}  // namespace ryxsim
