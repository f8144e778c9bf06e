// The session's lines after the rendezvous: the updaters' verdicts and refusals, and drops.
#include "sources/logcat/LibraryLine.h"
#include "sources/logcat/SessionBuilder.h"

#include <sstream>

namespace ryxsim {

bool SessionBuilder::onUpdaterLine(LogLine const& l, std::string_view func, std::string const& s) {
    int f = 0, r = 0, v = 0, a = 0;
    if (func == "onEvent" && scan(s, "[r%d:f%d] type(%d) process type(%d)", &r, &f, &v, &a)) {
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
    char const* p = s.c_str();
    long long t1 = 0, t2 = 0, tol = 0;
    int first = 0, id = 0, ok = 1, n = 0;
    while (std::sscanf(p,
                       "[r%d:f%d], CamId=%d, time1=%lldns, SyncId=%d, time2=%lldns, "
                       "tolerance=%lldus, syncOK=%d%n",
                       &r, &f, &first, &t1, &id, &t2, &tol, &ok, &n) == 8) {
        FrameRecord& fr = frameAt(f);
        fr.request = r;
        fr.firstTarget = first;
        fr.toleranceUs = tol;
        cell(f, first).sofNs = t1;
        cell(f, id).sofNs = t2;
        mFrames[f].checked.insert({first, id});
        mFrames[f].syncOK = ok != 0;
        p += n;
    }
    return true;
}

bool SessionBuilder::onRefusalLine(LogLine const& l, std::string const& s, std::string_view rest) {
    int f = 0, c = 0, a = 0, b = 0;
    auto refuse = [&](Refusal why) {
        frameAt(f).refusal = why;
        mFrames[f].refused = true;
    };
    if (startsWith(s, "Timestamp not exist")) {
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
    } else if (scan(s, "masterId(%d), f(%d) frame inversion:previous master(%d), f(%d)", &c, &f, &a,
                    &b)) {
        t.frameInversions.push_back({LoggedAnomaly::Kind::FrameInversion, f, c, s});
        refuse(Refusal::FrameInversion);
        mFrames[f].masterRefused = true;
        cell(f, c);
    } else if (scan(s, "time inversion, drop directly, change masterId(%d), f(%d)", &c, &f)) {
        t.timeInversions.push_back({LoggedAnomaly::Kind::TimeInversion, f, c, s});
        refuse(Refusal::TimeInversion);
        mFrames[f].masterRefused = true;
        cell(f, c);
    } else if (scan(s, "[cam%d::f%d] Fail to get", &c, &f)) {
        t.missingTimestamps.push_back({LoggedAnomaly::Kind::MissingTimestamp, f, c, s});
        refuse(Refusal::MissingTimestamp);
        mFrames[f].masterRefused = true;
    } else if (scan(s, "master id(%d) f(%d)", &c, &f)) {
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
    std::string text(message.substr(std::min(message.find("[operator()] "), message.size())));
    int cam = -1, f = 0;
    bool inversion =
        scan(text, "[operator()] masterId(%d), f(%d) frame inversion", &cam, &f) ||
        scan(text, "[operator()] time inversion, drop directly, change masterId(%d)", &cam);
    bool sofMissing = scan(text, "[operator()] [cam%d::f%d] Fail to get sofTimeStamp", &cam, &f);
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
        if (!scan(s, "Remove frame(%d) from Queue", &f) || f != it->second) {
            mFrames[it->second].flushShown = true;
        }
        mDropping.erase(it);
    }
    if (scan(s, "[f%d] unlock", &f) && s.find(" CamId") == std::string::npos &&
        mFrames.count(f) != 0 && mFrames[f].dropEvent) {
        mDropping[l.tid] = f;
    }
}

bool SessionBuilder::onDropLine(LogLine const& l, std::string_view func, std::string const& s) {
    int f = 0, c = 0, v = 0, r = 0;
    if (scan(s, "Frame:%d Drop slave cam(%d), isLastItem(%d)", &f, &c, &v)) {
        learn(l.tid, c);
        CameraCell& x = cell(f, c);
        x.arriveNs = x.releaseNs = at(l);
        x.completed = v != 0;
        mCells[{f, c}].ownDrop = true;
    } else if (scan(s, "Frame:%d Update cameraDropList[", &f)) {
        seen(f);
        // "[0,3,]": the cameras that will find the frame in the drop queue.
        std::istringstream ids(s.substr(s.find('[') + 1));
        for (char comma = 0; ids >> c && ids >> comma && comma == ',';) {
            mCells[{f, c}].inDropList = true;
        }
        if (func == "notifyDrop") {  // the master's own drop, its first line read below
            mFrames[f].masterDrop = true;
        } else {  // the updaters refused the frame: its other cameras give up theirs too
            mFrames[f].refused = true;
        }
    } else if (scan(s, "Remove frame(%d) from Queue because it should be drop", &f)) {
        // The master's drop entering the queue; its list of cameras follows when it is new.
        seen(f);
        mFrames[f].masterDrop = true;
        mDeferred.push_back({Deferred::MasterDrop, l.tid, f, at(l), {}});
    } else if (scan(s, "need drop frame(%d)", &f)) {
        seen(f);
        mDeferred.push_back({Deferred::NeedDrop, l.tid, f, at(l), {}});
    } else if (scan(s, "cam[%d] frame(%d) is equal to DROP", &c, &f)) {
        arrive(l, f, c);
        cell(f, c).releaseNs = at(l);
        mCells[{f, c}].dropOnArrival = true;
    } else if (scan(s, "Remove frame: %d in mArrivedSyncMap", &f)) {
        mPruned[l.tid] = f;
    } else if (func == "dropItemsBySensor" || startsWith(s, "[S:")) {
        if (scan(s, "[S:%d] list :", &c)) {
            std::istringstream frames(s.substr(s.find(':', 3) + 1));
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
        if (scan(s, "[%d] souReq: %d, crop override: (%d, %d, %dx%d)", &f, &r, &left, &top, &w,
                 &h)) {
            mDeferred.push_back({Deferred::Crop, l.tid, f, at(l), NSCam::MRect{left, top, w, h}});
        }
    } else {
        return false;
    }
    return true;
}

}  // namespace ryxsim
