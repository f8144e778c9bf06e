// synchelper_callgrind: the frames whose instructions bench/callgrind.sh counts under callgrind.
//
// Five phases, each a fixed number of frames after a warm-up, each ending in a callgrind dump of
// its own name (outside valgrind the dumps are no-ops and the phases simply run):
//   lib3       3 sensor threads meet through syncResultCheck, all updaters, logging gated off
//   required3  the required-work baseline: the same 3 threads meet on a plain mutex and condition
//              variable, and do exactly the metadata reads and writes a 3-camera frame needs
//   single     one camera's frames through syncResultCheck's single-camera path
//   single_req the metadata edits such a frame needs anyway
//   crops3     lib3's frames with getSensorCropRegion before each call and a crop set every second
// Usage: synchelper_callgrind [frames]   (default 2000; warm-up 200)

#include <NSCam/ULogger.h>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(name) ((void)(name))
#endif

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "bench_session.h"

#include <SyncHelper.h>

namespace ryxbench {
namespace {

constexpr int kSensors = 3;
constexpr int kWarmUp = 200;

NSCam::MRect regionOf(int s) {
    return NSCam::MRect(0, 0, 4000 + s, 3000);
}
float focalOf(int s) {
    return 4.0f + float(s);
}

std::unordered_map<unsigned int, NSCam::CameraInfo> infoFor(int sensors) {
    std::unordered_map<unsigned int, NSCam::CameraInfo> info;
    for (int s = 0; s < sensors; ++s) {
        info[unsigned(s)].activeArrayRegion = regionOf(s);
        info[unsigned(s)].focalLength = focalOf(s);
    }
    return info;
}

// Runs `frame(thread, n)` on `threads` threads for the warm-up, then, with the counters zeroed,
// for `frames` more frames, and dumps the counts under `name`. Returns the failed frames.
int measure(char const* name, int threads, int frames,
            std::function<bool(int thread, int frameNo)> const& frame) {
    std::mutex mutex;
    std::condition_variable cond;
    int warmedUp = 0;
    bool go = false;
    int failed = 0;
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([&, t] {
            int bad = 0;
            for (int n = 0; n < kWarmUp; ++n) {
                bad += frame(t, n) ? 0 : 1;
            }
            {
                std::unique_lock<std::mutex> lock(mutex);
                ++warmedUp;
                cond.notify_all();
                cond.wait(lock, [&] { return go; });
            }
            for (int n = kWarmUp; n < kWarmUp + frames; ++n) {
                bad += frame(t, n) ? 0 : 1;
            }
            std::lock_guard<std::mutex> lock(mutex);
            failed += bad;
        });
    }
    {
        std::unique_lock<std::mutex> lock(mutex);
        cond.wait(lock, [&] { return warmedUp == threads; });
        CALLGRIND_ZERO_STATS;
        go = true;
        cond.notify_all();
    }
    for (auto& th : pool) {
        th.join();
    }
    CALLGRIND_DUMP_STATS_AT(name);
    return failed;
}

// The required-work baseline of a 3-camera frame. Each camera reads the three tags that select
// the sync path (required, the sync ids, enable) before it meets the others and reads the verdict
// back after; the last to arrive reads the frame's two lists (sync ids and master/slave order),
// judges the timestamps and writes the verdict, the master and the physical values into every
// camera's results, as the frame requires whatever the implementation.
class RequiredFrame {
  public:
    explicit RequiredFrame(std::vector<std::unique_ptr<CamSlot>>& cams) : mCams(cams) {}

    __attribute__((noinline)) bool run(int t) {
        CamSlot& cam = *mCams[size_t(t)];
        int required = 0;
        int enable = 1;
        IMetadata::getEntry<int>(cam.in.HalControl, RYX_FRAMESYNC_REQUIRED, required);
        bool const grouped = hasItems<int>(cam.in.HalControl, RYX_FRAMESYNC_ID);
        IMetadata::getEntry<int>(cam.in.HalControl, RYX_FRAMESYNC_ENABLE, enable);
        {
            std::unique_lock<std::mutex> lock(mMutex);
            uint64_t const generation = mGeneration;
            if (++mArrived == kSensors) {
                mArrived = 0;
                ++mGeneration;
                writeFrame();
                mCond.notify_all();
            } else {
                mCond.wait(lock, [&] { return mGeneration != generation; });
            }
        }
        long result = 1;
        IMetadata::getEntry<long>(cam.out.HalDynamic, RYX_FRAMESYNC_RESULT, result);
        return required == 1 && grouped && result != 2;
    }

  private:
    __attribute__((noinline)) void writeFrame() {
        CamSlot& first = *mCams[0];
        IMetadata::IEntry const targets = first.in.HalControl->entryFor(RYX_FRAMESYNC_ID);
        IMetadata::IEntry const order = first.in.HalControl->entryFor(RYX_MW_MASTER_SLAVE_LIST);
        long tolerance = 0;
        int mode = 0;
        int master = -1;
        IMetadata::getEntry<long>(first.in.HalControl, RYX_FRAMESYNC_TOLERANCE, tolerance);
        IMetadata::getEntry<int>(first.in.HalControl, RYX_FRAMESYNC_MODE, mode);
        IMetadata::getEntry<int>(first.in.HalControl, RYX_DUALZOOM_REAL_MASTER, master);
        bool inSync = targets.count() == kSensors - 1 && order.count() <= size_t(kSensors);
        for (auto const& cam : mCams) {
            int64_t const d = (first.in.sofTimeStamp - cam->in.sofTimeStamp) / kMs;
            inSync = inSync && (d < 0 ? -d : d) <= tolerance / 1000;
        }
        long const verdict = inSync ? 0 : (mode == 1 ? 2 : 1);
        for (int s = 0; s < kSensors; ++s) {
            CamSlot& cam = *mCams[size_t(s)];
            IMetadata::setEntry<long>(cam.out.HalDynamic, RYX_FRAMESYNC_RESULT, verdict);
            requiredCameraEdits(cam, master, regionOf(s), focalOf(s));
        }
    }

    std::vector<std::unique_ptr<CamSlot>>& mCams;
    std::mutex mMutex;
    std::condition_variable mCond;
    int mArrived = 0;
    uint64_t mGeneration = 0;
};

// The edits a single camera's frame needs anyway; a function of its own so that it is counted.
__attribute__((noinline)) bool requiredSingleFrame(CamSlot& cam) {
    singleCameraEdits(cam, regionOf(0), focalOf(0));
    return true;
}

std::vector<std::unique_ptr<CamSlot>> camsOf(int sensors, bool sync) {
    std::vector<std::unique_ptr<CamSlot>> cams;
    for (int s = 0; s < sensors; ++s) {
        cams.push_back(std::make_unique<CamSlot>(s, sensors, sync));
    }
    return cams;
}

}  // namespace
}  // namespace ryxbench

int main(int argc, char** argv) {
    using namespace ryxbench;
    int const frames = argc > 1 ? std::atoi(argv[1]) : 2000;
    if (frames <= 0) {
        std::fprintf(stderr, "usage: synchelper_callgrind [frames > 0]\n");
        return 2;
    }
    NSCam::Utils::ULog::ULogger::sDetailsLevel = 1;  // every debug, info and warning gate fails

    int failed = 0;
    {
        auto helper = ISyncHelper::createInstance(0xca11, true, infoFor(kSensors));
        auto cams = camsOf(kSensors, true);
        failed += measure("lib3", kSensors, frames, [&](int t, int n) {
            cams[size_t(t)]->setFrame(n);
            return helper->syncResultCheck(cams[size_t(t)]->in, &cams[size_t(t)]->out);
        });
    }
    {
        auto helper = std::dynamic_pointer_cast<SyncHelper>(
            ISyncHelper::createInstance(0xc40b, true, infoFor(kSensors)));
        auto cams = camsOf(kSensors, true);
        failed += measure("crops3", kSensors, frames, [&](int t, int n) {
            CamSlot& cam = *cams[size_t(t)];
            cam.setFrame(n);
            if (t == 0 && n % 30 == 0) {
                std::unordered_map<int, NSCam::MRect> set;
                for (int s = 0; s < kSensors; ++s) {
                    set[s] = NSCam::MRect(n % 97, s, 4000 - n % 97, 3000);
                }
                helper->setSensorCropRegion(n, set);
            }
            helper->getSensorCropRegion(cam.in);
            return helper->syncResultCheck(cam.in, &cam.out);
        });
    }
    {
        auto cams = camsOf(kSensors, true);
        RequiredFrame required(cams);
        failed += measure("required3", kSensors, frames, [&](int t, int n) {
            cams[size_t(t)]->setFrame(n);
            return required.run(t);
        });
    }
    {
        auto helper = ISyncHelper::createInstance(0xca12, true, infoFor(1));
        auto cams = camsOf(1, false);
        failed += measure("single", 1, frames, [&](int, int n) {
            cams[0]->setFrame(n);
            return helper->syncResultCheck(cams[0]->in, &cams[0]->out);
        });
        failed += measure("single_req", 1, frames, [&](int, int n) {
            cams[0]->setFrame(n);
            return requiredSingleFrame(*cams[0]);
        });
    }
    std::printf("synchelper_callgrind: %d frames per phase, %d failed\n", frames, failed);
    return failed == 0 ? 0 : 1;
}
