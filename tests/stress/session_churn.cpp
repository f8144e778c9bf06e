// Session churn: up to 4 helpers live in one process at once, each a session of 2-4 cameras
// streaming a few frames, and sessions are created and destroyed continuously while the others
// stream, as a camera app does on mode switches and lens changes. Two of the four session slots
// share one session key (and so the master-camera updater's registry entry), the others have
// their own. Each session shuts down cleanly: its camera threads stop, then its last reference
// goes.
//
// It fails on a sanitizer report (run it in the asan and tsan builds), a blocked thread
// (watchdog), or when the cameras of one frame get different verdicts. It prints the resident
// memory growth per session lifetime after a warm-up, which should be 0; read it from the plain
// build, since ASan's quarantine and the sanitizers' records of finished threads grow with the
// run on their own.
//
// Lifetimes: RYX_CHURN_LIFETIMES, else 2000.

#include <gtest/gtest.h>

#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <thread>
#include <unordered_map>
#include <vector>

#include "ISyncHelper.h"
#include "MetaBuilder.h"
#include "Watchdog.h"

namespace {

using NSCam::IMetadata;
using namespace NSCam::camsys::camcoordinator;

constexpr int kSlots = 4;
constexpr int kFramesPerSession = 6;
constexpr unsigned long kSharedKey = 7;

int lifetimesWanted() {
    char const* text = std::getenv("RYX_CHURN_LIFETIMES");
    return text != nullptr ? std::atoi(text) : 2000;
}

long residentBytes() {
    long pages = 0, resident = 0;
    FILE* f = std::fopen("/proc/self/statm", "r");
    if (f == nullptr)
        return 0;
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2)
        resident = 0;
    std::fclose(f);
    return resident * sysconf(_SC_PAGESIZE);
}

// One camera's result of one frame.
struct CamFrame {
    IMetadata hal, halDyn, appDyn;
    SyncResultInputParams in;
    SyncResultOutputParams out;
    CamFrame(int cam, int cameras, int frame, int master) {
        IMetadata::IEntry ids(RYX_FRAMESYNC_ID);
        for (int i = 0; i < cameras; ++i)
            if (i != cam)
                ids.push_back(i);
        hal.update(RYX_FRAMESYNC_ID, ids);
        ryxtest::setInts(hal, RYX_FRAMESYNC_REQUIRED, {1});
        ryxtest::setInts(hal, RYX_DUALZOOM_REAL_MASTER, {master});
        in.m_id = cam;
        in.frameNo = frame;
        in.requestNo = static_cast<int16_t>(frame);
        in.sofTimeStamp = 1000000000000 + int64_t{frame} * 33000000;
        in.expTimeStamp = in.sofTimeStamp;
        in.HalControl = &hal;
        out.HalDynamic = &halDyn;
        out.AppDynamic = &appDyn;
    }
};

struct Totals {
    std::atomic<int> lifetimes{0};
    std::atomic<int> split{0};  // frames whose cameras got different verdicts
    std::atomic<int> passed{0};
    std::atomic<int> frames{0};
};

// One session from creation to its last reference.
void runLifetime(unsigned long key, int cameras, int firstFrame, std::mt19937& rng, Totals& t) {
    std::unordered_map<unsigned int, NSCam::CameraInfo> info;
    for (int i = 0; i < cameras; ++i) {
        NSCam::CameraInfo ci;
        ci.activeArrayRegion = NSCam::MRect{0, 0, 4000, 3000};
        ci.focalLength = 4.0f + static_cast<float>(i);
        info[static_cast<unsigned>(i)] = ci;
    }
    std::shared_ptr<ISyncHelper> helper = ISyncHelper::createInstance(key, true, info);
    int const master = static_cast<int>(rng() % static_cast<unsigned>(cameras));
    // verdicts[frame][camera]
    std::vector<std::vector<char>> verdicts(kFramesPerSession, std::vector<char>(cameras, 0));
    std::vector<std::thread> threads;
    for (int cam = 0; cam < cameras; ++cam) {
        threads.emplace_back([&, cam] {
            for (int n = 0; n < kFramesPerSession; ++n) {
                CamFrame f(cam, cameras, firstFrame + n, master);
                verdicts[n][cam] = helper->syncResultCheck(f.in, &f.out) ? 1 : 0;
            }
        });
    }
    for (auto& th : threads)
        th.join();   // the session's cameras stop first
    helper.reset();  // then its last reference goes
    for (auto const& frame : verdicts) {
        bool const all = std::all_of(frame.begin(), frame.end(), [](char v) { return v == 1; });
        bool const none = std::all_of(frame.begin(), frame.end(), [](char v) { return v == 0; });
        t.split += (all || none) ? 0 : 1;
        t.passed += all ? 1 : 0;
        t.frames += 1;
    }
    t.lifetimes += 1;
}

TEST(SyncHelperChurn, SessionsComeAndGoWhileOthersStream) {
    int const wanted = lifetimesWanted();
    int const warmup = std::max(1, wanted / 10);
    Totals t;
    std::atomic<long> rssAfterWarmup{0};
    std::atomic<int> counted{0};
    ryxtest::Watchdog dog("session churn", std::chrono::seconds(1800));
    std::vector<std::thread> slots;
    for (int s = 0; s < kSlots; ++s) {
        slots.emplace_back([&, s] {
            std::mt19937 rng(20261122u + static_cast<unsigned>(s));
            unsigned long const key = s < 2 ? kSharedKey : 100 + static_cast<unsigned long>(s);
            int frame = 0;
            for (;;) {
                int const n = counted.fetch_add(1);
                if (n >= wanted)
                    return;
                if (n == warmup)
                    rssAfterWarmup = residentBytes();
                int const cameras = 2 + static_cast<int>(rng() % 3);
                runLifetime(key, cameras, frame, rng, t);
                frame += kFramesPerSession;
            }
        });
    }
    dog.join(slots);
    long const rssEnd = residentBytes();
    int const measured = wanted - warmup;
    double const perLifetime =
        measured > 0 ? static_cast<double>(rssEnd - rssAfterWarmup.load()) / measured : 0.0;
    std::printf(
        "churn: %d session lifetimes (%d slots, 2-4 cameras, %d frames each), %d of %d frames "
        "passed; resident %ld -> %ld bytes after %d warm-up lifetimes: %.1f bytes per lifetime\n",
        t.lifetimes.load(), kSlots, kFramesPerSession, t.passed.load(), t.frames.load(),
        rssAfterWarmup.load(), rssEnd, warmup, perLifetime);
    EXPECT_EQ(t.lifetimes.load(), wanted);
    EXPECT_EQ(t.split.load(), 0) << "the cameras of a frame got different verdicts";
    EXPECT_GT(t.passed.load(), t.frames.load() / 2) << "too few frames passed to mean much";
}

}  // namespace
