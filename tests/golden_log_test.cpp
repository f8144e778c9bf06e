// A fixed multi-frame session run under several logger configurations, every line of both
// channels compared with a recorded file (tests/golden/session.log), together with each frame's
// verdicts and the values written into its result metadata. Only the clock value of the master's
// "sync check diff" line is masked. Any change of text, severity, gate, order, line number,
// verdict or written value shows as a diff.
//
// Threads are ordered by readiness: a camera that must wait is started on its own thread and the
// next call is made only once that thread sleeps in the kernel (the library's only blocking
// point), so the first arrival, and with it every line up to the completing camera's "unlock",
// is deterministic. After that line the woken threads run in any order; those few lines are
// compared as a sorted block with repeats folded.
//
// To record the file again: RYX_GOLDEN_RECORD=1 build/default/tests/golden_log_test

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <functional>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "SyncHelper.h"
#include "Watchdog.h"
#include "facade_session.h"

namespace facadetest {
namespace {

constexpr char kLogLevelProperty[] = "vendor.debug.camera.SyncDataUpdater.log";

struct Config {
    char const* name;
    uint32_t mode;
    uint32_t detailsLevel;
    uint32_t mask;
    int updaterLogLevel;
};

// Both channels with every line; the updaters' own verbosity off; warnings and errors only;
// the unified logger alone; the module mask refusing debug and info.
constexpr Config kConfigs[] = {
    {"both-channels-debug-verbose", 0x9, 5, 0xFFFFFFFFu, 2},
    {"both-channels-debug-quiet-updaters", 0x9, 5, 0xFFFFFFFFu, 0},
    {"both-channels-warnings", 0x9, 2, 0xFFFFFFFFu, 2},
    {"unified-only-debug", 0x8, 5, 0xFFFFFFFFu, 1},
    {"android-only-module-refused", 0x1, 5, 0xFFFFEFFFu, 2},
};

// One look at thread `tid`: its state letter and its count of voluntary context switches.
std::pair<char, std::string> look(pid_t tid) {
    std::string const base = "/proc/self/task/" + std::to_string(tid);
    std::ifstream stat(base + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    size_t const paren = text.rfind(')');
    char const state =
        paren != std::string::npos && paren + 2 < text.size() ? text[paren + 2] : '?';
    std::ifstream status(base + "/status");
    std::string line;
    while (std::getline(status, line) && line.rfind("voluntary_ctxt_switches:", 0) != 0) {
    }
    return {state, line};
}

// Returns once thread `tid` has been seen asleep in the kernel many times in a row without being
// woken in between: it is blocked, not merely between two steps.
void waitAsleep(pid_t tid) {
    std::pair<char, std::string> last;
    for (int same = 0; same < 20;) {
        std::this_thread::yield();
        auto const now = look(tid);
        same = now.first == 'S' && now == last ? same + 1 : 0;
        last = now;
    }
}

std::string mask(std::string text) {
    static std::regex const clock("sync check diff = [-0-9.]+");
    return std::regex_replace(text, clock, "sync check diff = <clock>");
}

class GoldenSession {
  public:
    explicit GoldenSession(Config const& config)
        : mLog(config.mode, config.detailsLevel, config.mask) {
        NSCam::Utils::Properties::setHostProperty(kLogLevelProperty,
                                                  std::to_string(config.updaterLogLevel));
        mOut << "### config " << config.name << "\n";
    }
    ~GoldenSession() { NSCam::Utils::Properties::clearHostProperty(kLogLevelProperty); }

    std::string run() {
        step("create", [&] { mHelper = ISyncHelper::createInstance(7, true, infoFor({0, 1, 2})); });
        Request const sync3{{0, 1, 2}, 0, 1000, 1};
        // In sync: the three start-of-frame times lie within one millisecond.
        frameInOrder("f10 in sync",
                     {cam(1, 10, 0, sync3), cam(2, 10, 300000, sync3), cam(0, 10, 100000, sync3)});
        Request const mode0{{0, 1, 2}, 0, 1000, 0};
        frameInOrder("f11 out of sync, flagged",
                     {cam(0, 11, 0, mode0), cam(1, 11, 200000, mode0), cam(2, 11, 5 * kMs, mode0)});
        frameInOrder("f12 out of sync, dropped",
                     {cam(2, 12, 0, sync3), cam(0, 12, 4 * kMs, sync3), cam(1, 12, 0, sync3)});
        Request const master2{{0, 2}, 2, 2000, 1};
        frameInOrder("f13 master 2", {cam(0, 13, 0, master2), cam(2, 13, 1500000, master2)});
        Request const master1{{0, 1}, 1, 2000, 1};
        // Camera 1's exposure lags camera 2's of the frame before: refused as a time inversion.
        frameInOrder("f14 time inversion",
                     {cam(1, 14, 0, master1, -40 * kMs), cam(0, 14, 0, master1)});
        frameInOrder("f9 frame inversion",
                     {cam(0, 9, 0, sync3), cam(1, 9, 0, sync3), cam(2, 9, 0, sync3)});
        frameInOrder("f15 a timestamp missing",
                     {cam(0, 15, 0, sync3), cam(1, 15, -1, sync3), cam(2, 15, 0, sync3)});

        Request const alone{{}, 0};
        step("f20 single camera", [&] { checkNow(cam(0, 20, 0, alone)); });
        step("f21 single camera, another master", [&] { checkNow(cam(1, 21, 0, Request{{}, 1})); });

        step("f30 slaves drop, master completes", [&] {
            mHelper->notifyDrop(cam(1, 30, 0, sync3).in);
            mHelper->notifyDrop(cam(2, 30, 0, sync3).in);
            checkNow(cam(0, 30, 0, sync3));
        });
        step("f31 master drops", [&] {
            mHelper->notifyDrop(cam(0, 31, 0, sync3).in);
            checkNow(cam(1, 31, 0, sync3));
            checkNow(cam(2, 31, 0, sync3));
        });
        step("f32 flushed", [&] {
            mHelper->notifyDrop(32, 0);
            checkNow(cam(0, 32, 0, sync3));
        });
        frameInOrder("f33 sensor 2 leaves", {cam(0, 33, 0, sync3), cam(1, 33, 0, sync3)},
                     [&] { mHelper->notifyDropBySensor(2); });
        Request const disabled{{0, 1}, 0, 1000, 1, 0};
        step("f34 sync disabled", [&] { checkNow(cam(0, 34, 0, disabled)); });
        step("f40 crops", [&] {
            mHelper->setSensorCropRegion(
                140, {{0, MRect(10, 20, 300, 200)}, {1, MRect(11, 21, 301, 201)}});
            // Not part of the exported interface: the pipeline reaches it on the helper itself.
            auto* helper = dynamic_cast<SyncHelper*>(mHelper.get());
            for (int sensor : {0, 1}) {
                CamFrame& f = cam(sensor, 40, 0, Request{{0, 1}, 0});
                helper->getSensorCropRegion(f.in);
                record(f, true);
            }
        });
        step("switch flag", [&] {
            for (int frameNo : {-3, -2, 5}) {
                CamFrame& f = cam(0, frameNo, 0, Request{{0, 1}, 0});
                ryxtest::setInts(f.halControl, RYX_NEED_SYNC, {1});
                mOut << "flag f" << frameNo << " = " << mHelper->getSyncSwitchFlag(f.in) << "\n";
            }
        });
        step("destroy", [&] { mHelper.reset(); });
        return mOut.str();
    }

  private:
    // `sofOffset` -1 leaves the start of frame unknown (0).
    CamFrame& cam(int sensor, int frameNo, int64_t sofOffset, Request const& req,
                  int64_t expShift = 0) {
        int64_t const sof = sofOffset < 0 ? 0 : 1000 * kMs + frameNo * kFrameNs + sofOffset;
        int64_t const exp = 1000 * kMs + frameNo * kFrameNs + expShift + sensor * 1000;
        mFrames.push_back(std::make_unique<CamFrame>(sensor, frameNo, sof, exp, req));
        return *mFrames.back();
    }

    void checkNow(CamFrame& f) { record(f, mHelper->syncResultCheck(f.in, &f.out)); }

    void record(CamFrame& f, bool verdict) {
        std::ostringstream s;
        s << "cam" << f.in.m_id << " f" << f.in.frameNo << " verdict=" << verdict
          << " bMasterCam=" << f.out.bMasterCam;
        auto put = [&](char const* name, auto const& value) {
            if (value) {
                s << " " << name << "=" << *value;
            }
        };
        put("result", f.syncResult());
        put("halMaster", f.halMaster());
        put("appMaster", f.appMaster());
        if (auto rect = f.activeArray()) {
            s << " active=" << rect->left << "," << rect->top << "," << rect->width << "x"
              << rect->height;
        }
        put("focal", tagOf<float>(f.appDynamic, LENS_FOCAL_LENGTH));
        if (auto crop = f.cropOverride()) {
            s << " crop=" << crop->left << "," << crop->top << "," << crop->width << "x"
              << crop->height;
        }
        s << " entries=" << f.written();
        mResults.push_back(s.str());
    }

    // Every camera but the last waits in turn on a thread of its own; the last one completes the
    // frame on another thread, unless `finish` completes it instead.
    void frameInOrder(std::string const& name, std::vector<std::reference_wrapper<CamFrame>> cams,
                      std::function<void()> finish = nullptr) {
        step(name, [&] {
            ryxtest::Watchdog dog("golden " + name, std::chrono::seconds(30));
            std::vector<std::thread> threads;
            std::vector<char> verdicts(cams.size(), 0);
            size_t const waiting = finish ? cams.size() : cams.size() - 1;
            auto const markOrdered = [&] {
                mOrderedAndroid = mLog.android().size();
                mOrderedULog = mLog.ulog().size();
            };
            // Outlives the threads: the last one may start after its loop turn has ended.
            std::vector<std::atomic<pid_t>> tids(cams.size());
            for (auto& t : tids) {
                t = 0;
            }
            for (size_t i = 0; i < cams.size(); ++i) {
                if (i == waiting) {
                    markOrdered();
                }
                std::atomic<pid_t>& tid = tids[i];
                threads.emplace_back([&, i] {
                    tids[i] = static_cast<pid_t>(syscall(SYS_gettid));
                    verdicts[i] = mHelper->syncResultCheck(cams[i].get().in, &cams[i].get().out);
                });
                if (i < waiting) {
                    while (tid == 0) {
                        std::this_thread::yield();
                    }
                    waitAsleep(tid);
                }
            }
            if (finish) {
                markOrdered();
                finish();
            }
            dog.join(threads);
            for (size_t i = 0; i < cams.size(); ++i) {
                record(cams[i], verdicts[i] != 0);
            }
        });
    }

    void step(std::string const& name, std::function<void()> const& body) {
        mLog.clear();
        mResults.clear();
        mOrderedAndroid = mOrderedULog = std::string::npos;
        body();
        mOut << "## " << name << "\n";
        std::vector<std::string> android;
        for (auto const& l : mLog.android()) {
            android.push_back("A " + std::to_string(l.priority) + " " + l.tag + " | " +
                              mask(l.text));
        }
        std::vector<std::string> ulog;
        for (auto const& l : mLog.ulog()) {
            std::string const text = mask(l.text);
            // The length follows the text except for a cut one, or a masked clock.
            std::string const len = text != l.text ? "*" : std::to_string(l.length);
            ulog.push_back("U " + std::to_string(l.level) + " " + l.tag + " " + len + " | " + text);
        }
        emit(android, mOrderedAndroid);
        emit(ulog, mOrderedULog);
        for (auto const& r : mResults) {
            mOut << "R " << r << "\n";
        }
    }

    // Lines after the first "unlock" once the waiters were ready come from woken threads in any
    // order, and how many of them see the frame still in the drop queue depends on that order:
    // they are written sorted with repeats folded, after a marker.
    void emit(std::vector<std::string> lines, size_t orderedFrom) {
        if (orderedFrom != std::string::npos) {
            auto const unlock = std::find_if(
                lines.begin() + static_cast<long>(std::min(orderedFrom, lines.size())), lines.end(),
                [](std::string const& l) { return l.find(" unlock") != std::string::npos; });
            if (unlock != lines.end()) {
                std::sort(unlock + 1, lines.end());
                lines.erase(std::unique(unlock + 1, lines.end()), lines.end());
                lines.insert(unlock + 1, "~ any order, repeats folded");
            }
        }
        for (auto const& l : lines) {
            mOut << l << "\n";
        }
    }

    ryxtest::LogCapture mLog;
    std::shared_ptr<ISyncHelper> mHelper;
    std::vector<std::unique_ptr<CamFrame>> mFrames;
    std::vector<std::string> mResults;
    size_t mOrderedAndroid = std::string::npos;
    size_t mOrderedULog = std::string::npos;
    std::ostringstream mOut;
};

TEST(GoldenLog, EveryLineVerdictAndWrittenValueMatchesTheRecording) {
    std::string actual;
    for (Config const& config : kConfigs) {
        actual += GoldenSession(config).run();
    }
    if (std::getenv("RYX_GOLDEN_RECORD") != nullptr) {
        std::ofstream(RYX_GOLDEN_FILE) << actual;
        GTEST_SKIP() << "recorded " << RYX_GOLDEN_FILE;
    }
    std::ifstream file(RYX_GOLDEN_FILE);
    ASSERT_TRUE(file.good()) << "missing " << RYX_GOLDEN_FILE;
    std::vector<std::string> expected;
    for (std::string line; std::getline(file, line);) {
        expected.push_back(line);
    }
    std::istringstream in(actual);
    std::vector<std::string> got;
    for (std::string line; std::getline(in, line);) {
        got.push_back(line);
    }
    // The first differing line, with its section, is what a reader needs.
    std::string section;
    for (size_t i = 0; i < std::max(expected.size(), got.size()); ++i) {
        std::string const want = i < expected.size() ? expected[i] : "<end>";
        std::string const have = i < got.size() ? got[i] : "<end>";
        if (want.rfind("#", 0) == 0) {
            section = want;
        }
        ASSERT_EQ(want, have) << "line " << i + 1 << " of " << RYX_GOLDEN_FILE << " in " << section;
    }
}

}  // namespace
}  // namespace facadetest
