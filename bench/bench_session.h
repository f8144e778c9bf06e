#pragma once
// What the benchmarks share: a camera's frame records with the control tags a pipeline sets, the
// plain mutex-and-condition-variable rendezvous that bounds any rendezvous of threads, and the
// per-frame enter/exit clock of the release-latency benchmarks.

#include <NSCam/IMetadata.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "ISyncHelper.h"
#include "MetaRead.h"
#include "SyncMetaTags.h"

namespace ryxbench {

using NSCam::IMetadata;
using namespace NSCam::camsys::camcoordinator;

constexpr int64_t kMs = 1000000;
constexpr int64_t kFrameNs = 33 * kMs;
constexpr int64_t kBaseNs = 1000 * kMs;

// Camera `id` of a session of `sensors` cameras: RYX_FRAMESYNC_ID names the others, camera 0 is
// the master, the tolerance is 1 ms in mode 1. setFrame() moves it to frame n, in sync.
struct CamSlot {
    IMetadata app, hal, halDyn, appDyn;
    SyncResultInputParams in;
    SyncResultOutputParams out;

    CamSlot(int id, int sensors, bool sync = true) {
        if (sync) {
            IMetadata::IEntry ids(RYX_FRAMESYNC_ID);
            for (int s = 0; s < sensors; ++s) {
                if (s != id)
                    ids.push_back(static_cast<int32_t>(s));
            }
            hal.update(RYX_FRAMESYNC_ID, ids);
            IMetadata::setEntry<int>(&hal, RYX_FRAMESYNC_REQUIRED, 1);
        }
        IMetadata::setEntry<long>(&hal, RYX_FRAMESYNC_TOLERANCE, 1000);
        IMetadata::setEntry<int>(&hal, RYX_FRAMESYNC_MODE, 1);
        IMetadata::setEntry<int>(&hal, RYX_DUALZOOM_REAL_MASTER, 0);
        IMetadata::setEntry<uint8_t>(&app, CAPTURE_INTENT, 1);
        in.m_id = id;
        in.AppControl = &app;
        in.HalControl = &hal;
        out.HalDynamic = &halDyn;
        out.AppDynamic = &appDyn;
        setFrame(0);
    }
    void setFrame(int n) {
        in.frameNo = n;
        in.requestNo = n;
        in.sofTimeStamp = kBaseNs + n * kFrameNs + 100000 * in.m_id;
        in.expTimeStamp = in.sofTimeStamp + kMs;
    }
};

// The metadata edits one camera's frame needs whatever the design: read the requested master,
// write the master into both results, replace region and focal length, test the two defaults
// (without copying their entries).
inline void requiredCameraEdits(CamSlot& cam, int master, NSCam::MRect const& region, float focal) {
    cam.out.bMasterCam = master == cam.in.m_id;
    IMetadata::setEntry<int>(cam.out.HalDynamic, RYX_DUALZOOM_REAL_MASTER, master);
    IMetadata::setEntry<int>(cam.out.AppDynamic, RYX_APP_REAL_MASTER, master);
    IMetadata::IEntry r(PHYSICAL_ACTIVE_ARRAY_REGION);
    r.push_back(region);
    cam.out.AppDynamic->update(PHYSICAL_ACTIVE_ARRAY_REGION, r);
    IMetadata::IEntry f(LENS_FOCAL_LENGTH);
    f.push_back(focal);
    cam.out.AppDynamic->update(LENS_FOCAL_LENGTH, f);
    if (!hasItems<int32_t>(cam.out.AppDynamic, CONTROL_POST_RAW_SENSITIVITY_BOOST)) {
        IMetadata::setEntry<int>(cam.out.AppDynamic, CONTROL_POST_RAW_SENSITIVITY_BOOST, 100);
    }
    if (!hasItems<uint8_t>(cam.out.AppDynamic, CONTROL_VIDEO_STABILIZATION_MODE)) {
        IMetadata::setEntry<uint8_t>(cam.out.AppDynamic, CONTROL_VIDEO_STABILIZATION_MODE, 0);
    }
}

inline void singleCameraEdits(CamSlot& cam, NSCam::MRect const& region, float focal) {
    int master = -1;
    IMetadata::getEntry<int>(cam.in.HalControl, RYX_DUALZOOM_REAL_MASTER, master);
    requiredCameraEdits(cam, master, region, focal);
}

// The limit: `parties` threads meet on a mutex and a condition variable; the last to arrive runs
// a trivial callback and wakes the others.
class PlainRendezvous {
  public:
    explicit PlainRendezvous(int parties) : mParties(parties) {}
    void arrive() {
        std::unique_lock<std::mutex> lock(mMutex);
        uint64_t const generation = mGeneration;
        if (++mArrived == mParties) {
            mArrived = 0;
            ++mGeneration;
            ++mCallbacks;  // the trivial callback
            mCond.notify_all();
            return;
        }
        mCond.wait(lock, [&] { return mGeneration != generation; });
    }
    uint64_t callbacks() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCallbacks;
    }

  private:
    std::mutex mMutex;
    std::condition_variable mCond;
    int const mParties;
    int mArrived = 0;
    uint64_t mGeneration = 0;
    uint64_t mCallbacks = 0;
};

// Enter and exit times of every thread for every frame; after a run, the release latency of the
// waiters: for each frame, each thread's exit minus the frame's last entry, over the threads that
// did not arrive last.
class LatencyLog {
  public:
    using Clock = std::chrono::steady_clock;
    LatencyLog(int threads, int64_t frames)
        : mEnter(static_cast<size_t>(threads), std::vector<Clock::time_point>(frames)),
          mExit(static_cast<size_t>(threads), std::vector<Clock::time_point>(frames)) {}
    void enter(int thread, int64_t frame) { mEnter[size_t(thread)][size_t(frame)] = Clock::now(); }
    void exit(int thread, int64_t frame) { mExit[size_t(thread)][size_t(frame)] = Clock::now(); }

    // p50 and p99 of the waiters' release latency, in nanoseconds, over `frames` frames.
    std::pair<double, double> percentiles(int64_t frames) const {
        std::vector<int64_t> lat;
        lat.reserve(static_cast<size_t>(frames) * mEnter.size());
        for (int64_t f = 0; f < frames; ++f) {
            Clock::time_point last = Clock::time_point::min();
            size_t lastThread = 0;
            for (size_t t = 0; t < mEnter.size(); ++t) {
                if (mEnter[t][size_t(f)] > last) {
                    last = mEnter[t][size_t(f)];
                    lastThread = t;
                }
            }
            for (size_t t = 0; t < mEnter.size(); ++t) {
                if (t == lastThread)
                    continue;
                lat.push_back(
                    std::chrono::duration_cast<std::chrono::nanoseconds>(mExit[t][size_t(f)] - last)
                        .count());
            }
        }
        if (lat.empty())
            return {0, 0};
        auto at = [&](double q) {
            size_t k = std::min(lat.size() - 1, static_cast<size_t>(q * double(lat.size())));
            std::nth_element(lat.begin(), lat.begin() + long(k), lat.end());
            return static_cast<double>(lat[k]);
        };
        double p50 = at(0.50);
        double p99 = at(0.99);
        return {p50, p99};
    }

  private:
    std::vector<std::vector<Clock::time_point>> mEnter;
    std::vector<std::vector<Clock::time_point>> mExit;
};

}  // namespace ryxbench
