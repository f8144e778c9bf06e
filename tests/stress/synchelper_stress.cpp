// Stress: three and four sensor threads drive one helper through many frames with every event a
// session sees: drops by slaves and by masters, flushes, a sensor leaving and rejoining, crop
// updates from a request thread, master switches, and frames whose time goes back.
//
// It fails when a thread is still blocked at the end (watchdog), on any sanitizer report (run it
// in the asan and tsan builds), or when an invariant breaks:
//   - per camera, the frames with a true verdict have increasing start-of-frame times;
//   - the cameras with a true verdict for a frame agree on the master written (HAL and app
//     result), and it is the master the frame asked for;
//   - in mode 1, the cameras with a true verdict for a frame are within the tolerance at
//     millisecond granularity of one of them (the updater compares the others with the first);
//   - the cameras that called for a frame share one verdict; a frame its master dropped or a
//     sensor flushed passes nowhere; a frame in mode 0, or in mode 1 with every start of frame
//     within the tolerance, passes everywhere (frames that went back in time, and frames in
//     flight around a sensor's leave, are excepted: the helper rightly fails those);
//   - a crop override written into a sensor's request is that sensor's own rectangle, from a
//     crop set already published.
//
// Frames per configuration: --frames=N, else RYX_STRESS_FRAMES, else 100000. Plan seed: --seed=N,
// else RYX_STRESS_SEED. Watchdog deadline in seconds: --deadline=N, else RYX_STRESS_DEADLINE, else
// 600.

#include <gtest/gtest.h>

#include <NSCam/ULogger.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "ISyncHelper.h"
#include "MetaBuilder.h"
#include "SyncHelper.h"
#include "SyncHelperInspector.h"
#include "Watchdog.h"

namespace {

using NSCam::IMetadata;
using NSCam::MRect;
using namespace NSCam::camsys::camcoordinator;

constexpr int kMaxSensors = 4;
constexpr int64_t kMs = 1000000;
constexpr int64_t kFrameNs = 33 * kMs;
constexpr int64_t kBaseNs = 1000 * kMs;
constexpr int64_t kToleranceUs = 1000;
constexpr int kMaxLead = 2;  // frames a sensor may run ahead of the slowest

struct Options {
    int frames = 100000;
    unsigned seed = 20251122;
    int deadlineSeconds = 600;
};
Options gOptions;

enum class Event { kNone, kSlaveDrop, kMasterDrop, kFlush };

// What sensor s does with frame n.
enum class Role : uint8_t {
    kDeliver,  // takes part and calls syncResultCheck (or drops, as the frame's event says)
    kLost,     // still listed in the frame's sync group, but has left: its drop must count
    kAbsent,   // not in the frame's sync group
};

struct FramePlan {
    Event event = Event::kNone;
    int actor = -1;
    int master = 0;
    int32_t mode = 1;
    std::vector<int>
        listed;  // the sync group, lost sensors included (RYX_FRAMESYNC_ID: the others)
    std::array<Role, kMaxSensors> role{};
    std::array<int64_t, kMaxSensors> sof{};
    bool inverted = false;   // its time lies before its predecessor's
    bool nearLeave = false;  // in flight while a sensor it lists leaves
};

struct PlanStats {
    int inverted = 0, leaves = 0, switches = 0, slaveDrops = 0, masterDrops = 0, flushes = 0;
};

// Frame time: 33 ms apart; an inverted frame lies between its two predecessors, 16.5 ms from
// each, so that with at most 4 ms of jitter every sensor sees the same order of frames.
std::vector<FramePlan> makePlan(int frames, int sensors, unsigned seed, PlanStats& stats) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> percent(0, 999);
    std::vector<FramePlan> plan(static_cast<size_t>(frames));
    int master = 0;
    // A leave: sensor `leaver` is lost from the frame it leaves at until absentFrom (its requests
    // in flight still list it), then absent until rejoinAt.
    int leaver = -1, absentFrom = -1, rejoinAt = -1;
    for (int n = 0; n < frames; ++n) {
        FramePlan& p = plan[static_cast<size_t>(n)];
        if (leaver < 0 && n > 10 && percent(rng) < 2) {
            leaver = static_cast<int>(rng() % static_cast<unsigned>(sensors));
            absentFrom = n + 1 + static_cast<int>(rng() % 3);
            rejoinAt = absentFrom + kMaxLead + 1 + static_cast<int>(rng() % 20);
            ++stats.leaves;
            // The leaver reports itself gone from frame n on, while the others may still be
            // kMaxLead frames behind.
            for (int k = std::max(0, n - kMaxLead - 1); k < n; ++k)
                plan[static_cast<size_t>(k)].nearLeave = true;
        }
        p.nearLeave = p.nearLeave || (leaver >= 0 && n < absentFrom);
        if (leaver >= 0 && n >= rejoinAt)
            leaver = -1;
        for (int s = 0; s < sensors; ++s) {
            Role r = Role::kDeliver;
            if (s == leaver)
                r = n < absentFrom ? Role::kLost : Role::kAbsent;
            p.role[static_cast<size_t>(s)] = r;
            if (r != Role::kAbsent)
                p.listed.push_back(s);
        }
        std::vector<int> delivering;
        for (int s : p.listed) {
            if (p.role[static_cast<size_t>(s)] == Role::kDeliver)
                delivering.push_back(s);
        }
        if (percent(rng) < 10 ||
            std::find(delivering.begin(), delivering.end(), master) == delivering.end()) {
            master = delivering[rng() % delivering.size()];
            ++stats.switches;
        }
        p.master = master;
        p.mode = percent(rng) < 800 ? 1 : 0;
        int e = percent(rng);
        if (e < 40 && delivering.size() > 1) {
            p.event = Event::kSlaveDrop;
            do {
                p.actor = delivering[rng() % delivering.size()];
            } while (p.actor == master);
            ++stats.slaveDrops;
        } else if (e < 70) {
            p.event = Event::kMasterDrop;
            p.actor = master;
            ++stats.masterDrops;
        } else if (e < 90) {
            p.event = Event::kFlush;
            p.actor = delivering[rng() % delivering.size()];
            ++stats.flushes;
        }
        int64_t frameTime = kBaseNs + n * kFrameNs;
        if (n >= 2 && percent(rng) < 5) {
            frameTime -= kFrameNs * 3 / 2;
            p.inverted = true;
            ++stats.inverted;
        }
        bool wide = percent(rng) < 150;
        std::uniform_int_distribution<int64_t> jitter(0, wide ? 4 * kMs : 800000);
        for (int s = 0; s < sensors; ++s)
            p.sof[static_cast<size_t>(s)] = frameTime + jitter(rng);
    }
    return plan;
}

// Keeps the sensors within kMaxLead frames of each other, as sensors streaming at one rate are.
// The request thread takes part too, so that crop sets are published in step with the frames.
class Pacer {
  public:
    explicit Pacer(int parties) : mDone(static_cast<size_t>(parties), -1) {}
    void waitTurn(int frameNo) {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [&] { return slowest() >= frameNo - kMaxLead; });
    }
    void finished(int party, int frameNo) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mDone[static_cast<size_t>(party)] = frameNo;
        }
        mChanged.notify_all();
    }

  private:
    int slowest() const { return *std::min_element(mDone.begin(), mDone.end()); }
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<int> mDone;
};

// One camera's frame result and the metadata it points to.
struct CamFrame {
    IMetadata app, hal, halDyn, appDyn;
    SyncResultInputParams in;
    SyncResultOutputParams out;
    CamFrame(int sensor, int n, FramePlan const& p) {
        IMetadata::IEntry ids(RYX_FRAMESYNC_ID);  // the other sensors of the group
        for (int s : p.listed) {
            if (s != sensor)
                ids.push_back(static_cast<int32_t>(s));
        }
        hal.update(RYX_FRAMESYNC_ID, ids);
        ryxtest::setOne<int>(hal, RYX_FRAMESYNC_REQUIRED, 1);
        ryxtest::setOne<int>(hal, RYX_DUALZOOM_REAL_MASTER, p.master);
        ryxtest::setOne<long>(hal, RYX_FRAMESYNC_TOLERANCE, kToleranceUs);
        ryxtest::setOne<int>(hal, RYX_FRAMESYNC_MODE, p.mode);
        ryxtest::setOne<uint8_t>(app, CAPTURE_INTENT, 1);
        in.m_id = sensor;
        in.requestNo = n;
        in.frameNo = n;
        in.AppControl = &app;
        in.HalControl = &hal;
        in.sofTimeStamp = p.sof[static_cast<size_t>(sensor)];
        in.expTimeStamp = in.sofTimeStamp + kMs;
        out.HalDynamic = &halDyn;
        out.AppDynamic = &appDyn;
    }
};

struct Outcome {
    bool called = false;
    bool verdict = false;
    std::optional<int32_t> halMaster;
    std::optional<int32_t> appMaster;
};

struct Shared {
    SyncHelper* helper = nullptr;
    std::vector<FramePlan> const* plan = nullptr;
    Pacer* pacer = nullptr;
    std::atomic<int> publishedCropRequest{-1};
    std::atomic<int> cropOverrides{0};
    std::atomic<int> cropViolations{0};
    std::atomic<int> sensorDrops{0};
};

// The crop set of request n: sensor s's rectangle is (s, n, 1000 + s, 750 + n % 100).
std::unordered_map<int, MRect> cropSet(int n, int sensors) {
    std::unordered_map<int, MRect> crops;
    for (int s = 0; s < sensors; ++s)
        crops[s] = MRect(s, n, 1000 + s, 750 + n % 100);
    return crops;
}

void runRequests(Shared& sh, int sensors, int party) {
    int frames = static_cast<int>(sh.plan->size());
    for (int n = 0; n < frames; ++n) {
        sh.pacer->waitTurn(n);
        if (n % 7 == 0) {
            sh.helper->setSensorCropRegion(n, cropSet(n, sensors));
            sh.publishedCropRequest.store(n, std::memory_order_release);
        }
        sh.pacer->finished(party, n);
    }
}

void runSensor(Shared& sh, int sensor, std::vector<Outcome>& out) {
    std::mt19937 rng(static_cast<unsigned>(sensor) * 7919u + gOptions.seed);
    int frames = static_cast<int>(sh.plan->size());
    for (int n = 0; n < frames; ++n) {
        FramePlan const& p = (*sh.plan)[static_cast<size_t>(n)];
        sh.pacer->waitTurn(n);
        if (rng() % 4 == 0)
            std::this_thread::yield();  // vary who arrives first
        Role role = p.role[static_cast<size_t>(sensor)];
        if (role == Role::kAbsent) {
            sh.pacer->finished(sensor, n);
            continue;
        }
        CamFrame f(sensor, n, p);
        if (role == Role::kLost) {
            // The pipeline reports the sensor gone (releasing frames in flight that list it) and
            // drops its frames still listed, so that none waits for it.
            sh.helper->notifyDropBySensor(sensor);
            sh.helper->notifyDrop(f.in);
            sh.sensorDrops.fetch_add(1, std::memory_order_relaxed);
            sh.pacer->finished(sensor, n);
            continue;
        }
        int published = sh.publishedCropRequest.load(std::memory_order_acquire);
        sh.helper->getSensorCropRegion(f.in);
        MRect crop;
        if (IMetadata::getEntry<MRect>(&f.hal, RYX_SENSOR_CROP_OVERRIDE, crop)) {
            sh.cropOverrides.fetch_add(1, std::memory_order_relaxed);
            bool own = crop.left == sensor && crop.width == 1000 + sensor;
            bool fromPublishedSet = crop.top >= 0 &&
                                    crop.top <= std::max(published, n + kMaxLead) &&
                                    crop.height == 750 + crop.top % 100;
            if (!own || !fromPublishedSet)
                sh.cropViolations.fetch_add(1);
        }
        Outcome& o = out[static_cast<size_t>(n)];
        bool acts = p.actor == sensor;
        if (acts && (p.event == Event::kSlaveDrop || p.event == Event::kMasterDrop)) {
            sh.helper->notifyDrop(f.in);
        } else {
            if (acts && p.event == Event::kFlush)
                sh.helper->notifyDrop(n, 0);
            o.called = true;
            o.verdict = sh.helper->syncResultCheck(f.in, &f.out);
            int32_t v = 0;
            if (IMetadata::getEntry<int>(&f.halDyn, RYX_DUALZOOM_REAL_MASTER, v))
                o.halMaster = v;
            if (IMetadata::getEntry<int>(&f.appDyn, RYX_APP_REAL_MASTER, v))
                o.appMaster = v;
        }
        sh.pacer->finished(sensor, n);
    }
}

bool inTolerance(int64_t a, int64_t b) {
    int32_t t1 = static_cast<int32_t>(a / kMs);
    int32_t t2 = static_cast<int32_t>(b / kMs);
    return std::abs(t1 - t2) <= static_cast<int32_t>(kToleranceUs / 1000);
}

void runSession(int sensors) {
    int const frames = gOptions.frames;
    PlanStats ps;
    std::vector<FramePlan> plan = makePlan(frames, sensors, gOptions.seed + sensors, ps);
    std::printf(
        "stress: %d sensors, %d frames, seed %u: %d master switches, %d slave drops, %d master "
        "drops, %d flushes, %d leaves, %d inverted frames\n",
        sensors, frames, gOptions.seed + sensors, ps.switches, ps.slaveDrops, ps.masterDrops,
        ps.flushes, ps.leaves, ps.inverted);

    std::unordered_map<unsigned int, NSCam::CameraInfo> info;
    for (int s = 0; s < sensors; ++s) {
        info[static_cast<unsigned>(s)].activeArrayRegion = MRect(0, 0, 4000 + s, 3000);
        info[static_cast<unsigned>(s)].focalLength = 4.0f + static_cast<float>(s);
    }
    std::shared_ptr<ISyncHelper> iface = ISyncHelper::createInstance(0x57e55, true, info);
    auto helper = std::dynamic_pointer_cast<SyncHelper>(iface);
    ASSERT_NE(helper, nullptr);
    ASSERT_TRUE(SyncHelperInspector::needCropReplace(*helper));

    Pacer pacer(sensors + 1);
    Shared sh;
    sh.helper = helper.get();
    sh.plan = &plan;
    sh.pacer = &pacer;
    std::vector<std::vector<Outcome>> out(static_cast<size_t>(sensors),
                                          std::vector<Outcome>(static_cast<size_t>(frames)));
    auto start = std::chrono::steady_clock::now();
    {
        ryxtest::Watchdog dog("stress with " + std::to_string(sensors) + " sensors",
                              std::chrono::seconds(gOptions.deadlineSeconds));
        std::vector<std::thread> threads;
        for (int s = 0; s < sensors; ++s) {
            threads.emplace_back(runSensor, std::ref(sh), s, std::ref(out[static_cast<size_t>(s)]));
        }
        threads.emplace_back(runRequests, std::ref(sh), sensors, sensors);
        dog.join(threads);  // every call returned, or the process aborts
    }
    double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    int violations = 0;
    auto violate = [&](int n, std::string const& what) {
        if (++violations <= 20) {
            std::printf("  f%d: %s\n", n, what.c_str());
        }
    };
    std::vector<int64_t> lastTrueSof(static_cast<size_t>(sensors), 0);
    int results = 0, passed = 0;
    for (int n = 0; n < frames; ++n) {
        FramePlan const& p = plan[static_cast<size_t>(n)];
        std::vector<int> trueCams, callers;
        for (int s = 0; s < sensors; ++s) {
            Outcome const& o = out[static_cast<size_t>(s)][static_cast<size_t>(n)];
            if (!o.called)
                continue;
            ++results;
            callers.push_back(s);
            if (!o.verdict)
                continue;
            ++passed;
            trueCams.push_back(s);
            int64_t sof = p.sof[static_cast<size_t>(s)];
            if (sof <= lastTrueSof[static_cast<size_t>(s)]) {
                violate(n, "cam" + std::to_string(s) + " passed with a start of frame not after " +
                               "its previous passed frame's");
            }
            lastTrueSof[static_cast<size_t>(s)] = sof;
            if (o.halMaster != p.master || o.appMaster != p.master) {
                violate(n, "cam" + std::to_string(s) + " passed with master " +
                               (o.halMaster ? std::to_string(*o.halMaster) : "none") + "/" +
                               (o.appMaster ? std::to_string(*o.appMaster) : "none") +
                               ", asked for " + std::to_string(p.master));
            }
        }
        if (p.mode == 1 && !trueCams.empty()) {
            bool someFirst = false;
            for (int first : trueCams) {
                bool all = true;
                for (int other : trueCams) {
                    all = all && inTolerance(p.sof[static_cast<size_t>(first)],
                                             p.sof[static_cast<size_t>(other)]);
                }
                someFirst = someFirst || all;
            }
            if (!someFirst)
                violate(n, "passed in mode 1 out of tolerance");
        }
        if (p.nearLeave)
            continue;
        if (trueCams.size() != 0 && trueCams.size() != callers.size())
            violate(n, "the cameras that called disagree on the verdict");
        if (p.event == Event::kMasterDrop || p.event == Event::kFlush) {
            if (!trueCams.empty())
                violate(n, "passed although its master dropped it or a sensor flushed it");
        } else if (!p.inverted && trueCams.empty() && !callers.empty()) {
            bool allWithin = true;
            for (int a : callers) {
                for (int b : callers) {
                    allWithin = allWithin && inTolerance(p.sof[static_cast<size_t>(a)],
                                                         p.sof[static_cast<size_t>(b)]);
                }
            }
            if (p.mode != 1 || allWithin)
                violate(n, "failed in mode " + std::to_string(p.mode) + " within the tolerance");
        }
    }
    std::printf(
        "stress: %d sensors: %d frames in %.2f s (%.0f frames/s), %d results, %d passed, %d "
        "sensor drops, %d crop overrides, %zu crop snapshots kept, %d violations\n",
        sensors, frames, seconds, frames / seconds, results, passed, sh.sensorDrops.load(),
        sh.cropOverrides.load(), SyncHelperInspector::cropSnapshotCount(*helper), violations);
    EXPECT_EQ(violations, 0);
    EXPECT_EQ(sh.cropViolations.load(), 0);
    EXPECT_GT(passed, results / 4) << "too few frames passed for the invariants to mean much";
    EXPECT_GT(sh.cropOverrides.load(), 0);
}

TEST(SyncHelperStress, ThreeSensors) {
    runSession(3);
}

TEST(SyncHelperStress, FourSensors) {
    runSession(4);
}

int intArg(int argc, char** argv, char const* name, char const* env, int fallback) {
    std::string const prefix = std::string("--") + name + "=";
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], prefix.c_str(), prefix.size()) == 0) {
            return std::atoi(argv[i] + prefix.size());
        }
    }
    char const* text = std::getenv(env);
    return text != nullptr && *text != '\0' ? std::atoi(text) : fallback;
}

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    gOptions.frames = intArg(argc, argv, "frames", "RYX_STRESS_FRAMES", gOptions.frames);
    gOptions.seed = static_cast<unsigned>(
        intArg(argc, argv, "seed", "RYX_STRESS_SEED", static_cast<int>(gOptions.seed)));
    gOptions.deadlineSeconds =
        intArg(argc, argv, "deadline", "RYX_STRESS_DEADLINE", gOptions.deadlineSeconds);
    // Out-of-sync warnings would flood the output; fatal statements still abort.
    NSCam::Utils::ULog::ULogger::sMode = 0;
    return RUN_ALL_TESTS();
}
