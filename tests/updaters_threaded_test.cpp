// The master-camera history shared by the sensors' threads: concurrent frames are judged one at
// a time against one history (run under ThreadSanitizer as well).

#include "MasterCamSyncDataUpdater.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "Watchdog.h"
#include "updaters_frame.h"

namespace {

using namespace updtest;

TEST(MasterCamThreadedTest, ConcurrentFramesAreJudgedAgainstOneHistory) {
    MasterCamSyncDataUpdater updater(0xabc, CameraInfos{});
    std::atomic<int> next{1};
    std::atomic<int> accepted{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                int const n = next.fetch_add(1);
                Frame f(n);
                f.add(0, n, n);  // frame number and exposure rise together
                f.add(1, n, n);
                if (updater.update(f.get())) {
                    accepted.fetch_add(1);
                    EXPECT_EQ(read<int>(f.cam(1).halDynamic, RYX_DUALZOOM_REAL_MASTER), 0);
                    EXPECT_TRUE(f.cam(0).output.bMasterCam);
                    EXPECT_FALSE(f.cam(1).output.bMasterCam);
                }
            }
        });
    }
    ryxtest::Watchdog("master-camera history", std::chrono::seconds(60)).join(threads);
    EXPECT_GE(accepted.load(), 1);

    // Some frame numbered 2 or more reached the history, so frame 1 now comes too late.
    Frame old(1);
    old.add(0, 1, 1);
    old.add(1, 1, 1);
    EXPECT_FALSE(updater.update(old.get()));
}

}  // namespace
