// Following a stream: frames resolved and folded while the capture still comes in.
#include "sources/logcat/SessionBuilder.h"

#include <algorithm>

namespace ryxsim {

// Below the returned frame no line can still change a frame: the stream is kSettleLag frames
// past it, and no call, update or queue place of it is open.
int SessionBuilder::settleBound() const {
    int bound = mHighestFrame - kSettleLag;
    for (auto const& [tid, call] : mCalls) {
        if (call.frame >= mHighestFrame - kStaleCall) {  // a thread that calls no more is done
            bound = std::min(bound, call.frame);
        }
    }
    for (auto const& [tid, frame] : mUpdating) {
        bound = std::min(bound, frame);
    }
    if (!mLive.empty()) {
        bound = std::min(bound, *mLive.begin());
    }
    return bound;
}

void SessionBuilder::resolveBelow(int bound) {
    if (bound <= mResolvedBelow) {
        return;
    }
    bool finishing = mFinishing;
    mFinishing = true;  // cells made while resolving are not lines of the capture
    attributeDeferred(takeSyncOff(bound), bound);
    countCallsWithoutCamera(bound);
    resolveFrames(bound);
    placeFrames(bound);
    for (auto it = mFrames.lower_bound(mResolvedBelow); it != mFrames.end() && it->first < bound;
         ++it) {
        mAnyOutOfSync |= it->second.syncOK == false;
    }
    mResolvedBelow = bound;
    mFinishing = finishing;
}

// Folds the frames below `bound` into the timeline, in order, and forgets what the lines said of
// them. A frame made again by a line that came after it was folded is left out and counted.
void SessionBuilder::foldBelow(int bound, FrameSink const& folded) {
    while (!mWork.empty() && mWork.begin()->first < bound) {
        FrameRecord f = std::move(mWork.begin()->second);
        mWork.erase(mWork.begin());
        if (f.frame < mFoldedBelow) {
            ++mLateLines;
            continue;
        }
        foldFrame(t, std::move(f));
        if (folded && !t.tally.recent.empty()) {
            folded(t, t.tally.recent.back());
        }
    }
    mFoldedBelow = std::max(mFoldedBelow, bound);
    mFrames.erase(mFrames.begin(), mFrames.lower_bound(bound));
    mCells.erase(mCells.begin(), mCells.lower_bound({bound, INT_MIN}));
    mSpans.erase(mSpans.begin(), mSpans.lower_bound(bound));
    mUnattributed.erase(mUnattributed.begin(), mUnattributed.lower_bound(bound));
    mRunEdges.erase(mRunEdges.begin(), mRunEdges.lower_bound(bound));
    mEntries.erase(mEntries.begin(), mEntries.lower_bound(bound));
}

// The cameras as explanations name them: by the names given, else by number.
void SessionBuilder::labelCameras() {
    for (int cam : mCams) {
        auto name = mNames.find(cam);
        t.labels[cam] = name != mNames.end() ? name->second : std::to_string(cam);
    }
}

void SessionBuilder::settle(FrameSink const& folded, LogClock clock) {
    int bound = settleBound();
    if (bound <= mFoldedBelow + kSettleLag / 4) {
        return;  // settled in batches: a few frames at a time
    }
    labelCameras();
    t.capture.completionKnown = mSawDebug && !mNoThreads;
    t.capture.callsSeen = t.capture.completionKnown;
    t.capture.logClock = clock;
    resolveBelow(bound);
    markGaps(bound, false);
    for (size_t i = mGapsMarked; i < mGaps.size(); ++i) {
        bound = std::min(bound, lowestTouched(mGaps[i]));
    }
    if (bound > mFoldedBelow) {
        foldBelow(bound, folded);
    }
}

}  // namespace ryxsim
