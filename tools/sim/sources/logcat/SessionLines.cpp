// The session's lines after the rendezvous: the updaters' verdicts and refusals, and drops.
#include "sources/logcat/LibraryLine.h"
#include "sources/logcat/SessionBuilder.h"

#include <sstream>

namespace ryxsim {

bool SessionBuilder::onUpdaterLine(LogLine const& l, std::string_view func, std::string const& s) {
    int f = 0, r = 0, v = 0, a = 0;
    if (func == "onEvent" && readMessage(s, RYX_MSG_UPDATERS_RUN, &r, &f, &v, &a)) {
        frameAt(f).request = r;
        mUpdating[l.tid] = f;
        mLive.erase(f);
        (v == 0 ? mFrames[f].ready : mFrames[f].dropEvent) = true;
        return true;
    }
    // (A format without tags, raw or thread, shows the line all the same.)
    if (func == "update" && s.empty() &&
        (l.tag.empty() || l.tag == "RyxCam/TimestampSyncDataUpdater")) {
        // In sync with nobody else to compare: the frame's other cameras dropped it.
        auto it = mUpdating.find(l.tid);
        if (it != mUpdating.end()) {
            mFrames[it->second].syncOK = true;
        }
        return true;
    }
    if (func != "update" || !startsWith(s, "[r")) {
        return false;
    }
    // "[rR:fF], CamId=F, time1=Tns, SyncId=S, time2=Tns, tolerance=Tus, syncOK=K" repeated.
    std::string_view p = s;
    long long t1 = 0, t2 = 0, tol = 0;
    int first = 0, id = 0, ok = 1;
    for (long n = 0; (n = matchFormat(p, RYX_MSG_COMPARISON,
                                      {&r, &f, &first, &t1, &id, &t2, &tol, &ok})) > 0;) {
        FrameRecord& fr = frameAt(f);
        fr.request = r;
        fr.firstTarget = first;
        fr.toleranceUs = tol;
        cell(f, first).sofNs = t1;
        cell(f, id).sofNs = t2;
        mFrames[f].checked.insert({first, id});
        mFrames[f].syncOK = ok != 0;
        p.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

bool SessionBuilder::onRefusalLine(LogLine const& l, std::string const& s, std::string_view rest) {
    int f = 0, c = 0, a = 0, b = 0;
    auto refuse = [&](Refusal why) {
        frameAt(f).refusal = why;
        mFrames[f].refused = true;
    };
    if (readMessage(s, RYX_MSG_TIMESTAMP_MISSING)) {
        // No frame number in it: the frame whose updaters run on this thread.
        auto it = mUpdating.find(l.tid);
        if (it != mUpdating.end() && mFrames[it->second].ready) {
            f = it->second;
            refuse(Refusal::MissingTimestamp);
            t.missingTimestamps.push_back(
                {LoggedAnomaly::Kind::MissingTimestamp, f, -1, std::string(l.message)});
        } else {
            mMissingWithoutFrame = "a start-of-frame timestamp was missing (\"" +
                                   std::string(rest) + "\"), the frame is not in the log";
        }
    } else if (readMessage(s, RYX_MSG_FRAME_INVERSION, &c, &f, &a, &b)) {
        t.frameInversions.push_back({LoggedAnomaly::Kind::FrameInversion, f, c, s});
        refuse(Refusal::FrameInversion);
        mFrames[f].masterRefused = true;
        cell(f, c);
    } else if (readMessage(s, RYX_MSG_TIME_INVERSION, &c, &f, kSkip, kSkip)) {
        t.timeInversions.push_back({LoggedAnomaly::Kind::TimeInversion, f, c, s});
        refuse(Refusal::TimeInversion);
        mFrames[f].masterRefused = true;
        cell(f, c);
    } else if (readMessage(s, RYX_MSG_SOF_MISSING, &c, &f) ||
               readMessage(s, RYX_MSG_EXPOSURE_MISSING, &c, &f)) {
        t.missingTimestamps.push_back({LoggedAnomaly::Kind::MissingTimestamp, f, c, s});
        refuse(Refusal::MissingTimestamp);
        mFrames[f].masterRefused = true;
    } else if (readMessage(s, RYX_MSG_MASTER_SET, &c, &f)) {
        cell(f, c).master = true;
    } else {
        return false;
    }
    return true;
}

bool SessionBuilder::contradicts(std::string_view func, std::string_view message, int frame) const {
    auto it = mFrames.find(frame);
    if (it == mFrames.end()) {
        return false;
    }
    FrameFlags const& ff = it->second;
    if (func == "update") {
        return message.find("syncOK=") != std::string_view::npos &&
               (ff.syncOK.has_value() || ff.masterRefused);
    }
    constexpr std::string_view kLambda = "[operator()] ";
    std::string_view text = message.substr(std::min(message.find(kLambda), message.size()));
    text.remove_prefix(std::min(kLambda.size(), text.size()));
    int cam = -1, f = 0;
    bool inversion = readPrefix(text, RYX_MSG_FRAME_INVERSION, &cam, &f, kSkip, kSkip) ||
                     readPrefix(text, RYX_MSG_TIME_INVERSION, &cam, &f, kSkip, kSkip);
    bool sofMissing = readPrefix(text, RYX_MSG_SOF_MISSING, &cam, &f);
    if (!inversion && !sofMissing) {
        return false;
    }
    bool uncompared = !ff.checked.empty() && ff.checked.count(cam) == 0;
    return ff.masterRefused || uncompared || (sofMissing && ff.syncOK.has_value());
}

// A frame dropped while live is the master's drop when the dropping thread goes on to enter
// it in the drop queue, and a flush's otherwise. (Without thread ids the next line may be any
// thread's: the cause stays what later lines show.)
void SessionBuilder::noteDropperMovedOn(LogLine const& l, std::string const& s) {
    int f = 0;
    if (l.tid < 0) {
        return;
    }
    auto it = mDropping.find(l.tid);
    if (it != mDropping.end()) {
        if (!readMessage(s, RYX_MSG_MASTER_DROP_QUEUED, &f) || f != it->second) {
            mFrames[it->second].flushShown = true;
        }
        mDropping.erase(it);
    }
    if (readMessage(s, RYX_MSG_DROP_UNLOCK, &f) && mFrames.count(f) != 0 && mFrames[f].dropEvent) {
        mDropping[l.tid] = f;
    }
}

bool SessionBuilder::onDropLine(LogLine const& l, std::string_view func, std::string const& s) {
    int f = 0, c = 0, v = 0, r = 0;
    std::string list;
    if (readMessage(s, RYX_MSG_SLAVE_DROP, &f, &c, &v)) {
        learn(l.tid, c);
        CameraCell& x = cell(f, c);
        x.arriveNs = x.releaseNs = at(l);
        x.completed = v != 0;
        mCells[{f, c}].ownDrop = true;
    } else if (readPrefix(s, RYX_MSG_MASTER_DROP_LIST, &f, &list) ||
               readPrefix(s, RYX_MSG_REFUSAL_DROP_LIST, &f, &list)) {
        seen(f);
        // "0,3,": the cameras that will find the frame in the drop queue.
        std::istringstream ids(list);
        for (char comma = 0; ids >> c && ids >> comma && comma == ',';) {
            mCells[{f, c}].inDropList = true;
        }
        if (func == "notifyDrop") {  // the master's own drop, its first line read below
            mFrames[f].masterDrop = true;
        } else {  // the updaters refused the frame: its other cameras give up theirs too
            mFrames[f].refused = true;
        }
    } else if (readMessage(s, RYX_MSG_MASTER_DROP_QUEUED, &f)) {
        // The master's drop entering the queue; its list of cameras follows when it is new.
        seen(f);
        mFrames[f].masterDrop = true;
        mDeferred.push_back({Deferred::MasterDrop, l.tid, f, at(l), {}});
    } else if (readMessage(s, RYX_MSG_NEED_DROP, &f)) {
        seen(f);
        mDeferred.push_back({Deferred::NeedDrop, l.tid, f, at(l), {}});
    } else if (readMessage(s, RYX_MSG_EQUAL_TO_DROP, &c, &f, kSkip, kSkip)) {
        arrive(l, f, c);
        cell(f, c).releaseNs = at(l);
        mCells[{f, c}].dropOnArrival = true;
    } else if (readMessage(s, RYX_MSG_ARRIVAL_PRUNED, &f)) {
        mPruned[l.tid] = f;
    } else if (func == "dropItemsBySensor" || startsWithMessage(s, RYX_MSG_SENSOR_LEFT)) {
        if (readMessage(s, RYX_MSG_SENSOR_LEFT, &c, &list)) {
            std::istringstream frames(list);
            int first = -1;
            while (frames >> f) {
                first = first < 0 ? f : first;
                cell(f, c);
                mCells[{f, c}].left = true;
            }
            t.leaves.push_back({first, c, at(l)});
        }
    } else if (func == "getSensorCropRegion") {
        int left = 0, top = 0, w = 0, h = 0;
        if (readMessage(s, RYX_MSG_CROP_OVERRIDE, &f, &r, &left, &top, &w, &h)) {
            mDeferred.push_back({Deferred::Crop, l.tid, f, at(l), NSCam::MRect{left, top, w, h}});
        }
    } else {
        return false;
    }
    return true;
}

}  // namespace ryxsim
