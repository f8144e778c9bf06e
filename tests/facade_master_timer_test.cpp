// Ten masters at once: one session of ten two-camera sync groups, each group on frame numbers of
// its own, all ten completing a frame in the same round, so that the ten masters' threads print
// their "sync check diff" line (and read the check timer for it, once per channel) concurrently.
// Under ThreadSanitizer (tsan preset) this shows whether the timer is free of data races; in any
// build it checks that every master got its line on both channels with a sane interval and that
// no frame was lost.

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "Watchdog.h"
#include "facade_session.h"

namespace facadetest {
namespace {

constexpr int kGroups = 10;
constexpr int kRounds = 30;

// Everybody waits here until all have arrived; reusable round after round.
class RoundBarrier {
  public:
    explicit RoundBarrier(int parties) : mParties(parties) {}
    void arrive() {
        std::unique_lock<std::mutex> lock(mMutex);
        int const round = mRound;
        if (++mArrived == mParties) {
            mArrived = 0;
            ++mRound;
            mCond.notify_all();
            return;
        }
        mCond.wait(lock, [&] { return mRound != round; });
    }

  private:
    std::mutex mMutex;
    std::condition_variable mCond;
    int const mParties;
    int mArrived = 0;
    int mRound = 0;
};

TEST(MasterTimer, TenConcurrentMastersEachPrintTheirIntervalOnBothChannels) {
    ryxtest::LogCapture log(0x9, 5);
    std::vector<int> sensors;
    for (int s = 0; s < 2 * kGroups; ++s) {
        sensors.push_back(s);
    }
    auto helper = ISyncHelper::createInstance(0x7173, true, infoFor(sensors));

    // Group g: sensors 2g (its master) and 2g+1; round r uses frame r * kGroups + g, so that a
    // round holds at most ten live frames and the arrival record only ever prunes finished ones.
    RoundBarrier barrier(2 * kGroups);
    std::vector<int> passed(sensors.size(), 0);
    std::vector<int> mastered(sensors.size(), 0);
    std::vector<std::thread> threads;
    for (int s : sensors) {
        threads.emplace_back([&, s] {
            int const group = s / 2;
            for (int round = 0; round < kRounds; ++round) {
                int const frameNo = round * kGroups + group;
                Request const req{{2 * group, 2 * group + 1}, 2 * group, 1000, 1};
                // The master history is the session's: within a round the groups' frames come
                // in any order, so they are still captures (let through out of order) with one
                // exposure time per round.
                int64_t const exposure = (1000 + round) * kMs;
                CamFrame f(s, frameNo, exposure, exposure, req);
                ryxtest::setOne<uint8_t>(f.appControl, CAPTURE_INTENT, 2);
                passed[size_t(s)] += helper->syncResultCheck(f.in, &f.out) ? 1 : 0;
                mastered[size_t(s)] += f.out.bMasterCam ? 1 : 0;
                barrier.arrive();
            }
        });
    }
    ryxtest::Watchdog dog("ten concurrent masters", std::chrono::seconds(120));
    dog.join(threads);

    for (int s : sensors) {
        EXPECT_EQ(passed[size_t(s)], kRounds) << "sensor " << s;
        EXPECT_EQ(mastered[size_t(s)], s % 2 == 0 ? kRounds : 0) << "sensor " << s;
    }
    // One line per master and frame on each channel; the interval is a non-negative number of
    // seconds, well under the test's own run time.
    std::regex const line(
        R"(\( *\d+\) \[syncResultCheck\] m_id\((\d+)\) \[f(\d+)\] sync check diff = (\d+\.\d{6}))");
    auto check = [&](std::vector<std::string> const& texts, char const* channel) {
        std::vector<int> perSensor(sensors.size(), 0);
        for (auto const& text : texts) {
            std::smatch m;
            ASSERT_TRUE(std::regex_match(text, m, line)) << channel << ": " << text;
            int const sensor = std::stoi(m[1]);
            EXPECT_EQ(std::stoi(m[2]) % kGroups, sensor / 2) << channel << ": " << text;
            EXPECT_LT(std::stod(m[3]), 120.0) << channel << ": " << text;
            ++perSensor[size_t(sensor)];
        }
        for (int s : sensors) {
            EXPECT_EQ(perSensor[size_t(s)], s % 2 == 0 ? kRounds : 0) << channel << " sensor " << s;
        }
    };
    std::vector<std::string> android;
    for (auto const& l : log.androidMatching("sync check diff")) {
        android.push_back(l.text);
    }
    std::vector<std::string> ulog;
    for (auto const& l : log.ulog()) {
        if (l.text.find("sync check diff") != std::string::npos) {
            ulog.push_back(l.text);
        }
    }
    check(android, "android");
    check(ulog, "unified");
}

}  // namespace
}  // namespace facadetest
